# SPDX-License-Identifier: Apache-2.0
"""Reported flows beside what each of 1,000 flows brought into a queue that is congested for a second."""
import collections
import json
import random
import time

from measure_exact.link import BUCKET, FRAME, PAYLOAD
from measure_exact.records import COALESCING_MS, THRESHOLD, outside, watcher
from measure_exact.truth import bursts, passages, send

FLOWS = 1000
LARGE_SHARE = 0.05  # a flow of so much of the bytes has to be reported
EACH_US = 200  # packets are sent in small heaps, so that the processor is not all the sender's
MOST = 5  # flows that a record keeps
FIRST_PORT = 20000  # of the sender's flows

# How likely a packet is of the flow of a rank.
MIXES = {
    "all alike": lambda rank: 1,
    "Zipf, 1.2": lambda rank: rank**-1.2,
    "four of 10 % among 996 small ones": lambda rank: 0.1 if rank <= 4 else 0.6 / (FLOWS - 4),
}


def plan(mix, mbit, seconds, chance):
    """As much as the link takes, and at the beginning as much more as keeps the queue congested."""
    weights = [mix(rank) for rank in range(1, FLOWS + 1)]
    ahead = BUCKET + 400 * FRAME
    sent = 0
    for offset in range(0, int(seconds * 10**6), EACH_US):
        due = ahead + offset * mbit / 8
        packets = max(0, round((due - sent) / FRAME))
        sent += packets * FRAME
        for flow, count in sorted(collections.Counter(chance.choices(range(FLOWS), weights, k=packets)).items()):
            yield offset, count, PAYLOAD, flow


def entered(packets, burst, entry):
    """Bytes that each flow brought into the queue while it was congested."""
    told = collections.Counter()
    backlog = 0
    for moment, way, packet in passages(packets, entry):
        if packet.leave:
            backlog += packet.bytes if way == 1 else -packet.bytes
            if way == 1 and backlog > THRESHOLD and burst.begin <= moment <= burst.end:
                told[packet.flow] += packet.bytes
    return told


def unsure(whole):
    """Bytes: what stamps do not tell of who came in first."""
    return max(3 * FRAME, whole // 1000)


def precision_and_recall(truth, certain, rows):
    whole = sum(truth.values())
    large = {flow for flow, count in truth.items() if count >= LARGE_SHARE * whole}
    reported = {row["source_port"] - FIRST_PORT: row for row in rows}
    said = {flow for flow, row in reported.items() if row["bytes"] >= LARGE_SHARE * whole}
    near = unsure(whole)
    wrong = [flow for flow, row in reported.items()
             if not row["bytes"] - row["error_bytes"] - near <= truth[flow] and
             certain[flow] <= row["bytes"] + near]
    precision = len(said & large) / len(said) if said else 1
    recall = len(set(reported) & large) / len(large) if large else 1
    return large, precision, recall, wrong


def measure(options, link, name, mix, mbit):
    link.shape(mbit, 2 * 10**6)
    agent = watcher(options, "exact", "--interface", "link0")
    objects = [of for of in agent.loaded() if "memlock" in of]
    # The largest values are the tables of flows, one a congested queue.
    table = max(int(of["value_size"]) for of in objects if int(of.get("max_entries", 0)) > 1)
    memory = sum(int(of["memlock"]) for of in objects)
    packets = send(options, list(plan(mix, mbit, 1, random.Random(options.seed))), threads=2)
    time.sleep(0.2)
    rows = json.loads(agent.show("who", "--json"))
    agent.stop()
    longest = max(bursts(packets, THRESHOLD, COALESCING_MS["exact"] * 10**6, 0), key=lambda one: one.end - one.begin)
    truth, certain = (entered(packets, longest, entry) for entry in ("enter", "late"))
    rows = [row for row in rows if abs(row["timestamp_us"] - longest.begin / 1000) < 100]
    large, precision, recall, wrong = precision_and_recall(truth, certain, rows)
    most = max(truth.values()) / sum(truth.values())
    whole = sum(truth.values())
    off = outside(rows[0]["queue_bytes"] if rows else 0, (sum(certain.values()), whole))
    print(f"| {mbit} | {name} | {(longest.end - longest.begin) / 1e6:.0f} | {len(truth)} | {100 * most:.1f} | "
          f"{len(large)} | {100 * precision:.0f} | {100 * recall:.0f} | {len(rows)} | {len(wrong)} | "
          f"{off:+d} of {whole} | {table / 1024:.1f} | {memory / 1024:.0f} |", flush=True)
    failures = []
    if precision < 1 or recall < 1:
        failures.append(f"of flows with 5 % and more, {100 * precision:.0f} % precision, {100 * recall:.0f} % recall")
    if len(rows) != min(MOST, len(truth)) or wrong or abs(off) > unsure(whole):
        failures.append(f"{len(rows)} flows are reported, {len(wrong)} of them with bytes beyond their error; the sum "
                        f"is off by {off}")
    return [f"{mbit} Mbit/s, {name}: {text}" for text in failures]


def main(options, link):
    failures = []
    print("| Mbit/s | flows | congested, ms | flows in it | largest, % | of 5 % and more | precision, % | recall, % | "
          "reported | beyond their error | sum off, bytes | KiB a congested queue | KiB in all |\n|---"
          + "|---" * 12 + "|")
    for mbit in (100, 500):
        for name, mix in MIXES.items():
            failures += measure(options, link, name, mix, mbit)
    return failures
