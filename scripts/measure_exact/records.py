# SPDX-License-Identifier: Apache-2.0
"""Records of bursts beside what their packets saw."""
import os
import random
import statistics
import time

from measure_exact.link import BUCKET, FRAME, PAYLOAD, Agent, Quiet
from measure_exact.truth import bursts as bursts_of
from measure_exact.truth import send

THRESHOLD = 2 * FRAME
COALESCING_MS = {"exact": 1, "poll": 3}
NEAR_US = 100  # what a record of a burst may be off and still be counted as its own; sources that look: a look
LARGE = 2 * 10**6  # bytes: no burst is dropped
WITHIN_US = 20


class Kind:
    """Bursts of one sort: how many, over which link, and how long the queue is to exceed its threshold."""

    def __init__(self, name, mbit, count, shortest_us, longest_us, gap_us, limit=LARGE, pieces=1):
        self.name, self.mbit, self.count, self.limit = name, mbit, count, limit
        # One sender alone is hardly faster than the faster link.
        self.threads = 2 if mbit > 500 else 1
        self.shortest_us, self.longest_us, self.gap_us, self.pieces = shortest_us, longest_us, gap_us, pieces

    def plan(self, chance):
        """Bursts that keep the queue above its threshold for so long; if in pieces, with breaks about as long as
        those that make two bursts of one, and packets of any size."""
        offset = 10_000
        for _ in range(self.count):
            payload = PAYLOAD if self.pieces == 1 else chance.randint(600, PAYLOAD)
            frame = payload + FRAME - PAYLOAD
            for piece in range(self.pieces):
                if piece:
                    offset += chance.uniform(0, 3000)
                lasting = chance.uniform(self.shortest_us, self.longest_us)
                # What passes at once, what may wait without being too much, and what waits longer.
                length = BUCKET + THRESHOLD + lasting * self.mbit / 8
                packets = max(2, round(length / frame))
                for flow in range(self.threads):
                    yield offset, (packets + flow) // self.threads, payload, flow
                offset += length * 8 / self.mbit
            offset += self.gap_us


def kinds(bursts):
    tenth = max(1, bursts // 10)
    return [
        Kind("0.05 to 1 ms", 1000, bursts, 50, 1000, 5000),
        Kind("1 to 2 ms, too much", 1000, tenth, 1000, 2000, 6000, limit=60_000),
        Kind("in three pieces", 100, tenth, 200, 1500, 8000, pieces=3),
        *(Kind(f"{size / 1000:g} ms", 100, tenth, size, size, 8000) for size in (300, 500, 1000, 2000, 5000)),
        Kind("5 to 9 ms, too much", 100, tenth, 5000, 9000, 10_000, limit=40_000),
    ]


class Outcome:
    def __init__(self, found, records, kind, source, tc_drops):
        self.kind, self.source, self.tc_drops = kind, source, tc_drops
        self.strangers = assign(found, records, NEAR_US if source == "exact" else 2500)
        # Of a burst that may have been none nothing is asked, but that it is told rightly if it is told.
        self.certain = [one for one in found if one.certain]
        self.doubtful = len(found) - len(self.certain)
        self.recorded = [one for one in self.certain if one.records]
        self.twice = sum(len(one.records) > max(1, len(one.certain)) for one in found)
        self.begins, self.ends, self.peaks, self.latencies, self.unsure = [], [], [], [], []
        for one in self.recorded:
            begin, end, peak = one.spans()
            self.begins.append(outside(one.records[0]["begin"] * 1000, begin) / 1000)
            self.ends.append(outside(one.records[-1]["end"] * 1000, end) / 1000)
            self.peaks.append(outside(max(record["peak"] for record in one.records), peak))
            # Of which of two peaks that may have been alike?
            if peak[0] == peak[1] and self.peaks[-1] == 0:
                self.latencies.append(max(record["latency"] for record in one.records) - one.latency() / 1000)
            self.unsure += [begin[1] - begin[0] > WITHIN_US * 1000, end[1] - end[0] > WITHIN_US * 1000]
        self.drops = sum(one.drops for one in found)
        self.told = sum(record["drops"] for one in self.recorded for record in one.records)
        self.drops_differ = sum(one.drops != sum(record["drops"] for record in one.records) for one in self.recorded)

    def row(self):
        share = 100 * len(self.recorded) / max(1, len(self.certain))
        lasting = sorted((one.certain[-1].end - one.certain[0].begin) / 1000 for one in self.certain) or [0]
        return (f"| {self.kind.mbit} | {self.kind.name} | {self.source} | {len(self.certain)} ({self.doubtful}) | "
                f"{lasting[0]:.0f} / {statistics.median(lasting):.0f} / {lasting[-1]:.0f} | {share:.2f} | "
                f"{len(self.certain) - len(self.recorded)} | {self.twice} | {self.strangers} | {offs(self.begins)} | "
                f"{offs(self.ends)} | {late(self.begins)} / {late(self.ends)} | {sum(self.unsure)} | "
                f"{sum(abs(off) > FRAME for off in self.peaks)}: {worst(self.peaks):+d} | "
                f"{offs(self.latencies)} | {self.drops} / {self.tc_drops} / {self.told} |")

    def failures(self, timing=True):
        """What is not as exact records have to be. Of a thousand peaks one may be off, and of a hundred begins and
        ends: where the processor is taken away from the sender at the wrong moment, a stamp is late."""
        found = []
        few = max(1, len(self.recorded) // 1000)
        if not self.certain or len(self.recorded) < 0.999 * len(self.certain):
            found.append(f"{len(self.certain) - len(self.recorded)} of {len(self.certain)} bursts are not recorded")
        if self.twice or self.strangers:
            found.append(f"{self.twice} bursts are recorded twice, {self.strangers} records are of none")
        if self.drops != self.told or self.drops_differ or self.drops != self.tc_drops:
            found.append(f"{self.drops} packets were dropped (tc: {self.tc_drops}), records tell {self.told}; "
                         f"{self.drops_differ} tell another number than their burst had")
        beyond = sum(abs(off) > FRAME for off in self.peaks)
        if beyond > few:
            found.append(f"{beyond} peaks are off by more than a packet")
        for what, offs in (("begins", self.begins), ("ends", self.ends)):
            if timing and late(offs) > 10 * few:
                found.append(f"{late(offs)} {what} are off by more than {WITHIN_US} us")
        return [f"{self.kind.mbit} Mbit/s, {self.kind.name}: {text}" for text in found]


COLUMNS = ("Mbit/s", "bursts", "source", "number (doubtful)", "lasting, us: from / median / to", "found, %", "missed",
           "twice", "of none", "begin off, us", "end off, us", f"begins / ends over {WITHIN_US} us",
           "not known as well as that", "peaks off by a packet and more: worst, bytes", "latency off, us",
           "dropped: packets / tc / records")
HEADER = f"| {' | '.join(COLUMNS)} |\n{'|---' * len(COLUMNS)}|"


def outside(value, span):
    """How far a value lies outside of what is known."""
    return min(0, value - span[0]) or max(0, value - span[1])


def offs(microseconds):
    """Median, what 99 of 100 keep, and the worst: positive where the record is late."""
    if not microseconds:
        return "-"
    off = sorted(microseconds, key=abs)
    return f"{abs(off[len(off) // 2]):.1f} / {abs(off[int(0.99 * (len(off) - 1))]):.1f} / {off[-1]:+.1f}"


def late(microseconds):
    return sum(abs(value) > WITHIN_US for value in microseconds)


def worst(values):
    return max(values, key=abs, default=0)


def assign(found, records, near_us):
    """Gives each burst its records: those that overlap it or come as near as that. Returns how many are of none."""
    strangers = 0
    first = 0
    for record in records:
        while first < len(found) and found[first].end / 1000 < record["begin"] - near_us:
            first += 1
        fitting = []
        for one in found[first:]:
            if one.begin / 1000 > record["end"] + near_us:
                break
            fitting.append(one)
        strangers += not fitting
        if fitting:
            max(fitting, key=lambda one: min(one.end / 1000, record["end"]) - max(one.begin / 1000, record["begin"])
                ).records.append(record)
    return strangers


def fields(row):
    begin = int(row["timestamp_us"])
    return {"begin": begin, "end": begin + int(row["duration_us"]), "drops": int(row["drops"] or 0),
            "peak": int(row["queue_length_bytes"]), "latency": int(row["latency_us"] or 0)}


def compare(options, link, kind, source, agent):
    """Sends bursts of a sort, and has what the agent then has of them."""
    dropped = link.dropped()
    packets = send(options, list(kind.plan(random.Random(options.seed))), kind.threads)
    time.sleep(0.2)
    records = [fields(row) for row in agent.records("link0")]
    own = [record for record in records if record["end"] * 1000 >= packets[0].enter]
    found = bursts_of(packets, THRESHOLD, COALESCING_MS[source] * 10**6, WITHIN_US * 1000)
    return Outcome(found, own, kind, source, link.dropped() - dropped)


def watcher(options, source, *more):
    return Agent(options, source, "--coalesce", str(COALESCING_MS[source]), *Quiet.OPTIONS, *more)


def measure(options, link, kind, source):
    link.shape(kind.mbit, kind.limit)
    agent = watcher(options, source, "--interface", "link0")
    outcome = compare(options, link, kind, source, agent)
    if options.verbose:
        print(agent.show("status").strip())
    agent.stop()
    return outcome


def main(options, link):
    failures = []
    print(f"load average at the beginning: {' '.join(f'{load:.2f}' for load in os.getloadavg())}")
    print(HEADER)
    for kind in kinds(options.bursts):
        if options.only not in f"{kind.mbit} Mbit/s, {kind.name}":
            continue
        for source in options.sources:
            outcome = measure(options, link, kind, source)
            print(outcome.row(), flush=True)
            if source == "exact":
                failures += outcome.failures()
    print(f"and at the end: {' '.join(f'{load:.2f}' for load in os.getloadavg())}")
    return failures
