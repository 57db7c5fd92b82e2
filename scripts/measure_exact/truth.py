# SPDX-License-Identifier: Apache-2.0
"""What packets say of the queue that they went through."""
from measure_exact.link import ADDRESS, HEADERS, run


class Packet:
    __slots__ = ("enter", "leave", "bytes", "flow")

    def __init__(self, enter, leave, length, flow):
        # Nanoseconds since 1970; `leave` is 0 where it was dropped.
        self.enter, self.leave, self.bytes, self.flow = enter, leave, length, flow


class Congestion:
    """From the packet whose entry made the backlog exceed the threshold to the one whose leaving ended that."""

    __slots__ = ("begin", "end", "peak", "top", "drops", "records")

    def __init__(self, begin):
        self.begin, self.end = begin, None
        self.peak, self.top = 0, None  # `top`: the packet whose entry made the peak
        self.drops = 0
        self.records = []

    def latency(self):
        return self.top.leave - self.top.enter


def send(options, plan):
    """Sends groups of (microseconds, packets, payload, flow), and returns their packets as the kernel stamped them."""
    text = "".join(f"{offset:.0f} {packets} {payload} {flow}\n" for offset, packets, payload, flow in plan)
    lines = run(*options.real_time_sender, options.traffic, "--to", ADDRESS, "--stamps", input=text).splitlines()
    sent = []
    for line in lines:
        group, enter, leave = map(int, line.split())
        if enter == 0:
            raise RuntimeError("a packet without a stamp of its entry: the truth is not whole")
        sent.append(Packet(enter, leave, plan[group][2] + HEADERS, plan[group][3]))
    return sent


def events(packets):
    """(nanoseconds, packet, whether it enters) in order of time; those that were dropped enter and stay outside."""
    told = [(packet.enter, 1, packet) for packet in packets]
    told += [(packet.leave, 0, packet) for packet in packets if packet.leave]
    told.sort(key=lambda event: event[:2])
    return told


def congestions(packets, threshold, coalescing):
    """Every congestion of the queue; what follows another within `coalescing` nanoseconds is the same one."""
    found = []
    backlog = 0
    open_one = None
    for moment, enters, packet in events(packets):
        drops = enters and not packet.leave
        if not drops:
            backlog += packet.bytes if enters else -packet.bytes
        if open_one is None and (backlog > threshold or drops):
            if found and moment - found[-1].end <= coalescing:
                open_one = found[-1]
            else:
                open_one = Congestion(moment)
                found.append(open_one)
        if open_one is None:
            continue
        open_one.drops += drops
        if backlog > open_one.peak:
            open_one.peak, open_one.top = backlog, packet
        if backlog <= threshold:
            open_one.end = moment
            open_one = None
    assert backlog == 0, "the queue has drained"
    return found
