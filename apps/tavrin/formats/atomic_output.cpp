#include "formats/atomic_output.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "pipeline/app_error.h"

namespace tavrin {

AtomicOutput::AtomicOutput(std::string path) : path_(std::move(path)) {
    const size_t slash = path_.rfind('/');
    const std::string dir = slash == std::string::npos ? "" : path_.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path_ : path_.substr(slash + 1);
    std::string pattern = dir + "." + base + ".tmp-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int fd = mkstemp(name.data());
    if (fd < 0) throw AppError(kExitFailure, path_ + ": cannot create: " + std::strerror(errno));
    // mkstemp makes the file private; give it the usual mode for new files.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    close(fd);
    temp_ = name.data();
}

AtomicOutput::~AtomicOutput() {
    if (!committed_) std::remove(temp_.c_str());
}

void AtomicOutput::write(const std::string& data) {
    FILE* f = std::fopen(temp_.c_str(), "wb");
    if (!f) throw AppError(kExitFailure, path_ + ": cannot write: " + std::strerror(errno));
    const bool ok = std::fwrite(data.data(), 1, data.size(), f) == data.size();
    const int err = errno;
    if (std::fclose(f) != 0 || !ok)
        throw AppError(kExitFailure, path_ + ": cannot write: " + std::strerror(ok ? errno : err));
}

void AtomicOutput::commit() {
    if (std::rename(temp_.c_str(), path_.c_str()) != 0)
        throw AppError(kExitFailure, path_ + ": cannot write: " + std::strerror(errno));
    committed_ = true;
}

}  // namespace tavrin
