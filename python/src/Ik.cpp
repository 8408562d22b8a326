// The IK solvers, with the keyword arguments of their C++ parameters. The GIL is released while
// a solver runs. A solver refuses bad input with a warning and leaves the pose unchanged; here
// that warning is raised as zelto.ZeltoError.
#include <pybind11/stl.h>

#include "core/ik/FabrikIK.h"
#include "core/ik/SphereIK.h"
#include "core/ik/TwoJointsIK.h"
#include "core/pose/Pose.h"
#include "python/src/Convert.h"
#include "python/src/Skeletons.h"

namespace zelto_py {

using ZeltoCore::Pose;
using ZeltoCore::Skeleton;
using V3d = Imath::V3d;
using Ids = std::vector<unsigned short>;

namespace {

// A pole vector argument: None or three numbers.
struct Pole {
    V3d value;
    bool given;
    explicit Pole(py::handle h) : given(!h.is_none()) {
        if (given) value = Convert<V3d>::from(h);
    }
    V3d* get() { return given ? &value : nullptr; }
};

template <class Call>
void solve(const Call& call) {
    LogCapture log;
    {
        py::gil_scoped_release release;
        call();
    }
    if (!log.messages().empty()) raiseError(log.describe("the solver refused its input"));
}

void twoJoints(Pose& pose, const Skeleton& skeleton, py::handle target, unsigned short rootId,
               unsigned short midId, unsigned short endId, double stretch, bool soft,
               double softDistance, py::handle poleVector, bool parentSpace) {
    const V3d t = Convert<V3d>::from(target);
    Pole pole(poleVector);
    solve([&] {
        if (parentSpace)
            ZeltoCore::solveTwoJointsIKInParentSpace(pose, skeleton, t, rootId, midId, endId,
                                                     stretch, soft, softDistance, pole.get());
        else
            ZeltoCore::solveTwoJointsIK(pose, skeleton, t, rootId, midId, endId, stretch, soft,
                                        softDistance, pole.get());
    });
}

void twoJointsNoPole(Pose& pose, const Skeleton& skeleton, py::handle target, unsigned short rootId,
                     unsigned short midId, unsigned short endId, double stretch, bool soft,
                     double softDistance, bool parentSpace) {
    const V3d t = Convert<V3d>::from(target);
    solve([&] {
        if (parentSpace)
            ZeltoCore::solveTwoJointsIKNoPoleVectorInParentSpace(
                pose, skeleton, t, rootId, midId, endId, stretch, soft, softDistance);
        else
            ZeltoCore::solveTwoJointsIKNoPoleVector(pose, skeleton, t, rootId, midId, endId,
                                                    stretch, soft, softDistance);
    });
}

void fabrik2(Pose& pose, const Skeleton& skeleton, py::handle target, const Ids& joints,
             double reachThreshold, double tolerance, unsigned maxIterations, unsigned passes,
             py::handle poleVector, bool parentSpace) {
    const V3d t = Convert<V3d>::from(target);
    Pole pole(poleVector);
    solve([&] {
        (parentSpace ? ZeltoCore::fabrikIKSolver2InParentSpace : ZeltoCore::fabrikIKSolver2)(
            pose, skeleton, t, joints, reachThreshold, tolerance, maxIterations, passes,
            pole.get());
    });
}

void fabrik3D(Pose& pose, const Skeleton& skeleton, py::handle target, unsigned short startId,
              const Ids& midJoints, const Ids& stretchJoints, unsigned short endId,
              double tolerance, unsigned maxIterations, unsigned steps, py::handle poleVector,
              bool parentSpace) {
    V3d t = Convert<V3d>::from(target);
    Pole pole(poleVector);
    solve([&] {
        (parentSpace ? ZeltoCore::fabrikIK3DSolverInParentSpace : ZeltoCore::fabrikIK3DSolver)(
            pose, skeleton, t, startId, midJoints, stretchJoints, endId, tolerance, maxIterations,
            steps, pole.get());
    });
}

}  // namespace

void bindIk(py::module_& m) {
    using py::arg;
    const auto none = py::none();
    for (bool parentSpace : {false, true}) {
        const char* suffix = parentSpace ? "InParentSpace" : "";
        const std::string space = parentSpace ? " The pose is read as parent space."
                                              : " A local-space pose is solved through its "
                                                "parent-space twin.";
        m.def(("solveTwoJointsIK" + std::string(suffix)).c_str(),
              [parentSpace](Pose& pose, const Skeleton& skeleton, py::handle target,
                            unsigned short rootId, unsigned short midId, unsigned short endId,
                            double stretch, bool soft, double softDistance, py::handle pole) {
                  twoJoints(pose, skeleton, target, rootId, midId, endId, stretch, soft,
                            softDistance, pole, parentSpace);
              },
              arg("pose"), arg("skeleton"), arg("target"), arg("rootId"), arg("midId"),
              arg("endId"), arg("stretch") = 0.0, arg("soft") = false, arg("softDistance") = 0.0,
              arg("poleVector") = none,
              ("Bends root -> mid -> end so that the end reaches the world target; the bend "
               "faces poleVector (None: the chain's current bend). stretch (0...1) makes up "
               "that share of missing reach; soft eases towards full extension over "
               "softDistance." +
               space)
                  .c_str());
        m.def(("solveTwoJointsIKNoPoleVector" + std::string(suffix)).c_str(),
              [parentSpace](Pose& pose, const Skeleton& skeleton, py::handle target,
                            unsigned short rootId, unsigned short midId, unsigned short endId,
                            double stretch, bool soft, double softDistance) {
                  twoJointsNoPole(pose, skeleton, target, rootId, midId, endId, stretch, soft,
                                  softDistance, parentSpace);
              },
              arg("pose"), arg("skeleton"), arg("target"), arg("rootId"), arg("midId"),
              arg("endId"), arg("stretch") = 0.0, arg("soft") = false, arg("softDistance") = 0.0,
              ("Two-joint IK with the pole taken from the bind pose, turned with the root." + space)
                  .c_str());
        m.def(("fabrikIKSolver2" + std::string(suffix)).c_str(),
              [parentSpace](Pose& pose, const Skeleton& skeleton, py::handle target,
                            const Ids& joints, double reachThreshold, double tolerance,
                            unsigned maxIterations, unsigned passes, py::handle pole) {
                  fabrik2(pose, skeleton, target, joints, reachThreshold, tolerance, maxIterations,
                          passes, pole, parentSpace);
              },
              arg("pose"), arg("skeleton"), arg("target"), arg("joints"),
              arg("reachThreshold") = 0.0, arg("tolerance") = 1e-4, arg("maxIterations") = 20,
              arg("passes") = 1, arg("poleVector") = none,
              ("FABRIK over a joint list (two or more; the pole may be None only for two), "
               "solved in the plane of the root-to-target line and the pole; joints marked "
               "skipIk are carried along." +
               space)
                  .c_str());
        m.def(("fabrikIK3DSolver" + std::string(suffix)).c_str(),
              [parentSpace](Pose& pose, const Skeleton& skeleton, py::handle target,
                            unsigned short startId, const Ids& midJoints, const Ids& stretchJoints,
                            unsigned short endId, double tolerance, unsigned maxIterations,
                            unsigned steps, py::handle pole) {
                  fabrik3D(pose, skeleton, target, startId, midJoints, stretchJoints, endId,
                           tolerance, maxIterations, steps, pole, parentSpace);
              },
              arg("pose"), arg("skeleton"), arg("target"), arg("startId"), arg("midJoints"),
              arg("stretchJoints"), arg("endId"), arg("tolerance") = 1e-4,
              arg("maxIterations") = 20, arg("steps") = 1, arg("poleVector") = none,
              ("FABRIK in world space along the chain's current bend, stretching "
               "stretchJoints when the target is out of reach." +
               space)
                  .c_str());
    }
    m.def(
        "fabrikIKSolver",
        [](Pose& pose, const Skeleton& skeleton, py::handle target, unsigned short startId,
           const Ids& midJoints, unsigned short endId, double tolerance, unsigned maxIterations,
           unsigned steps, py::handle poleVector) {
            const V3d t = Convert<V3d>::from(target);
            Pole pole(poleVector);
            solve([&] {
                ZeltoCore::fabrikIKSolver(pose, skeleton, t, startId, midJoints, endId, tolerance,
                                          maxIterations, steps, pole.get());
            });
        },
        arg("pose"), arg("skeleton"), arg("target"), arg("startId"), arg("midJoints"), arg("endId"),
        arg("tolerance") = 1e-4, arg("maxIterations") = 20, arg("steps") = 1,
        arg("poleVector") = none,
        "FABRIK of start, mid and end joints in the plane of the first bone and the pole "
        "(required), the goal approached over `steps`; reads the pose as local space.");
    m.def(
        "sphereIKSolver",
        [](Pose& pose, const Skeleton& skeleton, py::handle target, unsigned short rootId,
           const Ids& midJoints, unsigned short endId, py::handle poleVector) {
            V3d t = Convert<V3d>::from(target);
            Pole pole(poleVector);
            solve([&] {
                ZeltoCore::sphereIKSolver(pose, skeleton, t, rootId, midJoints, endId, pole.get());
            });
        },
        arg("pose"), arg("skeleton"), arg("target"), arg("rootId"), arg("midJoints"), arg("endId"),
        arg("poleVector") = none,
        "Four-joint (digitigrade) leg: root, two mid joints, end; the pole is required.");
}

}  // namespace zelto_py
