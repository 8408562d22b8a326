// The IK data a skeleton derives from its feet, pelvises and joint metadata.
#include <algorithm>
#include <cmath>
#include <vector>

#include "core/math/Transform.h"
#include "core/metadata/MetadataImpl.h"
#include "core/skeleton/Skeleton.h"
#include "core/skeleton/internal/Ancestors.h"
#include "utils/Logger.h"

namespace ZeltoCore {

namespace {

using V3d = Imath::Vec3<double>;
using M44d = Imath::Matrix44<double>;

// The value under `key` when it is a Vec3<double>.
const V3d* vectorEntry(const MapMetadata& metadata, const char* key) {
    const std::shared_ptr<const Metadata> value = metadata.getEntry(key);
    if (!value || value->typeId() != MetadataImpl<V3d>::staticTypeId()) return nullptr;
    return &static_cast<const MetadataImpl<V3d>&>(*value).get();
}

V3d pointInFrame(const M44d& inverse, const V3d& world) {
    V3d local;
    inverse.multVecMatrix(world, local);
    return local;
}

void warnInvalidPoleVector(const Joint& root) {
    ZeltoUtils::Logger::warning() << "Joint "
                                  << " " << root.id() << " "
                                  << " "
                                  << " " << root.name() << " "
                                  << " has an invalid pole vector"
                                  << " ";
}

}  // namespace

void Skeleton::buildIkData() {
    const auto skipsIk = [this](unsigned short id) {
        const auto it = m_jointMetadata.find(id);
        return it != m_jointMetadata.end() &&
               (it->second.hasKey("skipIk") || it->second.hasKey("zelto_skipIk"));
    };

    for (FootData& foot : m_feet) {
        if (foot.root >= m_numJoints || foot.ik >= m_numJoints) continue;
        const Joint& root = m_joints[foot.root];

        // The first pelvis at or above the root.
        foot.pelvis = 0;
        const Joint* pelvis = isPelvis(root.id()) ? &root : nullptr;
        if (!pelvis) {
            pelvis = detail::forEachAncestor(*this, root,
                                             [this](const Joint& a) { return !isPelvis(a.id()); });
        }
        if (pelvis) {
            foot.pelvis = static_cast<unsigned short>(
                std::find(m_pelvises.begin(), m_pelvises.end(), pelvis->id()) - m_pelvises.begin());
        }

        // Up from the ankle to the root, or to the top when the root is not above the ankle.
        foot.numLegSegments = 0;
        foot.legJoints.clear();
        foot.midJoints.clear();
        const Joint* j = &m_joints[foot.ik];
        for (unsigned steps = m_numJoints; j != &root;) {
            foot.legJoints.push_back(j->id());
            j = steps-- ? detail::parentInSkeleton(*this, *j) : nullptr;
            if (j && j != &root && !skipsIk(j->id())) foot.midJoints.push_back(j->id());
            ++foot.numLegSegments;
            if (!j) break;
        }
        foot.legJoints.push_back(root.id());
        std::sort(foot.legJoints.begin(), foot.legJoints.end());
        std::sort(foot.midJoints.begin(), foot.midJoints.end());

        if (j != &root) {
            warnInvalidPoleVector(root);
            continue;
        }
        const auto metadata = m_jointMetadata.find(root.id());
        if (metadata == m_jointMetadata.end()) continue;

        const M44d rootWorld = detail::worldBindMatrix(*this, root.id());
        const M44d rootInverse = matrixInverse(rootWorld);
        const V3d* given = vectorEntry(metadata->second, "poleVector");
        if (!given) given = vectorEntry(metadata->second, "zelto_poleVector");
        if (given) {
            const V3d p = pointInFrame(rootInverse, *given);
            if (given->length2() > 1e-6 && p.length2() > 1e-5) {
                foot.poleVector = p;
                foot.hasPoleVector = true;
                continue;
            }
        }
        if (foot.midJoints.empty()) continue;

        // The pole lies where the first mid joint off the hip-ankle line sticks out.
        const V3d hip = rootWorld.translation();
        const V3d axis = hip - detail::worldBindMatrix(*this, foot.ik).translation();
        const double length = axis.length();
        const V3d d = length > 0 ? axis / length : V3d(0, 0, 0);
        const V3d* bend = nullptr;
        V3d e;
        for (unsigned short m : foot.midJoints) {
            e = detail::worldBindMatrix(*this, m).translation() - hip;
            const double el = e.length();
            if (el < 1e-5) continue;
            e /= el;
            if (std::abs(d.dot(e)) > 0.9999999) continue;
            bend = &e;
            break;
        }
        if (!bend) {
            warnInvalidPoleVector(root);
            continue;
        }
        V3d c = bend->cross(d);
        if (c.length() != 0) c.normalize();
        V3d side = d.cross(c);
        if (side.length() != 0) side.normalize();
        foot.poleVector = pointInFrame(rootInverse, hip + 0.3 * length * side);
        foot.hasPoleVector = true;
    }
    buildPelvisChains();
}

void Skeleton::buildPelvisChains() {
    if (m_pelvises.empty()) return;
    if (m_pelvises.size() == 1) {
        const unsigned int id = m_pelvises[0];
        m_pelvisChains.assign(1, std::vector<PelvisChain>{PelvisChain{id, id, {}}});
        return;
    }
    m_pelvisChains.resize(m_pelvises.size());
    std::vector<char> seen(m_numJoints);
    std::vector<const Joint*> stack;
    const auto pushChildren = [&](const Joint& joint) {
        for (unsigned short c = 0; c < joint.numChildren(); ++c) {
            const unsigned short id = joint.child(c)->id();
            if (id < m_numJoints && !seen[id]) stack.push_back(&m_joints[id]);
        }
    };
    for (size_t k = 0; k < m_pelvises.size(); ++k) {
        std::vector<PelvisChain>& list = m_pelvisChains[k];
        list.clear();
        const unsigned short q = m_pelvises[k];
        if (q >= m_numJoints) continue;
        // Each joint is visited once, so repeated or cyclic child links cannot grow the stack
        // without end.
        std::fill(seen.begin(), seen.end(), 0);
        seen[q] = 1;
        stack.clear();
        pushChildren(m_joints[q]);
        while (!stack.empty()) {
            const Joint& j = *stack.back();
            stack.pop_back();
            if (seen[j.id()]) continue;
            seen[j.id()] = 1;
            if (!isPelvis(j.id())) {
                pushChildren(j);
                continue;
            }
            PelvisChain chain{q, j.id(), {j.id()}};
            detail::forEachAncestor(*this, j, [&chain, q](const Joint& a) {
                if (a.id() == q) return false;
                chain.jointIds.push_back(a.id());
                return true;
            });
            chain.jointIds.push_back(q);
            std::sort(chain.jointIds.begin(), chain.jointIds.end());
            list.push_back(std::move(chain));
        }
    }
}

}  // namespace ZeltoCore
