# Runs `zelto inspect` on the map in TEXT (a compressed map, {hole: none, lods: (3, 2, 1),
# name: knee, weight: 0.5}) and checks the lines it prints.
file(MAKE_DIRECTORY ${WORK})
set(bag ${WORK}/bag.zelto)

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
