#!/usr/bin/python3
"""Lines of product code and of test code, and their ratio: non-blank lines that are not only a
comment. Product: libs/, tray/ and tools/ outside their tests/, benchmarks/ and fuzz/ folders.
Tests: every tests/ folder (the top-level one too) and every fuzz/ folder."""

import os
import sys

SOURCES = (".h", ".hpp", ".c", ".cpp", ".ipp", ".mm", ".py", ".sh")
ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def code_lines(path):
    """Non-blank lines that are not only a comment (// and /* */ in C-like files, # in scripts)."""
    hash_comments = path.endswith((".py", ".sh"))
    count, in_block = 0, False
    with open(path, encoding="utf-8", errors="replace") as f:
        for line in f:
            text = line.strip()
            if in_block:
                if "*/" not in text:
                    continue
                in_block = False
                text = text.split("*/", 1)[1].strip()
            if not text:
                continue
            if hash_comments:
                count += not text.startswith("#")
                continue
            if text.startswith("//"):
                continue
            if text.startswith("/*"):
                if "*/" not in text:
                    in_block = True
                    continue
                if not text.split("*/", 1)[1].strip():
                    continue
            count += 1
    return count


def kind(relative):
    parts = relative.split(os.sep)
    if parts[0] == "tests" or "tests" in parts[1:-1] or "fuzz" in parts[1:-1]:
        return "tests"
    if parts[0] in ("libs", "tray", "tools") and "benchmarks" not in parts[1:-1]:
        return "product"
    return None


def main():
    totals = {"product": 0, "tests": 0}
    for folder in ("libs", "tray", "tools", "tests"):
        for directory, _, files in os.walk(os.path.join(ROOT, folder)):
            for name in files:
                path = os.path.join(directory, name)
                which = kind(os.path.relpath(path, ROOT))
                if which and name.endswith(SOURCES):
                    totals[which] += code_lines(path)
    ratio = totals["tests"] / totals["product"] if totals["product"] else 0.0
    print("product %d lines, tests %d lines, tests/product %.2f" % (totals["product"], totals["tests"], ratio))
    return 0


if __name__ == "__main__":
    sys.exit(main())
