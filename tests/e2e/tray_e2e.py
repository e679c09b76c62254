#!/usr/bin/python3
# End-to-end tests of the tray application and its report command: the real binary on a real X
# server and a private session bus. This script plays the desktop on that bus: the panel's
# StatusNotifierWatcher (so the tray's item registers here and its tool tip, icon and menu are read
# over D-Bus as a panel reads them), a file manager, a notification service, the accessibility bus.
#
#   xvfb-run -a dbus-run-session --config-file=session-bus.conf -- /usr/bin/python3 tray_e2e.py \
#       --tray PATH --peer PATH --icons 'FOLDER/{name}-{size}.png' [TrayE2E.test_...]
#   tray_e2e.py --list    prints the id of every test; CTest registers one entry per id

import argparse, contextlib, functools, glob, gzip, os, pathlib, pwd, re, shutil, signal, socket, subprocess, sys, tempfile, time
import unittest
import urllib.parse, zipfile

import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

WATCHER_NAME = "org.kde.StatusNotifierWatcher"
ITEM_INTERFACE = "org.kde.StatusNotifierItem"
MENU_INTERFACE = "com.canonical.dbusmenu"
PROPERTIES = "org.freedesktop.DBus.Properties"
FILE_MANAGER = "org.freedesktop.FileManager1"
NOTIFICATIONS = "org.freedesktop.Notifications"
VERSION = os.environ.get("HV_VERSION", "")  # the build's, from CTest
FIRST_LINE = "Halvo Softphone (%s)\n" % VERSION
CONNECTED = b"ServiceStatus|ConnectionState:Connected,ErrorCode:Success"
ARCHIVE = r"^halvo-softphone-report-\d{4}-\d\d-\d\d_\d{6}_UTC-%s\.zip$" % re.escape(VERSION)
SIZES = (16, 22, 24, 32, 48)  # of the pixmaps and the theme's icons
# In the log folder before the tray starts; unlike the tray's own log they do not change, so the
# archive must hold them byte for byte.
KNOWN_LOGS = {"halvo-softphone-2026-01-02-%s-4242.gz" % VERSION: gzip.compress(os.urandom(64 * 1024)),
              "old run.log": "first line\nsecond line, caf\u00e9\n".encode(), "archive/older.txt": bytes(range(256)) * 8}
ARGS = None  # from the command line


class Desktop(dbus.service.Object):
    # The desktop's services, at each of their object paths; it records what it is asked.
    SUPPORTS_MULTIPLE_OBJECT_PATHS = True

    def __init__(self, bus, path="/StatusNotifierWatcher"):
        super().__init__(bus, path)
        self.items, self.calls = [], []  # (bus name, object path) of each registered item; other calls

    @dbus.service.method(WATCHER_NAME, in_signature="s", sender_keyword="sender")
    def RegisterStatusNotifierItem(self, service, sender=None):
        self.items.append((sender, service) if service.startswith("/") else (service, "/StatusNotifierItem"))

    # The toolkit learns from the introspection data that the watcher has a host property, which
    # dbus-python does not list by itself.
    @dbus.service.method(dbus.INTROSPECTABLE_IFACE, out_signature="s", path_keyword="path", connection_keyword="bus")
    def Introspect(self, path, bus):
        return super().Introspect(path, bus).replace('<interface name="%s">' % WATCHER_NAME, '<interface name="%s"><property '
                                                     'name="IsStatusNotifierHostRegistered" type="b" access="read"/>' % WATCHER_NAME)

    @dbus.service.method(PROPERTIES, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        # A host is there; accessibility is on.
        return {"RegisteredStatusNotifierItems": dbus.Array([n + p for n, p in self.items], signature="s"),
                "ProtocolVersion": dbus.Int32(0)}.get(name, True)

    @dbus.service.method(FILE_MANAGER, in_signature="ass")
    def ShowItems(self, uris, startup_id):
        self.calls.append(("ShowItems", list(uris), startup_id))

    @dbus.service.method(NOTIFICATIONS, in_signature="susssasa{sv}i", out_signature="u")
    def Notify(self, app, replaces, icon, summary, body, actions, hints, timeout):
        self.calls.append(("Notify", summary, body))
        return len(self.calls)

    # Applications export their accessibility trees on the bus this names: this very one.
    @dbus.service.method("org.a11y.Bus", out_signature="s")
    def GetAddress(self):
        return os.environ["DBUS_SESSION_BUS_ADDRESS"]


Watcher = Desktop  # the name the tray benchmark uses


def pump(seconds=0.0):
    # Lets the bus deliver calls: everything waiting, and more for `seconds`.
    deadline = time.monotonic() + seconds
    while GLib.MainContext.default().iteration(False) or time.monotonic() < deadline:
        time.sleep(0.002)


def wait_for(condition, what, timeout=5.0):
    deadline = time.monotonic() + timeout
    while not (value := pump() or condition()):
        if time.monotonic() > deadline:
            raise AssertionError("timed out waiting for " + (what if isinstance(what, str) else what()))
        time.sleep(0.02)
    return value


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, timeout=30).stdout


def write(path, data, mode=0o644):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    pathlib.Path(path).write_bytes(data)
    os.chmod(path, mode)


def frame(payload):
    return len(payload).to_bytes(4, "little") + payload


def resident_kib(pid):  # for the tray benchmark
    return int(re.search(r"VmRSS:\s*(\d+)", pathlib.Path("/proc/%d/status" % pid).read_text())[1])


def premultiplied(argb):
    # The toolkit keeps pixmaps premultiplied: only colour weighted by alpha survives its round trip.
    return tuple(round(argb[i + j] * argb[i] / 255) if j else argb[i] for i in range(0, len(argb), 4) for j in range(4))


@functools.lru_cache(maxsize=None)
def shipped_icon(name, size):
    # As the item carries it: ARGB32 in network byte order, premultiplied.
    rgba = subprocess.run(["/usr/bin/convert", ARGS.icons.format(name=name, size=size), "-depth", "8", "rgba:-"],
                          capture_output=True, check=True).stdout
    return premultiplied(bytes(rgba[i + j] for i in range(0, len(rgba), 4) for j in (3, 0, 1, 2)))


def prop(item, name):
    return item.Get(ITEM_INTERFACE, name, dbus_interface=PROPERTIES)


def tray_window(popup):
    # A viewable top-level window of the tray: its menu (override-redirect) or a box.
    for line in run("xwininfo", "-root", "-children").splitlines():
        if '"Halvo Softphone"' in line:
            info = run("xwininfo", "-id", line.split()[0])
            if "IsViewable" in info and ("Override Redirect State: yes" in info) == popup:
                return line.split()[0]
    return None


def embedded_window():
    # The tray's item window inside the XEmbed panel, once it is there.
    in_panel = False
    for line in run("xwininfo", "-root", "-tree").splitlines():
        in_panel = in_panel or ('"panel"' in line and "trayer" in line)
        if in_panel and '"Halvo Softphone"' in line and "22x22" in line:
            return line.split()[0]
    return None


def accessible_nodes(bus):
    # (bus name, path, name) of every accessible object of every application on this bus.
    def under(name, path, depth):
        node = bus.get_object(name, path, introspect=False)
        yield name, path, str(node.Get("org.a11y.atspi.Accessible", "Name", dbus_interface=PROPERTIES, timeout=2))
        for child in node.GetChildren(dbus_interface="org.a11y.atspi.Accessible", timeout=2) if depth < 8 else []:
            yield from under(str(child[0]), str(child[1]), depth + 1)
    for name in bus.list_names():
        with contextlib.suppress(dbus.DBusException):  # no accessibility tree there
            if name.startswith(":") and name != bus.get_unique_name():
                yield from under(name, "/org/a11y/atspi/accessible/root", 0)


def connect(path, timeout=10.0):
    # A client connected the moment something listens at `path`: the service's way.
    # A Unix socket whose connect failed is still unconnected, and may try again.
    client, deadline = socket.socket(socket.AF_UNIX), time.monotonic() + timeout
    while error := client.connect_ex(path):
        if time.monotonic() > deadline:
            client.close()
            raise OSError(error, os.strerror(error), path)
        time.sleep(0.0005)
    return client


class Tray:
    # One tray process with its own log, runtime, temporary and home folders, its stdin held open.
    def __init__(self, root, env=None, start=True):
        self.root, self.logs, self.runtime = root, os.path.join(root, "logs"), os.path.join(root, "runtime")
        self.env = {**os.environ, "HV_SOFTPHONE_LOG_DIR": self.logs, "XDG_RUNTIME_DIR": self.runtime,
                    "TMPDIR": os.path.join(root, "tmp"), "HOME": root, "QT_QPA_PLATFORM": "xcb", **(env or {})}
        for folder in (self.logs, self.runtime, os.path.join(root, "tmp")):
            os.makedirs(folder, mode=0o700, exist_ok=True)
        self.output = open(os.path.join(root, "output.txt"), "wb")
        self.process = start and subprocess.Popen([ARGS.tray], stdin=subprocess.PIPE, stdout=self.output, stderr=subprocess.STDOUT, env=self.env)

    def socket_path(self):
        # Without a runtime folder: the user's private folder in the temporary one.
        folder = self.env["XDG_RUNTIME_DIR"] or os.path.join(self.env["TMPDIR"], "halvophone-%d" % os.geteuid())
        return os.path.join(folder, "halvophone-tray-local-channel")

    def log_lines(self, level, text):
        # Lines at `level` ("[WARN ] ..." in the file) with `text`: the active file and the packed parts.
        files = [pathlib.Path(p).read_bytes() for p in sorted(glob.glob(self.logs + "/**", recursive=True)) if os.path.isfile(p)]
        lines = b"\n".join(gzip.decompress(data) if data[:2] == b"\x1f\x8b" else data for data in files).decode("utf-8", "replace")
        return [line for line in lines.splitlines() if line[1:].split("]", 1)[0].strip() == level and text in line]

    def close_input(self):
        # How the parent stops the tray; its exit status.
        self.process.stdin.close()
        return self.process.wait(timeout=12)

    def active_log_files(self):
        return glob.glob(os.path.join(self.logs, "**", "*-%s-%d" % (VERSION, self.process.pid)), recursive=True)

    def peer(self, *arguments):
        subprocess.run([ARGS.peer, "--pipe", "tray", *arguments], env=self.env, check=True, timeout=10, capture_output=True)

    def stop(self):
        if self.process:
            self.process.kill()
            self.process.communicate()  # and its stdin closed
        self.output.close()


class Harness(unittest.TestCase):
    bus = watcher = None  # set once a process, before the tests: an object path is exported once

    def setUp(self):
        self.bus.request_name(WATCHER_NAME)
        self.watcher.calls = []
        self.root = self.enterContext(tempfile.TemporaryDirectory(prefix="hv-e2e-", ignore_cleanup_errors=True))
        self.trays = 0

    def spawn(self, env=None, start=True):
        # A tray in a fresh folder; its item, once registered, is the watcher's last.
        self.trays += 1
        self.watcher.items = []
        tray = Tray(os.path.join(self.root, "tray%d" % self.trays), env, start)
        self.addCleanup(tray.stop)
        return tray

    def start(self, env=None):
        # The common preamble: a tray whose item has registered and shows "Waiting".
        tray = self.spawn(env)
        tray.item = self.item()
        self.wait_tool_tip(tray.item, "Waiting")
        return tray

    def item(self):
        return self.bus.get_object(*wait_for(lambda: self.watcher.items and self.watcher.items[-1], "the item"))

    def wait_tool_tip(self, item, second_line):
        # The title and the text of the item's tool tip: the two lines of the macOS one.
        tool_tip = lambda: "%s\n%s" % tuple(map(str, prop(item, "ToolTip")[2:]))
        wait_for(lambda: tool_tip() == FIRST_LINE + second_line, lambda: "%r, not %r" % (FIRST_LINE + second_line, tool_tip()))

    def send_status(self, tray, status, second_line):
        # A status as the service sends it, and the tool tip once it shows it.
        tray.peer("--status", status)
        self.wait_tool_tip(tray.item, second_line)

    def assert_icon(self, item, name):
        # At the panel's size; the package test checks that every size is shipped.
        [shown] = [premultiplied(bytes(data)) for width, _, data in prop(item, "IconPixmap") if width == 22]
        shipped = shipped_icon(name, 22)
        self.assertTrue(len(shown) == len(shipped) and all(abs(x - y) <= 1 for x, y in zip(shown, shipped)), name)

    def entry(self, tray):
        # The menu, its one entry's id, label and whether it is enabled, as a panel reads them.
        menu = self.bus.get_object(tray.item.bus_name, prop(tray.item, "Menu"))
        layout = menu.GetLayout(0, -1, dbus.Array([], signature="s"), dbus_interface=MENU_INTERFACE)[1]
        [(entry, properties)] = [(c[0], c[1]) for c in layout[2] if c[1].get("visible", True)]
        return menu, entry, str(properties.get("label")), bool(properties.get("enabled", True))

    def click(self, tray):
        # Over dbusmenu as a panel clicks; the reply is not awaited, the tray may send it only after
        # a box is closed.
        menu, entry, _, _ = self.entry(tray)
        menu.Event(entry, "clicked", dbus.Int32(0, variant_level=1), dbus.UInt32(0), dbus_interface=MENU_INTERFACE,
                   reply_handler=lambda *a: None, error_handler=lambda *a: None)


class TrayE2E(Harness):
    def assert_item(self, item, icon, text):
        # Every property a host reads, the pixmaps, and the theme the icon's name is looked up in.
        name, attention = "halvo-softphone-tray-" + icon, icon == "error"
        shown = item.GetAll(ITEM_INTERFACE, dbus_interface=PROPERTIES)
        wanted = {"Id": "halvo-softphone-tray", "Title": "Halvo Softphone", "Category": "Communications", "ItemIsMenu": True,
                  "IconName": name, "Status": "NeedsAttention" if attention else "Active", "Menu": "/MenuBar",
                  "AttentionIconName": "halvo-softphone-tray-error", "ToolTip": (name, [], FIRST_LINE.strip(), text)}
        self.assertEqual({key: tuple(shown[key]) if key == "ToolTip" else shown[key] for key in wanted}, wanted)
        self.assertEqual([(w, h) for w, h, _ in shown["IconPixmap"]], [(size, size) for size in SIZES])
        self.assert_icon(item, icon)
        # Uninstalled the build tree's copy of the theme, installed the installed one: the shipped files.
        theme = pathlib.Path(shown["IconThemePath"], "hicolor")
        self.assertEqual([(theme / ("%dx%d/apps/%s.png" % (size, size, name))).read_bytes() for size in SIZES],
                         [pathlib.Path(ARGS.icons.format(name=icon, size=size)).read_bytes() for size in SIZES])
        self.assertTrue((theme / "scalable/apps" / (name + ".svg")).is_file())

    def test_statuses_follow_the_table_and_nothing_else(self):
        tray = self.start()
        self.assert_item(tray.item, "waiting", "Waiting")
        # Every look, and the host told what changed; the whole decision table is the unit test's.
        received = []
        self.addCleanup(self.bus.add_signal_receiver(lambda *args, member: received.append((member, *args)),
                                                     dbus_interface=ITEM_INTERFACE, member_keyword="member").remove)
        new, error = [("NewIcon",), ("NewToolTip",)], ("Waiting,Socket", "error", "Error: Port busy")
        for status, icon, text, news in [("Connected,Success", "connected", "Connected", new),
                                         (*error, new + [("NewStatus", "NeedsAttention")]), (*error, []),  # the same again
                                         ("Waiting,Success", "waiting", "Waiting", new + [("NewStatus", "Active")]),
                                         (*error, new + [("NewStatus", "NeedsAttention")])]:
            with self.subTest(status=status):
                del received[:]
                self.send_status(tray, status, text)
                pump(0.5)
                self.assertEqual(received, news)
                self.assert_item(tray.item, icon, text)
        # An unknown state and other channels change nothing (a client of another user is the pipe's
        # unit test's). Handled in order: once the unknown state is logged, the messages before it are
        # handled too.
        icon, body = prop(tray.item, "IconPixmap"), CONNECTED[14:].decode()
        tray.peer("--channel", "ServiceStatus-global", "--body", body, "--channel", "Broadcast", "--body", body,
                  "--status", "Unknown,Success")
        wait_for(lambda: tray.log_lines("WARN", "Unexpected status; ignored"), "the WARN line")
        self.wait_tool_tip(tray.item, "Error: Port busy")
        self.assertEqual((prop(tray.item, "IconPixmap"), len(tray.log_lines("WARN", "Unexpected status"))), (icon, 1))

    def test_xembed_tray_without_a_status_notifier_host(self):
        self.bus.release_name(WATCHER_NAME)
        panel = subprocess.Popen(["trayer", "--edge", "top", "--align", "right", "--widthtype", "pixel", "--width",
                                  "100", "--height", "24"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: panel.kill() or panel.wait())
        # The panel must own the tray selection before the tray asks for it.
        wait_for(lambda: "trayer" in run("xwininfo", "-root", "-tree"), "the panel")
        pump(0.5)
        tray = self.spawn()
        window = wait_for(embedded_window, "the embedded item")
        self.assertEqual((tray.log_lines("WARN", "No system tray is available"), self.watcher.items), ([], []))
        subprocess.run(["xdotool", "mousemove", "--window", window, "11", "11", "click", "1"], check=True)
        wait_for(lambda: tray_window(popup=True), "the menu")

    def test_peer_spawns_the_tray_and_ends_it_by_closing_its_input(self):
        tray = self.spawn(start=False)
        peer = subprocess.Popen([ARGS.peer, "--spawn", ARGS.tray, "--status", "Connected,Success", "--stop-after-ms", "2500"],
                                env=tray.env, text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(peer.kill)
        self.wait_tool_tip(self.item(), "Connected")
        out, err = peer.communicate(timeout=10)
        self.assertEqual(peer.returncode, 0, err)
        self.assertRegex(out, r"HalvoSoftphoneTray \(pid \d+\) exited with status 0")
        # Ended through its input at the stop time, not by a signal.
        self.assertEqual(len(tray.log_lines("INFO", "parent process has stopped")), 1)

    def test_first_status_is_shown_however_early_it_comes_and_closing_stdin_stops_the_tray(self):
        # The service connects the moment the socket exists and sends its status at once.
        for attempt in range(20):
            with self.subTest(attempt=attempt):
                tray = self.spawn()
                with connect(tray.socket_path()) as client:
                    client.sendall(frame(CONNECTED))
                    self.wait_tool_tip(self.item(), "Connected")
                # The active log file is packed on the way out (the tuple is evaluated in order).
                self.assertEqual((len(tray.active_log_files()), tray.close_input(), tray.active_log_files()), (1, 0, []))

    def test_lost_socket_folder_is_waited_for(self):
        # Without a runtime folder the socket is in the temporary folder, which a cleaner removes
        # while the service is connected; then the service goes.
        tray = self.start({"XDG_RUNTIME_DIR": ""})
        with connect(tray.socket_path()) as client:
            client.sendall(frame(CONNECTED))
            self.wait_tool_tip(tray.item, "Connected")
            shutil.rmtree(tray.env["TMPDIR"])
        wait_for(lambda: tray.log_lines("ERROR", "Unable to listen on named pipe in tray at "), "the listen error")
        os.makedirs(tray.env["TMPDIR"], mode=0o700)
        with connect(tray.socket_path()) as client:
            client.sendall(frame(b"ServiceStatus|ConnectionState:Waiting,ErrorCode:Socket"))
            self.wait_tool_tip(tray.item, "Error: Port busy")


class ReportE2E(Harness):
    # The menu's report command with every way of showing its archive, one tray for all. Boxes are
    # read and closed through the accessibility tree, which the tray exports on this bus.
    def take_archive(self, downloads):
        # The one archive, moved aside so that the next report's is alone again.
        [name] = os.listdir(downloads)
        self.assertRegex(name, ARCHIVE)
        os.rename(os.path.join(downloads, name), os.path.join(self.root, name))
        return os.path.join(downloads, name)

    def close_box(self, tray, text, status, second_line):
        # The box's texts once one shows `text`; closed, the tray goes on following the service.
        nodes = lambda: list(accessible_nodes(self.bus))
        texts = wait_for(lambda: text in (texts := [t for _, _, t in nodes()]) and texts, "a box with " + text, timeout=30)
        name, path, _ = next(node for node in nodes() if node[2].replace("&", "") == "OK")
        self.bus.get_object(name, path, introspect=False).DoAction(0, dbus_interface="org.a11y.atspi.Action")
        wait_for(lambda: not tray_window(popup=False), "the box to close")
        self.send_status(tray, status, second_line)
        return texts

    def test_report_is_archived_and_shown_by_the_desktop_or_a_box(self):
        # Known logs, a download folder that does not exist yet, and a PATH of zip and a stand-in
        # xdg-open that writes down its arguments.
        root, bin_folder = os.path.join(self.root, "tray1"), os.path.join(self.root, "bin")
        for name, data in KNOWN_LOGS.items():
            write(os.path.join(root, "logs", name), data)
        write(os.path.join(root, "config", "user-dirs.dirs"), b'XDG_DOWNLOAD_DIR="$HOME/My Downloads"\n')
        downloads, opened, opener = os.path.join(root, "My Downloads"), os.path.join(self.root, "opened"), os.path.join(bin_folder, "xdg-open")
        write(opener, b'#!/bin/sh\nprintf "%%s\\n" "$@" > "%s.part" && /bin/mv "%s.part" "%s"\n' % ((opened.encode(),) * 3), 0o755)
        os.symlink(shutil.which("zip"), os.path.join(bin_folder, "zip"))
        for name in ("org.a11y.Bus", FILE_MANAGER):
            self.bus.request_name(name)
        listener = self.enterContext(socket.create_server(("127.0.0.1", 0)))
        tray = self.start({"XDG_CONFIG_HOME": os.path.join(root, "config"), "PATH": bin_folder})
        # A left click, as a panel sends it, opens the menu; a click on its one entry runs the report.
        tray.item.Activate(dbus.Int32(100), dbus.Int32(100), dbus_interface=ITEM_INTERFACE)
        menu = wait_for(lambda: tray_window(popup=True), "the menu")
        subprocess.run(["xdotool", "mousemove", "--window", menu, "20", "10", "click", "1"], check=True)
        wait_for(lambda: self.watcher.calls, "ShowItems", timeout=30)
        archive = self.take_archive(downloads)
        # Exactly one call, with the archive's URI fully percent-encoded (the blank too).
        pump(0.5)
        self.assertEqual(self.watcher.calls, [("ShowItems", ["file://" + urllib.parse.quote(archive, safe="/")], "")])
        with zipfile.ZipFile(os.path.join(self.root, os.path.basename(archive))) as z:
            self.assertEqual({name: z.read("report/logs/" + name) for name in KNOWN_LOGS}, KNOWN_LOGS)
            # The tray's own active log is there too (only its presence: it moves on).
            [active] = tray.active_log_files()
            self.assertIn("report/logs/" + os.path.relpath(active, tray.logs), z.namelist())
            # The listing comes from the live machine: this test's listener among them.
            self.assertIn("    TCP 127.0.0.1:%d --> 0.0.0.0:0 LISTEN, PID %d\n" % (listener.getsockname()[1], os.getpid()),
                          z.read("report/nestat").decode())

        # Without a file manager the default handler opens the folder.
        self.bus.release_name(FILE_MANAGER)
        self.click(tray)
        wait_for(lambda: os.path.exists(opened), "the folder to be opened", timeout=30)
        self.assertEqual(pathlib.Path(opened).read_text(), "file://" + urllib.parse.quote(downloads, safe="/") + "\n")
        self.take_archive(downloads)

        # No opener and no notification service either: a box names the archive.
        os.remove(opener)
        self.click(tray)
        texts = self.close_box(tray, "Logs saved to", "Connected,Success", "Connected")
        self.assertIn(self.take_archive(downloads), texts)

        # A download folder that cannot be made: the alert, and no archive shown anywhere.
        os.rmdir(downloads)
        write(downloads, b"not a folder\n")
        self.click(tray)
        self.assertIn("Unable to prepare Halvo softphone logs",
                      self.close_box(tray, "Error while preparing logs", "Waiting,Socket", "Error: Port busy"))
        self.assertEqual(len(tray.log_lines("ERROR", "Unable to create download folder")), 1)

        # An opener that cannot open anything, as on a desktop without a default handler: a
        # notification.
        os.remove(downloads)
        write(opener, b"#!/bin/sh\nexit 3\n", 0o755)
        self.bus.request_name(NOTIFICATIONS)
        self.click(tray)
        wait_for(lambda: len(self.watcher.calls) > 1, "the notification", timeout=30)
        self.assertEqual(self.watcher.calls[1:], [("Notify", "Logs saved to", self.take_archive(downloads))])

class NativeItemE2E(Harness):
    # The tray's own StatusNotifierItem and dbusmenu objects, read and called as a panel does (what
    # the item shows is TrayE2E's; clicking the entry, the report tests').
    def test_menu_answers_a_host_refuses_bad_calls_and_registers_again_with_a_restarted_watcher(self):
        tray = self.start()
        item, menu = (self.bus.get_object(tray.item.bus_name, path, introspect=False) for path in ("/StatusNotifierItem", "/MenuBar"))
        call = lambda method, *args: menu.get_dbus_method(method, MENU_INTERFACE)(*args)
        self.assertEqual(menu.GetAll(MENU_INTERFACE, dbus_interface=PROPERTIES),
                         {"Version": 3, "TextDirection": "ltr", "Status": "normal", "IconThemePath": []})
        entry = {"label": "Collect logs into a ZIP file", "enabled": True, "visible": True}
        _, (root, properties, children) = call("GetLayout", 0, -1, dbus.Array([], signature="s"))
        self.assertEqual((root, properties, [(c[0], c[1], c[2]) for c in children]),
                         (0, {"children-display": "submenu"}, [(1, entry, [])]))
        # Depth 0 is the root alone; properties by name, one or a group (an unknown id is skipped).
        self.assertEqual(call("GetLayout", 0, 0, ["label"])[1][2], [])
        self.assertEqual((call("GetProperty", 1, "label"), call("AboutToShow", 1)), (entry["label"], False))
        self.assertEqual(call("GetGroupProperties", [1, 7], ["enabled"]), [(1, {"enabled": True})])
        click = ("clicked", dbus.Int32(0, variant_level=1), dbus.UInt32(0))
        bad = [(item, ITEM_INTERFACE, "Explode", (), "UnknownMethod"), (item, ITEM_INTERFACE, "Activate", ("x", "y"), "InvalidArgs"),
               (item, PROPERTIES, "Get", (ITEM_INTERFACE, "Colour"), "UnknownProperty"),
               (menu, MENU_INTERFACE, "Event", (42, *click), "InvalidArgs"),
               (menu, MENU_INTERFACE, "GetLayout", (42, -1, dbus.Array([], signature="s")), "InvalidArgs")]
        for proxy, interface, method, arguments, error in bad * 2:
            with self.subTest(method=method, arguments=arguments), self.assertRaises(dbus.DBusException) as refused:
                proxy.get_dbus_method(method, interface)(*arguments)
            self.assertEqual(refused.exception.get_dbus_name(), "org.freedesktop.DBus.Error." + error)
        # One line for each kind: unknown method, wrong arguments, unknown id.
        wait_for(lambda: len(tray.log_lines("WARN", "Refused a D-Bus call")) >= 3, "the WARN lines")
        self.send_status(tray, "Connected,Success", "Connected")
        self.assertEqual(len(tray.log_lines("WARN", "Refused a D-Bus call")), 3)
        # The panel restarts: its watcher's name released and taken again.
        first = self.watcher.items[-1]
        self.bus.release_name(WATCHER_NAME)
        pump(0.2)
        self.watcher.items = []
        self.bus.request_name(WATCHER_NAME)
        self.assertEqual(wait_for(lambda: self.watcher.items, "the item to register again", timeout=1.0), [first])

    def test_under_wayland_the_item_opens_no_window(self):
        if not shutil.which("weston"):
            self.skipTest("weston is not installed (scripts/install-deps.sh installs it)")
        runtime, log = os.path.join(self.root, "wayland"), self.enterContext(open(os.path.join(self.root, "weston.txt"), "w+"))
        os.makedirs(runtime, mode=0o700)
        weston = subprocess.Popen(["weston", "--backend=headless-backend.so", "--socket=hv-e2e", "--idle-time=0"],
                                  env={**os.environ, "XDG_RUNTIME_DIR": runtime}, stdout=log, stderr=subprocess.STDOUT)
        self.addCleanup(lambda: weston.terminate() or weston.wait(timeout=10))
        display = os.path.join(runtime, "hv-e2e")
        wait_for(lambda: os.path.exists(display) or weston.poll() is not None, "weston", timeout=10)
        if not os.path.exists(display):
            self.skipTest("weston cannot start here: " + pathlib.Path(log.name).read_text()[-500:])
        # Every request the toolkit makes of the compositor goes to the tray's output.
        tray = self.start({"QT_QPA_PLATFORM": "wayland", "WAYLAND_DISPLAY": display, "WAYLAND_DEBUG": "1"})
        tray.item.Activate(dbus.Int32(100), dbus.Int32(100), dbus_interface=ITEM_INTERFACE)
        tray.item.SecondaryActivate(dbus.Int32(100), dbus.Int32(100), dbus_interface=ITEM_INTERFACE)
        self.send_status(tray, "Waiting,Socket", "Error: Port busy")
        pump(0.5)
        requests = pathlib.Path(tray.root, "output.txt").read_text(errors="replace")
        # On the compositor, yet no surface at all: neither a window nor a popup.
        self.assertEqual(('bind(1, "wl_compositor"' in requests, "create_surface" in requests, len(tray.log_lines("DEBUG", "under Wayland"))),
                         (True, False, 2))


class EnvironmentE2E(Harness):
    # A broken environment costs the log, never a status; signals and the end of standard input
    # stop the tray in order, and nothing else on standard input does.
    def launch(self, env={}, script=None):
        # A tray with the variables `env` (None: unset); `script` (sh, as root) runs first in a mount
        # namespace of its own. "{root}" and "{logs}" in values and script are the tray's folders.
        tray = self.spawn(start=False)
        write(os.path.join(tray.root, "file"), b"")
        tray.env.update({name: value and value.format(root=tray.root) for name, value in env.items()})
        tray.env = {name: value for name, value in tray.env.items() if value is not None}
        wrapper = ["unshare", "-m", "sh", "-ec", script.format(root=tray.root, logs=tray.logs) + '\nexec "$0"'] if script else []
        tray.process = subprocess.Popen(wrapper + [ARGS.tray], stdin=subprocess.PIPE, stdout=tray.output, stderr=subprocess.STDOUT, env=tray.env)
        tray.item = self.item()
        self.send_status(tray, "Connected,Success", "Connected")
        return tray

    def test_without_a_usable_log_folder_statuses_are_served(self):
        mount = os.geteuid() == 0 and shutil.which("unshare") and subprocess.run(["unshare", "-m", "true"]).returncode == 0
        home, nowhere = pwd.getpwuid(os.geteuid()).pw_dir, dict.fromkeys(("HV_SOFTPHONE_LOG_DIR", "XDG_DATA_HOME"))
        # Variables, script, the folder the one reason line names (none: no such line). A log folder
        # under a file fails the same way whichever variable names it: HOME here.
        for env, script, folder in [({**nowhere, "HOME": "{root}/file/home"}, None, "{root}/file"),
                                    ({}, "mount --bind {logs} {logs}; mount -o remount,bind,ro {logs}", "{logs}/HalvoSoftphoneTray"),
                                    ({**nowhere, "HOME": None}, "mkdir {root}/home; mount --bind {root}/home " + home, None)]:
            with self.subTest(env=env, script=script):
                if script and not (mount and os.path.isdir(home)):
                    self.skipTest("no mount namespace of our own here")
                tray = self.launch(env, script)
                reasons = re.findall(r"(?m)^HalvoSoftphoneTray: running without a log: cannot create folder (.*): ",
                                     pathlib.Path(tray.output.name).read_text())
                self.assertEqual(reasons, [folder.format(root=tray.root, logs=tray.logs)] if folder else [])
                self.assertEqual(tray.close_input(), 0)
                if not folder:  # without HOME: the password entry's home, in folders for this user alone
                    folders = [tray.root, "home", ".local", "share", "Halvo", "HalvoSoftphone-10.0", "logs", "HalvoSoftphoneTray"]
                    self.assertEqual([os.stat(os.path.join(*folders[:n])).st_mode & 0o777 for n in range(3, 9)], [0o700] * 6)
                    self.assertTrue(os.listdir(os.path.join(*folders)))

    def test_signals_and_the_end_of_input_stop_in_order_and_nothing_else_does(self):
        for stop in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, b"a line of text\n", frame(CONNECTED)):
            with self.subTest(stop=stop):
                tray = self.launch()
                if isinstance(stop, bytes):  # read and dropped; only the end of the input stops the tray
                    os.write(tray.process.stdin.fileno(), stop)
                    self.send_status(tray, "Waiting,Success", "Waiting")
                    self.assertIsNone(tray.process.poll())
                    tray.process.stdin.close()
                else:
                    tray.process.send_signal(stop)
                self.assertEqual(tray.process.wait(timeout=10), 0)
                self.assertEqual(len(tray.log_lines("INFO", "tray application has been stopped")), 1)
                self.assertEqual((tray.active_log_files(), os.path.exists(tray.socket_path())), ([], False))


class HostileClientE2E(Harness):
    # Local clients of the tray's own user that hold the socket, stop halfway, declare huge frames
    # or send floods: none keeps the service's status out, holds memory or fills the disk.
    def log_size(self, tray):
        return sum(os.path.getsize(p) for p in glob.glob(tray.logs + "/**", recursive=True) if os.path.isfile(p))

    def test_hostile_clients_cost_no_status_memory_or_disk_and_idle_is_silent(self):
        tray = self.start()
        # One connected and silent, one stopped in the middle of a frame; both stay.
        stuck, half = (self.enterContext(connect(tray.socket_path())) for _ in range(2))
        half.sendall(frame(CONNECTED)[:9])
        # Promptly: within the few seconds that the tool tip is waited for.
        self.send_status(tray, "Connected,Success", "Connected")
        pump(1)
        idle, size = resident_kib(tray.process.pid), self.log_size(tray)

        def send(data, level, text, count):
            # One client that sends `data` and goes, and the line that its frame leaves.
            with connect(tray.socket_path()) as client, contextlib.suppress(BrokenPipeError, ConnectionResetError):
                client.sendall(data)  # the tray may let go before the end
            wait_for(lambda: len(tray.log_lines(level, text)) >= count, text, timeout=30)

        # Declared lengths of 64 and 16 MiB with 10 bytes behind them, and a whole 8 MiB frame
        # that is no channel message.
        for number, length in enumerate((64 << 20, 16 << 20, 16 << 20, 16 << 20)):
            send(length.to_bytes(4, "little") + b"0123456789", "ERROR", "Error while reading message in tray", number + 1)
        send(frame(b"x" * (8 << 20)), "WARN", "Cannot parse buffer as channel message", 1)
        pump(1)
        # Under the sanitizers resident memory is theirs (freed blocks are kept in quarantine).
        if not os.environ.get("HV_E2E_SANITIZED"):
            self.assertLess(resident_kib(tray.process.pid) - idle, 5 * 1024)
        self.assertLess(self.log_size(tray) - size, 100 * 1024)
        self.assertLess(max(len(line) for line in tray.log_lines("ERROR", "") + tray.log_lines("WARN", "")), 8 * 1024)

        # Five thousand one-byte frames: the client goes at the tenth.
        size = self.log_size(tray)
        send(frame(b"x") * 5000, "WARN", "10 frames were no channel messages", 1)
        self.send_status(tray, "Waiting,Socket", "Error: Port busy")
        self.assertLess(self.log_size(tray) - size, 200 * 1024)
        # Idle: not one line in 30 s.
        pump(1)
        size = self.log_size(tray)
        pump(30)
        self.assertEqual(self.log_size(tray), size)

    def test_second_tray_of_the_user_waits_for_the_first(self):
        first = self.start()
        second = self.start({"XDG_RUNTIME_DIR": first.runtime})
        waiting = lambda: second.log_lines("WARN", "(pid %d) is listening on named pipe in tray" % first.process.pid)
        wait_for(waiting, "the WARN line")
        # The first serves on for 10 s, the second says nothing more.
        for status, second_line in [("Connected,Success", "Connected"), ("Waiting,Socket", "Error: Port busy")] * 5:
            self.send_status(first, status, second_line)
            pump(1)
        self.assertEqual((len(waiting()), str(prop(second.item, "ToolTip")[3])), (1, "Waiting"))
        self.assertEqual(first.close_input(), 0)
        started = time.monotonic()
        self.send_status(second, "Connected,Success", "Connected")
        self.assertLess(time.monotonic() - started, 2.5)


class LongInputE2E(Harness):
    def test_long_status_with_an_open_secret_is_logged_masked(self):
        # A 1 MiB status body whose password value never closes: the tray logs it masked, stays
        # up, and the next status shows.
        tray = self.start()
        head, secret = b'{"user":"bob","password":"', b"S3cr-"
        body = head + secret * ((1024 * 1024 - len(head)) // len(secret))
        with connect(tray.socket_path()) as client:
            client.sendall(frame(b"ServiceStatus|" + body) + frame(CONNECTED))
            self.wait_tool_tip(tray.item, "Connected")
        # Alive, the body logged once masked and nowhere in clear, its status ignored.
        self.assertEqual((tray.process.poll(), len(tray.log_lines("TRACE", 'body = {"user":"bob","password":"*... (')),
                          [line for level in ("TRACE", "DEBUG", "INFO", "WARN", "ERROR") for line in tray.log_lines(level, (secret * 4).decode())],
                          len(tray.log_lines("WARN", "Unexpected status; ignored"))), (None, 1, [], 1))


class LiveReportE2E(Harness):
    # The report is built beside the event loop: the item follows the service meanwhile, its entry
    # says so, and quitting waits for it. The log folder makes a report take seconds: packed parts
    # (stored) and text that does not compress.
    def test_item_follows_the_service_during_a_report_one_runs_at_a_time_and_quitting_waits_for_it(self):
        self.bus.request_name(FILE_MANAGER)
        self.addCleanup(self.bus.release_name, FILE_MANAGER)
        tray = self.start({"XDG_CONFIG_HOME": os.path.join(self.root, "no-config")})
        for name, megabytes in (("HalvoSoftphone-2026-11-20.gz", 120), ("HalvoSoftphone-2026-11-23.log", 48)):
            write(os.path.join(tray.logs, name), os.urandom(megabytes << 20))
        downloads = os.path.join(tray.root, "Downloads")
        self.click(tray)
        self.click(tray)
        pump(0.3)
        # At the pump's pace, not after the report (a busy tray answers the service and the panel
        # late, too).
        sent = time.monotonic()
        self.send_status(tray, "Waiting,Socket", "Error: Port busy")
        self.assertLess(time.monotonic() - sent, 1.0)
        self.assertEqual(self.entry(tray)[2:], ("Collecting logs\u2026", False))
        wait_for(lambda: self.watcher.calls, "ShowItems", timeout=60)
        self.assertEqual(self.entry(tray)[2:], ("Collect logs into a ZIP file", True))
        # One report, one archive, shown once.
        pump(0.5)
        [archive] = os.listdir(downloads)
        self.assertEqual(self.watcher.calls, [("ShowItems", ["file://" + urllib.parse.quote(os.path.join(downloads, archive), safe="/")], "")])
        self.assertEqual(len(tray.log_lines("DEBUG", "Temporary folder: ")), 1)
        # Standard input closed during a second report: besides the first archive the whole second
        # or none; in the temporary folder no file.
        self.click(tray)
        wait_for(lambda: self.entry(tray)[2] == "Collecting logs\u2026", "the second report to start")
        self.assertEqual(tray.close_input(), 0)
        left = os.listdir(downloads)
        self.assertTrue(archive in left and len(left) <= 2, left)
        for name in left:
            self.assertRegex(name, ARCHIVE)
            with zipfile.ZipFile(os.path.join(downloads, name)) as z:
                self.assertEqual((z.testzip(), z.getinfo("report/logs/HalvoSoftphone-2026-11-20.gz").file_size), (None, 120 << 20))
        self.assertEqual([name for _, _, files in os.walk(tray.env["TMPDIR"]) for name in files], [])


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    for option in ("--tray", "--peer", "--icons"):  # the binaries; the shipped PNGs with {name} and {size}
        parser.add_argument(option)
    parser.add_argument("--list", action="store_true", help="print the test ids and stop")
    ARGS, rest = parser.parse_known_args()
    if ARGS.list:
        print("\n".join(t.id().split(".", 1)[1] for s in unittest.defaultTestLoader.loadTestsFromModule(sys.modules[__name__]) for t in s))
    else:
        DBusGMainLoop(set_as_default=True)
        Harness.bus = dbus.SessionBus()
        Harness.watcher = Desktop(Harness.bus)
        for path in ("/org/freedesktop/FileManager1", "/org/freedesktop/Notifications", "/org/a11y/bus"):
            Harness.watcher.add_to_connection(Harness.bus, path)
        unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)
