// The world-matrix passes and walks (local matrices built four joints at a time) against plain
// JointPose::matrix() products, in both precisions, both pose spaces and any parent order.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "core/math/internal/AffineBlock.h"
#include "core/pose/Pose.h"
#include "core/pose/Poser.h"
#include "core/skeleton/Skeleton.h"
#include "tests/support/Matchers.h"

using namespace ZeltoCore;
using Imath::M44d;
using Imath::M44f;
using Imath::Quatd;
using Imath::V3d;

namespace {

// Transform i: rotated about a changing axis, with a quaternion that is not of unit length,
// translated and scaled unevenly (one axis negative).
JointPose transform(int i) {
    Quatd q;
    q.setAxisAngle(V3d(0.3 * i - 1, 1, 0.2 * (i % 5)).normalized(), 0.37 * i - 1.1);
    q *= 1.0 + 0.01 * (i % 3);
    return JointPose(q, V3d(0.1 * i - 0.5, 1.0 - 0.05 * i, 0.2 * (i % 4)),
                     V3d(1.0 + 0.05 * (i % 3), i % 4 == 3 ? -0.9 : 1.1, 0.8 + 0.03 * i));
}

// Tree position k hangs below position (k - 1) / 2 (position 5 is a second top joint); positions
// map to ids ascending (parents first), descending (parents last) or scattered.
enum Order { kParentsFirst, kParentsLast, kScattered };
Skeleton makeTree(unsigned short n, Order order) {
    Skeleton s(n);
    const auto id = [&](int k) {
        return static_cast<unsigned short>(order == kParentsFirst  ? k
                                           : order == kParentsLast ? n - 1 - k
                                                                   : (k * 17 + 5) % n);
    };
    for (int k = 0; k < n; ++k) {
        const JointPose t = transform(k + 7);
        s[id(k)].setRotation(t.rotation);
        s[id(k)].setTranslation(t.translation);
        s[id(k)].setScale(t.scale);
        if (k && k != 5) s[id((k - 1) / 2)].addChild(&s[id(k)]);
    }
    return s;
}

Pose makePose(const Skeleton& s, unsigned short joints, bool parentSpace) {
    Pose pose(&s, true);
    pose.setNumberJoints(joints);
    for (unsigned short j = 0; j < joints; ++j)
        pose.jointPose(j) = transform(3 * j + 1);
    pose.setInParentSpace(parentSpace);
    return pose;
}

// The plain form: W = M(j) * M(parent) * ..., skipping ancestors the pose does not cover.
M44d plainWorld(const Skeleton& s, const Pose* pose, unsigned short j) {
    const auto local = [&](unsigned short k) {
        if (!pose) return s[k].matrix();
        const M44d m = pose->jointPose(k).matrix();
        return pose->inParentSpace() ? m : m * s[k].matrix();
    };
    M44d w = local(j);
    for (const Joint* a = s[j].parent(); a; a = a->parent())
        if (!pose || a->id() < pose->numJoints()) w = w * local(a->id());
    return w;
}

double scaleOf(const M44d& m) {
    return 1.0 + m.translation().length();
}

}  // namespace

TEST(WorldFastPaths, LanesHoldTheScalarBits) {
    // Lane l of a block is bit for bit what the scalar build and products give.
    JointPose poses[4];
    const JointPose* refs[4];
    for (int l = 0; l < 4; ++l) {
        poses[l] = transform(5 * l + 2);
        refs[l] = &poses[l];
    }
    M44d above = transform(30).matrix() * transform(31).matrix();
    const auto check = [&](auto zero) {
        using T = decltype(zero);
        using detail::Affine;
        const auto block = detail::affineBlock<T>(refs);
        const auto product = block * block;
        const Imath::Matrix44<T> aboveT(above);
        for (int l = 0; l < 4; ++l) {
            const Affine<T> one =
                Affine<T>::of(poses[l].rotation, poses[l].translation, poses[l].scale);
            const Affine<T> squared = one * one;
            const detail::AffineLane<T> lane{block, l}, productLane{product, l};
            for (int i = 0; i < 4; ++i)
                for (int k = 0; k < 3; ++k) {
                    EXPECT_EQ(lane(i, k), one(i, k));
                    EXPECT_EQ(productLane(i, k), squared(i, k));
                }
            Imath::Matrix44<T> viaLane, viaScalar;
            detail::affineTimes(lane, detail::Rows<T>::load(aboveT)).store(viaLane);
            (one * detail::Rows<T>::load(aboveT)).store(viaScalar);
            EXPECT_EQ(viaLane, viaScalar);
        }
    };
    check(0.0);
    check(0.0f);
}

TEST(WorldFastPaths, PassesAndWalksMatchPlainProducts) {
    // Joint counts around the block size of four, any parent order, both spaces; chains deeper
    // than a block. Outputs start as NaN or as an earlier result: neither shows. (17 is prime to
    // every count, so the scattered order is a permutation.)
    const Imath::M44d nan(std::nan(""));
    for (unsigned short n : {1, 2, 3, 4, 5, 7, 8, 9, 13, 31, 40}) {
        for (Order order : {kParentsFirst, kParentsLast, kScattered}) {
            const Skeleton s = makeTree(n, order);
            const Poser poser(&s);
            std::vector<M44d> bind(n, nan);
            poser.getAllWorldBindMatrixInPlace(bind);
            for (unsigned short j = 0; j < n; ++j) {
                const M44d plain = plainWorld(s, nullptr, j);
                EXPECT_M44_NEAR(bind[j], plain, 1e-12 * scaleOf(plain));
                EXPECT_M44_NEAR(poser.getWorldBindMatrix(j), plain, 1e-12 * scaleOf(plain));
            }
            // Every joint posed, then the first half only: ancestors beyond a pose's end
            // contribute nothing (and are not read). Both spaces each.
            for (int run = 0; run < 4; ++run) {
                const unsigned short covered = run < 2 ? n : n / 2;
                const bool parentSpace = run % 2 == 0;
                SCOPED_TRACE(::testing::Message()
                             << n << " joints, " << covered << " posed, order " << order << ", "
                             << (parentSpace ? "parent" : "local") << " space");
                const Pose pose = makePose(s, covered, parentSpace);
                std::vector<M44d> all(n, nan);
                std::vector<M44f> allFloat(3, M44f(std::nanf("")));  // resized, never read
                poser.getAllWorldMatrixInPlace(pose, all);
                poser.getAllWorldMatrixInPlace(pose, allFloat);
                std::vector<M44d> again = all;
                std::vector<M44f> againFloat = allFloat;
                poser.getAllWorldMatrixInPlace(pose, again);
                poser.getAllWorldMatrixInPlace(pose, againFloat);
                EXPECT_EQ(again, all);
                EXPECT_EQ(poser.getAllWorldMatrix(pose), all);
                EXPECT_EQ(againFloat, allFloat);
                ASSERT_TRUE(all.size() == covered && allFloat.size() == covered);
                for (unsigned short j = 0; j < covered; ++j) {
                    const M44d plain = plainWorld(s, &pose, j);
                    EXPECT_M44_NEAR(all[j], plain, 1e-12 * scaleOf(plain));
                    EXPECT_M44_NEAR(poser.getWorldMatrix(pose, j), plain, 1e-12 * scaleOf(plain));
                    EXPECT_M44_NEAR(M44d(allFloat[j]), plain, 1e-5 * scaleOf(plain));
                }
            }
        }
    }
}
