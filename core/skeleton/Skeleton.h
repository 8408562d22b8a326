// Skeleton: the joint hierarchy of one kind of character, with its feet, pelvises, per-joint
// property maps and level-of-detail records.
//
// Joints live in one owned array; a joint's id is its index, and parents are expected to have
// smaller ids than their children (the skeleton does not enforce it; world-matrix passes are
// fastest that way but correct in any order). Copies are deep: links are rebuilt into the copy's
// own array. Derived data (the name map, the feet's leg data, pelvis chains, detached joints) is
// rebuilt only when asked for. Id-taking accessors do not validate; registration calls ignore bad
// ids. jointMetadata() inserts an empty map for a joint without one, also through a const skeleton.
//
//   Skeleton s(3); s.joint(0).addChild(&s.joint(1)); s.joint(1).addChild(&s.joint(2));
//   s.joint(2).setName("ankle"); s.buildJointNameMap(); int ankle = s.jointId("ankle");
#pragma once

#include <Imath/ImathVec.h>

#include <cstddef>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/metadata/MapMetadata.h"
#include "core/skeleton/FootData.h"
#include "core/skeleton/Joint.h"
#include "core/skeleton/PelvisChain.h"
#include "core/skeleton/SkeletonLod.h"
#include "utils/Export.h"

namespace ZeltoCore {

class ZELTO_API Skeleton {
public:
    // numJoints default joints with ids 0 ... numJoints-1, root 0.
    explicit Skeleton(unsigned short numJoints);
    Skeleton() : Skeleton(1) {}
    Skeleton(const Skeleton& other);
    Skeleton& operator=(const Skeleton& other);
    ~Skeleton();
    // Exchanges the whole content; joints keep their addresses, so links stay valid.
    void swap(Skeleton& other) noexcept;

    // Frees the joints and empties feet, name map, joint metadata and pelvises; root and joint
    // count become 0. Pelvis chains, detached joints and lods are kept.
    void clear();
    // clear(), then n default joints. Counts above 65535 keep their low 16 bits (as numJoints()
    // does), so the array always holds exactly numJoints() joints.
    void setNumJoints(unsigned int n);
    unsigned short numJoints() const { return m_numJoints; }

    Joint& joint(unsigned short id) { return m_joints[id]; }
    const Joint& joint(unsigned short id) const { return m_joints[id]; }
    Joint& operator[](unsigned short id) { return m_joints[id]; }
    const Joint& operator[](unsigned short id) const { return m_joints[id]; }

    // The root joint; null for a skeleton without joints.
    Joint* root() { return m_numJoints ? &m_joints[m_root] : nullptr; }
    const Joint* root() const { return m_numJoints ? &m_joints[m_root] : nullptr; }
    // Ignored for an id >= numJoints().
    void setRoot(unsigned short id);

    // Id stored for `name` by the last buildJointNameMap, or -1.
    int jointId(const std::string& name) const;
    // name -> id for every joint in id order; of two joints with one name the later wins.
    void buildJointNameMap();
    // "." becomes "_", and a name with ":" keeps what follows the first ":"; then
    // buildJointNameMap().
    void sanitizeJointNames();

    // Ids of the joints without parent, ascending.
    void buildDetachedJointsList();
    const std::vector<unsigned short>& detachedJoints() const { return m_detachedJoints; }

    // Feet. addFoot ignores the call when an id is >= numJoints(); the foot accessors do not
    // check the foot index.
    void addFoot(unsigned short ik, unsigned short root, unsigned short tip);
    void clearFeet() { m_feet.clear(); }
    unsigned short numFeet() const { return static_cast<unsigned short>(m_feet.size()); }
    Joint* footIK(unsigned short foot) { return &m_joints[m_feet[foot].ik]; }
    const Joint* footIK(unsigned short foot) const { return &m_joints[m_feet[foot].ik]; }
    Joint* footRoot(unsigned short foot) { return &m_joints[m_feet[foot].root]; }
    const Joint* footRoot(unsigned short foot) const { return &m_joints[m_feet[foot].root]; }
    Joint* footTip(unsigned short foot) { return &m_joints[m_feet[foot].tip]; }
    const Joint* footTip(unsigned short foot) const { return &m_joints[m_feet[foot].tip]; }
    // Index into the pelvises list of the pelvis above the leg.
    unsigned short footPelvis(unsigned short foot) const { return m_feet[foot].pelvis; }
    Imath::Vec3<double> footPoleVector(unsigned short foot) const {
        return m_feet[foot].poleVector;
    }
    bool footHasPoleVector(unsigned short foot) const { return m_feet[foot].hasPoleVector; }
    // Stores v and marks it valid; ignored for foot >= numFeet().
    void setFootPoleVector(unsigned short foot, const Imath::Vec3<double>& v);
    const std::vector<unsigned short>& legJoints(unsigned short foot) const {
        return m_feet[foot].legJoints;
    }
    const std::vector<unsigned short>& midJoints(unsigned short foot) const {
        return m_feet[foot].midJoints;
    }
    // Parent steps from the foot's ik joint up to its root, as buildIkData counted them.
    unsigned short numLegSegments(unsigned short foot) const { return m_feet[foot].numLegSegments; }
    bool isFootIK(unsigned short id) const;
    bool isFootRoot(unsigned short id) const;
    bool isFootTip(unsigned short id) const;

    // Pelvises, kept ascending without duplicates. Without any registered, the skeleton behaves
    // as having one pelvis, joint 0: numPelvises() is 1 and pelvis(i) is joint 0 for every i.
    void addPelvis(unsigned short id);
    void clearPelvises() { m_pelvises.clear(); }
    unsigned short numPelvises() const;
    Joint& pelvis(unsigned short index) { return m_joints[pelvisId(index)]; }
    const Joint& pelvis(unsigned short index) const { return m_joints[pelvisId(index)]; }
    bool isPelvis(unsigned short id) const;

    // Derives the feet's pelvis, leg and mid joints, segment count and pole vector, and the
    // pelvis chains. Every walk is bounded by the joint count and follows only links into this
    // skeleton's joints, so hand-made cycles end it. Choices where the derivation has no one
    // obvious answer:
    // - Exactly one pelvis: its list holds exactly one record, pelvis = childPelvis = its id,
    //   no joint ids; repeated calls do not add records.
    // - Several pelvises below one pelvis: each record holds only its own path, from the child
    //   pelvis up to the pelvis, ascending.
    // - A foot whose root is not an ancestor of its ik joint: the leg lists and segment count are
    //   what the walk up from ik found (up to a joint without parent, then root); no pole vector
    //   is taken or derived (the previous one stays) and the pole-vector warning names the root
    //   joint by id and name, whether or not the root has metadata.
    // Pole vectors come from a Vec3<double> under "poleVector" (else "zelto_poleVector") in the
    // root joint's metadata, in world space, stored in the root's bind frame; otherwise from the
    // first mid joint off the hip-ankle line. Mid joints whose metadata has "skipIk" or
    // "zelto_skipIk" are left out of midJoints.
    void buildIkData();
    // Pelvis chains found below pelvis `pelvisIndex`: 0 / null for out-of-range indices.
    unsigned int numPelvisChains(unsigned int pelvisIndex) const;
    PelvisChain* pelvisChain(unsigned int pelvisIndex, unsigned int chainIndex);
    const PelvisChain* pelvisChain(unsigned int pelvisIndex, unsigned int chainIndex) const;

    // Per-joint property maps. jointMetadata creates an empty entry when the joint has none.
    MapMetadata& jointMetadata(unsigned short id) { return m_jointMetadata[id]; }
    const MapMetadata& jointMetadata(unsigned short id) const { return m_jointMetadata[id]; }
    void setJointMetadata(unsigned short id, const MapMetadata& metadata);
    // Stores a copy of `value` under `key` (creating the joint's entry).
    void addJointMetadata(unsigned short id, const std::string& key,
                          const std::shared_ptr<Metadata>& value);
    // Stores a clone of `*value`; the caller keeps ownership of `value`.
    void addJointMetadata(unsigned short id, const std::string& key, Metadata* value);
    // Whether the joint has an entry (an empty one counts).
    bool jointHasMetadata(unsigned short id) const { return m_jointMetadata.count(id) != 0; }
    std::vector<unsigned short> jointMetadataIds() const;
    void clearJointMetadata(unsigned short id) { m_jointMetadata.erase(id); }
    void clearJointsMetadata() { m_jointMetadata.clear(); }

    std::vector<SkeletonLod>& lods() { return m_lods; }
    const std::vector<SkeletonLod>& lods() const { return m_lods; }

    // Bytes of the skeleton's archive form.
    size_t memSize() const;
    // Feeds joints, feet with their derived data, the name map, joint metadata, pelvises, pelvis
    // chains, detached joints, root and joint count to `hasher`, one hash() call per value. The
    // name map is fed in ascending joint id (names of one id byte-wise), not in hash-table order,
    // so a skeleton hashes the same on every platform and build. Lods take no part.
    void hash(MurmurHash3& hasher) const;

private:
    unsigned short pelvisId(unsigned short index) const {
        return m_pelvises.empty() ? 0 : m_pelvises[index];
    }
    void allocateJoints(unsigned short n);
    void buildPelvisChains();
    // Joint i = other's joint i, for every joint of this (equally long) array, links relinked.
    void copyJoints(const Skeleton& other);

    std::unique_ptr<Joint[]> m_joints;
    std::vector<FootData> m_feet;
    std::unordered_map<std::string, int> m_jointNameMap;
    // Mutable: the const accessor inserts an empty entry for a joint without one.
    mutable std::map<unsigned short, MapMetadata> m_jointMetadata;
    std::vector<unsigned short> m_pelvises;
    std::vector<std::vector<PelvisChain>> m_pelvisChains;
    std::vector<unsigned short> m_detachedJoints;
    std::vector<SkeletonLod> m_lods;
    unsigned short m_root = 0;
    unsigned short m_numJoints = 0;
};

// Text dump: joint count, every joint's dump, feet, pelvises, root, then the hierarchy below the
// root, depth first with the last child first, four spaces per ancestor. A joint reached twice
// (a child listed more than once, or a cyclic child list) is listed once.
ZELTO_API std::ostream& operator<<(std::ostream& out, const Skeleton& skeleton);

}  // namespace ZeltoCore
