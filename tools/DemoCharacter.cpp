#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <cmath>
#include <iomanip>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "core/ZeltoCore.h"
#include "tools/Demo.h"
#include "tools/DemoSkeleton.h"
#include "tools/ObjectText.h"

namespace ZeltoTool {

using namespace ZeltoCore;

namespace {

bool near(const Imath::M44d& a, const Imath::M44d& b, double tolerance) {
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            if (!(std::abs(a[i][j] - b[i][j]) <= tolerance)) return false;
    return true;
}

}  // namespace

bool demoCharacter(std::ostream& out) {
    const Skeleton skeleton = buildCharacter();
    out << "character: archive form " << skeleton.memSize() << " bytes\n";
    printSkeleton(out, skeleton, "  ");

    out << "joint properties:\n";
    for (unsigned short id : skeleton.jointMetadataIds()) {
        for (const auto& [key, value] : skeleton.jointMetadata(id)) {
            std::stringstream text;
            if (value) value->toString(text);
            out << "  " << skeleton[id].name() << "." << key << " = " << text.str() << "\n";
        }
    }

    const Poser poser(&skeleton);
    const std::vector<Imath::M44d> bind = poser.getAllWorldBindMatrix();
    Pose pose(&skeleton, true);
    pose.convertToLocalSpace(&skeleton);
    bool ok = !pose.inParentSpace();
    for (unsigned short i = 0; i < pose.numJoints(); ++i)
        ok = ok && near(pose.jointPose(i).matrix(), Imath::M44d(), 1e-9);
    const std::vector<Imath::M44d> local = poser.getAllWorldMatrix(pose);
    pose.convertToParentSpace(&skeleton);
    ok = ok && pose.inParentSpace();
    const std::vector<Imath::M44d> parent = poser.getAllWorldMatrix(pose);
    for (unsigned short i = 0; i < pose.numJoints(); ++i)
        ok = ok && near(local[i], bind[i], 1e-9) && near(parent[i], bind[i], 1e-9);
    out << "bind pose to local space (identity joints) and back: "
        << (ok ? "same world matrices" : "DIFFERENT") << "\n";

    out << "feet in world space:\n" << std::fixed << std::setprecision(3);
    for (unsigned short f = 0; f < skeleton.numFeet(); ++f) {
        for (const Joint* j : {skeleton.footIK(f), skeleton.footTip(f)}) {
            const Imath::V3d p = parent[j->id()].translation();
            out << "  " << std::setw(8) << std::left << j->name() << std::right << " (" << p.x
                << ", " << p.y << ", " << p.z << ")\n";
        }
    }
    out << std::defaultfloat;
    return ok;
}

}  // namespace ZeltoTool
