// Matchers for Imath values in GoogleTest: element-wise comparison with an absolute tolerance,
// reporting the first differing element and both values.
//
//   EXPECT_M44_NEAR(poser.getWorldMatrix(pose, 3), expected, 1e-9);
//   EXPECT_V3_NEAR(m.translation(), Imath::V3d(0, 3, 0), 1e-12);
#pragma once

#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

namespace ZeltoTest {

template <class T>
::testing::AssertionResult m44Near(const char* aExpr, const char* bExpr, const char*,
                                   const Imath::Matrix44<T>& a, const Imath::Matrix44<T>& b,
                                   double tolerance) {
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) {
            if (!(std::abs(double(a[i][j]) - double(b[i][j])) <= tolerance)) {
                return ::testing::AssertionFailure()
                       << aExpr << " and " << bExpr << " differ at [" << i << "][" << j
                       << "] by more than " << tolerance << ":\n"
                       << a << "\nvs\n"
                       << b;
            }
        }
    }
    return ::testing::AssertionSuccess();
}

template <class V>
::testing::AssertionResult vecNear(const char* aExpr, const char* bExpr, const char*, const V& a,
                                   const V& b, double tolerance) {
    for (unsigned i = 0; i < V::dimensions(); ++i) {
        if (!(std::abs(double(a[i]) - double(b[i])) <= tolerance)) {
            return ::testing::AssertionFailure()
                   << aExpr << " = " << a << " and " << bExpr << " = " << b
                   << " differ in component " << i << " by more than " << tolerance;
        }
    }
    return ::testing::AssertionSuccess();
}

// Quaternions q and -q are the same rotation; the closer of the two is compared.
template <class T>
::testing::AssertionResult quatNear(const char* aExpr, const char* bExpr, const char*,
                                    const Imath::Quat<T>& a, const Imath::Quat<T>& b,
                                    double tolerance) {
    const Imath::Quat<T> c = (a ^ b) < 0 ? -b : b;
    const double diff = std::abs(double(a.r - c.r)) + std::abs(double(a.v.x - c.v.x)) +
                        std::abs(double(a.v.y - c.v.y)) + std::abs(double(a.v.z - c.v.z));
    if (diff <= tolerance) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << aExpr << " = " << a << " and " << bExpr << " = " << b
                                         << " differ (up to sign) by " << diff;
}

}  // namespace ZeltoTest

#define EXPECT_M44_NEAR(a, b, tol) EXPECT_PRED_FORMAT3(::ZeltoTest::m44Near, a, b, tol)
#define EXPECT_V3_NEAR(a, b, tol) EXPECT_PRED_FORMAT3(::ZeltoTest::vecNear, a, b, tol)
#define EXPECT_V2_NEAR(a, b, tol) EXPECT_PRED_FORMAT3(::ZeltoTest::vecNear, a, b, tol)
#define EXPECT_QUAT_NEAR(a, b, tol) EXPECT_PRED_FORMAT3(::ZeltoTest::quatNear, a, b, tol)
