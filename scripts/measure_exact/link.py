# SPDX-License-Identifier: Apache-2.0
"""A link of its own with one queue, who sends over it, and the agent that watches it."""
import csv
import json
import os
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
ADDRESS = "10.0.1.2"
NOBODY = "02:00:00:00:00:99"  # frames to it are dropped at the far end; no answer ever comes back
BUCKET = 5120  # bytes that the shaper lets pass at once
PAYLOAD = 1472
HEADERS = 42  # Ethernet, IPv4, UDP
FRAME = PAYLOAD + HEADERS


def run(*command, **others):
    done = subprocess.run(command, capture_output=True, text=True, **others)
    if done.returncode != 0:
        sys.exit(f"measure-exact: {' '.join(command)}: {done.stderr.strip() or done.stdout.strip()}")
    return done.stdout


class Link:
    """link0 here, its other end in a namespace that goes with this process."""

    def __init__(self):
        self.holder = subprocess.Popen(["unshare", "--net", "sleep", "infinity"])
        self.far = f"/proc/{self.holder.pid}/ns/net"
        while os.readlink(self.far) == os.readlink("/proc/self/ns/net"):
            time.sleep(0.01)

    def make(self, name="link0", address="10.0.1.1/24"):
        far = f"far-{name}"
        run("ip", "link", "add", name, "type", "veth", "peer", "name", far, "netns", str(self.holder.pid))
        run("nsenter", f"--net={self.far}", "ip", "link", "set", far, "addrgenmode", "none", "up")
        run("ip", "link", "set", name, "addrgenmode", "none", "up")
        if address:
            run("ip", "address", "add", address, "dev", name)
            run("ip", "neighbour", "add", ADDRESS, "lladdr", NOBODY, "dev", name, "nud", "permanent")

    def shape(self, mbit, limit, name="link0"):
        """A queue that has dropped nothing yet."""
        subprocess.run(["tc", "qdisc", "del", "dev", name, "root"], capture_output=True)
        run("tc", "qdisc", "add", "dev", name, "root", "tbf", "rate", f"{mbit}mbit", "burst", str(BUCKET),
            "limit", str(limit))

    def dropped(self, name="link0"):
        return json.loads(run("tc", "-s", "-j", "qdisc", "show", "dev", name))[0]["drops"]


class Agent:
    """vorn-agent, watching the links. Messages go to standard error only if somebody wants them."""

    def __init__(self, options, source, *more):
        self.show_command = [options.show, "--socket", f"{options.scratch}/sock"]
        command = [options.agent, "--socket", f"{options.scratch}/sock", "--source", source, *options.real_time_agent,
                   *more]
        self.messages = open(f"{options.scratch}/messages", "w+")
        self.process = subprocess.Popen(command + ["--stderr"], stderr=self.messages)
        while subprocess.run([*self.show_command, "status"], capture_output=True).returncode != 0:
            if self.process.poll() is not None:
                self.messages.seek(0)
                sys.exit(f"measure-exact: the agent does not start: {self.messages.read().strip()}")
            time.sleep(0.05)

    def show(self, *what):
        return run(*self.show_command, *what)

    def records(self):
        """Those that are closed, or would be by now, oldest first."""
        rows = [row for row in csv.DictReader(self.show("--csv").splitlines()) if row["type"] == "record"]
        return sorted(rows, key=lambda row: int(row["timestamp_us"]))

    def said(self):
        self.messages.seek(0)
        return self.messages.read()

    def loaded(self):
        """What it has in the kernel: programs and maps, as the kernel tells of each."""
        told = []
        directory = f"/proc/{self.process.pid}/fdinfo"
        for fd in os.listdir(directory):
            with open(f"{directory}/{fd}") as file:
                fields = dict(line.split(":\t", 1) for line in file.read().splitlines() if ":\t" in line)
            if "prog_id" in fields or "map_id" in fields:
                told.append(fields)
        return told

    def busy(self):
        """Nanoseconds of processor time so far."""
        with open(f"/proc/{self.process.pid}/schedstat") as file:
            return int(file.read().split()[0])

    def stop(self, how=signal.SIGTERM):
        self.process.send_signal(how)
        self.process.wait()


class Quiet:
    """What keeps every threshold message away."""

    OPTIONS = ("--high", "4000000000", "--low", "3999999999")
