#!/usr/bin/env python3
"""Measures how many deliberate faults each test suite catches.

Each fault in the faults file replaces one exact line fragment of one source file
(it must occur exactly once). For every fault the tree is rebuilt incrementally
and each suite, a CTest name filter, is run; a suite catches the fault when any
of its tests fails. The source is restored after each fault, whatever happens.

    inject.py BUILD_DIR FAULTS_FILE NAME=REGEX [NAME=REGEX ...]

FAULTS_FROM=N starts at the N-th fault (from 1), to resume a run. FAULTS_CLEAN=DIR
is removed before each fault (e.g. a fuzz corpus grown by the previous one). A suite stops at
its first failing test: whether it catches a fault is all that is counted.

e.g. inject.py build bench/faults/faults.txt 'unit=^(?!regress|pg_cluster)' 'sql=^regress'
Fault file blocks, separated by blank lines:

    id: short name
    file: path from the repository root
    old: exact text
    new: replacement text
"""
import os
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))


def parse(path):
    faults, block = [], {}
    for line in open(path, encoding="utf-8").read().splitlines() + [""]:
        if not line.strip():
            if block:
                faults.append(block)
                block = {}
            continue
        if line.startswith("#"):
            continue
        key, _, value = line.partition(": ")
        block[key.strip()] = value
    return faults


def run(cmd, cwd, timeout):
    try:
        return subprocess.run(cmd, cwd=cwd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              timeout=timeout).returncode == 0
    except subprocess.TimeoutExpired:
        return False


def ctest_names(build):
    out = subprocess.run(["ctest", "-N"], cwd=build, capture_output=True, text=True).stdout
    return re.findall(r"Test\s+#\d+: (\S+)", out)


def main():
    # A stop request unwinds like an error, so the faulted file is restored.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    build, faults_file, suites = sys.argv[1], sys.argv[2], [s.split("=", 1) for s in sys.argv[3:]]
    build = os.path.abspath(build)
    names = ctest_names(build)
    selected = {}
    for name, regex in suites:
        chosen = [n for n in names if re.search(regex, n)]
        selected[name] = "^(" + "|".join(re.escape(n) for n in chosen) + ")$"
        print(f"suite {name}: {len(chosen)} tests")
    caught = {name: 0 for name, _ in suites}
    valid = 0
    print("fault".ljust(34) + "".join(name.ljust(8) for name, _ in suites))
    for fault in parse(faults_file)[int(os.environ.get("FAULTS_FROM", "1")) - 1:]:
        path = os.path.join(ROOT, fault["file"])
        original = open(path, encoding="utf-8").read()
        if original.count(fault["old"]) != 1:
            print(f"{fault['id']:34}does not apply ({original.count(fault['old'])} matches)")
            continue
        if os.environ.get("FAULTS_CLEAN"):
            shutil.rmtree(os.environ["FAULTS_CLEAN"], ignore_errors=True)
        try:
            open(path, "w", encoding="utf-8").write(original.replace(fault["old"], fault["new"]))
            if not run(["cmake", "--build", build, "-j2"], ROOT, 900):
                print(f"{fault['id']:34}does not build")
                continue
            valid += 1
            row = fault["id"].ljust(34)
            for name, _ in suites:
                ok = run(["ctest", "-R", selected[name], "--timeout", "300", "-j2", "--stop-on-failure"], build, 1800)
                caught[name] += not ok
                row += ("caught" if not ok else "-").ljust(8)
            print(row, flush=True)
        finally:
            open(path, "w", encoding="utf-8").write(original)
    run(["cmake", "--build", build, "-j2"], ROOT, 900)
    print(f"{valid} faults: " + ", ".join(f"{name} caught {caught[name]}" for name, _ in suites))


if __name__ == "__main__":
    main()
