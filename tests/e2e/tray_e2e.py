#!/usr/bin/python3
"""End-to-end tests of the tray application on a real X server and a real session bus.

Run inside `xvfb-run -a dbus-run-session -- /usr/bin/python3 tray_e2e.py ...` (CTest does).
The script owns org.kde.StatusNotifierWatcher itself, so the tray's item registers with it and the
tests read the item's tool tip, icon and menu over D-Bus, exactly as a panel would.
"""

import argparse
import glob
import gzip
import os
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import zlib

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

WATCHER_NAME = "org.kde.StatusNotifierWatcher"
WATCHER_PATH = "/StatusNotifierWatcher"
ITEM_INTERFACE = "org.kde.StatusNotifierItem"
MENU_INTERFACE = "com.canonical.dbusmenu"
PROPERTIES = "org.freedesktop.DBus.Properties"

FIRST_LINE = "Halvo Softphone (130.264.0)\n"
# For a tray whose menu command is only clicked: the report fails at once and reveals nothing.
WITHOUT_ZIP = {"PATH": "/nonexistent"}
MENU_ENTRY = "Collect logs into a ZIP file"

# Filled from the command line.
ARGS = None

WATCHER_XML = """<!DOCTYPE node PUBLIC "-//freedesktop//DTD D-BUS Object Introspection 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd">
<node>
  <interface name="org.kde.StatusNotifierWatcher">
    <method name="RegisterStatusNotifierItem"><arg name="service" type="s" direction="in"/></method>
    <method name="RegisterStatusNotifierHost"><arg name="service" type="s" direction="in"/></method>
    <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
    <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
    <property name="ProtocolVersion" type="i" access="read"/>
    <signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
    <signal name="StatusNotifierItemUnregistered"><arg type="s"/></signal>
    <signal name="StatusNotifierHostRegistered"/>
  </interface>
  <interface name="org.freedesktop.DBus.Properties">
    <method name="Get">
      <arg name="interface" type="s" direction="in"/><arg name="name" type="s" direction="in"/>
      <arg name="value" type="v" direction="out"/>
    </method>
    <method name="GetAll">
      <arg name="interface" type="s" direction="in"/>
      <arg name="values" type="a{sv}" direction="out"/>
    </method>
  </interface>
  <interface name="org.freedesktop.DBus.Introspectable">
    <method name="Introspect"><arg name="data" type="s" direction="out"/></method>
  </interface>
</node>
"""


class Watcher(dbus.service.Object):
    """A minimal StatusNotifierWatcher that also claims a host, as a desktop panel would."""

    def __init__(self, bus):
        super().__init__(bus, WATCHER_PATH)
        self.items = []  # (bus name, object path) in registration order

    @dbus.service.method("org.freedesktop.DBus.Introspectable", out_signature="s")
    def Introspect(self):
        return WATCHER_XML

    @dbus.service.method(WATCHER_NAME, in_signature="s", sender_keyword="sender")
    def RegisterStatusNotifierItem(self, service, sender=None):
        path = service if service.startswith("/") else "/StatusNotifierItem"
        name = sender if service.startswith("/") else service
        self.items.append((str(name), str(path)))
        self.StatusNotifierItemRegistered(name + path)

    @dbus.service.method(WATCHER_NAME, in_signature="s")
    def RegisterStatusNotifierHost(self, service):
        pass

    @dbus.service.signal(WATCHER_NAME, signature="s")
    def StatusNotifierItemRegistered(self, service):
        pass

    @dbus.service.method(PROPERTIES, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        return self.GetAll(interface)[name]

    @dbus.service.method(PROPERTIES, in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        return {
            "RegisteredStatusNotifierItems": dbus.Array([n + p for n, p in self.items], signature="s"),
            "IsStatusNotifierHostRegistered": dbus.Boolean(True),
            "ProtocolVersion": dbus.Int32(0),
        }


def pump(seconds=0.0):
    """Lets the bus deliver calls for `seconds`."""
    context = GLib.MainContext.default()
    deadline = time.monotonic() + seconds
    while True:
        while context.iteration(False):
            pass
        if time.monotonic() >= deadline:
            return
        time.sleep(0.01)


def wait_for(condition, timeout=5.0, what="condition"):
    deadline = time.monotonic() + timeout
    while True:
        pump()
        value = condition()
        if value:
            return value
        if time.monotonic() >= deadline:
            raise AssertionError("timed out waiting for " + what)
        time.sleep(0.02)


def read_png(path):
    """Decodes an 8-bit RGBA, non-interlaced PNG into (width, height, bytes of RGBA rows)."""
    with open(path, "rb") as f:
        data = f.read()
    assert data[:8] == b"\x89PNG\r\n\x1a\n", path
    pos, idat, width, height = 8, b"", 0, 0
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        chunk = data[pos + 8:pos + 8 + length]
        if kind == b"IHDR":
            width, height, depth, colour, _, _, interlace = struct.unpack(">IIBBBBB", chunk)
            assert (depth, colour, interlace) == (8, 6, 0), path + " is not 8-bit RGBA"
        elif kind == b"IDAT":
            idat += chunk
        pos += 12 + length
    raw = zlib.decompress(idat)
    stride = width * 4
    rows, previous, pos = [], bytearray(stride), 0
    for _ in range(height):
        kind, line = raw[pos], bytearray(raw[pos + 1:pos + 1 + stride])
        pos += 1 + stride
        for i in range(stride):
            left = line[i - 4] if i >= 4 else 0
            up = previous[i]
            corner = previous[i - 4] if i >= 4 else 0
            if kind == 1:
                line[i] = (line[i] + left) & 0xFF
            elif kind == 2:
                line[i] = (line[i] + up) & 0xFF
            elif kind == 3:
                line[i] = (line[i] + (left + up) // 2) & 0xFF
            elif kind == 4:
                p = left + up - corner
                pa, pb, pc = abs(p - left), abs(p - up), abs(p - corner)
                predictor = left if pa <= pb and pa <= pc else (up if pb <= pc else corner)
                line[i] = (line[i] + predictor) & 0xFF
        rows.append(bytes(line))
        previous = line
    return width, height, b"".join(rows)


def png_as_argb(path):
    """The PNG's pixels in the StatusNotifierItem form: ARGB32, network byte order."""
    width, height, rgba = read_png(path)
    argb = bytearray(len(rgba))
    for i in range(0, len(rgba), 4):
        r, g, b, a = rgba[i:i + 4]
        argb[i:i + 4] = bytes((a, r, g, b))
    return (width, height), bytes(argb)


def premultiplied(argb):
    """Colour weighted by alpha: the toolkit keeps pixmaps premultiplied, so only this survives
    its round trip (up to rounding)."""
    out = []
    for i in range(0, len(argb), 4):
        a = argb[i]
        out.append((a,) + tuple(round(c * a / 255) for c in argb[i + 1:i + 4]))
    return out


def same_pixels(shown, expected):
    """Equal alpha everywhere and premultiplied colour within one step of rounding."""
    if len(shown) != len(expected):
        return False
    for got, want in zip(premultiplied(shown), premultiplied(expected)):
        if got[0] != want[0] or any(abs(x - y) > 1 for x, y in zip(got[1:], want[1:])):
            return False
    return True


def tray_environment(root):
    """Log, runtime, temporary and home folders of one tray under `root`, and the environment
    naming them (a report from the menu leaves its container in the temporary folder)."""
    logs = os.path.join(root, "logs")
    runtime = os.path.join(root, "runtime")
    temporary = os.path.join(root, "tmp")
    for folder in (logs, runtime, temporary):
        os.makedirs(folder, mode=0o700, exist_ok=True)
    env = dict(os.environ)
    env.update({
        "HV_SOFTPHONE_LOG_DIR": logs,
        "XDG_RUNTIME_DIR": runtime,
        "TMPDIR": temporary,
        "HOME": root,
        "QT_QPA_PLATFORM": "xcb",
    })
    return logs, runtime, env


def resident_kib(pid):
    """VmRSS of the process in KiB."""
    with open("/proc/%d/status" % pid) as f:
        for line in f:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    raise AssertionError("no VmRSS for %d" % pid)


def frame(payload):
    return struct.pack("<I", len(payload)) + payload


class Tray:
    """One tray process with its own log, runtime and home folders, its stdin held open."""

    def __init__(self, root, start=True, env=None):
        self.root = root
        self.logs, self.runtime, self.env = tray_environment(root)
        self.env.update(env or {})
        self.output = open(os.path.join(root, "output.txt"), "wb")
        self.process = None
        if start:
            self.process = subprocess.Popen([ARGS.tray], stdin=subprocess.PIPE, stdout=self.output,
                                            stderr=subprocess.STDOUT, env=self.env)

    def socket_folder(self):
        """The runtime folder, or the temporary folder when the tray has none."""
        return self.env["XDG_RUNTIME_DIR"] or self.env["TMPDIR"]

    def socket_path(self):
        return os.path.join(self.socket_folder(), "halvophone-tray-local-channel")

    def log_text(self):
        """Every log line written so far: the active file and the packed parts."""
        text = ""
        for path in sorted(glob.glob(os.path.join(self.logs, "**", "*"), recursive=True)):
            if os.path.isdir(path):
                continue
            opener = gzip.open if path.endswith(".gz") else open
            with opener(path, "rb") as f:
                text += f.read().decode("utf-8", "replace")
        return text

    def log_lines(self, level, text):
        """Lines at `level` ("[WARN ] ..." in the file) that contain `text`."""
        return [line for line in self.log_text().splitlines()
                if line[1:].split("]", 1)[0].strip() == level and text in line]

    def active_log_files(self):
        return [p for p in glob.glob(os.path.join(self.logs, "**", "*-130.264.0-%d" % self.process.pid),
                                     recursive=True) if os.path.isfile(p)]

    def send_frame(self, channel, body, via_peer=True):
        """Writes one channel message into the pipe "tray"."""
        self.send_frames([(channel, body)], via_peer)

    def send_frames(self, messages, via_peer=True):
        """Writes channel messages into the pipe "tray" over one connection, in order: with the
        service peer tool when there is one, else (or when told) framed here, which also checks
        the wire format on its own. Separate connections in quick succession are not used: the
        receiver serves one client at a time and a sender has no acknowledgement."""
        if via_peer and ARGS.peer:
            arguments = []
            for channel, body in messages:
                parts = body.split(",")
                if channel == "ServiceStatus" and len(parts) == 2 and all(":" in p for p in parts):
                    arguments += ["--status", ",".join(p.split(":", 1)[1] for p in parts)]
                else:
                    arguments += ["--channel", channel, "--body", body]
            subprocess.run([ARGS.peer, "--pipe", "tray"] + arguments, env=self.env, check=True,
                           timeout=10, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            return
        frames = b""
        for channel, body in messages:
            payload = (channel + "|" + body).encode()
            frames += struct.pack("<I", len(payload)) + payload
        self.write_frames(frames)

    def write_frames(self, frames, timeout=5):
        """Writes the frames and waits until the receiver has read them and let go; a connection
        that was never accepted (refused, or reset from a closed backlog) is tried again."""
        deadline = time.monotonic() + 5
        while True:
            try:
                with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
                    client.connect(self.socket_path())
                    client.sendall(frames)
                    client.shutdown(socket.SHUT_WR)
                    client.settimeout(timeout)
                    if client.recv(1) != b"":
                        raise AssertionError("the receiver wrote to its client")
                return
            except (ConnectionRefusedError, ConnectionResetError, FileNotFoundError):
                if time.monotonic() > deadline:
                    raise
                pump(0.05)

    def stop(self):
        if self.process is not None:
            if self.process.poll() is None:
                self.process.kill()
            self.process.wait()
            if self.process.stdin and not self.process.stdin.closed:
                self.process.stdin.close()
        self.output.close()


class TrayE2E(unittest.TestCase):
    bus = None
    watcher = None

    @classmethod
    def setUpClass(cls):
        DBusGMainLoop(set_as_default=True)
        cls.bus = dbus.SessionBus()
        cls.name = dbus.service.BusName(WATCHER_NAME, cls.bus)
        cls.watcher = Watcher(cls.bus)

    def setUp(self):
        self.problems_before = self.problems()
        self.root = tempfile.mkdtemp(prefix="hv-tray-e2e-")
        self.trays = []
        self.watcher.items = []

    def tearDown(self):
        for tray in self.trays:
            tray.stop()
        if self.problems() == self.problems_before:
            shutil.rmtree(self.root, ignore_errors=True)
        else:
            print("kept " + self.root, file=sys.stderr)

    def problems(self):
        """Failures and errors so far; the folders of a failed test are kept for a look."""
        result = getattr(getattr(self, "_outcome", None), "result", None)
        return len(result.failures) + len(result.errors) if result else 0

    def start_tray(self, start=True, env=None):
        tray = Tray(os.path.join(self.root, "tray%d" % len(self.trays)), start, env)
        self.trays.append(tray)
        return tray

    def item(self):
        name, path = wait_for(lambda: self.watcher.items and self.watcher.items[-1], what="item")
        return self.bus.get_object(name, path)

    def tool_tip(self, item):
        icon_name, pixmaps, title, description = item.Get(ITEM_INTERFACE, "ToolTip",
                                                          dbus_interface=PROPERTIES)
        return str(title)

    def icon(self, item):
        pixmaps = item.Get(ITEM_INTERFACE, "IconPixmap", dbus_interface=PROPERTIES)
        return {(int(w), int(h)): bytes(bytearray(data)) for w, h, data in pixmaps}

    def expected_icon(self, name):
        icons = {}
        for path in glob.glob(os.path.join(ARGS.icons, name + "-*.png")):
            size, argb = png_as_argb(path)
            icons[size] = argb
        self.assertTrue(icons, "no images for " + name)
        return icons

    def assert_icon(self, item, name):
        shown = self.icon(item)
        expected = self.expected_icon(name)
        common = set(shown) & set(expected)
        self.assertTrue(common, "no size in common: %s vs %s" % (sorted(shown), sorted(expected)))
        for size in common:
            self.assertTrue(same_pixels(shown[size], expected[size]), "%s at %s" % (name, size))

    def wait_for_tool_tip(self, item, text):
        try:
            wait_for(lambda: self.tool_tip(item) == text, what=repr(text))
        except AssertionError:
            self.assertEqual(self.tool_tip(item), text)

    def test_startup_shows_waiting(self):
        tray = self.start_tray()
        item = self.item()
        self.wait_for_tool_tip(item, FIRST_LINE + "Waiting")
        self.assert_icon(item, "waiting")
        # Panels list the item by its title; the toolkit gives the id the same text.
        self.assertEqual(item.Get(ITEM_INTERFACE, "Title", dbus_interface=PROPERTIES), "Halvo Softphone")
        self.assertEqual(item.Get(ITEM_INTERFACE, "Id", dbus_interface=PROPERTIES), "Halvo Softphone")
        # The three looks are told apart by the pixels alone, not only by the text.
        images = [self.expected_icon(n)[(22, 22)] for n in ("waiting", "error", "connected")]
        self.assertEqual(len(set(images)), 3)
        self.assertIsNone(tray.process.poll())

    def test_statuses_follow_the_table(self):
        tray = self.start_tray()
        item = self.item()
        self.wait_for_tool_tip(item, FIRST_LINE + "Waiting")
        table = [
            ("ConnectionState:Connected,ErrorCode:Success", "connected", "Connected"),
            ("ConnectionState:Waiting,ErrorCode:Socket", "error", "Error: Port busy"),
            ("ConnectionState:Connected,ErrorCode:Socket", "connected", "Connected"),
            ("ConnectionState:Waiting,ErrorCode:NoVDISession", "error", "Error: Unknown host"),
            ("ConnectionState:Waiting,ErrorCode:Success", "waiting", "Waiting"),
            ("ConnectionState:Waiting,ErrorCode:Validation", "error", "Error: Invalid client connection"),
            ("ConnectionState:Waiting,ErrorCode:Unknown", "error", "Error: Internal error"),
        ]
        for body, icon, second_line in table:
            with self.subTest(body=body):
                tray.send_frame("ServiceStatus", body)
                self.wait_for_tool_tip(item, FIRST_LINE + second_line)
                self.assert_icon(item, icon)
        self.assertEqual(tray.log_lines("WARN", "Unexpected status; ignored"), [])

    def test_unknown_state_and_other_channels_change_nothing(self):
        tray = self.start_tray()
        item = self.item()
        self.wait_for_tool_tip(item, FIRST_LINE + "Waiting")
        tray.send_frame("ServiceStatus", "ConnectionState:Waiting,ErrorCode:Socket")
        self.wait_for_tool_tip(item, FIRST_LINE + "Error: Port busy")
        before = self.icon(item)

        # Written by this script's own framer: an independent check of the wire format.
        tray.send_frame("ServiceStatus", "ConnectionState:Unknown,ErrorCode:Success", via_peer=False)
        wait_for(lambda: tray.log_lines("WARN", "Unexpected status; ignored"), what="the WARN line")
        self.assertEqual(self.tool_tip(item), FIRST_LINE + "Error: Port busy")
        self.assertEqual(self.icon(item), before)

        # Messages of one connection are handled in order: once the last status shows, the
        # ones before it have been handled.
        tray.send_frames([("ServiceStatus-global", "ConnectionState:Connected,ErrorCode:Success"),
                          ("Broadcast", "ConnectionState:Connected,ErrorCode:Success"),
                          ("ServiceStatus", "ConnectionState:Waiting,ErrorCode:Validation")])
        self.wait_for_tool_tip(item, FIRST_LINE + "Error: Invalid client connection")
        self.assertNotIn("setConnectedStatus", tray.log_text())
        self.assertEqual(len(tray.log_lines("WARN", "Unexpected status; ignored")), 1)

    def test_menu_has_the_collect_logs_entry(self):
        tray = self.start_tray()
        item = self.item()
        self.wait_for_tool_tip(item, FIRST_LINE + "Waiting")
        menu_path = item.Get(ITEM_INTERFACE, "Menu", dbus_interface=PROPERTIES)
        menu = self.bus.get_object(item.bus_name, menu_path)
        _, layout = menu.GetLayout(0, -1, dbus.Array([], signature="s"), dbus_interface=MENU_INTERFACE)
        entries = [(int(child[0]), str(child[1].get("label", ""))) for child in layout[2]
                   if child[1].get("visible", True)]
        self.assertEqual([label for _, label in entries], [MENU_ENTRY])
        self.assertNotIn("collectLogs", tray.log_text())
        menu.Event(entries[0][0], "clicked", dbus.Int32(0, variant_level=1), dbus.UInt32(0),
                   dbus_interface=MENU_INTERFACE)
        wait_for(lambda: "collectLogs" in tray.log_text(), what="the menu action")
        self.assertIsNone(tray.process.poll())

    def test_left_click_opens_the_menu(self):
        tray = self.start_tray(env=WITHOUT_ZIP)
        item = self.item()
        self.wait_for_tool_tip(item, FIRST_LINE + "Waiting")
        self.assertIsNone(menu_window())
        # What a panel sends on a left click.
        item.Activate(dbus.Int32(100), dbus.Int32(100), dbus_interface=ITEM_INTERFACE)
        self.assert_menu_opens_with_the_entry(tray)

    def assert_menu_opens_with_the_entry(self, tray):
        """A menu window opens; a click on its one entry runs the command (which fails fast here,
        zip being out of reach, and opens no file manager)."""
        menu = wait_for(menu_window, what="the menu window")
        self.assertNotIn("collectLogs", tray.log_text())
        subprocess.run(["xdotool", "mousemove", "--window", menu, "20", "10", "click", "1"], check=True)
        wait_for(lambda: "collectLogs" in tray.log_text(), what="the menu action")
        self.assertIsNone(tray.process.poll())

    def test_closing_stdin_stops_the_tray(self):
        tray = self.start_tray()
        item = self.item()
        self.wait_for_tool_tip(item, FIRST_LINE + "Waiting")
        self.assertEqual(len(tray.active_log_files()), 1)
        started = time.monotonic()
        tray.process.stdin.close()
        tray.process.wait(timeout=5)
        self.assertLess(time.monotonic() - started, 1.0)
        self.assertEqual(tray.process.returncode, 0)
        text = tray.log_text()
        self.assertIn("parent process has stopped", text)
        self.assertIn("tray application has been stopped", text)
        self.assertEqual(tray.active_log_files(), [])

    def test_xembed_tray_without_a_status_notifier_host(self):
        if not all(shutil.which(tool) for tool in ("trayer", "xwininfo", "xwd", "xdotool")):
            self.skipTest("needs trayer, xwininfo, xwd and xdotool")
        self.bus.release_name(WATCHER_NAME)
        panel = subprocess.Popen(["trayer", "--edge", "top", "--align", "right", "--widthtype", "pixel",
                                  "--width", "100", "--height", "24"],
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            # The panel must own the tray selection before the tray asks for it.
            wait_for(lambda: "trayer" in subprocess.run(["xwininfo", "-root", "-tree"], capture_output=True,
                                                        text=True).stdout, what="the panel")
            pump(0.5)
            tray = self.start_tray(env=WITHOUT_ZIP)
            window = wait_for(embedded_tray_window, what="the embedded item")
            pump(0.3)
            waiting = window_image(window)
            tray.send_frame("ServiceStatus", "ConnectionState:Waiting,ErrorCode:Socket")
            wait_for(lambda: window_image(window) != waiting, what="the error icon")
            tray.send_frame("ServiceStatus", "ConnectionState:Waiting,ErrorCode:Success")
            wait_for(lambda: window_image(window) == waiting, what="the waiting icon again")
            self.assertEqual(tray.log_lines("WARN", "No system tray is available"), [])
            self.assertEqual(self.watcher.items, [])
            # A left click on the embedded icon opens the menu.
            subprocess.run(["xdotool", "mousemove", "--window", window, "11", "11", "click", "1"], check=True)
            self.assert_menu_opens_with_the_entry(tray)
        finally:
            panel.kill()
            panel.wait()
            self.name = dbus.service.BusName(WATCHER_NAME, self.bus)

    def test_without_a_tray_host_warns_and_keeps_running(self):
        self.bus.release_name(WATCHER_NAME)
        try:
            tray = self.start_tray()
            # The waiting state is set once the event loop runs; give it time to settle.
            wait_for(lambda: "Waiting" in tray.log_text(), what="the start-up status")
            pump(1.0)
            self.assertIsNone(tray.process.poll())
            self.assertEqual(len(tray.log_lines("WARN", "No system tray is available")), 1)
            self.assertEqual(self.watcher.items, [])
            # It still follows the service.
            tray.send_frame("ServiceStatus", "ConnectionState:Unknown,ErrorCode:Success", via_peer=False)
            wait_for(lambda: tray.log_lines("WARN", "Unexpected status; ignored"), what="the WARN line")
            self.assertIsNone(tray.process.poll())
        finally:
            self.name = dbus.service.BusName(WATCHER_NAME, self.bus)

    # The service connects the moment the socket exists and sends its status at once.

    def test_first_status_is_shown_however_early_it_comes(self):
        payload = frame(b"ServiceStatus|ConnectionState:Connected,ErrorCode:Success")
        for attempt in range(20):
            self.watcher.items = []
            tray = self.start_tray()
            with connect_at_once(tray.socket_path()) as client:
                client.sendall(payload)
                item = self.item()
                wait_for(lambda: self.tool_tip(item) == FIRST_LINE + "Connected",
                         what="the first status, start %d" % (attempt + 1))
            tray.process.stdin.close()
            self.assertEqual(tray.process.wait(timeout=10), 0)

    def test_lost_socket_folder_is_waited_for(self):
        # Without a runtime folder the socket is in the temporary folder, which a cleaner removes
        # while the service is connected; then the service goes.
        tray = self.start_tray(env={"XDG_RUNTIME_DIR": ""})
        item = self.item()
        self.wait_for_tool_tip(item, FIRST_LINE + "Waiting")
        with connect_at_once(tray.socket_path()) as client:
            client.sendall(frame(b"ServiceStatus|ConnectionState:Connected,ErrorCode:Success"))
            self.wait_for_tool_tip(item, FIRST_LINE + "Connected")
            shutil.rmtree(tray.socket_folder())
        failure = "Unable to listen on named pipe in tray at "
        wait_for(lambda: tray.log_lines("ERROR", failure), what="the listen error")
        self.assertIn("bind: No such file or directory", tray.log_lines("ERROR", failure)[0])
        pump(1.5)
        # Still trying, logged once.
        self.assertEqual(len(tray.log_lines("ERROR", failure)), 1)
        self.assertIsNone(tray.process.poll())

        os.makedirs(tray.socket_folder(), mode=0o700)
        back = time.monotonic()
        tray.send_frame("ServiceStatus", "ConnectionState:Waiting,ErrorCode:Socket", via_peer=False)
        self.wait_for_tool_tip(item, FIRST_LINE + "Error: Port busy")
        self.assertLess(time.monotonic() - back, 2.5)
        self.assertEqual(len(tray.log_lines("INFO", "Listening on named pipe in tray again")), 1)

    # The service's parent role, played by the stand-in.

    def test_peer_spawns_the_tray_and_ends_it_by_closing_its_input(self):
        if not ARGS.peer:
            self.skipTest("needs the service peer tool")
        tray = self.start_tray(start=False)
        # A list: shown, then the tray is ended at the stop time.
        peer = subprocess.Popen([ARGS.peer, "--spawn", ARGS.tray, "--status", "Connected,Success",
                                 "--stop-after-ms", "2500"], env=tray.env, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True)
        item = self.item()
        self.wait_for_tool_tip(item, FIRST_LINE + "Connected")
        out, err = peer.communicate(timeout=10)
        self.assertEqual(peer.returncode, 0, err)
        self.assertRegex(out, r"HalvoSoftphoneTray \(pid \d+\) exited with status 0")
        self.assertEqual(len(tray.log_lines("INFO", "parent process has stopped")), 1)

        # A cycle until SIGTERM: the tray goes round the list more than once.
        self.watcher.items = []
        peer = subprocess.Popen([ARGS.peer, "--spawn", ARGS.tray, "--cycle", "--delay-ms", "200",
                                 "--status", "Connected,Success", "--status", "Waiting,Socket"],
                                env=tray.env, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        try:
            item = self.item()
            for second_line in ("Connected", "Error: Port busy", "Connected", "Error: Port busy"):
                self.wait_for_tool_tip(item, FIRST_LINE + second_line)
            self.assertIsNone(peer.poll())
            peer.terminate()
            out, err = peer.communicate(timeout=10)
        finally:
            if peer.poll() is None:
                peer.kill()
                peer.wait()
        self.assertEqual(peer.returncode, 0, err)
        self.assertRegex(out, r"exited with status 0")
        # Ended through its input, not by the signal.
        self.assertEqual(len(tray.log_lines("INFO", "parent process has stopped")), 2)
        self.assertEqual(len(tray.log_lines("INFO", "tray application has been stopped")), 2)

    # Bad input and faults: the tray keeps following the service.

    def test_flood_of_frames_keeps_the_tray_responsive(self):
        tray = self.start_tray()
        item = self.item()
        self.wait_for_tool_tip(item, FIRST_LINE + "Waiting")
        tray.send_frame("ServiceStatus", "ConnectionState:Connected,ErrorCode:Success")
        self.wait_for_tool_tip(item, FIRST_LINE + "Connected")
        before = resident_kib(tray.process.pid)
        statuses = [b"ServiceStatus|ConnectionState:Waiting,ErrorCode:Socket",
                    b"ServiceStatus|ConnectionState:Connected,ErrorCode:Success",
                    b"ServiceStatus|ConnectionState:Waiting,ErrorCode:Validation"]
        frames = []
        for i in range(5000):
            # Frames whose payload is no channel message, then valid statuses.
            frames.append(frame(b"no channel message %d " % i + b"x" * (i % 64)))
            frames.append(frame(statuses[i % 3]))
        self.assertEqual(len(frames), 10000)
        # The flood ends on a status other than the one before it.
        frames[-1] = frame(statuses[0])
        flood_started = time.monotonic()
        tray.write_frames(b"".join(frames), timeout=90)
        self.wait_for_tool_tip(item, FIRST_LINE + "Error: Port busy")
        print("flood of 10000 frames handled in %.1f s" % (time.monotonic() - flood_started),
              file=sys.stderr)
        tray.send_frame("ServiceStatus", "ConnectionState:Waiting,ErrorCode:NoVDISession")
        self.wait_for_tool_tip(item, FIRST_LINE + "Error: Unknown host")
        self.assert_icon(item, "error")
        after = resident_kib(tray.process.pid)
        print("VmRSS before %d KiB, after %d KiB" % (before, after), file=sys.stderr)
        if not os.environ.get("HV_E2E_SANITIZED"):
            self.assertLess(after - before, 16 * 1024)
        self.assertIsNone(tray.process.poll())

    def test_client_killed_inside_a_frame(self):
        tray = self.start_tray()
        item = self.item()
        self.wait_for_tool_tip(item, FIRST_LINE + "Waiting")
        # The length promises 100 bytes; 14 come, then the client dies holding the connection.
        client = subprocess.Popen([sys.executable, "-c", CLIENT_SCRIPT, tray.socket_path()],
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        try:
            client.stdin.write(struct.pack("<I", 100) + b"ServiceStatus|")
            client.stdin.close()
            self.assertEqual(client.stdout.readline(), b"sent\n")
            wait_for(lambda: "buffer->isLengthValid() = 1" in tray.log_text(), what="the frame's length read")
        finally:
            client.kill()
            client.wait()
        wait_for(lambda: tray.log_lines("ERROR", "Error while reading message in tray"),
                 what="the read error")
        tray.send_frame("ServiceStatus", "ConnectionState:Waiting,ErrorCode:Socket")
        self.wait_for_tool_tip(item, FIRST_LINE + "Error: Port busy")
        self.assertEqual(len(tray.log_lines("ERROR", "Error while reading message in tray")), 1)
        self.assertIsNone(tray.process.poll())

    def test_client_of_another_user_is_refused(self):
        if os.geteuid() != 0 or not shutil.which("setpriv"):
            self.skipTest("needs root and setpriv to run a client as another user")
        tray = self.start_tray()
        item = self.item()
        self.wait_for_tool_tip(item, FIRST_LINE + "Waiting")
        wait_for(lambda: os.path.exists(tray.socket_path()), what="the socket")
        # Loosen the file system protection so that only the peer check stands in the way.
        for folder in (self.root, tray.root, tray.runtime):
            os.chmod(folder, 0o755)
        os.chmod(tray.socket_path(), 0o666)
        client = subprocess.Popen(["setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups",
                                   sys.executable, "-c", CLIENT_SCRIPT, tray.socket_path(), "wait-for-end"],
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        client.stdin.write(frame(b"ServiceStatus|ConnectionState:Connected,ErrorCode:Success"))
        out, err = client.communicate(timeout=10)
        self.assertEqual(client.returncode, 0, err)
        # The tray closed the connection without reading a frame.
        self.assertEqual(out, b"sent\nclosed\n")
        refusals = tray.log_lines("WARN", "Refused connection to named pipe in tray from user id")
        self.assertEqual(len(refusals), 1, refusals)
        tray.send_frame("ServiceStatus", "ConnectionState:Waiting,ErrorCode:Validation")
        self.wait_for_tool_tip(item, FIRST_LINE + "Error: Invalid client connection")
        self.assertNotIn("setConnectedStatus", tray.log_text())


# A raw client: connects to argv[1], writes its standard input, says "sent"; with "wait-for-end"
# it then waits for the other side to close and says "closed", otherwise it sleeps until killed.
CLIENT_SCRIPT = """
import socket, sys, time
client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
client.connect(sys.argv[1])
try:
    client.sendall(sys.stdin.buffer.read())
except (BrokenPipeError, ConnectionResetError):
    pass  # refused before the bytes were out
print("sent", flush=True)
if len(sys.argv) > 2:
    client.settimeout(5)
    try:
        client.recv(1)
    except ConnectionResetError:
        pass
    print("closed", flush=True)
else:
    time.sleep(60)
"""


def connect_at_once(path, timeout=10.0):
    """A client socket connected to `path` as soon as something listens there: the service's way."""
    deadline = time.monotonic() + timeout
    while True:
        client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        try:
            client.connect(path)
            return client
        except (FileNotFoundError, ConnectionRefusedError):
            client.close()
            if time.monotonic() > deadline:
                raise
            time.sleep(0.0005)


def embedded_tray_window():
    """Id of the tray's item window inside the XEmbed panel, or None while it is not there."""
    tree = subprocess.run(["xwininfo", "-root", "-tree"], capture_output=True, text=True).stdout
    in_panel = False
    for line in tree.splitlines():
        if '"panel"' in line and "trayer" in line:
            in_panel = True
        elif in_panel and '"Halvo Softphone"' in line and "22x22" in line:
            return line.split()[0]
    return None


def menu_window():
    """Id of the tray's open menu (a mapped override-redirect window of the tray), or None."""
    tree = subprocess.run(["xwininfo", "-root", "-children"], capture_output=True, text=True).stdout
    for line in tree.splitlines():
        if '"Halvo Softphone"' in line:
            window = line.split()[0]
            info = subprocess.run(["xwininfo", "-id", window], capture_output=True, text=True).stdout
            if "IsViewable" in info and "Override Redirect State: yes" in info:
                return window
    return None


def window_image(window):
    return subprocess.run(["xwd", "-silent", "-id", window], capture_output=True, check=True).stdout


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--tray", required=True, help="the tray application binary")
    parser.add_argument("--peer", help="the service peer tool; without it frames are written here")
    parser.add_argument("--icons", required=True, help="folder of the shipped PNG icons")
    ARGS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)


if __name__ == "__main__":
    main()
