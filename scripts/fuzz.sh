#!/usr/bin/env bash
# Builds the libFuzzer programs with clang (ASan + UBSan) and runs each for a while:
#   scripts/fuzz.sh [seconds per program, default 20] [program ...]
# FUZZ_RUNS=N also stops each program after N executions (for long runs: a large time limit and
# the number of executions wanted); FUZZ_TIMEOUT sets the seconds one input may take (default 10;
# raise it for niced runs on a busy machine, where a starved process can overrun it); FUZZ_SEED
# fixes libFuzzer's random seed, so that a short run on a fresh corpus tries the same inputs each
# time (the test command sets it: a find then shows on every run of that commit, not by chance).
# Seeds come from the library's own writers and the golden files of tests/data; the corpus grows
# under build/fuzz/corpus. An input that once crashed a program goes to fuzz/regressions/<program>/,
# which the test suite replays on every build (CTest: fuzz.<program>.regressions).
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-20}
shift || true
dir=build/fuzz
CXX=clang++ cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZELTO_WERROR=ON \
    -DZELTO_SANITIZE=ON -DZELTO_FUZZ=ON -DZELTO_BUILD_TESTS=OFF -DZELTO_BUILD_BENCH=OFF \
    -DZELTO_BUILD_TOOLS=OFF >/dev/null
cmake --build "$dir" -j "$(nproc)"

programs=("$@")
if [ ${#programs[@]} -eq 0 ]; then
    programs=($(cd "$dir/fuzz" && ls fuzz_* | sort))
fi

seeds=$dir/seeds
rm -rf "$seeds"
"$dir/fuzz/zelto_make_seeds" "$seeds"
mkdir -p "$seeds/fuzz_files"
cp tests/data/* "$seeds/fuzz_files/" 2>/dev/null || true

export ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1
export UBSAN_OPTIONS=print_stacktrace=1
mkdir -p "$dir/artifacts"
failed=0
for p in "${programs[@]}"; do
    corpus=$dir/corpus/$p
    mkdir -p "$corpus" "$seeds/$p"
    echo "== $p: ${seconds}s"
    set +e
    "$dir/fuzz/$p" "$corpus" "$seeds/$p" -dict=fuzz/zelto.dict -max_total_time="$seconds" \
        ${FUZZ_RUNS:+-runs="$FUZZ_RUNS"} ${FUZZ_SEED:+-seed="$FUZZ_SEED"} \
        -rss_limit_mb=2048 -malloc_limit_mb=1024 -timeout="${FUZZ_TIMEOUT:-10}" -print_final_stats=1 \
        -artifact_prefix="$dir/artifacts/$p-" >"$dir/$p.log" 2>&1
    rc=$?
    set -e
    grep -E "^(stat::number_of_executed_units|check failed)|^SUMMARY|ERROR" "$dir/$p.log" || true
    if [ $rc -ne 0 ]; then
        echo "== $p FAILED (log: $dir/$p.log; input under $dir/artifacts)"
        failed=1
    fi
done
exit $failed
