#!/usr/bin/env bash
# Builds what the benchmarks need (Release, build-bench/ unless KX_BENCH_BUILD_DIR
# says otherwise) and runs them: the shell and its floors in the same run, one
# table of figures on stdout. Exit status 0 when every target is met. Arguments
# choose cases (script, oneshot, local); all by default.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

BENCH_BUILD_DIR="${KX_BENCH_BUILD_DIR:-build-bench}"

ensure_packages
mkdir -p "$BENCH_BUILD_DIR"
build_log="$BENCH_BUILD_DIR/bench-build.log"
# Quiet unless the build fails.
if ! { [ -f "$BENCH_BUILD_DIR/CMakeCache.txt" ] || cmake -S . -B "$BENCH_BUILD_DIR" -DCMAKE_BUILD_TYPE=Release; } >"$build_log" 2>&1 \
    || ! cmake --build "$BENCH_BUILD_DIR" -j"$(nproc)" \
        --target korvex-shell vboxmanage korvex-rawclient korvex-minagent korvex-qtclient >>"$build_log" 2>&1; then
    cat "$build_log" >&2
    exit 1
fi

exec /usr/bin/python3 bench/bench.py "$BENCH_BUILD_DIR" "$@"
