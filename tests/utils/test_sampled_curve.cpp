// Samples are evaluated on first use from the curve resample() saw, once, for every copy.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "utils/SampledCurve.h"

using ZeltoUtils::SampledCurve;

TEST(SampledCurveSamples, FollowTheCurveAtResampleNotItsLaterEdits) {
    SampledCurve curve;
    curve.cvs() = {{0, 0, 0}, {1, 2, 0}, {3, 2, 0}, {4, 0, 0}};
    curve.knots() = {0, 0, 0, 0, 1, 1, 1, 1};
    curve.resample(65535);
    curve.cvs()[3] = {40, 0, 0};  // edited before the samples were ever asked for
    const SampledCurve copy = curve;
    ASSERT_EQ(curve.samples().size(), 65535u);
    EXPECT_EQ(curve.samples().back(), Imath::V3f(4, 0, 0));
    EXPECT_EQ(&copy.samples(), &curve.samples());  // evaluated once, shared by copies
    curve.resample(2);
    EXPECT_EQ(curve.samples().back(), Imath::V3f(40, 0, 0));
    EXPECT_EQ(copy.samples().size(), 65535u);
    curve.cvs().clear();
    curve.resample(7);
    EXPECT_TRUE(curve.samples().empty());
    EXPECT_EQ(curve.sampleCount(), 7);
}

TEST(SampledCurveSamples, FirstUseFromManyThreadsAgrees) {
    SampledCurve curve;
    curve.cvs() = {{0, 0, 0}, {1, 2, 0}, {3, 2, 0}, {4, 0, 0}, {5, 1, 1}};
    curve.resample(4000);
    std::vector<const std::vector<Imath::V3f>*> seen(8);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i)
        threads.emplace_back([&, i] { seen[i] = &curve.samples(); });
    for (std::thread& t : threads)
        t.join();
    for (const auto* s : seen) {
        ASSERT_EQ(s, seen[0]);
        EXPECT_EQ(s->size(), 4000u);
    }
}
