"""What a crash leaves is brought back, nothing else is touched, and what is said of it is true."""
import fcntl
import os
import pathlib
import re
import signal

from support import (EMULATOR, TOOL, Movie, Session, ToolTest, judge, native_only, read_index,
                     run)

PATTERN = ["--pattern", "--size", "160x96", "--fast"]


def contents():
    return {path.name: path.read_bytes() for path in pathlib.Path().iterdir()}


def edit(name, change):
    path = pathlib.Path(name)
    path.write_bytes(change(path.read_bytes()))


def without_trailer(data):
    """As it was before the trailer: with the size of the media box unknown."""
    size_at = data.index(b"mdat") - 4
    return data[:size_at] + bytes(4) + data[size_at + 4:data.rindex(b"moov") - 4]


class RecoverTest(ToolTest):
    def make_broken(self, name="a.mp4", change=without_trailer):
        self.record(*PATTERN, "--duration", "4", "--keep-index", "-o", name)
        edit(name, change)

    def session(self, *command):
        session = Session(command)
        self.addCleanup(session.process.wait)
        self.addCleanup(session.process.kill)
        return session

    def assert_counted(self, answer, path, **expected):
        """The movie decodes without a complaint, and holds what the answer says."""
        movie = Movie(path)
        counts = [movie.frames, len(movie.packets("a"))]
        self.assertEqual([s["recovered_packets"] for s in answer["streams"]], counts)
        seconds = float(movie.video["duration"])
        self.assertAlmostEqual(answer["recovered_seconds"], seconds, delta=0.1)
        self.assertLessEqual(expected.items(), answer.items())

    def test_killed_recorder(self):
        session = self.session(*self.command(*PATTERN, "-o", "фильм.mp4"))
        session.wait_for(r"[1-9]\d\d\d frames")
        self.assertIn("is being recorded right now", self.zeva("recover")[0])
        session.process.send_signal(signal.SIGKILL)
        session.finish()
        left = contents()
        self.assertEqual(set(left), {"фильм.mp4", "фильм.mp4.index"})
        self.assertIn("can be recovered", self.zeva("recover", "--list", os.getcwd())[0])
        held = self.zeva_json("inspect", "фильм.mp4.index", "фильм.mp4")
        lost = held["movie"]["unrecorded_bytes"] > 0
        answer = self.zeva_json("recover", expect=3 if lost else 0)["movies"][0]["repair"]
        self.assert_counted(answer, "фильм.recovered.mp4", result="partly" if lost else "whole")
        self.assertEqual([s["held_packets"] for s in held["streams"]],
                         [s["recovered_packets"] for s in answer["streams"]])
        self.assertLess(left.items(), contents().items())
        left = contents()
        self.assertIn("recovered already", self.zeva("recover")[0])
        self.assertEqual(contents(), left)

    def test_what_is_lost_decides_the_exit_status(self):
        self.make_broken()
        tail = self.zeva_json("inspect", "a.mp4.index", "a.mp4")["movie"]["unrecorded_bytes"]
        for cut, status, result in [(0, 3, "partly"), (tail, 0, "whole"), (30000, 3, "partly")]:
            edit("a.mp4", lambda data, cut=cut: data[:len(data) - cut])
            answer = self.zeva_json("repair", "a.mp4", "a.mp4.index", "-o", "b.mp4", "--force",
                                    expect=status)
            self.assert_counted(answer, "b.mp4", result=result, exit_status=status,
                                unrecorded_bytes=0 if cut else tail)
            self.assertEqual(answer["missing_packets"] > 0, cut > tail)
        # A power failure may leave the size without the bytes.
        left = contents()["b.mp4"]
        edit("a.mp4", lambda data: data + bytes(30000))
        self.assertEqual(answer, self.zeva_json("repair", "a.mp4", "a.mp4.index", "-o", "b.mp4",
                                                "--force", expect=3))
        self.assertEqual(contents()["b.mp4"], left)
        edit("a.mp4", lambda data: data[:60])
        self.zeva("repair", "a.mp4", "a.mp4.index", "-o", "c.mp4", expect=1)
        self.assertFalse(os.path.exists("c.mp4"))

    def test_zeros_in_the_middle_are_lost_and_said_so(self):
        self.make_broken()
        whole = self.zeva_json("inspect", "a.mp4.index", "a.mp4")["packets"]
        edit("a.mp4", lambda data: data[:40960] + bytes(4096) + data[45056:])
        told = self.zeva_json("inspect", "a.mp4.index", "a.mp4", expect=3)
        movie = told["movie"]
        self.assertGreater(movie["lost_packets"], 0)
        self.assertEqual(movie["held_packets"] + movie["lost_packets"] + movie["dependent_packets"],
                         whole)
        self.assertNotIn("(100.0 %)", self.zeva("inspect", "a.mp4.index", "a.mp4", expect=3)[0])
        text = self.zeva("repair", "a.mp4", "a.mp4.index", "-o", "b.mp4", expect=3)[0]
        self.assertIn(f"lost: {movie['lost_packets']} packets lost: zeros stand in a.mp4", text)
        answer = self.zeva_json("recover", expect=3)["movies"][0]["repair"]
        self.assert_counted(answer, "a.recovered.mp4", result="partly")
        self.assertEqual([s["held_packets"] for s in told["streams"]],
                         [s["recovered_packets"] for s in answer["streams"]])
        self.assertEqual([s["lost_packets"] for s in told["streams"]],
                         [s["lost_packets"] for s in answer["streams"]])

    def test_nothing_is_overwritten(self):
        self.make_broken()
        os.link("a.mp4", "linked.mp4")
        self.zeva("repair", "a.mp4", "a.mp4.index", "-o", "whole.mp4", expect=3)
        left = contents()
        for output, status in [("linked.mp4 --force", 2), ("./a.mp4.index --force", 2),
                               ("b.unheard", 2), ("whole.mp4", 1), ("absent/b.mp4", 1)]:
            said = self.zeva(*f"repair a.mp4 a.mp4.index -o {output}".split(), expect=status)[1]
            self.assertIn(output.split()[0], said)
        self.assertEqual(contents(), left)
        # A recovery that was cut short is neither taken for a whole one nor overwritten.
        pathlib.Path("a.recovered.mp4").write_bytes(left["a.mp4"][:9000])
        left = contents() | {"a.recovered-2.mp4": left["whole.mp4"]}
        self.zeva("recover", expect=1)  # linked.mp4 has no index
        self.assertEqual(contents(), left)

    def test_which_movies_have_no_trailer(self):
        # The size of the media box: none yet, a 64-bit one, one beyond the end.
        for i, size in enumerate([bytes(4), b"\0\0\0\1", b"\xff\xff\xff\xff"]):
            self.make_broken(f"{i}.mp4")
            edit(f"{i}.mp4", lambda d, size=size: d.replace(bytes(4) + b"mdat", size + b"mdat", 1))
        self.make_broken("3.MP4", lambda data: data[:-100])  # half a trailer
        self.make_broken("finished.mp4", lambda data: data)
        states = [(movie["movie"], movie["state"])
                  for movie in self.zeva_json("recover", "--list")["movies"]]
        names = ["0.mp4", "1.mp4", "2.mp4", "3.MP4"]
        self.assertEqual(states, [(name, "recoverable") for name in names])

    def test_what_is_wrong_is_named(self):
        self.make_broken()
        index = contents()["a.mp4.index"]
        for text, status, words in [
                (index.replace(b"version=2", b"version=9"), 1, "version 9"),
                (index.replace(b"{", b"<"), 1, "line 2"), (b"", 1, "empty"),
                (re.sub(rb"^((?:.*\n){4}.*?;)1,,", rb"\g<1>7,,", index), 3, "line 5 of a.mp4")]:
            edit("a.mp4.index", lambda _, text=text: text)
            for command in ["inspect a.mp4.index", "repair a.mp4 a.mp4.index -o b.mp4 --force"]:
                self.assertIn(words, "".join(self.zeva(*command.split(), expect=status)))
        for arguments in ["inspect absent", "inspect .", "recover absent", "recover a.mp4"]:
            name = arguments.split()[1]
            self.assertIn(f"zeva: {name} ", self.zeva(*arguments.split(), expect=1)[1])

    def test_interrupt_leaves_a_shorter_movie(self):
        self.make_broken()
        lines = contents()["a.mp4.index"].split(b"\n")
        # A movie of gigabytes: the same picture again and again.
        records = [b",48,1000000,,,512,1;"] + [b",48,1000000,512,,512,;"] * 3999
        lines[3:] = [b"".join(records[i:i + 40]) for i in range(0, len(records), 40)]
        edit("a.mp4.index", lambda _: b"\n".join(lines))
        unit = (1000000 - 4).to_bytes(4, "big") + b"\x65" * (1000000 - 4)
        edit("a.mp4", lambda data: data[:48] + unit)
        session = self.session(*EMULATOR, TOOL, "repair", "a.mp4", "a.mp4.index", "-o", "b.mp4")
        session.wait_for(r"\d %")
        session.press(b"\x03")
        status, text = session.finish()
        self.assertEqual(status, 3, text)
        counted = int(re.search(r"stopped before the end.*?(\d+) of 4000", text, re.S).group(1))
        sizes = judge(*"ffprobe -v error -show_entries packet=size -of csv=p=0 b.mp4".split())
        self.assertEqual(len(re.findall(r"^1000000$", sizes, re.M)), counted)
        self.assertLess(counted, 4000)


class SearchTest(ToolTest):
    """Which files of a folder are taken for unfinished recordings."""

    def make_broken(self, name="a.mp4", *arguments):
        self.record(*PATTERN, "--duration", "2", "--keep-index", "-o", name, *arguments)
        edit(name, without_trailer)

    def test_kin_of_mp4(self):
        """The recordings of today's library under each name, since the names are what counts here."""
        self.make_broken("a.mp4")
        movie, index = contents()["a.mp4"], contents()["a.mp4.index"]
        outputs = {"a.mp4": "a.recovered.mp4"}
        for name in ["b.mov", "c.M4V", "d.3gp", "no-ending", "unheard.ending"]:
            pathlib.Path(name).write_bytes(movie)
            pathlib.Path(name + ".index").write_bytes(index)
            stem, ending = os.path.splitext(name)
            known = len(ending) == 4
            outputs[name] = f"{stem}.recovered{ending}" if known else f"{name}.recovered.mp4"
        pathlib.Path("e.mkv").write_bytes(movie)  # by its name not ours
        pathlib.Path("notes").write_bytes(b"of no kind")
        pathlib.Path("notes.index").write_bytes(b"nor this")
        pathlib.Path("alone").write_bytes(movie)  # looks like one of ours
        found = {m["movie"]: m.get("output") for m in self.zeva_json("recover", expect=1)["movies"]}
        self.assertEqual(found, outputs | {"alone": None})
        for output in outputs.values():
            self.assertEqual(Movie(output).frames, 60)
        pathlib.Path("alone").unlink()
        self.assertEqual({m["state"] for m in self.zeva_json("recover")["movies"]},
                         {"recovered already"})

    def test_default_index_of_every_kin(self):
        for name in ["a.mp4", "b.mov", "c.m4a", "no-ending"]:
            with self.subTest(name):
                self.record(*PATTERN, "--duration", "1", "--keep-index", "-o", name)
                self.assertIn(name + ".index", os.listdir("."))

    def test_first_of_several_has_the_index(self):
        self.record(*PATTERN, "--duration", "2", "--keep-index", "-o", "a.mkv", "--also", "b.mp4",
                    "--also", "c.mp4")
        self.assertEqual([n for n in os.listdir(".") if n.endswith("index")], ["b.mp4.index"])
        lines = judge(*"ffprobe -v error -show_entries packet=size,pos -of csv=p=0 b.mp4".split())
        held = {tuple(line.split(",")[:2]) for line in lines.split()}
        told = [(str(size), str(position))
                for position, _, size, *_ in read_index("b.mp4.index")[1]]
        self.assertGreaterEqual(len(told), len(held) - 2)
        self.assertLessEqual(set(told), held)

    @native_only
    def test_movie_that_may_not_be_read_is_named(self):
        self.make_broken()
        os.chmod("a.mp4", 0)
        rights = "-dac_override,-dac_read_search"
        for arguments in ["recover"], ["recover", "--list"], ["recover", "--json"]:
            command = [TOOL, *arguments]
            if os.getuid() == 0:
                command = ["setpriv", f"--inh-caps={rights}", f"--bounding-set={rights}", *command]
            done = run(command)
            self.assertEqual(done.returncode, 1, done.stdout)
            self.assertRegex(done.stdout, "a.mp4 cannot be opened")

    def test_sound_alone_is_called_sound(self):
        self.make_broken()
        first = read_index("a.mp4.index")[1][0]
        self.assertEqual(first[1], 1, "sound comes first")
        edit("a.mp4", lambda data: data[:first[0] + first[2]])
        text = self.zeva("repair", "a.mp4", "a.mp4.index", "-o", "b.mp4", expect=3)[0]
        self.assertRegex(text, r"video h264.*: 0 of 60 packets")
        self.assertRegex(text, r"audio aac.*: 1 of \d+ packets")
        streams = self.zeva_json("recover", expect=3)["movies"][0]["repair"]["streams"]
        self.assertEqual([(s["type"], s["recovered_packets"]) for s in streams],
                         [("video", 0), ("audio", 1)])

    @native_only
    def test_locked_index_is_a_sign_of_life(self):
        self.make_broken()
        with open("a.mp4.index", "rb") as index:
            fcntl.flock(index, fcntl.LOCK_EX)
            for name in "a.mp4", "a.mp4.index":  # as if it stood still for long
                os.utime(name, (1, 1))
            left = contents()
            self.assertIn("is being recorded right now", self.zeva("recover")[0])
            self.assertEqual(contents(), left)
        self.zeva("recover", expect=3)

    @native_only
    def test_paused_recording_is_alive_until_it_is_killed(self):
        session = self.start("--pattern", "--size", "64x64", "-o", "a.mp4")
        session.wait_for(r"[1-9]\.\d  \d+ frames")
        session.press(b"p")
        session.wait_for("paused")
        for name in "a.mp4", "a.mp4.index":  # as if it stood still for long
            os.utime(name, (1, 1))
        self.assertIn("is being recorded right now", self.zeva("recover")[0])
        session.process.kill()
        session.finish()
        self.assertIn("can be recovered", self.zeva("recover", "--list")[0])
