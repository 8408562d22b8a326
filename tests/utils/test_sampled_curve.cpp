// Sampled curves: the points of the curve, whatever knots and degree were stored, evaluated on
// first use from the curve resample() saw, once, for every copy.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>
#include <vector>

#include "utils/SampledCurve.h"

using ZeltoUtils::SampledCurve;

namespace {

SampledCurve bezier() {
    SampledCurve curve;
    curve.cvs() = {{0, 0, 0}, {1, 2, 0}, {3, 2, 0}, {4, 0, 3}};
    curve.knots() = {0, 0, 0, 0, 1, 1, 1, 1};
    return curve;
}

bool near(const Imath::V3f& a, const Imath::V3f& b) {
    return a.equalWithAbsError(b, 1e-5f);
}

}  // namespace

TEST(SampledCurve, EvaluatesTheCurve) {
    SampledCurve curve = bezier();
    curve.resample(3);
    EXPECT_TRUE(near(curve.samples().at(1), {2, 1.5f, 0.375f}));  // (P0 + 3 P1 + 3 P2 + P3) / 8
    // Degree 1 with non-uniform knots: a polyline through the control points at t = 0, 3, 4, 6.
    curve.setDegree(1);
    curve.knots() = {0, 0, 3, 4, 6, 6};
    curve.resample(4);
    EXPECT_TRUE(near(curve.samples().at(1), {2.0f / 3, 4.0f / 3, 0}));
    EXPECT_TRUE(near(curve.samples().at(2), {3, 2, 0}));
}

TEST(SampledCurve, CopesWithAnyStoredCurve) {
    // Malformed knots or degrees fall back to clamped uniform knots: the samples stay finite and
    // run from the first to the last control point.
    std::vector<SampledCurve> curves(8, bezier());
    curves[0].knots().clear();           // more control points than knots
    curves[1].knots().resize(40, 2.0f);  // more knots than needed
    curves[2].knots()[5] = -1.0f;        // decreasing
    curves[3].knots()[2] = std::numeric_limits<float>::quiet_NaN();
    curves[4].setDegree(9);  // degree above the control points
    curves[5].setDegree(4000000000u);
    curves[6].knots() = {1, 1, 1, 1, 1, 1, 1, 1};  // zero-length range
    curves[7].cvs().resize(1);                     // degree 0
    for (size_t i = 0; i < curves.size(); ++i) {
        curves[i].resample(50);
        const std::vector<Imath::V3f>& s = curves[i].samples();
        ASSERT_EQ(s.size(), 50u) << i;
        for (const Imath::V3f& p : s)
            EXPECT_TRUE(std::isfinite(p.x + p.y + p.z)) << i;
        EXPECT_TRUE(near(s.front(), curves[i].cvs().front())) << i;
        EXPECT_TRUE(i == 6 || near(s.back(), curves[i].cvs().back())) << i;
    }
    SampledCurve empty;
    empty.resample(10);
    EXPECT_TRUE(empty.samples().empty());
}

TEST(SampledCurveSamples, FollowTheCurveAtResampleNotItsLaterEdits) {
    SampledCurve curve = bezier();
    curve.resample(65535);
    curve.cvs()[3] = {40, 0, 0};  // edited before the samples were ever asked for
    const SampledCurve copy = curve;
    ASSERT_EQ(curve.samples().size(), 65535u);
    EXPECT_EQ(curve.samples().back(), Imath::V3f(4, 0, 3));
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
    SampledCurve curve = bezier();
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
