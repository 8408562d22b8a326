#!/usr/bin/env bash
# Line and region coverage of the readers reached by the fuzz corpora: builds the replay drivers
# with clang's source-based coverage, replays build/fuzz/corpus/<program> (grown by
# scripts/fuzz.sh) and the seeds through each program, and reports the reader files.
#   scripts/fuzz_coverage.sh [program ...]
set -euo pipefail
cd "$(dirname "$0")/.."

dir=build/cov
flags="-fprofile-instr-generate -fcoverage-mapping"
CXX=clang++ cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_EXE_LINKER_FLAGS="$flags" -DCMAKE_SHARED_LINKER_FLAGS="$flags" \
    -DZELTO_BUILD_BENCH=OFF -DZELTO_BUILD_TOOLS=OFF >/dev/null

programs=("$@")
if [ ${#programs[@]} -eq 0 ]; then
    programs=(fuzz_archive fuzz_values fuzz_containers fuzz_keyed fuzz_files fuzz_pose
              fuzz_skeleton fuzz_ik)
fi
cmake --build "$dir" -j "$(nproc)" --target "${programs[@]/%/_replay}"

rm -rf "$dir/profiles"
mkdir -p "$dir/profiles"
for p in "${programs[@]}"; do
    echo "== $p: $(ls build/fuzz/corpus/$p 2>/dev/null | wc -l) corpus inputs"
    # The file readers write temporary files; each program runs in a scratch directory.
    scratch=$(mktemp -d)
    (cd "$scratch" && LLVM_PROFILE_FILE="$OLDPWD/$dir/profiles/$p.profraw" \
        "$OLDPWD/$dir/fuzz/${p}_replay" "$OLDPWD/build/fuzz/corpus/$p" \
        "$OLDPWD/build/fuzz/seeds/$p" "$OLDPWD/fuzz/regressions/$p")
    rm -rf "$scratch"
done
llvm-profdata merge -sparse -o "$dir/fuzz.profdata" "$dir"/profiles/*.profraw

# The reading code: archive primitives (inline in the headers), containers and values, the file
# and keyed readers, skeleton and pose streams, base64 and decompression.
readers=(core/archive core/metadata core/skeleton/SkeletonArchive.cpp
         core/skeleton/SkeletonMetadata.cpp core/pose/Pose.cpp core/pose/PoseMetadata.cpp
         utils/Base64.cpp utils/Compression.cpp utils/SampledCurve.cpp utils/Image.cpp)
# Inline code is compiled into the programs as well as the library: each is an object to report.
objects=()
for p in "${programs[@]}"; do objects+=(-object "$dir/fuzz/${p}_replay"); done
llvm-cov report "$dir/core/libZeltoCore.so" "${objects[@]}" -instr-profile="$dir/fuzz.profdata" \
    "${readers[@]}" | tee "$dir/readers-coverage.txt"
