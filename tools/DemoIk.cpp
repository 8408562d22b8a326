#include "tools/DemoIk.h"

#include <filesystem>
#include <functional>
#include <iomanip>
#include <sstream>
#include <vector>

#include "core/ZeltoCore.h"
#include "tools/CharacterViews.h"
#include "tools/DemoSkeleton.h"
#include "tools/LegIk.h"

namespace ZeltoTool {

using namespace ZeltoCore;

namespace {

const char* kLeft = "#1f77b4";
const char* kRight = "#d62728";
const char* kBody = "#444444";
const char* kBind = "#aaaaaa";
const char* kTailPole = "#8c564b";
const char* kTailColours[] = {"#2ca02c", "#ff7f0e", "#9467bd"};

const std::vector<unsigned short> kTail{10, 11, 12, 13, 14, 15};
const std::vector<unsigned short> kTailMid{11, 12, 13, 14};
constexpr double kTolerance = 1e-4;
constexpr unsigned kMaxIterations = 100;

bool samePose(const Pose& a, const Pose& b) {
    for (unsigned short j = 0; j < a.numJoints(); ++j) {
        const JointPose &x = a.jointPose(j), &y = b.jointPose(j);
        if (x.rotation != y.rotation || x.translation != y.translation || x.scale != y.scale)
            return false;
    }
    return true;
}

// The solvers do not report their iterations, but they stop as soon as the end is within the
// tolerance: the smallest cap that gives the same pose as the full cap is the count they ran.
unsigned countIterations(const Pose& start, const std::function<void(Pose&, unsigned)>& solve,
                         Pose& result) {
    result = start;
    solve(result, kMaxIterations);
    for (unsigned cap = 1; cap < kMaxIterations; ++cap) {
        Pose capped = start;
        solve(capped, cap);
        if (samePose(capped, result)) return cap;
    }
    return kMaxIterations;
}

std::string legColour(unsigned short j) {
    if (j >= 2 && j <= 5) return kLeft;
    if (j >= 6 && j <= 9) return kRight;
    return j < 2 ? kBody : "";
}

// Plants both feet in `pose`; marks the targets and the pole in both scenes.
bool plantFeet(std::ostream& out, const Skeleton& skeleton, Pose& pose, Scene& scene,
               Scene& bindScene) {
    const Imath::V3d pole(0.25, 0.0, 1.0);  // knee forward, a little outward
    struct Case {
        const char* what;
        unsigned short foot;
        Imath::V3d target;
        const Imath::V3d* pole;
        double stretch;
    };
    const Case cases[] = {
        {"left foot, pole vector", 0, Imath::V3d(14, 30, 16), &pole, 0.0},
        {"right foot, no pole vector, stretch 1", 1, Imath::V3d(-12, -6, 14), nullptr, 1.0},
    };
    const Poser poser(&skeleton);
    bool ok = true;
    for (const Case& c : cases) {
        out << c.what << (c.pole ? " " + formatPoint(*c.pole) : "") << ":\n";
        const Pose before = pose;
        LegSolve leg;
        std::string why;
        if (!solveLeg(pose, skeleton, c.foot, c.target, c.pole, c.stretch, leg, why)) {
            out << "  FAILED: " << why << "\n";
            ok = false;
            continue;
        }
        printLeg(out, skeleton, before, pose, leg);
        // Both targets are reached (the far one by stretching). A leg in reach bends its knee
        // to the pole side (forward, as in the bind pose, without pole); one stretched to a far
        // target is straight.
        const bool reached = leg.distance <= 1e-9 * leg.length;
        const bool inReach = leg.reach < leg.length;
        const Imath::V3d facing = c.pole ? *c.pole : Imath::V3d(0, 0, 1);
        const bool kneeRight =
            inReach ? (leg.bend ^ facing) > 0 : leg.bend.length() <= 1e-9 * leg.length;
        out << "  check: " << (reached ? "reached" : "NOT REACHED") << ", knee "
            << (inReach ? (kneeRight ? "on the pole side" : "NOT ON THE POLE SIDE")
                        : (kneeRight ? "straight" : "NOT STRAIGHT"))
            << "\n";
        ok = ok && reached && kneeRight;
        const std::string colour = c.foot == 0 ? kLeft : kRight;
        for (Scene* s : {&scene, &bindScene})
            s->marks.push_back({c.target, colour, true});
        if (c.pole) {
            const Imath::V3d knee = poser.getWorldMatrix(pose, leg.mid).translation();
            const Imath::V3d bindKnee = poser.getWorldBindMatrix(leg.mid).translation();
            const Imath::V3d arrow = c.pole->normalized() * 25.0;
            scene.segments.push_back({knee, knee + arrow, colour, 2, false, true});
            bindScene.segments.push_back({bindKnee, bindKnee + arrow, colour, 2, false, true});
        }
    }
    return ok;
}

// Reaches one target with the tail through each FABRIK solver, from the bind pose.
bool reachWithTail(std::ostream& out, const Skeleton& skeleton, Scene& scene, Scene& bindScene) {
    Imath::V3d target(14, 110, -30);
    const Imath::V3d tailPole(0, 1, 0);
    Pose start(&skeleton, true);
    start.convertToLocalSpace(&skeleton);
    const Poser poser(&skeleton);
    const Imath::V3d base = poser.getWorldBindMatrix(kTail.front()).translation();
    const Imath::V3d middle = poser.getWorldBindMatrix(kTail[3]).translation();
    double length = 0;
    for (size_t i = 1; i < kTail.size(); ++i)
        length += (poser.getWorldBindMatrix(kTail[i]).translation() -
                   poser.getWorldBindMatrix(kTail[i - 1]).translation())
                      .length();
    out << "tail tail_0 ... tail_5: length " << std::fixed << std::setprecision(3) << length
        << ", target " << formatPoint(target) << " at " << (target - base).length() << ", pole "
        << formatPoint(tailPole) << ", tolerance " << std::defaultfloat << kTolerance << "\n";

    const std::pair<const char*, std::function<void(Pose&, unsigned)>> solvers[] = {
        {"fabrikIKSolver",
         [&](Pose& p, unsigned cap) {
             Imath::V3d pole = tailPole;
             fabrikIKSolver(p, skeleton, target, kTail.front(), kTailMid, kTail.back(), kTolerance,
                            cap, 1, &pole);
         }},
        {"fabrikIKSolver2",
         [&](Pose& p, unsigned cap) {
             Imath::V3d pole = tailPole;
             fabrikIKSolver2(p, skeleton, target, kTail, 0.0, kTolerance, cap, 1, &pole);
         }},
        {"fabrikIK3DSolver",
         [&](Pose& p, unsigned cap) {
             fabrikIK3DSolver(p, skeleton, target, kTail.front(), kTailMid, kTail, kTail.back(),
                              kTolerance, cap, 0, nullptr);
         }},
    };
    bool ok = true;
    for (size_t s = 0; s < 3; ++s) {
        Pose solved;
        const unsigned iterations = countIterations(start, solvers[s].second, solved);
        const std::vector<Imath::M44d> world = poser.getAllWorldMatrix(solved);
        const double error = (world[kTail.back()].translation() - target).length();
        // The flat solvers turn the tolerance of the plane into a little more in space.
        const bool reached = error <= 10 * kTolerance;
        ok = ok && reached;
        std::ostringstream line;
        line << "  " << std::left << std::setw(17) << solvers[s].first << std::right
             << "iterations " << std::setw(3) << iterations
             << (iterations == kMaxIterations ? " (cap)" : "      ") << "  end "
             << formatPoint(world[kTail.back()].translation()) << "  error " << std::setprecision(3)
             << error << (reached ? "" : "  TOO FAR") << "\n";
        out << line.str();
        scene.addBones(
            skeleton, world,
            [&](unsigned short j) { return j >= kTail.front() ? kTailColours[s] : ""; },
            6.0 - 2.0 * s);
    }
    out << "  (iterations counted by the demo: the smallest cap that gives the same pose as a "
        << kMaxIterations << "-iteration cap)\n";
    for (Scene* s : {&scene, &bindScene}) {
        s->marks.push_back({target, "#000000", true});
        s->segments.push_back(
            {middle, middle + tailPole.normalized() * 15.0, kTailPole, 1.5, false, true});
    }
    return ok;
}

}  // namespace

bool demoIk(std::ostream& out, const std::string& svgPath) {
    Skeleton skeleton = buildCharacter();
    skeleton.buildIkData();
    const Poser poser(&skeleton);
    Pose pose(&skeleton, true);
    const std::vector<Imath::M44d> bindWorld = poser.getAllWorldMatrix(pose);

    Scene bind{"bind pose", {}, {}}, solved{"solved", {}, {}};
    bind.addBones(skeleton, bindWorld, [](unsigned short j) {
        const std::string leg = legColour(j);
        return leg.empty() ? std::string(kBind) : leg;
    });
    solved.addBones(
        skeleton, bindWorld, [](unsigned short) { return kBind; }, 1.5, true);

    bool ok = plantFeet(out, skeleton, pose, solved, bind);
    solved.addBones(skeleton, poser.getAllWorldMatrix(pose), legColour);
    ok = reachWithTail(out, skeleton, solved, bind) && ok;

    const std::vector<LegendEntry> legend{
        {kLeft, "left leg: two-joint IK with a pole vector (arrow from the knee), target in reach"},
        {kRight, "right leg: two-joint IK without pole vector, target beyond reach, stretch 1"},
        {kTailColours[0], "tail: fabrikIKSolver"},
        {kTailColours[1], "tail: fabrikIKSolver2"},
        {kTailColours[2],
         "tail: fabrikIK3DSolver (the bind tail lies in the pole's plane, so it "
         "matches fabrikIKSolver)"},
        {"#000000", "tail target (cross)"},
        {kTailPole, "the tail's pole vector (arrow from the bind tail_3)"},
        {kBind, "bind pose (dashed under the solved pose); crosses: targets"},
    };
    const bool drawn = drawViews({bind, solved}, legend).write(svgPath);

    const std::string skeletonPath =
        std::filesystem::path(svgPath).replace_extension(".zelto").string();
    Archive archive(skeleton.memSize(), 0);
    archive << skeleton;
    const bool saved = !archive.failed() && archive.writeToFile(skeletonPath);
    out << (drawn ? "wrote " : "COULD NOT WRITE ") << svgPath
        << ": front and side views of the bind and solved poses\n"
        << (saved ? "wrote " : "COULD NOT WRITE ") << skeletonPath
        << ": the skeleton, for `zelto ik`\n";
    return ok && drawn && saved;
}

}  // namespace ZeltoTool
