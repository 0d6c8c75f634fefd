// The program's option parser, its --params file and its --tables file on
// arbitrary text. The input is three parts separated by lines "====": the
// arguments after the command (one per line), the content of the file
// "params" and the content of the file "tables", both in the working
// directory, which is an empty scratch directory. Every failure must be
// the program's own error with a command-line or input exit code.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "cli/options.h"
#include "pipeline/app_error.h"

namespace {

void writeFile(const char* name, const std::string& text) {
    FILE* f = std::fopen(name, "wb");
    if (f == nullptr || std::fwrite(text.data(), 1, text.size(), f) != text.size() || std::fclose(f) != 0)
        std::abort();
}

void expectUsageOrInput(const tavrin::AppError& e) {
    if ((e.code() != tavrin::kExitUsage && e.code() != tavrin::kExitInput) || !*e.what()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const std::string dir = (access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + std::string("/fuzz_cli_") +
                            std::to_string(getpid());
    if (mkdir(dir.c_str(), 0700) != 0 || chdir(dir.c_str()) != 0) std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> parts;
    for (size_t start = 0;;) {
        const size_t end = text.find("\n====\n", start);
        parts.push_back(text.substr(start, end == std::string::npos ? end : end - start));
        if (end == std::string::npos) break;
        start = end + 6;
    }
    parts.resize(3);
    std::vector<std::string> args;
    for (size_t start = 0; start <= parts[0].size();) {
        const size_t end = std::min(parts[0].find('\n', start), parts[0].size());
        args.push_back(parts[0].substr(start, end - start));
        start = end + 1;
    }
    // Arguments are C strings; only the two files of the scratch directory
    // may be read, nothing outside it (a device or a pipe would never end).
    for (const std::string& a : args)
        if (a.find_first_of(std::string("/\0", 2)) != std::string::npos) return -1;
    writeFile("params", parts[1]);
    writeFile("tables", parts[2]);
    for (tavrin::Command command : {tavrin::Command::Detect, tavrin::Command::Compress}) {
        try {
            tavrin::parseOptions(command, args);
        } catch (const tavrin::AppError& e) {
            expectUsageOrInput(e);
        }
    }
    try {
        for (const tavrin::Rect& r : tavrin::readTablesFile("tables"))
            if (r.x0 < 0 || r.y0 < 0 || r.x0 > r.x1 || r.y0 > r.y1) std::abort();
    } catch (const tavrin::AppError& e) {
        expectUsageOrInput(e);
    }
    return 0;
}
