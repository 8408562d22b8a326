"""Skeletons, poses and world matrices."""
import math

import numpy as np
import pytest

import zelto


def leg():
    """hip - knee - ankle - toe under a pelvis, bent a little at the knee."""
    s = zelto.Skeleton(5)
    names = ["pelvis", "hip", "knee", "ankle", "toe"]
    offsets = [(0, 95, 0), (9, -6, 0), (0, -42, 1.5), (0, -41, -2), (0, -6, 13)]
    for i in range(5):
        s[i].setName(names[i])
        s[i].setTranslation(offsets[i])
        if i:
            s[i - 1].addChild(s[i])
    half = 0.08 / 2
    s[2].setRotation((math.cos(half), math.sin(half), 0, 0))
    s.addFoot(3, 1, 4)
    s.buildJointNameMap()
    return s


def test_skeleton_structure():
    s = leg()
    assert len(s) == s.numJoints() == 5 and s.jointId("knee") == 2 and s.jointId("x") == -1
    assert s[3].parent() == s[2] and s.root() == s[0] and s[0].parent() is None
    assert s[1].numChildren() == 1 and s[1].child(0).name() == "knee" and s[1].child(1) is None
    assert s.footIK(0) == s[3] and s.footTip(0).name() == "toe" and s[4].isChildOf(1)
    with pytest.raises(IndexError):
        s[5]
    with pytest.raises(IndexError):
        s.footIK(1)
    other = zelto.Skeleton(2)
    with pytest.raises(ValueError):
        s[0].addChild(other[1])


def test_joint_maps_belong_to_the_skeleton():
    s = leg()
    s.addJointMetadata(1, "poleVector", (0.0, 0.0, 30.0))
    m = s.jointMetadata(1)
    m["weight"] = 0.5
    del s
    assert m["weight"].value == 0.5 and m["poleVector"].typeStr() == "Vector3Metadata"


def test_pose_copies_and_maps():
    s = leg()
    pose = zelto.Pose(s)
    assert pose.numJoints() == 5 and pose.inParentSpace()
    jp = pose.jointPose(1)
    assert jp.translation == (9.0, -6.0, 0.0)
    jp.translation = (1, 2, 3)
    assert pose.jointPose(1).translation == (9.0, -6.0, 0.0)  # a copy
    pose.setJointPose(1, jp)
    assert pose.jointPose(1).translation == (1.0, 2.0, 3.0)
    pose.poseMetadata()["frame"] = 12
    assert pose.copy().poseMetadata()["frame"].value == 12
    with pytest.raises(IndexError):
        pose.jointPose(5)


def test_world_matrices_equal_the_joint_products():
    s = leg()
    pose = zelto.Pose(s)
    pose.setJointPose(2, zelto.JointPose(rotation=(math.cos(0.3), math.sin(0.3), 0, 0),
                                          translation=(0, -42, 1.5)))
    poser = zelto.Poser(s)
    world = poser.getAllWorldMatrix(pose)
    assert world.shape == (5, 4, 4) and world.dtype == np.float64
    # Row vectors: world(j) = local(j) * world(parent).
    expected = []
    for j in range(5):
        local = np.array(pose.jointPose(j).matrix())
        expected.append(local if j == 0 else local @ expected[j - 1])
    assert np.allclose(world, expected, atol=1e-12)
    for j in range(5):  # the per-joint walk of the library agrees bit for bit
        assert np.array_equal(poser.getWorldMatrix(pose, j), world[j])
    bind = poser.getAllWorldBindMatrix()
    assert np.allclose(bind[3], poser.getWorldBindMatrix(3), atol=1e-12)


def test_local_space_and_set_world_matrix():
    s = leg()
    poser = zelto.Poser(s)
    pose = zelto.Pose(s)
    bind = poser.getAllWorldBindMatrix()
    pose.convertToLocalSpace(s)
    assert not pose.inParentSpace()
    for j in range(5):
        assert np.allclose(pose.jointPose(j).matrix(), np.eye(4), atol=1e-9)
    assert np.allclose(poser.getAllWorldMatrix(pose), bind, atol=1e-9)
    pose.convertToParentSpace(s)
    target = bind[3].copy()
    target[3, :3] += (1.0, 2.0, 3.0)
    poser.setWorldMatrix(pose, target, 3)
    assert np.allclose(poser.getWorldMatrix(pose, 3), target, atol=1e-9)
    assert np.allclose(poser.getWorldMatrix(pose, 2), bind[2], atol=1e-12)


def test_poser_keeps_its_skeleton():
    poser = zelto.Poser(leg())
    assert poser.getAllWorldBindMatrix().shape == (5, 4, 4) and poser.skeleton().numJoints() == 5
