"""Standard streams, devices and machines that are not as they should be."""
import os
import subprocess
import unittest

from support import RUN_TIMEOUT_S, TOOL, Movie, ToolTest, native_only, run

PATTERN = ["--pattern", "--size", "64x64", "--fast", "--duration", "2"]


@native_only
class SurroundingsTest(ToolTest):
    def test_answer_that_cannot_be_written_is_a_failure(self):
        self.record(*PATTERN, "-o", "a.mp4", "--keep-index")
        for arguments in ["inspect a.mp4.index", "inspect a.mp4.index --json", "inspect absent --json",
                          "repair a.mp4 a.mp4.index -o b.mp4 -y", "recover", "recover --json",
                          "repair a.mp4 a.mp4.index -o b.mp4 -y --json", "--help", "record --help",
                          "--version"]:
            with self.subTest(arguments), open("/dev/full", "w") as full:
                done = subprocess.run([TOOL, *arguments.split()], stdout=full,
                                      stderr=subprocess.PIPE, text=True, timeout=RUN_TIMEOUT_S)
                self.assertEqual(done.returncode, 1)
                self.assertIn("could not be written", done.stderr)

    def test_output_into_a_pipe(self):
        os.mkfifo("named.ts")
        os.mkfifo("named.mkv")
        os.symlink("/dev/stdout", "out.ts")
        for command in "cat named.ts > got.ts &", "cat named.mkv > got.mkv &", "":
            name, got = (command.split()[1], command.split()[3]) if command else ("out.ts", "got2.ts")
            with self.subTest(name):
                script = f'{command} "$@"; status=$?; wait; exit $status'
                with open("got2.ts", "wb") as out:
                    done = subprocess.run(["sh", "-c", script, "sh", *self.command(
                        *PATTERN, "-o", name, "--also", "b.mkv", "-y")], stdout=subprocess.PIPE if
                        command else out, stderr=subprocess.PIPE, text=True, timeout=60)
                self.assertEqual(done.returncode, 0, done.stderr)
                self.assertIn("60 frames, 0 dropped, 2 outputs finished", done.stderr)
                self.assertEqual(Movie(got).frames, 60)

    def test_closed_standard_streams(self):
        for closed in [[0], [1], [2], [0, 1, 2]]:
            with self.subTest(closed):
                redirect = " ".join(f"{number}>&-" for number in closed)
                done = run(["sh", "-c", f'"$@" {redirect}', "sh",
                            *self.command(*PATTERN, "-y", "-o", "a.mp4")])
                self.assertEqual(done.returncode, 0, done.stdout)
                self.assertEqual(Movie("a.mp4").frames, 60)

    @unittest.skipIf(os.environ.get("ZEVA_SANITIZED"), "a sanitizer takes more addresses than that")
    def test_missing_memory_and_threads_are_told(self):
        # A user of its own, who may read what root may; root itself has no limit of threads.
        rights = "+dac_override,+dac_read_search"
        one_thread = ["setpriv", "--reuid=54321", "--clear-groups", f"--inh-caps={rights}",
                      f"--ambient-caps={rights}", "prlimit", "--nproc=1"]
        if run([*one_thread, "true"]).returncode != 0:
            self.skipTest("no right to become another user")
        raw = "--raw {0}x{0}@1 --fast -o a.mkv"
        for limit, source in [("prlimit --as=300000000".split(), raw.format(16384)),
                              ("prlimit --as=300000000".split(), raw.format(8192)),
                              ("prlimit --as=300000000".split(), raw.format(4096)),
                              (one_thread, raw.format(64)), (one_thread, "--pattern -o a.mp4")]:
            with self.subTest(source, limit=limit[0]), open("/dev/zero", "rb") as zeros:
                done = run([*limit, TOOL, "record", "-y", "--duration", "1", *source.split()], zeros)
                self.assertEqual(done.returncode, 1, done.stdout)
                self.assertRegex(done.stdout, r"^zeva: .*\w\w")
