#include "core/skeleton/Skeleton.h"

#include <algorithm>

namespace ZeltoCore {

Skeleton::Skeleton(unsigned short numJoints) {
    allocateJoints(numJoints);
}

Skeleton::Skeleton(const Skeleton& other)
    : m_feet(other.m_feet),
      m_jointNameMap(other.m_jointNameMap),
      m_jointMetadata(other.m_jointMetadata),
      m_pelvises(other.m_pelvises),
      m_pelvisChains(other.m_pelvisChains),
      m_detachedJoints(other.m_detachedJoints),
      m_lods(other.m_lods),
      m_root(other.m_root) {
    allocateJoints(other.m_numJoints);
    copyJoints(other);
}

Skeleton& Skeleton::operator=(const Skeleton& other) {
    if (this == &other) return *this;
    if (m_numJoints != other.m_numJoints) {
        m_joints.reset();
        allocateJoints(other.m_numJoints);
    }
    m_feet = other.m_feet;
    m_jointNameMap = other.m_jointNameMap;
    m_pelvises = other.m_pelvises;
    m_pelvisChains = other.m_pelvisChains;
    m_detachedJoints = other.m_detachedJoints;
    m_lods = other.m_lods;
    m_root = other.m_root;
    // Emptied first so that no held value of this skeleton survives into the copy.
    m_jointMetadata.clear();
    for (const auto& [id, metadata] : other.m_jointMetadata)
        m_jointMetadata[id] = metadata;

    copyJoints(other);
    return *this;
}

Skeleton::~Skeleton() = default;

void Skeleton::swap(Skeleton& other) noexcept {
    m_joints.swap(other.m_joints);
    m_feet.swap(other.m_feet);
    m_jointNameMap.swap(other.m_jointNameMap);
    m_jointMetadata.swap(other.m_jointMetadata);
    m_pelvises.swap(other.m_pelvises);
    m_pelvisChains.swap(other.m_pelvisChains);
    m_detachedJoints.swap(other.m_detachedJoints);
    m_lods.swap(other.m_lods);
    std::swap(m_root, other.m_root);
    std::swap(m_numJoints, other.m_numJoints);
}

void Skeleton::copyJoints(const Skeleton& other) {
    // Links are re-made through the source joints' ids; a link whose id is outside this array
    // (a hand-made link into another skeleton) is dropped rather than followed.
    const unsigned n = m_numJoints;
    for (unsigned i = 0; i < n; ++i) {
        const Joint& source = other.m_joints[i];
        Joint& target = m_joints[i];
        target = source;
        target.setParent(nullptr);
        if (const Joint* parent = source.parent(); parent && parent->id() < n)
            target.setParent(&m_joints[parent->id()]);
        target.removeChildren();
        for (unsigned short c = 0; c < source.numChildren(); ++c) {
            const unsigned short child = source.child(c)->id();
            if (child < n) target.addChild(&m_joints[child]);
        }
    }
}

void Skeleton::allocateJoints(unsigned short n) {
    m_joints.reset(n ? new Joint[n] : nullptr);
    m_numJoints = n;
    for (unsigned i = 0; i < n; ++i)
        m_joints[i].setId(static_cast<unsigned short>(i));
}

void Skeleton::clear() {
    m_joints.reset();
    m_feet.clear();
    m_jointNameMap.clear();
    m_jointMetadata.clear();
    m_pelvises.clear();
    m_root = 0;
    m_numJoints = 0;
}

void Skeleton::setNumJoints(unsigned int n) {
    clear();
    allocateJoints(static_cast<unsigned short>(n));
    m_root = 0;
}

void Skeleton::setRoot(unsigned short id) {
    if (id < m_numJoints) m_root = id;
}

int Skeleton::jointId(const std::string& name) const {
    const auto it = m_jointNameMap.find(name);
    return it == m_jointNameMap.end() ? -1 : it->second;
}

void Skeleton::buildJointNameMap() {
    m_jointNameMap.clear();
    m_jointNameMap.reserve(m_numJoints);
    for (unsigned i = 0; i < m_numJoints; ++i)
        m_jointNameMap[m_joints[i].name()] = int(i);
}

void Skeleton::sanitizeJointNames() {
    for (unsigned i = 0; i < m_numJoints; ++i) {
        std::string name = m_joints[i].name();
        std::replace(name.begin(), name.end(), '.', '_');
        const size_t colon = name.find(':');
        if (colon != std::string::npos) name.erase(0, colon + 1);
        m_joints[i].setName(name);
    }
    buildJointNameMap();
}

void Skeleton::buildDetachedJointsList() {
    m_detachedJoints.clear();
    for (unsigned i = 0; i < m_numJoints; ++i) {
        if (!m_joints[i].parent()) m_detachedJoints.push_back(static_cast<unsigned short>(i));
    }
}

void Skeleton::addFoot(unsigned short ik, unsigned short root, unsigned short tip) {
    if (ik >= m_numJoints || root >= m_numJoints || tip >= m_numJoints) return;
    FootData foot;
    foot.ik = ik;
    foot.tip = tip;
    foot.root = root;
    m_feet.push_back(std::move(foot));
}

void Skeleton::setFootPoleVector(unsigned short foot, const Imath::Vec3<double>& v) {
    if (foot >= m_feet.size()) return;
    m_feet[foot].poleVector = v;
    m_feet[foot].hasPoleVector = true;
}

bool Skeleton::isFootIK(unsigned short id) const {
    return std::any_of(m_feet.begin(), m_feet.end(),
                       [id](const FootData& f) { return f.ik == id; });
}

bool Skeleton::isFootRoot(unsigned short id) const {
    return std::any_of(m_feet.begin(), m_feet.end(),
                       [id](const FootData& f) { return f.root == id; });
}

bool Skeleton::isFootTip(unsigned short id) const {
    return std::any_of(m_feet.begin(), m_feet.end(),
                       [id](const FootData& f) { return f.tip == id; });
}

void Skeleton::addPelvis(unsigned short id) {
    if (id >= m_numJoints || isPelvis(id)) return;
    m_pelvises.push_back(id);
    std::sort(m_pelvises.begin(), m_pelvises.end());
}

unsigned short Skeleton::numPelvises() const {
    return m_pelvises.empty() ? 1 : static_cast<unsigned short>(m_pelvises.size());
}

bool Skeleton::isPelvis(unsigned short id) const {
    return std::find(m_pelvises.begin(), m_pelvises.end(), id) != m_pelvises.end();
}

unsigned int Skeleton::numPelvisChains(unsigned int pelvisIndex) const {
    return pelvisIndex < m_pelvisChains.size()
               ? static_cast<unsigned int>(m_pelvisChains[pelvisIndex].size())
               : 0;
}

PelvisChain* Skeleton::pelvisChain(unsigned int pelvisIndex, unsigned int chainIndex) {
    if (pelvisIndex >= m_pelvisChains.size()) return nullptr;
    std::vector<PelvisChain>& list = m_pelvisChains[pelvisIndex];
    return chainIndex < list.size() ? &list[chainIndex] : nullptr;
}

const PelvisChain* Skeleton::pelvisChain(unsigned int pelvisIndex, unsigned int chainIndex) const {
    return const_cast<Skeleton*>(this)->pelvisChain(pelvisIndex, chainIndex);
}

void Skeleton::setJointMetadata(unsigned short id, const MapMetadata& metadata) {
    m_jointMetadata[id] = metadata;
}

void Skeleton::addJointMetadata(unsigned short id, const std::string& key,
                                const std::shared_ptr<Metadata>& value) {
    m_jointMetadata[id].addEntry(key, value, true);
}

void Skeleton::addJointMetadata(unsigned short id, const std::string& key, Metadata* value) {
    m_jointMetadata[id].addEntry(key, value);
}

std::vector<unsigned short> Skeleton::jointMetadataIds() const {
    std::vector<unsigned short> ids;
    ids.reserve(m_jointMetadata.size());
    for (const auto& entry : m_jointMetadata)
        ids.push_back(entry.first);
    return ids;
}

size_t Skeleton::memSize() const {
    // Joint record: name (8-byte length + bytes, "noname" for an empty name), id, ten doubles,
    // parent id, child count (94 bytes without the name), then 2 bytes per child.
    size_t size = 2;
    for (unsigned i = 0; i < m_numJoints; ++i) {
        const Joint& j = m_joints[i];
        size += (j.name().empty() ? 6 : j.name().size()) + 2 * size_t(j.numChildren()) + 94;
    }
    size += 8 + 2 * m_jointMetadata.size();
    for (const auto& entry : m_jointMetadata)
        size += entry.second.memSize();
    // Foot count and 3 ids per foot, pelvis count and ids, root id.
    size += 2 * (3 * (m_feet.size() + 1) + numPelvises());
    return size;
}

}  // namespace ZeltoCore
