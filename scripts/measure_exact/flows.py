# SPDX-License-Identifier: Apache-2.0
"""Reported flows beside what each of 1,000 flows brought into a queue that is congested for a second."""
import collections
import json
import random
import time

from measure_exact.link import BUCKET, FRAME, PAYLOAD, Agent, Quiet
from measure_exact.records import COALESCING_MS, THRESHOLD
from measure_exact.truth import bursts, send

FLOWS = 1000
LARGE_SHARE = 0.05  # a flow of so much of the bytes has to be reported
EACH_US = 200  # packets are sent in small heaps, so that the processor is not all the sender's
MOST = 5  # flows that a record keeps

# How likely a packet is of the flow of a rank.
MIXES = {
    "all alike": lambda rank: 1,
    "Zipf, 1.2": lambda rank: rank**-1.2,
    "four of 10 % among 996 small ones": lambda rank: 0.1 if rank <= 4 else 0.6 / (FLOWS - 4),
}


def plan(mix, mbit, seconds, chance):
    """As much as the link takes, and at the beginning as much more as keeps the queue congested."""
    weights = [mix(rank) for rank in range(1, FLOWS + 1)]
    ahead = BUCKET + 100 * FRAME
    sent = 0
    for offset in range(0, int(seconds * 10**6), EACH_US):
        due = ahead + offset * mbit / 8
        packets = max(0, round((due - sent) / FRAME))
        sent += packets * FRAME
        for flow, count in sorted(collections.Counter(chance.choices(range(FLOWS), weights, k=packets)).items()):
            yield offset, count, PAYLOAD, flow


def entered(packets, begin, end):
    """Bytes that each flow brought into the queue while it was congested."""
    told = collections.Counter()
    for packet in packets:
        if packet.leave and begin <= packet.enter <= end:
            told[packet.flow] += packet.bytes
    return told


def precision_and_recall(truth, rows, ports):
    whole = sum(truth.values())
    large = {flow for flow, count in truth.items() if count >= LARGE_SHARE * whole}
    reported = {ports.get(row["source_port"]): row for row in rows}
    # Of those that are said to be large for certain: what may be too many is taken off.
    said = {flow for flow, row in reported.items() if row["bytes"] - row["error_bytes"] >= LARGE_SHARE * whole}
    wrong = [flow for flow, row in reported.items()
             if not row["bytes"] - row["error_bytes"] - 2 * FRAME <= truth[flow] <= row["bytes"] + 2 * FRAME]
    precision = len(said & large) / len(said) if said else 1
    recall = len(set(reported) & large) / len(large) if large else 1
    return large, precision, recall, wrong


def measure(options, link, name, mix, mbit):
    link.shape(mbit, 2 * 10**6)
    agent = Agent(options, "exact", "--interface", "link0", "--coalesce", str(COALESCING_MS["exact"]), *Quiet.OPTIONS)
    maps = [of for of in agent.loaded() if "map_id" in of]
    packets = send(options, list(plan(mix, mbit, 1, random.Random(options.seed))))
    time.sleep(0.2)
    rows = json.loads(agent.show("who", "--json"))["who"]
    agent.stop()
    longest = max(bursts(packets, THRESHOLD, 10**6), key=lambda one: one.end - one.begin)
    truth = entered(packets, longest.begin, longest.end)
    begin = min((row["timestamp_us"] for row in rows), default=0,
                key=lambda moment: abs(moment - longest.begin / 1000))
    rows = [row for row in rows if row["timestamp_us"] == begin]
    large, precision, recall, wrong = precision_and_recall(truth, rows, {of.port: of.flow for of in packets})
    most = max(truth.values()) / sum(truth.values())
    off = rows[0]["queue_bytes"] - sum(truth.values()) if rows else -sum(truth.values())
    print(f"| {mbit} | {name} | {(longest.end - longest.begin) / 1e6:.0f} | {len(truth)} | {100 * most:.1f} | {len(large)} | "
          f"{100 * precision:.0f} | {100 * recall:.0f} | {len(rows)} | {len(wrong)} | {off:+d} of {sum(truth.values())} | "
          f"{tables['bytes_value'] / 1024:.1f} | {memory / 1024:.0f} |", flush=True)
    failures = []
    if precision < 1 or recall < 1:
        failures.append(f"of flows with 5 % and more, {100 * precision:.0f} % precision, {100 * recall:.0f} % recall")
    if len(rows) != min(MOST, len(truth)) or wrong or abs(off) > 3 * FRAME:
        failures.append(f"{len(rows)} flows are reported, {len(wrong)} of them with bytes beyond their error; the sum is "
                        f"off by {off}")
    return [f"{mbit} Mbit/s, {name}: {text}" for text in failures]


def main(options, link):
    failures = []
    print("| Mbit/s | flows | congested, ms | flows in it | largest, % | of 5 % and more | precision, % | recall, % | "
          "reported | beyond their error | sum off, bytes | KiB a congested queue | KiB in all |\n|---" + "|---" * 12 + "|")
    for mbit in (100, 1000):
        for name, mix in MIXES.items():
            failures += measure(options, link, name, mix, mbit)
    return failures
