#!/usr/bin/env bash
# Builds the shell and tries it against the device simulator on 127.0.0.1:
# the simulator runs in the background for as long as the shell does.
# Extra arguments go to the shell, e.g. scripts/run.sh -c "battery getlevel".
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/common.sh

readonly DEVICE_ADDRESS=127.0.0.1
readonly READY_WAIT_TENTHS=100

ensure_packages
build_tree korvex-shell korvex-devsim vboxmanage

ready_file="$(mktemp)"
# A session of its own keeps the terminal's Ctrl-C, meant for the shell's
# prompt, away from the simulator. A background job of a script is no group
# leader, so setsid runs the simulator itself and $! is its pid.
setsid "$BUILD_DIR/korvex-devsim" --address "$DEVICE_ADDRESS" --log "$BUILD_DIR/korvex-devsim.log" \
    >"$ready_file" </dev/null &
sim_pid=$!
stop_simulator() {
    kill "$sim_pid" 2>/dev/null || true
    wait "$sim_pid" 2>/dev/null || true
    rm -f "$ready_file"
}
trap stop_simulator EXIT
# The simulator no longer shares the terminal's signals: a hang-up or a kill
# of this script must still stop it.
trap 'exit 129' HUP
trap 'exit 143' TERM

for ((i = 0; i < READY_WAIT_TENTHS; i++)); do
    grep -q "^listening on" "$ready_file" && break
    if ! kill -0 "$sim_pid" 2>/dev/null; then
        echo "The device simulator could not start on $DEVICE_ADDRESS (is port 22666 in use?)" >&2
        exit 1
    fi
    sleep 0.1
done
if ! grep -q "^listening on" "$ready_file"; then
    echo "The device simulator did not become ready on $DEVICE_ADDRESS" >&2
    exit 1
fi

status=0
"$BUILD_DIR/korvex-shell" -r "$DEVICE_ADDRESS" "$@" || status=$?
exit "$status"
