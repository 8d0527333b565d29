#!/usr/bin/env bash
# Runs one command file against several devices at once, with GNU parallel:
#   scripts/fleet.sh COMMANDS ADDRESS...      remote devices, one shell -r ADDRESS each
#   scripts/fleet.sh --local COMMANDS ID...   local devices, each shell selecting its ID first
# Each device's output comes out whole once its shell ended, every line labelled
# with the address (or id) and a tab. The exit status is the number of devices
# whose shell failed (0: every one passed; parallel caps it at 101).
# KX_SHELL names the shell (default: korvex-shell on the PATH). Options of
# parallel's own come through its PARALLEL variable, e.g. to spread the
# devices over hosts that have the shell installed:
#   PARALLEL='--sshlogin 4/ci@host1,4/ci@host2 --basefile commands.txt' \
#       scripts/fleet.sh commands.txt 10.0.0.2 10.0.0.3 ...
set -uo pipefail

usage() {
    echo "usage: scripts/fleet.sh [--local] COMMANDS ADDRESS_OR_ID..." >&2
    exit 2
}

local_mode=false
if [ "${1:-}" = "--local" ]; then
    local_mode=true
    shift
fi
[ $# -ge 2 ] || usage
commands="$1"
shift
[ -r "$commands" ] || { echo "scripts/fleet.sh: cannot read $commands" >&2; exit 2; }
if ! command -v parallel >/dev/null; then
    echo "scripts/fleet.sh: GNU parallel is needed (apt-get install parallel)" >&2
    exit 2
fi

shell="$(printf %q "${KX_SHELL:-korvex-shell}")"
file="$(printf %q "$commands")"
if $local_mode; then
    # The selection is the file's first line: the shell then runs the rest on that device.
    job="{ echo 'devices select {}'; cat $file; } | $shell -f /dev/stdin"
else
    job="$shell -r {} -f $file"
fi
exec parallel --will-cite --tag --halt never "$job" ::: "$@"
