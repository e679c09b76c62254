#!/usr/bin/python3
"""End-to-end tests of the tray's "Collect logs into a ZIP file" command.

Run like tray_e2e.py, whose harness this reuses: `xvfb-run -a dbus-run-session -- /usr/bin/python3
report_e2e.py --tray ... --icons ... ReportE2E.test_...`. The menu entry is clicked over
com.canonical.dbusmenu as a panel does; a fake org.freedesktop.FileManager1 on the same bus records
what the tray asks it to show. The alert is read through the toolkit's accessibility tree, which
the tray exports on the test bus (a stand-in org.a11y.Bus points it there), and closed by pressing
its button there.
"""

import datetime
import gzip
import os
import re
import shutil
import socket
import subprocess
import sys
import unittest
import urllib.parse

import dbus
import dbus.service

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import tray_e2e as harness  # noqa: E402
from tray_e2e import (FIRST_LINE, ITEM_INTERFACE, MENU_ENTRY, MENU_INTERFACE, PROPERTIES,  # noqa: E402
                      Tray, pump, wait_for)

FILE_MANAGER_NAME = "org.freedesktop.FileManager1"
FILE_MANAGER_PATH = "/org/freedesktop/FileManager1"
ARCHIVE_NAME = re.compile(r"^halvo-softphone-report-(\d{4}-\d\d-\d\d_\d{6})_UTC-130\.264\.0\.zip$")
DOWNLOADS = "My Downloads"

NOTIFICATIONS_NAME = "org.freedesktop.Notifications"
NOTIFICATIONS_PATH = "/org/freedesktop/Notifications"
A11Y_BUS_NAME = "org.a11y.Bus"
A11Y_BUS_PATH = "/org/a11y/bus"
ATSPI_ROOT = "/org/a11y/atspi/accessible/root"
ATSPI_ACCESSIBLE = "org.a11y.atspi.Accessible"
ATSPI_ACTION = "org.a11y.atspi.Action"

# Put into the log folder before the tray starts; they do not change while it runs, unlike the
# tray's own active log file, so they can be compared with the archive byte for byte.
KNOWN_LOGS = {
    "halvo-softphone-2026-01-02-130.264.0-4242.gz": gzip.compress(os.urandom(64 * 1024)),
    "old run.log": "first line\nsecond line, caf\u00e9\n".encode(),
    os.path.join("archive", "older.txt"): bytes(range(256)) * 8,
}


class FileManager(dbus.service.Object):
    """Records every ShowItems call, as a file manager would receive it."""

    def __init__(self, bus):
        super().__init__(bus, FILE_MANAGER_PATH)
        self.calls = []

    @dbus.service.method(FILE_MANAGER_NAME, in_signature="ass")
    def ShowItems(self, uris, startup_id):
        self.calls.append(([str(u) for u in uris], str(startup_id)))


class Notifications(dbus.service.Object):
    """A desktop notification service that writes down what it is asked to show."""

    def __init__(self, bus):
        super().__init__(bus, NOTIFICATIONS_PATH)
        self.calls = []

    @dbus.service.method(NOTIFICATIONS_NAME, in_signature="susssasa{sv}i", out_signature="u")
    def Notify(self, app_name, replaces_id, app_icon, summary, body, actions, hints, timeout):
        self.calls.append((str(summary), str(body)))
        return dbus.UInt32(len(self.calls))

    @dbus.service.method(NOTIFICATIONS_NAME, out_signature="as")
    def GetCapabilities(self):
        return ["body"]

    @dbus.service.method(NOTIFICATIONS_NAME, out_signature="ssss")
    def GetServerInformation(self):
        return ("test", "test", "1", "1.2")


class AccessibilityBus(dbus.service.Object):
    """Tells applications to export their accessibility trees, and to do so on this very bus."""

    def __init__(self, bus):
        super().__init__(bus, A11Y_BUS_PATH)

    @dbus.service.method(A11Y_BUS_NAME, out_signature="s")
    def GetAddress(self):
        return os.environ["DBUS_SESSION_BUS_ADDRESS"]

    @dbus.service.method(PROPERTIES, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        return dbus.Boolean(name in ("IsEnabled", "ScreenReaderEnabled"), variant_level=1)


def run(*command, **kwargs):
    return subprocess.run(list(command), capture_output=True, text=True, timeout=30, **kwargs)


class ReportE2E(harness.TrayE2E):
    file_manager = None

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.file_manager = FileManager(cls.bus)
        cls.notifications = Notifications(cls.bus)
        cls.a11y_name = dbus.service.BusName(A11Y_BUS_NAME, cls.bus)
        cls.a11y_bus = AccessibilityBus(cls.bus)

    def setUp(self):
        super().setUp()
        self.file_manager.calls = []
        self.file_manager_name = None
        self.notifications.calls = []
        self.notifications_name = None

    def tearDown(self):
        # The last reference goes: the name is released (dbus-python caches BusName objects, so a
        # release by hand would leave a stale one for the next test).
        self.file_manager_name = None
        self.notifications_name = None
        super().tearDown()

    def serve_file_manager(self):
        self.file_manager_name = dbus.service.BusName(FILE_MANAGER_NAME, self.bus)
        self.assertEqual(self.bus.get_name_owner(FILE_MANAGER_NAME), self.bus.get_unique_name())

    def start_report_tray(self, downloads, path=None):
        """A tray whose home, configuration, temporary and log folders are fresh ones of this test;
        `downloads` is the XDG_DOWNLOAD_DIR value (relative to $HOME in the file's own syntax)."""
        root = os.path.join(self.root, "tray%d" % len(self.trays))
        config = os.path.join(root, "config")
        self.tmp = os.path.join(root, "tmp")
        for folder in (config, self.tmp):
            os.makedirs(folder)
        with open(os.path.join(config, "user-dirs.dirs"), "w") as f:
            f.write('# written by the test\nXDG_DOWNLOAD_DIR="$HOME/%s"\n' % downloads)
        for name, data in KNOWN_LOGS.items():
            os.makedirs(os.path.dirname(os.path.join(root, "logs", name)), exist_ok=True)
            with open(os.path.join(root, "logs", name), "wb") as f:
                f.write(data)
        extra = {
            "XDG_CONFIG_HOME": config,
            "TMPDIR": self.tmp,
        }
        if path is not None:
            extra["PATH"] = path
        saved = dict(os.environ)
        os.environ.update(extra)
        try:
            tray = Tray(root)
        finally:
            os.environ.clear()
            os.environ.update(saved)
        self.trays.append(tray)
        return tray

    def click_collect_logs(self):
        """Clicks the menu entry the way a panel does. The reply is not awaited: the tray may answer
        only after its action, which shows a modal alert on failure."""
        item = self.item()
        self.wait_for_tool_tip(item, FIRST_LINE + "Waiting")
        menu = self.bus.get_object(item.bus_name, item.Get(ITEM_INTERFACE, "Menu", dbus_interface=PROPERTIES))
        _, layout = menu.GetLayout(0, -1, dbus.Array([], signature="s"), dbus_interface=MENU_INTERFACE)
        ids = [int(child[0]) for child in layout[2] if str(child[1].get("label", "")) == MENU_ENTRY]
        self.assertEqual(len(ids), 1)
        menu.Event(ids[0], "clicked", dbus.Int32(0, variant_level=1), dbus.UInt32(0),
                   dbus_interface=MENU_INTERFACE, reply_handler=lambda *a: None,
                   error_handler=lambda *a: None)
        return item

    def test_report_is_archived_and_shown_in_the_file_manager(self):
        self.serve_file_manager()
        tray = self.start_report_tray(DOWNLOADS)
        downloads = os.path.join(tray.root, DOWNLOADS)
        os.makedirs(downloads)
        with socket.socket() as listener:
            listener.bind(("127.0.0.1", 0))
            listener.listen()
            port = listener.getsockname()[1]
            started = datetime.datetime.now(datetime.timezone.utc).replace(microsecond=0)
            self.click_collect_logs()
            wait_for(lambda: self.file_manager.calls, timeout=30, what="ShowItems")
            ended = datetime.datetime.now(datetime.timezone.utc)

        self.assertEqual(len(os.listdir(downloads)), 1, os.listdir(downloads))
        name = os.listdir(downloads)[0]
        archive = os.path.join(downloads, name)
        match = ARCHIVE_NAME.match(name)
        self.assertTrue(match, name)
        stamp = datetime.datetime.strptime(match.group(1), "%Y-%m-%d_%H%M%S").replace(tzinfo=datetime.timezone.utc)
        self.assertTrue(started <= stamp <= ended, "%s not in [%s, %s]" % (stamp, started, ended))

        # Exactly one call, with the archive's URI fully percent-encoded (the blank as %20).
        pump(0.5)
        uri = "file://" + urllib.parse.quote(archive, safe="/")
        self.assertIn("%20", uri)
        self.assertEqual(self.file_manager.calls, [([uri], "")])

        listing = run("unzip", "-l", archive)
        self.assertEqual(listing.returncode, 0, listing.stderr)
        entries = set(line.split(None, 3)[3] for line in listing.stdout.splitlines()
                      if re.match(r"\s*\d+\s+\d{4}-\d\d-\d\d \d\d:\d\d\s+\S", line))
        for expected in ["report/nestat", "report/tasklist"] + ["report/logs/" + n for n in KNOWN_LOGS]:
            self.assertIn(expected, entries)
        self.assertTrue(all(e.startswith("report/") for e in entries), entries)

        unpacked = os.path.join(self.root, "unpacked")
        self.assertEqual(run("unzip", "-q", archive, "-d", unpacked).returncode, 0)
        for name, data in KNOWN_LOGS.items():
            with open(os.path.join(unpacked, "report", "logs", name), "rb") as f:
                self.assertEqual(f.read(), data, name)
        # The tray's own active log is there too (its content moves on, so only its presence).
        active = [os.path.relpath(p, tray.logs) for p in tray.active_log_files()]
        self.assertEqual(len(active), 1)
        self.assertIn("report/logs/" + active[0], entries)
        # The listings come from the live machine: this test's listener and the tray itself.
        with open(os.path.join(unpacked, "report", "nestat"), encoding="utf-8") as f:
            self.assertIn("    TCP 127.0.0.1:%d --> 0.0.0.0:0 LISTEN, PID %d\n" % (port, os.getpid()), f.read())
        with open(os.path.join(unpacked, "report", "tasklist"), encoding="utf-8") as f:
            self.assertRegex(f.read(), r"(?m)^ PROCESS 'HalvoSoftphone[^']*', OWNER 'root', PID %d$"
                             % tray.process.pid)

        # The container stays in the temporary folder, empty.
        containers = os.listdir(self.tmp)
        self.assertEqual(len(containers), 1, containers)
        self.assertTrue(containers[0].startswith("hv-temp-"), containers)
        self.assertEqual(os.listdir(os.path.join(self.tmp, containers[0])), [])
        self.assertIsNone(tray.process.poll())

    def test_unwritable_download_folder_shows_the_alert(self):
        self.serve_file_manager()
        tray = self.start_report_tray("blocker/Downloads")
        # Its parent is a regular file, so not even root can create or write into it.
        with open(os.path.join(tray.root, "blocker"), "w") as f:
            f.write("not a folder\n")
        self.assert_alert_path(tray, "Unable to create download folder")

    def test_missing_zip_shows_the_alert(self):
        self.serve_file_manager()
        bin_folder = os.path.join(self.root, "bin")
        os.makedirs(bin_folder)
        for tool in ("sh", "unzip", "cat", "ls"):
            os.symlink(shutil.which(tool), os.path.join(bin_folder, tool))
        tray = self.start_report_tray(DOWNLOADS, path=bin_folder)
        os.makedirs(os.path.join(tray.root, DOWNLOADS))
        self.assert_alert_path(tray, "Unable to pack folder")
        self.assertEqual(os.listdir(os.path.join(tray.root, DOWNLOADS)), [])

    def assert_alert_path(self, tray, error):
        item = self.click_collect_logs()
        alert = wait_for(lambda: alert_window(tray), timeout=30, what="the alert")
        texts = wait_for(lambda: accessible_texts(self.bus), timeout=10, what="the alert's texts")
        self.assertIn("Error while preparing logs", texts)
        self.assertIn("Unable to prepare Halvo softphone logs", texts)
        self.assertEqual(len(tray.log_lines("ERROR", error)), 1)

        self.assertTrue(press_button(self.bus, "OK"))
        wait_for(lambda: alert_window(tray) != alert, what="the alert to close")
        self.assertEqual(self.file_manager.calls, [])
        # The tray goes on following the service.
        tray.send_frame("ServiceStatus", "ConnectionState:Connected,ErrorCode:Success", via_peer=False)
        self.wait_for_tool_tip(item, FIRST_LINE + "Connected")
        self.assertEqual(self.file_manager.calls, [])
        self.assertIsNone(tray.process.poll())

    def test_without_a_file_manager_the_folder_is_opened(self):
        # No FileManager1 on the bus: the folder goes to the default handler, here a stand-in
        # xdg-open that writes down what it was given.
        bin_folder = os.path.join(self.root, "bin")
        os.makedirs(bin_folder)
        opened = os.path.join(self.root, "opened.txt")
        opener = os.path.join(bin_folder, "xdg-open")
        with open(opener, "w") as f:
            f.write('#!/bin/sh\nprintf "%%s\\n" "$@" > "%s.part" && mv "%s.part" "%s"\n' % (opened, opened, opened))
        os.chmod(opener, 0o755)
        tray = self.start_report_tray(DOWNLOADS, path=bin_folder + os.pathsep + os.environ["PATH"])
        downloads = os.path.join(tray.root, DOWNLOADS)
        os.makedirs(downloads)
        self.click_collect_logs()
        wait_for(lambda: os.path.exists(opened) or tray.log_lines("WARN", "Unable to open folder"),
                 timeout=30, what="the folder to be opened")
        self.assertTrue(os.path.exists(opened))
        with open(opened) as f:
            self.assertEqual(f.read(), "file://" + urllib.parse.quote(downloads, safe="/") + "\n")
        self.assertEqual(len(tray.log_lines("WARN", "No file manager shows the report")), 1)
        self.assertEqual(len(os.listdir(downloads)), 1)


    def test_without_file_manager_and_folder_opener_the_user_is_told_where_it_is(self):
        # An opener that cannot open anything, as on a desktop without a default handler.
        bin_folder = os.path.join(self.root, "bin")
        os.makedirs(bin_folder)
        opener = os.path.join(bin_folder, "xdg-open")
        with open(opener, "w") as f:
            f.write("#!/bin/sh\nexit 3\n")
        os.chmod(opener, 0o755)
        self.notifications_name = dbus.service.BusName(NOTIFICATIONS_NAME, self.bus)
        tray = self.start_report_tray(DOWNLOADS, path=bin_folder + os.pathsep + os.environ["PATH"])
        self.click_collect_logs()
        wait_for(lambda: self.notifications.calls, timeout=30, what="the notification")
        archive = self.only_archive(tray)
        self.assertEqual(self.notifications.calls, [("Logs saved to", archive)])
        self.assertEqual(len(tray.log_lines("WARN", "Unable to open folder")), 1)

    def test_without_any_of_them_a_box_names_the_archive(self):
        # No file manager, no folder opener on PATH, no notification service.
        bin_folder = os.path.join(self.root, "bin")
        os.makedirs(bin_folder)
        os.symlink(shutil.which("zip"), os.path.join(bin_folder, "zip"))
        tray = self.start_report_tray(DOWNLOADS, path=bin_folder)
        item = self.click_collect_logs()
        texts = wait_for(lambda: "Logs saved to" in accessible_texts(self.bus) and accessible_texts(self.bus),
                         timeout=30, what="the box")
        self.assertIn(self.only_archive(tray), texts)
        self.assertTrue(press_button(self.bus, "OK"))
        # The tray goes on following the service.
        tray.send_frame("ServiceStatus", "ConnectionState:Connected,ErrorCode:Success", via_peer=False)
        self.wait_for_tool_tip(item, FIRST_LINE + "Connected")
        self.assertEqual(self.notifications.calls, [])

    def only_archive(self, tray):
        """The path of the one archive in the tray's download folder (made by the report)."""
        downloads = os.path.join(tray.root, DOWNLOADS)
        names = os.listdir(downloads)
        self.assertEqual(len(names), 1, names)
        self.assertTrue(ARCHIVE_NAME.match(names[0]), names[0])
        return os.path.join(downloads, names[0])


# Only this file's tests run here; the tray's own are run from tray_e2e.py.
for _name in dir(harness.TrayE2E):
    if _name.startswith("test_"):
        setattr(ReportE2E, _name, None)


def alert_window(tray):
    """Id of the tray's mapped top-level window titled "Halvo Softphone", or None."""
    tree = run("xwininfo", "-root", "-children").stdout
    for line in tree.splitlines():
        if '"Halvo Softphone"' in line:
            window = line.split()[0]
            if "IsViewable" in run("xwininfo", "-id", window).stdout:
                return window
    return None


def accessible_roots(bus):
    """(bus name, path) of every application that exports an accessibility tree on this bus."""
    roots = []
    for name in bus.list_names():
        if not name.startswith(":") or name == bus.get_unique_name():
            continue
        try:
            bus.get_object(name, ATSPI_ROOT, introspect=False).GetChildren(
                dbus_interface=ATSPI_ACCESSIBLE, timeout=2)
            roots.append((str(name), ATSPI_ROOT))
        except dbus.DBusException:
            pass
    return roots


def accessible_nodes(bus, node, depth=0):
    """The node and everything under it, depth first, as (name, path, accessible name, role)."""
    name, path = node
    obj = bus.get_object(name, path, introspect=False)
    label = str(obj.Get(ATSPI_ACCESSIBLE, "Name", dbus_interface=PROPERTIES, timeout=2))
    role = int(obj.GetRole(dbus_interface=ATSPI_ACCESSIBLE, timeout=2))
    yield name, path, label, role
    if depth < 8:
        for child in obj.GetChildren(dbus_interface=ATSPI_ACCESSIBLE, timeout=2):
            yield from accessible_nodes(bus, (str(child[0]), str(child[1])), depth + 1)


def accessible_texts(bus):
    return [label for root in accessible_roots(bus) for _, _, label, _ in accessible_nodes(bus, root) if label]


def press_button(bus, label):
    """Presses the first accessible object named `label` through its first action."""
    for root in accessible_roots(bus):
        for name, path, text, _ in accessible_nodes(bus, root):
            if text.replace("&", "") == label:
                obj = bus.get_object(name, path, introspect=False)
                return bool(obj.DoAction(0, dbus_interface=ATSPI_ACTION, timeout=5))
    return False


def main():
    import argparse
    parser = argparse.ArgumentParser()
    parser.add_argument("--tray", required=True, help="the tray application binary")
    parser.add_argument("--peer", help="the service peer tool (unused here)")
    parser.add_argument("--icons", required=True, help="folder of the shipped PNG icons")
    args, rest = parser.parse_known_args()
    harness.ARGS = args
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)


if __name__ == "__main__":
    main()
