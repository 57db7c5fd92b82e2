# SPDX-License-Identifier: Apache-2.0
"""What goes wrong around the agent, and what of it is in the records."""
import json
import random
import re
import signal
import subprocess
import threading
import time

from measure_exact.link import ADDRESS, HEADERS, PAYLOAD, run
from measure_exact.records import HEADER, Kind, compare, fields, watcher
from measure_exact.truth import send

QUEUES = 1000
AT_ONCE = 100
REPLACED = 30
STEPPED_S = 0.015  # the agent looks at open bursts every 10 ms
LONG = 400  # packets: at 100 Mbit/s for 48 ms
TIMES = {"link": "link_id", "map": "map_id", "prog": "prog_id"}
# Of messages: that something is not as it should be.
WRONG = re.compile(r"fail|error|cannot|broken|assert|lost|missed", re.IGNORECASE)


def plain(count):
    return Kind("1 ms", 100, count, 1000, 1000, 8000)


def settled(agent, queues):
    """What is wrong in the end, besides the records."""
    status = agent.status()
    losses = ("bursts_lost", "missed_packets", "failures", "failed_looks", "records_lost", "other_messages_lost",
              "clock_steps")
    bad = {name: status[name] for name in losses if status[name]}
    if status["queues"] != queues:
        bad["queues"] = status["queues"]
    wrong = [line for line in agent.said().splitlines() if WRONG.search(line)]
    return {**bad, "messages": wrong} if wrong else bad


def again(options, link, agent, what, queues=1):
    """Bursts after something has happened are recorded as any others."""
    link.shape(100, 2 * 10**6)
    time.sleep(0.3)
    outcome = compare(options, link, plain(50), "exact", agent)
    print(outcome.row(), flush=True)
    found = [f"after {what}: {text}" for text in outcome.failures(timing=False)]
    bad = settled(agent, queues)
    return found + ([f"after {what}: {bad}"] if bad else [])


def there():
    """The numbers of all that is loaded in the kernel now."""
    return {(kind, int(of["id"])) for kind in TIMES for of in json.loads(run("bpftool", "--json", kind, "show"))}


def killed(options, link):
    link.shape(100, 2 * 10**6)
    agent = watcher(options, "exact")
    own = {(kind, int(of[field])) for of in agent.loaded() for kind, field in TIMES.items()
           if field in of and (kind == "link" or "link_id" not in of)}
    if not own <= there() or not own:
        return [f"what the agent has loaded is not to be seen: {sorted(own - there())}"]
    timer = threading.Timer(0.25, agent.stop, [signal.SIGKILL])
    timer.start()
    send(options, list(plain(50).plan(random.Random(options.seed))))
    timer.join()
    for _ in range(50):
        left = own & there()
        if not left:
            break
        time.sleep(0.1)
    print(f"killed in the middle of bursts: {len(own)} programs, maps and links were loaded, {len(left)} are left")
    agent = watcher(options, "exact")
    found = again(options, link, agent, "a kill and a new start")
    agent.stop()
    return found + ([f"a killed agent has left {sorted(left)}"] if left else [])


def batch(program, lines):
    run(program, "-batch", "-", input="\n".join(lines) + "\n")


def come_and_go():
    """Other links with a queue each, a hundred at a time."""
    for first in range(0, QUEUES, AT_ONCE):
        names = [f"queue{first + i}" for i in range(AT_ONCE)]
        batch("ip", [f"link add {name} type veth peer name far-{name}" for name in names])
        batch("ip", [f"link set {end}{name} addrgenmode none up" for name in names for end in ("far-", "")])
        batch("tc", [f"qdisc add dev {name} root tbf rate 100mbit burst 5120 limit 60000" for name in names])
        batch("ip", [f"link del {name}" for name in names])


def beside(options, link, agent, work, bursts):
    """Bursts while something else happens."""
    thread = threading.Thread(target=work)
    thread.start()
    outcome = compare(options, link, bursts, "exact", agent)
    thread.join()
    return outcome


def churned(options, link):
    link.shape(100, 2 * 10**6)
    agent = watcher(options, "exact")
    begin = time.monotonic()
    outcome = beside(options, link, agent, come_and_go, plain(1500))
    print(outcome.row(), flush=True)
    print(f"beside that {QUEUES} queues came and went; {time.monotonic() - begin:.0f} s")
    time.sleep(1)
    found = [f"beside queues that come and go: {text}" for text in outcome.failures(timing=False)]
    found += again(options, link, agent, "queues that came and went")
    agent.stop()
    return found


def rooted(options, link):
    """The discipline itself is another one, a thousand times, each congested while it was there."""
    link.shape(100, 2 * 10**6)
    agent = watcher(options, "exact")
    done = []

    def work():
        for _ in range(QUEUES):
            link.shape(100, 2 * 10**6)
            done.append(1)

    thread = threading.Thread(target=work)
    thread.start()
    plan = list(plain(400).plan(random.Random(options.seed)))
    lost = 0
    while thread.is_alive():
        lost += sum(packet.leave == 0 for packet in send(options, plan))
    thread.join()
    time.sleep(0.3)
    records = [fields(row) for row in agent.records("link0")]
    told = sum(record["drops"] for record in records)
    longest = max(record["end"] - record["begin"] for record in records)
    print(f"the discipline replaced {len(done)} times under load: {len(records)} bursts, the longest "
          f"{longest / 1000:.1f} ms; {lost} packets never left, {told} are told")
    found = again(options, link, agent, "disciplines that were replaced under load")
    agent.stop()
    # Those that a queue held that was not congested are nobody's, and so are those that came when there was none.
    if told > lost:
        found.append(f"{told} packets are told as dropped, and {lost} were")
    if longest > 20_000:
        found.append(f"a burst of 1 ms is told as one of {longest / 1000:.1f} ms")
    return found


def replaced(options, link):
    """Every burst's queue goes in the middle of it, with all that it held."""
    agent = watcher(options, "exact")
    wrong = 0
    lost = told = 0
    for _ in range(REPLACED):
        link.shape(100, 2 * 10**6)
        time.sleep(0.15)  # the agent has learned of it
        timer = threading.Timer(0.085, run, ["tc", "qdisc", "replace", "dev", "link0", "root", "pfifo"])
        timer.start()
        packets = send(options, [(40_000, LONG, PAYLOAD, 0)])
        timer.join()
        own = [record for record in map(fields, agent.records("link0"))
               if packets[0].enter / 1000 - 100 <= record["begin"] <= packets[-1].enter / 1000 + 100]
        gone = sum(packet.leave == 0 for packet in packets)
        drops = sum(record["drops"] for record in own)
        lost, told = lost + gone, told + drops
        wrong += len(own) != 1 or drops != gone
    print(f"{REPLACED} disciplines replaced in the middle of a burst: {lost} packets never left, {told} are told; "
          f"bursts not told once, with their drops: {wrong}")
    found = again(options, link, agent, "disciplines that were replaced in a burst")
    agent.stop()
    if wrong or not lost:
        found.append(f"{wrong} of {REPLACED} bursts whose queue went are not told rightly")
    return found


def stepped(options, link):
    """Of the machine's own clock, and put back at once."""
    agent = watcher(options, "exact")
    offs = []
    for seconds in (2, -2):
        link.shape(100, 2 * 10**6)
        before = len(agent.records("link0"))

        def step():
            for by in (seconds, -seconds):
                time.clock_settime(time.CLOCK_REALTIME, time.clock_gettime(time.CLOCK_REALTIME) + by)
                time.sleep(STEPPED_S)

        timer = threading.Timer(0.085, step)
        timer.start()
        subprocess.run([*options.real_time_sender, options.traffic, "--to", ADDRESS], check=True, text=True,
                       input=f"40000 {LONG} {PAYLOAD} 0\n")
        timer.join()
        time.sleep(0.2)
        records = [fields(row) for row in agent.records("link0")]  # by their beginnings, none of which is in the step
        lasting = [record["end"] - record["begin"] for record in records]
        expected = (LONG - 5) * (PAYLOAD + HEADERS) * 8 / 100
        offs.append(len(records) != before + 1 or abs(lasting[-1] - expected) > 1000)
        print(f"the clock {seconds:+d} s for {1000 * STEPPED_S:.0f} ms in a burst of {expected / 1000:.1f} ms: "
              f"told as one of {lasting[-1] / 1000:.1f} ms")
    steps = agent.status()["clock_steps"]
    print(f"steps that the agent has noted: {steps}")
    agent.stop()
    found = ["a burst in which the clock stepped is not told once, with its length"] if any(offs) else []
    return found + ([] if steps == 4 else [f"of 4 steps of the clock {steps} are noted"])


def main(options, link):
    print(HEADER)
    failures = []
    for fault in (killed, churned, rooted, replaced, *([stepped] if options.step_clock else [])):
        failures += fault(options, link)
    return failures
