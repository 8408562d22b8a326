#include "utils/ParallelFor.h"

#ifdef ZELTO_PARALLEL_STD_THREAD
#include <algorithm>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>
#else
#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/partitioner.h>
#endif

namespace ZeltoUtils {

#ifdef ZELTO_PARALLEL_STD_THREAD
// Plain threads instead of the TBB pool, so that a ThreadSanitizer build (Debian's oneTBB is not
// instrumented) sees every access the body makes. One contiguous chunk per hardware thread.
static void runOnThreads(const ParallelForRange& range,
                         const std::function<void(const ParallelForRange&)>& body) {
    const uint32_t n = range.end - range.begin;
    const uint32_t workers = std::max(2u, std::min(n, std::thread::hardware_concurrency()));
    std::exception_ptr error;
    std::mutex errorMutex;
    auto run = [&](uint32_t k) {
        const uint32_t b = range.begin + static_cast<uint32_t>(uint64_t(n) * k / workers);
        const uint32_t e = range.begin + static_cast<uint32_t>(uint64_t(n) * (k + 1) / workers);
        if (b >= e) return;
        try {
            body(ParallelForRange(b, e));
        } catch (...) {
            std::lock_guard<std::mutex> lock(errorMutex);
            if (!error) error = std::current_exception();
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(workers - 1);
    for (uint32_t k = 1; k < workers; ++k)
        threads.emplace_back(run, k);
    run(0);
    for (std::thread& t : threads)
        t.join();
    if (error) std::rethrow_exception(error);
}
#endif

void parallel_for(const ParallelForRange& range,
                  std::function<void(const ParallelForRange&)> body) {
    if (range.begin >= range.end) return;
    if (range.end - range.begin == 1) {
        body(range);
        return;
    }
#ifdef ZELTO_PARALLEL_STD_THREAD
    runOnThreads(range, body);
#else
    tbb::parallel_for(
        tbb::blocked_range<uint32_t>(range.begin, range.end),
        [&body](const tbb::blocked_range<uint32_t>& r) {
            body(ParallelForRange(r.begin(), r.end()));
        },
        tbb::auto_partitioner());
#endif
}

}  // namespace ZeltoUtils
