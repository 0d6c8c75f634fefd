// Failures crossing into Python. The program's AppError keeps its exit code
// (tavrin.OptionError for a bad option, tavrin.Error otherwise); a library
// call that returns a status raises tavrin.LibraryError carrying it. The
// classes are defined in the pure-Python package (tavrin/_errors.py).
#ifndef TAVRIN_PYTHON_ERRORS_H
#define TAVRIN_PYTHON_ERRORS_H

#include <pybind11/pybind11.h>

#include <stdexcept>
#include <string>

namespace tavrin_python {

class LibraryFailure : public std::runtime_error {
public:
    LibraryFailure(int status, const std::string& message) : std::runtime_error(message), status_(status) {}
    int status() const { return status_; }

private:
    int status_;
};

void registerErrorTranslator();

}  // namespace tavrin_python

#endif
