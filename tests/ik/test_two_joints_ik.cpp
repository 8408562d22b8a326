// Tests of the two-joint solver: reach, bone lengths, pole side, stretch, soft approach, the two
// pose spaces, refusals, degenerate chains, and rigid legs against the matrix path.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "core/ik/TwoJointsIK.h"
#include "core/ik/internal/IkCommon.h"
#include "tests/ik/IkRig.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using namespace ZeltoTest;

namespace {

// The four forms behind one call; `pole` is ignored by the forms without one.
struct Form {
    bool withPole, twin;
    void operator()(Pose& p, const Skeleton& s, const V3d& target, double stretch, bool soft,
                    double softDistance, V3d* pole, unsigned short root = kHip,
                    unsigned short mid = kKnee, unsigned short end = kAnkle) const {
        if (withPole && twin)
            solveTwoJointsIKInParentSpace(p, s, target, root, mid, end, stretch, soft, softDistance,
                                          pole);
        else if (withPole)
            solveTwoJointsIK(p, s, target, root, mid, end, stretch, soft, softDistance, pole);
        else if (twin)
            solveTwoJointsIKNoPoleVectorInParentSpace(p, s, target, root, mid, end, stretch, soft,
                                                      softDistance);
        else
            solveTwoJointsIKNoPoleVector(p, s, target, root, mid, end, stretch, soft, softDistance);
    }
};
const Form kForms[] = {{true, false}, {true, true}, {false, false}, {false, true}};

double segment(const std::vector<V3d>& w, unsigned short j) {
    return (w[j] - w[j - 1]).length();
}

// Which side of the root-to-end line the mid joint lies on, as the cosine with `pole`.
double sideCosine(const std::vector<V3d>& w, const V3d& pole) {
    const V3d line = w[kAnkle] - w[kHip];
    return detail::projectOntoPlane(w[kKnee] - w[kHip], line).normalized() ^
           detail::projectOntoPlane(pole, line).normalized();
}

void expectFiniteUnitRotations(const Pose& p) {
    for (unsigned short i = 0; i < p.numJoints(); ++i) {
        const JointPose& j = p.jointPose(i);
        EXPECT_TRUE(detail::isFinite(j.translation) && detail::isFinite(j.scale)) << i;
        EXPECT_NEAR(j.rotation.length(), 1.0, 1e-9) << i;
    }
}

}  // namespace

TEST(TwoJointsIK, ReachesKeepingBonesWithTheKneeOnThePoleSide) {
    const Skeleton s = makeLeg();
    const double leg = 1.1 * 0.9;  // the pelvis scales the leg by 1.1
    const V3d poles[] = {{0, 0, 1}, {0.8, 0.3, 1}, {-1, -0.5, 0.4}};
    for (bool parentSpace : {false, true}) {
        for (const Form& solve : kForms) {
            for (int i = 0; i < 27; ++i) {
                SCOPED_TRACE(testing::Message()
                             << parentSpace << solve.withPole << solve.twin << i);
                if (solve.twin && !parentSpace) continue;  // twins read parent space
                Pose p = movedPose(s, parentSpace);
                const Pose p0 = p;
                const std::vector<V3d> w0 = positions(s, p);
                const V3d target =
                    w0[kHip] + V3d(0.3 * (i % 3 - 1), -0.3 - 0.15 * (i / 3 % 3), 0.3 * (i / 9 - 1));
                V3d pole = poles[i % 3];
                solve(p, s, target, 1.0, false, 0.0, &pole);
                const std::vector<V3d> w = positions(s, p);
                EXPECT_LT((w[kAnkle] - target).length(), 1e-9 * leg);
                for (unsigned short j = kHip; j <= kToe; ++j)
                    EXPECT_NEAR(segment(w, j), segment(w0, j), 1e-12) << j;
                // Within reach, full stretch leaves the offsets as they were, not off by rounding.
                for (unsigned short j = kKnee; j <= kToe; ++j)
                    EXPECT_EQ(p.jointPose(j).translation, p0.jointPose(j).translation) << j;
                EXPECT_V3_NEAR(w[kHip], w0[kHip], 1e-15);
                // Without a pole the knee faces the bind bend (forward) for these targets.
                EXPECT_GT(sideCosine(w, solve.withPole ? poles[i % 3] : V3d(0, 0, 1)),
                          solve.withPole ? 1.0 - 1e-9 : 0.5);
                EXPECT_EQ(pole, poles[i % 3]);
            }
        }
    }
}

// A solve that only has to swing the knee to the opposite side: the twist is half a turn about
// the root-to-target line, which leaves the ankle on the target.
TEST(TwoJointsIK, OppositePoleSwingsTheKneeAboutTheLine) {
    const Skeleton s = makeLeg();
    for (bool parentSpace : {false, true}) {
        for (const Form& solve : {kForms[0], kForms[1]}) {
            SCOPED_TRACE(testing::Message() << parentSpace << solve.twin);
            if (solve.twin && !parentSpace) continue;
            Pose p = movedPose(s, parentSpace);
            const V3d target = positions(s, p)[kHip] + V3d(0.1, -0.6, 0.05);
            V3d pole(0.2, 0.1, 1);
            solve(p, s, target, 0.0, false, 0.0, &pole);
            V3d opposite = -pole;
            solve(p, s, target, 0.0, false, 0.0, &opposite);
            const std::vector<V3d> w = positions(s, p);
            EXPECT_LT((w[kAnkle] - target).length(), 1e-9);
            EXPECT_GT(sideCosine(w, opposite), 1.0 - 1e-9);
        }
    }
}

TEST(TwoJointsIK, StretchScalesEverySegmentBelowTheRoot) {
    const Skeleton s = makeLeg();
    for (const Form& solve : kForms) {
        const Pose start = movedPose(s, solve.twin);
        const std::vector<V3d> w0 = positions(s, start);
        const double reach = (w0[kKnee] - w0[kHip]).length() + segment(w0, kAnkle);
        const V3d target = w0[kHip] + V3d(0.2, -1, 0.3).normalized() * (1.5 * reach);
        V3d pole(0, 0, 1);
        for (double stretch : {0.0001, 0.5, 1.0}) {
            SCOPED_TRACE(testing::Message() << solve.withPole << solve.twin << stretch);
            Pose p = start;
            solve(p, s, target, stretch, false, 0.0, &pole);
            const std::vector<V3d> w = positions(s, p);
            const double ratio = stretch > 0.0001 ? 1.0 + 0.5 * stretch : 1.0;
            for (unsigned short j = kTwist; j <= kToe; ++j)
                EXPECT_NEAR(segment(w, j), segment(w0, j) * (j == kToe ? 1.0 : ratio), 1e-12) << j;
            // Straight at the target, and on it with full stretch.
            EXPECT_V3_NEAR((w[kAnkle] - w[kHip]).normalized(), (target - w[kHip]).normalized(),
                           1e-9);
            if (stretch == 1.0) {
                EXPECT_LT((w[kAnkle] - target).length(), 1e-9);
            }
        }
    }
}

TEST(TwoJointsIK, SoftApproachAimsShortAndStretchReachesTheTarget) {
    const Skeleton s = makeLeg();
    for (const Form& solve : kForms) {
        SCOPED_TRACE(testing::Message() << solve.withPole << solve.twin);
        const Pose start = movedPose(s, solve.twin);
        const std::vector<V3d> w0 = positions(s, start);
        const double reach = (w0[kKnee] - w0[kHip]).length() + segment(w0, kAnkle);
        const V3d target = w0[kHip] + V3d(0.1, -1, 0.1).normalized() * (reach - 0.02);
        V3d pole(0, 0, 1);

        Pose off = start, zero = start, soft = start, softStretched = start;
        solve(off, s, target, 0.0, false, 0.1, &pole);
        solve(zero, s, target, 0.0, true, 0.0, &pole);
        expectSamePose(off, zero);

        solve(soft, s, target, 0.0, true, 0.1, &pole);
        const double aimed = (positions(s, soft)[kAnkle] - w0[kHip]).length();
        EXPECT_GT(aimed, reach - 0.1);
        EXPECT_LT(aimed, reach - 0.02 - 1e-3);
        solve(softStretched, s, target, 1.0, true, 0.1, &pole);
        EXPECT_LT((positions(s, softStretched)[kAnkle] - target).length(), 1e-9);
    }
}

TEST(TwoJointsIK, PoseSpacesAgree) {
    const Skeleton s = makeLeg();
    const V3d target = worldPosition(s, movedPose(s, true), kHip) + V3d(0.2, -0.6, 0.25);
    V3d pole(0.3, 0, 1);
    for (bool withPole : {true, false}) {
        Pose parent = movedPose(s, true), twin = parent, local = movedPose(s, false);
        Form{withPole, false}(parent, s, target, 1.0, true, 0.05, &pole);
        Form{withPole, true}(twin, s, target, 1.0, true, 0.05, &pole);
        expectSamePose(parent, twin);  // the local-space entry hands over to its twin
        Form{withPole, false}(local, s, target, 1.0, true, 0.05, &pole);
        const std::vector<V3d> wp = positions(s, parent), wl = positions(s, local);
        // Both reach; with a pole the knee's place is settled too (the roll of the thigh about
        // the hip-to-knee line is not, nor is the aimed bind pole without one).
        for (unsigned short j : {kPelvis, kHip, withPole ? kKnee : kAnkle, kAnkle})
            EXPECT_V3_NEAR(wp[j], wl[j], 1e-9) << withPole << j;
    }
}

TEST(TwoJointsIK, RefusesBadInputLeavingThePose) {
    const Skeleton s = makeLeg();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const V3d target(0, 0, 0);
    V3d pole(0, 0, 1), badPole(nan, 0, 0);
    struct Case {
        unsigned short root, mid, end;
        V3d target;
        V3d* pole;
        bool shortPose;
        const char* warning;
    } cases[] = {
        {kHip, kKnee, kLegJoints, target, &pole, false, detail::kBadJointIdWarning},
        {kHip, kKnee, kAnkle, target, &pole, true, detail::kPoseSizeWarning},
        {kHip, kKnee, kAnkle, V3d(0, nan, 0), &pole, false, detail::kNotFiniteWarning},
        {kHip, kKnee, kAnkle, target, &badPole, false, detail::kNotFiniteWarning},
        {kKnee, kHip, kAnkle, target, &pole, false, detail::kNotAChainWarning},
    };
    for (const Case& c : cases) {
        for (const Form& solve : kForms) {
            if (!solve.withPole && c.pole == &badPole) continue;
            Pose p = movedPose(s, solve.twin);
            if (c.shortPose) p.setNumberJoints(kLegJoints - 1);
            const Pose before = p;
            LogCapture log;
            solve(p, s, c.target, 1.0, true, 0.1, c.pole, c.root, c.mid, c.end);
            EXPECT_EQ(log.warnings, std::vector<std::string>{std::string(c.warning) + " "});
            expectSamePose(p, before);
        }
    }
}

TEST(TwoJointsIK, ChainWithoutParentHangsUnderTheIdentity) {
    const Skeleton s = makeLeg();
    for (const Form& solve : kForms) {
        Pose p = movedPose(s, solve.twin);
        const V3d target = worldPosition(s, p, kWorld) + V3d(0.3, 0.8, 0.2);
        V3d pole(0, 0, 1);
        solve(p, s, target, 0.0, false, 0.0, &pole, kWorld, kPelvis, kHip);
        EXPECT_LT((worldPosition(s, p, kHip) - target).length(), 1e-9);
    }
}

TEST(TwoJointsIK, DegenerateChainsStayFinite) {
    // A straight leg, and one whose knee sits on the hip (a zero-length thigh).
    for (bool zeroBone : {false, true}) {
        Skeleton s = makeLeg();
        for (unsigned short j = kHip; j <= kToe; ++j) {
            s[j].setRotation(Quatd());
            s[j].setTranslation(V3d(0, -0.4, 0));
        }
        s[kTwist].setTranslation(V3d(0));
        if (zeroBone) s[kKnee].setTranslation(V3d(0));
        const V3d hip = worldPosition(s, Pose(&s, true), kHip);
        const V3d pole(0, 0, 1);
        const V3d targets[] = {hip + V3d(0, -0.5, 0), hip, hip + V3d(0, -0.3, 0.1),
                               hip + V3d(0, 2, 0)};
        for (const Form& solve : kForms) {
            for (const V3d& target : targets) {
                SCOPED_TRACE(testing::Message() << zeroBone << solve.withPole << solve.twin);
                Pose p(&s, true);
                if (!solve.twin) p.convertToLocalSpace(&s);
                V3d poleCopy = pole;
                solve(p, s, target, 0.0, true, 0.05, &poleCopy);
                expectFiniteUnitRotations(p);
                const std::vector<V3d> w = positions(s, p);
                if (!zeroBone && target == targets[0] && solve.withPole) {
                    // Bent from straight towards the pole, and reached.
                    EXPECT_GT(sideCosine(w, pole), 1.0 - 1e-9);
                    EXPECT_LT((w[kAnkle] - target).length(), 1e-9);
                }
            }
        }
    }
}

TEST(TwoJointsIK, RigidLegsSolveAsTheMatrixPathDoes) {
    // The rig holds rotations with one scale each, so it is solved as similarities; a pelvis
    // scale off by 1e-9 in one axis sends the same leg down the matrix path. The solves agree to
    // about that change, whatever the form, space, stretch or target.
    const Skeleton rigid = makeLeg();
    Skeleton uneven = makeLeg();
    uneven[kPelvis].setScale(V3d(1.1, 1.1, 1.1 * (1 + 1e-9)));
    for (const Form& form : kForms) {
        for (int k = 0; k < 8; ++k) {
            const bool parentSpace = k & 1, stretch = k & 2, far = k & 4;
            SCOPED_TRACE("form " + std::to_string(&form - kForms) + " case " + std::to_string(k));
            Pose a = movedPose(rigid, parentSpace), b = movedPose(uneven, parentSpace);
            V3d pole(0.2, 0.1, 1), poleB = pole;
            const V3d target = worldPosition(rigid, a, kHip) + V3d(0.1, far ? -1.2 : -0.5, 0.2);
            form(a, rigid, target, stretch ? 1.0 : 0.0, k == 3, 0.05, &pole);
            form(b, uneven, target, stretch ? 1.0 : 0.0, k == 3, 0.05, &poleB);
            for (unsigned short j : {kHip, kKnee, kAnkle}) {
                const JointPose &pa = a.jointPose(j), &pb = b.jointPose(j);
                EXPECT_NEAR((pa.rotation.v - pb.rotation.v).length(), 0.0, 1e-7) << j;
                EXPECT_NEAR(pa.rotation.r, pb.rotation.r, 1e-7) << j;
                EXPECT_V3_NEAR(pa.translation, pb.translation, 1e-7) << j;
            }
        }
    }
}
