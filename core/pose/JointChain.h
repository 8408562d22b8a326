// JointChain: a self-contained chain of joint copies with its bind-pose geometry, for IK.
//
// The chain owns copies of its joints, start first. The copies keep the skeleton's parent
// pointers, so walking parents from a chain joint continues into the skeleton. World bind data,
// length and the start-to-end vector are cached: fill the joints, setStart/setEnd, then
// computeWorldBindData, computeLength and computeSkeletalJointIds. Only joint(i) checks its
// index (std::out_of_range "Out of range"); the other index-taking members do not.
//
//   JointChain leg(3); for (unsigned short i = 0; i < 3; ++i) leg.setJoint(s.joint(ids[i]), i);
//   leg.setStart(); leg.setEnd(); leg.computeWorldBindData(s, Poser(&s)); leg.computeLength();
#pragma once

#include <Imath/ImathEuler.h>
#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <ostream>
#include <string>
#include <vector>

#include "core/pose/Poser.h"
#include "core/skeleton/Joint.h"
#include "core/skeleton/Skeleton.h"
#include "utils/Export.h"

namespace ZeltoCore {

class ZELTO_API JointChain {
public:
    // World bind transform of one chain joint.
    struct BindData {
        Imath::Matrix44<double> worldMatrix;
        Imath::Vec3<double> worldTranslation{0.0, 0.0, 0.0};
        Imath::Quat<double> worldRotation;
    };

    // numJoints default joints, zero ids, identity bind data, every flag false.
    explicit JointChain(unsigned short numJoints);
    // Copies every member; jointIds()[i] becomes the copied joint i's id, start and end point at
    // the copy's first and last joints, the parent chain pointer is shared.
    JointChain(const JointChain& other);
    JointChain& operator=(const JointChain& other);
    ~JointChain();

    // The chain's own copy of joint i; throws std::out_of_range("Out of range") past the end.
    Joint& joint(unsigned short i);
    const Joint& joint(unsigned short i) const;
    void setJoint(const Joint& joint, unsigned short i) { m_joints[i] = joint; }
    // The id of joint copy i (the skeleton joint it was copied from).
    unsigned short jointId(unsigned short i) const { return m_joints[i].id(); }

    const std::string& name() const { return m_name; }
    void setName(const std::string& name) { m_name = name; }
    const std::string& fullName() const { return m_fullName; }
    void setFullName(const std::string& name) { m_fullName = name; }
    unsigned short id() const { return m_id; }
    void setId(unsigned short id) { m_id = id; }
    unsigned short numJoints() const { return m_numJoints; }

    double length() const { return m_length; }
    void setLength(double length) { m_length = length; }
    // Sum of the distances between consecutive world bind translations (computeWorldBindData
    // first); 0 for fewer than two joints.
    void computeLength();

    const std::vector<unsigned short>& jointIds() const { return m_jointIds; }
    void setJointId(unsigned short id, unsigned short i) { m_jointIds[i] = id; }
    const std::vector<unsigned short>& ikJointIds() const { return m_ikJointIds; }
    void setIkJointIds(std::vector<unsigned short> ids) { m_ikJointIds = std::move(ids); }
    unsigned short numIkJoints() const { return static_cast<unsigned short>(m_ikJointIds.size()); }

    // Every skeleton joint from start up to end (ascending ids), including joints between them
    // that are not chain joints, found by walking the parents of end until start's id. The walk
    // follows only links into `skeleton` and stops after its joint count. Empty until start and
    // end are set.
    const std::vector<unsigned short>& skeletalJointIds() const { return m_skeletalJointIds; }
    unsigned short numSkeletalJointIds() const {
        return static_cast<unsigned short>(m_skeletalJointIds.size());
    }
    void computeSkeletalJointIds(const Skeleton& skeleton);

    const BindData& bindData(unsigned short i) const { return m_bindData[i]; }
    // World bind matrix, translation and (XYZ Euler) rotation of every chain joint, then the
    // start-to-end unit vector and distance (zero for coincident ends). Not for empty chains.
    void computeWorldBindData(const Skeleton& skeleton, const Poser& poser);
    // m = the poser's world bind matrix of `jointId`, decomposed by extractSHRT in r's order.
    void getWorldBindData(const Poser& poser, unsigned int jointId, Imath::Matrix44<double>& m,
                          Imath::Vec3<double>& s, Imath::Vec3<double>& h, Imath::Euler<double>& r,
                          Imath::Vec3<double>& t) const;

    // Pointers into the chain's own joints (null for an empty chain or before setStart/setEnd).
    Joint* start() { return m_start; }
    const Joint* start() const { return m_start; }
    void setStart() { m_start = m_numJoints ? &m_joints[0] : nullptr; }
    Joint* end() { return m_end; }
    const Joint* end() const { return m_end; }
    void setEnd() { m_end = m_numJoints ? &m_joints[m_numJoints - 1] : nullptr; }

    const JointChain* parent() const { return m_parent; }
    void setParent(JointChain& parent) { m_parent = &parent; }

    unsigned short footTip() const { return m_footTip; }
    void setFootTip(unsigned short id) { m_footTip = id; }
    unsigned short footIk() const { return m_footIk; }
    void setFootIk(unsigned short id) { m_footIk = id; }
    unsigned short pelvisId() const { return m_pelvisId; }
    void setPelvisId(unsigned short id) { m_pelvisId = id; }

    Imath::Vec3<double> start2endBindVector() const { return m_start2endBindVector; }
    double start2endBindDistance() const { return m_start2endBindDistance; }
    Imath::Vec3<double> poleVector() const { return m_poleVector; }
    void setPoleVector(Imath::Vec3<double> v) { m_poleVector = v; }

    void setParentSpine(unsigned short spineJointId, const Imath::Vec3<double>& spinePlaneNormal,
                        double spineBaseSize);
    const Imath::Vec3<double>& spinePlaneNormal() const { return m_spinePlaneNormal; }
    unsigned int spineJointId() const { return m_spineJointId; }
    double spineBaseSize() const { return m_spineBaseSize; }

    bool isConnectedToParent() const { return m_isConnectedToParent; }
    void setIsConnectedToParent(bool v) { m_isConnectedToParent = v; }
    bool isRoot() const { return m_isRoot; }
    void setIsRoot(bool v) { m_isRoot = v; }
    bool isSpine() const { return m_isSpine; }
    void setIsSpine(bool v) { m_isSpine = v; }
    bool isLimb() const { return m_isLimb; }
    void setIsLimb(bool v) { m_isLimb = v; }
    bool isEffector() const { return m_isEffector; }
    void setIsEffector(bool v) { m_isEffector = v; }
    bool isCenter() const { return m_isCenter; }
    void setIsCenter(bool v) { m_isCenter = v; }
    bool forceUseFabrik() const { return m_forceUseFabrik; }
    void setForceUseFabrik(bool v) { m_forceUseFabrik = v; }
    bool forceOrientEnd() const { return m_forceOrientEnd; }
    void setForceOrientEnd(bool v) { m_forceOrientEnd = v; }
    bool hasFootTip() const { return m_hasFootTip; }
    void setHasFootTip(bool v) { m_hasFootTip = v; }
    bool hasFootIk() const { return m_hasFootIk; }
    void setHasFootIk(bool v) { m_hasFootIk = v; }
    bool hasPelvis() const { return m_hasPelvis; }
    void setHasPelvis(bool v) { m_hasPelvis = v; }
    bool hasPoleVector() const { return m_hasPoleVector; }
    void setHasPoleVector(bool v) { m_hasPoleVector = v; }

private:
    std::vector<Joint> m_joints;
    std::string m_name;
    std::string m_fullName;
    unsigned short m_id = 0;
    unsigned short m_numJoints = 0;
    double m_length = 0.0;
    std::vector<unsigned short> m_jointIds;
    std::vector<unsigned short> m_ikJointIds;
    std::vector<unsigned short> m_skeletalJointIds;
    std::vector<BindData> m_bindData;
    Joint* m_start = nullptr;
    Joint* m_end = nullptr;
    const JointChain* m_parent = nullptr;
    unsigned short m_footTip = 0;
    unsigned short m_footIk = 0;
    unsigned short m_pelvisId = 0;
    Imath::Vec3<double> m_start2endBindVector{0.0, 0.0, 0.0};
    Imath::Vec3<double> m_poleVector{0.0, 0.0, 0.0};
    Imath::Vec3<double> m_spinePlaneNormal{0.0, 0.0, 0.0};
    unsigned short m_spineJointId = 0;
    double m_spineBaseSize = 0.0;
    double m_start2endBindDistance = 0.0;
    bool m_isConnectedToParent = false;
    bool m_isRoot = false;
    bool m_isSpine = false;
    bool m_isLimb = false;
    bool m_isEffector = false;
    bool m_isCenter = false;
    bool m_forceUseFabrik = false;
    bool m_forceOrientEnd = false;
    bool m_hasFootTip = false;
    bool m_hasFootIk = false;
    bool m_hasPelvis = false;
    bool m_hasPoleVector = false;
};

// Text dump: name, full name, id, length, joints with their skeleton ids, the parent chain's name
// when there is one, and the flags (hasPoleVector excepted), one per line.
ZELTO_API std::ostream& operator<<(std::ostream& out, const JointChain& chain);

}  // namespace ZeltoCore
