// Temporary files live in a process-wide list guarded by one lock: it is
// taken while a temporary file is created, removed or renamed, and by the
// interrupt thread, which removes whatever the list holds before the
// process exits. So an interrupt never sees a temporary file it does not
// know, nor a commit half done.
#include "formats/atomic_output.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>

#include "pipeline/app_error.h"

namespace tavrin {

namespace {

// Never destroyed: the interrupt thread may still use them while the
// program returns from main.
std::mutex& tempLock() {
    static std::mutex* lock = new std::mutex;
    return *lock;
}

std::set<std::string>& tempFiles() {
    static std::set<std::string>* files = new std::set<std::string>;
    return *files;
}

AppError cannotWrite(const std::string& path, int err) {
    return AppError(kExitFailure, path + ": cannot write: " + std::strerror(err));
}

// Writes the whole string; the first failure's errno, or 0.
int writeAll(const std::string& path, const std::string& data) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return errno;
    const bool written = std::fwrite(data.data(), 1, data.size(), f) == data.size();
    int err = written ? 0 : errno;
    if (std::fclose(f) != 0 && err == 0) err = errno;
    return err;
}

}  // namespace

AtomicOutput::AtomicOutput(std::string path) : path_(std::move(path)) {
    const size_t slash = path_.rfind('/');
    const std::string dir = slash == std::string::npos ? "" : path_.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path_ : path_.substr(slash + 1);
    std::string name = dir + "." + base + ".tmp-XXXXXX";
    std::lock_guard<std::mutex> hold(tempLock());
    const int fd = mkstemp(&name[0]);
    if (fd < 0) throw AppError(kExitFailure, path_ + ": cannot create: " + std::strerror(errno));
    // mkstemp makes the file private; give it the usual mode for new files.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    close(fd);
    temp_ = name;
    tempFiles().insert(temp_);
}

AtomicOutput::~AtomicOutput() {
    if (committed_) return;
    std::lock_guard<std::mutex> hold(tempLock());
    std::remove(temp_.c_str());
    tempFiles().erase(temp_);
}

void AtomicOutput::write(const std::string& data) {
    if (const int err = writeAll(temp_, data)) throw cannotWrite(path_, err);
}

void AtomicOutput::commit() { commitAll({this}); }

void AtomicOutput::commitAll(const std::vector<AtomicOutput*>& outputs) {
    std::lock_guard<std::mutex> hold(tempLock());
    for (AtomicOutput* out : outputs) {
        if (out->committed_) continue;
        if (std::rename(out->temp_.c_str(), out->path_.c_str()) != 0) throw cannotWrite(out->path_, errno);
        tempFiles().erase(out->temp_);
        out->committed_ = true;
    }
}

void installOutputCleanup() {
    std::atexit([] {
        std::lock_guard<std::mutex> hold(tempLock());
        for (const std::string& temp : tempFiles()) unlink(temp.c_str());
    });
    sigset_t set;
    sigemptyset(&set);
    for (int s : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set, s);
    sigset_t old;
    pthread_sigmask(SIG_BLOCK, &set, &old);
    try {
        std::thread([set] {
            int sig = 0;
            while (sigwait(&set, &sig) != 0) {
            }
            std::lock_guard<std::mutex> hold(tempLock());  // held until the exit
            for (const std::string& temp : tempFiles()) unlink(temp.c_str());
            // A progress bar may stand on the terminal's last line.
            const char* name = sig == SIGINT ? "SIGINT" : sig == SIGTERM ? "SIGTERM" : "SIGHUP";
            std::fprintf(stderr, "%stavrin: interrupted by %s\n", isatty(STDERR_FILENO) ? "\r\033[K" : "", name);
            std::fflush(stderr);
            _exit(128 + sig);
        }).detach();
    } catch (const std::exception&) {
        pthread_sigmask(SIG_SETMASK, &old, nullptr);  // no thread: the signals keep their default
    }
}

}  // namespace tavrin
