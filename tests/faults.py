#!/usr/bin/env python3
"""faults.py BIN-DIRECTORY [--small]: runs each command of the program with faults.

System calls or allocations fail, and each run is held against the rules: no death by a signal, no
hang, exit status 0 only if the output is complete, a reason on standard error otherwise, and no
process is left.

Prints a line for each rule that is broken, and a table at the end. Exit status 1: a rule is broken;
77: this machine does not allow the mounts."""
import collections
import concurrent.futures
import errno
import os
import re
import struct
import subprocess
import sys
import tempfile
import time

import faults_of_a_run

SECONDS = 120  # a run that takes longer hangs
SHORT = 0
E = errno
# Number of the call on x86-64, and the errors that it can have.
CALLS = {
    'openat': (257, [E.EMFILE, E.EACCES, E.ENOENT, E.EINTR, E.ENOMEM, E.EIO]),
    'read': (0, [SHORT, E.EIO, E.EINTR, E.ENOMEM]),
    'pread64': (17, [SHORT, E.EIO]),
    'write': (1, [E.ENOSPC, E.EIO, E.EINTR, SHORT]),
    'getdents64': (217, [E.EIO, E.ENOMEM]),  # for libc, ENOENT is the end of the folder
    'newfstatat': (262, [E.EACCES, E.ENOMEM, E.EIO]),
    'statfs': (137, [E.EIO, E.EINTR, E.EACCES]),
    'mmap': (9, [E.ENOMEM]),
    'mprotect': (10, [E.ENOMEM]),
    'clone3': (435, [E.EAGAIN, E.ENOMEM]),
    'poll': (7, [E.EINTR, E.ENOMEM]),
    'ppoll': (271, [E.EINTR, E.ENOMEM]),
    'wait4': (61, [E.EINTR]),
    'eventfd2': (290, [E.EMFILE, E.ENOMEM]),
    'pipe2': (293, [E.EMFILE]),
    'pidfd_open': (434, [E.EMFILE, E.EINTR, E.ENOMEM]),
    'fcntl': (72, [E.EINTR]),
    'socket': (41, [E.EMFILE, E.EACCES]),
    'connect': (42, [E.EINTR, E.EACCES, E.ENOENT]),
    'sendto': (44, [E.EINTR, E.EIO, SHORT]),
    'recvfrom': (45, [E.EINTR, E.EIO, SHORT]),
}
Case = collections.namedtuple('Case', 'command call error at always')
Run = collections.namedtuple('Run', 'status calls faults left path out err')


class Harness:
    def __init__(self, binaries, folder):
        self.binaries, self.folder = binaries, folder
        self.monitor = os.path.join(binaries, 'mirt-monitor')
        self.config = config = os.path.join(folder, 'watch.toml')
        self.socket = os.path.join(folder, 'socket')
        with open(config, 'w') as file:
            file.write('every = "50 ms"\n[machine]\nmemory = { above = 99 }\n'
                       '[[process]]\nname = "sleeper"\nexact = "sleep 98765"\nrunning = true\n')
        once = ['once', '--json']
        self.commands = {
            '--version': ['--version'],
            'items': ['items'],
            'check-config': ['check-config', '--expand', config],
            'once GetSysMemory': once + ['GetSysMemory'],
            'once GetDiskUsage': once + ['GetDiskUsage', '/'],
            'once GetProcessHandle': once + ['GetProcessHandle', 'sleep 98765'],
            'once IsExistProcessExtern': once + ['IsExistProcessExtern', 'sleep 98'],
            'once IsExistProcessPreCmd':
                once + ['IsExistProcessPreCmd', 'sleep 98765', 'echo yes', 'yes'],
            'ps': ['ps', '--json'],
            'find': ['find', 'prefix', 'sleep 98'],
            'match': ['match', 'exact', 'sleep 98765', '--json'],
            'init': ['init'],
            'heartbeats': ['heartbeats', '--json'],
            'status': ['status', '--json', '--socket', self.socket],
            'silence': ['silence', 'nothing', '--for', '1h', '--socket', self.socket],
            'run': ['run', '--config', config, '--rounds', '2', '--json'],
        }

    def start_surroundings(self):
        free = struct.pack('<IIQII', 0xFFFFFFFF, 0xFFFF, 0, 0xFFFFFFFF, 0)
        with open('/dev/shm/MIRT_AGENT_HEARTBEAT', 'wb') as table:
            table.write(struct.pack('<IIQII', os.getpid(), 7, 2**64 - 1, 3, 0) + free * 49)
        yield subprocess.Popen(['sleep', '98765'])
        command = [self.monitor, 'run', '--config', self.config, '--socket', self.socket]
        monitor = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        yield monitor
        while not os.path.exists(self.socket):
            if monitor.poll() is not None:
                raise RuntimeError('the monitor does not start')
            time.sleep(0.05)

    def run(self, case):
        """One run of a command with this fault; the call "memory" is an allocation."""
        environment = dict(os.environ, LC_ALL='C')
        memory = case.call == 'memory'
        if memory:
            rule = faults_of_a_run.Rule(tempfile.mktemp(dir=self.folder))
            rule.set(case.at, length=faults_of_a_run.NEVER if case.always else 1)
            environment.update(rule.environment, LD_PRELOAD=os.path.join(
                self.binaries, 'failing_malloc.so'))
        number = -1 if memory else CALLS[case.call][0]
        report, theirs = os.pipe()
        tracer = [os.path.join(self.binaries, 'faults'), str(number), str(case.error), str(case.at),
                  'always' if case.always else 'once', str(SECONDS), self.monitor]
        # Descriptor 3 of the tracer, which makes it close-on-exec.
        shell = ['bash', '-c', 'exec 3>&"$0" "$@"', str(theirs)]
        process = subprocess.Popen(shell + tracer + self.commands[case.command], env=environment,
                                   pass_fds=[theirs], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        os.close(theirs)
        out, err = (text.decode(errors='replace') for text in process.communicate())
        with os.fdopen(report) as file:
            words = file.read().split(maxsplit=4)
        if len(words) < 5:
            raise RuntimeError(f'the tracer failed: {err}')
        status, calls, faults, left = map(int, words[:4])
        if memory:
            calls, faults = rule.counts()
        return Run(status, calls, faults, left, words[4].strip(), out, err)


def comparable(command, text):
    """The lines that are the same in each run without a fault, without their numbers."""
    # Whether a busy machine stops the program for a time is no matter here.
    lines = [line for line in text.splitlines() if 'the monitor did not run' not in line]
    if command == 'ps':  # the processes of other runs come and go
        lines = [line for line in lines if '"cmdline":"sleep 98765"' in line]
    if command == 'init':
        lines = [line for line in lines if line and not line.startswith('#')]
    return sorted(re.sub(r'\s+', ' ', re.sub(r'\d+', 'N', line)) for line in lines)


def broken_rule(case, run, right):
    """The rule that this run breaks; None if there is none."""
    if run.status < 0:
        return 'hangs'
    if os.WIFSIGNALED(run.status):
        return f'killed by signal {os.WTERMSIG(run.status)}'
    if run.left:
        return 'a process is left'
    code = os.WEXITSTATUS(run.status)
    if code > 3:
        return f'exit status {code}'
    # A process whose files cannot be read is like one that has ended, and standard error can be
    # what cannot be written.
    is_excused = (re.match(r'/proc/\d', run.path) or case.call == 'write' and case.always or
                  run.err or re.search('unjudged|failed|absent', run.out) or
                  run.out.count('null') > right.out.count('null'))
    if is_excused:
        return None
    if code != 0:
        return f'exit status {code} without a reason'
    if comparable(case.command, run.out) != comparable(case.command, right.out):
        return 'other output with exit status 0'
    return None


def positions(count, small):
    if count == 0:
        return []
    if small:
        return sorted({1, count // 2 + 1})
    return sorted(set(range(1, min(count, 12) + 1)) | {1 + count * i // 12 for i in range(12)})


def cases_of(command, call, count, small):
    errors = [errno.ENOMEM] if call == 'memory' else CALLS[call][1]
    for index, at in enumerate(positions(count, small)):
        for error in ([errors[index % len(errors)]] if small else errors):
            yield Case(command, call, error, at, False)
            # A call that is interrupted for ever is repeated for ever, and /proc never gives single
            # bytes.
            lasts = error != errno.EINTR and (call, error) != ('read', SHORT)
            if lasts and not (small and index > 0):
                yield Case(command, call, error, at, True)


def run_all(harness, small):
    never = 10**9
    tally = collections.defaultdict(lambda: [0, 0])
    with concurrent.futures.ThreadPoolExecutor(3) as pool:
        whole = {command: harness.run(Case(command, 'read', 0, never, False))
                 for command in harness.commands}
        for command, run in whole.items():
            if run.status != 0 or not run.out and command != 'silence':
                raise RuntimeError(f'{command} fails without a fault: {run}')
        counting = [Case(command, call, 0, never, False)
                    for command in harness.commands for call in [*CALLS, 'memory']]
        cases = []
        for case, run in zip(counting, pool.map(harness.run, counting)):
            cases += cases_of(case.command, case.call, run.calls, small)
        for case, run in zip(cases, pool.map(harness.run, cases)):
            if run.faults == 0:
                continue  # the number of calls changes a little from run to run
            row = tally[case.command]
            row[0] += 1
            rule = broken_rule(case, run, whole[case.command])
            if rule:
                row[1] += 1
                print(f'{case.command}: {case.call} {case.at} '
                      f'{"always" if case.always else "once"} '
                      f'{errno.errorcode.get(case.error, "short")} {run.path}: {rule}\n'
                      f'    {run.out[-300:]!r} {run.err[-300:]!r}', flush=True)
    return tally


def main():
    small = '--small' in sys.argv
    mount = ['mount', '-t', 'tmpfs', 'tmpfs', '/dev/shm']
    if subprocess.run(mount, stderr=subprocess.DEVNULL).returncode != 0:
        print('needs root or user namespaces, to mount')
        return 77
    with tempfile.TemporaryDirectory(prefix='faults-') as folder:
        harness = Harness(os.path.abspath(sys.argv[1]), folder)
        surroundings = list(harness.start_surroundings())
        tally = run_all(harness, small)
        for process in surroundings:
            process.kill()
            process.wait()
        tally['run that lives'] = faults_of_a_run.try_living_run(harness.binaries, folder, small)
    for command, (cases, broken) in tally.items():
        print(f'{command:28} {cases:6} cases {broken:6} failures')
    total, broken = (sum(row[i] for row in tally.values()) for i in (0, 1))
    print(f'{"all":28} {total:6} cases {broken:6} failures')
    return 1 if broken or total == 0 else 0


sys.exit(main())
