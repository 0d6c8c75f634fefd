#include "pipeline/components.h"

#include <cstring>
#include <exception>
#include <numeric>

namespace tavrin {

namespace {

int findRoot(std::vector<int>& parent, int i) {
    while (parent[i] != i) i = parent[i] = parent[parent[i]];
    return i;
}

void join(std::vector<int>& parent, int a, int b) {
    a = findRoot(parent, a), b = findRoot(parent, b);
    if (a != b) parent[std::max(a, b)] = std::min(a, b);  // the earlier run stays the root
}

uint64_t load8(const uint8_t* p) {
    uint64_t v;
    std::memcpy(&v, p, 8);
    return v;
}

bool hasZeroByte(uint64_t v) { return ((v - 0x0101010101010101ull) & ~v & 0x8080808080808080ull) != 0; }

constexpr size_t kSideBySideFrom = size_t(1) << 18;  // pixels; smaller masks stay on one thread

// The runs of rows [y0, y1) appended to `runs`, each row's first run's
// index (counted from the band's start) in `rowStart`.
void appendRuns(const Plane& mask, int y0, int y1, std::vector<Run>& runs, size_t* rowStart) {
    const int w = mask.width;
    for (int y = y0; y < y1; ++y) {
        rowStart[y] = runs.size();
        const uint8_t* m = mask.row(y);
        for (int x = 0; x < w;) {
            // Eight bytes at a time over the gaps and along the runs.
            while (x + 8 <= w && load8(m + x) == 0) x += 8;
            while (x < w && !m[x]) ++x;
            if (x == w) break;
            Run r;
            r.y = y, r.x0 = x;
            while (x + 8 <= w && !hasZeroByte(load8(m + x))) x += 8;
            while (x < w && m[x]) ++x;
            r.x1 = x - 1;
            runs.push_back(r);
        }
    }
}

}  // namespace

Components findComponents(const Plane& mask) {
    Components c;
    std::vector<size_t> rowStart(size_t(mask.height) + 1, 0);
    // The rows in two bands side by side, then the second band's runs after
    // the first's.
    const int half = mask.height / 2;
    std::vector<Run> lower;
    // No exception may leave a parallel region (a run list can be larger
    // than the plane): each band's is kept and thrown afterwards.
    std::exception_ptr failed[2];
    const auto band = [&](int k) {
        try {
            if (k == 0)
                appendRuns(mask, 0, half, c.runs, rowStart.data());
            else
                appendRuns(mask, half, mask.height, lower, rowStart.data());
        } catch (...) {
            failed[k] = std::current_exception();
        }
    };
#pragma omp parallel sections if (mask.data.size() >= kSideBySideFrom)
    {
#pragma omp section
        band(0);
#pragma omp section
        band(1);
    }
    for (const std::exception_ptr& e : failed)
        if (e) std::rethrow_exception(e);
    for (int y = half; y < mask.height; ++y) rowStart[y] += c.runs.size();
    c.runs.insert(c.runs.end(), lower.begin(), lower.end());
    rowStart[mask.height] = c.runs.size();

    std::vector<int> parent(c.runs.size());
    std::iota(parent.begin(), parent.end(), 0);
    for (int y = 1; y < mask.height; ++y) {
        size_t a = rowStart[y - 1];
        const size_t aEnd = rowStart[y];
        for (size_t b = rowStart[y]; b < rowStart[y + 1]; ++b) {
            const Run& run = c.runs[b];
            // Runs above that end left of this run's diagonal reach are done.
            while (a < aEnd && c.runs[a].x1 < run.x0 - 1) ++a;
            for (size_t k = a; k < aEnd && c.runs[k].x0 <= run.x1 + 1; ++k) join(parent, int(k), int(b));
        }
    }

    std::vector<int> index(c.runs.size(), -1);
    for (size_t i = 0; i < c.runs.size(); ++i) {
        const int root = findRoot(parent, int(i));
        if (index[root] < 0) {
            index[root] = c.count++;
            c.boxes.push_back({c.runs[i].x0, c.runs[i].y, c.runs[i].x1, c.runs[i].y});
            c.area.push_back(0);
        }
        Run& r = c.runs[i];
        r.component = index[root];
        Rect& box = c.boxes[r.component];
        box.x0 = std::min(box.x0, r.x0), box.x1 = std::max(box.x1, r.x1);
        box.y1 = std::max(box.y1, r.y);
        c.area[r.component] += r.x1 - r.x0 + 1;
    }
    return c;
}

}  // namespace tavrin
