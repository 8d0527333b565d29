#!/usr/bin/env bash
# Builds the Debian package build/korvex-shell_<version>_<arch>.deb and checks
# it with lintian (installed when missing); fails on any lintian error.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

ensure_packages lintian file
build_tree package
lintian --fail-on error "$BUILD_DIR"/korvex-shell_*.deb
ls -l "$BUILD_DIR"/korvex-shell_*.deb
