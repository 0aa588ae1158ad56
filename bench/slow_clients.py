#!/usr/bin/env python3
"""slow_clients.py MONITOR [SECONDS [CLIENTS]]: what slow and hostile clients do to a running monitor.

Runs MONITOR with 100 watches, each called ten times a second, in turns without and with CLIENTS
(1,000) clients for SECONDS (20). A third of the clients send a request of one byte a second, a third
ask for the largest answer and read one byte a second, a third send garbage. A client that is
disconnected connects again a second later. Beside them a well-behaved client asks for /healthz again
and again.
"""
import http.client
import os
import random
import re
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

monitor = sys.argv[1]
seconds = float(sys.argv[2]) if len(sys.argv) > 2 else 20
client_count = int(sys.argv[3]) if len(sys.argv) > 3 else 1000
rounds = 3


class Client:
    """One slow or hostile client: step() does what it does each second."""

    def __init__(self, kind):
        self.kind, self.socket, self.sent = kind, None, 0

    def connect(self):
        self.socket = socket.socket()
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
        self.socket.setblocking(False)
        self.socket.connect_ex(("127.0.0.1", port))
        self.sent = 0

    def step(self):
        try:
            if self.socket is None:
                self.connect()
            elif self.kind == 0:
                request = b"GET /api/status HTTP/1.1\r\nHost: localhost\r\nX-Slow: " + b"x" * 1000
                self.socket.send(request[self.sent : self.sent + 1])
                self.sent += 1
            elif self.kind == 1 and self.sent == 0:
                self.sent = self.socket.send(b"GET /api/status?recent=600 HTTP/1.1\r\n\r\n")
            elif self.kind == 1:
                if not self.socket.recv(1):
                    self.close()
            else:
                self.socket.send(random.randbytes(1000))
        except BlockingIOError:
            pass
        except OSError:
            self.close()

    def close(self):
        if self.socket is not None:
            self.socket.close()
        self.socket = None


def play(clients, end):
    """Each client has its turn once a second, one after the other."""
    while time.monotonic() < end:
        for client in clients:
            client.step()
            time.sleep(0.9 / len(clients))
    for client in clients:
        client.close()


def get(path):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=30)
    connection.request("GET", path)
    answer = connection.getresponse()
    body = answer.read().decode()
    connection.close()
    return answer.status, body


def lateness():
    """The histogram of the metrics: (bound, calls up to it) ..., and the sum."""
    text = get("/metrics")[1]
    found = re.findall(r'mirt_schedule_lateness_seconds_bucket\{le="([^"]*)"\} (\d+)', text)
    total = float(re.search(r"mirt_schedule_lateness_seconds_sum (\S+)", text).group(1))
    return [(float(bound), int(count)) for bound, count in found], total


def process_figures():
    with open(f"/proc/{process.pid}/status", encoding="ascii") as file:
        rss_kib = int(re.search(r"VmRSS:\s+(\d+)", file.read()).group(1))
    return rss_kib / 1024, len(os.listdir(f"/proc/{process.pid}/fd"))


def measure(with_clients):
    """One turn; the row of the table."""
    players = []
    end = time.monotonic() + seconds
    if with_clients:
        clients = [Client(i % 3) for i in range(client_count)]
        players = [threading.Thread(target=play, args=(clients[i::4], end)) for i in range(4)]
        for player in players:
            player.start()
        time.sleep(2)
    (before, sum_before), times, failures, most_mib, most_fds = lateness(), [], 0, 0, 0
    while time.monotonic() < end - 0.5:
        start = time.monotonic()
        try:
            failures += get("/healthz")[0] != 200
        except OSError:
            failures += 1
        times.append((time.monotonic() - start) * 1000)
        mib, fds = process_figures()
        most_mib, most_fds = max(most_mib, mib), max(most_fds, fds)
        time.sleep(0.05)
    after, sum_after = lateness()
    for player in players:
        player.join()
    counts = [(bound, now - then) for (bound, now), (_, then) in zip(after, before)]
    calls = counts[-1][1]
    p99 = next(bound for bound, count in counts if count >= 0.99 * calls)
    p999 = next(bound for bound, count in counts if count >= 0.999 * calls)
    return (
        f"{client_count if with_clients else 0:>7} {calls:>7} {(sum_after - sum_before) / calls * 1000:>8.3f}"
        f" {p99 * 1000:>6g} {p999 * 1000:>6g} {most_mib:>6.1f} {most_fds:>5} {len(times):>6}"
        f" {statistics.median(times):>7.1f} {max(times):>7.1f} {failures:>8}"
    )


with socket.socket() as probe:
    probe.bind(("127.0.0.1", 0))
    port = probe.getsockname()[1]
with tempfile.TemporaryDirectory() as folder:
    path = os.path.join(folder, "watches.toml")
    os.chmod(folder, 0o755)
    with open(path, "w", encoding="ascii") as file:
        file.write(f'[http]\nlisten = "127.0.0.1:{port}"\n')
        for i in range(100):
            file.write(f'[[instance]]\nname = "m{i}"\nitem = "GetSysMemory"\nperiod = 0.1\n')
    os.chmod(path, 0o644)
    with subprocess.Popen([monitor, "run", "--config", path], stdout=subprocess.DEVNULL) as process:
        try:
            time.sleep(3)
            print("                 lateness, ms                          well-behaved client, ms")
            print("clients   calls     mean  99 %<= 99.9<=   MiB  files answers  median    most failures")
            for _ in range(rounds):
                print(measure(False), flush=True)
                print(measure(True), flush=True)
        finally:
            process.terminate()
