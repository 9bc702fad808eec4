#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a fixed time (seconds, default 60).
set -euo pipefail
cd "$(dirname "$0")/.."
SECONDS_EACH=${1:-60}
BUILD_DIR=${VOCLE_FUZZ_BUILD_DIR:-build-fuzz}
CC=clang CXX=clang++ cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVOCLE_FUZZ=ON \
    -DVOCLE_BENCH=OFF -DBUILD_TESTING=ON >/dev/null
targets=$(cmake --build "$BUILD_DIR" --target help | sed -n 's/^\(fuzz_[a-z_]*\):.*/\1/p')
cmake --build "$BUILD_DIR" -j"$(nproc)" --target $targets
for t in $targets; do
    exe=$(find "$BUILD_DIR" -type f -name "$t" -perm -u+x | head -n1)
    corpus="$BUILD_DIR/corpus/$t"
    mkdir -p "$corpus"
    seeds="tests/fuzz/seeds/${t#fuzz_}"
    [[ -d $seeds ]] && cp -n "$seeds"/* "$corpus"/ 2>/dev/null || true
    echo "--- $t for ${SECONDS_EACH}s"
    "$exe" -seed=1 -max_total_time="$SECONDS_EACH" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 "$corpus" 2>&1 | tail -n 12
done
