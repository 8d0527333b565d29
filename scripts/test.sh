#!/usr/bin/env bash
# Builds everything and runs the whole test suite (ctest), after a short run
# of every fuzz target (scripts/fuzz.sh), the Debian package check
# (tests/package/) and the whole suite under AddressSanitizer built with clang
# (scripts/sanitize.sh asan); fails when any fails. Ctest's summary comes last.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

# Seconds per fuzz target: a smoke run, the long runs are scripts/fuzz.sh's.
readonly FUZZ_SECONDS="${KX_FUZZ_SECONDS:-3}"

ensure_packages file parallel   # file: CPack reads the binaries' types; parallel: the fleet recipe
build_tree
fuzz_status=0
scripts/fuzz.sh "$FUZZ_SECONDS" || fuzz_status=$?
# The package check builds the .deb: too slow for a ctest test, it runs once here.
package_status=0
tests/package/check-package.sh "$BUILD_DIR" || package_status=$?
asan_status=0
scripts/sanitize.sh asan || asan_status=$?
ctest_status=0
ctest --test-dir "$BUILD_DIR" --output-on-failure -j4 || ctest_status=$?
if [ "$fuzz_status" -ne 0 ]; then
    echo "The short fuzzing run failed: see its report above." >&2
    exit "$fuzz_status"
fi
if [ "$package_status" -ne 0 ]; then
    echo "The package check failed: see its message above." >&2
    exit "$package_status"
fi
if [ "$asan_status" -ne 0 ]; then
    echo "The AddressSanitizer run failed: see its report above." >&2
    exit "$asan_status"
fi
exit "$ctest_status"
