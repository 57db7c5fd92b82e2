// SPDX-License-Identifier: Apache-2.0
// What the pointer and the keys are at and do, and the beginning.
// The figures of one record, or of some together: a list of names and values.
function figuresOf(found) {
  if (found.length === 1) return recordColumns.map((column) => [column.title, column.text(found[0])]);
  const most = (values) => mostOf(found, (i) => values[i]);
  return [
    ["Records, zoom in for each", whole.format(found.length)],
    ["First begins", moment(starts[found[0]])],
    ["Last ends", moment(most(ends))],
    ["Longest", formats.microseconds(most(durations))],
    ["Peak", formats.bytes(most(lengths))],
    ["Drops", whole.format(found.reduce((sum, i) => sum + drops[i], 0))],
  ];
}

function tell(title, figures, x, y) {
  const tip = element("tip");
  tip.replaceChildren();
  html(tip, "b", title);
  const list = html(tip, "dl");
  for (const [name, value] of figures) {
    html(list, "dt", name);
    html(list, "dd", value);
  }
  tip.hidden = false;
  const { offsetWidth, offsetHeight } = tip;
  tip.style.left = Math.max(4, x + 16 + offsetWidth > innerWidth ? x - 16 - offsetWidth : x + 16) + "px";
  tip.style.top = Math.max(4, y + 16 + offsetHeight > innerHeight ? y - 16 - offsetHeight : y + 16) + "px";
}

function hide() {
  const { row } = hovered;
  hovered.row = null;
  row?.mark();
  element("tip").hidden = true;
  element("cross").style.display = "none";
}

function hover(event) {
  hide();
  const row = rowAt(event.target);
  if (row === undefined) return;
  const { clientX, clientY } = event;
  if (!row.plot.contains(event.target)) {
    const figures = queueColumns.map((column) => [column.title, column.text(row.queue.number)]);
    return tell(row.queue.name, figures, clientX, clientY);
  }
  const x = Math.floor(clientX - row.plot.getBoundingClientRect().left);
  const cross = element("cross");
  cross.style.left = clientX - element("chart").getBoundingClientRect().left + "px";
  cross.style.display = "block";
  const found = row.recordsAt(x);
  if (found.length === 0) return tell(moment(Math.round(momentAt(x))), [["", "no record here"]], clientX, clientY);
  Object.assign(hovered, { row, found });
  row.mark();
  tell(row.queue.name, figuresOf(found), clientX, clientY);
}

function release() {
  const { row } = picked;
  picked.row = null;
  row?.mark();
  hide();
}

// Steps to a record: it comes into view, is framed, and is told to who looks and to who listens.
function pick(row, record) {
  release();
  Object.assign(picked, { row, record });
  const length = view.to - view.from;
  if (ends[record] < view.from || starts[record] > view.to)
    move(starts[record] - length * 0.3, starts[record] + length * 0.7);
  row.element.scrollIntoView({ block: "nearest" });
  row.mark();
  const { left, bottom } = row.plot.getBoundingClientRect();
  tell(row.queue.name, figuresOf([record]), left + rightOf(record), bottom - row.height / 2);
  element("spoken").textContent = `${row.queue.name}, record ${record - row.queue.begin + 1} of ` +
    `${row.queue.end - row.queue.begin}: ` + figuresOf([record]).map((figure) => figure.join(" ")).join(", ");
}

const focusedRow = () => rowOf.get(document.activeElement);

function step(by) {
  const row = focusedRow() ?? picked.row ?? rows[0];
  const { queue } = row;
  let record = picked.record + by;
  if (row !== picked.row) {
    const inView = [];
    queue.within(view.from, view.to, (i) => inView.push(i));
    record = (by > 0 ? inView[0] : inView.at(-1)) ??
      firstThat((i) => starts[i] >= view.from, queue.begin, queue.end - 1);
  }
  if (record >= queue.begin && record < queue.end) pick(row, record);
  else element("spoken").textContent = by > 0 ? "No later record" : "No earlier record";
}

function moveFocus(by) {
  const at = rows.indexOf(focusedRow());
  rows[Math.min(Math.max(at + by, 0), rows.length - 1)].element.focus();
}

const actions = {
  zoomIn: () => zoom(0.5),
  zoomOut: () => zoom(2),
  earlier: () => pan(-0.2),
  later: () => pan(0.2),
  whole: () => move(data.since, data.until),
  next: () => step(1),
  previous: () => step(-1),
  fit: () => {
    if (picked.row === null) return;
    const { row, record } = picked;
    const margin = Math.max((ends[record] - starts[record]) * 0.1, leastSpan);
    move(starts[record] - margin, ends[record] + margin);
    pick(row, record);
  },
  release,
  up: () => moveFocus(-1),
  down: () => moveFocus(1),
};
const keys = { "+": "zoomIn", "=": "zoomIn", "-": "zoomOut", ArrowLeft: "earlier", ArrowRight: "later", Home: "whole",
  f: "fit", F: "fit", Escape: "release" };
const keysOfRow = { Enter: "next", "Shift+Enter": "previous", ArrowUp: "up", ArrowDown: "down" };

function handleKey(event) {
  if (event.ctrlKey || event.metaKey || event.altKey || element("list").contains(event.target)) return;
  const key = (event.shiftKey && event.key === "Enter" ? "Shift+" : "") + event.key;
  const action = keys[key] ?? (focusedRow() && keysOfRow[key]);
  if (action === undefined) return;
  event.preventDefault();
  actions[action]();
}

// ---- The pointer

const drag = { row: null, x: 0, from: 0, to: 0, isSelection: false };
const plotX = (event) => event.clientX - drag.row.plot.getBoundingClientRect().left;

function beginDrag(event) {
  const row = rowAt(event.target);
  if (!row?.plot.contains(event.target) || event.button !== 0) return;
  Object.assign(drag, { row, from: view.from, to: view.to, isSelection: event.shiftKey });
  drag.x = plotX(event);
  row.plot.setPointerCapture(event.pointerId);
}

function goOn(event) {
  if (drag.row === null) return hover(event);
  const x = plotX(event);
  if (!drag.isSelection) {
    const by = ((drag.x - x) * (drag.to - drag.from)) / width;
    return move(drag.from + by, drag.to + by);
  }
  const { style } = element("selection");
  const margin = drag.row.plot.getBoundingClientRect().left - element("chart").getBoundingClientRect().left;
  style.display = "block";
  style.left = margin + Math.min(x, drag.x) + "px";
  style.width = Math.abs(x - drag.x) + "px";
}

function endDrag(event) {
  const { row, x: begin, isSelection } = drag;
  if (row === null) return;
  const x = plotX(event);
  drag.row = null;
  element("selection").style.display = "none";
  if (event.type === "pointercancel") return;
  if (Math.abs(x - begin) < 4) {
    const [record] = row.recordsAt(Math.floor(x));
    if (record !== undefined) pick(row, record);
  } else if (isSelection) {
    move(momentAt(Math.min(x, begin)), momentAt(Math.max(x, begin)));
  }
}

function turnWheel(event) {
  const row = rowAt(event.target);
  if (!row?.plot.contains(event.target) || event.ctrlKey) return;
  event.preventDefault();
  const pixels = event.deltaMode === WheelEvent.DOM_DELTA_LINE ? 16 : 1;
  const isAcross = event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY);
  if (isAcross) pan(((event.deltaX || event.deltaY) * pixels) / width);
  else zoom(Math.exp(event.deltaY * pixels * 0.002), event.clientX - row.plot.getBoundingClientRect().left);
}

// ---- The beginning

const rows = queues.map((queue) => new Row(queue));
const rowOf = new Map(rows.map((row) => [row.element, row]));
const rowAt = (target) => rowOf.get(target.closest(".row"));
element("made").textContent = `Report of ${moment(data.now)} (${data.zone}), of the time from ${moment(data.since)} ` +
  `to ${moment(data.until)}.`;
if (rows.length === 0) {
  element("nothing").textContent = "No congestion that fits was recorded in this time.";
  element("nothing").hidden = false;
  for (const id of ["bar", "summary", "key", "chart", "keys", "listed", "many"]) element(id).hidden = true;
} else {
  const seen = new IntersectionObserver((changes) => {
    for (const change of changes) rowOf.get(change.target).isSeen = change.isIntersecting;
    requestDraw();
  }, { rootMargin: "200px" });
  for (const row of rows) seen.observe(row.element);
  new ResizeObserver(requestDraw).observe(element("chart"));
  const chart = element("chart");
  chart.addEventListener("pointerdown", beginDrag);
  chart.addEventListener("pointermove", goOn);
  chart.addEventListener("pointerup", endDrag);
  chart.addEventListener("pointercancel", endDrag);
  chart.addEventListener("pointerleave", hide);
  chart.addEventListener("wheel", turnWheel, { passive: false });
  document.addEventListener("keydown", handleKey);
  addEventListener("hashchange", showLink);
  for (const button of document.querySelectorAll("[data-do]"))
    button.addEventListener("click", () => actions[button.dataset.do]());
  showLink();
}
