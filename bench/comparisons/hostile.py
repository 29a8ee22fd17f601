"""Recordings beside a stream whose network or server is bad: what the file loses, and what the stream.

Ours is a host of both interfaces with a file and a stream that it can do without. The peers copy the same
packets at real speed into a file and a stream: ffmpeg's tee with a fifo that drops and reconnects, and
GStreamer's tee with a queue that leaks.
"""
import os
import random
import shutil
import signal
import statistics
import subprocess
import sys
import time
from concurrent import futures

from . import bench as b

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SHARES = (0.5, 0.3, 0.1, 0)
MEDIA = ("frames", "packets")
FPS = 25
P99_AIM_MS, STOP_AIM_MS, BACK_AIM_S, BACK_MEDIAN_AIM_S = 1, 2000, 2, 0.6
KEEP_S, GROWTH_AIM_KIB = 3, 8 * 1024


class Kit:
    """The servers and the host of the tests, in the bench's folder."""

    def __init__(self, bench):
        os.environ.update(ZEVA_TOOL=bench.zeva, ZEVA_LIVE_HOST=bench.program("live_host"))
        for folder in "tests/servers", "tests/tools":
            sys.path.append(os.path.join(ROOT, folder))
        import hostile_proxy  # pylint: disable=import-outside-toplevel
        import live  # pylint: disable=import-outside-toplevel
        import servers  # pylint: disable=import-outside-toplevel
        self.live, self.servers, self.proxy = live, servers, hostile_proxy.HostileProxy
        self.count = 0
        os.chdir(bench.folder)
        live.make_packets("packets.ts")
        b.call("ffmpeg", "-v", "error", "-stream_loop", "29", "-i", "packets.ts", "-c", "copy", "packets.mp4")

    def name(self, ending=""):
        self.count += 1
        return f"{self.count}{ending}"

    def server(self):
        return self.servers.RtmpServer(self.name()).start()

    def record(self, media, url=None):
        file = self.name(".mp4")
        host = self.live.LiveHost(media, [file] + ([self.live.policy(url, 1000 * KEEP_S)] if url else []))
        host.begin()
        return host, file


def stop(hosts):
    for host, _ in hosts:
        host.ask_to_stop()
    return [host.stopped() for host, _ in hosts]


def side_by_side(measure, kit, rounds):
    """What it gives for each interface."""
    with futures.ThreadPoolExecutor() as pool:
        return list(zip(MEDIA, pool.map(lambda media: measure(kit, media, rounds), MEDIA)))


def lost_in(file, given):
    return given - b.pictures_of(file, "packets")


def decode_faults(path):
    done = subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-enc_time_base", "-1", "-f", "null", "-"],
                          stdin=subprocess.DEVNULL, capture_output=True, text=True, errors="replace", check=False)
    return len(done.stderr.splitlines())


# ---- ours

def slow_round(kit, seconds):
    """One of each interface alone, and one with a stream for each share of it that the server takes; all side
    by side. By interface and share: p99 beyond that of the one alone, and so on."""
    alone = {media: kit.record(media) for media in MEDIA}
    slow = {}
    for media in MEDIA:
        for share in SHARES:
            server = kit.server()
            proxy = kit.proxy(server.port)
            url = server.url.replace(str(server.port), str(proxy.port))
            slow[media, share] = (server, proxy, kit.record(media, url))
    for server, _, _ in slow.values():
        kit.servers.wait_until(lambda: server.has_data(20000), "data")
    hosts = [*alone.values(), *(record for _, _, record in slow.values())]
    before = [host.usage()[0] for host, _ in hosts]
    for (_, share), (_, proxy, _) in slow.items():
        proxy.forward(share * kit.live.SECOND_BYTES)
    time.sleep(seconds)
    grown = [host.usage()[0] - least for (host, _), least in zip(hosts, before)]
    ends = stop(hosts)
    quiet = {media: (end["p99_ms"], growth) for media, end, growth in zip(MEDIA, ends, grown)}
    figures = {}
    for (key, (server, proxy, (host, file))), end, growth in zip(slow.items(), ends[len(MEDIA):], grown[len(MEDIA):]):
        proxy.close()
        arrived = str(server.finished().path)
        figures[key] = {"p99": end["p99_ms"] - quiet[key[0]][0], "lost": lost_in(file, end["pictures"]),
                        "growth": growth - quiet[key[0]][1], "stop": end["stop_ms"], "faults": decode_faults(arrived),
                        "arrived": b.pictures_of(arrived, "packets") / end["pictures"]}
        server.kill()
        os.remove(file)
        shutil.rmtree(server.folder)
    for host, _ in hosts:
        host.kill()
    return figures


def slow(bench, kit):
    rounds, seconds = bench.choose(20, 1), bench.choose(60, 8)
    found = [slow_round(kit, seconds) for _ in range(rounds)]
    rows, worst, medians = [], {"stop": 0, "lost": 0, "growth": 0}, []
    for key in found[0]:
        mine = {fact: [figures[key][fact] for figures in found] for fact in found[0][key]}
        for fact, most in worst.items():
            worst[fact] = max(most, max(mine[fact]))
        medians.append(statistics.median(mine["p99"]))
        rows.append([f"{key[0]}, {100 * key[1]:.0f} %",
                     f"{medians[-1]:.2f} / {max(mine['p99']):.2f}",
                     sum(mine["lost"]), f"{max(mine['growth']) / 1024:.1f}", f"{max(mine['stop']):.0f}",
                     f"{100 * statistics.mean(mine['arrived']):.0f} %", sum(mine["faults"])])
    head = [f"server takes, {rounds} x {seconds} s", "p99 call beyond that without a stream, median / most, ms",
            "pictures lost in the file", "memory, MiB more", "stop, most, ms", "pictures that arrived",
            "faults in decoding these"]
    most = (KEEP_S * kit.live.SECOND_BYTES / 1024 + GROWTH_AIM_KIB) / 1024
    return b.table(head, rows) + "\n" + (
        b.aim("median p99 beyond that without a stream, ms", max(medians), P99_AIM_MS) +
        b.aim("pictures lost in the file", worst["lost"], 0) + b.aim("memory, MiB", worst["growth"] / 1024, most) +
        b.aim("longest stop, ms", worst["stop"], STOP_AIM_MS))


def one_restart(kit, server, host, chance):
    """Seconds from when the server listens until it has the stream."""
    kit.servers.wait_until(server.has_data, f"data from {host}")
    time.sleep(chance.uniform(0, 3))
    server.kill()
    movie = server.folder / server.recording
    movie.unlink()
    time.sleep(chance.uniform(0, 3))
    server.start()
    start = time.monotonic()
    kit.servers.wait_until(movie.exists, f"return of {host}")
    return time.monotonic() - start


def restarted_medium(kit, media, rounds):
    """The memory beyond that of a recording without a stream, whose table of the movie grows, too."""
    chance = random.Random(media)
    server = kit.server()
    host, file = kit.record(media, server.url)
    alone, other_file = kit.record(media)
    kit.servers.wait_until(server.has_data, "data")
    before, before_alone = host.usage(), alone.usage()
    back = [one_restart(kit, server, host, chance) for _ in range(rounds)]
    more_kib = host.usage()[0] - before[0] - (alone.usage()[0] - before_alone[0])
    end = stop([(host, file), (alone, other_file)])[0]
    left = [now - then for now, then in zip(host.usage(), host.at_rest)]
    lost = lost_in(file, end["pictures"])
    host.kill()
    alone.kill()
    server.kill()
    return lost, back, left, more_kib


def restarted(bench, kit):
    rounds, rows, worst = bench.choose(100, 3), [], [0, 0, 0]
    for media, (lost, back, left, more_kib) in side_by_side(restarted_medium, kit, rounds):
        rows.append([f"{media}, {rounds} times", lost, f"{statistics.median(back):.2f} / {max(back):.2f}",
                     f"{left[2]} / {left[1]}", f"{more_kib / 1024:.2f}"])
        worst = [max(worst[0], lost), max(worst[1], max(back)), max(worst[2], statistics.median(back))]
    head = ["server killed and started again at random", "pictures lost in the file",
            "has the stream after it listens, median / most, s", "descriptors / threads left",
            "memory, MiB more than without a stream"]
    return b.table(head, rows) + "\n" + (
        b.aim("pictures lost in the file", worst[0], 0) + b.aim("longest return, s", worst[1], BACK_AIM_S) +
        b.aim("median return, s", worst[2], BACK_MEDIAN_AIM_S))


def started_medium(kit, media, rounds):
    server = kit.server()
    host, _ = kit.record(media, server.url)
    for number in range(rounds):
        host.started()
        if number % 5 == 0:
            server.kill() if number % 10 == 0 else server.start()
        if number == rounds // 10:
            before = host.usage()
        host.ask_to_stop()
        host.stopped()
        host.said.clear()
        if number < rounds - 1:
            host.begin()
    more = [now - then for now, then in zip(host.usage(), before)]
    left = [now - then for now, then in zip(host.usage(), host.at_rest)]
    host.kill()
    server.kill()
    return left, more


def started_and_stopped(bench, kit):
    """In one process, each to a file and a stream whose server comes and goes."""
    rounds = bench.choose(1000, 20)
    rows = [[f"{media}, {rounds} times", f"{left[2]} / {left[1]}", f"{more[0] / 1024:.2f}"]
            for media, (left, more) in side_by_side(started_medium, kit, rounds)]
    return b.table(["started and stopped", "descriptors / threads left",
                    "memory since the first tenth, MiB more"], rows)


def day(bench, kit):
    """Of movie, as fast as it goes, to a file without a table and a stream whose server comes and goes."""
    hours, chance = bench.choose(24, 1), random.Random(24)
    kit.live.make_packets("fast.ts", "64x48", 16)
    server, file = kit.server(), kit.name(".ts")
    proxy = kit.proxy(server.port)
    url = server.url.replace(str(server.port), str(proxy.port))
    host = kit.live.LiveHost("fast", [file, kit.live.policy(url, 1000 * KEEP_S)])
    host.begin()
    host.started()
    before, passed_h = None, 0
    while passed_h < hours:
        time.sleep(chance.uniform(0, 1))
        proxy.refuse()
        time.sleep(chance.uniform(0, 0.5))
        proxy.listen()
        passed_h = host.state(0)["written_us"] / 3.6e9
        if before is None and passed_h > hours / 10:
            before = host.usage()
    reconnects = host.state(1)["reconnects"]
    more = [now - then for now, then in zip(host.usage(), before)]
    end = stop([(host, file)])[0]
    left = [now - then for now, then in zip(host.usage(), host.at_rest)]
    row = [f"{passed_h:.0f}", lost_in(file, end["pictures"]), reconnects, f"{left[2]} / {left[1]}",
           f"{more[0] / 1024:.2f}", f"{end['stop_ms']:.0f}"]
    host.kill()
    proxy.close()
    server.kill()
    return b.table(["hours of movie", "pictures lost in the file", "connections that came back",
                    "descriptors / threads left", "memory since the first tenth, MiB more", "stop, ms"], [row])


# ---- beside the peers

def peers(file, url):
    fifo = ("drop_pkts_on_overflow=1:attempt_recovery=1:recover_any_error=1:recovery_wait_time=0.25:"
            f"max_recovery_attempts=0:restart_with_keyframe=1:queue_size={KEEP_S * (FPS + 47)}").replace(":", "\\\\:")
    tee = f"[f=mp4]{file}|[f=flv:use_fifo=1:onfail=ignore:fifo_options={fifo}]{url}"
    leaky = f"queue leaky=downstream max-size-buffers=0 max-size-bytes=0 max-size-time={KEEP_S * 10 ** 9}"
    both = (f"mp4mux name=m ! filesink location={file} flvmux name=f streamable=true ! rtmp2sink location={url} "
            "filesrc location=packets.mp4 ! qtdemux name=d "
            "d.video_0 ! queue ! h264parse ! identity sync=true ! tee name=v "
            "d.audio_0 ! queue ! aacparse ! identity sync=true ! tee name=a "
            f"v. ! queue ! m. v. ! {leaky} ! f. a. ! queue ! m. a. ! {leaky} ! f.")
    return {"ffmpeg": ["ffmpeg", "-v", "error", "-nostdin", "-y", "-re", "-i", "packets.mp4",
                       "-map", "0", "-c", "copy", "-flags", "+global_header", "-f", "tee", tee],
            "GStreamer": ["gst-launch-1.0", "-q", "-e", *both.split()]}


class Peer:
    """A recorder of another make. It has no answers; its file tells."""

    def __init__(self, kit, name, file, url):
        self.process = subprocess.Popen(peers(file, url)[name], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        kit.servers.wait_until(lambda: os.path.exists(file), f"{name}'s start")
        self.start = time.monotonic()

    def end(self):
        """Pictures that it was given, and the seconds of its stop."""
        given = int(FPS * (time.monotonic() - self.start))
        asked = time.monotonic()
        self.process.send_signal(signal.SIGINT)
        try:
            self.process.wait(60)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        return given, time.monotonic() - asked


class Ours:
    def __init__(self, kit, file, url):
        self.host = kit.live.LiveHost("packets", [file, kit.live.policy(url, 1000 * KEEP_S)])
        self.host.begin()

    def end(self):
        self.host.ask_to_stop()
        end = self.host.stopped()
        self.host.kill()
        return end["pictures"], end["stop_ms"] / 1000


def pulled(server, proxy, seconds):
    """Three times, for a while."""
    for _ in range(3):
        time.sleep(seconds / 9)
        proxy.refuse()
        time.sleep(seconds / 9)
        proxy.listen()
    time.sleep(seconds / 3)


def late(server, proxy, seconds):
    time.sleep(seconds / 3)
    proxy.listen()
    time.sleep(seconds * 2 / 3)


def throttled(share):
    def throttle(server, proxy, seconds):
        time.sleep(2)
        proxy.forward(share)
        time.sleep(seconds)
    return throttle


def beside_peers(bench, kit):
    seconds, rows = bench.choose(30, 9), []
    cases = [("a good network", throttled(None)), ("takes 30 %", throttled(0.3 * kit.live.SECOND_BYTES)),
             ("takes nothing", throttled(0)), ("pulled three times", pulled), ("there after a third", late)]
    for case, happen in cases:
        for name in "ZEVALib", "ffmpeg", "GStreamer":
            server, file = kit.server(), kit.name(".mp4")
            proxy = kit.proxy(server.port)
            if happen is late:
                proxy.refuse()
            url = server.url.replace(str(server.port), str(proxy.port))
            recorder = Ours(kit, file, url) if name == "ZEVALib" else Peer(kit, name, file, url)
            happen(server, proxy, seconds)
            latest = server.folder / server.recording
            is_live = latest.exists() and time.time() - latest.stat().st_mtime < 1.5
            given, stop_s = recorder.end()
            proxy.close()
            server.kill()
            kept = b.pictures_of(file, "packets") if os.path.exists(file) else 0
            rows.append([case, name, f"{kept} of {given}", "yes" if is_live else "no", f"{stop_s:.1f}"])
    head = [f"the server, {seconds} s", "recorder", "pictures in the file that plays", "stream goes on at the end",
            "stop, s"]
    return b.table(head, rows)


def compare(bench):
    kit = Kit(bench)
    return {"hostile_slow": slow(bench, kit), "hostile_restarts": restarted(bench, kit),
            "hostile_starts": started_and_stopped(bench, kit),
            "hostile_day": day(bench, kit), "hostile_peers": beside_peers(bench, kit)}
