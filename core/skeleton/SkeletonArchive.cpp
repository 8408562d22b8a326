// The skeleton's archive form, its reader's checks, and its hash.
#include "core/skeleton/SkeletonArchive.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "core/archive/ArchiveOperators.h"
#include "core/math/JointPose.h"
#include "core/metadata/internal/ContainerIO.h"

namespace ZeltoCore {

namespace {

constexpr uint16_t kNoParent = 65535;
const std::string kNoName = "noname";
// A joint record with an empty name, and a metadata entry holding an empty map.
constexpr size_t kMinJointRecord = 8 + 2 + 80 + 2 + 2;
constexpr size_t kMinMetadataEntry = 2 + 20;

// The skeleton's maps are part of its own fixed layout: plain, whatever the archive asks of
// free-standing containers.
uint64_t plainFlags(const Archive& archive) {
    return archive.flags & ~Archive::kCompressedContainers;
}

// True when following parent ids from some joint comes back to it. Each joint is settled once.
bool hasCycle(const std::vector<uint16_t>& parents) {
    enum : char { kNew, kOnPath, kDone };
    std::vector<char> state(parents.size(), kNew);
    for (size_t i = 0; i < parents.size(); ++i) {
        size_t j = i;
        while (j != kNoParent && state[j] == kNew) {
            state[j] = kOnPath;
            j = parents[j];
        }
        if (j != kNoParent && state[j] == kOnPath) return true;
        for (j = i; j != kNoParent && state[j] == kOnPath; j = parents[j])
            state[j] = kDone;
    }
    return false;
}

// The joint records: bind transforms and names into `s`, links checked before any is made.
bool readJoints(Archive& a, Skeleton& s) {
    uint16_t n = 0;
    if (!a.read(&n, sizeof(n)) || n > a.remaining() / kMinJointRecord) return false;
    s.setNumJoints(n);
    std::vector<uint16_t> parents(n), listedBy(n, kNoParent), children;
    std::vector<size_t> firstChild(n + 1);
    std::string name;
    for (uint16_t i = 0; i < n; ++i) {
        Joint& joint = s.joint(i);
        a >> name;
        if (name != kNoName) joint.setName(name);
        uint16_t id = 0, count = 0;
        JointPose bind;
        a >> id >> bind >> parents[i] >> count;
        if (a.failed() || id != i || (parents[i] != kNoParent && parents[i] >= n) ||
            count > a.remaining() / 2) {
            return false;
        }
        joint.setRotation(bind.rotation);
        joint.setTranslation(bind.translation);
        joint.setScale(bind.scale);
        firstChild[i] = children.size();
        children.resize(children.size() + count);
        a.read(children.data() + firstChild[i], count * sizeof(uint16_t));
        for (size_t c = firstChild[i]; c < children.size(); ++c) {
            const uint16_t child = children[c];
            if (child >= n || listedBy[child] != kNoParent) return false;
            listedBy[child] = i;
        }
    }
    firstChild[n] = children.size();
    for (uint16_t i = 0; i < n; ++i) {
        if (listedBy[i] != kNoParent && listedBy[i] != parents[i]) return false;
    }
    if (hasCycle(parents)) return false;

    for (uint16_t i = 0; i < n; ++i) {
        Joint& joint = s.joint(i);
        if (parents[i] != kNoParent) joint.setParent(&s.joint(parents[i]));
        joint.reserveChildren(static_cast<unsigned short>(firstChild[i + 1] - firstChild[i]));
        for (size_t c = firstChild[i]; c < firstChild[i + 1]; ++c)
            joint.addChild(&s.joint(children[c]));
    }
    return true;
}

bool readSkeleton(Archive& a, Skeleton& s) {
    if (!readJoints(a, s)) return false;
    const unsigned n = s.numJoints();

    uint64_t entries = 0;
    if (!a.readCount(entries, kMinMetadataEntry)) return false;
    int previous = -1;
    for (uint64_t e = 0; e < entries; ++e) {
        uint16_t id = 0;
        if (!a.read(&id, sizeof(id)) || id >= n || int(id) <= previous) return false;
        previous = id;
        if (!s.jointMetadata(id).deserialise(a)) return false;
    }

    uint16_t feet = 0;
    a >> feet;
    if (feet > a.remaining() / 6) return false;
    for (uint16_t f = 0; f < feet; ++f) {
        uint16_t ik = 0, root = 0, tip = 0;
        a >> ik >> root >> tip;
        s.addFoot(ik, root, tip);
    }
    uint16_t pelvises = 0;
    a >> pelvises;
    if (pelvises > a.remaining() / 2) return false;
    for (uint16_t p = 0; p < pelvises; ++p) {
        uint16_t id = 0;
        a >> id;
        s.addPelvis(id);
    }
    uint16_t root = 0;
    a >> root;
    if (a.failed()) return false;
    s.setRoot(root);

    s.buildJointNameMap();
    s.buildIkData();
    s.buildDetachedJointsList();
    return true;
}

}  // namespace

Archive& operator<<(Archive& archive, const Skeleton& skeleton) {
    if (archive.remaining() < skeleton.memSize()) {
        archive.setFailed();
        return archive;
    }
    internal::ScopedFlags plain(archive, plainFlags(archive));
    const uint16_t n = skeleton.numJoints();
    archive << n;
    for (uint16_t i = 0; i < n; ++i) {
        const Joint& j = skeleton.joint(i);
        archive << (j.name().empty() ? kNoName : j.name()) << j.id()
                << JointPose(j.rotation(), j.translation(), j.scale())
                << (j.parent() ? j.parent()->id() : kNoParent) << j.numChildren();
        for (unsigned short c = 0; c < j.numChildren(); ++c)
            archive << j.child(c)->id();
    }
    const std::vector<unsigned short> ids = skeleton.jointMetadataIds();
    archive << static_cast<uint64_t>(ids.size());
    for (unsigned short id : ids)
        archive << id << skeleton.jointMetadata(id);
    archive << skeleton.numFeet();
    for (unsigned short f = 0; f < skeleton.numFeet(); ++f) {
        archive << skeleton.footIK(f)->id() << skeleton.footRoot(f)->id()
                << skeleton.footTip(f)->id();
    }
    // Joint 0 stands in for missing pelvises; a skeleton without joints writes id 0 for it.
    archive << skeleton.numPelvises();
    for (unsigned short p = 0; p < skeleton.numPelvises(); ++p)
        archive << (n ? skeleton.pelvis(p).id() : uint16_t(0));
    archive << (n ? skeleton.root()->id() : uint16_t(0));
    return archive;
}

Archive& operator>>(Archive& archive, Skeleton& skeleton) {
    const uint64_t start = archive.position;
    internal::ScopedFlags plain(archive, plainFlags(archive));
    Skeleton read(0);
    if (!archive.failed() && readSkeleton(archive, read)) {
        read.lods().swap(skeleton.lods());  // not part of the stream: the target keeps its own
        skeleton.swap(read);
    } else {
        archive.setFailed();
        archive.position = start;
    }
    return archive;
}

void Skeleton::hash(MurmurHash3& h) const {
    // Every value in a hash() call of its own: the cut into calls is part of the result.
    const auto bytes = [&h](const auto& value) { h.hash(&value, sizeof(value)); };
    const auto list = [&h](const auto& ids) { h.hash(ids.data(), ids.size() * sizeof(ids[0])); };
    for (unsigned i = 0; i < m_numJoints; ++i) {
        const Joint& j = m_joints[i];
        h.hash(j.name().data(), j.name().size());
        bytes(j.id());
        bytes(j.rotation().r);
        bytes(j.rotation().v);
        bytes(j.translation());
        bytes(j.scale());
        if (j.parent()) bytes(j.parent()->id());
        bytes(j.numChildren());
        for (unsigned short c = 0; c < j.numChildren(); ++c)
            bytes(j.child(c)->id());
    }
    for (const FootData& f : m_feet) {
        bytes(f.ik);
        bytes(f.root);
        bytes(f.tip);
        const unsigned char hasPole = f.hasPoleVector ? 1 : 0;
        bytes(hasPole);
        list(f.legJoints);
        list(f.midJoints);
        bytes(f.numLegSegments);
        bytes(f.pelvis);
        bytes(f.poleVector);
    }
    std::vector<std::pair<int, const std::string*>> names;
    names.reserve(m_jointNameMap.size());
    for (const auto& [name, id] : m_jointNameMap)
        names.emplace_back(id, &name);
    std::sort(names.begin(), names.end(), [](const auto& a, const auto& b) {
        return a.first != b.first ? a.first < b.first : *a.second < *b.second;
    });
    for (const auto& [id, name] : names) {
        h.hash(name->data(), name->size());
        const int32_t id32 = id;
        bytes(id32);
    }
    for (const auto& [id, metadata] : m_jointMetadata) {
        bytes(id);
        metadata.hash(h);
    }
    list(m_pelvises);
    for (const std::vector<PelvisChain>& chains : m_pelvisChains) {
        for (const PelvisChain& chain : chains) {
            list(chain.jointIds);
            bytes(chain.childPelvis);
            bytes(chain.pelvis);
        }
    }
    list(m_detachedJoints);
    bytes(m_root);
    bytes(m_numJoints);
}

}  // namespace ZeltoCore
