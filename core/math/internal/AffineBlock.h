// Local matrices of four joint transforms at once, one joint per lane (internal, not exported).
//
// Each JointPose is read as ten contiguous doubles and rounded to T as rows of four; transposing
// them gives lanes of one component each, which go through Affine::of (Imath's toMatrix33 on
// lanes). Every lane does the scalar operations in the scalar order, so lane l holds the same
// bits as Affine<T>::of of transform l.
#pragma once

#include <cstddef>
#include <type_traits>

#include "core/math/JointPose.h"
#include "core/math/internal/AffineRows.h"

namespace ZeltoCore {
namespace detail {

// The ten doubles r, x, y, z, translation, scale in a row.
static_assert(std::is_standard_layout<JointPose>::value && sizeof(JointPose) == 80 &&
                  offsetof(JointPose, rotation) == 0 && offsetof(JointPose, translation) == 32 &&
                  offsetof(JointPose, scale) == 56 && sizeof(Imath::Quat<double>) == 32,
              "JointPose is read as ten doubles");

template <class T, class L = Lanes<T>>
ZELTO_ALWAYS_INLINE Affine<L> affineBlock(const JointPose* const (&p)[4]) {
    L q[4], ts[4], s[4];  // r x y z | tx ty tz sx | sy sz - -
    for (int j = 0; j < 4; ++j) {
        const char* d = reinterpret_cast<const char*>(p[j]);
        q[j] = L::template convert<4>(d);
        ts[j] = L::template convert<4>(d + 32);
        s[j] = L::template convert<2>(d + 64);
    }
    L::transpose(q[0], q[1], q[2], q[3]);
    L::transpose(ts[0], ts[1], ts[2], ts[3]);
    L::transpose(s[0], s[1], s[2], s[3]);
    return Affine<L>::of(Imath::Quat<L>(q[0], q[1], q[2], q[3]), {ts[0], ts[1], ts[2]},
                         {ts[3], s[0], s[1]});
}

}  // namespace detail
}  // namespace ZeltoCore
