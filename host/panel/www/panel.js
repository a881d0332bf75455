// logohost panel: the screens list, a live screen and the status page.
// Values arrive as server-sent events; every change the operator makes is
// a JSON request whose answer carries the driver's result.
"use strict";

const WINDOWS = [{ label: "1 min", ms: 60e3 }, { label: "5 min", ms: 300e3 }, { label: "10 min", ms: 600e3 }];
const STATUS_POLL_MS = 1000;
const STREAM_RETRY_MS = 5000;

function el(tag, attrs, children) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(attrs || {})) {
    if (key === "text") node.textContent = value;
    else if (key.startsWith("on")) node.addEventListener(key.slice(2), value);
    else if (value !== undefined && value !== null && value !== false) node.setAttribute(key, value === true ? "" : value);
  }
  for (const child of children || []) if (child) node.append(child);
  return node;
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

// ---- the bar ---------------------------------------------------------------

function fillBar(config, current) {
  document.getElementById("panel-title").textContent = config.title;
  const tabs = document.getElementById("tabs");
  tabs.replaceChildren();
  for (const screen of config.screens) {
    const href = "/screen/" + encodeURIComponent(screen.name);
    tabs.append(el("a", { href, "aria-current": current === screen.name ? "page" : null, text: screen.title }));
  }
  tabs.append(el("a", { href: "/status", "aria-current": current === "/status" ? "page" : null, text: "Status" }));
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

function localTime(iso) { return iso ? new Date(iso).toLocaleTimeString([], { hour12: false }) : ""; }

function ageText(seconds) {
  if (seconds < 1.5) return "updated just now";
  if (seconds < 90) return "updated " + Math.round(seconds) + " s ago";
  if (seconds < 5400) return "updated " + Math.round(seconds / 60) + " min ago";
  return "updated " + Math.round(seconds / 3600) + " h ago";
}

// ---- trend charts ----------------------------------------------------------

class Chart {
  constructor(item) {
    this.item = item;
    this.points = [];
    this.windowMs = WINDOWS[0].ms;
    this.canvas = el("canvas", { "aria-label": "trend of " + item.label, role: "img" });
    this.box = el("div", { class: "chart" }, [this.canvas]);
    new ResizeObserver(() => this.draw()).observe(this.box);
  }

  add(points) {
    this.points.push(...points);
    const keepFrom = Date.now() - WINDOWS[WINDOWS.length - 1].ms;
    while (this.points.length && this.points[0][0] < keepFrom) this.points.shift();
    this.schedule();
  }

  schedule() {
    if (this.pending) return;
    this.pending = true;
    requestAnimationFrame(() => { this.pending = false; this.draw(); });
  }

  range(visible) {
    const item = this.item;
    if (item.rangeGiven) return [item.min, item.max];
    const values = visible.map((p) => p[1]).filter((v) => v !== null);
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

    // While the history is shorter than the window, it fills the width.
    const end = Date.now();
    const first = this.points.length ? this.points[0][0] : end;
    const start = Math.max(end - this.windowMs, Math.min(first, end - 10e3));
    const span = end - start;
    const visible = this.points.filter((p) => p[0] >= start - 2000);
    const [low, high] = this.range(visible);
    const left = 52, right = 10, top = 8, bottom = 22;
    const plotW = width - left - right, plotH = height - top - bottom;
    const x = (t) => left + ((t - start) / span) * plotW;
    const y = (v) => top + (1 - (v - low) / (high - low)) * plotH;

    g.font = "11px system-ui, sans-serif";
    g.fillStyle = "#6b7684";
    g.strokeStyle = "#e6eaef";
    g.lineWidth = 1;
    g.textAlign = "right";
    g.textBaseline = "middle";
    for (let i = 0; i <= 4; ++i) {
      const v = low + ((high - low) * i) / 4, py = Math.round(y(v)) + 0.5;
      g.beginPath(); g.moveTo(left, py); g.lineTo(width - right, py); g.stroke();
      g.fillText(v.toFixed(Math.min(this.item.decimals || 0, 2)), left - 6, py);
    }
    g.textAlign = "center";
    g.textBaseline = "top";
    const step = [5e3, 10e3, 15e3, 30e3, 60e3, 120e3, 300e3].find((s) => span / s <= 5) || 300e3;
    for (let t = Math.ceil(start / step) * step; t <= end; t += step) {
      const px = Math.round(x(t)) + 0.5;
      g.beginPath(); g.moveTo(px, top); g.lineTo(px, top + plotH); g.stroke();
      g.fillText(new Date(t).toLocaleTimeString([], { hour12: false }), px, top + plotH + 5);
    }

    // The line, broken where reads failed; the area under it lightly filled.
    g.save();
    g.beginPath(); g.rect(left, top, plotW, plotH); g.clip();
    const runs = [];
    let run = [];
    for (const [t, v] of visible) {
      if (v === null) { if (run.length) runs.push(run); run = []; continue; }
      run.push([x(t), y(Math.min(Math.max(v, low), high))]);
    }
    if (run.length) runs.push(run);
    for (const points of runs) {
      g.beginPath();
      points.forEach(([px, py], i) => (i ? g.lineTo(px, py) : g.moveTo(px, py)));
      g.strokeStyle = "#1d5fd1"; g.lineWidth = 2; g.lineJoin = "round"; g.stroke();
      g.lineTo(points[points.length - 1][0], top + plotH); g.lineTo(points[0][0], top + plotH); g.closePath();
      g.fillStyle = "rgba(29, 95, 209, 0.08)"; g.fill();
    }
    const last = runs.length ? runs[runs.length - 1] : null;
    if (last) {
      const [px, py] = last[last.length - 1];
      g.beginPath(); g.arc(px, py, 3.5, 0, 2 * Math.PI); g.fillStyle = "#1d5fd1"; g.fill();
    }
    g.restore();
  }
}

// ---- one item --------------------------------------------------------------

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
        this.chart.windowMs = w.ms;
        for (const b of buttons) b.setAttribute("aria-pressed", b === event.currentTarget ? "true" : "false");
        this.chart.draw();
      },
    }));
    const csv = el("a", { class: "button", href: "/api/trend.csv?var=" + encodeURIComponent(this.item.var), download: "", text: "CSV" });
    this.node.querySelector(".item-head").append(el("div", { class: "chart-tools" }, [...buttons, csv]));
    this.node.append(this.chart.box);
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

// ---- pages -----------------------------------------------------------------

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
  events.addEventListener("status", (event) => { lastStatus = JSON.parse(event.data); showLink(lastStatus, true); });
  events.addEventListener("error", async () => {
    if (events.readyState !== EventSource.CLOSED) { showLink(lastStatus, false); return; }
    let status = null;
    try { status = await api("/api/status"); } catch (error) { status = null; }
    showLink(status, status !== null);
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

function figure(label, value) {
  return el("div", { class: "item figure" }, [el("span", { class: "label", text: label }), el("span", { class: "reading", text: String(value) })]);
}

function showStatus(config, main) {
  fillBar(config, "/status");
  document.title = "Status · " + config.title;
  const canSwitch = config.canWrite && !config.readOnly;
  pollStatus((status) => {
    const link = status.link, scan = status.scan;
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
        el("td", { text: String(station.station) }),
        el("td", {}, [el("span", { class: "state", "data-state": station.on ? "ok" : "station-off", text: station.on ? "on" : "off" })]),
        el("td", { class: "note", text: station.note }),
        el("td", {}, [toggle]),
      ]);
    });
    const controllers = status.controllers.map((c) => el("tr", { "data-controller": c.name }, [
      el("td", { text: c.name }), el("td", { class: "note", text: c.address }),
      el("td", {}, [el("span", { class: "state", "data-state": linkClass(c.link.state), text: linkWords(c.link) })]),
      el("td", { text: String(c.framesPerSecond) }), el("td", { text: String(c.failures) }),
      el("td", { text: String(c.connections) }), el("td", { text: String(c.losses) })]));
    main.replaceChildren(
      el("div", { class: "page-head" }, [el("h1", { text: "Status" }), el("span", { class: "note", text: "controller " + status.controller })]),
      el("section", { class: "block" }, [el("h2", { text: "Link" }), el("div", { class: "figures" }, [
        figure("state", linkWords(link.link)),
        figure("frames / s", Math.round(link.framesPerSecond)), figure("frames", link.frames), figure("replies", link.replies),
        figure("failures", link.failures), figure("refused", link.refused), figure("connections", link.connections)])]),
      el("section", { class: "block" }, [el("h2", { text: "Controllers" }), el("div", { class: "item" }, [
        el("table", { class: "stations controllers" }, [
          el("thead", {}, [el("tr", {}, ["controller", "address", "link", "frames / s", "failures", "connections", "times lost"]
            .map((h) => el("th", { text: h })))]),
          el("tbody", {}, controllers)])])]),
      el("section", { class: "block" }, [el("h2", { text: "Scan" }), el("div", { class: "figures" }, [
        figure("screens open", scan.screens.length ? scan.screens.join(", ") : "none"), figure("variables", scan.variables),
        figure("requests per pass", scan.requests), figure("trended", scan.trends), figure("period", scan.periodSeconds + " s"),
        figure("open streams", scan.openStreams)])]),
      el("section", { class: "block" }, [el("h2", { text: "Stations" }), el("div", { class: "item" }, [
        el("table", { class: "stations" }, [
          el("thead", {}, [el("tr", {}, ["station", "state", "note", ""].map((h) => el("th", { text: h })))]),
          el("tbody", {}, rows)])])]));
  });
}

function linkWords(link) {
  return link.state === "not answering" ? "not answering since " + localTime(link.since) + ": " + link.cause : link.state;
}

function linkClass(state) { return state === "ok" ? "ok" : state === "connecting" ? "never-read" : "no-reply"; }

function pollStatus(render) {
  const tick = async () => {
    try {
      const status = await api("/api/status");
      showLink(status, true);
      render(status);
    } catch (error) {
      showLink(null, false);
    }
    setTimeout(tick, STATUS_POLL_MS);
  };
  tick();
}

async function start() {
  const main = document.getElementById("main");
  let config;
  try {
    config = await api("/api/screens");
  } catch (error) {
    main.replaceChildren(el("p", { class: "notice", text: "The panel did not answer: " + error.message }));
    return;
  }
  // One page for all addresses: /, /screen/NAME and /status.
  if (location.pathname.startsWith("/screen/")) showScreen(config, main);
  else if (location.pathname === "/status") showStatus(config, main);
  else showIndex(config, main);
}

start();
