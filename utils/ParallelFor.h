// parallel_for: runs a function over sub-ranges of an index range on the oneTBB worker pool.
//
// Contract: the body is called with non-empty sub-ranges that together cover [begin, end)
// exactly once, possibly concurrently on several threads, and parallel_for returns when every
// call has returned. An empty range makes no call; a one-element range is run directly on the
// caller's thread (a task costs more than most single items). An exception thrown by the body
// cancels the remaining sub-ranges and is rethrown to the caller.
//
//   std::vector<double> out(n);
//   ZeltoUtils::parallel_for({0, n}, [&](const ZeltoUtils::ParallelForRange& r) { ... });
#pragma once

#include <cstdint>
#include <functional>

#include "utils/Export.h"

namespace ZeltoUtils {

// The half-open index range [begin, end).
struct ZELTO_API ParallelForRange {
    ParallelForRange() = default;
    ParallelForRange(uint32_t begin, uint32_t end) : begin(begin), end(end) {}

    uint32_t begin = 0;
    uint32_t end = 0;
};

ZELTO_API void parallel_for(const ParallelForRange& range,
                            std::function<void(const ParallelForRange&)> body);

}  // namespace ZeltoUtils
