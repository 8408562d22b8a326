#include "utils/ParallelFor.h"

#include <atomic>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

namespace {

using ZeltoUtils::parallel_for;
using ZeltoUtils::ParallelForRange;

TEST(ParallelFor, CoversEveryIndexExactlyOnce) {
    for (uint32_t begin : {0u, 5u}) {
        for (uint32_t size : {0u, 1u, 7u, 100000u}) {
            const uint32_t end = begin + size;
            std::unique_ptr<std::atomic<int>[]> hits(new std::atomic<int>[end + 1]());
            std::atomic<int> calls{0};
            parallel_for(ParallelForRange(begin, end), [&](const ParallelForRange& r) {
                EXPECT_LT(r.begin, r.end);
                EXPECT_GE(r.begin, begin);
                EXPECT_LE(r.end, end);
                ++calls;
                for (uint32_t i = r.begin; i < r.end; ++i)
                    ++hits[i];
            });
            for (uint32_t i = 0; i <= end; ++i) {
                ASSERT_EQ(hits[i].load(), i >= begin && i < end ? 1 : 0) << size << " " << i;
            }
            if (size == 0) {
                EXPECT_EQ(calls.load(), 0);
            } else if (size == 100000) {
                EXPECT_LT(calls.load(), 10000);  // sub-ranges, not one task per element
            }
        }
    }
}

TEST(ParallelFor, SingleElementRunsOnTheCallersThread) {
    std::thread::id ran;
    parallel_for({3, 4}, [&](const ParallelForRange& r) {
        EXPECT_EQ(r.begin, 3u);
        EXPECT_EQ(r.end, 4u);
        ran = std::this_thread::get_id();
    });
    EXPECT_EQ(ran, std::this_thread::get_id());
    int calls = 0;
    parallel_for({9, 2}, [&](const ParallelForRange&) { ++calls; });  // reversed: empty
    EXPECT_EQ(calls, 0);
}

}  // namespace
