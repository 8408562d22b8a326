// Pose: one pose of a skeleton, a JointPose per joint plus property maps and an activity mask.
//
// Joint poses are indexed by joint id and are either in parent space (relative to the parent
// joint, like bind transforms) or in local space (relative to the joint's bind transform:
// parent = local * bind). Assignment is masked: only joints active in the source are copied
// when both poses have the same joint count, so a caller can overwrite part of a pose. The
// activity flags live in memory only; changing the joint count or reading makes every joint
// active. The archive form is: joint count, 80 bytes per joint, the pose map, the joint maps,
// the direction and (from archive version 4) the space flag.
//
//   Pose pose(&skeleton, true);            // the bind pose, in parent space
//   pose.convertToLocalSpace(&skeleton);   // now all joint poses are (near) identity
#pragma once

#include <Imath/ImathVec.h>

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/archive/Archive.h"
#include "core/math/JointPose.h"
#include "core/metadata/MapMetadata.h"
#include "utils/Export.h"

namespace ZeltoCore {

class Skeleton;

class ZELTO_API Pose {
public:
    // No joints, in parent space.
    Pose() = default;
    // With fillFromSkeleton, the skeleton's bind transforms in parent space; otherwise an empty
    // pose in local space.
    Pose(const Skeleton* skeleton, bool fillFromSkeleton);
    Pose(const Pose& other) = default;
    // Masked assignment: takes other's flags and space; with equal joint counts copies only the
    // joints active in other (non-zero flag, or beyond the flag list), all of them otherwise;
    // joint maps follow the same mask; pose map and direction are always copied.
    Pose& operator=(const Pose& other);
    Pose(Pose&& other) noexcept;
    // The masked assignment of the copy form; when every joint of `other` is active (a full copy)
    // its storage is taken instead of copied.
    Pose& operator=(Pose&& other) noexcept;
    ~Pose() = default;
    // Exchanges the whole content, flags and space included.
    void swap(Pose& other) noexcept;

    unsigned short numJoints() const { return static_cast<unsigned short>(m_jointPoses.size()); }
    // n identity joint poses, all active.
    void setNumberJoints(unsigned short n);
    // Removes the joint poses only; metadata, direction, flags and space are kept.
    void clearAllPose() { m_jointPoses.clear(); }
    // The id is not validated.
    JointPose& jointPose(unsigned short id) { return m_jointPoses[id]; }
    const JointPose& jointPose(unsigned short id) const { return m_jointPoses[id]; }
    void setJointPose(unsigned short id, const JointPose& pose) { m_jointPoses[id] = pose; }

    bool inParentSpace() const { return m_inParentSpace; }
    // Only the flag: for callers that already hold transforms of the other kind.
    void setInParentSpace(bool inParentSpace) { m_inParentSpace = inParentSpace; }
    const Imath::Vec3<double>& getDirection() const { return m_direction; }
    void setDirection(const Imath::Vec3<double>& direction) { m_direction = direction; }

    MapMetadata& poseMetadata() { return m_poseMetadata; }
    const MapMetadata& poseMetadata() const { return m_poseMetadata; }
    // Stores a clone of `*value`; the caller keeps ownership of `value`.
    void addPoseMetadata(const std::string& key, Metadata* value);
    void clearPoseMetadata() { m_poseMetadata.clear(); }

    // Per-joint maps; jointMetadata creates an empty entry when the joint has none.
    MapMetadata& jointMetadata(unsigned short id) { return m_jointsMetadata[id]; }
    const MapMetadata& jointMetadata(unsigned short id) const { return m_jointsMetadata[id]; }
    void setJointMetadata(unsigned short id, const MapMetadata& metadata);
    // Stores a copy of `value` under `key`.
    void addJointMetadata(unsigned short id, const std::string& key,
                          const std::shared_ptr<Metadata>& value);
    // Stores a clone of `*value`; the caller keeps ownership of `value`.
    void addJointMetadata(unsigned short id, const std::string& key, Metadata* value);
    bool jointHasMetadata(unsigned short id) const { return m_jointsMetadata.count(id) != 0; }
    std::vector<unsigned short> jointMetadataIds() const;
    void clearJointMetadata(unsigned short id) { m_jointsMetadata.erase(id); }
    void clearJointsMetadata() { m_jointsMetadata.clear(); }
    std::map<unsigned short, MapMetadata>& jointsMetadata() { return m_jointsMetadata; }
    const std::map<unsigned short, MapMetadata>& jointsMetadata() const { return m_jointsMetadata; }

    // One flag per joint, all 1.
    void resetActiveJoints() { m_activeJoints.assign(m_jointPoses.size(), 1); }
    // Ignored for an id beyond the flag list.
    void setActiveJoint(std::size_t id, bool active);
    // Ignored unless flags has one entry per joint.
    void setActiveJoints(const std::vector<short>& flags);
    // Flag > 0, or no flag for that id.
    bool isJointActive(std::size_t id) const {
        return id >= m_activeJoints.size() || m_activeJoints[id] > 0;
    }

    // Space conversions through matrices (extractSRT: shear is dropped). Each does nothing when
    // the pose is already in the target space or its joint count differs from the skeleton's.
    void convertToLocalSpace(const Skeleton* skeleton);
    void convertToParentSpace(const Skeleton* skeleton);

    // Fingerprint of joints 1 ... n-1, each component rounded to half precision first so tiny
    // differences do not matter; 0 for fewer than two joints. `precision` goes to valueBitRound.
    std::size_t hash(short precision) const;

    // Bytes of the archive form.
    std::size_t memSize() const;

    friend ZELTO_API Archive& operator<<(Archive& archive, const Pose& pose);
    friend ZELTO_API Archive& operator>>(Archive& archive, Pose& pose);

private:
    static void read(Archive& archive, Pose& pose);

    std::vector<JointPose> m_jointPoses;
    MapMetadata m_poseMetadata;
    // Mutable: the const accessor inserts an empty entry for a joint without one.
    mutable std::map<unsigned short, MapMetadata> m_jointsMetadata;
    Imath::Vec3<double> m_direction{0.0, 0.0, 0.0};
    std::vector<short> m_activeJoints;
    bool m_inParentSpace = true;
};

// Writes memSize() bytes at the archive position; with less room than that nothing is written
// and the archive is marked failed. The maps keep their plain layout whatever the archive's flags
// ask of containers (so does the reader).
ZELTO_API Archive& operator<<(Archive& archive, const Pose& pose);
// Replaces the pose by what it reads. Archives before version 4 carry no space flag: local space.
// A truncated or damaged stream marks the archive failed (see Archive::failed()) and leaves the
// pose as it was.
ZELTO_API Archive& operator>>(Archive& archive, Pose& pose);

}  // namespace ZeltoCore
