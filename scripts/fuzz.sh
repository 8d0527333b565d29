#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (AddressSanitizer and
# UndefinedBehaviorSanitizer on) into build-fuzz and runs each one for a
# bounded time, starting from its committed corpus.
#   scripts/fuzz.sh [SECONDS [TARGET...]]   SECONDS per target, default 60
# New interesting inputs are kept in build-fuzz/corpus/<target>/; an input that
# breaks a target is saved in build-fuzz/crashes/<target>/ and the script
# fails. Copy such an input to tests/fuzz-corpus/<target>/ once fixed: the
# normal test suite replays that folder. KX_FUZZ_BUILD_DIR picks another
# build directory.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

readonly ALL_TARGETS=(fuzz_receive fuzz_reply fuzz_dispatch fuzz_versions fuzz_vboxoutput fuzz_gpx fuzz_kml fuzz_nmea)
readonly FUZZ_DIR="${KX_FUZZ_BUILD_DIR:-build-fuzz}"
readonly SANITIZERS="address,undefined"
# A single input taking longer than this counts as a hang.
readonly INPUT_TIMEOUT_SECONDS=10

seconds="${1:-60}"
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=("${ALL_TARGETS[@]}")

ensure_packages clang libclang-rt-14-dev

# Every library the targets link is instrumented for coverage; only the
# targets themselves link the fuzzing engine. A debug configuration keeps the
# assertions on; -O1 and line tables only keep the build short.
if [ ! -f "$FUZZ_DIR/CMakeCache.txt" ]; then
    CC=clang CXX=clang++ cmake -S . -B "$FUZZ_DIR" -DCMAKE_BUILD_TYPE=Debug -DKORVEX_FUZZ=ON \
        -DCMAKE_CXX_FLAGS_DEBUG="-O1 -gline-tables-only" \
        -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link,$SANITIZERS -fno-sanitize-recover=undefined -fno-omit-frame-pointer" \
        -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=$SANITIZERS" >/dev/null
else
    cmake "$FUZZ_DIR" >/dev/null # a tree configured before a target was added learns of it
fi
cmake --build "$FUZZ_DIR" -j"$(nproc)" --target "${targets[@]}"

export UBSAN_OPTIONS="print_stacktrace=1"
status=0
for target in "${targets[@]}"; do
    corpus="$FUZZ_DIR/corpus/$target"
    crashes="$FUZZ_DIR/crashes/$target"
    log="$FUZZ_DIR/logs/$target.log"
    mkdir -p "$corpus" "$crashes" "$(dirname "$log")"
    # New inputs go to the first folder; the committed seeds stay untouched.
    if "$FUZZ_DIR/fuzz/$target" -max_total_time="$seconds" -timeout="$INPUT_TIMEOUT_SECONDS" \
        -artifact_prefix="$crashes/" "$corpus" "tests/fuzz-corpus/$target" </dev/null >"$log" 2>&1; then
        echo "$target: $(grep -o 'Done [0-9]* runs in [0-9]* second(s)' "$log" || echo done), no failure"
    else
        status=1
        echo "$target: FAILED, input saved in $crashes/ (log: $log)"
        tail -n 40 "$log"
    fi
done
exit "$status"
