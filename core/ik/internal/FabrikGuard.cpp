#include "core/ik/internal/FabrikGuard.h"

#include <new>
#include <type_traits>

#include "core/pose/Pose.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoCore {
namespace detail {

namespace {

using L = Halves<double>;

// x - x is 0 for a finite x and NaN otherwise, so a sum of such lanes over any number of joint
// poses is all zeros exactly when every value is finite.
ZELTO_ALWAYS_INLINE L notFinite(const JointPose& p) {
    const Quatd& r = p.rotation;
    const V3d &t = p.translation, &s = p.scale;
    const L a = L::set(r.r, r.v.x, r.v.y, r.v.z), b = L::set(t.x, t.y, t.z, s.x),
            c = L::set(s.y, s.z, 0.0, 0.0);
    return ((a - a) + (b - b)) + (c - c);
}

bool allZero(const L& sum) {
    return sum[0] == 0.0 && sum[1] == 0.0 && sum[2] == 0.0 && sum[3] == 0.0;
}

const Quatd* inlineRotations(const unsigned char* storage) {
    return std::launder(reinterpret_cast<const Quatd*>(storage));
}

}  // namespace

FabrikGuard::FabrikGuard(Pose& pose, const Skeleton& skeleton, unsigned short upperId, int lowerId,
                         const std::vector<unsigned short>& extraIds)
    : m_pose(pose), m_skeleton(skeleton), m_upper(upperId), m_lower(lowerId), m_extra(extraIds) {}

void FabrikGuard::keepRotations(IdSpan ids, bool checkedIds) {
    static_assert(std::is_trivially_destructible<Quatd>::value, "kept rotations are not destroyed");
    m_checkedIds = checkedIds;
    const unsigned short size = m_pose.numJoints();
    for (unsigned short id : ids) {
        if (id >= size) continue;
        const Quatd& r = m_pose.jointPose(id).rotation;
        if (m_count < kInline) {
            m_ids[m_count] = id;
            new (m_rotations + m_count++ * sizeof(Quatd)) Quatd(r);
        } else {
            m_more.emplace_back(id, r);
        }
    }
}

void FabrikGuard::keepTranslation(unsigned short id) {
    if (id < m_pose.numJoints()) m_translations.emplace_back(id, m_pose.jointPose(id).translation);
}

bool FabrikGuard::keptFinite() const {
    L sum = L::splat(0.0);
    if (m_checkedIds) {
        for (std::size_t i = 0; i < m_count; ++i)
            sum = sum + notFinite(m_pose.jointPose(m_ids[i]));
        for (const auto& kept : m_more)
            sum = sum + notFinite(m_pose.jointPose(kept.first));
        return allZero(sum);
    }
    const unsigned short size = m_pose.numJoints();
    const auto add = [&](unsigned short id) {
        if (id < size) sum = sum + notFinite(m_pose.jointPose(id));
    };
    add(m_upper);
    if (m_lower >= 0) forPathBelow(m_skeleton, m_upper, static_cast<unsigned short>(m_lower), add);
    for (unsigned short id : m_extra)
        add(id);
    return allZero(sum);
}

FabrikGuard::~FabrikGuard() {
    if (keptFinite()) return;
    // Put back in the reverse order of keeping, so a joint kept twice gets its first value.
    for (std::size_t i = m_more.size(); i-- > 0;)
        m_pose.jointPose(m_more[i].first).rotation = m_more[i].second;
    for (std::size_t i = m_count; i-- > 0;)
        m_pose.jointPose(m_ids[i]).rotation = inlineRotations(m_rotations)[i];
    for (std::size_t i = m_translations.size(); i-- > 0;)
        m_pose.jointPose(m_translations[i].first).translation = m_translations[i].second;
    ikWarning(kNotFiniteResultWarning);
}

}  // namespace detail
}  // namespace ZeltoCore
