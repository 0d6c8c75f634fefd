// Errors of the tavrin command: one message for the user and the exit code
// that goes with its kind.
#ifndef TAVRIN_APP_ERROR_H
#define TAVRIN_APP_ERROR_H

#include <stdexcept>
#include <string>

namespace tavrin {

// Exit codes (documented in the usage text and the README).
enum ExitCode : int {
    kExitOk = 0,
    kExitFailure = 1,      // processing failed (library status, writing the output)
    kExitUsage = 2,        // bad command line or option value, bad parameter/table file
    kExitInput = 3,        // input file missing or unreadable
    kExitFormat = 4,       // unsupported or damaged image, page too large
};

class AppError : public std::runtime_error {
public:
    AppError(ExitCode code, const std::string& message)
        : std::runtime_error(message), code_(code) {}
    ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

}  // namespace tavrin

#endif
