"""The IK solvers reach their targets, take C++ argument names and refuse bad input."""
import math

import numpy as np
import pytest

import zelto
from test_skeleton_pose import leg

HIP, KNEE, ANKLE, TOE = 1, 2, 3, 4


def end_position(skeleton, pose, joint):
    return zelto.Poser(skeleton).getWorldMatrix(pose, joint)[3, :3]


@pytest.mark.parametrize("parent_space", [False, True])
@pytest.mark.parametrize("pole", [None, (0.0, 0.0, 30.0), (20.0, 0.0, 20.0)])
def test_two_joint_solve_reaches_its_target(parent_space, pole):
    s = leg()
    pose = zelto.Pose(s)
    if not parent_space:
        pose.convertToLocalSpace(s)
    target = (14.0, 20.0, 25.0)
    solve = zelto.solveTwoJointsIKInParentSpace if parent_space else zelto.solveTwoJointsIK
    solve(pose=pose, skeleton=s, target=target, rootId=HIP, midId=KNEE, endId=ANKLE,
          stretch=0.0, soft=False, softDistance=0.0, poleVector=pole)
    assert np.allclose(end_position(s, pose, ANKLE), target, atol=1e-6)


def test_no_pole_vector_forms_reach():
    s = leg()
    for solve, local in ((zelto.solveTwoJointsIKNoPoleVector, True),
                         (zelto.solveTwoJointsIKNoPoleVectorInParentSpace, False)):
        pose = zelto.Pose(s)
        if local:
            pose.convertToLocalSpace(s)
        solve(pose, s, (5.0, 15.0, 10.0), HIP, KNEE, ANKLE)
        assert np.allclose(end_position(s, pose, ANKLE), (5.0, 15.0, 10.0), atol=1e-6)


def test_fabrik_solvers_reach():
    s = leg()
    target = (12.0, 30.0, 20.0)
    pose = zelto.Pose(s)
    zelto.fabrikIKSolver2InParentSpace(pose, s, target, joints=[HIP, KNEE, ANKLE, TOE],
                                       tolerance=1e-6, maxIterations=100,
                                       poleVector=(0.0, 0.0, 1.0))
    assert np.allclose(end_position(s, pose, TOE), target, atol=1e-3)
    pose = zelto.Pose(s)
    zelto.fabrikIK3DSolverInParentSpace(pose, s, target, startId=HIP, midJoints=[KNEE, ANKLE],
                                        stretchJoints=[], endId=TOE, tolerance=1e-6,
                                        maxIterations=100, poleVector=(0.0, 0.0, 1.0))
    assert np.allclose(end_position(s, pose, TOE), target, atol=1e-3)


def test_sphere_solver_reaches():
    s = leg()
    pose = zelto.Pose(s)
    target = (9.0, 20.0, 15.0)
    zelto.sphereIKSolver(pose, s, target, rootId=HIP, midJoints=[KNEE, ANKLE], endId=TOE,
                         poleVector=(0.0, 0.0, 1.0))
    assert np.allclose(end_position(s, pose, TOE), target, atol=1e-3)


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
