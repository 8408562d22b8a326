#include "utils/ParallelFor.h"

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/partitioner.h>

namespace ZeltoUtils {

void parallel_for(const ParallelForRange& range,
                  std::function<void(const ParallelForRange&)> body) {
    if (range.begin >= range.end) return;
    if (range.end - range.begin == 1) {
        body(range);
        return;
    }
    tbb::parallel_for(
        tbb::blocked_range<uint32_t>(range.begin, range.end),
        [&body](const tbb::blocked_range<uint32_t>& r) {
            body(ParallelForRange(r.begin(), r.end()));
        },
        tbb::auto_partitioner());
}

}  // namespace ZeltoUtils
