#!/usr/bin/env bash
# Builds everything and runs the whole test suite; the exit status is ctest's.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

ensure_packages
build_tree
exec ctest --test-dir "$BUILD_DIR" --output-on-failure -j4
