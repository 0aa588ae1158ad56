#!/usr/bin/python3
"""page_test.py MONITOR HUNG_THREAD: the page of a running monitor, in a real browser. Status 77: there is no browser."""
import contextlib
import ctypes
import os
import socket
import struct
import subprocess
import sys
import tempfile
import time

# Text of a process that wants to become part of the page, and to reorder it.
HOSTILE = '<script>hacked=1</script><img src=x onerror="hacked=1">\u202etxt.exe\x1b[2J'
SHOWN = HOSTILE.replace("\u202e", "<U+202E>").replace("\x1b", "<U+001B>")

# The lowest contrast of a text with its ground, and that text.
LOWEST_CONTRAST = """
const numbers = (color) => color.match(/[\\d.]+/g).map(Number);
const light = (color) => numbers(color).slice(0, 3).map((c) => c / 255)
  .map((c) => c <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4)
  .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0);
const ground = (e) => !e ? 'rgb(255, 255, 255)' : numbers(getComputedStyle(e).backgroundColor)[3] === 0
  ? ground(e.parentElement) : getComputedStyle(e).backgroundColor;
return [...document.querySelectorAll('body *')]
  .filter((e) => [...e.childNodes].some((n) => n.nodeType === 3 && n.data.trim()) && e.checkVisibility())
  .map((e) => [light(getComputedStyle(e).color), light(ground(e)), e.textContent])
  .map(([a, b, text]) => [(Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05), text])
  .reduce((lowest, each) => each[0] < lowest[0] ? each : lowest)
"""


def skip(reason):
    print(f"Skipped: {reason}")
    sys.exit(77)


try:
    from selenium import webdriver
    from selenium.common.exceptions import WebDriverException
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.keys import Keys
except ImportError as error:
    skip(f"python3-selenium is missing ({error})")


def start_browser():
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--window-size=1200,900"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    try:
        return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    except WebDriverException as error:
        return skip(f"chromium does not start ({error.msg})")


def until(what, condition):
    """The time limit is that of the whole test."""
    print("waits until", what, flush=True)
    while not condition():
        time.sleep(0.05)


class Page:
    def __init__(self, browser, address):
        self.browser = browser
        self.address = address
        browser.get(address)

    def run(self, script, *arguments):
        return self.browser.execute_script(script, *arguments)

    def text(self, selector):
        return self.run("return document.querySelector(arguments[0])?.innerText ?? ''", selector)

    def rows(self, table):
        return self.run("return [...document.querySelectorAll(`#${arguments[0]} tbody tr`)]"
                        ".filter((row) => !row.hidden).map((row) => row.innerText)", table)

    def row(self, table, text):
        return next((row for row in self.rows(table) if text in row), "")

    def line_of(self, name):
        return self.run("return [...document.querySelectorAll('#watches tr')]"
                        ".find((row) => row.innerText.includes(arguments[0]))"
                        "?.querySelector('path').getAttribute('d')", name)

    def errors(self):
        return [entry["message"] for entry in self.browser.get_log("browser")]

    def press(self, *keys):
        self.browser.switch_to.active_element.send_keys(*keys)

    def check_contrast(self, scheme):
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]})
        lowest, text = self.run(LOWEST_CONTRAST)
        assert lowest >= 4.5, (scheme, lowest, text)

    def focused(self):
        """What has the focus, in the order of the Tab key. All of it has a visible outline."""
        order = []
        self.run("document.activeElement.blur(); scrollTo(0, 0)")
        while True:
            self.press(Keys.TAB)
            name, outline = self.run(
                "const e = document.activeElement, style = getComputedStyle(e);"
                "return [e.id || e.ariaLabel || e.innerText,"
                "        style.outlineStyle === 'none' ? 0 : parseFloat(style.outlineWidth)]")
            if self.run("return document.activeElement === document.body") or name in order:
                return order
            assert outline >= 2, f"{name} shows no focus"
            order.append(name)


def check_semantics(page):
    """On a phone too, where rows become cards."""
    page.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
        "width": 390, "height": 844, "deviceScaleFactor": 1, "mobile": True})
    assert page.run("return document.documentElement.scrollWidth <= innerWidth")
    nodes = page.browser.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
    names = {}
    for node in nodes:
        if not node["ignored"]:
            names.setdefault(node["role"]["value"], []).append(node.get("name", {}).get("value"))
    assert len(names["table"]) == 4 and all(names["table"]), names["table"]
    assert len(names["columnheader"]) == 5 + 6 + 7, names["columnheader"]
    for name in ("job.running", "machine.memory"):
        assert names["rowheader"].count(name) == 2, names["rowheader"]
    assert all(names["image"] + names["searchbox"] + names["button"]), names
    page.browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})


def check_troubles(page, job):
    until("a warning is there", lambda: len(page.rows("wrong")) >= 1)
    until("the hung thread is there", lambda: "critical" in page.row("wrong", "weird"))
    until("the failing alert is there", lambda: "ops (command) fails" in page.row("wrong", "the monitor itself"))
    assert "job.running" not in "".join(page.rows("wrong"))
    before = page.line_of("machine.memory")  # a constant value draws the same line once its history is full
    until("values move", lambda: page.line_of("machine.memory") != before)
    assert page.row("watches", "job.running").split()[:3] == ["ok", "job.running", "1"]
    page.run("window.news = [];"
             "new MutationObserver(() => news.push(document.getElementById('news').innerText))"
             ".observe(document.getElementById('news'), { childList: true })")
    job.kill()
    job.wait()
    until("the alarm is there", lambda: page.row("wrong", "job.running"))
    rows = page.rows("wrong")
    row = next(row for row in rows if "job.running" in row)
    assert "critical" in row and "killed by signal 9" in row and "\t0\t" in row, row
    assert rows.index(row) < min(i for i, each in enumerate(rows) if "warning" in each), rows
    assert page.row("watches", "job.running").split()[:3] == ["alarm", "job.running", "0"]
    news = page.run("return news")
    assert any(each.startswith("New: critical: job.running") for each in news), news
    assert page.text("#summary").startswith("2 critical, 1 warning."), page.text("#summary")
    assert page.row("heartbeats", "\t77\t").split()[-2:] == ["9", "no"], page.rows("heartbeats")


def check_hostile_text(page):
    assert SHOWN in page.text("#hung"), page.text("#hung")
    assert "_do_sys_vfork" in page.text("#hung pre") or "not readable" in page.text("#hung pre")
    assert "<b>weird" in page.row("watches", "weird")
    assert page.run("return document.querySelectorAll('main img, main script, main b').length") == 0
    assert page.errors() == []
    # Even if such text became part of the page, it could do nothing.
    page.run("document.body.insertAdjacentHTML('beforeend', arguments[0]);"
             "document.body.append(Object.assign(document.createElement('script'),"
             "                                   {textContent: 'hacked = 1'}))", HOSTILE)
    until("the browser refuses it", lambda: any("Content Security Policy" in each for each in page.errors()))
    assert page.run("return window.hacked") is None
    page.browser.refresh()
    until("the page is back", lambda: page.row("wrong", "job.running"))


def check_keyboard(page):
    order = page.focused()
    links = page.run("return [...document.querySelectorAll('#wrong a')].map((a) => a.innerText)")
    assert order == ["Skip to the watches", "pause", *links, "filter", "Table of heartbeats"], order
    page.run("document.getElementById('filter').focus()")
    page.press("job")
    assert page.text("#shown") == "2 of 5 watches", (page.text("#shown"), page.rows("watches"))
    page.run("document.querySelector('#wrong a').focus()")
    page.press(Keys.ENTER)
    until("the link leads to the watch",
          lambda: page.run("return document.activeElement === document.querySelector('tr:target')"))
    page.run("document.getElementById('pause').focus()")
    page.press(Keys.SPACE)
    assert page.text("#pause") == "Continue"
    page.press(Keys.SPACE)


def check_origin(page):
    log = [entry["message"] for entry in page.browser.get_log("performance")]
    asked = [each.split('"url":"')[1].split('"')[0] for each in log
             if '"Network.requestWillBeSent"' in each]
    assert len(asked) > 10 and all(each.startswith(page.address) for each in asked), asked


def check_end(page, monitor, start):
    monitor.terminate()
    monitor.wait()
    until("the page says that the monitor has gone", lambda: "cannot be reached" in page.text("#gone"))
    assert page.row("watches", "job.running"), "the last state stays"
    page.check_contrast("light")
    start()
    until("the page finds the monitor again", lambda: page.text("#gone") == "")


def main(monitor_path, hung_thread_path):
    # Private mounts, for a table of heartbeats of its own.
    if ctypes.CDLL(None).unshare(0x00020000) != 0:
        skip("no right to mount")
    subprocess.run(["mount", "--make-rprivate", "/"], check=True)
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/dev/shm"], check=True)
    with open("/dev/shm/MIRT_AGENT_HEARTBEAT", "wb") as table:
        table.write(struct.pack("<IIQII", os.getpid(), 77, 5, 9, 0))
        table.write(struct.pack("<IIQII", 2**32 - 1, 0xFFFF, 0, 2**32 - 1, 0) * 49)

    with socket.socket() as probe, contextlib.ExitStack() as stack:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
        probe.close()
        folder = stack.enter_context(tempfile.TemporaryDirectory(ignore_cleanup_errors=True))
        os.environ["TMPDIR"] = folder  # a browser that is killed leaves files there
        with open(f"{folder}/a.toml", "w", encoding="utf-8") as file:
            file.write(f"""
                every = "100ms"
                http.listen = "127.0.0.1:{port}"
                process = [
                  {{ name = "<b>weird", match = "<script>*", hung = true, memory = true }},
                  {{ name = "job", exact = "job 100000", running = true, memory = true }},
                ]
                [machine]
                memory = {{ above = 0, severity = "warning", alert = ["ops"] }}
                [alert.ops]
                command = ["false"]
                """)

        def started(*command, **options):
            process = subprocess.Popen(command, stdout=subprocess.DEVNULL, **options)
            stack.callback(process.wait)
            stack.callback(process.kill)
            return process

        def start_monitor():
            return started(monitor_path, "run", "--config", f"{folder}/a.toml", "--allow-writable-config")

        started(HOSTILE, executable=hung_thread_path)
        job = started("job", "100000", executable="/bin/sleep")
        browser = start_browser()
        stack.callback(browser.quit)
        monitor = start_monitor()
        until("the monitor answers", lambda: socket.socket().connect_ex(("127.0.0.1", port)) == 0)
        page = Page(browser, f"http://127.0.0.1:{port}/")
        check_troubles(page, job)
        check_hostile_text(page)
        for scheme in ("dark", "light"):
            page.check_contrast(scheme)
        check_semantics(page)
        check_keyboard(page)
        check_origin(page)
        check_end(page, monitor, start_monitor)


main(*sys.argv[1:])
