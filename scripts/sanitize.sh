#!/usr/bin/env bash
# Builds the whole tree and its tests with sanitizers and runs the test suite.
#   scripts/sanitize.sh asan   AddressSanitizer + UndefinedBehaviorSanitizer, with clang, in build-asan
#   scripts/sanitize.sh tsan   ThreadSanitizer, with gcc, in build-tsan
# The normal build is gcc's: building the asan tree with clang has both
# compilers check the whole project with warnings as errors.
# Any report fails the test that triggered it (the shell and the simulator
# run as child processes of the tests, instrumented too). Extra arguments go
# to ctest, e.g. scripts/sanitize.sh tsan -R tst_client.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

mode="${1:-}"
shift || true
case "$mode" in
asan)
    flags="-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer"
    build_dir="${KX_SANITIZE_BUILD_DIR:-build-asan}"
    compiler=(clang clang++)
    packages=(clang libclang-rt-14-dev)
    export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:exitcode=86:strict_string_checks=1"
    export LSAN_OPTIONS="suppressions=$PWD/tests/sanitizers/lsan.supp:print_suppressions=0"
    export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
    ;;
tsan)
    flags="-fsanitize=thread -fno-omit-frame-pointer"
    build_dir="${KX_SANITIZE_BUILD_DIR:-build-tsan}"
    compiler=(gcc g++)
    packages=()
    # Qt is not instrumented: its own accesses are left unchecked (see tsan.supp).
    export TSAN_OPTIONS="suppressions=$PWD/tests/sanitizers/tsan.supp:ignore_noninstrumented_modules=1:exitcode=86:halt_on_error=1:second_deadlock_stack=1"
    ;;
*)
    echo "usage: scripts/sanitize.sh asan|tsan [ctest arguments]" >&2
    exit 2
    ;;
esac

ensure_packages "${packages[@]}"
# A tree configured for another compiler is configured afresh.
if [ -f "$build_dir/CMakeCache.txt" ] && ! grep -q "^CMAKE_CXX_COMPILER:.*${compiler[1]}\$" "$build_dir/CMakeCache.txt"; then
    rm -rf "$build_dir"
fi
if [ ! -f "$build_dir/CMakeCache.txt" ]; then
    CC="${compiler[0]}" CXX="${compiler[1]}" cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_CXX_FLAGS="$flags" \
        -DCMAKE_EXE_LINKER_FLAGS="$flags" -DCMAKE_SHARED_LINKER_FLAGS="$flags" \
        -DCMAKE_MODULE_LINKER_FLAGS="$flags" >/dev/null
fi
cmake --build "$build_dir" -j"$(nproc)"
exec ctest --test-dir "$build_dir" --output-on-failure -j2 "$@"
