#include "core/pose/JointChain.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "core/math/Transform.h"
#include "core/skeleton/internal/Ancestors.h"

namespace ZeltoCore {

JointChain::JointChain(unsigned short numJoints)
    : m_joints(numJoints), m_numJoints(numJoints), m_jointIds(numJoints), m_bindData(numJoints) {}

JointChain::JointChain(const JointChain& other) : JointChain(0) {
    *this = other;
}

JointChain& JointChain::operator=(const JointChain& other) {
    if (this == &other) return *this;
    m_joints = other.m_joints;
    m_name = other.m_name;
    m_fullName = other.m_fullName;
    m_id = other.m_id;
    m_numJoints = other.m_numJoints;
    m_length = other.m_length;
    m_jointIds.resize(m_numJoints);
    for (unsigned short i = 0; i < m_numJoints; ++i)
        m_jointIds[i] = m_joints[i].id();
    m_ikJointIds = other.m_ikJointIds;
    m_skeletalJointIds = other.m_skeletalJointIds;
    m_bindData = other.m_bindData;
    setStart();
    setEnd();
    m_parent = other.m_parent;
    m_footTip = other.m_footTip;
    m_footIk = other.m_footIk;
    m_pelvisId = other.m_pelvisId;
    m_start2endBindVector = other.m_start2endBindVector;
    m_poleVector = other.m_poleVector;
    m_spinePlaneNormal = other.m_spinePlaneNormal;
    m_spineJointId = other.m_spineJointId;
    m_spineBaseSize = other.m_spineBaseSize;
    m_start2endBindDistance = other.m_start2endBindDistance;
    m_isConnectedToParent = other.m_isConnectedToParent;
    m_isRoot = other.m_isRoot;
    m_isSpine = other.m_isSpine;
    m_isLimb = other.m_isLimb;
    m_isEffector = other.m_isEffector;
    m_isCenter = other.m_isCenter;
    m_forceUseFabrik = other.m_forceUseFabrik;
    m_forceOrientEnd = other.m_forceOrientEnd;
    m_hasFootTip = other.m_hasFootTip;
    m_hasFootIk = other.m_hasFootIk;
    m_hasPelvis = other.m_hasPelvis;
    m_hasPoleVector = other.m_hasPoleVector;
    return *this;
}

JointChain::~JointChain() = default;

Joint& JointChain::joint(unsigned short i) {
    if (i >= m_numJoints) throw std::out_of_range("Out of range");
    return m_joints[i];
}

const Joint& JointChain::joint(unsigned short i) const {
    if (i >= m_numJoints) throw std::out_of_range("Out of range");
    return m_joints[i];
}

void JointChain::computeLength() {
    m_length = 0.0;
    for (unsigned short i = 1; i < m_numJoints; ++i)
        m_length += (m_bindData[i].worldTranslation - m_bindData[i - 1].worldTranslation).length();
}

void JointChain::computeSkeletalJointIds(const Skeleton& skeleton) {
    m_skeletalJointIds.clear();
    if (!m_start || !m_end) return;
    const unsigned short startId = m_start->id();
    if (m_end->id() != startId) {
        m_skeletalJointIds.push_back(m_end->id());
        detail::forEachAncestor(skeleton, *m_end, [this, startId](const Joint& a) {
            if (a.id() == startId) return false;
            m_skeletalJointIds.push_back(a.id());
            return true;
        });
    }
    m_skeletalJointIds.push_back(startId);
    std::sort(m_skeletalJointIds.begin(), m_skeletalJointIds.end());
}

void JointChain::computeWorldBindData(const Skeleton&, const Poser& poser) {
    if (!m_numJoints) return;
    for (unsigned short i = 0; i < m_numJoints; ++i) {
        BindData& data = m_bindData[i];
        data.worldMatrix = poser.getWorldBindMatrix(jointId(i));
        Imath::Vec3<double> s, h;
        Imath::Euler<double> e(0.0, 0.0, 0.0, Imath::Euler<double>::XYZ);
        extractSHRT(data.worldMatrix, s, h, e, data.worldTranslation);
        data.worldRotation = e.toQuat();
    }
    const Imath::Vec3<double> v =
        m_bindData[m_numJoints - 1].worldTranslation - m_bindData[0].worldTranslation;
    m_start2endBindDistance = v.length();
    m_start2endBindVector =
        m_start2endBindDistance == 0.0 ? Imath::Vec3<double>(0.0) : v / m_start2endBindDistance;
}

void JointChain::getWorldBindData(const Poser& poser, unsigned int jointId,
                                  Imath::Matrix44<double>& m, Imath::Vec3<double>& s,
                                  Imath::Vec3<double>& h, Imath::Euler<double>& r,
                                  Imath::Vec3<double>& t) const {
    m = poser.getWorldBindMatrix(jointId);
    extractSHRT(m, s, h, r, t);
}

void JointChain::setParentSpine(unsigned short spineJointId,
                                const Imath::Vec3<double>& spinePlaneNormal, double spineBaseSize) {
    m_spineJointId = spineJointId;
    m_spinePlaneNormal = spinePlaneNormal;
    m_spineBaseSize = spineBaseSize;
}

std::ostream& operator<<(std::ostream& out, const JointChain& chain) {
    out << "JointChain object" << std::endl;
    out << "\tName: " << chain.name() << std::endl;
    out << "\tFullName: " << chain.fullName() << std::endl;
    out << "\tId: " << chain.id() << std::endl;
    out << "\tLength: " << chain.length() << std::endl;
    out << "\tNumJoints: " << chain.numJoints() << std::endl;
    for (unsigned short i = 0; i < chain.numJoints(); ++i) {
        out << "\tJoint " << i << " (skeleton id " << chain.jointId(i)
            << "): " << chain.joint(i).name() << std::endl;
    }
    if (chain.parent()) out << "\tParent: " << chain.parent()->name() << std::endl;
    const std::pair<const char*, bool> flags[] = {
        {"\tIsConnectedToParent: ", chain.isConnectedToParent()},
        {"\tIsRoot: ", chain.isRoot()},
        {"\tIsSpine: ", chain.isSpine()},
        {"\tIsLimb: ", chain.isLimb()},
        {"\tIsEffector: ", chain.isEffector()},
        {"\tIsCenter: ", chain.isCenter()},
        {"\tForceUseFabrik: ", chain.forceUseFabrik()},
        {"\tForceOrientEnd: ", chain.forceOrientEnd()},
        {"\tHasFootTip: ", chain.hasFootTip()},
        {"\tHasFootIk: ", chain.hasFootIk()},
        {"\tHasPelvis: ", chain.hasPelvis()},
    };
    for (const auto& [label, value] : flags)
        out << label << value << std::endl;
    return out;
}

}  // namespace ZeltoCore
