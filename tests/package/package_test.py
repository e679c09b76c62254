#!/usr/bin/python3
# The Debian package made from a build tree with CPack, checked from the outside: control fields,
# files, lintian, and the unpacked programs run end to end (the tray through tests/e2e).
#   package_test.py --build-dir DIR --source-dir DIR --cpack PATH [unittest arguments]
# Exit status 77 (skipped) without dpkg-deb.

import argparse, glob, os, re, shutil, subprocess, sys, tempfile, unittest

NAME, VERSION = "halvo-softphone-tray", "130.264.0"
TRAY, PEER, REPORT = "usr/libexec/halvo-softphone/HalvoSoftphoneTray", "usr/bin/hv-service-peer", "usr/bin/hv-collect-report"
ICON = "usr/share/icons/hicolor/%sx%s/apps/" + NAME + "-%s.png"
FILES = {path: "-rwxr-xr-x" for path in (TRAY, PEER, REPORT)}
FILES.update({"usr/share/doc/%s/%s" % (NAME, doc): "-rw-r--r--" for doc in ("copyright", "changelog.gz")})
for icon in ("waiting", "error", "connected"):
    FILES.update({ICON % (size, size, icon): "-rw-r--r--" for size in (16, 22, 24, 32, 48)})
    FILES["usr/share/icons/hicolor/scalable/apps/%s-%s.svg" % (NAME, icon)] = "-rw-r--r--"
# Packages of the libraries the programs link: dpkg-shlibdeps must have found each one.
DEPENDS = ["zip", "unzip", "libqt6core6", "libqt6gui6", "libqt6widgets6", "libqt6dbus6", r"libboost-filesystem1\.74\.0",
           r"libboost-thread1\.74\.0", r"libboost-program-options1\.74\.0", r"liblog4cplus-2\.0\.\d+"]
ARGS = None


def run(*command, **kwargs):
    return subprocess.run(command, capture_output=True, text=True, timeout=300, **kwargs)


class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = tempfile.mkdtemp(prefix="hv-package-test-")
        made = run(ARGS.cpack, "-G", "DEB", "--config", os.path.join(ARGS.build_dir, "CPackConfig.cmake"), "-B", cls.work)
        assert made.returncode == 0, "cpack failed:\n" + made.stdout + made.stderr
        [cls.deb] = glob.glob(os.path.join(cls.work, "*.deb"))
        cls.root = os.path.join(cls.work, "root")
        subprocess.run(["dpkg-deb", "-x", cls.deb, cls.root], check=True)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.work, ignore_errors=True)

    def test_control_fields(self):
        field = lambda name: run("dpkg-deb", "-f", self.deb, name).stdout.rstrip("\n")
        architecture = run("dpkg", "--print-architecture").stdout.strip()
        for name, value in {"Package": NAME, "Version": VERSION, "Architecture": architecture, "Section": "comm",
                            "Priority": "optional"}.items():
            self.assertEqual(field(name), value, name)
        self.assertEqual(os.path.basename(self.deb), "%s_%s_%s.deb" % (NAME, VERSION, architecture))
        self.assertRegex(field("Maintainer"), r"^\S.* <[^@\s]+@[^@\s]+>$")
        # A summary line, then a paragraph of indented lines.
        description = field("Description").split("\n")
        self.assertGreater(len(description), 3)
        self.assertTrue(all(line.startswith(" ") and len(line) <= 80 for line in description[1:]), description)
        names = [relation.split()[0] for relation in field("Depends").split(", ")]
        for wanted in DEPENDS:
            self.assertTrue(any(re.fullmatch(wanted, name) for name in names), (wanted, names))
        # The icon cache is hicolor-icon-theme's trigger's job: no maintainer scripts.
        subprocess.run(["dpkg-deb", "-e", self.deb, os.path.join(self.work, "control")], check=True)
        self.assertEqual(sorted(os.listdir(os.path.join(self.work, "control"))), ["control", "md5sums"])

    def test_file_list(self):
        files, folders = {}, set()
        for line in run("dpkg-deb", "-c", self.deb).stdout.splitlines():
            mode, owner, _, _, _, path = line.split(None, 5)
            self.assertEqual(owner, "root/root", line)
            if mode.startswith("d"):
                self.assertEqual(mode, "drwxr-xr-x", line)
                folders.add(path[2:].rstrip("/"))
            else:
                files[path[2:]] = mode
        self.assertEqual(files, FILES)
        # No folder that holds none of the files.
        self.assertEqual([f for f in folders if f and not any(p.startswith(f + "/") for p in files)], [])

    def test_lintian_reports_no_errors(self):
        result = run("lintian", "--no-tag-display-limit", self.deb)
        sys.stderr.write(result.stdout)
        self.assertEqual([line for line in result.stdout.splitlines() if line.startswith("E: ")], [])
        # Its status says whether it ran at all (and is 1 on errors too).
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_unpacked_programs_run(self):
        e2e = os.path.join(ARGS.source_dir, "tests", "e2e")
        tests = ["TrayE2E.test_" + name for name in ("statuses_follow_the_table_and_nothing_else", "first_status_is_shown_however_early_it_comes_and_closing_stdin_stops_the_tray",
                                                     "peer_spawns_the_tray_and_ends_it_by_closing_its_input")]
        result = run("xvfb-run", "-a", "-s", "-screen 0 800x600x24", "dbus-run-session",
                     "--config-file=" + os.path.join(e2e, "session-bus.conf"), "--", "/usr/bin/python3",
                     os.path.join(e2e, "tray_e2e.py"), "--tray", os.path.join(self.root, TRAY), "--peer",
                     os.path.join(self.root, PEER), "--icons", os.path.join(self.root, ICON % ("{size}", "{size}", "{name}")),
                     *tests)
        sys.stderr.write(result.stderr)
        self.assertRegex(result.stderr, r"Ran 3 tests in [\d.]+s\n\nOK\n")

        home, logs = os.path.join(self.work, "home"), os.path.join(self.work, "logs")
        os.makedirs(logs)
        with open(os.path.join(logs, "known.log"), "w") as f:
            f.write("a line of the softphone's log\n")
        env = dict(os.environ, HOME=home, HV_SOFTPHONE_LOG_DIR=logs, TMPDIR=self.work, XDG_CONFIG_HOME=home)
        result = run(os.path.join(self.root, REPORT), env=env)
        self.assertEqual(result.returncode, 0, result.stderr)
        archive = result.stdout.rstrip("\n")
        self.assertRegex(archive, r"^%s/Downloads/halvo-softphone-report-.*-%s\.zip$" % (home, VERSION))
        listing = run("unzip", "-l", archive).stdout
        for entry in ("report/nestat", "report/tasklist", "report/logs/known.log"):
            self.assertRegex(listing, r"(?m)\s%s$" % re.escape(entry))


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    for option in ("--build-dir", "--source-dir", "--cpack"):
        parser.add_argument(option, required=True)
    ARGS, rest = parser.parse_known_args()
    if not shutil.which("dpkg-deb") or not shutil.which("dpkg-shlibdeps"):
        print("package test skipped: needs dpkg-deb and dpkg-shlibdeps (Debian packages dpkg and dpkg-dev)")
        sys.exit(77)
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)
