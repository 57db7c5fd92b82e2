// SPDX-License-Identifier: Apache-2.0
// What the page shows: the data element's records, their columns, and values as text. Moments are microseconds since
// 1970, which a number holds exactly.
"use strict";

const element = (id) => document.getElementById(id);
const data = JSON.parse(element("data").textContent);

// ---- Values as text

const second = 1e6;
const leastSpan = 20; // microseconds
const whole = new Intl.NumberFormat("en-US");
const thousandths = new Intl.NumberFormat("en-US", { minimumFractionDigits: 3, maximumFractionDigits: 3 });

// In the report's zone: "2026-11-24 08:04:26.241473".
function moment(us, digits = 6) {
  const local = us + data.offset * second;
  const inSeconds = Math.floor(local / second);
  if (!(Math.abs(inSeconds) < 8e12)) return String(us); // beyond any calendar
  const text = new Date(inSeconds * 1000).toISOString().slice(0, -5).replace("T", " ");
  return digits === 0 ? text : text + "." + String(local - inSeconds * second).padStart(6, "0").slice(0, digits);
}

function span(us) {
  if (us < 1e3) return us + " µs";
  if (us < second) return thousandths.format(us / 1e3) + " ms";
  if (us < 60 * second) return thousandths.format(us / second) + " s";
  const parts = [[Math.floor(us / 86400e6), "d"], [Math.floor(us / 3600e6) % 24, "h"],
    [Math.floor(us / 60e6) % 60, "min"], [Math.floor(us / second) % 60, "s"]];
  return parts.filter(([count]) => count !== 0).map((part) => part.join(" ")).join(" ");
}

const formats = {
  name: (value) => data.names[value],
  flag: (value) => (value ? "yes" : "no"),
  count: (value) => whole.format(value),
  packets: (value) => whole.format(value),
  bytes: (value) => whole.format(value) + " B",
  microseconds: (value) => thousandths.format(value / 1e3) + " ms",
  moment,
  millionths: (value) => (value / 1e4).toFixed(2) + " %",
};

class Column {
  constructor(told) {
    Object.assign(this, told);
    const words = this.name.replace(/_(us|bytes)$/, "").replaceAll("_", " ");
    this.title ||= words[0].toUpperCase() + words.slice(1);
  }
  text(i) {
    const value = this.values[i];
    return value === null ? "–" : formats[this.unit](value);
  }
  // As it stands in comma-separated reports.
  raw(i) {
    const value = this.values[i];
    return value === null ? "" : this.unit === "name" ? data.names[value] : String(value);
  }
}

const recordColumns = data.records.map((told) => new Column(told));
const queueColumns = data.queues.map((told) => new Column(told));
const recordColumn = (name) => recordColumns.find((column) => column.name === name);
const queueColumn = (name) => queueColumns.find((column) => column.name === name);

// ---- Records

const starts = Float64Array.from(recordColumn("timestamp_us").values);
const durations = recordColumn("duration_us").values; // null: a start record, which has no figures
const lengths = Float64Array.from(recordColumn("queue_length_bytes").values);
const drops = Float64Array.from(recordColumn("drops").values);
const open = recordColumn("open").values;
const lastMoment = Math.max(data.now, data.until);
const ends = Float64Array.from(starts, (start, i) => (open[i] ? lastMoment : start + durations[i]));
const reach = new Float64Array(starts.length); // the latest end so far of its queue
const tallest = lengths.reduce((most, length) => Math.max(most, length), 1);
const limits = { from: data.since, to: data.until };
for (let i = 0; i < starts.length; ++i) {
  limits.from = Math.min(limits.from, starts[i]);
  limits.to = Math.max(limits.to, ends[i]);
}
limits.to = Math.max(limits.to, limits.from + leastSpan);

// The first number from `begin` on, and before `end`, that holds; they are in order.
function firstThat(holds, begin, end) {
  while (begin < end) {
    const middle = (begin + end) >>> 1;
    if (holds(middle)) end = middle;
    else begin = middle + 1;
  }
  return begin;
}

// The least or greatest value of a list of any length; Infinity for an empty one.
const leastOf = (list, valueOf) => list.reduce((least, i) => Math.min(least, valueOf(i)), Infinity);
const mostOf = (list, valueOf) => -leastOf(list, (i) => -valueOf(i));

class Queue {
  constructor(number, begin, end) {
    Object.assign(this, { number, begin, end, low: data.low[number], high: data.high[number] });
    for (let i = begin; i < end; ++i) reach[i] = Math.max(ends[i], i > begin ? reach[i - 1] : 0);
    const queue = queueColumn("queue").values[number];
    this.parts = queue === null ? ["sum of all queues"] : [queueColumn("interface").text(number), data.names[queue]];
    this.name = this.parts.join(" ");
    // What is as high as the row: some more than the high threshold, but no peak is cut off.
    this.full = this.high === 0 ? tallest : Math.max(this.high * 1.15, queueColumn("peak_bytes").values[number]);
  }
  // Calls for each record that lasts at some time between two moments, in order.
  within(from, to, call) {
    const end = firstThat((i) => starts[i] > to, this.begin, this.end);
    for (let i = firstThat((k) => reach[k] >= from, this.begin, end); i < end; ++i) if (ends[i] >= from) call(i);
  }
}

let atRecord = 0;
const queues = data.counts.map((count, number) => new Queue(number, atRecord, (atRecord += count)));
