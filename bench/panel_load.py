#!/usr/bin/python3
"""The operator panel under many viewers and under slow clients.

Starts `logohost sim` and `logohost panel` on loopback itself, measures, and
stops them again, also on failure or Ctrl-C. Four parts, each selectable:

  trace    one stream's events beside the simulator's requests, for a second
  viewers  N event streams on the overview; VW0 changed in the simulator over
           Modbus; when each stream got the `items` event with the new value,
           split into the scan's wait and the panel's fan-out; the panel's
           CPU and RSS meanwhile
  slow     idle and header-trickling connections; the time of plain requests
           made meanwhile, up to past the server's thread pool
  limit    what a stream past --max-viewers gets, and how soon a freed slot
           is usable again

Python's standard library only, so that it runs wherever logohost was built,
and one selector loop for every client socket: a thread per simulated viewer
would put 100 more runnable threads on the same two cores as the panel.
See docs/performance.md for what the figures mean.
"""

import argparse
import json
import os
import random
import re
import selectors
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

HOST = "127.0.0.1"
CLK_TCK = os.sysconf("SC_CLK_TCK")
started = []  # every process this script started, stopped in reverse order


# ---- processes ----------------------------------------------------------------


def wait_for_line(path_or_reader, pattern, timeout):
    deadline = time.monotonic() + timeout
    regex = re.compile(pattern)
    while time.monotonic() < deadline:
        if isinstance(path_or_reader, str):
            with open(path_or_reader, encoding="utf-8", errors="replace") as f:
                found = regex.search(f.read())
        else:
            path_or_reader.poll(0.05)
            found = next((m for m in map(regex.search, path_or_reader.lines) if m), None)
        if found:
            return found
        time.sleep(0.02)
    raise RuntimeError(f"no line matching {pattern!r} within {timeout} s")


class LineReader:
    """A child's standard output on a pipe, each line stamped when it came."""

    def __init__(self, fd):
        self.fd = fd
        os.set_blocking(fd, False)
        self.buffer = b""
        self.lines = []
        self.stamps = []

    def on_readable(self):
        now = time.monotonic()
        try:
            data = os.read(self.fd, 65536)
        except BlockingIOError:
            return True
        if not data:
            return False
        self.buffer += data
        *complete, self.buffer = self.buffer.split(b"\n")
        for line in complete:
            self.lines.append(line.decode("utf-8", "replace"))
            self.stamps.append(now)
        return True

    def poll(self, timeout):
        sel = selectors.DefaultSelector()
        sel.register(self.fd, selectors.EVENT_READ)
        if sel.select(timeout):
            self.on_readable()
        sel.close()


def start(args, log_pipe=False):
    log = None
    if log_pipe:
        proc = subprocess.Popen(args, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        log = LineReader(proc.stdout.fileno())
    else:
        out = tempfile.NamedTemporaryFile(prefix="panel_load_", suffix=".log", delete=False)
        proc = subprocess.Popen(args, stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.STDOUT)
        out.close()
        proc.log_path = out.name
    proc.reader = log
    started.append(proc)
    return proc


def stop(proc):
    if proc.poll() is None:
        proc.terminate()
        try:
            proc.wait(timeout=10)
        except subprocess.TimeoutExpired:
            proc.kill()
            proc.wait(timeout=5)
    if getattr(proc, "log_path", None):
        os.unlink(proc.log_path)
    if proc in started:
        started.remove(proc)


def stop_all():
    for proc in reversed(list(started)):
        try:
            stop(proc)
        except Exception as e:  # keep stopping the others
            print(f"stopping {proc.args[0]} (pid {proc.pid}): {e}", file=sys.stderr)


def start_sim(logohost, log_requests):
    args = [logohost, "sim", "--listen", f"{HOST}:0", "--animate"] + (["--log-requests"] if log_requests else [])
    proc = start(args, log_pipe=log_requests)
    found = wait_for_line(proc.reader or proc.log_path, r"listening on 127\.0\.0\.1:(\d+)", 10)
    proc.port = int(found.group(1))
    return proc


def start_panel(logohost, sim_port, scan_period=None, max_viewers=None):
    args = [logohost, "--plc", f"{HOST}:{sim_port}", "panel", "--listen", f"{HOST}:0"]
    if scan_period is not None:
        args += ["--scan-period", str(scan_period)]
    if max_viewers is not None:
        args += ["--max-viewers", str(max_viewers)]
    proc = start(args)
    found = wait_for_line(proc.log_path, r"open http://127\.0\.0\.1:(\d+)/", 10)
    proc.port = int(found.group(1))
    return proc


def proc_sample(pid):
    """CPU seconds so far, RSS in KiB and the thread count of a process."""
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    cpu = (int(fields[11]) + int(fields[12])) / CLK_TCK  # utime, stime
    rss = threads = 0
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            if line.startswith("VmRSS:"):
                rss = int(line.split()[1])
            elif line.startswith("Threads:"):
                threads = int(line.split()[1])
    return cpu, rss, threads


class Usage:
    """A process's CPU share and RSS over a window: CPU from the difference
    of its counters, RSS as the mean of samples taken every half second."""

    def __init__(self, pid):
        self.pid = pid
        self.rss = []
        self.threads = 0
        self.cpu0, rss, self.threads = proc_sample(pid)
        self.t0 = self.last = time.monotonic()
        self.rss.append(rss)

    def tick(self, now):
        if now - self.last >= 0.5:
            self.last = now
            _, rss, self.threads = proc_sample(self.pid)
            self.rss.append(rss)

    def finish(self):
        cpu, rss, self.threads = proc_sample(self.pid)
        self.rss.append(rss)
        seconds = time.monotonic() - self.t0
        return {"cpu_percent": 100.0 * (cpu - self.cpu0) / seconds, "rss_mean_mib": sum(self.rss) / len(self.rss) / 1024,
                "rss_max_mib": max(self.rss) / 1024, "threads": self.threads, "seconds": seconds}


def own_cpu():
    t = os.times()
    return t.user + t.system


def machine_cpu():
    """Busy and total CPU seconds of the whole machine, all cores."""
    with open("/proc/stat") as f:
        ticks = [int(x) for x in f.readline().split()[1:]]
    idle = ticks[3] + ticks[4]  # idle, iowait
    total = sum(ticks[:8])
    return (total - idle) / CLK_TCK, total / CLK_TCK


def listen_overflows():
    """The kernel's count of connections a full accept queue turned away
    (whole machine, so other programs' listeners count too)."""
    with open("/proc/net/netstat") as f:
        lines = [l.split() for l in f if l.startswith("TcpExt:")]
    return int(dict(zip(lines[0], lines[1]))["ListenOverflows"])


# ---- clients ------------------------------------------------------------------


class Modbus:
    """Writes one holding register of the simulator: the controller changing."""

    def __init__(self, port):
        self.sock = socket.create_connection((HOST, port), timeout=2)
        self.sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.tid = 0

    def write_register(self, address, value):
        self.tid = (self.tid + 1) & 0xFFFF
        frame = struct.pack(">HHHBBHH", self.tid, 0, 6, 1, 6, address, value & 0xFFFF)
        self.sock.sendall(frame)
        reply = b""
        while len(reply) < 12:
            chunk = self.sock.recv(12 - len(reply))
            if not chunk:
                raise RuntimeError("the simulator closed the Modbus connection")
            reply += chunk
        if reply[7] != 6 or reply[8:] != frame[8:]:
            raise RuntimeError(f"unexpected write reply {reply.hex()}")

    def close(self):
        self.sock.close()


class Conn:
    """A non-blocking client socket driven by the shared selector loop."""

    def __init__(self, loop, port, request=b""):
        self.loop = loop
        self.t_start = time.monotonic()
        self.sock = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        self.sock.setblocking(False)
        self.sock.connect_ex((HOST, port))
        self.out = request
        self.inbuf = b""
        self.closed = False
        self.t_connected = None
        self.t_first_data = None
        self.t_closed = None
        self.peer_closed = False
        loop.sel.register(self.sock, selectors.EVENT_READ | selectors.EVENT_WRITE, self)

    def send(self, data):
        self.out += data
        self._want_write(True)

    def _want_write(self, want):
        if not self.closed:
            events = selectors.EVENT_READ | (selectors.EVENT_WRITE if want else 0)
            self.loop.sel.modify(self.sock, events, self)

    def on_event(self, mask, now):
        if mask & selectors.EVENT_WRITE:
            if self.t_connected is None:
                self.t_connected = now
            if self.out:
                try:
                    sent = self.sock.send(self.out)
                    self.out = self.out[sent:]
                except (BlockingIOError, InterruptedError):
                    pass
                except OSError:
                    return self.close(now, by_peer=True)
            if not self.out:
                self._want_write(False)
        if mask & selectors.EVENT_READ:
            try:
                data = self.sock.recv(65536)
            except (BlockingIOError, InterruptedError):
                return
            except OSError:
                data = b""
            if not data:
                return self.close(now, by_peer=True)
            if self.t_first_data is None:
                self.t_first_data = now
            self.on_data(data, now)

    def on_data(self, data, now):
        self.inbuf += data

    def close(self, now=None, by_peer=False):
        if self.closed:
            return
        self.closed = True
        self.peer_closed = by_peer
        self.t_closed = now if now is not None else time.monotonic()
        self.loop.sel.unregister(self.sock)
        self.sock.close()


def get_request(port, path, extra=b""):
    return f"GET {path} HTTP/1.1\r\nHost: {HOST}:{port}\r\n".encode() + extra + b"\r\n"


class Probe(Conn):
    """One plain request on a fresh connection, as a script makes it: timed
    from connect() to the last byte of the body."""

    def __init__(self, loop, port, path, timeout):
        super().__init__(loop, port, get_request(port, path))
        self.path = path
        self.deadline = self.t_start + timeout
        self.status = None
        self.body = b""
        self.elapsed = None

    def on_data(self, data, now):
        self.inbuf += data
        head, sep, rest = self.inbuf.partition(b"\r\n\r\n")
        if not sep:
            return
        lines = head.decode("latin-1").split("\r\n")
        self.status = int(lines[0].split()[1])
        headers = {k.strip().lower(): v.strip() for k, _, v in (l.partition(":") for l in lines[1:])}
        self.headers = headers
        length = int(headers.get("content-length", "0"))
        if len(rest) >= length:
            self.body = rest[:length]
            self.elapsed = now - self.t_start
            self.close(now)

    def expire(self, now):
        if not self.closed and now >= self.deadline:
            self.close(now)


class Viewer(Conn):
    """A browser's event stream: HTTP/1.1, chunked, server-sent events."""

    parse_seconds = 0.0  # this client's own time on the items events, all viewers
    parsed = 0

    def __init__(self, loop, port, screen="overview"):
        super().__init__(loop, port, get_request(port, f"/api/events?screen={screen}", b"Accept: text/event-stream\r\n"))
        self.status = None
        self.t_headers = None
        self.body = b""  # the answer when it is not a stream
        self.chunked = b""
        self.sse = b""
        self.bytes = 0
        self.events = {}
        self.seen = {}  # VW0 raw value -> when the first items event with it came
        self.last_vw0 = None

    def on_data(self, data, now):
        self.bytes += len(data)
        if self.status is None:
            self.inbuf += data
            head, sep, rest = self.inbuf.partition(b"\r\n\r\n")
            if not sep:
                return
            lines = head.decode("latin-1").split("\r\n")
            self.status = int(lines[0].split()[1])
            self.headers = {k.strip().lower(): v.strip() for k, _, v in (l.partition(":") for l in lines[1:])}
            self.t_headers = now
            self.inbuf = b""
            data = rest
        if self.headers.get("transfer-encoding", "").lower() != "chunked":
            self.body += data
            return
        self.chunked += data
        while True:
            line, sep, rest = self.chunked.partition(b"\r\n")
            if not sep:
                break
            size = int(line.split(b";")[0], 16)
            if len(rest) < size + 2:
                break
            self.sse += rest[:size]
            self.chunked = rest[size + 2 :]
            if size == 0:
                break
        while True:
            block, sep, self.sse = self.sse.partition(b"\n\n")
            if not sep:
                self.sse = block
                break
            self.on_sse(block, now)

    def on_sse(self, block, now):
        name, data = "message", []
        for line in block.decode("utf-8").split("\n"):
            if line.startswith("event:"):
                name = line[6:].strip()
            elif line.startswith("data:"):
                data.append(line[5:].lstrip())
        if not data:
            return
        self.events[name] = self.events.get(name, 0) + 1
        if name != "items":
            return
        for item in json.loads("\n".join(data)).get("items", []):
            if item.get("var") == "VW0" and item.get("raw") is not None:
                raw = int(item["raw"])
                self.last_vw0 = raw
                self.seen.setdefault(raw, now)
        Viewer.parse_seconds += time.monotonic() - now
        Viewer.parsed += 1


class Trickle(Conn):
    """A client that never finishes its request: one header line every
    `gap` seconds, from a random phase."""

    def __init__(self, loop, port, index, gap):
        super().__init__(loop, port, f"GET /api/status HTTP/1.1\r\nHost: {HOST}:{port}\r\n".encode())
        self.index = index
        self.gap = gap
        self.next_line = self.t_start + random.uniform(0, gap)
        self.lines = 0

    def tick(self, now):
        if not self.closed and now >= self.next_line:
            self.lines += 1
            self.send(f"X-Slow-{self.index}: {self.lines}\r\n".encode())
            self.next_line += self.gap


class Loop:
    def __init__(self):
        self.sel = selectors.DefaultSelector()
        self.readers = {}  # fd -> LineReader
        self.tickers = []  # callables(now), run every pass

    def watch_lines(self, reader):
        self.readers[reader.fd] = reader
        self.sel.register(reader.fd, selectors.EVENT_READ, reader)

    def run(self, until, done=lambda: False):
        """Serves every socket until `until` (monotonic) or until done()."""
        while True:
            now = time.monotonic()
            if now >= until or done():
                return
            for key, mask in self.sel.select(min(until - now, 0.01)):
                owner = key.data
                now = time.monotonic()
                if isinstance(owner, LineReader):
                    if not owner.on_readable():
                        self.sel.unregister(owner.fd)
                else:
                    owner.on_event(mask, now)
            now = time.monotonic()
            for tick in self.tickers:
                tick(now)

    def close(self):
        for key in list(self.sel.get_map().values()):
            if isinstance(key.data, Conn):
                key.data.close()
        self.sel.close()


# ---- statistics ---------------------------------------------------------------


def pct(values, p):
    if not values:
        return float("nan")
    s = sorted(values)
    k = (len(s) - 1) * p / 100.0
    lo = int(k)
    hi = min(lo + 1, len(s) - 1)
    return s[lo] + (s[hi] - s[lo]) * (k - lo)


def ms(seconds):
    return seconds * 1000.0


def summary(values):
    return {"n": len(values), "p50": ms(pct(values, 50)), "p99": ms(pct(values, 99)), "max": ms(max(values)) if values else float("nan")}


# ---- viewers, trace and burst: many event streams -------------------------------


def open_viewers(loop, port, count, batch=4):
    """Opens streams a few at a time, each batch answered before the next:
    the server's accept queue holds only a few connections (see `burst`),
    and a stream that waits in it would be measured as a slow fan-out."""
    viewers = []
    while len(viewers) < count:
        fresh = [Viewer(loop, port) for _ in range(min(batch, count - len(viewers)))]
        viewers += fresh
        loop.run(time.monotonic() + 10, lambda: all(v.status is not None for v in fresh))
    return viewers


def open_ramped(loop, make, count, batch=4, pause=0.02):
    """Connections that get no answer, opened a few at a time for the same reason."""
    conns = []
    while len(conns) < count:
        conns += [make(len(conns) + i) for i in range(min(batch, count - len(conns)))]
        loop.run(time.monotonic() + pause)
    return conns


def run_viewers(logohost, count, scan_period, rounds, seed):
    rng = random.Random(seed)
    sim = start_sim(logohost, log_requests=True)
    panel = start_panel(logohost, sim.port, scan_period=scan_period)
    loop = Loop()
    loop.watch_lines(sim.reader)
    modbus = Modbus(sim.port)
    try:
        modbus.write_register(0, 0)
        overflows0 = listen_overflows()
        viewers = open_viewers(loop, panel.port, count)
        loop.run(time.monotonic() + 20, lambda: all(v.last_vw0 == 0 for v in viewers))
        overflows = listen_overflows() - overflows0
        ready = [v for v in viewers if v.last_vw0 == 0]
        if len(ready) != count:
            raise RuntimeError(f"only {len(ready)} of {count} streams showed VW0 within 20 s: "
                               f"statuses {sorted(set(v.status for v in viewers), key=str)}")
        open_seconds = [v.t_headers - v.t_start for v in viewers]
        loop.run(time.monotonic() + 1.0)  # past the streams' first events

        panel_use = Usage(panel.pid)
        sim_use = Usage(sim.pid)
        loop.tickers = [panel_use.tick, sim_use.tick]
        bytes0 = sum(v.bytes for v in viewers)
        client_cpu0 = own_cpu()
        machine0 = machine_cpu()
        Viewer.parse_seconds, Viewer.parsed = 0.0, 0
        writes = []  # (value, monotonic time just before the frame went out)
        missed = 0
        next_write = time.monotonic()
        for i in range(rounds):
            value = i + 1
            loop.run(next_write)
            t = time.monotonic()
            try:
                modbus.write_register(0, value)
            except (OSError, RuntimeError) as e:
                time.sleep(0.5)
                raise RuntimeError(f"round {i + 1}: {e}; simulator exit status {sim.poll()}, "
                                   f"last requests it logged: {sim.reader.lines[-3:]}") from e
            writes.append((value, t))
            loop.run(t + 5, lambda: all(value in v.seen for v in viewers))
            missed += sum(1 for v in viewers if value not in v.seen)
            # Never before every viewer has the value, so that no value is
            # overwritten unseen; then a delay drawn over one whole scan
            # period, so that the change lands at a uniformly random point of
            # the scan's cycle whatever the latency before it was.
            next_write = max(t + 0.5 - scan_period / 2, time.monotonic() + 0.02) + rng.uniform(0, scan_period)
        loop.run(time.monotonic() + 0.2)
        window = panel_use.finish()
        sim_window = sim_use.finish()
        client_cpu = 100.0 * (own_cpu() - client_cpu0) / window["seconds"]
        machine1 = machine_cpu()
        machine_busy = 100.0 * (machine1[0] - machine0[0]) / window["seconds"]
        others = machine_busy - window["cpu_percent"] - sim_window["cpu_percent"] - client_cpu
        stream_bytes = (sum(v.bytes for v in viewers) - bytes0) / count / window["seconds"]

        reads = host_reads_of_writes(sim.reader)
        if len(reads) < len(writes) + 1:
            raise RuntimeError(f"the simulator's log shows {len(reads)} host reads after writes, expected {len(writes) + 1}")
        reads = reads[1:]  # the first is of the value written before the viewers opened
        total, scan_wait, host_to_viewer, spread, host_to_first, host_to_last = [], [], [], [], [], []
        prompt_spread, held_back = [], 0
        for (value, t_write), t_read in zip(writes, reads):
            arrivals = [v.seen[value] for v in viewers if value in v.seen]
            if not arrivals:
                continue
            scan_wait.append(t_read - t_write)
            total += [a - t_write for a in arrivals]
            host_to_viewer += [a - t_read for a in arrivals]
            host_to_first.append(min(arrivals) - t_read)
            host_to_last.append(max(arrivals) - t_read)
            spread.append(max(arrivals) - min(arrivals))
            # Streams that sent an event on an earlier result of the same
            # pass hold the rest of it back by the streams' minimum gap
            # between events (100 ms): the arrivals fall in two groups, and
            # the spread within the prompt group is the fan-out's own cost.
            prompt = [a for a in arrivals if a - t_read < PROMPT]
            held_back += len(arrivals) - len(prompt)
            if len(prompt) > 1:
                prompt_spread.append(max(prompt) - min(prompt))
        return {
            "viewers": count, "scan_period": scan_period, "rounds": len(writes), "missed": missed,
            "over_1s_after_read": sum(1 for h in host_to_viewer if h > 1.0),
            "held_back_percent": 100.0 * held_back / max(len(total), 1), "prompt_spread": summary(prompt_spread),
            "mean_write_gap_s": (writes[-1][1] - writes[0][1]) / max(len(writes) - 1, 1),
            "open_max_ms": ms(max(open_seconds)), "listen_overflows": overflows,
            "total": summary(total), "scan_wait": summary(scan_wait), "host_to_viewer": summary(host_to_viewer),
            "host_to_first": summary(host_to_first), "host_to_last": summary(host_to_last), "spread": summary(spread),
            "panel": window, "sim_cpu_percent": sim_window["cpu_percent"], "client_cpu_percent": client_cpu,
            "stream_bytes_per_s": stream_bytes,
            "machine_busy_percent": machine_busy, "others_percent": others,
            "client_us_per_event": 1e6 * Viewer.parse_seconds / max(Viewer.parsed, 1),
            "events_per_viewer_s": sum(v.events.get("items", 0) for v in viewers) / count / window["seconds"],
        }
    finally:
        modbus.close()
        loop.close()
        stop(panel)
        stop(sim)


PROMPT = 0.05  # seconds after the host's read: below, an event was not held back

REQUEST_LINE = re.compile(r"request unit \d+ function (\d+) address (\d+) quantity (\d+)")


def host_reads_of_writes(reader):
    """For every write of register 0 in the simulator's log, when the host's
    next read of a block holding register 0 came: the moment the host had
    the new value, give or take the reply's trip back."""
    found = []
    waiting = False
    for line, stamp in zip(reader.lines, reader.stamps):
        m = REQUEST_LINE.search(line)
        if not m:
            continue
        function, address, quantity = map(int, m.groups())
        if function == 6 and address == 0:
            waiting = True
        elif waiting and function == 3 and address <= 0 < address + quantity:
            found.append(stamp)
            waiting = False
    return found


def run_burst(logohost, count, limit_s=40.0):
    """N streams opened at once, as browsers do when they all reconnect
    (after the panel restarted, or the network came back)."""
    sim = start_sim(logohost, log_requests=False)
    panel = start_panel(logohost, sim.port)
    loop = Loop()
    try:
        overflows0 = listen_overflows()
        viewers = [Viewer(loop, panel.port) for _ in range(count)]
        loop.run(time.monotonic() + limit_s, lambda: all(v.status is not None for v in viewers))
        opened = [v.t_headers - v.t_start for v in viewers if v.t_headers is not None]
        return {"viewers": count, "opened": len(opened), "limit_s": limit_s, "p50_ms": ms(pct(opened, 50)),
                "max_ms": ms(max(opened)) if opened else None, "over_500ms": sum(1 for t in opened if t > 0.5),
                "statuses": sorted(set(v.status for v in viewers if v.status)),
                "listen_overflows": listen_overflows() - overflows0}
    finally:
        loop.close()
        stop(panel)
        stop(sim)


def run_trace(logohost, seconds=1.2):
    """One stream's items events beside the simulator's requests, for a
    second: which items of a pass each event carried, and when."""
    sim = start_sim(logohost, log_requests=True)
    panel = start_panel(logohost, sim.port)
    loop = Loop()
    loop.watch_lines(sim.reader)
    try:
        viewer = Viewer(loop, panel.port)
        carried = []
        plain = viewer.on_sse

        def on_sse(block, now):
            plain(block, now)
            text = block.decode("utf-8")
            if text.startswith("event: items"):
                items = json.loads(text.split("data: ", 1)[1]).get("items", [])
                carried.append((now, [i["var"] for i in items]))

        viewer.on_sse = on_sse
        loop.run(time.monotonic() + 3, lambda: viewer.last_vw0 is not None)
        loop.run(time.monotonic() + 1)  # past the stream's first event
        t0, first, carried[:] = time.monotonic(), len(sim.reader.lines), []
        loop.run(t0 + seconds)
        rows = [(t, "simulator: " + l) for t, l in zip(sim.reader.stamps[first:], sim.reader.lines[first:])]
        rows += [(t, "stream: items event with " + " ".join(v)) for t, v in carried]
        return [f"{ms(t - t0):7.1f} ms  {text}" for t, text in sorted(rows)]
    finally:
        loop.close()
        stop(panel)
        stop(sim)


# ---- slow: trickling and idle connections ----------------------------------------


def run_slow(logohost, slow, idle, viewers_open, seconds, slow_gap=2.0):
    sim = start_sim(logohost, log_requests=False)
    panel = start_panel(logohost, sim.port)
    loop = Loop()
    try:
        overflows0 = listen_overflows()
        viewers = open_viewers(loop, panel.port, viewers_open)
        loop.run(time.monotonic() + 10, lambda: all(v.last_vw0 is not None for v in viewers))
        trickles = open_ramped(loop, lambda i: Trickle(loop, panel.port, i, slow_gap), slow)
        idles = open_ramped(loop, lambda i: Conn(loop, panel.port), idle)
        idle_closed = []  # how long the server kept each idle connection

        def keep_idle(now):
            # The server ends an idle connection after its keep-alive time;
            # another takes its place, so that `idle` stay open (a few at a
            # time, as they were opened).
            reopened = 0
            for i, c in enumerate(idles):
                if c.closed and reopened < 4:
                    idle_closed.append(c.t_closed - c.t_start)
                    idles[i] = Conn(loop, panel.port)
                    reopened += 1

        def trickle(now):
            for t in trickles:
                t.tick(now)

        loop.tickers = [keep_idle, trickle]
        loop.run(time.monotonic() + 2.5)  # every trickler has sent a line and holds a thread
        events0 = [sum(v.events.values()) for v in viewers]
        probes, late_viewer = [], None
        t0 = time.monotonic()
        patient = Probe(loop, panel.port, "/api/status", seconds + 60)
        for tick in range(int(seconds / 0.1)):
            loop.run(t0 + tick * 0.1)
            probes.append(Probe(loop, panel.port, "/api/status", 5.0))
            probes.append(Probe(loop, panel.port, "/api/values?screen=overview", 5.0))
            if tick == int(seconds / 0.2):
                late_viewer = Viewer(loop, panel.port)
            now = time.monotonic()
            for p in probes:
                p.expire(now)
        loop.run(time.monotonic() + 5.1, lambda: all(p.closed for p in probes))
        now = time.monotonic()
        for p in probes:
            p.expire(now)
        window = time.monotonic() - t0
        viewer_events = [(sum(v.events.values()) - e0) / window for v, e0 in zip(viewers, events0)]
        slow_dropped = [t.t_closed - t.t_start for t in trickles if t.closed]
        late_open = late_viewer.t_headers - late_viewer.t_start if late_viewer.t_headers else None
        late_status = late_viewer.status
        threads = proc_sample(panel.pid)[2]
        overflows = listen_overflows() - overflows0

        # The tricklers leave: how soon is the server answering again?
        t_leave = time.monotonic()
        for t in trickles:
            t.close()
        loop.tickers = [keep_idle]
        after = Probe(loop, panel.port, "/api/status", 30)
        loop.run(time.monotonic() + 30, lambda: after.closed and patient.closed)
        result = {"slow": slow, "idle": idle, "viewers_open": viewers_open, "threads": threads, "listen_overflows": overflows,
                  "slow_closed_by_server": len(slow_dropped), "idle_reopened": len(idle_closed),
                  "idle_held_s": pct(idle_closed, 50) if idle_closed else None,
                  "viewer_events_per_s": min(viewer_events) if viewer_events else None,
                  "late_viewer_open_ms": ms(late_open) if late_open is not None else None,
                  "late_viewer_status": late_status,
                  "patient_ms": ms(patient.elapsed) if patient.elapsed else None,
                  "patient_after_leave_ms": ms(patient.t_closed - t_leave) if patient.elapsed and patient.t_closed > t_leave else None,
                  "after_leave_ms": ms(after.elapsed) if after.elapsed else None}
        for path in ("/api/status", "/api/values?screen=overview"):
            mine = [p for p in probes if p.path == path]
            answered = [p.elapsed for p in mine if p.elapsed is not None and p.status == 200]
            key = "status" if path == "/api/status" else "values"
            result[key] = summary(answered)
            result[key]["sent"] = len(mine)
            result[key]["unanswered"] = len(mine) - len(answered)
        return result
    finally:
        loop.close()
        stop(panel)
        stop(sim)


def run_slow_timeout(logohost, gap):
    """One client whose header lines come further apart than the library's
    read time-out: when does the server let it go?"""
    sim = start_sim(logohost, log_requests=False)
    panel = start_panel(logohost, sim.port)
    loop = Loop()
    try:
        t = Trickle(loop, panel.port, 0, gap)
        t.next_line = t.t_start + 0.1
        loop.tickers = [t.tick]
        loop.run(time.monotonic() + 3 * gap + 2, lambda: t.t_first_data is not None)
        return {"gap_s": gap, "answered_after_s": (t.t_first_data - t.t_start) if t.t_first_data else None,
                "lines_sent": t.lines, "answer": t.inbuf.decode("latin-1").split("\r\n")[0] if t.inbuf else ""}
    finally:
        loop.close()
        stop(panel)
        stop(sim)


# ---- limit: past --max-viewers --------------------------------------------------


def run_limit(logohost, limit):
    sim = start_sim(logohost, log_requests=False)
    panel = start_panel(logohost, sim.port, max_viewers=limit)
    loop = Loop()
    try:
        viewers = [Viewer(loop, panel.port) for _ in range(limit)]
        loop.run(time.monotonic() + 10, lambda: all(v.last_vw0 is not None for v in viewers))
        extra = Viewer(loop, panel.port)
        loop.run(time.monotonic() + 5, lambda: extra.closed or (extra.status is not None and extra.status != 200))
        loop.run(time.monotonic() + 0.3)
        refused = {"statuses_within_limit": sorted(set(v.status for v in viewers)), "status": extra.status,
                   "content_type": getattr(extra, "headers", {}).get("content-type"),
                   "body": extra.body.decode("utf-8", "replace"), "closed": extra.closed}
        extra.close()
        # One browser leaves: how soon does the next one get in?
        t_leave = time.monotonic()
        viewers[0].close()
        attempts = 0
        admitted = None
        while time.monotonic() < t_leave + 10 and admitted is None:
            attempts += 1
            v = Viewer(loop, panel.port)
            loop.run(time.monotonic() + 2, lambda: v.status is not None)
            if v.status == 200:
                admitted = time.monotonic() - t_leave
            v.close()
            loop.run(time.monotonic() + 0.1)
        refused["admitted_after_leave_s"] = admitted
        refused["attempts"] = attempts
        refused["status_after"] = json.loads(get_blocking(panel.port, "/api/status"))["scan"]
        return refused
    finally:
        loop.close()
        stop(panel)
        stop(sim)


def get_blocking(port, path):
    with socket.create_connection((HOST, port), timeout=5) as s:
        s.sendall(get_request(port, path, b"Connection: close\r\n"))
        data = b""
        while True:
            chunk = s.recv(65536)
            if not chunk:
                break
            data += chunk
    return data.partition(b"\r\n\r\n")[2].decode()


# ---- output ---------------------------------------------------------------------


def machine():
    model = next((l.split(":", 1)[1].strip() for l in open("/proc/cpuinfo") if l.startswith("model name")), "?")
    load = open("/proc/loadavg").read().split()[:3]
    return f"{os.cpu_count()} cores ({os.sched_getaffinity(0).__len__()} usable), {model}, kernel {os.uname().release}, load average before the run {' '.join(load)}"


def f1(x):
    return "–" if x is None or x != x else f"{x:.1f}"


def print_viewers(results):
    print("\n### Controller change → `items` event received (ms)\n")
    print("| scan period | viewers | samples (mean gap between changes) | missed; over 1 s after the host's read | p50 | p99 | max | scan wait p50 / p99 | host read → viewer p50 / p99 | fan-out first → last p50 / p99 / max | held back (> 50 ms after the read) | fan-out of the others p50 / p99 / max |")
    print("|---|---|---|---|---|---|---|---|---|---|---|---|")
    for r in results:
        t, s, h, sp = r["total"], r["scan_wait"], r["host_to_viewer"], r["spread"]
        print(f"| {r['scan_period']} s | {r['viewers']} | {t['n']} ({r['mean_write_gap_s']:.2f} s) | {r['missed']}; {r['over_1s_after_read']} | {f1(t['p50'])} | {f1(t['p99'])} | {f1(t['max'])} "
              f"| {f1(s['p50'])} / {f1(s['p99'])} | {f1(h['p50'])} / {f1(h['p99'])} | {f1(sp['p50'])} / {f1(sp['p99'])} / {f1(sp['max'])} "
              f"| {r['held_back_percent']:.0f} % | {f1(r['prompt_spread']['p50'])} / {f1(r['prompt_spread']['p99'])} / {f1(r['prompt_spread']['max'])} |")
    print("\n### The panel process meanwhile\n")
    print("| scan period | viewers | panel CPU | panel RSS mean / max (MiB) | threads | per viewer: items events/s, bytes/s | slowest stream's opening, 4 at a time (ms); accept-queue overflows | simulator CPU | this client's CPU, µs per event | the rest of the machine |")
    print("|---|---|---|---|---|---|---|---|---|---|")
    for r in results:
        p = r["panel"]
        print(f"| {r['scan_period']} s | {r['viewers']} | {p['cpu_percent']:.1f} % | {p['rss_mean_mib']:.1f} / {p['rss_max_mib']:.1f} | {p['threads']} "
              f"| {r['events_per_viewer_s']:.2f}, {r['stream_bytes_per_s']:.0f} | {r['open_max_ms']:.0f}; {r['listen_overflows']} | {r['sim_cpu_percent']:.1f} % | {r['client_cpu_percent']:.1f} %, {r['client_us_per_event']:.0f} | {r['others_percent']:.0f} % |")


def print_burst(results):
    print("\n### Streams opened all at once\n")
    print("| streams | with an answer | HTTP | p50 (ms) | slowest (ms) | over 0.5 s | accept-queue overflows |")
    print("|---|---|---|---|---|---|---|")
    for r in results:
        opened = f"{r['opened']}" + ("" if r["opened"] == r["viewers"] else f" (the rest none in {r['limit_s']:.0f} s)")
        print(f"| {r['viewers']} | {opened} | {r['statuses']} | {f1(r['p50_ms'])} | {f1(r['max_ms'])} | {r['over_500ms']} | {r['listen_overflows']} |")


def print_slow(results, timeouts):
    print("\n### Plain requests on fresh connections while others hold the server (ms)\n")
    print("| trickling / idle connections (+ open streams) | request | sent | unanswered in 5 s | p50 | p99 | max |")
    print("|---|---|---|---|---|---|---|")
    for r in results:
        for key, name in (("status", "`/api/status`"), ("values", "`/api/values?screen=overview`")):
            s = r[key]
            print(f"| {r['slow']} / {r['idle']} (+{r['viewers_open']}) | {name} | {s['sent']} | {s['unanswered']} | {f1(s['p50'])} | {f1(s['p99'])} | {f1(s['max'])} |")
    print("\n| trickling / idle (+ streams) | server threads | accept-queue overflows | trickling closed by the server | idle connections ended by the server, held (p50 s) | open streams' events/s (lowest) | a new stream meanwhile: status, after (ms) | request sent at the start, answered after (ms) | once the tricklers left: a new request answered in (ms) |")
    print("|---|---|---|---|---|---|---|---|---|")
    for r in results:
        held = f"{r['idle_reopened']}, {r['idle_held_s']:.2f}" if r["idle_held_s"] is not None else "0"
        patient = f1(r["patient_ms"]) if r["patient_after_leave_ms"] is None else f"{r['patient_ms']:.0f} ({r['patient_after_leave_ms']:.0f} after they left)"
        print(f"| {r['slow']} / {r['idle']} (+{r['viewers_open']}) | {r['threads']} | {r['listen_overflows']} | {r['slow_closed_by_server']} of {r['slow']} | {held} "
              f"| {f1(r['viewer_events_per_s'])} | {r['late_viewer_status'] or 'no answer'}, {f1(r['late_viewer_open_ms'])} | {patient} | {f1(r['after_leave_ms'])} |")
    for t in timeouts:
        answered = f"answered it after {t['answered_after_s']:.2f} s" if t["answered_after_s"] is not None else "never answered it"
        print(f"\nOne client sending a header line every {t['gap_s']} s (the first after 0.1 s): the server {answered}, "
              f"when it had {t['lines_sent']} line(s): {t['answer']!r}")


def print_limit(r, limit):
    print(f"\n### Past --max-viewers {limit}\n")
    print(f"- streams within the limit: HTTP {r['statuses_within_limit']}")
    print(f"- stream {limit + 1}: HTTP {r['status']}, {r['content_type']}, body {r['body']}")
    admitted = "never within 10 s" if r["admitted_after_leave_s"] is None else f"{r['admitted_after_leave_s']:.2f} s"
    print(f"- after one of the {limit} closed its connection, a new stream got HTTP 200 after {admitted} ({r['attempts']} attempts, one every ~0.1 s)")
    print(f"- /api/status then: {json.dumps(r['status_after'])}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--logohost", default=os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "build-bench", "logohost"))
    parser.add_argument("--parts", default="trace,viewers,burst,slow,limit")
    parser.add_argument("--viewers", default="1,10,25,50,100")
    parser.add_argument("--scan-periods", default="0.4,0.1")
    parser.add_argument("--rounds", type=int, default=60, help="changes of VW0 per configuration")
    parser.add_argument("--slow-seconds", type=float, default=10)
    parser.add_argument("--slow-cases", default="0/0,50/50,200/0,208/0,209/0,250/0,0/250", help="TRICKLING/IDLE, comma-separated")
    parser.add_argument("--slow-viewers", type=int, default=5, help="streams open during the slow cases")
    parser.add_argument("--limit", type=int, default=5)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--json", help="also write every figure here")
    args = parser.parse_args()
    logohost = os.path.abspath(args.logohost)
    if not os.access(logohost, os.X_OK):
        sys.exit(f"{logohost}: not built (bench/panel_load.sh builds it)")
    random.seed(args.seed)
    parts = set(args.parts.split(","))
    out = {"machine": machine(), "when": time.strftime("%Y-%m-%d %H:%M:%S %Z")}
    print(f"machine: {out['machine']}\nwhen: {out['when']}", flush=True)

    if "trace" in parts:
        out["trace"] = run_trace(logohost)
        print("\n### One stream beside the scan (default period)\n\n```")
        print("\n".join(out["trace"]))
        print("```", flush=True)
    if "viewers" in parts:
        out["viewers"] = []
        for period in [float(x) for x in args.scan_periods.split(",")]:
            for count in [int(x) for x in args.viewers.split(",")]:
                r = run_viewers(logohost, count, period, args.rounds, args.seed)
                out["viewers"].append(r)
                print(f"viewers={count} scan={period}: p50 {r['total']['p50']:.1f} ms, p99 {r['total']['p99']:.1f} ms, "
                      f"panel CPU {r['panel']['cpu_percent']:.1f} %", flush=True)
        print_viewers(out["viewers"])
    if "burst" in parts:
        out["burst"] = []
        for count in [int(x) for x in args.viewers.split(",") if int(x) > 1]:
            r = run_burst(logohost, count)
            out["burst"].append(r)
            print(f"burst of {count}: {r['opened']} opened, slowest {f1(r['max_ms'])} ms", flush=True)
        print_burst(out["burst"])
    if "slow" in parts:
        out["slow"] = []
        for case in args.slow_cases.split(","):
            slow, idle = (int(x) for x in case.split("/"))
            r = run_slow(logohost, slow, idle, args.slow_viewers, args.slow_seconds)
            out["slow"].append(r)
            print(f"slow={slow} idle={idle}: status p99 {f1(r['status']['p99'])} ms, unanswered {r['status']['unanswered']}", flush=True)
        out["slow_timeout"] = [run_slow_timeout(logohost, 6.0)]
        print_slow(out["slow"], out["slow_timeout"])
    if "limit" in parts:
        out["limit"] = run_limit(logohost, args.limit)
        print_limit(out["limit"], args.limit)
    if args.json:
        with open(args.json, "w") as f:
            json.dump(out, f, indent=1)


def on_signal(signum, frame):
    raise KeyboardInterrupt


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, on_signal)
    try:
        main()
    except KeyboardInterrupt:
        print("interrupted", file=sys.stderr)
        sys.exit(130)
    finally:
        stop_all()
