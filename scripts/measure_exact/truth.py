# SPDX-License-Identifier: Apache-2.0
"""What packets say of the queue that they went through.

A packet is stamped before it takes the queue's lock, and a packet that leaves may come in between. Where it may have,
what the stamps tell is a span and not a moment: `possible` is what the queue held if each packet entered as early as it
can have, `certain` if as late.
"""
import bisect

from measure_exact.link import ADDRESS, HEADERS, run


class Packet:
    __slots__ = ("enter", "late", "inside", "leave", "bytes", "flow")

    def __init__(self, enter, inside, leave, length, flow):
        # Nanoseconds since 1970; `leave` is 0 where it was dropped. It enters before `inside`.
        self.enter, self.leave, self.bytes, self.flow = enter, leave, length, flow
        self.inside = min(inside, leave) if leave else inside
        self.late = enter


class Congestion:
    """From the packet whose entry made the backlog exceed the threshold to the one whose leaving ended that."""

    __slots__ = ("begin", "end", "peak", "top", "drops")

    def __init__(self, begin):
        self.begin, self.end = begin, None
        self.peak, self.top = 0, None  # `top`: the packet whose entry made the peak
        self.drops = 0


class Burst:
    """One that may have been, what of it was for certain, and what is recorded."""

    __slots__ = ("possible", "certain", "records")

    def __init__(self, possible):
        self.possible, self.certain, self.records = possible, [], []

    begin = property(lambda self: self.possible.begin)
    end = property(lambda self: self.possible.end)
    drops = property(lambda self: self.possible.drops)

    def spans(self):
        """In which begin, end and peak lie; of a burst that was for certain."""
        first, last = self.certain[0], self.certain[-1]
        return ((self.begin, first.begin), (last.end, self.end),
                (max(one.peak for one in self.certain), self.possible.peak))

    def latency(self):
        return self.possible.top.leave - self.possible.top.enter


def send(options, plan, threads=1):
    """Sends groups of (microseconds, packets, payload, flow), and returns their packets as the kernel stamped them, in
    the order of the plan."""
    text = "".join(f"{offset:.0f} {packets} {payload} {flow}\n" for offset, packets, payload, flow in plan)
    lines = run(*options.real_time_sender, options.traffic, "--to", ADDRESS, "--stamps", "--threads", str(threads),
                input=text).splitlines()
    sent = []
    for line in lines:
        group, enter, inside, leave = map(int, line.split())
        if enter == 0:
            raise RuntimeError("a packet without a stamp of its entry: the truth is not whole")
        sent.append(Packet(enter, inside, leave, plan[group][2] + HEADERS, plan[group][3]))
    # Late is behind those that left meanwhile.
    leaves = sorted(packet.leave for packet in sent)
    for packet in sent:
        before = bisect.bisect_left(leaves, packet.inside) - 1
        if before >= 0 and leaves[before] > packet.enter:
            packet.late = leaves[before] + 1
    return sent


def passages(packets, entry):
    """(moment, way, packet), way 1 in and 2 out, in order of time. Those that were dropped go in and stay outside.
    `entry` is the packet's member that tells when it entered."""
    events = [(getattr(packet, entry), 1, packet) for packet in packets]
    events += [(packet.leave, 2, packet) for packet in packets if packet.leave]
    return sorted(events, key=lambda event: event[:2])


def congestions(packets, threshold, coalescing, entry):
    """Every congestion of the queue; what follows another within `coalescing` nanoseconds is the same one."""
    found = []
    backlog = 0
    now_open = None
    for moment, way, packet in passages(packets, entry):
        dropped = not packet.leave
        if not dropped:
            backlog += packet.bytes if way == 1 else -packet.bytes
        if now_open is None and (backlog > threshold or dropped):
            if found and moment - found[-1].end <= coalescing:
                now_open = found[-1]
            else:
                now_open = Congestion(moment)
                found.append(now_open)
        if now_open is None:
            continue
        now_open.drops += dropped
        if backlog > now_open.peak:
            now_open.peak, now_open.top = backlog, packet
        if backlog <= threshold:
            now_open.end = moment
            now_open = None
    if backlog != 0:
        raise RuntimeError("the queue has not drained: the truth is not whole")
    return found


def bursts(packets, threshold, coalescing, within):
    """All that may have been, with what of them was for certain. Whether two whose distance is about the coalescing
    time are one burst, cannot be told from stamps either."""
    found = [Burst(one) for one in congestions(packets, threshold, coalescing + within, "enter")]
    at = 0
    for one in congestions(packets, threshold, coalescing - within, "late"):
        while found[at].end < one.begin:
            at += 1
        found[at].certain.append(one)
    return found
