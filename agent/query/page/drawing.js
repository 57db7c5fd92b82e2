// SPDX-License-Identifier: Apache-2.0
// The window that is shown, and its picture: a row a queue, aggregated by pixel, so that a frame costs one walk over
// the records in view, whatever their number.

const view = { from: 0, to: leastSpan };
let width = 1; // of a plot, in pixels
const scale = () => width / (view.to - view.from);
const momentAt = (x) => view.from + x / scale();
const leftOf = (i) => Math.max(0, Math.floor((starts[i] - view.from) * scale()));
const rightOf = (i) => Math.min(width, Math.max(leftOf(i) + 1, Math.ceil((ends[i] - view.from) * scale())));

function show(from, to) {
  view.from = Math.round(from);
  view.to = Math.max(Math.round(to), view.from + leastSpan);
  hide();
  requestDraw();
}

// As near as the limits allow.
function move(from, to) {
  const length = Math.min(Math.max(Math.round(to - from), leastSpan), limits.to - limits.from);
  const begin = Math.round(Math.min(Math.max(from, limits.from), limits.to - length));
  show(begin, begin + length);
}

function zoom(factor, x = width / 2) {
  const fixed = momentAt(x);
  move(fixed - (fixed - view.from) * factor, fixed + (view.to - fixed) * factor);
}

function pan(share) {
  const by = (view.to - view.from) * share;
  move(view.from + by, view.to + by);
}

// "#from=US&to=US".
function showLink() {
  const told = new URLSearchParams(location.hash.slice(1));
  const [from, to] = ["from", "to"].map((name) => (/^\d{1,16}$/.test(told.get(name)) ? Number(told.get(name)) : NaN));
  if (from <= to) show(from, to);
  else show(data.since, data.until);
}

// The records that the pointer is over, and the one that was stepped to.
const hovered = { row: null, found: [] };
const picked = { row: null, record: -1 };

// ---- Drawing

function svg(parent, name, attributes = {}) {
  const made = document.createElementNS("http://www.w3.org/2000/svg", name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  return parent.appendChild(made);
}

function html(parent, name, text = "", className = "") {
  const made = document.createElement(name);
  made.textContent = text;
  if (className !== "") made.className = className;
  return parent.appendChild(made);
}

let rowHeight = 0; // that of all plots; asked for once, since each time costs a layout

class Row {
  constructor(queue) {
    this.queue = queue;
    this.isSeen = false;
    this.element = html(element("rows"), "div", "", "row");
    const figures = (name) => queueColumn(name).text(queue.number);
    const bursts = figures("bursts") + (figures("bursts") === "1" ? " burst" : " bursts");
    const congested = span(queueColumn("congested_us").values[queue.number]);
    const lost = queueColumn("drops").values[queue.number];
    this.label = html(this.element, "div", "", "label");
    const name = html(this.label, "b");
    for (const part of queue.parts) html(name, "span", part);
    const line = html(this.label, "span");
    if (lost !== 0) html(line, "em", "▼ " + whole.format(lost) + (lost === 1 ? " drop" : " drops"));
    line.append((lost !== 0 ? " · " : "") + bursts);
    html(this.label, "span", "congested " + congested + " · " + figures("congested_share"));
    this.element.tabIndex = 0;
    this.element.setAttribute("role", "group");
    this.element.setAttribute("aria-label", `${queue.name}: ${whole.format(lost)} drops, ${bursts}, congested for ` +
      `${congested}, ${figures("congested_share")} of the window. Enter steps through its records.`);
    this.plot = svg(this.element, "svg", { class: "plot", "aria-hidden": "true" });
    this.grid = null;
  }

  // What is in the plot, made when it is first seen: there may be thousands of rows.
  furnish() {
    this.height = rowHeight ||= this.plot.clientHeight;
    this.grid = svg(this.plot, "path", { class: "grid" });
    this.bars = ["calm", "low", "high"].map((name) => svg(this.plot, "path", { class: name }));
    this.lost = svg(this.plot, "path", { class: "lost" });
    this.limits();
    this.picked = svg(this.plot, "path", { class: "picked" });
  }

  y(bytes) {
    return Math.round((this.height - (bytes / this.queue.full) * (this.height - 10)) * 10) / 10;
  }

  // The thresholds, where they are known.
  limits() {
    let above = -Infinity; // the last text's place
    for (const [name, bytes] of [["high", this.queue.high], ["low", this.queue.low]]) {
      if (bytes === 0) continue;
      const y = this.y(bytes);
      svg(this.plot, "line", { class: "limit", x1: 0, x2: "100%", y1: y, y2: y });
      if (y - above > 12) svg(this.plot, "text", { x: 4, y: y - 3 }).textContent = name + " " + formats.bytes(bytes);
      above = y;
    }
  }

  draw(gridPath) {
    if (this.grid === null) this.furnish();
    const { queue, height } = this;
    const peaks = new Float64Array(width).fill(-1);
    let marks = "";
    let markedTo = -Infinity;
    queue.within(view.from, view.to, (i) => {
      const left = leftOf(i);
      const right = rightOf(i);
      for (let x = left; x < right; ++x) if (peaks[x] < lengths[i]) peaks[x] = lengths[i];
      // Nothing tells when in a burst its packets were dropped.
      if (drops[i] === 0 || left < markedTo || starts[i] < view.from) return;
      marks += `M${left - 4} 0h9l-4.5 8z`;
      markedTo = left + 5;
    });
    const paths = ["", "", ""];
    for (let x = 0; x < width;) {
      const peak = peaks[x];
      const left = x;
      while (x < width && peaks[x] === peak) ++x;
      if (peak < 0) continue;
      const severity = queue.high !== 0 && peak >= queue.high ? 2 : queue.low !== 0 && peak >= queue.low ? 1 : 0;
      paths[severity] += `M${left} ${height}V${Math.min(this.y(peak), height - 2)}H${x}V${height}Z`;
    }
    this.bars.forEach((bar, severity) => bar.setAttribute("d", paths[severity]));
    this.lost.setAttribute("d", marks);
    this.grid.setAttribute("d", gridPath.replaceAll("|", height));
    this.mark();
  }

  // Frames the records that the pointer is over, or the one that was stepped to.
  mark() {
    if (this.grid === null) return;
    const found = hovered.row === this ? hovered.found : picked.row === this ? [picked.record] : [];
    const shown = found.filter((i) => ends[i] >= view.from && starts[i] <= view.to);
    const left = leastOf(shown, leftOf);
    this.picked.setAttribute("d", shown.length === 0 ? ""
      : `M${left - 1} 1H${mostOf(shown, rightOf) + 1}V${this.height - 1}H${left - 1}Z`);
  }

  // What stands at a pixel, or next to it.
  recordsAt(x) {
    const near = [];
    this.queue.within(momentAt(x - 3), momentAt(x + 4), (i) => near.push(i));
    const distance = (i) => Math.max(leftOf(i) - x, x - rightOf(i) + 1, 0);
    const least = leastOf(near, distance);
    const found = near.filter((i) => distance(i) === least && least <= 3);
    const withFigures = found.filter((i) => durations[i] !== null);
    return withFigures.length === 0 ? found : withFigures;
  }
}

const steps = [1, 2, 5, 10, 20, 50, 100, 200, 500, 1e3, 2e3, 5e3, 1e4, 2e4, 5e4, 1e5, 2e5, 5e5,
  ...[1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200].map((s) => s * second)];

// The marks below the time's labels, and the lines of the grid, "|" standing for a row's height.
function drawAxis() {
  const isFine = view.to - view.from < 20 * second;
  const least = (isFine ? 130 : 85) / scale();
  const room = isFine ? 55 : 36; // half of a label
  const day = 86400 * second;
  const step = steps.find((one) => one >= least) ?? Math.ceil(least / day) * day;
  const digits = step >= second ? 0 : Math.ceil(6 - Math.log10(step));
  const offset = data.offset * second;
  const axis = element("axis");
  axis.replaceChildren();
  const ticks = svg(axis, "path");
  let tickPath = "";
  let gridPath = "";
  for (let at = Math.ceil((view.from + offset) / step) * step - offset; at <= view.to; at += step) {
    const x = Math.round((at - view.from) * scale()) + 0.5;
    const text = moment(at, digits);
    const isMidnight = (at + offset) % day === 0;
    tickPath += `M${x} 24V30`;
    gridPath += `M${x} 0V|`;
    if (x < room || x > width - room) continue;
    const label = isMidnight ? text.slice(0, 10) : text.slice(11, step < 60 * second ? undefined : 16);
    svg(axis, "text", { x, y: 18 }).textContent = label;
  }
  ticks.setAttribute("d", tickPath);
  element("unit").textContent = moment(view.from, 0).slice(0, 10) + " (" + data.zone + ")";
  return gridPath;
}

let isRequested = false;
let settled = 0;

function requestDraw() {
  if (!isRequested) requestAnimationFrame(draw);
  isRequested = true;
}

function draw() {
  isRequested = false;
  width = Math.max(1, element("axis").clientWidth);
  const gridPath = drawAxis();
  for (const row of rows) if (row.isSeen) row.draw(gridPath);
  let records = 0;
  let congested = 0;
  for (const queue of queues) {
    const before = records;
    queue.within(view.from, view.to, () => ++records);
    if (records !== before) ++congested;
  }
  element("summary").textContent = `${whole.format(records)} ${records === 1 ? "record" : "records"} of ` +
    `${whole.format(congested)} ${congested === 1 ? "queue" : "queues"} in view, from ${moment(view.from)} to ` +
    `${moment(view.to)}: ${span(view.to - view.from)}`;
  clearTimeout(settled);
  settled = setTimeout(settle, 150, records);
}

// What need not follow every frame: the address, and the records in view as a table.
function settle(records) {
  history.replaceState(null, "", `#from=${view.from}&to=${view.to}`);
  const most = 200;
  const table = element("table");
  table.replaceChildren();
  element("many").textContent = records > most
    ? `${whole.format(records)} records are in view. Zoom in: up to ${most} are listed here.`
    : records === 0 ? "None." : "";
  if (records === 0 || records > most) return;
  const head = html(html(table, "thead"), "tr");
  for (const column of recordColumns) {
    const title = html(head, "th", column.title, column.unit);
    title.scope = "col";
    title.title = column.meaning;
  }
  const listed = [];
  for (const queue of queues) queue.within(view.from, view.to, (i) => listed.push(i));
  listed.sort((a, b) => starts[a] - starts[b]);
  const body = html(table, "tbody");
  for (const i of listed) {
    const line = html(body, "tr");
    for (const column of recordColumns)
      html(html(line, "td", "", column.unit), "data", column.text(i)).value = column.raw(i);
  }
}
