#!/usr/bin/env bash
# Builds the Debian package and checks it unpacked into a scratch root: the
# layout, the shell started through its /usr/bin link finding its plug-in beside
# its real self, and the bash completion. Usage: check-package.sh [BUILD_DIR]
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
fail() { echo "check-package: $*" >&2; exit 1; }

cmake --build "$build" --target package -j2 >"$root/package.log" 2>&1 || { cat "$root/package.log"; fail "no package"; }
debs=("$build"/korvex-shell_*_"$(dpkg --print-architecture)".deb)
[ ${#debs[@]} -eq 1 ] || fail "expected one package, found: ${debs[*]}"
dpkg-deb -x "${debs[0]}" "$root/fs"

for path in lib/korvex-shell/korvex-shell lib/korvex-shell/plugins/libvboxmanage.so bin/korvex-devsim \
    share/man/man1/korvex-shell.1.gz share/man/man1/korvex-devsim.1.gz share/doc/korvex-shell/copyright \
    bin/korvex-route share/man/man1/korvex-route.1.gz share/bash-completion/completions/korvex-route; do
    [ -f "$root/fs/usr/$path" ] || fail "missing /usr/$path"
done
[ "$(readlink "$root/fs/usr/bin/korvex-shell")" = ../lib/korvex-shell/korvex-shell ] || fail "/usr/bin/korvex-shell is no link"
zcat "$root/fs/usr/share/man/man1/korvex-shell.1.gz" >"$root/page"
grep -qx '\.B phone sms' "$root/page" || fail "the manual page lacks the command list"

KX_HOME="$root/home" KX_VBOXMANAGE="$root/none" "$root/fs/usr/bin/korvex-shell" -c version >"$root/out" 2>&1 \
    || fail "the installed shell failed: $(cat "$root/out")"
grep -q 'Plugin "vboxmanage" loaded' "$root/home/korvex-shell.log" || fail "plug-in not loaded: $(cat "$root/home/korvex-shell.log")"
"$root/fs/usr/bin/korvex-route" --version >"$root/out" 2>&1 || fail "the installed korvex-route failed: $(cat "$root/out")"

# Word before, word completed, completions offered.
while IFS='|' read -r prev cur expected; do
    got=$(bash -c 'compopt() { :; }; source "$1"; _korvex_shell korvex-shell "$3" "$2"; echo "${COMPREPLY[*]}"' _ \
        "$root/fs/usr/share/bash-completion/completions/korvex-shell" "$prev" "$cur" 2>&1)
    [ "$got" = "$expected" ] || fail "completion of '$cur' after '$prev': '$got', expected '$expected'"
done <<TABLE
korvex-shell||-h -r -c -f
korvex-shell|-|-h -r -c -f
-c|phone |phone baseband phone call phone sms
-c|rot|rotation setangle
-c|ver|version
-c|devices f|devices factoryreset
-c|q|quit
-r|1|
-f|$root/fs/usr/b|$root/fs/usr/bin
TABLE
got=$(bash -c 'compopt() { :; }; source "$1"; _korvex_route korvex-route --m korvex-route; echo "${COMPREPLY[*]}"' _ \
    "$root/fs/usr/share/bash-completion/completions/korvex-route")
[ "$got" = --max-pause ] || fail "completion of korvex-route --m: '$got', expected '--max-pause'"
