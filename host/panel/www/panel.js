// logohost panel: the screens list, a live screen, the alarms, the journal
// and the status page, one script for all of them, told apart by the
// address. Values arrive as server-sent events; every change the operator
// makes is a JSON request whose answer carries the panel's result.
"use strict";

// The live windows are drawn from the points the stream brings; the longer
// ones are asked of the panel's history as min-max spans, about one a pixel.
const WINDOWS = [
  { label: "1 min", ms: 60e3 }, { label: "5 min", ms: 300e3 }, { label: "10 min", ms: 600e3 },
  { label: "1 h", ms: 3600e3, history: true }, { label: "24 h", ms: 86400e3, history: true },
  { label: "7 d", ms: 7 * 86400e3, history: true },
];
const LIVE_KEEP_MS = 600e3;
const STATUS_POLL_MS = 1000;
const ALARMS_POLL_MS = 1000;
const JOURNAL_POLL_MS = 1000;
const STREAM_RETRY_MS = 5000;
// A history chart is asked again once a span has passed, within these bounds.
const HISTORY_REFRESH_MS = [5e3, 60e3];
const CSV_SPAN_MS = 1000;  // a live window's CSV in spans no finer than this
const JOURNAL_FROM_MS = 24 * 3600e3;
const JOURNAL_PAGE = 500;  // the most entries the panel gives in one answer
// The journal is asked again from a little before the newest entry seen: an
// entry stamped just before it may have been stored just after.
const JOURNAL_OVERLAP_MS = 5000;
const JOURNAL_KEEP = 1000;
const PLOT = { left: 52, right: 10, top: 8, bottom: 22 };
const TICK_STEPS = [5e3, 10e3, 15e3, 30e3, 60e3, 120e3, 300e3, 600e3, 900e3, 1800e3, 3600e3, 7200e3,
  10800e3, 21600e3, 43200e3, 86400e3, 172800e3];

function el(tag, attrs, children) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(attrs || {})) {
    if (key === "text") node.textContent = value;
    else if (key.startsWith("on")) node.addEventListener(key.slice(2), value);
    else if (value !== undefined && value !== null && value !== false) node.setAttribute(key, value === true ? "" : value);
  }
  for (const child of children || []) if (child !== null && child !== undefined && child !== "") node.append(child);
  return node;
}

// A table cell that carries its column's name, for the narrow layout where
// each row folds into a card of labelled lines.
function cell(label, content) {
  return el("td", { "data-label": label }, [content instanceof Node ? content : String(content)]);
}

function listTable(headings, rows) {
  return el("table", { class: "list" }, [
    el("thead", {}, [el("tr", {}, headings.map((h) => el("th", { text: h })))]),
    rows instanceof Node ? rows : el("tbody", {}, rows)]);
}

function toast(message, isError) {
  const box = el("div", { class: "toast" + (isError ? " error" : ""), role: isError ? "alert" : "status", text: message });
  document.getElementById("toasts").append(box);
  setTimeout(() => box.remove(), isError ? 8000 : 4000);
}

async function api(path, body) {
  const init = body === undefined ? {} : {
    method: "POST", headers: { "Content-Type": "application/json" }, body: JSON.stringify(body),
  };
  const response = await fetch(path, init);
  let data = {};
  try { data = await response.json(); } catch (e) { data = { error: response.statusText }; }
  if (!response.ok) throw new Error(data.error || response.status + " " + response.statusText);
  return data;
}

function localTime(iso) { return iso ? new Date(iso).toLocaleTimeString([], { hour12: false }) : ""; }

// Today's times by the clock alone, another day's with its date.
function localWhen(iso) {
  if (!iso) return "";
  const at = new Date(iso);
  if (at.toDateString() === new Date().toDateString()) return localTime(iso);
  return at.toLocaleDateString([], { day: "numeric", month: "short" }) + " " + localTime(iso);
}

function isoOf(ms) { return new Date(ms).toISOString(); }

function bytesText(bytes) {
  if (bytes < 1024) return bytes + " B";
  if (bytes < 1024 * 1024) return (bytes / 1024).toFixed(1) + " KiB";
  return (bytes / 1024 / 1024).toFixed(1) + " MiB";
}

// ---- the bar ---------------------------------------------------------------

function fillBar(config, current) {
  document.getElementById("panel-title").textContent = config.title;
  const pages = config.screens.map((s) => ({ key: s.name, href: "/screen/" + encodeURIComponent(s.name), title: s.title }));
  pages.push({ key: "/alarms", href: "/alarms", title: "Alarms" }, { key: "/journal", href: "/journal", title: "Journal" },
    { key: "/status", href: "/status", title: "Status" });
  document.getElementById("tabs").replaceChildren(...pages.map((page) =>
    el("a", { href: page.href, "aria-current": current === page.key ? "page" : null, text: page.title })));
}

// The bar tells what the panel's last status said, or that there is none.
function showBar(status, reachable) {
  showLink(status, reachable);
  alarmPill.show(reachable && status ? status.alarms : null);
}

// The link as the panel's own state machine tells it: "connecting" until
// the first reply, "ok" while replies come, and "not answering since ...:
// cause" until they come again; amber with a station switched off.
function showLink(status, streamUp) {
  const pill = document.getElementById("link");
  const text = pill.querySelector(".link-text");
  document.getElementById("controller").textContent = status ? "controller " + status.controller : "";
  if (!streamUp || !status) {
    pill.dataset.state = "bad";
    text.textContent = "panel unreachable, retrying";
    return;
  }
  const link = status.link, state = link.link;
  const off = status.stations.filter((s) => !s.on).map((s) => s.station);
  if (state.state === "not answering") {
    pill.dataset.state = "bad";
    text.textContent = "not answering since " + localTime(state.since) + ": " + state.cause;
  } else if (state.state === "connecting") {
    pill.dataset.state = "connecting";
    text.textContent = "connecting";
  } else if (off.length) {
    pill.dataset.state = "warn";
    text.textContent = "station " + off.join(", ") + " off";
  } else {
    pill.dataset.state = "ok";
    text.textContent = "link ok · " + Math.round(link.framesPerSecond) + " frames/s";
  }
}

function countsText(counts) {
  const parts = [];
  if (counts.active) parts.push(counts.active + " active");
  if (counts.unacknowledged) parts.push(counts.unacknowledged + " unacknowledged");
  if (counts.unknown) parts.push(counts.unknown + " unknown");
  return parts.length ? parts.join(" · ") : "";
}


// The alarm counts in the bar are the panel's own from its last status:
// none before the first, "not known" while it does not answer; the colour
// is the worst class listed.
const alarmPill = {
  show(counts) {
    const pill = document.getElementById("alarm-pill");
    const text = pill.querySelector(".alarm-text");
    if (!counts) {
      if (pill.hidden) return;
      pill.dataset.level = "stale";
      text.textContent = "Alarms not known";
      return;
    }
    pill.hidden = false;
    const listed = countsText(counts);
    text.textContent = listed ? "Alarms: " + listed : "No alarms";
    pill.dataset.level = listed ? counts.worstClass || "alarm" : "none";
  },
};

// ---- trend charts ----------------------------------------------------------

class Chart {
  constructor(item) {
    this.item = item;
    this.points = [];      // the live windows': [ms, value or null] from the stream
    this.history = null;   // a history window's answer: {from, to, points, spans}
    this.problem = "";
    this.choice = WINDOWS[0];
    this.canvas = el("canvas", { "aria-label": "trend of " + item.label, role: "img" });
    this.note = el("p", { class: "chart-note", hidden: true });
    this.box = el("div", { class: "chart", "data-window": this.choice.label }, [this.canvas, this.note]);
    this.csv = el("a", { class: "button", download: "", text: "CSV", title: "the range the chart shows, as a CSV file" });
    this.csv.addEventListener("click", () => this.linkCsv());
    new ResizeObserver(() => {
      this.draw();
      // A history chart has a span a pixel: another width asks again.
      if (this.choice.history && this.history && this.history.points !== this.pointsWanted()) {
        clearTimeout(this.resized);
        this.resized = setTimeout(() => this.fetchHistory(), 300);
      }
    }).observe(this.box);
  }

  add(points) {
    this.points.push(...points);
    const keepFrom = Date.now() - LIVE_KEEP_MS;
    while (this.points.length && this.points[0][0] < keepFrom) this.points.shift();
    if (!this.choice.history) this.schedule();
  }

  select(choice) {
    this.choice = choice;
    this.box.dataset.window = choice.label;
    this.history = null;
    this.problem = "";
    clearTimeout(this.refetch);
    if (choice.history) this.fetchHistory();
    this.draw();
  }

  schedule() {
    if (this.pending) return;
    this.pending = true;
    requestAnimationFrame(() => { this.pending = false; this.draw(); });
  }

  pointsWanted() { return Math.max(1, Math.round(this.box.clientWidth - PLOT.left - PLOT.right)); }

  trendPath(path, from, to, points) {
    return path + "?var=" + encodeURIComponent(this.item.var) + "&from=" + isoOf(from) + "&to=" + isoOf(to) + "&points=" + points;
  }

  async fetchHistory() {
    const choice = this.choice;
    clearTimeout(this.refetch);
    const to = Date.now(), from = to - choice.ms, points = this.pointsWanted();
    try {
      const answer = await api(this.trendPath("/api/trend", from, to, points));
      if (this.choice !== choice) return;
      this.history = { from, to, points, spans: answer.spans };
      this.problem = "";
    } catch (error) {
      if (this.choice !== choice) return;
      this.problem = "The history did not answer (" + error.message + "); trying again.";
    }
    this.draw();
    const [least, most] = HISTORY_REFRESH_MS;
    clearTimeout(this.refetch);  // one loop, whichever of two answers came last
    this.refetch = setTimeout(() => this.fetchHistory(), Math.min(Math.max(choice.ms / points, least), most));
  }

  // The CSV holds the range the chart shows: a history window's own spans,
  // or a live window up to now.
  csvHref() {
    if (this.choice.history)
      return this.history ? this.trendPath("/api/trend.csv", this.history.from, this.history.to, this.history.points) : null;
    const to = Date.now();
    const points = Math.max(1, Math.min(this.pointsWanted(), Math.floor(this.choice.ms / CSV_SPAN_MS)));
    return this.trendPath("/api/trend.csv", to - this.choice.ms, to, points);
  }

  linkCsv() {
    const href = this.csvHref();
    if (href) this.csv.href = href;
    else this.csv.removeAttribute("href");
  }

  range(values) {
    const item = this.item;
    if (item.rangeGiven) return [item.min, item.max];
    if (!values.length) return [0, 1];
    let low = Math.min(...values), high = Math.max(...values);
    if (high - low < 1e-9) { low -= 1; high += 1; }
    const pad = (high - low) * 0.08;
    return [low - pad, high + pad];
  }

  draw() {
    const ratio = window.devicePixelRatio || 1;
    const width = this.box.clientWidth, height = this.box.clientHeight;
    if (!width || !height) return;
    this.canvas.width = Math.round(width * ratio);
    this.canvas.height = Math.round(height * ratio);
    const g = this.canvas.getContext("2d");
    g.setTransform(ratio, 0, 0, ratio, 0, 0);
    g.clearRect(0, 0, width, height);

    const live = !this.choice.history;
    let start, end, visible = [], values;
    if (live) {
      // While the history is shorter than the window, it fills the width.
      end = Date.now();
      const first = this.points.length ? this.points[0][0] : end;
      start = Math.max(end - this.choice.ms, Math.min(first, end - 10e3));
      visible = this.points.filter((p) => p[0] >= start - 2000);
      values = visible.map((p) => p[1]).filter((v) => v !== null);
    } else {
      end = this.history ? this.history.to : Date.now();
      start = end - this.choice.ms;
      values = this.history ? this.history.spans.filter((s) => s[1] !== null).flatMap((s) => [s[1], s[2]]) : [];
    }
    const [low, high] = this.range(values);
    const plotW = width - PLOT.left - PLOT.right, plotH = height - PLOT.top - PLOT.bottom;
    const frame = {
      plotW, plotH,
      x: (t) => PLOT.left + ((t - start) / (end - start)) * plotW,
      y: (v) => PLOT.top + (1 - (Math.min(Math.max(v, low), high) - low) / (high - low)) * plotH,
    };
    this.drawAxes(g, frame, start, end, low, high);
    g.save();
    g.beginPath(); g.rect(PLOT.left, PLOT.top, plotW, plotH); g.clip();
    if (live) {
      this.drawLine(g, frame, visible);
      delete this.box.dataset.spans;
    } else if (this.history) {
      this.box.dataset.spans = this.drawSpans(g, frame);
    }
    g.restore();
    this.showNote(live);
    this.linkCsv();
  }

  drawAxes(g, f, start, end, low, high) {
    g.font = "11px system-ui, sans-serif";
    g.fillStyle = "#6b7684";
    g.strokeStyle = "#e6eaef";
    g.lineWidth = 1;
    g.textAlign = "right";
    g.textBaseline = "middle";
    for (let i = 0; i <= 4; ++i) {
      const v = low + ((high - low) * i) / 4, py = Math.round(f.y(v)) + 0.5;
      g.beginPath(); g.moveTo(PLOT.left, py); g.lineTo(PLOT.left + f.plotW, py); g.stroke();
      g.fillText(v.toFixed(Math.min(this.item.decimals || 0, 2)), PLOT.left - 6, py);
    }
    g.textAlign = "center";
    g.textBaseline = "top";
    const most = Math.max(2, Math.floor(f.plotW / 80));
    const step = TICK_STEPS.find((s) => (end - start) / s <= most) || TICK_STEPS[TICK_STEPS.length - 1];
    // Ticks on round local times; a label that would touch the last is left out.
    const zone = -new Date(start).getTimezoneOffset() * 60e3;
    let lastRight = -Infinity;
    for (let t = Math.ceil((start + zone) / step) * step - zone; t <= end; t += step) {
      const px = Math.round(f.x(t)) + 0.5;
      g.beginPath(); g.moveTo(px, PLOT.top); g.lineTo(px, PLOT.top + f.plotH); g.stroke();
      const label = tickLabel(t, step), half = g.measureText(label).width / 2;
      if (px - half < lastRight + 6 || px + half > PLOT.left + f.plotW + PLOT.right) continue;
      g.fillText(label, px, PLOT.top + f.plotH + 5);
      lastRight = px + half;
    }
  }

  // The line, broken where reads failed; the area under it lightly filled.
  drawLine(g, f, visible) {
    const runs = [];
    let run = [];
    for (const [t, v] of visible) {
      if (v === null) { if (run.length) runs.push(run); run = []; continue; }
      run.push([f.x(t), f.y(v)]);
    }
    if (run.length) runs.push(run);
    const floor = PLOT.top + f.plotH;
    for (const points of runs) {
      g.beginPath();
      points.forEach(([px, py], i) => (i ? g.lineTo(px, py) : g.moveTo(px, py)));
      g.strokeStyle = "#1d5fd1"; g.lineWidth = 2; g.lineJoin = "round"; g.stroke();
      g.lineTo(points[points.length - 1][0], floor); g.lineTo(points[0][0], floor); g.closePath();
      g.fillStyle = "rgba(29, 95, 209, 0.08)"; g.fill();
    }
    const last = runs.length ? runs[runs.length - 1] : null;
    if (last) {
      const [px, py] = last[last.length - 1];
      g.beginPath(); g.arc(px, py, 3.5, 0, 2 * Math.PI); g.fillStyle = "#1d5fd1"; g.fill();
    }
  }

  // Each span as its band from lowest to highest with a line through the
  // middles; a gap span is left empty and breaks the line. Returns how many
  // spans with values were drawn.
  drawSpans(g, f) {
    const { from, to, points, spans } = this.history;
    const width = Math.ceil((to - from) / points);
    const runs = [];
    let run = [];
    g.fillStyle = "rgba(29, 95, 209, 0.28)";
    spans.forEach(([start, lowest, highest], i) => {
      if (lowest === null) { if (run.length) runs.push(run); run = []; return; }
      const stop = i + 1 < spans.length ? spans[i + 1][0] : Math.min(start + width, to);
      const x0 = f.x(start), x1 = Math.max(f.x(stop), x0 + 1);
      const top = f.y(highest), bottom = f.y(lowest);
      g.fillRect(x0, top - 0.75, x1 - x0, bottom - top + 1.5);
      run.push([x0, x1, (top + bottom) / 2]);
    });
    if (run.length) runs.push(run);
    g.strokeStyle = "#1d5fd1"; g.lineWidth = 1.5; g.lineJoin = "round";
    let drawn = 0;
    for (const line of runs) {
      drawn += line.length;
      g.beginPath();
      g.moveTo(line[0][0], line[0][2]);
      for (const [x0, x1, y] of line) g.lineTo((x0 + x1) / 2, y);
      g.lineTo(line[line.length - 1][1], line[line.length - 1][2]);
      g.stroke();
    }
    return drawn;
  }

  showNote(live) {
    let text = "";
    if (!live) {
      const spans = this.history ? this.history.spans : [];
      if (this.problem) text = this.problem;
      else if (!this.history) text = "Asking the history…";
      else if (!spans.length) text = "Nothing recorded in the last " + this.choice.label + ".";
      else if (spans.every((s) => s[1] === null)) text = "No value could be read in the last " + this.choice.label + ".";
    }
    this.note.textContent = text;
    this.note.hidden = !text;
  }
}

function tickLabel(t, step) {
  const at = new Date(t);
  if (step >= 86400e3) return at.toLocaleDateString([], { weekday: "short" }) + " " + at.getDate();
  if (step >= 60e3) return at.toLocaleTimeString([], { hour12: false, hour: "2-digit", minute: "2-digit" });
  return at.toLocaleTimeString([], { hour12: false });
}

// ---- one item --------------------------------------------------------------

function ageText(seconds) {
  if (seconds < 1.5) return "updated just now";
  if (seconds < 90) return "updated " + Math.round(seconds) + " s ago";
  if (seconds < 5400) return "updated " + Math.round(seconds / 60) + " min ago";
  return "updated " + Math.round(seconds / 3600) + " h ago";
}

class ItemCard {
  constructor(item, canWrite) {
    this.item = item;
    this.bit = item.kind === "bit";
    this.reading = el("span", { class: "reading", text: "—" });
    this.state = el("span", { class: "state", "data-state": "never-read", text: "never read" });
    this.changed = el("span", { class: "changed" });
    const value = el("div", { class: "value" });
    if (this.bit) {
      this.lamp = el("span", { class: "lamp", "aria-hidden": "true" });
      value.append(this.lamp, this.reading);
    } else {
      value.append(this.reading);
      if (item.unit) value.append(el("span", { class: "unit", text: item.unit }));
    }
    this.node = el("article", {
      class: "item " + (this.bit ? "bit" : "word") + (item.trend ? " trended" : ""),
      "data-var": item.var, "data-state": "never-read",
    }, [
      el("div", { class: "item-head" }, [el("span", { class: "label", text: item.label }), el("span", { class: "var", text: item.var })]),
      value,
    ]);
    if (item.trend) this.addChart();
    if (item.write && canWrite) this.node.append(this.bit ? this.switchControl() : this.numberControl());
    this.node.append(el("div", { class: "item-foot" }, [this.state, this.changed]));
  }

  addChart() {
    this.chart = new Chart(this.item);
    const buttons = WINDOWS.map((w, i) => el("button", {
      type: "button", "aria-pressed": i === 0 ? "true" : "false", text: w.label,
      onclick: (event) => {
        for (const b of buttons) b.setAttribute("aria-pressed", b === event.currentTarget ? "true" : "false");
        this.chart.select(w);
      },
    }));
    this.node.append(el("div", { class: "chart-tools" }, [...buttons, this.chart.csv]), this.chart.box);
  }

  switchControl() {
    this.switch = el("button", {
      type: "button", class: "switch", role: "switch", "aria-checked": "false", "aria-label": "switch " + this.item.label,
      onclick: () => this.send(this.switch.getAttribute("aria-checked") === "true" ? 0 : 1, this.switch),
    });
    this.switchText = el("span", { class: "switch-text" });
    return el("div", { class: "control" }, [this.switch, this.switchText]);
  }

  numberControl() {
    const item = this.item;
    const input = el("input", {
      type: "number", step: String(item.step), min: String(item.min), max: String(item.max),
      "aria-label": "new value for " + item.label, placeholder: "new value",
    });
    const set = el("button", { type: "submit", class: "primary", text: "Set" });
    const form = el("form", {
      class: "control",
      onsubmit: (event) => {
        event.preventDefault();
        if (input.value === "") return;
        if (!input.checkValidity()) { toast(item.var + ": " + input.validationMessage, true); return; }
        this.send(Number(input.value), set).then((ok) => { if (ok) input.value = ""; });
      },
    }, [input, set, item.rangeGiven ? el("span", { class: "range", text: item.min + " – " + item.max }) : null]);
    return form;
  }

  async send(value, control) {
    control.disabled = true;
    try {
      const result = await api("/api/write", { var: this.item.var, value });
      toast(result.message);
      return true;
    } catch (error) {
      toast(error.message, true);
      return false;
    } finally {
      control.disabled = false;
    }
  }

  // A value carries its truth: the page shows what the panel says of it,
  // and a bit never read shows no state at all rather than "off".
  update(state) {
    this.node.dataset.state = state.stateClass;
    this.reading.textContent = state.text;
    this.state.dataset.state = state.stateClass;
    this.state.textContent = state.state;
    this.state.title = state.why || "";
    this.age = state.age;
    this.ageAt = Date.now();
    this.changed.title = state.changedAt ? "last change " + localTime(state.changedAt) : "";
    this.tickAge();
    const known = state.raw !== null;
    const on = known && state.raw !== 0;
    if (this.lamp) {
      this.lamp.classList.toggle("on", on);
      this.lamp.classList.toggle("unknown", !known);
    }
    if (this.switch) {
      this.switch.setAttribute("aria-checked", known ? (on ? "true" : "false") : "mixed");
      const next = on ? this.item.off : this.item.on;
      this.switch.setAttribute("aria-label", "switch " + this.item.label + " to " + next);
      this.switch.title = known ? "switch to " + next : "state not known";
      this.switchText.textContent = known ? (on ? "on" : "off") : "—";
    }
  }

  tickAge() {
    if (this.age === null || this.age === undefined) { this.changed.textContent = ""; return; }
    this.changed.textContent = ageText(this.age + (Date.now() - this.ageAt) / 1000);
  }
}

// ---- screens ---------------------------------------------------------------

function noticeFor(config) {
  if (config.readOnly) return el("p", { class: "notice", text: "Read-only panel: values only, no controls." });
  if (!config.canReadNow) return el("p", { class: "notice", text: "View only: open the address logohost printed, with its token, to operate." });
  return null;
}

async function showScreen(config, main) {
  const name = decodeURIComponent(location.pathname.replace(/^\/screen\//, ""));
  const screen = config.screens.find((s) => s.name === name);
  fillBar(config, name);
  if (!screen) {
    main.replaceChildren(el("p", { class: "notice", text: "There is no screen named “" + name + "”." }));
    pollStatus(() => {});
    return;
  }
  document.title = screen.title + " · " + config.title;
  const cards = new Map();
  const grid = el("div", { class: "grid" });
  for (const item of screen.items) {
    const card = new ItemCard(item, config.canWrite);
    cards.set(item.var, card);
    grid.append(card.node);
  }
  const readNow = el("button", { type: "button", text: "Read now", title: "read every value of this screen once, now" });
  readNow.addEventListener("click", async () => {
    readNow.disabled = true;
    try {
      const result = await api("/api/read", { vars: screen.items.map((i) => i.var) });
      for (const state of result.items) cards.get(state.var)?.update(state);
      toast(result.message);
    } catch (error) {
      toast(error.message, true);
    } finally {
      readNow.disabled = false;
    }
  });
  const head = el("div", { class: "page-head" }, [el("h1", { text: screen.title }), config.canReadNow ? readNow : null]);
  main.replaceChildren(head, noticeFor(config) || "", grid);
  for (const card of cards.values()) card.chart?.draw();
  window.addEventListener("pageshow", (event) => { if (event.persisted) location.reload(); });

  openStream(name, cards, main);
  // Ages and charts move with time even while values stand still.
  setInterval(() => {
    for (const card of cards.values()) { card.tickAge(); card.chart?.schedule(); }
  }, 1000);
}

// The open stream is what keeps this screen scanned: a page the browser
// keeps for its back button must not hold it. Back again, it starts afresh.
// A stream the panel refuses (all its places taken) or that breaks is
// opened again after a while, and the page says why in the meantime.
function openStream(name, cards, main) {
  let lastStatus = null;
  const events = new EventSource("/api/events?screen=" + encodeURIComponent(name));
  events.addEventListener("open", () => showWaiting(main, null));
  events.addEventListener("items", (event) => {
    const data = JSON.parse(event.data);
    for (const state of data.items) cards.get(state.var)?.update(state);
    for (const [variable, points] of Object.entries(data.trends || {})) cards.get(variable)?.chart?.add(points);
  });
  events.addEventListener("status", (event) => { lastStatus = JSON.parse(event.data); showBar(lastStatus, true); });
  events.addEventListener("error", async () => {
    if (events.readyState !== EventSource.CLOSED) { showBar(lastStatus, false); return; }
    let status = null;
    try { status = await api("/api/status"); } catch (error) { status = null; }
    showBar(status, status !== null);
    const full = status && status.scan.openStreams >= status.scan.streamLimit;
    showWaiting(main, full
      ? "This panel shows at most " + status.scan.streamLimit + " screens at once and all are open in other browsers. " +
        "Trying again every " + STREAM_RETRY_MS / 1000 + " s."
      : "The panel did not answer. Trying again every " + STREAM_RETRY_MS / 1000 + " s.");
    setTimeout(() => openStream(name, cards, main), STREAM_RETRY_MS);
  });
  window.addEventListener("pagehide", () => events.close(), { once: true });
}

function showWaiting(main, message) {
  let notice = main.querySelector(".notice.waiting");
  if (!message) { notice?.remove(); return; }
  if (!notice) {
    notice = el("p", { class: "notice waiting", role: "status" });
    main.querySelector(".page-head")?.after(notice);
  }
  notice.textContent = message;
}

function showIndex(config, main) {
  fillBar(config, null);
  document.title = config.title;
  const grid = el("div", { class: "grid" });
  for (const screen of config.screens) {
    const trends = screen.items.filter((i) => i.trend).length;
    const writable = screen.items.filter((i) => i.write).length;
    grid.append(el("a", { class: "item screen-card", href: "/screen/" + encodeURIComponent(screen.name) }, [
      el("h2", { text: screen.title }),
      el("span", { class: "note", text: screen.items.length + " values" + (trends ? ", " + trends + " trended" : "") + (writable ? ", " + writable + " to set" : "") }),
    ]));
  }
  main.replaceChildren(...[el("div", { class: "page-head" }, [el("h1", { text: "Screens" })]), noticeFor(config), grid].filter(Boolean));
  pollStatus(() => {});
}

// ---- alarms ----------------------------------------------------------------

// One alarm of the list an operator works through, updated in place so
// that its button stays the one under the pointer.
class AlarmRow {
  constructor(alarm, unit, onAcknowledge) {
    this.id = alarm.id;
    this.unit = unit;
    this.state = el("span", { class: "alarm-state" });
    this.facts = el("span", { class: "alarm-facts" });
    this.ack = el("span", { class: "alarm-ack" });
    this.button = onAcknowledge
      ? el("button", { type: "button", class: "primary", text: "Acknowledge", onclick: () => onAcknowledge(this) }) : null;
    this.node = el("li", { class: "alarm", "data-alarm": alarm.id }, [
      el("div", { class: "alarm-head" }, [
        el("span", { class: "badge", "data-class": alarm.class, text: alarm.class }),
        el("span", { class: "alarm-text", text: alarm.text }), this.state]),
      el("div", { class: "alarm-foot" }, [this.facts, this.ack, this.button]),
    ]);
  }

  update(alarm) {
    const node = this.node;
    node.dataset.state = alarm.state;
    node.dataset.class = alarm.class;
    node.dataset.acknowledged = String(alarm.acknowledged);
    this.state.textContent = alarm.state;
    const facts = [];
    if (alarm.state === "active") facts.push("since " + localWhen(alarm.since));
    else if (alarm.state === "cleared") facts.push("cleared " + localWhen(alarm.since));
    else facts.push("not known since " + localWhen(alarm.since) + (alarm.why ? ": " + alarm.why : ""));
    if (alarm.state !== "active" && alarm.raisedAt) facts.push("raised " + localWhen(alarm.raisedAt));
    if (alarm.state !== "unknown" && alarm.value !== "") facts.push("value " + alarm.value + (this.unit ? " " + this.unit : ""));
    this.facts.textContent = facts.join(" · ");
    // Acknowledged without a time: there was nothing to acknowledge.
    this.ack.textContent = !alarm.acknowledged ? "not acknowledged"
      : alarm.acknowledgedAt ? "acknowledged by " + alarm.acknowledgedBy + " at " + localWhen(alarm.acknowledgedAt) : "";
    if (this.button) this.button.hidden = alarm.acknowledged;
  }
}

function showAlarms(config, main) {
  fillBar(config, "/alarms");
  document.title = "Alarms · " + config.title;
  const canAcknowledge = config.canWrite && !config.readOnly;
  const rows = new Map();
  const list = el("ul", { class: "alarm-list" });
  const empty = el("p", { class: "note", text: "Loading…" });
  const counts = el("span", { class: "note" });
  const history = el("tbody");
  let historyKey = null;

  const acknowledge = async (row) => {
    row.button.disabled = true;
    try { toast((await api("/api/alarms/ack", { id: row.id })).message); } catch (error) { toast(error.message, true); }
    row.button.disabled = false;
    refresh();
  };

  const refresh = async () => {
    let answer;
    try {
      answer = await api("/api/alarms");
    } catch (error) {
      list.classList.add("stale");
      showWaiting(main, "The panel did not answer (" + error.message + "): the alarms below may be out of date. Trying again every second.");
      return;
    }
    list.classList.remove("stale");
    showWaiting(main, null);
    alarmPill.show(answer.counts);
    counts.textContent = countsText(answer.counts) || "none active, none unacknowledged";
    const wanted = answer.active.map((alarm) => {
      let row = rows.get(alarm.id);
      if (!row) rows.set(alarm.id, row = new AlarmRow(alarm, alarm.unit, canAcknowledge ? acknowledge : null));
      row.update(alarm);
      return row;
    });
    for (const id of rows.keys()) if (!answer.active.some((a) => a.id === id)) rows.delete(id);
    if (wanted.length !== list.children.length || wanted.some((row, i) => list.children[i] !== row.node))
      list.replaceChildren(...wanted.map((row) => row.node));
    empty.textContent = wanted.length ? "" : "No alarm needs attention: none active, none unknown, all acknowledged.";
    const last = answer.history[answer.history.length - 1];
    const key = answer.history.length + (last ? " " + last.at + " " + last.id + " " + last.state : "");
    if (key !== historyKey) {
      historyKey = key;
      history.replaceChildren(...answer.history.slice().reverse().map((event) =>
        el("tr", { "data-alarm": event.id, "data-state": event.state }, [
          cell("time", localWhen(event.at)), cell("alarm", event.text),
          cell("class", el("span", { class: "badge", "data-class": event.class, text: event.class })),
          cell("event", event.state), cell("by", event.by || "—")])));
    }
  };

  main.replaceChildren(...[
    el("div", { class: "page-head" }, [el("h1", { text: "Alarms" }), counts]),
    canAcknowledge ? null : noticeFor(config) || el("p", { class: "notice", text: "This panel does not let this browser acknowledge alarms." }),
    el("section", { class: "block" }, [el("h2", { text: "To work through" }), list, empty]),
    el("section", { class: "block" }, [el("h2", { text: "Changes, newest first" }),
      el("div", { class: "item table-box" }, [listTable(["time", "alarm", "class", "event", "by"], history)])]),
  ].filter(Boolean));
  const poll = async () => { await refresh(); setTimeout(poll, ALARMS_POLL_MS); };
  poll();
  pollStatus(() => {});
}

// ---- journal ---------------------------------------------------------------

function journalRow(entry) {
  return el("tr", { "data-entry": entry.id, "data-kind": entry.kind, "data-ok": String(entry.ok), class: entry.ok ? null : "failed" }, [
    cell("time", localWhen(entry.at)), cell("kind", entry.kind), cell("who", entry.who || "—"),
    cell("subject", entry.subject), cell("value", entry.value),
    cell("outcome", el("span", {}, [entry.ok ? null : el("span", { class: "state", "data-state": "failed", text: "failed" }),
      entry.ok ? entry.outcome : " " + entry.outcome])),
  ]);
}

function showJournal(config, main) {
  fillBar(config, "/journal");
  document.title = "Journal · " + config.title;
  const from = Date.now() - JOURNAL_FROM_MS;
  const kept = new Map();  // id -> {at, id, row}
  let newestAt = from;
  const body = el("tbody");
  const note = el("p", { class: "note", text: "Loading…" });
  const box = el("div", { class: "item table-box", hidden: true }, [listTable(["time", "kind", "who", "subject", "value", "outcome"], body)]);

  const add = (entries) => {
    for (const entry of entries) {
      const at = Date.parse(entry.at);
      kept.set(entry.id, { at, id: entry.id, row: journalRow(entry) });
      newestAt = Math.max(newestAt, at);
    }
    const sorted = [...kept.values()].sort((a, b) => b.at - a.at || b.id - a.id);
    for (const old of sorted.splice(JOURNAL_KEEP)) kept.delete(old.id);
    body.replaceChildren(...sorted.map((k) => k.row));
    box.hidden = !sorted.length;
  };

  const refresh = async () => {
    let since = Math.max(from, newestAt - JOURNAL_OVERLAP_MS);
    for (;;) {
      const answer = await api("/api/journal?since=" + isoOf(since));
      const fresh = answer.entries.filter((entry) => !kept.has(entry.id));
      if (fresh.length) add(fresh);
      if (answer.entries.length < JOURNAL_PAGE) return;
      // A full answer: ask on from its last entry, past it if it was all seen.
      const last = Date.parse(answer.entries[answer.entries.length - 1].at);
      since = fresh.length ? last : last + 1;
    }
  };

  main.replaceChildren(
    el("div", { class: "page-head" }, [el("h1", { text: "Journal" })]),
    note, box);
  const poll = async () => {
    try {
      await refresh();
      showWaiting(main, null);
      note.textContent = (kept.size ? kept.size + " entries" : "No entries") + " since " + localWhen(isoOf(from)) +
        ", newest first" + (kept.size >= JOURNAL_KEEP ? " (the latest " + JOURNAL_KEEP + " shown)" : "") + ".";
    } catch (error) {
      showWaiting(main, "The panel did not answer (" + error.message + "): new entries will show once it does. Trying again every second.");
    }
    setTimeout(poll, JOURNAL_POLL_MS);
  };
  poll();
  pollStatus(() => {});
}

// ---- status ----------------------------------------------------------------

function figure(label, value, extra) {
  return el("div", { class: "item figure" + (extra ? " " + extra : "") }, [
    el("span", { class: "label", text: label }), el("span", { class: "reading", text: String(value) })]);
}

function linkWords(link) {
  return link.state === "not answering" ? "not answering since " + localTime(link.since) + ": " + link.cause : link.state;
}

function linkClass(state) { return state === "ok" ? "ok" : state === "connecting" ? "never-read" : "no-reply"; }

// Pass time and overruns only where the panel gives them.
function controllersTable(controllers) {
  const pass = controllers.some((c) => c.passSeconds !== undefined && c.passSeconds !== null);
  const overruns = controllers.some((c) => c.overruns !== undefined && c.overruns !== null);
  const headings = ["controller", "address", "link", "since", "frames / s", pass && "pass time", overruns && "overruns",
    "failures", "connections", "times lost"].filter(Boolean);
  const rows = controllers.map((c) => el("tr", { "data-controller": c.name, "data-link": c.link.state }, [
    cell("controller", c.name), cell("address", c.address),
    cell("link", el("span", { class: "state", "data-state": linkClass(c.link.state), text: c.link.state + (c.link.cause ? ": " + c.link.cause : "") })),
    cell("since", localWhen(c.link.since) || "—"), cell("frames / s", c.framesPerSecond),
    pass ? cell("pass time", c.passSeconds === undefined || c.passSeconds === null ? "—" : (c.passSeconds * 1000).toFixed(1) + " ms") : null,
    overruns ? cell("overruns", c.overruns ?? "—") : null,
    cell("failures", c.failures), cell("connections", c.connections), cell("times lost", c.losses)]));
  return listTable(headings, rows);
}

function historySection(h) {
  const state = h.problem ? "not writing" : h.writing ? "writing" : "nothing written yet";
  return el("section", { class: "block history" }, [el("h2", { text: "History" }),
    h.problem ? el("p", { class: "notice bad", role: "alert", text: "The history cannot be written" +
      (h.problemSince ? " since " + localWhen(h.problemSince) : "") + ": " + h.problem + ". Held in memory, not yet written: " +
      h.pending + "; samples dropped: " + h.samplesDropped + "; journal entries and alarm events dropped: " + h.entriesDropped + "." }) : null,
    el("div", { class: "figures" }, [
      figure("folder", h.directory, "wide"), figure("state", state), figure("file size", bytesText(h.fileBytes)),
      figure("samples stored", h.samplesStored), figure("samples dropped", h.samplesDropped),
      figure("entries dropped", h.entriesDropped), figure("pending", h.pending)])]);
}

function showStatus(config, main) {
  fillBar(config, "/status");
  document.title = "Status · " + config.title;
  const canSwitch = config.canWrite && !config.readOnly;
  pollStatus((status) => {
    const link = status.link, scan = status.scan, alarms = status.alarms;
    const rows = status.stations.map((station) => {
      const toggle = canSwitch ? el("button", {
        type: "button", class: "switch", role: "switch", "aria-checked": station.on ? "true" : "false",
        "aria-label": "station " + station.station,
        onclick: async (event) => {
          event.currentTarget.disabled = true;
          try { toast((await api("/api/station", { station: station.station, on: !station.on })).message); }
          catch (error) { toast(error.message, true); }
        },
      }) : null;
      return el("tr", { "data-station": station.station }, [
        cell("station", station.station),
        cell("state", el("span", { class: "state", "data-state": station.on ? "ok" : "station-off", text: station.on ? "on" : "off" })),
        cell("note", station.note), el("td", {}, [toggle])]);
    });
    main.replaceChildren(
      el("div", { class: "page-head" }, [el("h1", { text: "Status" }), el("span", { class: "note", text: "controller " + status.controller })]),
      el("section", { class: "block" }, [el("h2", { text: "Link" }), el("div", { class: "figures" }, [
        figure("state", linkWords(link.link), "wide"),
        figure("frames / s", Math.round(link.framesPerSecond)), figure("frames", link.frames), figure("replies", link.replies),
        figure("failures", link.failures), figure("refused", link.refused), figure("connections", link.connections)])]),
      el("section", { class: "block" }, [el("h2", { text: "Controllers" }),
        el("div", { class: "item table-box" }, [controllersTable(status.controllers)])]),
      el("section", { class: "block alarms" }, [el("h2", {}, [el("a", { href: "/alarms", text: "Alarms" })]),
        el("div", { class: "figures" }, [figure("active", alarms.active), figure("not acknowledged", alarms.unacknowledged),
          figure("unknown", alarms.unknown)])]),
      historySection(status.history),
      el("section", { class: "block" }, [el("h2", { text: "Scan" }), el("div", { class: "figures" }, [
        figure("screens open", scan.screens.length ? scan.screens.join(", ") : "none"), figure("variables", scan.variables),
        figure("requests per pass", scan.requests), figure("trended", scan.trends), figure("period", scan.periodSeconds + " s"),
        figure("open streams", scan.openStreams)])]),
      el("section", { class: "block" }, [el("h2", { text: "Stations" }), el("div", { class: "item table-box" }, [
        listTable(["station", "state", "note", ""], rows)])]));
  });
}

function pollStatus(render) {
  const tick = async () => {
    try {
      const status = await api("/api/status");
      showBar(status, true);
      render(status);
    } catch (error) {
      showBar(null, false);
    }
    setTimeout(tick, STATUS_POLL_MS);
  };
  tick();
}

// ---- start -----------------------------------------------------------------

async function start() {
  const main = document.getElementById("main");
  let config;
  try {
    config = await api("/api/screens");
  } catch (error) {
    showBar(null, false);
    main.replaceChildren(el("p", { class: "notice", role: "status",
      text: "The panel did not answer: " + error.message + ". Trying again every " + STREAM_RETRY_MS / 1000 + " s." }));
    setTimeout(start, STREAM_RETRY_MS);
    return;
  }
  // One page for all addresses: /, /screen/NAME, /alarms, /journal and /status.
  const path = location.pathname;
  if (path.startsWith("/screen/")) showScreen(config, main);
  else if (path === "/status") showStatus(config, main);
  else if (path === "/alarms") showAlarms(config, main);
  else if (path === "/journal") showJournal(config, main);
  else showIndex(config, main);
}

start();
