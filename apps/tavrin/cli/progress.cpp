#include "cli/progress.h"

#include <unistd.h>

#include <cstdio>

namespace tavrin {

Progress::Progress(int total) : total_(total), shown_(total > 1 && isatty(STDERR_FILENO)) {
    update(0);
}

Progress::~Progress() {
    if (shown_) std::fprintf(stderr, "\r%*s\r", 60, "");
}

void Progress::update(int done) {
    if (!shown_) return;
    constexpr int kWidth = 30;
    const int filled = total_ > 0 ? done * kWidth / total_ : 0;
    char bar[kWidth + 1];
    for (int i = 0; i < kWidth; ++i) bar[i] = i < filled ? '#' : '-';
    bar[kWidth] = '\0';
    std::fprintf(stderr, "\r[%s] page %d of %d", bar, done, total_);
    std::fflush(stderr);
}

}  // namespace tavrin
