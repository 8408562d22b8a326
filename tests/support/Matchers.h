// Matchers for Imath vectors and matrices in GoogleTest: element-wise comparison with an absolute
// tolerance, reporting the first differing element and both values.
//
//   EXPECT_M44_NEAR(poser.getWorldMatrix(pose, 3), expected, 1e-9);
//   EXPECT_V3_NEAR(m.translation(), Imath::V3d(0, 3, 0), 1e-12);
#pragma once

#include <Imath/ImathMatrix.h>
#include <Imath/ImathVec.h>
#include <gtest/gtest.h>

#include <cmath>

namespace ZeltoTest {

// V is a Vec2/Vec3 or Matrix44: its elements lie contiguously behind getValue().
template <class V>
::testing::AssertionResult near(const char* aExpr, const char* bExpr, const char*, const V& a,
                                const V& b, double tolerance) {
    const size_t n = sizeof(V) / sizeof(*a.getValue());
    for (size_t i = 0; i < n; ++i) {
        if (!(std::abs(double(a.getValue()[i]) - double(b.getValue()[i])) <= tolerance)) {
            return ::testing::AssertionFailure()
                   << aExpr << " and " << bExpr << " differ in element " << i << " by more than "
                   << tolerance << ":\n"
                   << a << "\nvs\n"
                   << b;
        }
    }
    return ::testing::AssertionSuccess();
}

}  // namespace ZeltoTest

#define EXPECT_M44_NEAR(a, b, tol) EXPECT_PRED_FORMAT3(::ZeltoTest::near, a, b, tol)
#define EXPECT_V3_NEAR(a, b, tol) EXPECT_PRED_FORMAT3(::ZeltoTest::near, a, b, tol)
#define EXPECT_V2_NEAR(a, b, tol) EXPECT_PRED_FORMAT3(::ZeltoTest::near, a, b, tol)
