#include "core/pose/Pose.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "core/archive/ArchiveOperators.h"
#include "core/math/Transform.h"
#include "core/metadata/internal/ContainerIO.h"
#include "core/skeleton/Skeleton.h"

namespace ZeltoCore {

namespace {

// The pose's maps are part of its own layout: plain, whatever the archive asks of free-standing
// containers.
uint64_t plainFlags(const Archive& archive) {
    return archive.flags & ~Archive::kCompressedContainers;
}

}  // namespace

Pose::Pose(const Skeleton* skeleton, bool fillFromSkeleton) : m_inParentSpace(fillFromSkeleton) {
    if (!fillFromSkeleton || !skeleton) return;
    const unsigned short n = skeleton->numJoints();
    m_jointPoses.resize(n);
    for (unsigned short i = 0; i < n; ++i) {
        const Joint& joint = skeleton->joint(i);
        m_jointPoses[i] = JointPose(joint.rotation(), joint.translation(), joint.scale());
    }
    resetActiveJoints();
}

Pose& Pose::operator=(const Pose& other) {
    if (this == &other) return *this;
    m_activeJoints = other.m_activeJoints;
    m_inParentSpace = other.m_inParentSpace;

    // A zero flag keeps the joint; a joint beyond the flag list is always taken.
    const auto taken = [this](size_t id) {
        return id >= m_activeJoints.size() || m_activeJoints[id] != 0;
    };
    if (m_jointPoses.size() == other.m_jointPoses.size()) {
        for (size_t i = 0; i < m_jointPoses.size(); ++i) {
            if (taken(i)) m_jointPoses[i] = other.m_jointPoses[i];
        }
    } else {
        m_jointPoses = other.m_jointPoses;
    }

    for (const auto& [id, metadata] : other.m_jointsMetadata) {
        if (taken(id)) m_jointsMetadata[id] = metadata;
    }
    if (m_jointsMetadata.size() != other.m_jointsMetadata.size()) {
        for (auto it = m_jointsMetadata.begin(); it != m_jointsMetadata.end();) {
            if (taken(it->first) && !other.m_jointsMetadata.count(it->first)) {
                it = m_jointsMetadata.erase(it);
            } else {
                ++it;
            }
        }
    }

    m_poseMetadata = other.m_poseMetadata;
    m_direction = other.m_direction;
    return *this;
}

Pose::Pose(Pose&& other) noexcept {
    swap(other);
}

Pose& Pose::operator=(Pose&& other) noexcept {
    const bool fullCopy = std::all_of(other.m_activeJoints.begin(), other.m_activeJoints.end(),
                                      [](short flag) { return flag != 0; });
    if (fullCopy) {
        swap(other);
    } else {
        *this = static_cast<const Pose&>(other);
    }
    return *this;
}

void Pose::swap(Pose& other) noexcept {
    m_jointPoses.swap(other.m_jointPoses);
    m_poseMetadata.data().swap(other.m_poseMetadata.data());
    m_jointsMetadata.swap(other.m_jointsMetadata);
    std::swap(m_direction, other.m_direction);
    m_activeJoints.swap(other.m_activeJoints);
    std::swap(m_inParentSpace, other.m_inParentSpace);
}

void Pose::setNumberJoints(unsigned short n) {
    m_jointPoses.assign(n, JointPose());
    resetActiveJoints();
}

void Pose::addPoseMetadata(const std::string& key, Metadata* value) {
    m_poseMetadata.addEntry(key, value);
}

void Pose::setJointMetadata(unsigned short id, const MapMetadata& metadata) {
    m_jointsMetadata[id] = metadata;
}

void Pose::addJointMetadata(unsigned short id, const std::string& key,
                            const std::shared_ptr<Metadata>& value) {
    m_jointsMetadata[id].addEntry(key, value, true);
}

void Pose::addJointMetadata(unsigned short id, const std::string& key, Metadata* value) {
    m_jointsMetadata[id].addEntry(key, value);
}

std::vector<unsigned short> Pose::jointMetadataIds() const {
    std::vector<unsigned short> ids;
    ids.reserve(m_jointsMetadata.size());
    for (const auto& entry : m_jointsMetadata)
        ids.push_back(entry.first);
    return ids;
}

void Pose::setActiveJoint(std::size_t id, bool active) {
    if (id < m_activeJoints.size()) m_activeJoints[id] = active ? 1 : 0;
}

void Pose::setActiveJoints(const std::vector<short>& flags) {
    if (flags.size() == m_jointPoses.size()) m_activeJoints = flags;
}

void Pose::convertToLocalSpace(const Skeleton* skeleton) {
    if (!skeleton || !m_inParentSpace || numJoints() != skeleton->numJoints()) return;
    for (unsigned short i = 0; i < numJoints(); ++i) {
        JointPose& p = m_jointPoses[i];
        p.setMatrix(p.matrix() * matrixInverse(skeleton->joint(i).matrix()));
    }
    m_inParentSpace = false;
}

void Pose::convertToParentSpace(const Skeleton* skeleton) {
    if (!skeleton || m_inParentSpace || numJoints() != skeleton->numJoints()) return;
    for (unsigned short i = 0; i < numJoints(); ++i) {
        JointPose& p = m_jointPoses[i];
        p.setMatrix(p.matrix() * skeleton->joint(i).matrix());
    }
    m_inParentSpace = true;
}

std::size_t Pose::hash(short precision) const {
    if (m_jointPoses.size() < 2) return 0;
    const unsigned int bits = static_cast<unsigned int>(precision);
    uint64_t seed = 0;
    const auto add = [&seed, bits](double value) {
        const float rounded = valueBitRound(static_cast<float>(value), bits);
        uint32_t pattern = 0;
        // -0 and +0 must agree, so zero hashes as the all-zero pattern.
        if (rounded != 0.0f) std::memcpy(&pattern, &rounded, sizeof(pattern));
        uint64_t h = 0xcbf29ce484222325ull;  // 64-bit FNV-1a, least significant byte first
        for (int byte = 0; byte < 4; ++byte) {
            h ^= (pattern >> (8 * byte)) & 0xffu;
            h *= 0x100000001b3ull;
        }
        seed ^= h + 0x9e3779b9ull + (seed << 6) + (seed >> 2);
    };
    for (size_t i = 1; i < m_jointPoses.size(); ++i) {
        const JointPose& p = m_jointPoses[i];
        add(p.scale.x);
        add(p.scale.y);
        add(p.scale.z);
        add(p.translation.x);
        add(p.translation.y);
        add(p.translation.z);
        add(p.rotation.v.x);
        add(p.rotation.v.y);
        add(p.rotation.v.z);
        add(p.rotation.r);
    }
    return static_cast<std::size_t>(seed);
}

std::size_t Pose::memSize() const {
    // Joint count, joint poses, pose map, entry count and ids, entries, direction and flag.
    std::size_t size = 2 + JointPose::memSize() * m_jointPoses.size() + m_poseMetadata.memSize() +
                       2 * (m_jointsMetadata.size() + 4) + 25;
    for (const auto& entry : m_jointsMetadata)
        size += entry.second.memSize();
    return size;
}

Archive& operator<<(Archive& archive, const Pose& pose) {
    if (archive.remaining() < pose.memSize()) {
        archive.setFailed();
        return archive;
    }
    internal::ScopedFlags plain(archive, plainFlags(archive));
    archive << static_cast<uint16_t>(pose.m_jointPoses.size());
    for (const JointPose& p : pose.m_jointPoses)
        archive << p;
    archive << pose.m_poseMetadata;
    archive << static_cast<uint64_t>(pose.m_jointsMetadata.size());
    for (const auto& [id, metadata] : pose.m_jointsMetadata)
        archive << id << metadata;
    archive << pose.m_direction;
    archive << static_cast<uint8_t>(pose.m_inParentSpace ? 1 : 0);
    return archive;
}

Archive& operator>>(Archive& archive, Pose& target) {
    // Read into a fresh pose and take it only when the whole stream was good, so a damaged
    // stream never costs the caller the pose it held.
    const bool wasFailed = archive.failed();
    internal::ScopedFlags plain(archive, plainFlags(archive));
    Pose pose;
    Pose::read(archive, pose);
    if (wasFailed || !archive.failed()) target.swap(pose);
    return archive;
}

void Pose::read(Archive& archive, Pose& pose) {
    uint16_t count = 0;
    if (!archive.read(&count, sizeof(count))) return;
    // The joint poses must be there before any are allocated.
    if (archive.remaining() < JointPose::memSize() * count) {
        archive.setFailed();
        return;
    }
    pose.m_jointPoses.resize(count);
    pose.resetActiveJoints();
    for (JointPose& p : pose.m_jointPoses)
        archive >> p;

    if (!pose.m_poseMetadata.deserialise(archive)) {
        archive.setFailed();
        return;
    }
    // Each entry takes at least its id and an empty map's 20 bytes.
    uint64_t entries = 0;
    if (!archive.readCount(entries, 2 + 20)) return;
    for (uint64_t e = 0; e < entries; ++e) {
        uint16_t id = 0;
        if (!archive.read(&id, sizeof(id))) return;
        if (!pose.m_jointsMetadata[id].deserialise(archive)) {
            archive.setFailed();
            return;
        }
    }

    archive >> pose.m_direction;
    pose.resetActiveJoints();
    if (archive.version >= 4) {
        uint8_t inParentSpace = 0;
        archive >> inParentSpace;
        pose.m_inParentSpace = inParentSpace != 0;
    } else {
        pose.m_inParentSpace = false;
    }
}

}  // namespace ZeltoCore
