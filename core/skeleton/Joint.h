// Joint: one node of a Skeleton, with a name, an id and a bind transform relative to its parent.
//
// Parent and child links are non-owning pointers into the owning skeleton's joint array. Copying
// a joint copies the pointers as they are (they still point into the source skeleton); Skeleton
// relinks them when it copies. addChild also sets the child's parent; removeChild and
// removeChildren only edit the child list.
//
//   Joint& knee = skeleton.joint(2);
//   knee.setTranslation(Imath::V3d(0, -4, 0)); skeleton.joint(1).addChild(&knee);
#pragma once

#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <ostream>
#include <string>
#include <vector>

#include "core/math/JointPose.h"
#include "utils/Export.h"

namespace ZeltoCore {

class ZELTO_API Joint {
public:
    Joint() = default;
    Joint(const Joint&) = default;
    Joint& operator=(const Joint&) = default;

    // The bind transform, relative to the parent; values are stored as given (no normalising).
    const Imath::Quat<double>& rotation() const { return m_bind.rotation; }
    const Imath::Vec3<double>& translation() const { return m_bind.translation; }
    const Imath::Vec3<double>& scale() const { return m_bind.scale; }
    void setRotation(const Imath::Quat<double>& r) { m_bind.rotation = r; }
    void setTranslation(const Imath::Vec3<double>& t) { m_bind.translation = t; }
    void setScale(const Imath::Vec3<double>& s) { m_bind.scale = s; }
    // The bind transform as a matrix, and back (see JointPose).
    Imath::Matrix44<double> matrix() const { return m_bind.matrix(); }
    void setMatrix(const Imath::Matrix44<double>& m) { m_bind.setMatrix(m); }

    const std::string& name() const { return m_name; }
    void setName(const std::string& name) { m_name = name; }
    unsigned short id() const { return m_id; }
    void setId(unsigned short id) { m_id = id; }

    Joint* parent() { return m_parent; }
    const Joint* parent() const { return m_parent; }
    // Sets only this joint's parent pointer; no child list changes.
    void setParent(Joint* parent) { m_parent = parent; }

    unsigned short numChildren() const { return static_cast<unsigned short>(m_children.size()); }
    // The child at position `index` of the child list, or null past its end.
    Joint* child(unsigned short index) {
        return index < m_children.size() ? m_children[index] : nullptr;
    }
    const Joint* child(unsigned short index) const {
        return index < m_children.size() ? m_children[index] : nullptr;
    }
    // Room for n children in all, so that adding a known number allocates once.
    void reserveChildren(unsigned short n) { m_children.reserve(n); }
    // Appends `child` (no duplicate check) and makes this joint its parent; false for null.
    bool addChild(Joint* child);
    // Removes position `index` of the child list; the child keeps its parent pointer.
    bool removeChild(unsigned short index);
    // Empties the child list; the children keep their parent pointers.
    void removeChildren() { m_children.clear(); }
    // True when an ancestor (not the joint itself) has this id. The walk stops after 65535 steps
    // (more than any skeleton's joint count), so a cyclic chain of parents cannot hang it.
    bool isChildOf(unsigned short id) const;

private:
    JointPose m_bind;
    Joint* m_parent = nullptr;
    std::vector<Joint*> m_children;
    std::string m_name;
    unsigned short m_id = 0;
};

// Text dump: name, id, bind transform, matrix, parent name and children's names, one per line;
// the matrix and the parent share a line.
ZELTO_API std::ostream& operator<<(std::ostream& out, const Joint& joint);

}  // namespace ZeltoCore
