#!/usr/bin/env python3
"""chaos.py PROGRAMS SECONDS KILLS: attacks running monitors, for scripts/chaos.sh.

PROGRAMS is the folder of the built programs. It must run as root in a PID and mount namespace of its
own with an own /tmp and /dev/shm, because it fills both and expects to know all processes. Prints
one line for each area; exits with 1 if one has a failure.
"""
import ctypes
import fcntl
import json
import os
import random
import re
import resource
import signal
import subprocess
import sys
import threading
import time
import urllib.request

PROGRAMS, SECONDS, KILLS = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
MONITOR = os.path.join(PROGRAMS, "mirt-monitor")
FAKETIME = "/usr/lib/x86_64-linux-gnu/faketime/libfaketimeMT.so.1"
STEADY = 40
PATIENCE = 30  # seconds until something that must happen counts as missed
ODD_NAMES = ["blank in name", "(paren) 1 (", "line\nbreak", "\x1b[2J\x1b]0;t\x07", b"\xff\xfe\xc3(",
             "*", "?", "\u202egnp", ""]
failures = 0


def tell(area, cases, faults, note=""):
    global failures
    failures += len(faults)
    print(f"{area:<34} {cases:>8} {len(faults):>8}  {note}", flush=True)
    for fault in faults[:5]:
        print(f"    {fault}", flush=True)


def named(name):
    """A process with this command line, which waits."""
    return subprocess.Popen([name], executable="/bin/cat", stdin=subprocess.PIPE)


def write_config(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    os.chmod(path, 0o644)


class Monitor:
    """A running monitor with JSON lines, read by a thread."""

    def __init__(self, config, *options, output=None, **more):
        self.lines, self.log = [], []
        self.process = subprocess.Popen(
            [MONITOR, "run", "--json", "--config", config, *options],
            stdout=output or subprocess.PIPE, stderr=subprocess.PIPE, **more)
        self.readers = [threading.Thread(target=self.read, args=(self.process.stderr, self.log))]
        if output is None:
            self.readers.append(
                threading.Thread(target=self.read, args=(self.process.stdout, self.lines)))
        for reader in self.readers:
            reader.start()

    @staticmethod
    def read(pipe, lines):
        for line in pipe:
            lines.append(line)

    def records(self, **keys):
        found = []
        for line in list(self.lines):
            record = json.loads(line)
            if all(record.get(key) == value for key, value in keys.items()):
                found.append(record)
        return found

    def end(self, signal_number=signal.SIGTERM):
        """The exit status. None if it does not end: it is then killed."""
        self.process.send_signal(signal_number)
        try:
            status = self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            status = None
            self.process.kill()
        for reader in self.readers:
            reader.join()
        return status


def end_all(processes):
    for process in processes:
        process.kill()
        process.wait()


def wait_for(condition):
    until = time.monotonic() + PATIENCE
    while time.monotonic() < until:
        if condition():
            return True
        time.sleep(0.02)
    return False


# Restless processes.

def storm(kind):
    """Does one kind of mischief until it is killed."""
    while True:
        pid = os.fork()
        if pid == 0:
            if kind == "exec":
                os.execv("/bin/true", [random.choice(ODD_NAMES) or "x", "argument"])
            if kind == "rename":
                with open("/proc/self/comm", "wb") as comm:
                    comm.write(b"steady-1\n(")
                os.execv("/bin/sleep", ["steady-1 not", "0.05"])
            os._exit(0)
        if kind != "zombie":
            os.waitpid(pid, 0)
        time.sleep(1 if kind == "zombie" else 0.002)


def many_threads():
    threading.stack_size(65536)
    for _ in range(2000):
        threading.Thread(target=threading.Event().wait, daemon=True).start()
    threading.Event().wait()


def in_child(function, *arguments):
    pid = os.fork()
    if pid == 0:
        try:
            function(*arguments)
        finally:
            os._exit(1)
    return pid


def restless_config(port, stuck):
    text = f'every = 1\n[http]\nlisten = "127.0.0.1:{port}"\n'
    for i in range(STEADY):
        text += f'[[process]]\nname = "s{i}"\nexact = "steady-{i}"\n'
        text += 'running = true\nmemory = true\nhandles = true\ncpu = true\n'
    for i in range(10):
        text += f'[[process]]\nname = "p{i}"\nmatch = "*teady-{i}"\nrunning = true\nmemory = true\n'
        text += f'[[process]]\nname = "v{i}"\nprefix = "victim-{i}"\nrunning = true\n'
    if stuck:
        text += '[[process]]\nname = "stuck"\nprefix = "stuck-one"\nrunning = true\nmemory = true\n'
    text += '[machine]\ncpu = true\nmemory = true\ndisk = { "/" = true }\n'
    write_config("/tmp/restless.toml", text)


def lateness(port):
    """The share of calls that began at most 20 ms late, in percent; their number; the others."""
    url = f"http://127.0.0.1:{port}/metrics"
    text = urllib.request.urlopen(url, timeout=PATIENCE).read().decode()
    name = "mirt_schedule_lateness_seconds_"
    within = float(re.search(rf'{name}bucket{{le="0.02"}} (\S+)', text).group(1))
    calls = float(re.search(rf"{name}count (\S+)", text).group(1))
    skipped = re.findall(r"^mirt_\w*skipped\w*_total\S* (\S+)$", text, re.M)
    return 100 * within / calls, int(calls), sum(float(count) for count in skipped)


def restless():
    faults = []
    crowd = subprocess.Popen([os.path.join(PROGRAMS, "mirt_idle_crowd"), "5000"],
                             stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    crowd.stdout.readline()
    steady = [named(f"steady-{i}") for i in range(STEADY)]
    victims = [named(f"victim-{i}") for i in range(10)]
    odd = [named(name) for name in ODD_NAMES]
    stopped = [named(f"stopped-{i}") for i in range(50)]
    for process in stopped:
        process.send_signal(signal.SIGSTOP)
    with open("/tmp/stuck-file", "wb") as file:
        file.write(b"0" * 4096)
    stuck = subprocess.Popen([os.path.join(PROGRAMS, "stuck_process"), "/tmp/stuck-file", "stuck-one"],
                             stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    has_stuck = stuck.stdout.readline() != b""  # its PID, when it is stuck
    storms = [in_child(storm, kind) for kind in ("fork", "fork", "exec", "rename", "zombie")]
    storms.append(in_child(many_threads))
    restless_config(19300, has_stuck)
    monitor = Monitor("/tmp/restless.toml")
    if not wait_for(lambda: monitor.records(instance="s0.running", kind="item")):
        faults.append(f"no answer: {monitor.log[-3:]}")
    ends, kills = time.monotonic() + SECONDS, 0
    while time.monotonic() < ends and not faults:
        time.sleep(random.uniform(1, 3))
        i = random.randrange(len(victims))
        name, before = f"v{i}.running", len(monitor.records(instance=f"v{i}.running", kind="alarm"))
        victims[i].kill()
        victims[i].wait()
        kills += 1

        def heard(count, name=name):
            return len(monitor.records(instance=name, kind="alarm")) >= count
        if not wait_for(lambda: heard(before + 1)):
            faults.append(f"{name}: the end was not reported")
        victims[i] = named(f"victim-{i}")
        if not wait_for(lambda: heard(before + 2)):
            faults.append(f"{name}: the alarm was not cleared")
    share, calls, skipped = lateness(19300) if not faults else (0, 0, 0)
    # That the stuck process could not be checked for three periods is a true alarm.
    false_alarms = [r for r in monitor.records(kind="alarm") if not r["instance"].startswith("v")
                    and (r["instance"] != "stuck.running" or r["condition"] == "equals 0")]
    faults += [f"alarm of a healthy process: {r}" for r in false_alarms]
    status = monitor.end()
    if status != 0:
        faults.append(f"exit status {status}: {monitor.log[-3:]}")
    tell("restless processes: ends", kills, faults)
    late = [] if share >= 95 else [f"only {share:.1f} % within 20 ms"]
    tell("restless processes: calls", calls, late,
         f"{share:.1f} % began at most 20 ms late; skipped {skipped:.0f}; "
         f"stuck process: {'yes' if has_stuck else 'no'}")
    for pid in storms:
        os.kill(pid, signal.SIGKILL)
        os.waitpid(pid, 0)
    end_all([crowd, stuck, *steady, *victims, *odd, *stopped])


# Kills.

def children_left():
    """The processes of this namespace but this one."""
    return [pid for pid in os.listdir("/proc") if pid.isdigit() and int(pid) not in (1, os.getpid())]


def kills_of_the_monitor():
    faults = []
    write_config("/tmp/kills.toml", 'every = 0.1\nstate = "/tmp/state.json"\n'
                 '[alert.a]\ncommand = ["/bin/cat"]\n'
                 '[[process]]\nname = "gone"\nexact = "no such process"\n'
                 'running = { alert = "a" }\n')
    for _ in range(KILLS):
        monitor = Monitor("/tmp/kills.toml")
        time.sleep(random.uniform(0.01, 0.4))
        monitor.end(signal.SIGKILL)
        faults += [line for line in monitor.log if b"cannot" in line or b"terminate" in line]
        if not wait_for(lambda: not children_left()):
            faults.append(f"processes are left: {children_left()}")
    monitor = Monitor("/tmp/kills.toml")
    if not wait_for(lambda: monitor.records(instance="gone.running", state="alarm")):
        faults.append(f"no alarm after the kills: {monitor.log[-3:]}")
    if monitor.records(kind="alarm", state="raised"):
        faults.append("the alarm was raised again: the state was lost")
    status = monitor.end()
    if status != 0:
        faults.append(f"exit status {status}")
    set_aside = [name for name in os.listdir("/tmp") if "damaged" in name]
    tell("kill -9 of the monitor", KILLS, faults, f"state files set aside: {len(set_aside)}")


def kills_of_attachers():
    faults = []
    for i in range(KILLS):
        process = subprocess.Popen(
            [os.path.join(PROGRAMS, "supervised-process"), str(1 + i % 20), "7"],
            stdout=subprocess.DEVNULL)
        time.sleep(random.uniform(0, 0.02))
        process.kill()
        process.wait()
        if os.path.exists("/tmp/mirt_agent_lock"):
            with open("/tmp/mirt_agent_lock", "rb") as lock:
                try:
                    fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
                except OSError:
                    faults.append("the lock is still held")
    process = subprocess.Popen([os.path.join(PROGRAMS, "supervised-process"), "3", "7"],
                               stdout=subprocess.DEVNULL)
    time.sleep(1)
    shown = subprocess.run([MONITOR, "heartbeats", "--json"], capture_output=True, check=False)
    entries = [json.loads(line) for line in shown.stdout.splitlines()]
    if shown.returncode != 0 or not any(e["module"] == 3 and e["moved"] for e in entries):
        faults.append(f"the table: {shown.returncode} {shown.stdout[-300:]} {shown.stderr}")
    process.kill()
    process.wait()
    tell("kill -9 of attaching processes", KILLS, faults)


def kills_of_watched_processes():
    """Each end is reported once and each return clears it; nothing else is reported."""
    count, faults = 20, []
    watched = [named(f"watched-{i}") for i in range(count)]
    write_config("/tmp/watched.toml", "every = 0.1\n" + "".join(
        f'[[process]]\nname = "w{i}"\nexact = "watched-{i}"\nrunning = true\nmemory = true\n'
        for i in range(count)))
    monitor = Monitor("/tmp/watched.toml")

    def all_have(state):
        last = {r["instance"]: r["state"] for r in monitor.records(kind="item")}
        return all(last.get(f"w{i}.running") == state for i in range(count))

    told = 0
    if not wait_for(lambda: all_have("ok")):
        faults.append(f"no answer: {monitor.log[-3:]}")
    for turn in range(max(1, KILLS // count)):
        random.shuffle(order := list(range(count)))
        for i in order:
            watched[i].kill()
            watched[i].wait()
            time.sleep(random.uniform(0, 0.02))
        if not wait_for(lambda: all_have("alarm")):
            faults.append(f"turn {turn}: an end was not noticed")
        for i in order:
            watched[i] = named(f"watched-{i}")
        if not wait_for(lambda: all_have("ok")):
            faults.append(f"turn {turn}: a return was not noticed")
        states = [(r["instance"], r["state"]) for r in monitor.records(kind="alarm")]
        right = {(f"w{i}.running", state) for i in range(count) for state in ("raised", "cleared")}
        if len(states) != 2 * count or set(states) != right:
            faults.append(f"turn {turn}: {len(states)} alarms instead of {2 * count}: {states}")
        told += len(states)
        monitor.lines.clear()
        wait_for(lambda: all_have("ok"))
    status = monitor.end()
    if status != 0:
        faults.append(f"exit status {status}: {monitor.log[-3:]}")
    tell("kill -9 of watched processes", told // 2, faults)
    end_all(watched)


# What runs out.

def limited(*limits, user=None):
    def prepare():
        if user is not None:
            os.setgid(user)
            os.setuid(user)
        for kind, value in limits:
            resource.setrlimit(kind, (value, value))
    return prepare


def judge(name, monitor, faults, must_go_on=True):
    """The monitor still answers and ends with 0, or it has said why it ended and ended with 1."""
    before = len(monitor.lines)
    goes_on = wait_for(lambda: monitor.process.poll() is not None or len(monitor.lines) > before + 3)
    ended = monitor.process.poll()
    status = monitor.end() if ended is None else ended
    if ended is not None:
        monitor.end()
    if ended is None and (status not in (0, 1) or not goes_on):
        faults.append(f"{name}: goes on: {goes_on}, status {status}, {monitor.log[-2:]}")
    if ended is not None and (must_go_on or status != 1 or not monitor.log):
        faults.append(f"{name}: ended with {status}, {monitor.log[-2:]}")


def dead_mount(path):
    """A file system that answers nothing, until the returned descriptor is closed."""
    os.makedirs(path, exist_ok=True)
    fuse = os.open("/dev/fuse", os.O_RDWR | os.O_CLOEXEC)
    options = f"fd={fuse},rootmode=40000,user_id=0,group_id=0".encode()
    if ctypes.CDLL(None).mount(b"dead", path.encode(), b"fuse", 0, options) != 0:
        raise OSError("cannot mount a file system of its own")
    return fuse


def steady_config(path, count, head):
    write_config(path, head + "".join(
        f'[[process]]\nname = "s{i}"\nexact = "steady-{i}"\nrunning = true\nmemory = true\n'
        for i in range(count)))


def a_dead_mount():
    """Only the watch of this file system waits."""
    faults, seconds = [], 10
    steady = [named(f"steady-{i}") for i in range(20)]
    fuse = dead_mount("/tmp/dead")
    steady_config("/tmp/dead.toml", 20, 'every = 0.2\ndeadline = 2\n[machine]\n'
                  'disk = { "/tmp/dead" = true }\n')
    monitor = Monitor("/tmp/dead.toml")
    time.sleep(seconds)
    calls = [len(monitor.records(instance=f"s{i}.running", kind="item")) for i in range(20)]
    if min(calls) < seconds * 5 * 0.9:
        faults.append(f"calls of the other watches: {calls}")
    states = [r["state"] for r in monitor.records(instance="machine.disk:/tmp/dead", kind="item")]
    if states != ["blind"]:
        faults.append(f"states of the dead mount: {states}")
    faults += [f"false alarm: {r}" for r in monitor.records(kind="alarm")]
    status = monitor.end()
    if status != 0:
        faults.append(f"exit status {status}: {monitor.log[-3:]}")
    tell("a dead mount under statfs", sum(calls), faults)
    os.close(fuse)
    subprocess.run(["umount", "--lazy", "/tmp/dead"], check=False)
    end_all(steady)


def steps_of_the_clock():
    """The clock of the monitor, not that of the machine, is set forwards and backwards."""
    faults, steps = [], 20
    steady = [named(f"steady-{i}") for i in range(20)]
    steady_config("/tmp/steps.toml", 20, "every = 0.1\n")

    def set_clock(hours):
        write_config("/tmp/clock.new", f"{hours:+d}h\n")
        os.rename("/tmp/clock.new", "/tmp/clock")

    set_clock(0)
    monitor = Monitor("/tmp/steps.toml", env=dict(
        os.environ, LD_PRELOAD=FAKETIME, FAKETIME_TIMESTAMP_FILE="/tmp/clock",
        FAKETIME_NO_CACHE="1", FAKETIME_DONT_FAKE_MONOTONIC="1"))
    for step in range(steps):
        calls = len(monitor.records(kind="item"))
        if not wait_for(lambda: len(monitor.records(kind="item")) > calls + 80):
            faults.append(f"step {step}: the calls stop: {monitor.log[-3:]}")
            break
        set_clock(30 if step % 2 else random.randrange(-30, 29))
    faults += [f"false alarm: {r}" for r in monitor.records(kind="alarm")]
    said = sum("the clock was set" in r["text"] for r in monitor.records(kind="event"))
    status = monitor.end()
    if status != 0 or said < steps - 1:  # it can end before it has seen the last one
        faults.append(f"exit status {status}, {said} steps noticed: {monitor.log[-3:]}")
    tell("steps of the clock, up to 60 hours", steps, faults, f"noticed: {said}")
    end_all(steady)


def shortages():
    steady = [named(f"steady-{i}") for i in range(8)]
    write_config("/tmp/shortage.toml",
                 'every = 0.2\nstate = "/tmp/full/state.json"\n[machine]\ncpu = true\nmemory = true\n'
                 'disk = { "/" = true }\n' + "".join(
                     f'[[process]]\nname = "s{i}"\nexact = "steady-{i}"\nrunning = true\n'
                     'memory = true\n' for i in range(8)) +
                 '[[heartbeat]]\nname = "h"\nprocess = "supervised-proc"\nmodule = 3\n')
    os.makedirs("/tmp/full", exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=16k", "tmpfs", "/tmp/full"], check=True)
    with open("/tmp/full/filler", "wb") as file:
        try:
            file.write(b"0" * (1 << 20))
        except OSError:
            pass
    shortage = [
        ("disk of the state full", {}, True),
        ("six descriptors", {"preexec_fn": limited((resource.RLIMIT_NOFILE, 6))}, False),
        ("twelve descriptors", {"preexec_fn": limited((resource.RLIMIT_NOFILE, 12))}, True),
        ("no threads", {"preexec_fn": limited((resource.RLIMIT_NPROC, 1), user=65534)}, False),
        ("few threads", {"preexec_fn": limited((resource.RLIMIT_NPROC, 8), user=65534)}, False),
    ]
    faults = []
    for name, more, must_go_on in shortage:
        judge(name, Monitor("/tmp/shortage.toml", **more), faults, must_go_on)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "nr_inodes=1", "tmpfs", "/dev/shm"], check=True)
    judge("/dev/shm full", Monitor("/tmp/shortage.toml"), faults)
    subprocess.run(["umount", "/dev/shm"], check=True)
    tell("shortages from the start", len(shortage) + 1, faults)

    faults = []
    with open("/tmp/full/output", "wb") as output:
        monitor = Monitor("/tmp/shortage.toml", output=output)
        if not wait_for(lambda: monitor.process.poll() is not None):
            monitor.end()
            faults.append("output on a full disk: it goes on although nobody can hear it")
        elif monitor.process.poll() != 1 or not monitor.log:
            faults.append(f"output on a full disk: {monitor.process.poll()} {monitor.log[-2:]}")
    tell("output on a full disk", 1, faults)

    faults = []
    tries = max(5, KILLS // 5)
    for _ in range(tries):
        monitor = Monitor("/tmp/shortage.toml")
        time.sleep(random.uniform(0.02, 0.5))
        if monitor.process.poll() is not None:
            faults.append(f"it did not start: {monitor.log}")
            monitor.end()
            continue
        with open(f"/proc/{monitor.process.pid}/statm", encoding="ascii") as file:
            used = int(file.read().split()[0]) * resource.getpagesize()
        more = random.randrange(0, 1 << 18)
        resource.prlimit(monitor.process.pid, resource.RLIMIT_AS, (used + more, used + more))
        judge("memory", monitor, faults, must_go_on=False)
    tell("memory limited while it runs", tries, faults)

    faults = []
    for limit in range(5, 5 + tries):
        monitor = Monitor("/tmp/shortage.toml")
        wait_for(lambda: len(monitor.lines) > 2)
        resource.prlimit(monitor.process.pid, resource.RLIMIT_NOFILE, (limit, limit))
        judge(f"{limit} descriptors", monitor, faults)
    tell("descriptors limited while it runs", tries, faults)

    faults = []
    monitor = Monitor("/tmp/shortage.toml")
    wait_for(lambda: len(monitor.lines) > 20)
    for _ in range(5):
        for process in [monitor.process, *steady]:
            process.send_signal(signal.SIGSTOP)
        time.sleep(random.uniform(0.5, 3))
        for process in [*steady, monitor.process]:
            process.send_signal(signal.SIGCONT)
        time.sleep(1)
    faults += [f"false alarm: {r}" for r in monitor.records(kind="alarm")]
    judge("all stopped", monitor, faults)
    tell("all processes stopped for a time", 5, faults)
    end_all(steady)


# Reloads.

def reloads():
    """Watches come and go; what is left of them must not grow."""
    faults, used = [], []
    steady = [named(f"steady-{i}") for i in range(20)]

    def configure(turn):
        text = "every = 0.05\n"
        for i in range(20):
            text += f'[[process]]\nname = "s{i}"\nexact = "steady-{i}"\nrunning = true\n'
            text += "memory = true\n" if (i + turn) % 3 else ""
        if turn % 2:
            text += "[machine]\ncpu = true\nnonsense = 1\n"
        write_config("/tmp/reloads.toml", text)

    configure(0)
    monitor = Monitor("/tmp/reloads.toml")
    wait_for(lambda: len(monitor.lines) > 40)
    turns = KILLS * 10
    for turn in range(turns):
        configure(turn)
        monitor.process.send_signal(signal.SIGHUP)
        time.sleep(0.05)
        if turn in (turns // 2, turns - 1):
            time.sleep(1)
            pid = monitor.process.pid
            with open(f"/proc/{pid}/statm", encoding="ascii") as file:
                resident = int(file.read().split()[1]) * resource.getpagesize() >> 10
            used.append((resident, len(os.listdir(f"/proc/{pid}/fd")),
                         len(os.listdir(f"/proc/{pid}/task"))))
            monitor.lines.clear()
    # Histories of 60 watches fill 0.7 MiB in the first half minute.
    (half, files, threads), (whole, files_after, threads_after) = used
    if whole > half + 2048 or files_after != files or threads_after > threads + 2:
        faults.append(f"resident KiB, files, threads: {used[0]}, at the end {used[1]}")
    faults += [f"false alarm: {r}" for r in monitor.records(kind="alarm")]
    status = monitor.end()
    if status != 0:
        faults.append(f"exit status {status}: {monitor.log[-3:]}")
    tell("reloads, every second refused", turns, faults,
         f"resident: {half} KiB after half of them, {whole} KiB at the end")
    end_all(steady)


print(f"{'area':<34} {'cases':>8} {'failures':>8}", flush=True)
kills_of_the_monitor()
kills_of_attachers()
kills_of_watched_processes()
shortages()
a_dead_mount()
steps_of_the_clock()
reloads()
restless()
print("no failures" if failures == 0 else f"{failures} failures")
sys.exit(1 if failures else 0)
