#!/usr/bin/env bash
# One entry point for a fresh Debian 12 machine (run as root):
#   scripts/run.sh demo   install what is missing, build, run `zelto demo`
#   scripts/run.sh test   install what is missing, check include layers and format, then build
#                         and test: an optimised warnings-as-errors build, an AddressSanitizer +
#                         UBSan build, a ThreadSanitizer build of the threaded tests, and a short
#                         fuzz run
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(g++ cmake ninja-build pkg-config ccache libimath-dev libzstd-dev liblz4-dev libtbb-dev
          libgtest-dev libbenchmark-dev libcli11-dev clang-format clang libclang-rt-14-dev
          python3 python3-dev pybind11-dev python3-numpy python3-pytest)

install_missing() {
    local missing=()
    for p in "${packages[@]}"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" ||
            missing+=("$p")
    done
    if [ ${#missing[@]} -gt 0 ]; then
        echo "== installing: ${missing[*]}"
        export DEBIAN_FRONTEND=noninteractive
        apt-get update -qq
        apt-get install -y -qq --no-install-recommends "${missing[@]}"
    fi
}

jobs=$(nproc)
# The test programs that run threads: parallel containers, the logger, parallel_for, first
# initialisation and concurrent solves.
tsan_tests=(test_utils test_metadata test_init test_ik)

configure() {  # dir, extra cmake args...
    local dir=$1
    shift
    cmake -S . -B "$dir" -G Ninja -DZELTO_WERROR=ON "$@" >/dev/null
}

run_tests() {  # dir
    ctest --test-dir "$1" -j "$jobs" --output-on-failure --timeout 600
}

case "${1:-}" in
demo)
    install_missing
    configure build/release -DCMAKE_BUILD_TYPE=Release
    cmake --build build/release -j "$jobs" --target zelto
    build/release/tools/zelto demo
    ;;
test)
    install_missing
    echo "== layer check"
    python3 scripts/check_layers.py
    echo "== format check"
    git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror
    echo "== optimised build, warnings as errors"
    configure build/release -DCMAKE_BUILD_TYPE=Release
    cmake --build build/release -j "$jobs"
    run_tests build/release
    echo "== AddressSanitizer + UndefinedBehaviorSanitizer build"
    configure build/asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZELTO_SANITIZE=ON \
        -DZELTO_BUILD_BENCH=OFF -DZELTO_BUILD_TOOLS=OFF
    cmake --build build/asan -j "$jobs"
    ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 run_tests build/asan
    echo "== ThreadSanitizer build (parallel_for on std::thread, which TSan sees through)"
    configure build/tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZELTO_TSAN=ON \
        -DZELTO_PARALLEL_STD_THREAD=ON -DZELTO_BUILD_BENCH=OFF -DZELTO_BUILD_TOOLS=OFF
    cmake --build build/tsan -j "$jobs" --target "${tsan_tests[@]}"
    for t in "${tsan_tests[@]}"; do
        TSAN_OPTIONS=halt_on_error=1 "$(find build/tsan/tests -name "$t" -type f)" --gtest_brief=1
    done
    echo "== fuzzing, a short run of every program"
    FUZZ_SEED=1 scripts/fuzz.sh 10
    ;;
*)
    echo "usage: $0 demo|test" >&2
    exit 2
    ;;
esac
