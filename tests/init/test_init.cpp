#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "core/Init.h"
#include "core/metadata/MetadataFactory.h"

using namespace ZeltoCore;

TEST(Init, ConcurrentFirstCallsReturnWithEveryTypeRegistered) {
    // Threads released together make the first calls; each must find the registry complete as
    // soon as its own call returns.
    constexpr int kThreads = 8;
    std::atomic<int> ready{0};
    std::atomic<int> missing{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            ++ready;
            while (ready < kThreads) {
            }
            initZeltoCore();
            MetadataFactory& factory = MetadataFactory::instance();
            for (const char* name : {"BoolMetadata", "HashMetadata", "MapMetadata", "ArrayMetadata",
                                     "Box3iArrayMetadata"}) {
                if (!factory.createMetadata(name)) ++missing;
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(missing, 0);
}
