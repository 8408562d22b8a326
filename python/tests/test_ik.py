"""The IK solvers reach their targets, take C++ argument names and refuse bad input."""
import math

import numpy as np
import pytest

import zelto
from test_skeleton_pose import leg

HIP, KNEE, ANKLE, TOE = 1, 2, 3, 4


def end_position(skeleton, pose, joint):
    return zelto.Poser(skeleton).getWorldMatrix(pose, joint)[3, :3]


def two_joints(solve, **kwargs):
    return lambda pose, s, target: solve(pose=pose, skeleton=s, target=target, rootId=HIP,
                                         midId=KNEE, endId=ANKLE, **kwargs), ANKLE, 1e-6


POLE = (0.0, 0.0, 1.0)
SOLVES = {
    "two joints": two_joints(zelto.solveTwoJointsIK, stretch=0.0, soft=False, softDistance=0.0,
                             poleVector=None),
    "two joints, pole": two_joints(zelto.solveTwoJointsIK, poleVector=(20.0, 0.0, 20.0)),
    "two joints, parent space": two_joints(zelto.solveTwoJointsIKInParentSpace,
                                           poleVector=(0.0, 0.0, 30.0)),
    "no pole": two_joints(zelto.solveTwoJointsIKNoPoleVector),
    "no pole, parent space": two_joints(zelto.solveTwoJointsIKNoPoleVectorInParentSpace),
    "fabrik list": (lambda pose, s, target: zelto.fabrikIKSolver2InParentSpace(
        pose, s, target, joints=[HIP, KNEE, ANKLE, TOE], tolerance=1e-6, maxIterations=100,
        poleVector=POLE), TOE, 1e-3),
    "fabrik 3d": (lambda pose, s, target: zelto.fabrikIK3DSolverInParentSpace(
        pose, s, target, startId=HIP, midJoints=[KNEE, ANKLE], stretchJoints=[], endId=TOE,
        tolerance=1e-6, maxIterations=100, poleVector=POLE), TOE, 1e-3),
    "sphere": (lambda pose, s, target: zelto.sphereIKSolver(
        pose, s, target, rootId=HIP, midJoints=[KNEE, ANKLE], endId=TOE, poleVector=POLE),
        TOE, 1e-3),
}


@pytest.mark.parametrize("name", sorted(SOLVES))
def test_solvers_reach_their_targets(name):
    solve, end, tolerance = SOLVES[name]
    s = leg()
    pose = zelto.Pose(s)
    if "parent space" not in name and name.startswith(("two", "no")):
        pose.convertToLocalSpace(s)
    target = (9.0, 20.0, 15.0)
    solve(pose, s, target)
    assert np.allclose(end_position(s, pose, end), target, atol=tolerance)


def test_refused_input_raises_and_keeps_the_pose():
    s = leg()
    pose = zelto.Pose(s)
    before = pose.serialise()
    for kwargs, text in (({"target": (math.nan, 0, 0)}, "not finite"),
                         ({"target": (0, 0, 0), "endId": 9}, "beyond the skeleton"),
                         ({"target": (0, 0, 0), "midId": TOE}, "do not form a chain")):
        args = dict(pose=pose, skeleton=s, rootId=HIP, midId=KNEE, endId=ANKLE)
        args.update(kwargs)
        with pytest.raises(zelto.ZeltoError, match=text):
            zelto.solveTwoJointsIK(**args)
    with pytest.raises(zelto.ZeltoError, match="pole"):
        zelto.sphereIKSolver(pose, s, (0, 0, 0), HIP, [KNEE, ANKLE], TOE, poleVector=None)
    assert pose.serialise() == before


def test_skeleton_and_pose_bytes_round_trip():
    s = leg()
    # What the reader rebuilds or registers: derived data, and joint 0 as the one pelvis.
    s.addPelvis(0)
    s.buildIkData()
    s.buildDetachedJointsList()
    copy = zelto.Skeleton.deserialise(s.serialise())
    assert copy.hash() == s.hash() and str(copy) == str(s)
    pose = zelto.Pose(s)
    zelto.solveTwoJointsIK(pose, s, (5.0, 15.0, 10.0), HIP, KNEE, ANKLE)
    again = zelto.Pose.deserialise(pose.serialise())
    assert np.array_equal(zelto.Poser(s).getAllWorldMatrix(again),
                          zelto.Poser(s).getAllWorldMatrix(pose))
    data = s.serialise()
    for n in range(0, len(data), 11):
        with pytest.raises(zelto.ZeltoError):
            zelto.Skeleton.deserialise(data[:n])
