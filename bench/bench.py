#!/usr/bin/python3
"""Times korvex-shell against its floors and prints one table (see bench/run.sh).

The agents are korvex-minagent, which costs next to nothing, so that the
floors are those of the clients: korvex-rawclient (plain sockets) for the
scripts and korvex-qtclient (a minimal Qt program) for the one-shot run.

Usage: bench.py BUILD_DIR [CASE...]   (cases: script, oneshot, local; all by default)

Every figure is wall time of whole processes, started the same way for the
shell and for its floor, so process start is in both. Peak memory is the
largest ru_maxrss that wait4 reports for the shell's runs (it covers the
shell's reaped children too, so in local mode it is an upper bound).

Environment: KX_BENCH_COMMANDS (commands per script, default 10000),
KX_BENCH_REPEAT (script runs per side and later local runs, default 3),
KX_BENCH_ONESHOT_RUNS (one-shot runs per side, default 101).
"""

import json
import os
import select
import socket
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

# Our loopback addresses: persistent agent, agent 2.0.3, agent of the local machine.
PERSISTENT_AGENT = "127.0.0.220"
PER_REQUEST_AGENT = "127.0.0.221"
LOCAL_AGENT = "127.0.0.222"
LAST_PER_REQUEST_VERSION = "2.0.3"

SCRIPT_LINE = "battery setlevel 50"
SCRIPT_OUTPUT = "Battery level set to: 50%"
ONESHOT_COMMAND = "battery getlevel"
# The local listing: hosts of these sizes, and the most a later run may take.
LISTING_MACHINE_COUNTS = (1, 10, 30, 90)
LISTING_CALL_DELAY_S = 0.1
LISTING_TARGETS_S = {1: 0.8, 30: 1.5, 90: 2.5}

SCRIPT_RATIO_TARGET = 1.25
ONESHOT_RATIO_TARGET = 1.2
MEMORY_TARGET_MB = 16.0
AGENT_PORT = 22666
# GetParam ApiStatistics, which korvex-minagent answers with its connection count.
CONNECTION_COUNT_REQUEST = bytes([0x08, 0x02, 0x12, 0x02, 0x08, 0x14])
# Share of the CPUs that other processes may use before the figures are called noisy.
QUIET_SHARE = 0.1
READY_TIMEOUT_S = 10.0

COMMANDS = int(os.environ.get("KX_BENCH_COMMANDS", "10000"))
REPEAT = int(os.environ.get("KX_BENCH_REPEAT", "3"))
ONESHOT_RUNS = int(os.environ.get("KX_BENCH_ONESHOT_RUNS", "101"))


class Run:
    def __init__(self, seconds, maxrss_kb, status, output):
        self.seconds = seconds
        self.maxrss_kb = maxrss_kb
        self.status = status
        self.output = output


def run(argv, env):
    """Runs argv to its end; wall time, peak RSS, exit status and stdout."""
    with tempfile.TemporaryFile() as out:
        start = time.perf_counter()
        process = subprocess.Popen(argv, env=env, stdin=subprocess.DEVNULL, stdout=out,
                                   stderr=subprocess.DEVNULL)
        _, status, usage = os.wait4(process.pid, 0)
        seconds = time.perf_counter() - start
        process.returncode = os.waitstatus_to_exitcode(status)
        out.seek(0)
        return Run(seconds, usage.ru_maxrss, process.returncode, out.read().decode())


def checked(result, what, expected_lines=None, expected_text=None):
    """Stops the benchmark when a run did not do what it is timed for."""
    problem = None
    if result.status != 0:
        problem = "exit status %d" % result.status
    elif expected_lines is not None and result.output.count(expected_text + "\n") != expected_lines:
        problem = "%d of %d expected lines" % (result.output.count(expected_text + "\n"), expected_lines)
    elif expected_lines is None and expected_text is not None and expected_text not in result.output:
        problem = "no %r in its output" % expected_text
    if problem:
        sys.exit("bench: %s failed: %s\n%s" % (what, problem, result.output[-2000:]))
    return result


def varint_fields(data):
    """(field number, value) of a protobuf message's varint and bytes fields."""
    fields, i = [], 0
    while i < len(data):
        def varint():
            nonlocal i
            value, shift = 0, 0
            while True:
                byte = data[i]
                i += 1
                value |= (byte & 0x7F) << shift
                shift += 7
                if byte < 0x80:
                    return value
        key = varint()
        if key & 7 == 0:
            fields.append((key >> 3, varint()))
        elif key & 7 == 2:
            size = varint()
            fields.append((key >> 3, data[i:i + size]))
            i += size
        else:
            raise ValueError("unexpected wire type")
    return fields


class Simulator:
    """korvex-minagent on one of our addresses."""

    def __init__(self, build, address, log_dir, agent_version=None):
        self.address = address
        argv = [os.path.join(build, "korvex-minagent"), address]
        if agent_version:
            argv += ["--agent-version", agent_version]
        self.process = subprocess.Popen(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        ready, _, _ = select.select([self.process.stdout], [], [], READY_TIMEOUT_S)
        line = self.process.stdout.readline() if ready else ""
        if not line.startswith("listening on"):
            self.stop()
            sys.exit("bench: simulator on %s did not start: %s%s" % (address, line, self.process.stderr.read()))

    def connections(self):
        """Connections accepted so far, not counting the one that asks."""
        with socket.create_connection((self.address, AGENT_PORT), READY_TIMEOUT_S) as connection:
            connection.sendall(CONNECTION_COUNT_REQUEST)
            reply = connection.recv(64)
        value = dict(varint_fields(reply))[3]
        return dict(varint_fields(value))[3] - 1

    def stop(self):
        self.process.terminate()
        self.process.wait(READY_TIMEOUT_S)


class Table:
    def __init__(self):
        self.rows = []
        self.shell_rss_kb = 0
        self.missed = False

    def add(self, name, shell, floor, ratio, target, passed, rss_kb):
        result = "-" if passed is None else ("PASS" if passed else "MISS")
        self.missed |= passed is False
        self.shell_rss_kb = max(self.shell_rss_kb, rss_kb or 0)
        memory = "" if rss_kb is None else "%.1f MB" % (rss_kb / 1024)
        self.rows.append((name, shell, floor, ratio, target, result, memory))

    def print(self):
        header = ("benchmark", "shell", "floor", "ratio", "target", "result", "max RSS")
        widths = [max(len(str(row[i])) for row in self.rows + [header]) for i in range(len(header))]
        for row in [header, tuple("-" * w for w in widths)] + self.rows:
            print("  ".join(str(cell).ljust(width) for cell, width in zip(row, widths)).rstrip())
        memory_ok = self.shell_rss_kb / 1024 < MEMORY_TARGET_MB
        self.missed |= not memory_ok
        print("\npeak memory of the shell: %.1f MB over all runs (target < %.0f MB): %s"
              % (self.shell_rss_kb / 1024, MEMORY_TARGET_MB, "PASS" if memory_ok else "MISS"))


def script_throughput(table, build, env, work, simulators):
    script = os.path.join(work, "script.txt")
    with open(script, "w") as f:
        f.write((SCRIPT_LINE + "\n") * COMMANDS)
    shell = os.path.join(build, "korvex-shell")
    raw = os.path.join(build, "korvex-rawclient")
    modes = (("persistent", PERSISTENT_AGENT, []), ("per request", PER_REQUEST_AGENT, ["--per-request"]))
    for label, address, raw_flags in modes:
        shell_times, floor_times, rss = [], [], 0
        # Alternate the two sides so that a busy moment hits both.
        for _ in range(REPEAT):
            before = simulators[address].connections()
            result = checked(run([shell, "-r", address, "-f", script], env), "script run",
                             COMMANDS, SCRIPT_OUTPUT)
            # Make sure the mode is the one timed: a connection per command or a few in all.
            connections = simulators[address].connections() - before
            if (connections > COMMANDS) != bool(raw_flags):
                sys.exit("bench: the shell opened %d connections for %d commands against %s"
                         % (connections, COMMANDS, address))
            shell_times.append(result.seconds)
            rss = max(rss, result.maxrss_kb)
            floor = checked(run([raw, address, "--count", str(COMMANDS)] + raw_flags, env), "raw client")
            floor_times.append(floor.seconds)
        per_command = statistics.median(shell_times) / COMMANDS
        per_exchange = statistics.median(floor_times) / COMMANDS
        ratio = per_command / per_exchange
        table.add("script, %s, %d commands" % (label, COMMANDS), "%.1f us/cmd" % (per_command * 1e6),
                  "%.1f us/exchange" % (per_exchange * 1e6), "%.2fx" % ratio,
                  "<= %.2fx" % SCRIPT_RATIO_TARGET, ratio <= SCRIPT_RATIO_TARGET, rss)


def oneshot_latency(table, build, env):
    shell = os.path.join(build, "korvex-shell")
    oneshot = [shell, "-r", PERSISTENT_AGENT, "-c", ONESHOT_COMMAND]
    qt = [os.path.join(build, "korvex-qtclient"), PERSISTENT_AGENT]
    raw = [os.path.join(build, "korvex-rawclient"), PERSISTENT_AGENT, "--get"]
    times = {"shell": [], "qt": [], "raw": [], "help": []}
    rss, help_rss = 0, 0
    expected = "Battery level: 50%"
    for _ in range(ONESHOT_RUNS):
        result = checked(run(oneshot, env), "one-shot", expected_text=expected)
        times["shell"].append(result.seconds)
        rss = max(rss, result.maxrss_kb)
        times["qt"].append(checked(run(qt, env), "Qt client", expected_text=expected).seconds)
        times["raw"].append(checked(run(raw, env), "raw client").seconds)
        result = checked(run([shell, "-h"], env), "korvex-shell -h", expected_text="Usage:")
        times["help"].append(result.seconds)
        help_rss = max(help_rss, result.maxrss_kb)
    ms = {name: statistics.median(values) * 1e3 for name, values in times.items()}
    ratio = ms["shell"] / ms["qt"]
    table.add("one-shot -c \"%s\", median of %d" % (ONESHOT_COMMAND, ONESHOT_RUNS), "%.1f ms" % ms["shell"],
              "%.1f ms Qt client" % ms["qt"], "%.2fx" % ratio, "<= %.2fx" % ONESHOT_RATIO_TARGET,
              ratio <= ONESHOT_RATIO_TARGET, rss)
    table.add("  against the raw client", "%.1f ms" % ms["shell"], "%.1f ms raw" % ms["raw"],
              "%.2fx" % (ms["shell"] / ms["raw"]), "", None, None)
    table.add("  process start: korvex-shell -h", "%.1f ms" % ms["help"], "%.1f ms Qt client" % ms["qt"],
              "%.2fx" % (ms["help"] / ms["qt"]), "", None, help_rss)


def listing_host(count):
    """A host with count machines, a third of them (at least one) running Korvex
    devices and the others the user's own, half of them running; every
    VBoxManage call takes LISTING_CALL_DELAY_S."""
    devices = max(1, count // 3)
    machines = []
    for i in range(count):
        machine = {"name": "Machine %02d" % (i + 1), "uuid": "00000000-0000-4000-8000-%012d" % i,
                   "state": "running" if i < devices or i % 2 else "poweroff"}
        if i < devices:
            # The only device of a one-machine host is selected and its agent asked for its version.
            machine.update(name="Device %02d" % (i + 1), ip=LOCAL_AGENT,
                           extradata={"korvex/vm-version": "2.8.1", "korvex/android-version": "7.1",
                                      "korvex/platform": "x86"})
        machines.append(machine)
    return {"version": "7.0.14r161095", "machines": machines, "delay": LISTING_CALL_DELAY_S}


def call_count(path):
    """The VBoxManage calls the fake logged (its other lines are events, not calls)."""
    with open(path) as f:
        return sum(1 for line in f.read().splitlines() if line and not line.startswith(("lock conflict",
                                                                                         "restore cancelled")))


def local_listing(build, env, work):
    """-c "devices list" in local mode: time and VBoxManage calls, first run on a
    host (empty product data directory) and the runs after it (directory kept)."""
    shell = os.path.join(build, "korvex-shell")
    manager = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "tests", "fakes",
                           "VBoxManage")
    rows, missed, rss = [], False, 0
    for count in LISTING_MACHINE_COUNTS:
        host = os.path.join(work, "host-%d" % count)
        os.makedirs(host)
        state = os.path.join(host, "vbox.json")
        with open(state, "w") as f:
            json.dump(listing_host(count), f)
        calls = os.path.join(host, "calls.log")
        local_env = dict(env, KX_VBOXMANAGE=manager, KX_FAKE_VBOX_STATE=state, KX_FAKE_VBOX_LOG=calls,
                         KX_HOME=os.path.join(host, "kx"))
        figures = {"first": [], "later": []}
        for attempt in range(1 + REPEAT):
            if os.path.exists(calls):
                os.remove(calls)
            result = checked(run([shell, "-c", "devices list"], local_env), "local listing",
                             expected_text="Device 01")
            rss = max(rss, result.maxrss_kb)
            figures["first" if attempt == 0 else "later"].append((result.seconds, call_count(calls)))
        first_s, first_calls = figures["first"][0]
        later_s = statistics.median(s for s, _ in figures["later"])
        later_calls = max(c for _, c in figures["later"])
        target = LISTING_TARGETS_S.get(count)
        passed = None if target is None else later_s <= target
        missed |= passed is False
        rows.append((str(count), str(max(1, count // 3)), "%.0f ms" % (first_s * 1e3), str(first_calls),
                     "%.0f ms" % (later_s * 1e3), str(later_calls),
                     "" if target is None else "<= %.0f ms" % (target * 1e3),
                     "-" if passed is None else ("PASS" if passed else "MISS")))
    header = ("machines", "devices", "first run", "calls", "later runs (median)", "calls", "target", "result")
    widths = [max(len(row[i]) for row in rows + [header]) for i in range(len(header))]
    print("\nlocal -c \"devices list\", VBoxManage calls of %.1f s each (%d later runs):"
          % (LISTING_CALL_DELAY_S, REPEAT))
    for row in [header, tuple("-" * w for w in widths)] + rows:
        print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())
    print("peak memory of these runs: %.1f MB (an upper bound: it covers the reaped VBoxManage calls)"
          % (rss / 1024))
    return missed


def busy_seconds():
    """CPU time spent by every process of the machine so far."""
    with open("/proc/stat") as f:
        fields = [int(v) for v in f.readline().split()[1:]]
    idle = fields[3] + fields[4]
    return (sum(fields[:8]) - idle) / os.sysconf("SC_CLK_TCK")


def our_seconds():
    times = os.times()
    return times.user + times.system + times.children_user + times.children_system


def print_foreign_load(start_busy, start_ours, start_wall):
    """How much of the CPUs other processes took during the run."""
    foreign = (busy_seconds() - start_busy) - (our_seconds() - start_ours)
    share = max(0.0, foreign) / ((time.monotonic() - start_wall) * os.cpu_count())
    print("other processes used %.0f%% of the CPUs during the run%s"
          % (share * 100, "; figures may be noisy" if share > QUIET_SHARE else ""))


CASES = ("script", "oneshot", "local")


def main():
    build = os.path.abspath(sys.argv[1])
    cases = sys.argv[2:] or list(CASES)
    unknown = [case for case in cases if case not in CASES]
    if unknown:
        sys.exit("bench: unknown case %s (cases: %s)" % (", ".join(unknown), ", ".join(CASES)))
    start_busy, start_ours, start_wall = busy_seconds(), our_seconds(), time.monotonic()
    print("korvex-shell benchmarks: %s, %d CPUs" % (build, os.cpu_count()))
    tmpfs = "/dev/shm" if os.path.isdir("/dev/shm") else None
    work = tempfile.mkdtemp(prefix="korvex-bench-", dir=tmpfs)
    home = os.path.join(work, "home")
    os.makedirs(home)
    env = dict(os.environ, HOME=home, KX_HOME=os.path.join(home, "kx"), LANG="C.UTF-8",
               KX_VBOXMANAGE=os.path.join(work, "no-vboxmanage"))
    env.pop("KX_LOG_TO_STDERR", None)
    env.pop("XDG_CONFIG_HOME", None)
    simulators = []
    try:
        for address, version in ((PERSISTENT_AGENT, None), (PER_REQUEST_AGENT, LAST_PER_REQUEST_VERSION),
                                 (LOCAL_AGENT, None)):
            simulators.append(Simulator(build, address, work, version))
        table = Table()
        if "script" in cases:
            script_throughput(table, build, env, work, {s.address: s for s in simulators})
        if "oneshot" in cases:
            oneshot_latency(table, build, env)
        missed = False
        if table.rows:
            print()
            table.print()
            missed = table.missed
        if "local" in cases:
            missed |= local_listing(build, env, work)
        return 1 if missed else 0
    finally:
        for simulator in simulators:
            simulator.stop()
        print_foreign_load(start_busy, start_ours, start_wall)
        shutil.rmtree(work, ignore_errors=True)

if __name__ == "__main__":
    sys.exit(main())
