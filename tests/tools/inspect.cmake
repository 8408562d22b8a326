# Runs `zelto inspect` on the map in TEXT (a compressed map, {hole: none, lods: (3, 2, 1),
# name: knee, weight: 0.5}), on the map in RIG (compressed, {pose: the bind pose of rig, rig: a
# four-joint skeleton with one foot}) and on DATA/pose_map_v3.zelto, and checks the lines it
# prints.
file(MAKE_DIRECTORY ${WORK})
set(bag ${WORK}/bag.zelto)
set(rig ${WORK}/rig.zelto)

include(${CMAKE_CURRENT_LIST_DIR}/run.cmake)

run(0 base64 decode ${TEXT} ${bag})

run(0 inspect ${bag} --flags 2)
expect("flags:   0 (none)")
expect("data:    189 bytes, not compressed")
expect("form:    compressed")
expect("  hole: (no value)")
expect("  lods: IntArrayMetadata = (3, 2, 1)")
expect("  name: StringMetadata = knee")
expect("  weight: DoubleMetadata = 0.5")

run(0 inspect ${bag} --flags 2 --keys weight,name,absent)
expect("  weight: DoubleMetadata = 0.5")
expect("  name: StringMetadata = knee")
expect_not("lods")

# Without the flag the blocks are taken for plain values, which do not read.
run(0 inspect ${bag})
expect("--flags 2")

run(1 inspect ${WORK}/missing.zelto)

run(0 base64 decode ${RIG} ${rig})
run(0 inspect ${rig} --flags 2)
expect("  pose: PoseMetadata\n    4 joints, parent space, active joints: all\n")
expect("  rig: SkeletonMetadata\n    4 joints; feet: ankle (root hip, tip ankle); pelvises: pelvis\n")
expect("    0 pelvis [pelvis]\n      1 hip [foot 0 root]\n        2 knee\n")
expect("          3 ankle [foot 0 ik, foot 0 tip]\n")

run(0 inspect ${rig} --flags 2 --keys rig)
expect("3 ankle [foot 0 ik, foot 0 tip]")
expect_not("PoseMetadata")

run(0 inspect ${DATA}/pose_map_v3.zelto)
expect("version: 3")
expect("  pose: PoseMetadata\n    3 joints, local space, active joints: all\n")
expect("  weight: DoubleMetadata = 0.5")
