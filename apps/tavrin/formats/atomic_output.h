// An output file that appears under its name only when complete: writers
// fill a temporary file in the same directory, commit() renames it over the
// requested name, and the destructor removes it if commit() never ran.
#ifndef TAVRIN_APP_ATOMIC_OUTPUT_H
#define TAVRIN_APP_ATOMIC_OUTPUT_H

#include <string>

namespace tavrin {

class AtomicOutput {
public:
    // Creates the temporary file; throws AppError(kExitFailure) when the
    // directory does not accept it.
    explicit AtomicOutput(std::string path);
    ~AtomicOutput();
    AtomicOutput(const AtomicOutput&) = delete;
    AtomicOutput& operator=(const AtomicOutput&) = delete;

    const std::string& tempPath() const { return temp_; }
    const std::string& path() const { return path_; }
    // Writes all of `data` into the temporary file.
    void write(const std::string& data);
    void commit();

private:
    std::string path_;
    std::string temp_;
    bool committed_ = false;
};

}  // namespace tavrin

#endif
