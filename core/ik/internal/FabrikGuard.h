// FabrikGuard: the finite-result guard of the FABRIK solvers (internal, not exported).
//
// It checks the same joints as FiniteResultGuard and behaves the same: when a solve leaves one of
// them with a value that is not finite, every value the solve wrote is put back and
// kNotFiniteResultWarning is logged. The FABRIK solvers write only joint rotations and, when
// stretching, joint translations, so it keeps only those, and only once the input has passed the
// checks: keeping whole joint poses of every joint up front was a good part of a short solve.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "core/ik/internal/IkCommon.h"

namespace ZeltoCore {

class Pose;
class Skeleton;

namespace detail {

class FabrikGuard {
public:
    // The joints checked: upperId, the parent path from lowerId (-1: none) up to it, and
    // extraIds (see FiniteResultGuard; the same bounds on ids and walks).
    FabrikGuard(Pose& pose, const Skeleton& skeleton, unsigned short upperId, int lowerId,
                const std::vector<unsigned short>& extraIds);
    ~FabrikGuard();
    FabrikGuard(const FabrikGuard&) = delete;
    FabrikGuard& operator=(const FabrikGuard&) = delete;

    // Keeps the rotations of the chain `ids` (within the pose) before the solve turns them.
    // `checkedIds`: the chain has passed the checks and holds every joint checked, so only its
    // joints are checked, once each.
    void keepRotations(IdSpan ids, bool checkedIds);
    // Keeps the translation of joint `id` (within the pose) before the solve writes it.
    void keepTranslation(unsigned short id);

private:
    bool keptFinite() const;

    Pose& m_pose;
    const Skeleton& m_skeleton;
    unsigned short m_upper;
    int m_lower;
    const std::vector<unsigned short>& m_extra;
    bool m_checkedIds = false;
    // Chains up to kInline joints keep their rotations inline, as raw storage so that nothing is
    // written before it is kept; longer ones in m_more.
    static constexpr std::size_t kInline = 8;
    std::size_t m_count = 0;
    unsigned short m_ids[kInline];
    alignas(Quatd) unsigned char m_rotations[kInline * sizeof(Quatd)];
    std::vector<std::pair<unsigned short, Quatd>> m_more;
    std::vector<std::pair<unsigned short, V3d>> m_translations;
};

}  // namespace detail
}  // namespace ZeltoCore
