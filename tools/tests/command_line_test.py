#!/usr/bin/python3
"""The tools' command lines as a user meets them: what --help, --version and refusals print, and
the exit status. Run by CTest: command_line_test.py --peer PATH --report PATH."""

import argparse
import os
import re
import subprocess
import sys
import tempfile
import unittest

ARGS = None
VERSION = "130.264.0"

PEER_OPTIONS = ["--spawn", "--pipe", "--status", "--channel", "--body", "--cycle", "--delay-ms",
                "--stop-after-ms", "--timeout-ms", "--help", "--version"]
REPORT_OPTIONS = ["--help", "--version"]

# tool, arguments, the one line expected on stderr (a pattern). The service peer's reasons are
# covered case by case by its parser's own test; here, what reaches the terminal.
REFUSALS = [
    ("peer", ["--frobnicate"], r"unrecognised option '--frobnicate'"),
    ("peer", ["--status", "Connected,Success", "--delay-ms", "5x"], r"\('5x'\) for option '--delay-ms' is invalid"),
    # A line break in a value does not break the one-line refusal.
    ("peer", ["--status", "Connected\nSuccess"], r"invalid status 'Connected Success'"),
    ("report", ["--frobnicate"], r"unrecognised option '--frobnicate'"),
    ("report", ["--version=2"], r"option '--version' does not take any arguments"),
    ("report", ["now"], r"unexpected argument 'now'"),
]


def run(tool, arguments, env=None):
    path = {"peer": ARGS.peer, "report": ARGS.report}[tool]
    return subprocess.run([path] + arguments, capture_output=True, text=True, timeout=60, env=env)


class CommandLineTest(unittest.TestCase):
    def test_help_names_every_option_and_the_exit_status(self):
        for tool, options, usage in (("peer", PEER_OPTIONS, "usage: hv-service-peer "),
                                     ("report", REPORT_OPTIONS, "usage: hv-collect-report ")):
            for flag in ("--help", "-h"):
                with self.subTest(tool=tool, flag=flag):
                    result = run(tool, [flag])
                    self.assertEqual((result.returncode, result.stderr), (0, ""))
                    self.assertTrue(result.stdout.startswith(usage), result.stdout)
                    for option in options:
                        self.assertRegex(result.stdout, r"(?m)^\s+(-h \[ )?%s\b" % re.escape(option))
                    self.assertRegex(result.stdout, r"(?m)^Exit status:\n  0 .*\n  1 .*\n  2 .*refused")

    def test_version_prints_the_product_version(self):
        for tool, name in (("peer", "hv-service-peer"), ("report", "hv-collect-report")):
            with self.subTest(tool=tool):
                result = run(tool, ["--version"])
                self.assertEqual((result.returncode, result.stdout, result.stderr),
                                 (0, "%s %s\n" % (name, VERSION), ""))

    def test_refusals_are_one_line_with_status_2(self):
        for tool, arguments, reason in REFUSALS:
            with self.subTest(tool=tool, arguments=arguments):
                result = run(tool, arguments)
                self.assertEqual(result.returncode, 2, result.stderr)
                self.assertEqual(result.stdout, "")
                name = "hv-service-peer" if tool == "peer" else "hv-collect-report"
                self.assertRegex(result.stderr, r"\A%s: [^\n]*%s[^\n]*\n\Z" % (name, reason))

    def test_report_failure_says_why_with_status_1(self):
        with tempfile.TemporaryDirectory(prefix="hv-cli-") as root:
            # A zip that talks on its standard output and fails: its words must not reach ours,
            # which carries only the archive's path.
            for folder in ("bin", "config", "logs"):
                os.makedirs(os.path.join(root, folder))
            with open(os.path.join(root, "bin", "zip"), "w") as f:
                f.write("#!/bin/sh\necho 'zip noise'\nexit 12\n")
            os.chmod(os.path.join(root, "bin", "zip"), 0o755)
            env = dict(os.environ, HOME=root, XDG_CONFIG_HOME=os.path.join(root, "config"),
                       HV_SOFTPHONE_LOG_DIR=os.path.join(root, "logs"), TMPDIR=root,
                       PATH=os.path.join(root, "bin") + os.pathsep + os.environ["PATH"])
            result = run("report", [], env=env)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertEqual(result.stdout, "")
        self.assertIn("zip noise\n", result.stderr)
        self.assertRegex(result.stderr, r"(?m)^hv-collect-report: the report could not be built: "
                         r"Unable to pack folder: .*Downloads/halvo-softphone-report-.*\.zip.*error=12")


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--peer", required=True)
    parser.add_argument("--report", required=True)
    ARGS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)


if __name__ == "__main__":
    main()
