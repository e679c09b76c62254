#!/usr/bin/python3
"""The Debian package made from a build tree, checked from the outside: its control fields and
files, lintian, and the unpacked programs run end to end (the tray through the tests/e2e harness,
the report tool on its own). The package is made here with CPack from the tree's installed
targets, so this needs them built.

  package_test.py --build-dir DIR --source-dir DIR --cpack PATH [unittest arguments]

Exit status 77 (skipped) without dpkg-deb.
"""

import argparse
import glob
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ARGS = None
SKIPPED = 77

NAME = "halvo-softphone-tray"
VERSION = "130.264.0"
TRAY = "usr/libexec/halvo-softphone/HalvoSoftphoneTray"
PEER = "usr/bin/hv-service-peer"
REPORT = "usr/bin/hv-collect-report"
ICON_NAMES = ("waiting", "error", "connected")
ICON_SIZES = (16, 22, 24, 32, 48)

# path in the package: mode
EXPECTED_FILES = {TRAY: 0o755, PEER: 0o755, REPORT: 0o755,
                  "usr/share/doc/%s/copyright" % NAME: 0o644,
                  "usr/share/doc/%s/changelog.gz" % NAME: 0o644}
for _name in ICON_NAMES:
    for _size in ICON_SIZES:
        EXPECTED_FILES["usr/share/icons/hicolor/%dx%d/apps/%s-%s.png" % (_size, _size, NAME, _name)] = 0o644
    EXPECTED_FILES["usr/share/icons/hicolor/scalable/apps/%s-%s.svg" % (NAME, _name)] = 0o644

# Libraries the programs link; dpkg-shlibdeps must have found each one's package.
LIBRARY_PACKAGES = [r"libqt6core6", r"libqt6gui6", r"libqt6widgets6", r"libqt6dbus6",
                    r"libboost-filesystem1\.74\.0", r"libboost-thread1\.74\.0",
                    r"libboost-program-options1\.74\.0", r"liblog4cplus-2\.0\.\d+"]


def run(command, **kwargs):
    kwargs.setdefault("timeout", 300)
    return subprocess.run(command, capture_output=True, text=True, **kwargs)


class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = tempfile.mkdtemp(prefix="hv-package-test-")
        out = os.path.join(cls.work, "out")
        made = run([ARGS.cpack, "-G", "DEB", "--config", os.path.join(ARGS.build_dir, "CPackConfig.cmake"),
                    "-B", out])
        if made.returncode != 0:
            shutil.rmtree(cls.work)
            raise AssertionError("cpack failed:\n" + made.stdout + made.stderr)
        packages = glob.glob(os.path.join(out, "*.deb"))
        assert len(packages) == 1, packages
        cls.deb = packages[0]
        cls.root = os.path.join(cls.work, "root")
        subprocess.run(["dpkg-deb", "-x", cls.deb, cls.root], check=True)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.work, ignore_errors=True)

    def test_control_fields(self):
        architecture = run(["dpkg", "--print-architecture"]).stdout.strip()
        expected = {"Package": NAME, "Version": VERSION, "Architecture": architecture,
                    "Section": "comm", "Priority": "optional"}
        for field, value in expected.items():
            with self.subTest(field=field):
                self.assertEqual(run(["dpkg-deb", "-f", self.deb, field]).stdout.strip(), value)
        self.assertEqual(os.path.basename(self.deb), "%s_%s_%s.deb" % (NAME, VERSION, architecture))
        self.assertRegex(run(["dpkg-deb", "-f", self.deb, "Maintainer"]).stdout, r"^\S.* <[^@\s]+@[^@\s]+>$")
        # A summary line, then a paragraph of indented lines.
        description = run(["dpkg-deb", "-f", self.deb, "Description"]).stdout.rstrip("\n").split("\n")
        self.assertGreater(len(description), 3)
        self.assertTrue(all(line.startswith(" ") and len(line) <= 80 for line in description[1:]), description)

        depends = run(["dpkg-deb", "-f", self.deb, "Depends"]).stdout.strip()
        names = [relation.split()[0] for relation in depends.split(", ")]
        for wanted in ["zip", "unzip"] + LIBRARY_PACKAGES:
            with self.subTest(depends=wanted):
                self.assertTrue(any(re.fullmatch(wanted, name) for name in names), depends)

    def test_file_list(self):
        listing = run(["dpkg-deb", "-c", self.deb]).stdout.splitlines()
        files, folders = {}, set()
        for line in listing:
            mode, owner, _, _, _, path = line.split(None, 5)
            self.assertEqual(owner, "root/root", line)
            path = path[2:] if path.startswith("./") else path
            if mode.startswith("d"):
                self.assertEqual(mode, "drwxr-xr-x", line)
                folders.add(path.rstrip("/"))
            else:
                files[path] = mode
        self.assertEqual(sorted(files), sorted(EXPECTED_FILES))
        for path, mode in EXPECTED_FILES.items():
            self.assertEqual(files[path], "-rwxr-xr-x" if mode == 0o755 else "-rw-r--r--", path)
        # No folder that holds none of the files.
        parents = {os.path.dirname(p) for p in EXPECTED_FILES}
        self.assertEqual({f for f in folders if f and not any(p == f or p.startswith(f + "/") for p in parents)},
                         set())
        # The icon cache is hicolor-icon-theme's trigger's job: no maintainer scripts.
        control = os.path.join(self.work, "control")
        subprocess.run(["dpkg-deb", "-e", self.deb, control], check=True)
        self.assertEqual(sorted(os.listdir(control)), ["control", "md5sums"])

    def test_unpacked_tray_end_to_end(self):
        for tool in ("xvfb-run", "dbus-run-session"):
            if not shutil.which(tool):
                self.skipTest("needs " + tool)
        # The harness compares the item's pixels with PNGs named NAME-SIZE.png: give it the
        # package's own icons.
        icons = os.path.join(self.work, "icons")
        os.makedirs(icons, exist_ok=True)
        for name in ICON_NAMES:
            for size in ICON_SIZES:
                os.symlink(os.path.join(self.root, "usr/share/icons/hicolor/%dx%d/apps/%s-%s.png"
                                        % (size, size, NAME, name)),
                           os.path.join(icons, "%s-%d.png" % (name, size)))
        e2e = os.path.join(ARGS.source_dir, "tests", "e2e")
        result = run(["xvfb-run", "-a", "-s", "-screen 0 800x600x24",
                      "dbus-run-session", "--config-file=" + os.path.join(e2e, "session-bus.conf"), "--",
                      "/usr/bin/python3", os.path.join(e2e, "tray_e2e.py"),
                      "--tray", os.path.join(self.root, TRAY), "--peer", os.path.join(self.root, PEER),
                      "--icons", icons,
                      "TrayE2E.test_statuses_follow_the_table",
                      "TrayE2E.test_closing_stdin_stops_the_tray",
                      "TrayE2E.test_peer_spawns_the_tray_and_ends_it_by_closing_its_input"])
        sys.stderr.write(result.stderr)
        self.assertEqual(result.returncode, 0, result.stdout)
        self.assertRegex(result.stderr, r"Ran 3 tests in [\d.]+s\n\nOK\n")

    def test_unpacked_report_tool(self):
        home = os.path.join(self.work, "home")
        logs = os.path.join(self.work, "logs")
        for folder in (os.path.join(home, "Downloads"), logs, os.path.join(self.work, "tmp")):
            os.makedirs(folder, exist_ok=True)
        with open(os.path.join(logs, "known.log"), "w") as f:
            f.write("a line of the softphone's log\n")
        env = dict(os.environ, HOME=home, HV_SOFTPHONE_LOG_DIR=logs, TMPDIR=os.path.join(self.work, "tmp"))
        env.pop("XDG_CONFIG_HOME", None)
        for tool, name in ((PEER, "hv-service-peer"), (REPORT, "hv-collect-report")):
            with self.subTest(tool=name):
                version = run([os.path.join(self.root, tool), "--version"], env=env)
                self.assertEqual((version.returncode, version.stdout), (0, "%s %s\n" % (name, VERSION)))

        result = run([os.path.join(self.root, REPORT)], env=env)
        self.assertEqual(result.returncode, 0, result.stderr)
        archive = result.stdout.rstrip("\n")
        self.assertEqual(os.path.dirname(archive), os.path.join(home, "Downloads"))
        self.assertRegex(os.path.basename(archive), r"^halvo-softphone-report-.*-%s\.zip$" % re.escape(VERSION))
        listing = run(["unzip", "-l", archive])
        self.assertEqual(listing.returncode, 0, listing.stderr)
        for entry in ("report/nestat", "report/tasklist", "report/logs/known.log"):
            self.assertRegex(listing.stdout, r"(?m)\s%s$" % re.escape(entry))

    def test_lintian_reports_no_errors(self):
        if not shutil.which("lintian"):
            self.skipTest("needs lintian")
        result = run(["lintian", "--no-tag-display-limit", self.deb])
        tags = [line for line in result.stdout.splitlines() if re.match(r"^[EW]: ", line)]
        if tags:
            sys.stderr.write("lintian:\n  " + "\n  ".join(tags) + "\n")
        self.assertEqual([tag for tag in tags if tag.startswith("E:")], [])
        # Its status says whether it ran at all (and is 1 on errors too).
        self.assertEqual(result.returncode, 0, result.stderr)


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--build-dir", required=True)
    parser.add_argument("--source-dir", required=True)
    parser.add_argument("--cpack", required=True)
    ARGS, rest = parser.parse_known_args()
    missing = [tool for tool in ("dpkg-deb", "dpkg-shlibdeps") if not shutil.which(tool)]
    if missing:
        print("package test skipped: needs %s (Debian packages dpkg and dpkg-dev)" % " and ".join(missing))
        sys.exit(SKIPPED)
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)


if __name__ == "__main__":
    main()
