#!/usr/bin/python3
# The tools' command lines as a user meets them: what --help, --version and refusals print, and the
# exit status. Run by CTest: command_line_test.py --peer PATH --report PATH.

import argparse, os, pathlib, subprocess, sys, tempfile, unittest

TOOLS = {}  # name: path
# What reaches the terminal; the service peer's reasons are checked case by case by its parser's test.
REFUSALS = [("hv-service-peer", ["--status", "Connected\nSuccess"], r"invalid status 'Connected Success'"),
            ("hv-collect-report", ["--version=2"], r"option '--version' does not take any arguments"),
            ("hv-collect-report", ["now"], r"unexpected argument 'now'")]


def run(tool, *arguments, env=None):
    return subprocess.run([TOOLS[tool], *arguments], capture_output=True, text=True, timeout=60, env=env)


class CommandLineTest(unittest.TestCase):
    def test_help_and_version(self):
        for tool in TOOLS:
            version = run(tool, "--version")
            self.assertEqual((version.returncode, version.stdout, version.stderr), (0, "%s %s\n" % (tool, os.environ["HV_VERSION"]), ""))
            for flag in ("--help", "-h"):
                result = run(tool, flag)
                self.assertEqual((result.returncode, result.stderr, result.stdout.split(" ", 2)[:2]), (0, "", ["usage:", tool]))

    def test_refusals_are_one_line_with_status_2(self):
        # A line break in a value does not break the one-line refusal either.
        for tool, arguments, reason in REFUSALS:
            result = run(tool, *arguments)
            self.assertEqual((result.returncode, result.stdout), (2, ""), result.stderr)
            self.assertRegex(result.stderr, r"\A%s: [^\n]*%s[^\n]*\n\Z" % (tool, reason))

    def test_report_prints_its_archive_or_says_why_with_status_1(self):
        with tempfile.TemporaryDirectory(prefix="hv-cli-") as root:
            os.makedirs(os.path.join(root, "logs"))
            # A zip that talks on its standard output, writes part of its archive and fails: its
            # words must not reach ours, which carries only the archive's path. Neither the part
            # nor, after this or a failed copy, the report's container (in TMPDIR) stays.
            pathlib.Path(root, "zip").write_text("#!/bin/sh\necho 'zip noise'\necho partial > \"$5\"\nexit 12\n")
            os.chmod(os.path.join(root, "zip"), 0o755)
            env = dict(os.environ, HOME=root, XDG_CONFIG_HOME=root, TMPDIR=root, HV_SOFTPHONE_LOG_DIR=os.path.join(root, "logs"))
            result = run("hv-collect-report", env=dict(env, PATH=root + os.pathsep + os.environ["PATH"]))
            self.assertEqual(os.listdir(os.path.join(root, "Downloads")), [])
            pathlib.Path(root, "file").touch()  # no home folder: neither a log of its own nor logs to copy
            homeless = run("hv-collect-report", env={"PATH": os.environ["PATH"], "HOME": root + "/file/home", "TMPDIR": root})
            self.assertEqual(sorted(os.listdir(root)), ["Downloads", "file", "logs", "zip"])
            made = run("hv-collect-report", env=env)
            self.assertEqual((made.returncode, os.path.dirname(made.stdout)), (0, os.path.join(root, "Downloads")), made.stderr)
            self.assertIn("report/nestat", subprocess.run(["unzip", "-Z1", made.stdout[:-1]], capture_output=True, text=True).stdout)
        self.assertEqual((result.returncode, result.stdout), (1, ""), result.stderr)
        self.assertIn("zip noise\n", result.stderr)
        self.assertRegex(result.stderr, r"(?m)^hv-collect-report: the report could not be built: "
                         r"Unable to pack folder: .*Downloads/\.halvo-softphone-report-.*\.zip\..*\.part.*error=12")
        self.assertEqual(homeless.returncode, 1)
        self.assertRegex(homeless.stderr, r"\AHalvoSoftphoneCollectReport: running without a log: cannot create folder .*\n"
                         r"hv-collect-report: the report could not be built: Unable to copy .*/file/home/")

if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--peer", required=True)
    parser.add_argument("--report", required=True)
    args, rest = parser.parse_known_args()
    TOOLS.update({"hv-service-peer": args.peer, "hv-collect-report": args.report})
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)
