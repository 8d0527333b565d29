#!/usr/bin/env bash
# Builds the shell and tries it against the device simulator on 127.0.0.1, or
# on the next free loopback address when another one listens there (another
# run.sh, say): the simulator runs in the background for as long as the shell
# does. Extra arguments go to the shell, e.g. scripts/run.sh -c "battery getlevel".
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

readonly FIRST_HOST=1
readonly LAST_HOST=254
readonly READY_WAIT_TENTHS=100

ensure_packages
build_tree korvex-shell korvex-devsim vboxmanage

ready_file="$(mktemp)"
sim_pid=
stop_simulator() {
    [ -z "$sim_pid" ] || kill "$sim_pid" 2>/dev/null || true
    [ -z "$sim_pid" ] || wait "$sim_pid" 2>/dev/null || true
    rm -f "$ready_file"
}
trap stop_simulator EXIT
# The simulator no longer shares the terminal's signals: a hang-up or a kill
# of this script must still stop it.
trap 'exit 129' HUP
trap 'exit 143' TERM

# Starts the simulator on the address; fails when it cannot listen there.
start_simulator() {
    : >"$ready_file"
    # A session of its own keeps the terminal's Ctrl-C, meant for the shell's
    # prompt, away from the simulator. A background job of a script is no group
    # leader, so setsid runs the simulator itself and $! is its pid.
    setsid "$BUILD_DIR/korvex-devsim" --address "$1" --log "$BUILD_DIR/korvex-devsim.log" \
        >"$ready_file" </dev/null &
    sim_pid=$!
    for ((i = 0; i < READY_WAIT_TENTHS; i++)); do
        grep -q "^listening on" "$ready_file" && return 0
        if ! kill -0 "$sim_pid" 2>/dev/null; then
            wait "$sim_pid" 2>/dev/null || true
            sim_pid=
            return 1
        fi
        sleep 0.1
    done
    echo "The device simulator did not become ready on $1" >&2
    exit 1
}

device_address=
for ((host = FIRST_HOST; host <= LAST_HOST; host++)); do
    if start_simulator "127.0.0.$host"; then
        device_address="127.0.0.$host"
        break
    fi
done
if [ -z "$device_address" ]; then
    echo "The device simulator could not start on any of 127.0.0.$FIRST_HOST to 127.0.0.$LAST_HOST" \
        "(is port 22666 in use on all of them?)" >&2
    exit 1
fi
if [ "$device_address" != "127.0.0.$FIRST_HOST" ]; then
    echo "Port 22666 is in use on 127.0.0.$FIRST_HOST: the device simulator listens on $device_address" >&2
fi

status=0
"$BUILD_DIR/korvex-shell" -r "$device_address" "$@" || status=$?
exit "$status"
