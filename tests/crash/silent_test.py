#!/usr/bin/env python3
"""Kills recordings of which a stream has fallen silent, or never came, and judges what is lost.

    silent_test.py --zeva build/linux/bin/zeva --host build/linux/bin/silent_host [--rounds 10]

All run at real speed side by side. What had been written until the promised loss before the kill
must come back; packets of a movie must have the times of an unbroken recording. "lost" is all that
had been written and did not come back, over all rounds.
"""
import argparse
import bisect
import collections
import concurrent.futures
import itertools
import json
import os
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

from crash_test import Broken, judge, run, wait_until

ALWAYS, NEVER = (0, 60), (60, 60)
# Pictures a second, and when there are pictures and sound.
SILENCES = {
    "sound never": (5, ALWAYS, NEVER),
    "sound stops": (5, ALWAYS, (0, 2)),
    "sound from 4 s": (5, ALWAYS, (4, 60)),
    "pictures never": (5, NEVER, ALWAYS),
    "pictures stop": (5, (0, 2), ALWAYS),
    "pictures from 4 s": (5, (4, 60), ALWAYS),
    "one picture a second": (1, ALWAYS, ALWAYS),
    "one a second, no sound": (1, ALWAYS, NEVER),
}
# Movies whose other stream ends after two seconds, and the stream that goes on.
MOVIES = {
    "sound ends": (["-bf", "0"], ["-af", "atrim=end=2"], "v"),
    "pictures end": (["-bf", "0", "-vf", "trim=end=2"], [], "a"),
    "sound ends, B-frames": (["-bf", "3", "-b_strategy", "0"], ["-af", "atrim=end=2"], "v"),
    "B-frames": (["-bf", "2"], [], "v"),
}
MOVIE_FPS = 25
SOUND_S = 1024 / 48000  # of a packet
# Three times what the headers promise: 0.2 s, and 0.5 s of waiting for the silent stream; packets are
# sorted for 0.5 s, and `zeva record` has an encoder that looks ahead for as long.
LOSS_S = collections.defaultdict(lambda: 3 * 1.2, frames=3 * 0.7)


def packets_back(path):
    """(seconds shown, seconds decoded, bytes' hash) by the kind of the stream."""
    done = run("ffprobe", "-v", "error", "-show_data_hash", "md5", "-show_entries",
               "packet=codec_type,pts_time,dts_time,data_hash", "-of", "json", path)
    found = collections.defaultdict(list)
    for p in json.loads(done.stdout)["packets"]:
        found[p["codec_type"][0]].append((p["pts_time"], p["dts_time"], p["data_hash"]))
    return found


def start_host(options, interface, silence, movie_file):
    rate, pictures, sound = SILENCES[silence]
    numbers = [str(n) for n in (rate, *pictures, *sound)]
    process = subprocess.Popen([*options.emulator, options.host, interface, movie_file, *numbers],
                               stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    wait_until(lambda: os.path.exists(movie_file + ".fed"), process)
    return process


def kill_host(options, interface, silence, movie_file, kill_s):
    """For each kind of stream how long a packet lasts, and when each was written."""
    process = start_host(options, interface, silence, movie_file)
    time.sleep(kill_s)
    if process.poll() is not None:
        raise Broken("the host has ended")
    process.kill()
    process.wait()
    with open(movie_file + ".fed", encoding="ascii") as file:
        fed = [line.split() for line in file.read().split("\n")[:-1]]
    rate, pictures, sound = SILENCES[silence]
    written = {}
    for kind, interval, begin in (("v", 1 / rate, pictures[0]), ("a", SOUND_S, sound[0])):
        # A stream that comes too late may be refused, and is not written then.
        times = [float(at) for k, at, taken in fed if k == kind and (taken == "1" or begin == 0)]
        if kind == "a" and times and interface in ("frames", "pcm"):
            times = [n * SOUND_S + times[0] for n in range(int((times[-1] - times[0]) / SOUND_S))]
        written[kind] = interval, times
    return written


def kill_tool(options, command, movie, movie_file, kill_s):
    """The same. The movie's stream that goes on was read until the kill."""
    spawned = time.monotonic()
    process = subprocess.Popen(
        [*options.zeva, command, "--input", options.movies[movie], "-o", movie_file, "--index",
         movie_file + ".index"],
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    wait_until(lambda: os.path.exists(movie_file + ".index"), process)
    begin = spawned if command == "mux" else time.monotonic()
    time.sleep(kill_s)
    process.kill()
    process.wait()
    fed_s = time.monotonic() - begin
    kind = MOVIES[movie][2]
    interval = 1 / MOVIE_FPS if kind == "v" else SOUND_S
    times = [n * interval for n in range(int(fed_s / interval))]
    return {kind: (interval, times)}


def make_movie(path, name):
    pictures, sound, _ = MOVIES[name]
    done = run("ffmpeg", "-v", "error", "-f", "lavfi", "-i",
               f"testsrc2=size=160x120:rate={MOVIE_FPS}", "-f", "lavfi", "-i",
               "sine=frequency=440:sample_rate=48000", "-t", "20", "-c:v", "libx264", "-preset",
               "ultrafast", *pictures, "-c:a", "aac", *sound, path)
    if done.returncode != 0:
        raise Broken(done.stderr)


def unbroken(options, command, movie):
    """The packets of a whole recording of the movie."""
    path = f"{options.movies[movie]}.{command}.mp4"
    done = run(*options.zeva, command, "--input", options.movies[movie], "--fast", "-y", "-o", path)
    if done.returncode != 0:
        raise Broken(f"unbroken: {done.stdout}")
    return packets_back(path)


def compare(back, whole, command):
    """Every packet has the bytes and both times of the same one in the unbroken recording."""
    same = 3 if command == "mux" else 2  # an encoder need not make the same bytes again
    for kind, packets in back.items():
        same_packets = itertools.zip_longest(packets, whole[kind][:len(packets)])
        for n, (ours, theirs) in enumerate(same_packets):
            if theirs is None or ours[:same] != theirs[:same]:
                raise Broken(f"{kind} {n}: {ours}, in the unbroken recording {theirs}")


def count_losses(how, written, back):
    """Milliseconds lost of each kind of stream, and what is missing that was due."""
    lost, faults = {}, []
    end = max((times[-1] for _, times in written.values() if times), default=0)
    for kind, (interval, times) in written.items():
        count = len(back.get(kind, []))
        due = bisect.bisect(times, end - LOSS_S[how])
        if times:
            lost[kind] = 1000 * interval * max(0, len(times) - count)
        if count < due:
            faults.append(f"{kind}: {count} packets came back of {len(times)}; {due} were due")
    return lost, "; ".join(faults)


def one_kill(options, round_number, how, case):
    movie_file = os.path.join(options.folder, f"{how} {case} {round_number}.mp4".replace(" ", "-"))
    kill_s = options.kill + random.Random(f"{round_number}/{how}/{case}").uniform(0, 1)
    lost, fault = {}, ""
    try:
        kill = kill_tool if case in MOVIES else kill_host
        written = kill(options, how, case, movie_file, kill_s)
        back = {}
        if os.path.exists(movie_file) and judge(options.zeva, movie_file)[0] > 0:
            back = packets_back(movie_file + ".repaired.mp4")
        lost, fault = count_losses(how, written, back)
        if case in MOVIES:
            compare(back, unbroken(options, how, case), how)
    except (Broken, ValueError, OSError, subprocess.SubprocessError) as error:
        fault = fault or str(error)
    return how, case, lost, fault and f"{how}, {case}, killed after {kill_s:.1f} s: {fault}"


def report(results):
    print("| interface | silence | kills | faults | pictures lost ms: mean, most | sound |")
    print("|---|---|---|---|---|---|")
    for how, case in dict.fromkeys(r[:2] for r in results):
        mine = [r for r in results if r[:2] == (how, case)]
        cells = []
        for kind in "va":
            lost = [r[2][kind] for r in mine if kind in r[2]]
            cells.append(f"{statistics.mean(lost):.0f}, {max(lost):.0f}" if lost else "-")
        faults = sum(bool(r[3]) for r in mine)
        print(f"| {how} | {case} | {len(mine)} | {faults} | {' | '.join(cells)} |")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--zeva", required=True)
    parser.add_argument("--host", required=True)
    parser.add_argument("--emulator", default="", help="what runs a program of another system")
    parser.add_argument("--rounds", type=int, default=1)
    parser.add_argument("--kill", type=float, default=7.5, help="second of the kill, or up to 1 s later")
    parser.add_argument("--case", default="", help="only cases whose name contains this")
    options = parser.parse_args()
    options.emulator = options.emulator.split()
    options.zeva = [*options.emulator, options.zeva]
    options.folder = tempfile.mkdtemp(prefix="zeva-silent-")
    options.movies = {name: os.path.join(options.folder, name.replace(" ", "-") + ".mov")
                      for name in MOVIES}
    for name, path in options.movies.items():
        make_movie(path, name)
    cases = [(how, case) for how in ("frames", "packets") for case in SILENCES]
    cases += [(how, case) for how in ("reordered", "pcm")
              for case in ("sound never", "sound stops", "pictures stop", "pictures from 4 s")]
    cases += [(how, case) for how in ("record", "mux") for case in MOVIES]
    cases = [(how, case) for how, case in cases if options.case in f"{how}, {case}"]
    workers = 8 if options.emulator else len(cases)  # programs of another system start slowly
    results = []
    for number in range(options.rounds):
        with concurrent.futures.ThreadPoolExecutor(workers) as pool:
            results += pool.map(lambda c, n=number: one_kill(options, n, *c), cases)
    report(results)
    faults = [r[3] for r in results if r[3]]
    if faults:
        sys.exit("\n".join([*faults, f"the files are in {options.folder}"]))
    shutil.rmtree(options.folder)


if __name__ == "__main__":
    main()
