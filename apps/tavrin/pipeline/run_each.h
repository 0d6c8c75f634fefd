// Independent jobs side by side on the OpenMP threads. Jobs started inside
// a job run on its thread alone (nested regions are not made active), so
// the outermost loop with enough jobs takes the threads.
#ifndef TAVRIN_PIPELINE_RUN_EACH_H
#define TAVRIN_PIPELINE_RUN_EACH_H

#include <exception>
#include <vector>

namespace tavrin {

// Runs job(0) .. job(n - 1). An exception may not leave a parallel region:
// the first one, in index order, is thrown after all jobs have ended.
template <class Job>
void runEach(size_t n, const Job& job) {
    std::vector<std::exception_ptr> failed(n);
#pragma omp parallel for schedule(dynamic, 1)
    for (size_t k = 0; k < n; ++k) {
        try {
            job(k);
        } catch (...) {
            failed[k] = std::current_exception();
        }
    }
    for (const std::exception_ptr& e : failed)
        if (e) std::rethrow_exception(e);
}

}  // namespace tavrin

#endif
