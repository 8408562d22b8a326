#include "tools/LegIk.h"

#include <cmath>
#include <iomanip>
#include <sstream>

#include "core/ik/TwoJointsIK.h"
#include "core/pose/Poser.h"

namespace ZeltoTool {

using namespace ZeltoCore;

namespace {

bool finite(const Imath::V3d& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

std::string formatRotation(const Imath::Quatd& q) {
    const double degrees = 180.0 / 3.14159265358979323846;
    std::ostringstream text;
    text << std::fixed << std::setprecision(5) << "(w " << q.r << ", x " << q.v.x << ", y " << q.v.y
         << ", z " << q.v.z << ")" << std::setprecision(2) << ", " << q.angle() * degrees << " deg";
    return text.str();
}

}  // namespace

std::string formatPoint(const Imath::V3d& p) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(3) << "(" << p.x << ", " << p.y << ", " << p.z << ")";
    return text.str();
}

bool solveLeg(Pose& pose, const Skeleton& skeleton, unsigned footIndex, const Imath::V3d& target,
              const Imath::V3d* pole, double stretch, LegSolve& leg, std::string& why) {
    if (footIndex >= skeleton.numFeet()) {
        why = "foot " + std::to_string(footIndex) + " does not exist (the skeleton has " +
              std::to_string(skeleton.numFeet()) + ")";
        return false;
    }
    const auto foot = static_cast<unsigned short>(footIndex);
    if (skeleton.midJoints(foot).empty()) {
        why = "foot " + std::to_string(foot) + " has no mid joint between " +
              skeleton.footRoot(foot)->name() + " and " + skeleton.footIK(foot)->name();
        return false;
    }
    if (!finite(target) || (pole && !finite(*pole)) || !std::isfinite(stretch)) {
        why = "target, pole and stretch must be finite numbers";
        return false;
    }
    if (pose.numJoints() != skeleton.numJoints()) {
        why = "the pose does not have one joint pose per joint";
        return false;
    }
    leg.root = skeleton.footRoot(foot)->id();
    leg.mid = skeleton.midJoints(foot).front();
    leg.end = skeleton.footIK(foot)->id();
    leg.target = target;

    const Poser poser(&skeleton);
    const auto position = [&](unsigned short id) {
        return poser.getWorldMatrix(pose, id).translation();
    };
    const Imath::V3d hip = position(leg.root);
    leg.length =
        (position(leg.mid) - hip).length() + (position(leg.end) - position(leg.mid)).length();
    leg.reach = (target - hip).length();

    Imath::V3d poleCopy = pole ? *pole : Imath::V3d(0.0);
    if (pole)
        solveTwoJointsIK(pose, skeleton, target, leg.root, leg.mid, leg.end, stretch, false, 0.0,
                         &poleCopy);
    else
        solveTwoJointsIKNoPoleVector(pose, skeleton, target, leg.root, leg.mid, leg.end, stretch,
                                     false, 0.0);

    leg.reached = position(leg.end);
    leg.distance = (leg.reached - target).length();
    const Imath::V3d axis = (leg.reached - hip).normalized();
    const Imath::V3d knee = position(leg.mid) - hip;
    leg.bend = knee - axis * (knee ^ axis);
    return true;
}

void printLeg(std::ostream& stream, const Skeleton& skeleton, const Pose& before, const Pose& after,
              const LegSolve& leg) {
    std::ostringstream out;  // keeps the caller's number format
    out << "  " << skeleton[leg.root].name() << " -> " << skeleton[leg.mid].name() << " -> "
        << skeleton[leg.end].name() << ": length " << std::fixed << std::setprecision(3)
        << leg.length << ", target " << formatPoint(leg.target) << " at " << leg.reach << " ("
        << (leg.reach <= leg.length ? "within reach" : "beyond reach") << ")\n";
    for (unsigned short id = 0; id < after.numJoints(); ++id) {
        const JointPose& a = after.jointPose(id);
        const JointPose& b = before.jointPose(id);
        if (a.rotation != b.rotation)
            out << "    " << skeleton[id].name() << " rotation " << formatRotation(a.rotation)
                << "\n";
        if (a.translation != b.translation)
            out << "    " << skeleton[id].name() << " translation " << formatPoint(a.translation)
                << " (was " << formatPoint(b.translation) << ", x"
                << a.translation.length() / b.translation.length() << ")\n";
    }
    out << "    " << skeleton[leg.end].name() << " reached " << formatPoint(leg.reached) << ", "
        << std::defaultfloat << std::setprecision(3);
    // A millionth of the leg is far below what rounding of the solve leaves.
    if (leg.distance <= 1e-6 * leg.length)
        out << "reached the target (distance " << leg.distance << ")\n";
    else
        out << "short of the target by " << leg.distance << "\n";
    out << "    knee offset from the hip-ankle line " << formatPoint(leg.bend) << "\n";
    stream << out.str();
}

}  // namespace ZeltoTool
