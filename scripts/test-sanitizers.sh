#!/usr/bin/env bash
# Unit tests once more, built with AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${VOCLE_SAN_BUILD_DIR:-build-san}
cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVOCLE_SANITIZE=ON -DVOCLE_BENCH=OFF >/dev/null
# Only what the unit tests need.
targets=$(cmake --build "$BUILD_DIR" --target help | sed -n 's/^\(unit_[a-z_]*_tests\):.*/\1/p')
cmake --build "$BUILD_DIR" -j"$(nproc)" --target $targets
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
ctest --test-dir "$BUILD_DIR" -L unit --output-on-failure -j2
