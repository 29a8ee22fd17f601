#!/usr/bin/env python3
"""Kills recordings at random instants, repairs them, and judges every packet that comes back.

    crash_test.py --zeva build/linux/bin/zeva --movie camera.mp4 [--kills 300] [--jobs 4] [--seed 1]

A recording runs at real speed in a process of its own and gets SIGKILL. Which packets must come back is
worked out here from the index and the broken file, with nothing of ours but the format; what did
come back is told by ffprobe, and ffmpeg decodes it. Fails if a movie is unreadable, or if a packet is
missing, too many or not exact. "lost" is what had been fed before the kill and did not come back: what
was still in the encoder as well as what had not reached the disk.
"""
import argparse
import concurrent.futures
import fractions
import hashlib
import json
import os
import pty
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

# What each is recorded from, how, and with what main output before the MP4.
SETUPS = {
    "sound and pictures": ("camera", ["record", "--loop"], ""),
    "pictures only": ("camera", ["record", "--loop", "--no-audio"], ""),
    "sound only": ("camera", ["record", "--loop", "--no-video"], ""),
    "pause in the middle": ("camera", ["record", "--loop"], ""),
    "60 fps": ("fast", ["record", "--loop"], ""),
    "MP4 behind MKV": ("camera", ["record", "--loop"], ".mkv"),
    "25 fps, 44100 Hz mono": ("mono", ["record", "--loop"], ""),
    "packets": ("encoded", ["mux"], ""),
    "packets, pause": ("encoded", ["mux"], ""),
    "packets, MP4 behind FLV": ("encoded", ["mux"], ".flv"),
}
# Other cameras, made from the real one.
CAMERAS = {
    "fast": ["-vf", "fps=60,scale=640:-2", "-ac", "2", "-c:a", "pcm_s16le"],
    "mono": ["-vf", "fps=25,scale=640:-2", "-ac", "1", "-ar", "44100", "-c:a", "pcm_s16le"],
    "encoded": ["-bf", "0", "-c:a", "aac"],
}
PAUSE_S = 0.7


SKIPPED = 77  # the exit status of a test that the machine does not allow


class Broken(Exception):
    """What must never happen after a crash."""


def run(*command):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, encoding="utf-8", errors="replace", timeout=120)


def restart_with_own_mounts():
    """Starts the script anew, with --alone, where what it mounts goes away with it."""
    if run("unshare", "--mount", "true").returncode != 0:
        sys.exit(SKIPPED)
    os.execvp("unshare", ["unshare", "--mount", sys.executable, "-B", *sys.argv, "--alone"])


def wait_until(condition, process):
    deadline = time.monotonic() + 60
    while not condition():
        if process.poll() is not None or time.monotonic() > deadline:
            raise Broken("the recorder did not start")
        time.sleep(0.005)


def read_index(path):
    """Streams by number, and the packets that whole records tell of, with absolute times. The last
    field is true behind packets that have no record."""
    streams, packets, last, position = {}, [], {}, 0
    with open(path, encoding="ascii") as file:
        for line in file.read().split("\n"):
            if line.startswith("{"):
                stream = json.loads(line)
                streams[stream["index"]] = stream
            elif line and not line.startswith("#"):
                for record in line.split(";")[:-1]:
                    fields = record.split(",")
                    number, start, size, pts, dts, _, key = (int(field or 0) for field in fields)
                    behind_hole = bool(packets) and start > position
                    position = start or position
                    kind = streams[number]["type"]
                    before = last.get(kind, (0, 0))
                    pts += before[0]
                    dts = dts + before[1] if fields[4] else pts
                    last[kind] = (pts, dts)
                    packets.append((number, position, size, pts, dts, key, behind_hole))
                    position += size
    return streams, packets


def record_and_kill(zeva, cameras, setup, instant, movie_file):
    """Returns the seconds of movie that the recorder had been fed when it was killed."""
    camera, how, main_output = SETUPS[setup]
    outputs = ["-o", movie_file]
    if main_output:
        outputs = ["-o", movie_file + main_output, "--also", movie_file]
    keyboard, terminal = pty.openpty()
    spawned = time.monotonic()
    process = subprocess.Popen(
        ["setsid", "--ctty", *zeva, *how, "--input", cameras[camera], *outputs, "--index",
         movie_file + ".index"],
        stdin=terminal, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.close(terminal)
    try:
        wait_until(lambda: os.path.exists(movie_file + ".index"), process)
        start = time.monotonic()
        if how[0] == "mux":  # packets are kept until the streams are known
            start = spawned
        if "pause" in setup:
            time.sleep(instant / 2)
            os.write(keyboard, b"p")
            time.sleep(PAUSE_S)
            os.write(keyboard, b"p")
            start += PAUSE_S
            time.sleep(instant / 2)
        else:
            time.sleep(instant)
        process.kill()
        return time.monotonic() - start
    finally:
        process.kill()
        process.wait()
        os.close(keyboard)


def packets_of(path):
    """What ffprobe finds: the streams' time bases, and each stream's packets in order."""
    done = run("ffprobe", "-v", "error", "-show_data_hash", "md5", "-show_entries",
               "stream=time_base:packet=stream_index,pts,dts,size,flags,data_hash", "-of", "json",
               path)
    if done.returncode != 0 or done.stderr:
        raise Broken(f"ffprobe: {done.stderr}")
    facts = json.loads(done.stdout)
    found = [[] for _ in facts["streams"]]
    for p in facts["packets"]:
        found[p["stream_index"]].append((p["pts"], p["dts"], int(p["size"]),
                                         p["data_hash"].split(":")[1], "K" in p["flags"]))
    return [fractions.Fraction(s["time_base"]) for s in facts["streams"]], found


def rescale(time_stamp, ratio):
    """To the nearest, halves away from zero."""
    exact = time_stamp * ratio
    return int(abs(exact) + fractions.Fraction(1, 2)) * (1 if exact >= 0 else -1)


def recoverable(streams, packets):
    """Without the pictures that build on those behind which records are missing."""
    pictures = {number for number, stream in streams.items() if stream["type"] == "video"}
    left, await_key = [], set()
    for packet in packets:
        number, key, behind_hole = packet[0], packet[5], packet[6]
        if behind_hole:
            await_key |= pictures
        if key:
            await_key.discard(number)
        if number not in await_key:
            left.append(packet)
    return left


def judge(zeva, movie_file):
    """Repairs; returns the packets that came back and the seconds they last."""
    streams, packets = read_index(movie_file + ".index")
    with open(movie_file, "rb") as file:
        data = file.read()
    beyond = [p for p in packets if p[1] + p[2] > len(data)]
    if beyond:
        raise Broken(f"{len(beyond)} records tell of bytes that are not in the movie")
    whole = recoverable(streams, packets)
    repaired = movie_file + ".repaired.mp4"
    done = run(*zeva, "repair", movie_file, movie_file + ".index", "-o", repaired, "--json")
    if done.returncode != (3 if whole else 1) and not (whole and done.returncode == 0):
        raise Broken(f"repair: status {done.returncode}, {done.stderr}")
    with open(movie_file, "rb") as file:
        if file.read() != data:
            raise Broken("the repair changed the broken movie")
    if not whole:
        return 0, 0.0
    bases, found = packets_of(repaired)
    seconds = 0
    # A track without a packet is left out of the movie.
    held = sorted({p[0] for p in whole})
    for track, number in enumerate(held):
        stream = streams[number]
        base = fractions.Fraction(stream["tb.num"], stream["tb.den"])
        ratio = base / bases[track]
        expected = [(rescale(pts, ratio), rescale(dts, ratio), size,
                     hashlib.md5(data[start:start + size]).hexdigest(), key != 0)
                    for n, start, size, pts, dts, key, _ in whole if n == number]
        early = found[track][0][0] - expected[0][0] if found[track] else 0
        # An MP4 tells a late beginning in milliseconds, and of nothing but priming only its order.
        if expected[-1][0] < 0 or (expected[0][0] > 0 and abs(early * bases[track]) < 0.001):
            expected = [(pts + early, dts + early, *rest) for pts, dts, *rest in expected]
        if found[track] != expected:
            different = sum(a != b for a, b in zip(found[track], expected))
            raise Broken(f"{stream['type']}: {len(expected)} packets expected, "
                         f"{len(found[track])} found, {different} of them different")
        seconds = max(seconds, float((expected[-1][0] - expected[0][0]) * bases[track]))
    done = run("ffmpeg", "-v", "error", "-i", repaired, "-f", "null", "-")
    if done.returncode != 0 or done.stderr:
        raise Broken(f"decoding: {done.stderr}")
    return len(whole), seconds


def one_kill(options, number, folder):
    setup = options.setups[number % len(options.setups)]
    instant = random.Random(f"{options.seed}/{number}").uniform(0, options.longest)
    movie_file = os.path.join(folder, f"{number}.mp4")
    facts = [setup, instant, 0, None, ""]
    try:
        fed = record_and_kill(options.zeva, options.cameras, setup, instant, movie_file)
        facts[2], seconds = judge(options.zeva, movie_file)
        facts[3] = max(0.0, fed - seconds)
    except (Broken, subprocess.TimeoutExpired, ValueError, KeyError) as error:
        facts[4] = f"kill {number} ({setup}, {instant:.3f} s): {error}"
    for name in os.listdir(folder) if not facts[4] else []:
        if name.startswith(f"{number}.mp4"):
            os.remove(os.path.join(folder, name))
    return facts


def report(results):
    print(f"| {'set-up':23} | kills | nothing yet | packets back | faults | lost ms mean | most |")
    print("|---|---|---|---|---|---|---|")
    for setup in dict.fromkeys(r[0] for r in results):
        mine = [r for r in results if r[0] == setup]
        lost = [1000 * r[3] for r in mine if r[3] is not None] or [0]
        print(f"| {setup:23} | {len(mine)} | {sum(r[2] == 0 and not r[4] for r in mine)} "
              f"| {sum(r[2] for r in mine)} | {sum(bool(r[4]) for r in mine)} "
              f"| {statistics.mean(lost):.0f} | {max(lost):.0f} |")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--zeva", required=True)
    parser.add_argument("--emulator", default="", help="what runs a program of another system")
    parser.add_argument("--movie", required=True, help="the camera's movie, recorded in a loop")
    parser.add_argument("--kills", type=int, default=len(SETUPS))
    parser.add_argument("--setup", default="", help="only set-ups whose name contains this")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--longest", type=float, default=6, help="seconds to the latest kill")
    parser.add_argument("--seed", default="1")
    options = parser.parse_args()
    options.zeva = [*options.emulator.split(), options.zeva]
    options.setups = [name for name in SETUPS if options.setup in name]
    folder = tempfile.mkdtemp(prefix="zeva-crash-")
    options.cameras = {"camera": options.movie}
    for name, how in CAMERAS.items():
        options.cameras[name] = os.path.join(folder, name + ".mov")
        done = run("ffmpeg", "-v", "error", "-i", options.movie, *how, "-c:v", "libx264", "-preset",
                   "ultrafast", options.cameras[name])
        if done.returncode != 0:
            sys.exit(done.stderr)
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        results = list(pool.map(lambda n: one_kill(options, n, folder), range(options.kills)))
    report(results)
    faults = [r[4] for r in results if r[4]]
    if faults:
        sys.exit("\n".join([*faults, f"the files are in {folder}"]))
    shutil.rmtree(folder)


if __name__ == "__main__":
    main()
