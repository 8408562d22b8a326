// Tests of the sphere solver on a digitigrade leg: hip, knee bent forward, hock bent backward, toe.
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "core/ik/SphereIK.h"
#include "core/ik/internal/IkCommon.h"
#include "tests/ik/IkRig.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using namespace ZeltoTest;

namespace {

enum : unsigned short { kRoot, kBody, kThigh, kStifle, kHock, kPaw, kJoints };
const std::vector<unsigned short> kMids = {kStifle, kHock};

Skeleton makeDigitigradeLeg() {
    Skeleton s(kJoints);
    const V3d translations[] = {{0, 0, 0},       {0, 0.8, 0},      {0.1, -0.05, 0},
                                {0, -0.3, 0.12}, {0, -0.3, -0.15}, {0, -0.25, 0.05}};
    for (unsigned short i = 0; i < kJoints; ++i) {
        if (i) s[i - 1].addChild(&s[i]);
        s[i].setTranslation(translations[i]);
        s[i].setRotation(axisAngle(V3d(0.2, 1, 0.1 * i), 0.03 * i));
    }
    return s;
}

// Cosine between joint j's offset from the thigh-to-paw line and `direction` across that line.
double sideCosine(const Skeleton& s, const Pose& p, unsigned short j, const V3d& direction) {
    const V3d a = worldPosition(s, p, kThigh);
    const V3d line = worldPosition(s, p, kPaw) - a;
    return detail::projectOntoPlane(worldPosition(s, p, j) - a, line).normalized() ^
           detail::projectOntoPlane(direction, line).normalized();
}

}  // namespace

TEST(SphereIK, DigitigradeLegReachesWithTheHockOnThePoleSide) {
    const Skeleton s = makeDigitigradeLeg();
    for (bool parentSpace : {false, true}) {
        for (int i = 0; i < 18; ++i) {
            SCOPED_TRACE(testing::Message() << parentSpace << " " << i);
            Pose p(&s, true);
            if (!parentSpace) p.convertToLocalSpace(&s);
            const Pose start = p;
            const V3d paw = worldPosition(s, p, kPaw);
            V3d target = paw + V3d(0.1 * (i % 3 - 1), 0.1 * (i / 3 % 3), 0.12 * (i / 9) - 0.06);
            V3d pole(0.1, 0, -1);
            sphereIKSolver(p, s, target, kThigh, kMids, kPaw, &pole);
            EXPECT_LT((worldPosition(s, p, kPaw) - target).length(), 1e-9);
            EXPECT_EQ(pole, V3d(0.1, 0, -1));
            for (unsigned short j = kStifle; j <= kPaw; ++j) {
                EXPECT_NEAR((worldPosition(s, p, j) - worldPosition(s, p, j - 1)).length(),
                            (worldPosition(s, start, j) - worldPosition(s, start, j - 1)).length(),
                            1e-12);
            }
            EXPECT_GT(sideCosine(s, p, kHock, pole), 0.5);
            EXPECT_LT(sideCosine(s, p, kStifle, pole), 0.0);  // the knee stays forward
        }
    }
}

TEST(SphereIK, RefusalsAndUnreachableTargets) {
    const Skeleton s = makeDigitigradeLeg();
    const Pose start(&s, true);
    V3d pole(0, 0, -1), zero(0, 0, 0);
    V3d target = worldPosition(s, start, kPaw) + V3d(0, 0.1, 0);
    struct Case {
        std::vector<unsigned short> mids;
        V3d* pole;
        std::string warning;
    } cases[] = {{{kStifle}, &pole, "Invalid number of mid joints "},
                 {{kStifle, kHock, kPaw}, &pole, "Invalid number of mid joints "},
                 {kMids, nullptr, "Missing or 0 length pole vector! "},
                 {kMids, &zero, "Missing or 0 length pole vector! "},
                 {{kHock, kStifle}, &pole, std::string(detail::kNotAChainWarning) + " "}};
    for (const Case& c : cases) {
        Pose p = start;
        LogCapture log;
        sphereIKSolver(p, s, target, kThigh, c.mids, kPaw, c.pole);
        EXPECT_EQ(log.warnings, std::vector<std::string>{c.warning});
        for (unsigned short j = 0; j < kJoints; ++j)
            EXPECT_EQ(p.jointPose(j).rotation, start.jointPose(j).rotation);
    }

    // Beyond reach, at the root, and with the parts of a pose that collapse: finite, unit poses.
    const V3d thigh = worldPosition(s, start, kThigh);
    V3d targets[] = {thigh + V3d(0, -5, 1), thigh, thigh + V3d(0, -0.01, 0)};
    for (V3d& t : targets) {
        Pose p = start;
        sphereIKSolver(p, s, t, kThigh, kMids, kPaw, &pole);
        for (unsigned short j = 0; j < kJoints; ++j) {
            EXPECT_TRUE(detail::isFinite(p.jointPose(j).translation)) << j;
            EXPECT_NEAR(p.jointPose(j).rotation.length(), 1.0, 1e-9) << j;
        }
    }
    Pose far = start;
    sphereIKSolver(far, s, targets[0], kThigh, kMids, kPaw, &pole);
    EXPECT_V3_NEAR((worldPosition(s, far, kPaw) - thigh).normalized(),
                   (targets[0] - thigh).normalized(), 1e-6);
}
