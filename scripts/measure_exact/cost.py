# SPDX-License-Identifier: Apache-2.0
"""What the probe costs those who send, and what the agent costs while nothing happens."""
import contextlib
import ctypes
import os
import platform
import random
import statistics
import subprocess
import sys
import time

from measure_exact.flows import MIXES, plan
from measure_exact.link import ADDRESS, PAYLOAD, ROOT, Agent, Quiet, kernel_objects, run
from measure_exact.truth import send

STATISTICS = "/proc/sys/kernel/bpf_stats_enabled"
POINTS = ("qdisc_enqueue", "qdisc_dequeue", "kfree_skb")
SMALL = 64  # bytes of payload
IDLE_SECONDS = 30


class EmptyPrograms:
    """Programs that do nothing at the same points."""

    def __init__(self, options):
        binary = f"{options.scratch}/empty.bpf.o"
        headers = f"/usr/include/{platform.machine()}-linux-gnu"
        run("clang", "-target", "bpf", "-O2", "-g", "-idirafter", headers, "-c", f"{ROOT}/tools/empty.bpf.c",
            "-o", binary)
        self.library = ctypes.CDLL("libbpf.so.1", use_errno=True)
        for name in ("open_file", "next_program"):
            getattr(self.library, f"bpf_object__{name}").restype = ctypes.c_void_p
        self.library.bpf_program__attach.restype = ctypes.c_void_p
        self.object = ctypes.c_void_p(self.library.bpf_object__open_file(binary.encode(), None))
        if not self.object or self.library.bpf_object__load(self.object) != 0:
            sys.exit(f"measure-exact: the empty programs cannot be loaded: {os.strerror(ctypes.get_errno())}")
        program = None
        self.links = []
        while program := self.library.bpf_object__next_program(self.object, ctypes.c_void_p(program)):
            self.links.append(ctypes.c_void_p(self.library.bpf_program__attach(ctypes.c_void_p(program))))

    def loaded(self):
        return kernel_objects("self")

    def stop(self):
        for link in self.links:
            self.library.bpf_link__destroy(link)
        self.library.bpf_object__close(self.object)


@contextlib.contextmanager
def watching(options, who):
    """Nobody, the agent by its options, or the empty programs."""
    if who == "nobody":
        yield None
        return
    if who == "empty programs":
        watcher = EmptyPrograms(options)
    else:
        watcher = Agent(options, *who.split(), "--interface", "link0", *Quiet.OPTIONS)
    try:
        yield watcher
    finally:
        watcher.stop()


@contextlib.contextmanager
def kernel_counts():
    """The kernel times its programs, which costs as well."""
    with open(STATISTICS) as file:
        before = file.read()
    with open(STATISTICS, "w") as file:
        file.write("1")
    try:
        yield
    finally:
        with open(STATISTICS, "w") as file:
            file.write(before)


def runs(watcher):
    """By the point in the kernel: nanoseconds and runs so far."""
    objects = watcher.loaded()
    programs = {of["prog_id"]: of for of in objects if "run_cnt" in of}
    return {of["tp_name"]: (int(programs[of["prog_id"]]["run_time_ns"]), int(programs[of["prog_id"]]["run_cnt"]))
            for of in objects if of.get("tp_name") in POINTS}


def flood(options, seconds=0.7, payload=SMALL):
    """Packets a second of one processor, and nanoseconds of its time that each took."""
    told = run(*options.real_time_sender, options.traffic, "--to", ADDRESS, "--flood", str(seconds), "--payload",
               str(payload))
    return tuple(map(float, told.split()))


def uncongested(options, link):
    # No queue that packets pass by where it is empty, and never a limit.
    link.shape(100_000, 10**6, bucket=10**6)
    return lambda: flood(options)


def congested(mix):
    def prepare(options, link):
        link.shape(500, 2 * 10**6)
        groups = list(plan(mix, 500, 2, random.Random(options.seed)))
        return lambda: send(options, groups, threads=2)
    return prepare


def overfull(options, link):
    link.shape(100, 60_000)
    return lambda: flood(options, payload=PAYLOAD)


SITUATIONS = {
    "never congested": uncongested,
    "congested, one flow": congested(lambda rank: rank == 1),
    "congested, 1,000 flows, Zipf": congested(MIXES["Zipf, 1.2"]),
    "congested, 1,000 flows alike": congested(MIXES["all alike"]),
    "full, most are dropped": overfull,
}


def time_programs(options, link):
    print("Nanoseconds of a run, as the kernel times it, and how many runs:\n\n"
          f"| queue | | {' | '.join(POINTS)} |\n|---|---" + "|---" * len(POINTS) + "|")
    with kernel_counts():
        for name, prepare in SITUATIONS.items():
            for who in ("empty programs", "exact --no-flows", "exact"):
                work = prepare(options, link)
                with watching(options, who) as watcher:
                    before = runs(watcher)
                    work()
                    cells = []
                    for point, (nanoseconds, count) in runs(watcher).items():
                        nanoseconds, count = nanoseconds - before[point][0], count - before[point][1]
                        cells.append(f"{nanoseconds / max(1, count):.0f} ({count})")
                    print(f"| {name} | {who} | {' | '.join(cells)} |", flush=True)


def throughput(options, link):
    """Interleaved: each round has all of them, so that what else the machine does meets all alike."""
    everybody = ("nobody", "empty programs", "exact --no-flows", "exact", "poll")
    print(f"\nPackets a second that one processor sends, {options.rounds} rounds, and beside nobody watching in the "
          "same round:\n\n| queue | who watches | median | best round | ratio, median and quartiles | best rounds' |\n"
          "|---|---|---|---|---|---|")
    for name in ("never congested", "full, most are dropped"):
        rates = {who: [] for who in everybody}
        for _ in range(options.rounds):
            for who in everybody:
                work = SITUATIONS[name](options, link)
                with watching(options, who):
                    rates[who].append(work()[0])
        for who in everybody:
            ratios = [rate / alone for rate, alone in zip(rates[who], rates["nobody"])]
            low, middle, high = statistics.quantiles(ratios, n=4)
            best = max(rates[who])
            print(f"| {name} | {who} | {statistics.median(rates[who]):.0f} | {best:.0f} | "
                  f"{middle:.3f} ({low:.3f} to {high:.3f}) | {best / max(rates['nobody']):.3f} |", flush=True)


def idle(options, link):
    print(f"\nThe agent while nothing happens, {IDLE_SECONDS} s:\n\n"
          "| source | % of one processor | times it was on one |\n|---|---|---|")
    for source in ("exact", "poll"):
        link.shape(100, 60_000)
        with watching(options, source) as agent:
            time.sleep(1)
            before, switches = agent.busy()
            time.sleep(IDLE_SECONDS)
            after, later = agent.busy()
            print(f"| {source} | {(after - before) / IDLE_SECONDS / 1e7:.4f} | {later - switches} |", flush=True)


def main(options, link):
    if subprocess.run(["clang", "--version"], capture_output=True).returncode != 0:
        sys.exit("measure-exact: clang is needed for the empty programs")
    print(f"load average: {' '.join(f'{load:.2f}' for load in os.getloadavg())}\n")
    time_programs(options, link)
    throughput(options, link)
    idle(options, link)
    print(f"\nload average: {' '.join(f'{load:.2f}' for load in os.getloadavg())}")
    return []
