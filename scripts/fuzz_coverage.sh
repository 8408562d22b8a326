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

# The reading code: archive primitives, containers and values, the file and keyed readers,
# skeleton and pose streams, base64 and decompression. Those files also hold writers and editing
# functions that no fuzz program calls, so a file's figure is a floor for its reading code.
llvm-cov export -summary-only -instr-profile="$dir/fuzz.profdata" "$dir/core/libZeltoCore.so" \
    >"$dir/coverage-summary.json"
python3 - "$dir/coverage-summary.json" <<'PY' | tee "$dir/readers-coverage.txt"
import json, os, re, sys
readers = re.compile(r"core/archive/|core/metadata/|core/skeleton/Skeleton(Archive|Metadata)\.cpp|"
                     r"core/pose/(Pose|PoseMetadata)\.cpp|utils/(Base64|Compression|SampledCurve|Image)\.cpp")
root = os.getcwd() + "/"
kinds = ("lines", "regions", "branches")
total = {kind: [0, 0] for kind in kinds}
files = {}  # a header compiled from two directories appears twice: its counts add up
for f in json.load(open(sys.argv[1]))["data"][0]["files"]:
    name = os.path.normpath(f["filename"]).replace(root, "")
    if readers.match(name):
        counts = files.setdefault(name, {kind: [0, 0] for kind in kinds})
        for kind in kinds:
            counts[kind][0] += f["summary"][kind]["covered"]
            counts[kind][1] += f["summary"][kind]["count"]
print(f"{'file':56} {'lines':>8} {'regions':>8} {'branches':>8}")
for name, counts in sorted(files.items()):
    row = []
    for kind in kinds:
        c, n = counts[kind]
        total[kind][0] += c
        total[kind][1] += n
        row.append(f"{100.0 * c / n:7.1f}%" if n else "       -")
    print(f"{name:56} {' '.join(row)}")
print(f"{'all reader files':56} " + " ".join(
    f"{100.0 * c / n:7.1f}%" if n else "       -" for c, n in total.values()))
PY
