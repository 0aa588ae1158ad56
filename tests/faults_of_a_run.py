"""A `run` that lives while its allocations fail, for faults.py.

In each turn a watched process ends and comes back, so that an alarm is raised, reported, delivered to
a command, kept in the state file and cleared; the configuration is read again; clients ask for
everything. Allocations fail meanwhile, and the monitor must go on, do all of this or say what was
lost, and end with 0 at the end."""
import json
import mmap
import os
import random
import signal
import socket
import struct
import subprocess
import threading
import time

PATIENCE = 20  # seconds until something that must happen counts as missed
NEVER = 1 << 60


class Rule:
    """The file by which failing_malloc.c knows the allocations that fail."""
    LAYOUT = '5q'  # number, failed, first, step, length

    def __init__(self, path):
        with open(path, 'wb') as file:
            file.write(bytes(struct.calcsize(self.LAYOUT)))
        with open(path, 'r+b') as file:
            self.map = mmap.mmap(file.fileno(), 0)
        self.environment = {'MIRT_FAULTS': path}

    def set(self, first=0, step=NEVER, length=1):
        struct.pack_into(self.LAYOUT, self.map, 0, 0, 0, first, step, length)

    def counts(self):
        """Allocations and failures since the rule was set."""
        return struct.unpack_from('2q', self.map)


class LivingRun:
    def __init__(self, binaries, folder):
        self.binaries, self.folder = binaries, folder
        self.config, self.told, self.socket = (
            os.path.join(folder, name) for name in ('living.toml', 'told', 'living'))
        self.turn = 0
        self.victim = self.new_victim()
        self.configure()
        self.start()

    def new_victim(self):
        return subprocess.Popen(['sleep', '54321'])

    def configure(self):
        """Every second configuration has one watch more."""
        with open(self.config + '.new', 'w') as file:
            file.write(
                f'every = "50 ms"\nstate = "{self.folder}/state.json"\n[machine]\nmemory = true\n'
                + ('cpu = true\n' if self.turn % 2 else '') +
                f'[alert.teller]\ncommand = ["/bin/sh", "-c", "cat >> {self.told}"]\n'
                'report = { item = "SendErrRptExtend", params = ['
                '{ name = "ErrCode", value = "0xF0000203" }] }\n'
                '[[process]]\nname = "victim"\nexact = "sleep 54321"\nmemory = true\n'
                'running = { alert = "teller" }\n')
        os.rename(self.config + '.new', self.config)

    def start(self):
        self.rule = Rule(os.path.join(self.folder, 'rule'))
        self.lines, self.log = [], []
        preload = {'LD_PRELOAD': os.path.join(self.binaries, 'failing_malloc.so')}
        self.process = subprocess.Popen(
            [os.path.join(self.binaries, 'mirt-monitor'), 'run', '--json', '--config', self.config,
             '--socket', self.socket], env={**os.environ, **preload, **self.rule.environment},
            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        pairs = (self.process.stdout, self.lines), (self.process.stderr, self.log)
        self.readers = [threading.Thread(target=list.extend, args=(lines, pipe))
                        for pipe, lines in pairs]
        for reader in self.readers:
            reader.start()
        if not self.wait(lambda: self.has(0, instance='victim.running', state='ok')):
            raise RuntimeError(f'the run does not start: {self.log}')

    def wait(self, condition, gives_up=lambda: False):
        """Whether it becomes true; a loss that was said has half a second more."""
        until = time.monotonic() + PATIENCE
        while time.monotonic() < until and self.process.poll() is None:
            if condition():
                return True
            if gives_up():
                until = min(until, time.monotonic() + 0.5)
            time.sleep(0.002)
        return condition()

    def has(self, mark, **keys):
        return any(all(record.get(key) == value for key, value in keys.items())
                   for record in map(json.loads, self.lines[mark:]))

    def ask(self, path):
        """The answer of the status interface; empty if there is none."""
        with socket.socket(socket.AF_UNIX) as client:
            client.settimeout(PATIENCE)
            answer = b''
            try:
                client.connect(self.socket)
                client.sendall(f'GET {path} HTTP/1.1\r\nHost: localhost\r\n\r\n'.encode())
                while part := client.recv(1 << 16):
                    answer += part
            except ConnectionError:
                return b''
            return answer

    def told_since(self, size):
        return os.path.exists(self.told) and os.path.getsize(self.told) > size

    def take_turn(self):
        """What was missing."""
        mark, said = len(self.lines), len(self.log)
        size = os.path.getsize(self.told) if os.path.exists(self.told) else 0

        def is_said():
            return b'memory' in b''.join(self.log[said:]) or b'out of memory' in b''.join(
                self.lines[mark:])

        missing = []

        def expect(what, condition):
            if not self.wait(condition, is_said) and not is_said():
                missing.append(what)

        def change(state):
            return {'kind': 'alarm', 'instance': 'victim.running', 'state': state}

        asking = threading.Thread(target=lambda: [self.ask(path) for path in (
            '/api/status', '/metrics', '/api/watch/victim.running', '/api/alarms', '/healthz')])
        asking.start()
        self.victim.kill()
        self.victim.wait()
        expect('raised', lambda: self.has(mark, **change('raised')))
        expect('report', lambda: self.has(mark, kind='report'))
        expect('delivery', lambda: self.told_since(size))
        self.victim = self.new_victim()
        self.turn += 1
        self.configure()
        self.process.send_signal(signal.SIGHUP)
        expect('cleared', lambda: self.has(mark, **change('cleared')))
        expect('reload', lambda: b'configuration reloaded' in b''.join(self.lines[mark:]))
        asking.join()
        return missing

    def fail(self, **rule):
        """The rule that the run breaks, or None; and the number of failures."""
        self.rule.set(**rule)
        missing = self.take_turn()
        count, failed = self.rule.counts()
        self.rule.set()
        mark = len(self.lines)
        beats = self.wait(lambda: self.has(mark, instance='victim.running', state='ok'))
        if self.process.poll() is not None:
            broken = f'ends with {self.process.returncode}'
        elif not beats or b'"victim.running"' not in self.ask('/api/status'):
            broken = 'goes on no more'
        else:
            broken = f'without a word: {missing}' if missing else None
        del self.lines[:-100]
        return broken, count, failed

    def end(self):
        self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
        for reader in self.readers:
            reader.join()
        return self.process.wait()

    def restart(self):
        status = self.end()
        self.start()
        return status


def rules_of(count, small):
    """Each allocation of a turn fails once, far from the others; then some in a row."""
    step = 499 if small else 97
    firsts = [1 + step * i // 3 for i in range(3)] if small else range(1, step + 1)
    for first in firsts:
        yield {'first': first, 'step': step}
    for length in (10, 100, 1000):
        for _ in range(1 if small else 30):
            yield {'first': random.randrange(1, count), 'length': length}


def try_living_run(binaries, folder, small):
    """The number of failed allocations, and that of broken rules, each of which is printed."""
    run = LivingRun(binaries, folder)
    _, count, _ = run.fail()
    failures = broken = 0
    for rule in rules_of(count, small):
        reason, _, failed = run.fail(**rule)
        failures += failed
        if reason:
            broken += 1
            print(f'run: {rule}: {reason}\n    {run.log[-5:]}', flush=True)
            run.restart()
    status = run.end()
    if status != 0:
        broken += 1
        print(f'run: ends with {status}: {run.log[-3:]}', flush=True)
    run.victim.kill()
    run.victim.wait()
    return failures, broken
