#!/usr/bin/env python3
"""watch_memory.py MONITOR: memory for each watch with a full history.

Runs MONITOR with 100 watches, then with 1,100, until each history is full, while a client asks for
the whole state every second. The result is the difference of the resident memory for each watch.
"""
import http.client
import json
import os
import re
import subprocess
import sys
import tempfile
import time

KEPT = 660


def get(path, port):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=30)
    connection.request("GET", path)
    body = json.loads(connection.getresponse().read())
    connection.close()
    return body


def resident_kib(count, port):
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "watches.toml")
        with open(path, "w", encoding="ascii") as file:
            file.write(f'workers = 4\n[http]\nlisten = "127.0.0.1:{port}"\n')
            for i in range(count):
                file.write(
                    f'[[instance]]\nname = "watch-{i}"\nitem = "GetDiskUsage"\nperiod = 0.1\n'
                    'params = [{ name = "Directory", value = "/" }]\n'
                    "alarm = { above = 99.5, for = 3 }\n"
                )
        os.chmod(path, 0o644)
        command = [sys.argv[1], "run", "--config", path]
        with subprocess.Popen(command, stdout=subprocess.DEVNULL) as process:
            try:
                answers = 0
                while answers < KEPT:
                    time.sleep(1)
                    watches = get("/api/status", port)["watches"]
                    answers = min(sum(watch["answers"].values()) for watch in watches)
                with open(f"/proc/{process.pid}/status", encoding="ascii") as file:
                    return int(re.search(r"VmRSS:\s+(\d+)", file.read()).group(1))
            finally:
                process.terminate()


few, many = resident_kib(100, 9757), resident_kib(1100, 9758)
print(f"100 watches: {few} KiB; 1,100 watches: {many} KiB; each: {(many - few) / 1000:.1f} KiB")
