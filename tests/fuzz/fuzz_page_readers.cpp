// The program's page readers (PNG, TIFF, JPEG, PNM, told apart by their
// first bytes) on arbitrary files. Every failure must be the program's own
// error with the exit code of its kind; every page that is read must hold
// exactly width x height x channels bytes.
//
// The fuzz build refuses pages above 1 million pixels (as too large), and
// the sanitizer's allocation limit (scripts/fuzz.sh) makes any allocation
// that a few bytes can inflate beyond that a finding.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "formats/page_reader.h"
#include "pipeline/app_error.h"

namespace {

// In memory when the system offers it: one file is written per input.
std::string scratchFile() {
    const char* dir = std::getenv("TMPDIR");
    const std::string base = dir && *dir ? dir : access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    return base + "/fuzz_page_" + std::to_string(getpid());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string path = scratchFile();
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr || std::fwrite(data, 1, size, f) != size || std::fclose(f) != 0) std::abort();
    try {
        auto reader = tavrin::PageReader::open(path);
        tavrin::Page page;
        for (int n = 0; n < reader->pageCount() + 1 && reader->next(page); ++n)
            if ((page.channels != 1 && page.channels != 3) || page.width <= 0 || page.height <= 0 ||
                page.pixels.size() != page.pixelCount() * page.channels)
                std::abort();
    } catch (const tavrin::AppError& e) {
        // 1: not enough memory for the page; 4: unsupported or damaged.
        if ((e.code() != tavrin::kExitFailure && e.code() != tavrin::kExitFormat) || !*e.what()) std::abort();
    }
    return 0;
}
