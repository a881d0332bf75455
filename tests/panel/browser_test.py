#!/usr/bin/python3
"""The panel in a real browser: headless Chromium, driven through
chromedriver by Selenium, against `logohost panel` and an animated
`logohost sim` that logs every request it gets.

Each check waits for its condition with a generous deadline; nothing here
measures time, except the page-load figures it prints for the record.

Exit status 77 (skipped) only when Chromium or its driver is not installed.
"""
import argparse
import json
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.parse
import urllib.request
from datetime import datetime

DEADLINE = 20  # seconds for any one condition
SKIPPED = 77

# The built-in screens (host/panel/builtin_screens.json): what each screen
# asks the controller for, in the simulator's log.
AQ1_READ = "unit 1 function 3 address 512 quantity 1"  # overview only
SETUP_WORDS_READ = "unit 1 function 3 address 10 quantity 2"  # VW20 and VW22, setup only
TREND_READ = "unit 1 function 4 address 0 quantity 2"  # AI1 and AI2, trended: always
VW20_REGISTER = 10
M1_COIL = 8256

ARGS = None


def bar_alarms(counts):
    """The bar's alarm counts as the page words them."""
    parts = ["%d %s" % (counts[key], key) for key in ("active", "unacknowledged", "unknown") if counts[key]]
    return "Alarms: " + " · ".join(parts) if parts else "No alarms"


def history_folder():
    """Each panel its own history: two on one folder would share nothing."""
    return tempfile.mkdtemp(prefix="panel-history-")


def wait_until(condition, what, deadline=DEADLINE):
    end = time.monotonic() + deadline
    while time.monotonic() < end:
        result = condition()
        if result:
            return result
        time.sleep(0.1)
    raise AssertionError("not within %d s: %s" % (deadline, what))


class Program:
    """A logohost process whose standard output is collected line by line."""

    def __init__(self, args):
        self.process = subprocess.Popen(args, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                        stdin=subprocess.PIPE, text=True)
        self.lines = []
        self.lock = threading.Lock()
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    def _read(self):
        for line in self.process.stdout:
            with self.lock:
                self.lines.append(line.rstrip("\n"))

    def snapshot(self):
        with self.lock:
            return list(self.lines)

    def first(self, pattern):
        regex = re.compile(pattern)

        def found():
            for line in self.snapshot():
                match = regex.search(line)
                if match:
                    return match
            return None
        return wait_until(found, "a line matching " + pattern)

    def tell(self, line):
        """A command on standard input (the simulator's pause and resume)."""
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def stop(self):
        self.process.send_signal(signal.SIGINT)
        try:
            status = self.process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            status = self.process.wait()
        self.process.stdin.close()
        self.reader.join(timeout=5)
        self.process.stdout.close()
        return status


def recv_exact(sock, size):
    data = b""
    while len(data) < size:
        chunk = sock.recv(size - len(data))
        if not chunk:
            raise ConnectionError("the controller closed the connection")
        data += chunk
    return data


def modbus_read(port, function, address, count):
    """What an independent Modbus client finds in the controller."""
    with socket.create_connection(("127.0.0.1", port), timeout=5) as sock:
        sock.sendall(struct.pack(">HHHBBHH", 1, 0, 6, 1, function, address, count))
        _, _, length, _ = struct.unpack(">HHHB", recv_exact(sock, 7))
        body = recv_exact(sock, length - 1)
        if body[0] & 0x80:
            raise AssertionError("Modbus exception %d" % body[1])
        data = body[2:2 + body[1]]
        if function in (1, 2):
            return [(data[i // 8] >> (i % 8)) & 1 for i in range(count)]
        return [struct.unpack(">H", data[2 * i:2 * i + 2])[0] for i in range(count)]


class PanelInBrowser(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.sim = Program([ARGS.logohost, "sim", "--listen", "127.0.0.1:0", "--animate", "--log-requests"])
        cls.sim_port = int(cls.sim.first(r"listening on 127\.0\.0\.1:(\d+)").group(1))
        cls.data = history_folder()
        cls.panel = Program([ARGS.logohost, "--driver", ARGS.driver, "--plc", "127.0.0.1:%d" % cls.sim_port,
                             "panel", "--listen", "127.0.0.1:0", "--data", cls.data])
        cls.base = cls.panel.first(r"open (http://127\.0\.0\.1:\d+/)").group(1)
        cls.bases = [cls.base]  # every panel this test started
        options = webdriver.ChromeOptions()
        options.binary_location = shutil.which("chromium")
        cls.profile = tempfile.mkdtemp(prefix="panel-chromium-")
        # Headless and quiet: no sandbox (the tests may run as root), and
        # none of the browser's own connections to other sites.
        for flag in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update", "--disable-sync",
                     "--disable-default-apps", "--user-data-dir=" + cls.profile, "--window-size=1280,900"):
            options.add_argument(flag)
        options.set_capability("goog:loggingPrefs", {"performance": "ALL", "browser": "ALL"})
        cls.browser = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)
        cls.requested = []

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        shutil.rmtree(cls.profile, ignore_errors=True)
        panel_status = cls.panel.stop()
        cls.sim.stop()
        shutil.rmtree(cls.data, ignore_errors=True)
        assert panel_status == 0, "the panel ended with status %d on Ctrl-C" % panel_status

    # ---- helpers -------------------------------------------------------------

    def reading(self, var):
        """The value shown for var, "" while the page has not drawn it yet."""
        found = self.browser.find_elements(By.CSS_SELECTOR, '[data-var="%s"] .reading' % var)
        return found[0].text if found else ""

    def toast(self, text):
        def shown():
            return any(text in t.text for t in self.browser.find_elements(By.CSS_SELECTOR, ".toast"))
        wait_until(shown, "a message saying " + repr(text))

    def requests_since(self, mark):
        return [line[len("request "):] for line in self.sim.snapshot()[mark:] if line.startswith("request ")]

    def link_text(self):
        return self.browser.find_element(By.CSS_SELECTOR, "#link .link-text").text

    def api(self, path):
        with urllib.request.urlopen(self.base + path.lstrip("/"), timeout=10) as response:
            return json.load(response)

    def shown(self, selector, attribute=None):
        """An element's text or attribute read at once, None when there is no
        such element: the status page draws itself anew every second."""
        return self.browser.execute_script(
            "const e = document.querySelector(arguments[0]);"
            "return e ? (arguments[1] ? e.getAttribute(arguments[1]) : e.textContent) : null;", selector, attribute)

    def narrow_screenshot(self, name, height=900):
        """The page as a phone shows it, 390 px wide: nothing wider than the
        window, and a picture in --out to look at."""
        self.browser.set_window_size(390, height)
        try:
            overflow = self.browser.execute_script(
                "return document.documentElement.scrollWidth - document.documentElement.clientWidth")
            self.assertLessEqual(overflow, 0, "the page scrolls sideways in a narrow window")
            self.browser.save_screenshot(os.path.join(ARGS.out, name))
        finally:
            self.browser.set_window_size(1280, 960)

    def collect_requests(self):
        """The addresses the browser asked for since the last call."""
        for entry in self.browser.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                self.requested.append(message["params"]["request"]["url"])

    # ---- the checks, in order: one browser walks through the panel ---------

    def test_1_values_change_live(self):
        started = time.monotonic()
        self.browser.get(self.base + "screen/overview")
        number = re.compile(r"^-?\d+(\.\d+)?$")
        wait_until(lambda: number.match(self.reading("AI1")), "a value for AI1")
        first_value = time.monotonic() - started
        timing = self.browser.execute_script(
            "const n = performance.getEntriesByType('navigation')[0];"
            "return [n.domContentLoadedEventEnd, n.loadEventEnd];")
        print("\npage load: DOMContentLoaded %.0f ms, load %.0f ms, first value shown %.0f ms after the request"
              % (timing[0], timing[1], first_value * 1000), file=sys.stderr)
        seen = set()
        wait_until(lambda: seen.add(self.reading("AI1")) or len(seen) >= 3, "AI1 changing on the page")
        items = self.browser.find_elements(By.CSS_SELECTOR, "[data-var]")
        self.assertEqual([item.get_attribute("data-var") for item in items],
                         ["AI1", "AI2", "Q1", "Q2", "AQ1", "I1", "I2", "VW0"])
        card = self.browser.find_element(By.CSS_SELECTOR, '[data-var="AI1"]')
        wait_until(lambda: card.find_element(By.CSS_SELECTOR, ".state").text == "ok", "AI1's state ok")
        self.assertRegex(card.find_element(By.CSS_SELECTOR, ".changed").text, r"^updated (just now|\d+ s ago)$")
        self.assertEqual(len(card.find_elements(By.CSS_SELECTOR, "canvas")), 1, "AI1 is trended")
        self.assertEqual(len(self.browser.find_elements(By.CSS_SELECTOR, '[data-var="Q1"] .switch')), 1)
        self.assertEqual(len(self.browser.find_elements(By.CSS_SELECTOR, '[data-var="AQ1"] input')), 1)

    def test_2_requests_follow_the_screen(self):
        wait_until(lambda: AQ1_READ in self.requests_since(0), "the overview's AQ1 being read")
        mark = len(self.sim.snapshot())
        self.browser.find_element(By.LINK_TEXT, "Setup").click()
        wait_until(lambda: SETUP_WORDS_READ in self.requests_since(mark), "the setup screen's words being read")

        def overview_left():
            # Many requests after the last one for the overview, the trends among them.
            since = self.requests_since(mark)
            last = max((i for i, line in enumerate(since) if line == AQ1_READ), default=-1)
            after = since[last + 1:]
            return len(after) >= 40 and TREND_READ in after and SETUP_WORDS_READ in after
        wait_until(overview_left, "the overview no longer being read once the browser left it")
        wait_until(lambda: self.api("/api/status")["scan"]["screens"] == ["setup"], "only setup subscribed")

    def test_3_write_with_the_pages_controls(self):
        self.assertTrue(self.browser.current_url.endswith("/screen/setup"))
        form = self.browser.find_element(By.CSS_SELECTOR, '[data-var="VW20"] form')
        field = form.find_element(By.CSS_SELECTOR, "input")
        field.clear()
        field.send_keys("43.2")
        form.find_element(By.CSS_SELECTOR, "button").click()
        self.toast("VW20 = 43.2 written")
        self.assertEqual(modbus_read(self.sim_port, 3, VW20_REGISTER, 1), [432])
        wait_until(lambda: self.reading("VW20") == "43.2", "the new setpoint shown")

        self.browser.find_element(By.CSS_SELECTOR, '[data-var="M1"] .switch').click()
        self.toast("M1 = Automatic written")
        self.assertEqual(modbus_read(self.sim_port, 1, M1_COIL, 1), [1])
        wait_until(lambda: self.reading("M1") == "Automatic", "the switched mode shown")

    def test_4_read_now(self):
        self.browser.find_element(By.XPATH, "//button[text()='Read now']").click()
        self.toast("read 5 variables")

    def test_5_narrow_window_and_screenshot(self):
        started = time.monotonic()
        self.browser.get(self.base + "screen/overview")
        wait_until(lambda: re.match(r"^\d", self.reading("AI1")), "a value for AI1")
        print("\npage load with a warm browser: first value shown %.0f ms after the request"
              % ((time.monotonic() - started) * 1000), file=sys.stderr)
        self.browser.set_window_size(1280, 960)

        # The overview's own controls: the pump on, its speed set.
        self.browser.find_element(By.CSS_SELECTOR, '[data-var="Q1"] .switch').click()
        self.toast("Q1 = Running written")
        form = self.browser.find_element(By.CSS_SELECTOR, '[data-var="AQ1"] form')
        form.find_element(By.CSS_SELECTOR, "input").send_keys("72.5")
        form.find_element(By.CSS_SELECTOR, "button").click()
        self.toast("AQ1 = 72.5 written")
        self.assertEqual(modbus_read(self.sim_port, 1, 8192, 1), [1])
        self.assertEqual(modbus_read(self.sim_port, 3, 512, 1), [725])
        wait_until(lambda: self.reading("Q1") == "Running" and self.reading("AQ1") == "72.5", "the pump shown running")

        # The picture for the README shows the charts' shape; the suite's
        # own screenshot needs only a line.
        target = os.environ.get("LOGO_PANEL_SCREENSHOT")
        history = 25000 if target else 1
        span = lambda: (lambda p: p[-1][0] - p[0][0] if len(p) > 1 else 0)(self.api("/api/trend?var=AI1")["points"])
        wait_until(lambda: span() >= history, "%d s of trend history" % (history // 1000), deadline=40)
        wait_until(lambda: "—" not in [r.text for r in self.browser.find_elements(By.CSS_SELECTOR, ".reading")],
                   "every value shown")
        self.browser.execute_script("document.getElementById('toasts').replaceChildren()")
        time.sleep(1)  # a settled frame for the picture, not a condition
        path = os.path.join(ARGS.out, "panel.png")
        self.browser.save_screenshot(path)
        if target:
            shutil.copyfile(path, target)
        print("screenshot: %s" % (target or path), file=sys.stderr)

        # The last hour from the history: the chart draws every span with a
        # value that the panel gives for its range, and its CSV is that range.
        card = self.browser.find_element(By.CSS_SELECTOR, '[data-var="AI1"]')
        card.find_element(By.XPATH, ".//button[text()='1 h']").click()

        def drawn_as_given():
            spans = self.shown('[data-var="AI1"] .chart', "data-spans")
            query = urllib.parse.urlparse(self.shown('[data-var="AI1"] .chart-tools a', "href") or "").query
            if not spans or "from=" not in query:
                return None
            given = self.api("/api/trend?" + query)["spans"]
            return int(spans) > 0 and int(spans) == len([s for s in given if s[1] is not None]) and query
        query = urllib.parse.parse_qs(wait_until(drawn_as_given, "the last hour's spans drawn as the panel gives them"))
        hour = datetime.fromisoformat(query["to"][0]) - datetime.fromisoformat(query["from"][0])
        self.assertEqual(hour.total_seconds(), 3600)
        self.narrow_screenshot("panel-narrow.png")

    def test_6_controller_lost_and_back(self):
        """A controller that stops answering: the link says since when and why,
        and values turn stale at once; then it comes back."""
        self.browser.get(self.base + "screen/overview")
        wait_until(lambda: self.link_text().startswith("link ok"), "the link ok")
        self.sim.tell("pause")
        wait_until(lambda: re.match(r"^not answering since \d\d:\d\d:\d\d: connection refused$", self.link_text()),
                   "the link saying the controller refuses connections")
        card = self.browser.find_element(By.CSS_SELECTOR, '[data-var="AI1"]')
        wait_until(lambda: card.get_attribute("data-state") != "ok", "AI1 no longer shown as good")
        self.assertNotEqual(card.find_element(By.CSS_SELECTOR, ".state").text, "ok")
        self.browser.save_screenshot(os.path.join(ARGS.out, "panel-link-down.png"))
        status = self.api("/api/status")
        self.assertEqual(status["link"]["link"]["state"], "not answering")
        self.assertEqual(status["link"]["link"]["cause"], "connection refused")
        self.sim.tell("resume")
        wait_until(lambda: self.link_text().startswith("link ok"), "the link ok again")
        wait_until(lambda: card.get_attribute("data-state") == "ok", "AI1 good again")

    def test_7_alarm_acknowledged_and_status(self):
        """An alarm the simulator's ramp raises: counted in the bar, listed on
        the alarms page and acknowledged there, with the controller silent so
        that no new rise takes the acknowledgement away; then in the journal.
        Back, the status page shows the link and where the history is."""
        self.browser.get(self.base + "screen/overview")
        pill = self.browser.find_element(By.ID, "alarm-pill")
        wait_until(pill.is_displayed, "the alarm counts in the bar, once the first status came")
        pill.click()
        row = '.alarm-list [data-alarm="level-high"]'
        wait_until(lambda: self.shown('tr[data-alarm="level-high"][data-state="raised"]'), "level-high raised")
        self.assertEqual(self.shown(row, "data-acknowledged"), "false")
        self.sim.tell("pause")
        try:
            wait_until(lambda: self.shown(row, "data-state") == "unknown", "level-high unknown while nothing answers")
            # The counts stand still now: the bar must show the panel's own.
            counts = lambda: self.api("/api/status")["alarms"]
            wait_until(lambda: self.shown("#alarm-pill") == bar_alarms(counts()), "the bar showing the panel's counts")
            before = counts()["unacknowledged"]
            self.browser.find_element(By.CSS_SELECTOR, row + " button").click()
            self.toast("alarm level-high acknowledged")
            wait_until(lambda: re.match(r"^acknowledged by 127\.0\.0\.1 at \d\d:\d\d:\d\d$", self.shown(row + " .alarm-ack")),
                       "who acknowledged level-high, and when")
            self.assertFalse(self.browser.find_element(By.CSS_SELECTOR, row + " button").is_displayed())
            self.assertEqual(counts()["unacknowledged"], before - 1)
            wait_until(lambda: self.shown("#alarm-pill") == bar_alarms(counts()), "the bar with one fewer to acknowledge")
            self.assertIn("127.0.0.1", self.shown('tr[data-alarm="level-high"][data-state="acknowledged"]'))
            self.narrow_screenshot("alarms-narrow.png")
            self.browser.find_element(By.LINK_TEXT, "Journal").click()
            cells = lambda: self.browser.execute_script(
                "return [...document.querySelectorAll('tr[data-kind=\"ack\"] td')].map((td) => td.textContent)")
            wait_until(lambda: cells()[2:] == ["127.0.0.1", "level-high", "", "alarm level-high acknowledged"],
                       "the journal listing the acknowledgement")
        finally:
            self.sim.tell("resume")
        self.browser.get(self.base + "status")
        wait_until(lambda: self.shown("[data-controller]", "data-link") == "ok", "the controller's link ok")
        self.assertEqual(self.shown(".history .figure.wide .reading"), self.data)
        self.narrow_screenshot("status-narrow.png", 2400)

    def test_8_past_the_viewer_limit(self):
        """A panel that serves one screen at a time: a second browser is told
        so in words and gets its screen by itself once the first leaves."""
        data = history_folder()
        panel = Program([ARGS.logohost, "--driver", ARGS.driver, "--plc", "127.0.0.1:%d" % self.sim_port,
                         "panel", "--listen", "127.0.0.1:0", "--max-viewers", "1", "--data", data])
        try:
            base = panel.first(r"open (http://127\.0\.0\.1:\d+/)").group(1)
            self.bases.append(base)
            self.browser.get(base + "screen/overview")
            wait_until(lambda: re.match(r"^\d", self.reading("AI1")), "a value for the first viewer")
            first = self.browser.current_window_handle
            self.browser.switch_to.new_window("tab")
            self.browser.get(base + "screen/inputs")
            waiting = lambda: [n.text for n in self.browser.find_elements(By.CSS_SELECTOR, ".notice.waiting")]
            wait_until(lambda: any("at most 1 screens at once" in text for text in waiting()), "the limit told")
            self.browser.switch_to.window(first)
            self.browser.get(base + "status")
            self.browser.switch_to.window(self.browser.window_handles[-1])
            wait_until(lambda: re.match(r"^\d", self.reading("AI3")), "the second viewer served once the first left")
            self.assertEqual(waiting(), [])
            self.browser.close()
            self.browser.switch_to.window(first)
            self.browser.get(self.base + "screen/overview")  # nothing left polling the panel that stops
        finally:
            self.assertEqual(panel.stop(), 0)
            shutil.rmtree(data, ignore_errors=True)

    def test_9_nothing_from_other_sites(self):
        self.collect_requests()
        self.assertTrue(self.requested, "no requests logged")
        # The browser's own pages (chrome://, about:) are no network traffic.
        network = [url for url in self.requested if re.match(r"(https?|wss?)://", url)]
        self.assertTrue(any(url.startswith(self.base + "api/events") for url in network), "the log missed the page")
        foreign = [url for url in network if not any(url.startswith(base) for base in self.bases)]
        self.assertEqual(foreign, [])
        # The one refusal the page meets on purpose: the viewer limit's 503.
        problems = [e["message"] for e in self.browser.get_log("browser")
                    if e["level"] == "SEVERE" and "status of 503" not in e["message"]]
        self.assertEqual(problems, [], "errors in the browser's console")


def main():
    global ARGS, webdriver, By, Service
    parser = argparse.ArgumentParser()
    parser.add_argument("--logohost", required=True)
    parser.add_argument("--driver", required=True)
    parser.add_argument("--out", required=True, help="where the screenshot goes")
    ARGS, rest = parser.parse_known_args()
    os.makedirs(ARGS.out, exist_ok=True)
    if not shutil.which("chromium") or not shutil.which("chromedriver"):
        print("SKIPPED: chromium and chromium-driver are not installed (scripts/install-deps.sh test installs them)")
        return SKIPPED
    try:
        from selenium import webdriver
        from selenium.webdriver.common.by import By
        from selenium.webdriver.chrome.service import Service
    except ImportError as error:
        print("chromium is installed but Selenium is not (Debian's python3-selenium, for /usr/bin/python3): %s"
              % error)
        return 1
    program = unittest.main(argv=[sys.argv[0]] + rest, exit=False, verbosity=2)
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
