// Text dumps of joints and skeletons.
#include <string>
#include <vector>

#include "core/skeleton/Joint.h"
#include "core/skeleton/Skeleton.h"
#include "core/skeleton/internal/Ancestors.h"

namespace ZeltoCore {

std::ostream& operator<<(std::ostream& out, const Joint& joint) {
    const Imath::Quat<double>& r = joint.rotation();
    const Imath::Vec3<double>& t = joint.translation();
    const Imath::Vec3<double>& s = joint.scale();
    out << "Joint object" << std::endl;
    out << "\tName:" << joint.name() << std::endl;
    out << "\tId:" << joint.id() << std::endl;
    out << "\tRotation:(" << r.r << ", " << r.v.x << ", " << r.v.y << ", " << r.v.z << ")"
        << std::endl;
    out << "\tTranslation:(" << t.x << ", " << t.y << ", " << t.z << ")" << std::endl;
    out << "\tScale:(" << s.x << ", " << s.y << ", " << s.z << ")" << std::endl;
    const Imath::Matrix44<double> m = joint.matrix();
    out << "\tMatrix: (";
    for (int i = 0; i < 16; ++i)
        out << (i ? ", " : "") << m[i / 4][i % 4];
    out << ")";
    // The matrix line has no end of its own: the parent shares it.
    if (const Joint* parent = joint.parent())
        out << "\tParent:" << parent->name() << std::endl;
    else
        out << "\tParent: null" << std::endl;
    out << "\tNum children:" << joint.numChildren() << std::endl;
    for (unsigned short i = 0; i < joint.numChildren(); ++i)
        out << "\tChild " << i << ": " << joint.child(i)->name() << std::endl;
    return out;
}

std::ostream& operator<<(std::ostream& out, const Skeleton& skeleton) {
    const unsigned short n = skeleton.numJoints();
    out << "Number of joints: " << n << std::endl;
    for (unsigned short i = 0; i < n; ++i)
        out << "Joint " << i << std::endl << skeleton.joint(i) << std::endl;
    out << "Number of feet: " << skeleton.numFeet() << std::endl;
    for (unsigned short f = 0; f < skeleton.numFeet(); ++f) {
        out << "Foot " << f << ": " << skeleton.footIK(f)->id() << " - "
            << skeleton.footRoot(f)->id() << " - " << skeleton.footTip(f)->id() << std::endl;
    }
    out << "Number of pelvises: " << skeleton.numPelvises() << std::endl;
    for (unsigned short p = 0; p < skeleton.numPelvises(); ++p)
        out << "Pelvis " << p << ": " << (n ? skeleton.pelvis(p).id() : 0) << " " << std::endl;
    out << "Root: " << (n ? skeleton.root()->id() : 0) << std::endl;
    out << "Hierarchy" << std::endl;
    if (!n) return out;

    std::vector<char> listed(n);
    std::vector<const Joint*> stack{skeleton.root()};
    while (!stack.empty()) {
        const Joint& j = *stack.back();
        stack.pop_back();
        if (listed[j.id()]) continue;
        listed[j.id()] = 1;
        detail::forEachAncestor(skeleton, j, [&out](const Joint&) {
            out << "    ";
            return true;
        });
        out << j.id() << ": " << j.name() << std::endl;
        for (unsigned short c = 0; c < j.numChildren(); ++c) {
            const unsigned short id = j.child(c)->id();
            if (id < n && !listed[id]) stack.push_back(&skeleton.joint(id));
        }
    }
    return out;
}

}  // namespace ZeltoCore
