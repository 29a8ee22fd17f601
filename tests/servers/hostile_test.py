"""Nothing on the network can hurt the recording, and the stream comes back."""
import os
import time
from types import SimpleNamespace

from hostile_proxy import HostileProxy
from live import (BACK, DROPPING, GIVEN_UP, IS_LIVE, LIVE, RECONNECTING, SECOND_BYTES, WAITING, LiveHost, key_first,
                  make_packets, policy, whole_movie)
from servers import RtmpServer, RtspServer, wait_until
from support import EMULATOR, Movie, ToolTest

# A sanitized encoder does not keep up with real speed. A sanitizer has threads of its own, and is to be loaded first.
SANITIZED = bool(os.environ.get("ZEVA_SANITIZED"))
MEDIA = ["packets"] if SANITIZED else ["frames", "packets"]
STOP_MS = 2000  # promised; bounds are asserted three times as wide
MARGIN = 3
KEEP_MS = 1000
HOSTILE_S = 6


class HostileTest(ToolTest):
    """Recordings run side by side, as real speed takes its time."""

    def setUp(self):
        super().setUp()
        make_packets("packets.ts")
        self.count = 0

    def server(self, kind=RtmpServer):
        self.count += 1
        server = kind(f"{kind.scheme}{self.count}")
        self.addCleanup(server.kill)
        return server

    def proxy(self, server):
        proxy = HostileProxy(server.port)
        self.addCleanup(proxy.close)
        return proxy, server.url.replace(str(server.port), str(proxy.port))

    def record(self, media, url=None, how=LIVE, keep_ms=KEEP_MS, environment=()):
        """A file, and beside it a stream. Frames have one codec for all outputs, and RTSP only as the first."""
        self.count += 1
        first = media == "frames" and url is not None and url.startswith("rtsp:")
        file = f"file{self.count}" + (".mkv" if first else ".mp4")
        outputs = [file] + ([policy(url, keep_ms, how)] if url else [])
        host = LiveHost(media, outputs[::-1] if first else outputs, environment)
        self.addCleanup(host.kill)
        host.begin()
        return SimpleNamespace(host=host, media=media, url=url, file=file, output=0 if first else 1)

    def behind_proxy(self, media, kind, hostility):
        """A server of its own, too; what is going to be hostile about them is the test's."""
        server = self.server(kind).start()
        proxy, url = self.proxy(server)
        recording = self.record(media, url)
        recording.server, recording.proxy, recording.hostility = server, proxy, hostility
        return recording

    def wait_for_data(self, recordings):
        for recording in recordings:
            wait_until(lambda: recording.server.has_data(20000), f"data of {recording.host}")

    def stop(self, recordings):
        """Of all at once. Files are whole, nothing waited, and nothing is left."""
        for recording in recordings:
            recording.host.ask_to_stop()
        for recording in recordings:
            with self.subTest(str(recording.host), told=recording.host.statuses()):
                recording.end = recording.host.stopped()
                self.assertEqual(recording.end["refused"], 0)
                whole_movie(recording.file, recording.end["pictures"])
                self.assertLess(recording.end["stop_ms"], MARGIN * STOP_MS)

    def assert_nothing_left(self, recordings):
        for recording in [] if SANITIZED else recordings:
            with self.subTest(str(recording.host)):
                wait_until(lambda: recording.host.usage()[1] <= recording.host.at_rest[1], "the last thread's end")
                self.assertLessEqual(recording.host.usage()[2], recording.host.at_rest[2])

    def assert_stream_decodes(self, movie):
        self.assertTrue(key_first(movie), movie.packets()[:3])
        self.assertGreater(movie.sounds, 0)


class SlowServerTest(HostileTest):
    def test_a_slow_server_costs_the_recording_nothing(self):
        """Not its host's time, not its file, not its memory, not its stop."""
        quiet = {media: self.record(media) for media in MEDIA}
        slow = [self.behind_proxy(media, kind, share) for media in MEDIA
                for kind, share in ((RtmpServer, 0.5), (RtmpServer, 0.3), (RtmpServer, 0.1), (RtmpServer, 0),
                                    (RtspServer, 0.1))]
        self.wait_for_data(slow)
        for recording in slow:
            recording.proxy.forward(recording.hostility * SECOND_BYTES)
        grown = self.growth([*quiet.values(), *slow], HOSTILE_S)
        self.stop([*quiet.values(), *slow])
        for recording in slow:
            with self.subTest(str(recording.host), share=recording.hostility, told=recording.host.statuses()):
                mine = quiet[recording.media]
                self.assertLess(recording.end["p99_ms"], MARGIN * (mine.end["p99_ms"] + 1) + 10)
                more = grown[recording.file] - grown[mine.file]
                if not SANITIZED:  # which has a copy of all memory
                    self.assertLess(more, MARGIN * (3 * SECOND_BYTES / 1024 + 8 * 1024))
                recording.proxy.close()
                self.assert_stream_decodes(recording.server.finished())
                self.assert_dropped(recording)
        self.assert_nothing_left([*quiet.values(), *slow])

    def growth(self, recordings, seconds):
        before = {recording.file: recording.host.usage()[0] for recording in recordings}
        time.sleep(seconds)
        return {recording.file: recording.host.usage()[0] - before[recording.file] for recording in recordings}

    def assert_dropped(self, recording):
        host, output = recording.host, recording.output
        self.assertEqual(host.codes(IS_LIVE, DROPPING)[:2], [IS_LIVE, DROPPING])
        # Once for each change of state, which is rare: not once for each picture.
        self.assertLess(len(host.statuses()), 10 + 2 * HOSTILE_S)
        self.assertLess(host.most(output, "queued_bytes"), MARGIN * KEEP_MS / 1000 * SECOND_BYTES)
        state = host.state(output)
        self.assertGreater(state["pictures_dropped"], 0)
        self.assertEqual(host.state(1 - output)["packets_dropped"], 0)

    def test_a_stream_goes_on_when_its_server_does(self):
        held = [self.behind_proxy(media, kind, "stalled") for media in MEDIA for kind in (RtmpServer, RtspServer)]
        self.wait_for_data(held)
        for recording in held:
            recording.proxy.stall()
        for recording in held:
            recording.host.wait_for(DROPPING)
        for recording in held:
            recording.proxy.forward()
        for recording in held:
            recording.host.wait_for(IS_LIVE, 2)
        self.stop(held)
        for recording in held:
            with self.subTest(str(recording.host)):
                self.assert_stream_decodes(recording.server.finished())
                self.assertEqual(recording.host.codes(RECONNECTING, GIVEN_UP), [])


class LostServerTest(HostileTest):
    ROUNDS = 3

    def test_a_stream_comes_back(self):
        """From servers that die, and over connections that break."""
        ways = [(RtmpServer, "killed"), (RtspServer, "killed"), (RtmpServer, "reset"), (RtmpServer, "unplugged")]
        lost = [self.behind_proxy(media, kind, way) for media in MEDIA for kind, way in ways]
        for number in range(self.ROUNDS):
            self.wait_for_data(lost)
            time.sleep(1.2)  # reports are a second apart: what is over by then is not told
            for recording in lost:
                self.lose(recording)
            for recording in lost:
                recording.host.wait_for(RECONNECTING, number + 1)
                self.mend(recording)
            # The longest wait between two tries is promised.
            start = time.monotonic()
            for recording in lost:
                recording.host.wait_for(BACK, number + 1)
            self.assertLess(time.monotonic() - start, MARGIN * 2)
        for recording in lost:
            wait_until(lambda: recording.host.state(recording.output)["reconnects"] == self.ROUNDS, "the last count")
        self.stop(lost)
        for recording in lost:
            with self.subTest(str(recording.host), how=recording.hostility, told=recording.host.statuses()):
                self.assertEqual(recording.host.codes(IS_LIVE, RECONNECTING, BACK, GIVEN_UP),
                                 [IS_LIVE, *[RECONNECTING, BACK] * self.ROUNDS])
                self.assert_stream_decodes(recording.server.finished())
        self.assert_nothing_left(lost)

    def lose(self, recording):
        if recording.hostility == "killed":
            recording.server.kill()
            movie = recording.server.folder / recording.server.recording
            movie.rename(movie.with_suffix(".old"))
        elif recording.hostility == "unplugged":
            recording.proxy.refuse()
        else:
            recording.proxy.reset()

    def mend(self, recording):
        if recording.hostility == "killed":
            recording.server.start()
        recording.proxy.listen()


class AbsentServerTest(HostileTest):
    def test_a_recording_does_not_need_its_server(self):
        late = {media: self.server() for media in MEDIA}
        present = self.server().start()
        mute, mute_url = self.proxy(present)
        mute.mute()
        urls = {"refused": present.url.replace("/live/", "/dead/"), "mute": mute_url,
                "unresolved": "rtmp://nowhere.invalid/live/movie"}
        environment = {}
        if not EMULATOR and not SANITIZED:
            urls["look-up"] = "rtmp://never.invalid/live/movie"
            environment["LD_PRELOAD"] = os.environ["ZEVA_MUTE_RESOLVER"]
        recordings, waiting = [], []
        for media in MEDIA:
            waiting.append(self.record(media, late[media].url))
            recordings += [self.record(media, url, environment=environment) for url in urls.values()]
        for recording in [*recordings, *waiting]:
            self.assertLess(recording.host.started()["started_ms"], MARGIN * 1000)
            recording.host.wait_for(0)
            recording.host.wait_for(WAITING)
        time.sleep(2)
        for recording in waiting:
            late[recording.media].start()
            start = time.monotonic()
            recording.host.wait_for(IS_LIVE)
            self.assertLess(time.monotonic() - start, MARGIN * 2)
            wait_until(late[recording.media].has_data, "data")
        self.stop([*recordings, *waiting])
        for recording in recordings:
            with self.subTest(str(recording.host), told=recording.host.statuses()):
                # Given up by the stop.
                self.assertEqual([code for code in recording.host.codes() if code], [WAITING, GIVEN_UP])
                self.assertTrue(all(recording.url in text for _, code, text in recording.host.statuses() if code))
        for recording in waiting:
            self.assert_stream_decodes(late[recording.media].finished())
            self.assertEqual(recording.host.codes(IS_LIVE, RECONNECTING, BACK, GIVEN_UP), [IS_LIVE])
        self.assert_nothing_left([*recordings, *waiting])

    def test_a_server_that_stays_away_is_given_up_when_asked_to(self):
        gone, present = self.server(), self.server().start()
        never, soon = "optional,drop", "optional,drop,reconnect:100:200:1000"
        recordings = [(self.record(media, url, how), url, how) for media in MEDIA for how in (never, soon)
                      for url in (gone.url, present.url.replace("/live/", "/dead/"))]
        for recording, _, _ in recordings:
            recording.host.wait_for(GIVEN_UP)
        self.stop([recording for recording, _, _ in recordings])
        for recording, url, how in recordings:
            with self.subTest(str(recording.host), told=recording.host.statuses()):
                self.assertEqual(recording.host.codes(IS_LIVE, RECONNECTING, BACK), [])
                at, _, text = next(told for told in recording.host.statuses() if told[1] == GIVEN_UP)
                self.assertIn(url, text)
                if how == soon:
                    self.assertGreater(at, 0.5)
