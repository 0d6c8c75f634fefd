// Two-band split shared by the detection filters (smoothing, masked entropy,
// morphology): the rows of one call are cut into exactly two bands that run
// as the two iterations of one OpenMP parallel region.
#ifndef TAVRIN_DETECT_FILTER_BANDS_H
#define TAVRIN_DETECT_FILTER_BANDS_H

#include <omp.h>

#include "TavrinImage.h"

namespace tavrin::detect {

// Runs band(0) and band(1) (each returning an int status) in one parallel
// region on the runtime's default team and merges the two statuses.
// Iterations go to threads by the static rule: with T threads, thread t takes
// q = 2 / T iterations (one more when t < 2 % T) as a contiguous block in
// iteration order. One thread runs both bands, band 0 first; in a larger team
// threads 0 and 1 take one band each. The bands must write disjoint memory.
template <typename Band>
int runTwoBands(Band band) {
    int status[2] = {0, 0};
#pragma omp parallel
    {
        const int team = omp_get_num_threads();
        const int t = omp_get_thread_num();
        const int q = 2 / team;
        const int r = 2 % team;
        const int count = t < r ? q + 1 : q;
        const int start = t < r ? t * (q + 1) : t * q + r;
        for (int i = start; i < start + count; ++i) status[i] = band(i);
    }
    return set_ErrorCode_forParallel(status[0], status[1], 0, 3);
}

}  // namespace tavrin::detect

#endif
