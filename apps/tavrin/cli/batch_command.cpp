#include "cli/batch_command.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "pipeline/app_error.h"

namespace tavrin {

namespace {

constexpr const char* kInterpreter = "/usr/bin/python3";

bool holdsPackage(const std::string& dir) {
    struct stat st;
    return stat((dir + "/tavrin/batch.py").c_str(), &st) == 0;
}

// The installed package next to the installed program, else the build
// tree's; "" leaves the search to the interpreter's own path.
std::string packageDir() {
    std::vector<std::string> candidates;
#ifdef TAVRIN_PYTHON_FROM_BIN
    char exe[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n > 0) {
        const std::string path(exe, size_t(n));
        candidates.push_back(path.substr(0, path.rfind('/') + 1) + TAVRIN_PYTHON_FROM_BIN);
    }
#endif
#ifdef TAVRIN_PYTHON_BUILD_DIR
    candidates.push_back(TAVRIN_PYTHON_BUILD_DIR);
#endif
    for (const std::string& dir : candidates)
        if (holdsPackage(dir)) return dir;
    return "";
}

}  // namespace

void runBatch(const std::vector<std::string>& args) {
    const std::string dir = packageDir();
    if (!dir.empty()) {
        const char* old = std::getenv("PYTHONPATH");
        setenv("PYTHONPATH", (old && *old ? dir + ":" + old : dir).c_str(), 1);
    }
    // The full path as argv[0]: the interpreter derives sys.executable, which
    // starts the local workers, from it.
    std::vector<std::string> words = {kInterpreter, "-m", "tavrin.batch"};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(&w[0]);
    argv.push_back(nullptr);
    execv(kInterpreter, argv.data());
    throw AppError(kExitFailure, std::string("batch: cannot run ") + kInterpreter + ": " + std::strerror(errno));
}

}  // namespace tavrin
