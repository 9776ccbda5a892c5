#!/usr/bin/python3
"""Lists every ignored [[nodiscard]] result in the sources of a build (the
engine and the bindings; the benchmarks too in a benchmark build). clang
also sees calls of virtual functions through pointers and references, which
GCC 12 does not warn about.

Usage (from the source root, after a configure that wrote
BUILD_DIR/compile_commands.json; needs clang++):
    scripts/check_unused_results.py BUILD_DIR [path-filter]
The filter (e.g. engine/learning/) limits the run to matching sources; JOBS
sets the number of compilers run side by side (default 2). Prints nothing
when every result is used; exits 1 otherwise."""
import json
import os
import shlex
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

# Flags of the GCC build that clang does not need or does not know.
DROPPED = ("-Wno-restrict", "-Wno-maybe-uninitialized")


def clang_command(entry):
    args = shlex.split(entry["command"])[1:]
    kept, skip = [], False
    for a in args:
        if skip:
            skip = False
        elif a in ("-o", "-c"):
            skip = True
        elif not (a.startswith("-O") or a.startswith("-fsanitize") or a.startswith("-fno-sanitize") or a in DROPPED):
            kept.append(a)
    return ["clang++", "-fsyntax-only", "-Wno-everything", "-Wunused-result"] + kept + [entry["file"]]


def check(entry):
    r = subprocess.run(clang_command(entry), cwd=entry["directory"], capture_output=True, text=True)
    return [line for line in r.stderr.splitlines() if "warning:" in line or "error:" in line]


def main(argv):
    if len(argv) < 2:
        sys.exit(__doc__)
    pattern = argv[2] if len(argv) > 2 else ""
    with open(os.path.join(argv[1], "compile_commands.json")) as f:
        entries = [e for e in json.load(f) if pattern in e["file"] and "/tests/" not in e["file"]]
    found = set()
    with ThreadPoolExecutor(int(os.environ.get("JOBS", "2"))) as pool:
        for lines in pool.map(check, entries):
            found.update(lines)
    for line in sorted(found):
        print(line)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
