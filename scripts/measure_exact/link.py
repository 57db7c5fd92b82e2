# SPDX-License-Identifier: Apache-2.0
"""A link of its own with one queue, who sends over it, and the agent that watches it."""
import csv
import json
import os
import signal
import socket
import subprocess
import sys
import tempfile
import threading
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


def kernel_objects(process):
    """What a process has in the kernel: programs, maps and links, as the kernel tells of each."""
    told = []
    directory = f"/proc/{process}/fdinfo"
    for fd in os.listdir(directory):
        try:
            with open(f"{directory}/{fd}") as file:
                fields = dict(line.split(":\t", 1) for line in file.read().splitlines() if ":\t" in line)
        except FileNotFoundError:
            continue
        if not fields.keys().isdisjoint(("prog_id", "map_id", "link_id")):
            told.append(fields)
    return told


def take_log():
    """A system log for those in this namespace, where the machine has none: to be asked again and again would cost."""
    if os.path.exists("/dev/log"):
        return
    with tempfile.TemporaryDirectory() as devices:
        run("mount", "-t", "tmpfs", "none", devices)
        run("cp", "-a", *(f"/dev/{name}" for name in ("null", "zero", "full", "random", "urandom")), devices)
        run("mount", "--move", devices, "/dev")
    log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    log.bind("/dev/log")

    def read():
        while log.recv(4096):
            pass
    threading.Thread(target=read, daemon=True).start()


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

    def shape(self, mbit, limit, name="link0", bucket=BUCKET):
        """A queue that has dropped nothing yet."""
        subprocess.run(["tc", "qdisc", "del", "dev", name, "root"], capture_output=True)
        run("tc", "qdisc", "add", "dev", name, "root", "tbf", "rate", f"{mbit}mbit", "burst", str(bucket),
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

    def records(self, interface):
        """Oldest first."""
        rows = csv.DictReader(self.show("--csv").splitlines())
        own = [row for row in rows if row["type"] == "record" and row["interface"] == interface]
        return sorted(own, key=lambda row: int(row["timestamp_us"]))

    def status(self):
        return json.loads(self.show("status", "--json"))

    def said(self):
        self.messages.seek(0)
        return self.messages.read()

    def loaded(self):
        return kernel_objects(self.process.pid)

    def busy(self):
        """Nanoseconds of processor time so far, and how often it was on a processor."""
        with open(f"/proc/{self.process.pid}/schedstat") as file:
            nanoseconds, _, times = map(int, file.read().split())
            return nanoseconds, times

    def stop(self, how=signal.SIGTERM):
        self.process.send_signal(how)
        self.process.wait()


class Quiet:
    """What keeps every threshold message away."""

    OPTIONS = ("--high", "4000000000", "--low", "3999999999")
