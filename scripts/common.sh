# Shared by run.sh and test.sh: installs the Debian packages the build and the
# tests need (only when one is missing) and builds the tree incrementally.
# Sourced, not run; expects to be at the repository root.

PACKAGES=(build-essential cmake qtbase5-dev libqt5sql5-sqlite protobuf-compiler libprotobuf-dev python3)
BUILD_DIR="${KX_BUILD_DIR:-build}"

# Extra package names given as arguments are wanted too.
ensure_packages() {
    local missing=() package
    for package in "${PACKAGES[@]}" "$@"; do
        if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
            missing+=("$package")
        fi
    done
    [ ${#missing[@]} -eq 0 ] && return 0

    local sudo=()
    [ "$(id -u)" -eq 0 ] || sudo=(sudo)
    echo "Installing missing packages: ${missing[*]}"
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
}

# Builds the given targets, or everything without arguments.
build_tree() {
    # Configure once; later builds only recompile what changed.
    if [ ! -f "$BUILD_DIR/CMakeCache.txt" ]; then
        cmake -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo
    fi
    local targets=()
    [ $# -eq 0 ] || targets=(--target "$@")
    cmake --build "$BUILD_DIR" -j"$(nproc)" "${targets[@]}"
}
