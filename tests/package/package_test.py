#!/usr/bin/python3
# The Debian package made from a build tree with CPack, checked from the outside: control fields,
# files, lintian, and the programs installed into a root of their own run end to end (the tray
# through tests/e2e), then purged without a trace.
#   package_test.py --build-dir DIR --source-dir DIR --cpack PATH [unittest arguments]
# Exit status 77 (skipped) without dpkg-deb.

import argparse, glob, os, pathlib, shutil, subprocess, sys, tempfile, unittest

NAME, VERSION = "halvo-softphone-tray", os.environ["HV_VERSION"]
TRAY, PEER, REPORT = "usr/libexec/halvo-softphone/HalvoSoftphoneTray", "usr/bin/hv-service-peer", "usr/bin/hv-collect-report"
ICON = "usr/share/icons/hicolor/%sx%s/apps/" + NAME + "-%s.png"
DATA = ["usr/share/doc/%s/%s" % (NAME, doc) for doc in ("copyright", "changelog.gz")]
DATA += ["usr/share/man/man1/%s.1.gz" % tool for tool in ("hv-collect-report", "hv-service-peer")]
for icon in ("waiting", "error", "connected"):
    DATA += [ICON % (size, size, icon) for size in (16, 22, 24, 32, 48)] + ["usr/share/icons/hicolor/scalable/apps/%s-%s.svg" % (NAME, icon)]
FILES = dict.fromkeys((TRAY, PEER, REPORT), "-rwxr-xr-x") | dict.fromkeys(DATA, "-rw-r--r--")
ARGS = None


def run(*command, **kwargs):
    return subprocess.run(command, capture_output=True, text=True, timeout=300, **kwargs)


class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="hv-package-test-"))
        made = run(ARGS.cpack, "-G", "DEB", "--config", os.path.join(ARGS.build_dir, "CPackConfig.cmake"), "-B", cls.work)
        assert made.returncode == 0, "cpack failed:\n" + made.stdout + made.stderr
        [cls.deb] = glob.glob(os.path.join(cls.work, "*.deb"))

    def test_control_fields_and_files(self):
        field = lambda name: run("dpkg-deb", "-f", self.deb, name).stdout.rstrip("\n")
        architecture = run("dpkg", "--print-architecture").stdout.strip()
        self.assertEqual([field(name) for name in ("Package", "Version", "Architecture")], [NAME, VERSION, architecture])
        # The report packs and checks with zip and unzip; the libraries' packages come from dpkg-shlibdeps.
        depends = [relation.split()[0] for relation in field("Depends").split(", ")]
        self.assertEqual([wanted for wanted in ("zip", "unzip", "libqt6widgets6", "libboost-filesystem", "liblog4cplus")
                          if not any(name.startswith(wanted) for name in depends)], [], depends)
        # Owned by root, folders open to all, and exactly these files.
        entries = [line.split(None, 5) for line in run("dpkg-deb", "-c", self.deb).stdout.splitlines()]
        self.assertEqual(({owner for _, owner, *_ in entries}, {mode for mode, *_ in entries if mode[0] == "d"}),
                         ({"root/root"}, {"drwxr-xr-x"}))
        self.assertEqual({path[2:]: mode for mode, *_, path in entries if mode[0] != "d"}, FILES)

    def test_lintian_reports_no_errors(self):
        # With the informational tags, where the hardening ones are.
        result = run("lintian", "--display-info", "--no-tag-display-limit", self.deb)
        sys.stderr.write(result.stdout)
        self.assertEqual([line for line in result.stdout.splitlines() if line.startswith("E: ") or line.split(" ")[2:3] in
                          (["hardening-no-bindnow"], ["hardening-no-fortify-functions"], ["no-manual-page"])], [])
        # Its status says whether it ran at all (and is 1 on errors too).
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_programs_are_hardened(self):
        # As shipped (stripped). Not control-flow protection: Debian 12's C start files carry no
        # CET property, so no program linked with them has it.
        root = os.path.join(self.work, "unpacked")
        subprocess.run(["dpkg-deb", "-x", self.deb, root], check=True)
        result = run("hardening-check", "--nocfprotection", *(os.path.join(root, path) for path in (TRAY, PEER, REPORT)))
        sys.stderr.write(result.stdout)
        self.assertEqual((result.returncode, result.stdout.count(": yes")), (0, 3 * 5), result.stdout + result.stderr)

    def test_installed_programs_run_and_purge_leaves_nothing(self):
        # A root with a dpkg database of its own, where the libraries are the machine's.
        root = os.path.join(self.work, "root")
        admin = os.path.join(root, "var", "lib", "dpkg")
        os.makedirs(os.path.join(admin, "updates"))
        open(os.path.join(admin, "status"), "w").close()
        dpkg = lambda *arguments: subprocess.run(["dpkg", "--root=" + root, "--force-depends", *arguments], check=True,
                                                 capture_output=True)
        dpkg("-i", self.deb)
        e2e = os.path.join(ARGS.source_dir, "tests", "e2e")
        result = run("xvfb-run", "-a", "-s", "-screen 0 800x600x24", "dbus-run-session", "--config-file=" + os.path.join(e2e, "session-bus.conf"),
                     "--", "/usr/bin/python3", os.path.join(e2e, "tray_e2e.py"), "--tray", os.path.join(root, TRAY), "--peer",
                     os.path.join(root, PEER), "--icons", os.path.join(root, ICON % ("{size}", "{size}", "{name}")),
                     "TrayE2E.test_statuses_follow_the_table_and_nothing_else",
                     "TrayE2E.test_peer_spawns_the_tray_and_ends_it_by_closing_its_input")
        sys.stderr.write(result.stderr)
        self.assertRegex(result.stderr, r"Ran 2 tests in [\d.]+s\n\nOK\n")
        # The installed report tool: its command line runs, as the manual page needs.
        self.assertEqual(run(os.path.join(root, REPORT), "--version").returncode, 0)

        dpkg("--purge", NAME)
        left = sorted(str(path.relative_to(root)) for path in pathlib.Path(root).rglob("*"))
        self.assertEqual([path for path in left if not path.startswith("var/lib/dpkg/")], ["var", "var/lib", "var/lib/dpkg"])


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    for option in ("--build-dir", "--source-dir", "--cpack"):
        parser.add_argument(option, required=True)
    ARGS, rest = parser.parse_known_args()
    if not shutil.which("dpkg-deb") or not shutil.which("dpkg-shlibdeps"):
        print("package test skipped: needs dpkg-deb and dpkg-shlibdeps (Debian packages dpkg and dpkg-dev)")
        sys.exit(77)
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)
