#!/usr/bin/env python3
"""Runs clang-tidy over the product's sources, as build/linux compiles them.

A source that was clean is not looked at again until it, a header it includes, its compile command, the rules or
clang-tidy itself change: that is remembered as an empty file in the cache, named by a hash of all of these. So all of
the product is checked every time, and a run after a small change takes seconds.

usage: tidy.py CACHE_FOLDER
"""
import concurrent.futures
import hashlib
import json
import os
import pathlib
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/linux"
# Tests are left out: the test framework's macros set off most of the findings there.
ROOMS = ("src", "plugins", "tools", "examples")


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True, cwd=ROOT).stdout


def headers_by_object():
    """Object file -> files of this project that it was compiled from, as the compiler told ninja."""
    result, current = {}, []
    for line in output_of("ninja", "-C", str(BUILD), "-t", "deps").splitlines():
        if line.startswith("    "):
            path = (BUILD / line.strip()).resolve()
            if path.is_relative_to(ROOT):
                current.append(path)
        elif ": #deps" in line:
            current = result.setdefault(line.split(": #deps")[0], [])
    return result


def sources():
    """Compile commands of the product's own sources."""
    for entry in json.loads((BUILD / "compile_commands.json").read_text()):
        path = pathlib.Path(entry["directory"], entry["file"]).resolve()
        if path.is_relative_to(ROOT) and path.relative_to(ROOT).parts[0] in ROOMS:
            yield path, entry


def key_of(path, entry, headers, rules):
    """None for a source that has not been compiled: nobody knows its headers, so it is not to be remembered."""
    digest = hashlib.sha256(rules)
    digest.update(entry["command"].encode())
    words = shlex.split(entry["command"])
    object_file = words[words.index("-o") + 1]
    if object_file not in headers:
        return None
    for file in sorted({path, *headers[object_file]}):
        digest.update(str(file).encode() + b"\0")
        digest.update(file.read_bytes() if file.exists() else b"")
    return digest.hexdigest()


def check(path):
    # Bounded, as one source that sends the analyzer astray must not hold up the whole run.
    try:
        run = subprocess.run(
            ["clang-tidy", "--quiet", "-p", str(BUILD), str(path)],
            capture_output=True, text=True, cwd=ROOT, timeout=600)
    except subprocess.TimeoutExpired:
        return False, "clang-tidy did not come to an end within 10 minutes\n"
    return run.returncode == 0, run.stdout + run.stderr


def main():
    if not (BUILD / "compile_commands.json").exists():
        sys.exit("tidy.py: build/linux has no compile_commands.json; configure and build the preset linux first.")
    clean = pathlib.Path(sys.argv[1])
    clean.mkdir(parents=True, exist_ok=True)
    rules = (ROOT / ".clang-tidy").read_bytes() + output_of("clang-tidy", "--version").encode()
    headers = headers_by_object()
    found = dict(sources())
    if not found:
        sys.exit("tidy.py: build/linux/compile_commands.json names no source of the product.")
    keys = {path: key_of(path, entry, headers, rules) for path, entry in found.items()}
    todo = [path for path in sorted(found) if not (keys[path] and (clean / keys[path]).exists())]
    faulty = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for path, (ok, text) in zip(todo, pool.map(check, todo)):
            if ok and keys[path]:
                (clean / keys[path]).touch()
            if not ok:
                faulty += 1
                print(f"--- {path.relative_to(ROOT)}\n{text}", flush=True)
    print(f"clang-tidy: {len(found)} sources, {len(todo)} looked at, {faulty} with findings")
    sys.exit(1 if faulty else 0)


if __name__ == "__main__":
    main()
