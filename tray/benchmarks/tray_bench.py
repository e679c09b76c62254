#!/usr/bin/python3
"""Benchmark of the tray application on a real X server and session bus (not a test: it prints
figures). Run inside `xvfb-run -a dbus-run-session -- /usr/bin/python3 tray_bench.py --tray PATH`
(scripts/bench-tray.sh does). It reuses the end-to-end harness: its StatusNotifierWatcher plays
the panel, so the item registers and its signals arrive here as a panel would get them.

  idle:      resident memory (VmRSS) and CPU (utime + stime from /proc/PID/stat) over 60 s
  tool tip:  from the write of a status frame into the pipe "tray" to the item's NewToolTip
             signal, p50 and p99 over 200 statuses that alternate (each changes the tool tip)
  start:     from the process start to the item's registration and to its first icon
"""

import argparse
import os
import random
import socket
import statistics
import sys
import tempfile
import time

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

# The end-to-end harness: its watcher plays the panel.
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tests", "e2e"))
import tray_e2e  # noqa: E402
from tray_e2e import ITEM_INTERFACE, PROPERTIES, WATCHER_NAME, Tray, Watcher, frame, resident_kib

CLOCK_TICKS = os.sysconf("SC_CLK_TCK")


def spin(seconds=0.0, until=None, step=0.001):
    """Dispatches bus traffic every `step` seconds for `seconds`, or until `until()`."""
    context = GLib.MainContext.default()
    deadline = time.monotonic() + seconds
    while True:
        while context.iteration(False):
            pass
        if until is not None and until():
            return True
        if time.monotonic() >= deadline:
            return until is None
        time.sleep(step)


def cpu_seconds(pid):
    with open("/proc/%d/stat" % pid) as f:
        fields = f.read().rsplit(")", 1)[1].split()
    # utime and stime are fields 14 and 15; the split starts at field 3.
    return (int(fields[11]) + int(fields[12])) / CLOCK_TICKS


def percentile(values, fraction):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(round(fraction * (len(ordered) - 1))))]


class Bench:
    def __init__(self, bus, watcher, root):
        self.bus = bus
        self.watcher = watcher
        self.root = root
        self.count = 0
        self.registered_at = None

    def start(self):
        self.watcher.items = []
        self.registered_at = None
        self.count += 1
        started = time.monotonic()
        tray = Tray(os.path.join(self.root, "tray%d" % self.count))
        return tray, started

    def item(self):
        # The registration call is dispatched inside spin(), so this is when it arrived.
        if not spin(10, lambda: self.watcher.items):
            raise SystemExit("the tray's item did not register")
        self.registered_at = time.monotonic()
        name, path = self.watcher.items[-1]
        return name, self.bus.get_object(name, path)

    @staticmethod
    def end(tray):
        tray.process.stdin.close()
        tray.process.wait(timeout=5)
        tray.stop()

    def start_to_first_icon(self, runs):
        registration, first_icon = [], []
        for _ in range(runs):
            tray, started = self.start()
            _, item = self.item()
            registration.append(self.registered_at - started)

            def has_icon():
                pixmaps = item.Get(ITEM_INTERFACE, "IconPixmap", dbus_interface=PROPERTIES)
                return len(pixmaps) > 0
            if not spin(10, has_icon):
                raise SystemExit("no icon")
            first_icon.append(time.monotonic() - started)
            self.end(tray)
        return registration, first_icon

    def idle(self, seconds):
        tray, _ = self.start()
        self.item()
        spin(2)  # start-up settles
        pid = tray.process.pid
        cpu_before, wall_before = cpu_seconds(pid), time.monotonic()
        rss = [resident_kib(pid)]
        while time.monotonic() - wall_before < seconds:
            # Coarse steps: this process should not compete with the one measured.
            spin(min(5, seconds - (time.monotonic() - wall_before)), step=0.1)
            rss.append(resident_kib(pid))
        cpu = (cpu_seconds(pid) - cpu_before) / (time.monotonic() - wall_before) * 100
        self.end(tray)
        return rss, cpu

    def status_to_tool_tip(self, count):
        tray, _ = self.start()
        name, item = self.item()
        spin(1)
        arrivals = []
        self.bus.add_signal_receiver(lambda *args: arrivals.append(time.monotonic()), signal_name="NewToolTip",
                                     dbus_interface=ITEM_INTERFACE, bus_name=name)
        bodies = [b"ServiceStatus|ConnectionState:Connected,ErrorCode:Success",
                  b"ServiceStatus|ConnectionState:Waiting,ErrorCode:Socket"]
        latencies = []
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
            client.connect(tray.socket_path())
            for i in range(count):
                # A random phase against the tray's 100 ms pump.
                spin(random.uniform(0.0, 0.1))
                arrivals.clear()
                client.sendall(frame(bodies[i % 2]))
                written = time.monotonic()
                if not spin(5, lambda: arrivals):
                    raise SystemExit("no NewToolTip after status %d" % i)
                latencies.append(arrivals[0] - written)
        self.end(tray)
        return latencies


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tray", required=True)
    parser.add_argument("--idle-seconds", type=float, default=60)
    parser.add_argument("--statuses", type=int, default=200)
    parser.add_argument("--starts", type=int, default=10)
    args = parser.parse_args()
    tray_e2e.ARGS = args

    DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    name = dbus.service.BusName(WATCHER_NAME, bus)
    watcher = Watcher(bus)
    bench = Bench(bus, watcher, tempfile.mkdtemp(prefix="hv-tray-bench-"))

    registration, first_icon = bench.start_to_first_icon(args.starts)
    ms = lambda seconds: seconds * 1000
    print("start to item registration: median %.0f ms, max %.0f ms (%d starts)"
          % (ms(statistics.median(registration)), ms(max(registration)), len(registration)))
    print("start to first icon:        median %.0f ms, max %.0f ms (goal <= 300 ms)"
          % (ms(statistics.median(first_icon)), ms(max(first_icon))))
    sys.stdout.flush()

    latencies = bench.status_to_tool_tip(args.statuses)
    print("status to NewToolTip:       p50 %.1f ms, p99 %.1f ms, max %.1f ms over %d statuses (goal p99 <= 120 ms)"
          % (ms(percentile(latencies, 0.5)), ms(percentile(latencies, 0.99)), ms(max(latencies)), len(latencies)))
    sys.stdout.flush()

    rss, cpu = bench.idle(args.idle_seconds)
    print("idle over %.0f s:            VmRSS %.1f MB at start, %.1f MB at end, %.1f MB max (goal <= 30 MB); "
          "CPU %.3f%% (goal <= 0.2%%)" % (args.idle_seconds, rss[0] / 1024, rss[-1] / 1024, max(rss) / 1024, cpu))
    del name


if __name__ == "__main__":
    main()
