#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "utils/Image.h"
#include "utils/SampledCurve.h"

namespace {

using Imath::V3f;
using ZeltoUtils::Image;
using ZeltoUtils::SampledCurve;

void expectNear(const V3f& a, const V3f& b) {
    EXPECT_NEAR(a.x, b.x, 1e-5f);
    EXPECT_NEAR(a.y, b.y, 1e-5f);
    EXPECT_NEAR(a.z, b.z, 1e-5f);
}

SampledCurve bezier() {
    SampledCurve curve;
    curve.cvs() = {{0, 0, 0}, {1, 2, 0}, {3, 2, 0}, {4, 0, 3}};
    curve.knots() = {0, 0, 0, 0, 1, 1, 1, 1};
    return curve;
}

TEST(SampledCurve, EvaluatesTheCurve) {
    SampledCurve curve = bezier();
    EXPECT_EQ(curve.degree(), 3u);
    curve.resample(3);
    EXPECT_EQ(curve.sampleCount(), 3);
    ASSERT_EQ(curve.samples().size(), 3u);
    expectNear(curve.samples()[0], {0, 0, 0});
    expectNear(curve.samples()[1], {2, 1.5f, 0.375f});  // (P0 + 3 P1 + 3 P2 + P3) / 8
    expectNear(curve.samples()[2], {4, 0, 3});

    // Degree 1 with non-uniform knots: a polyline through the control points at t = 0, 3, 4, 6.
    curve.setDegree(1);
    curve.knots() = {0, 0, 3, 4, 6, 6};
    curve.resample(4);
    ASSERT_EQ(curve.samples().size(), 4u);
    expectNear(curve.samples()[1], {2.0f / 3, 4.0f / 3, 0});
    expectNear(curve.samples()[2], {3, 2, 0});
    expectNear(curve.samples()[3], {4, 0, 3});
}

TEST(SampledCurve, CopesWithAnyStoredCurve) {
    // Every malformed variant falls back to clamped uniform knots: it starts and ends at the
    // end control points and stays finite.
    std::vector<SampledCurve> curves(7, bezier());
    curves[0].knots().clear();           // more control points than knots
    curves[1].knots().resize(40, 2.0f);  // more knots than needed
    curves[2].knots()[5] = -1.0f;        // decreasing
    curves[3].knots()[2] = std::numeric_limits<float>::quiet_NaN();
    curves[4].setDegree(9);  // degree above the control points
    curves[5].setDegree(4000000000u);
    curves[6].knots() = {1, 1, 1, 1, 1, 1, 1, 1};  // zero-length range
    for (size_t i = 0; i < curves.size(); ++i) {
        curves[i].resample(50);
        ASSERT_EQ(curves[i].samples().size(), 50u) << i;
        for (const V3f& p : curves[i].samples()) {
            EXPECT_TRUE(std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z)) << i;
        }
        expectNear(curves[i].samples().front(), {0, 0, 0});
        if (i != 6) expectNear(curves[i].samples().back(), {4, 0, 3});
    }

    SampledCurve single;
    single.cvs() = {{1, 2, 3}};
    single.resample(2);
    EXPECT_EQ(single.samples(), (std::vector<V3f>{{1, 2, 3}, {1, 2, 3}}));

    SampledCurve empty;
    empty.resample(10);
    EXPECT_EQ(empty.sampleCount(), 10);
    EXPECT_TRUE(empty.samples().empty());
    SampledCurve none = bezier();
    none.resample(0);
    EXPECT_TRUE(none.samples().empty());
}

TEST(Image, CopiesInputAndSharesStorageBetweenCopies) {
    std::vector<float> pixels = {1, 2, 3, 4, 5, 6};
    const Image image(pixels.data(), 1, 2, 3);
    pixels[0] = 99;
    EXPECT_EQ(image.sampleType(), 1);
    EXPECT_EQ(image.numSamples(), 6u);
    ASSERT_NE(image.floatSamples(), nullptr);
    EXPECT_EQ(image.floatSamples()[0], 1.0f);
    EXPECT_EQ(image.floatSamples()[5], 6.0f);
    EXPECT_EQ(image.byteSamples(), nullptr);

    Image copy;
    copy = image;
    EXPECT_EQ(copy.samples(), image.samples());
    EXPECT_EQ(copy.width(), 1u);
    EXPECT_EQ(copy.height(), 2u);
    EXPECT_EQ(copy.channels(), 3u);
    EXPECT_NE(Image(pixels.data(), 1, 2, 3).samples(), image.samples());

    std::vector<unsigned char> bytes = {7, 8, 9, 10};
    const Image byteImage(bytes.data(), 2, 2, 1);
    EXPECT_EQ(byteImage.sampleType(), 0);
    EXPECT_EQ(byteImage.floatSamples(), nullptr);
    EXPECT_EQ(std::vector<unsigned char>(byteImage.byteSamples(), byteImage.byteSamples() + 4),
              bytes);

    const Image empty;
    EXPECT_EQ(empty.numSamples(), 0u);
    EXPECT_EQ(empty.sampleType(), 0);
    EXPECT_EQ(empty.samples(), nullptr);
}

}  // namespace
