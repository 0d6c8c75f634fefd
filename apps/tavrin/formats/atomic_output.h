// Output files that appear under their names only when complete: writers
// fill a temporary file in the same directory; commit() renames it over the
// requested name, and the destructor removes it if commit() never ran.
// A run that fails or is interrupted therefore leaves no partial or
// temporary file and no earlier output changed.
#ifndef TAVRIN_APP_ATOMIC_OUTPUT_H
#define TAVRIN_APP_ATOMIC_OUTPUT_H

#include <string>
#include <vector>

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
    // Writes all of `data` into the temporary file; throws AppError
    // (kExitFailure) naming the output and the system's reason (a full
    // disk, a file-size limit).
    void write(const std::string& data);
    void commit();
    // Commits several outputs together: an interrupt arriving meanwhile
    // waits until all of them are in place.
    static void commitAll(const std::vector<AtomicOutput*>& outputs);

private:
    std::string path_;
    std::string temp_;
    bool committed_ = false;
};

// Makes the program leave no temporary file however it ends. SIGINT,
// SIGTERM and SIGHUP: every temporary file of an uncommitted output is
// removed, one line "tavrin: interrupted by SIGINT" goes to standard error
// and the process exits with 128 + the signal's number (130, 143, 129).
// exit() called from anywhere (the OpenMP runtime does so when it cannot
// start a thread): the temporary files are removed on the way out. Call it
// first in main, before any other thread exists: the signals are blocked in
// every thread and taken by one thread of their own, which can take the
// lock that guards the list of temporary files (a signal handler could
// not).
void installOutputCleanup();

}  // namespace tavrin

#endif
