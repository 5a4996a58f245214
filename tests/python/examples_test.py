# SPDX-License-Identifier: ISC
import importlib.util
import os
import pathlib
import subprocess
import sys
import unittest

from signals import RATE, InFolder, noise

import quillworks as qw

EXAMPLES = pathlib.Path(os.environ["EXAMPLES"])


class Examples(InFolder):
    def run_example(self, name, *arguments):
        return subprocess.run([sys.executable, EXAMPLES / name, *map(str, arguments)], check=True,
                              cwd=self.folder, stdout=subprocess.PIPE, text=True).stdout

    def test_each_does_what_it_says(self):
        qw.write(self.path("in.wav"), noise(2, 3 * RATE), RATE)
        self.run_example("master_a_song.py", "in.wav", "song.wav", -9)
        self.assertAlmostEqual(qw.measure(self.path("song.wav")).integrated, -9, delta=0.5)
        self.assertEqual(self.run_example("compare_settings.py", "in.wav").count("dB"), 9)
        self.run_example("play_blocks.py", "in.wav", "blocks.wav")
        self.assertEqual(qw.read(self.path("blocks.wav"))[0].shape, (2, 3 * RATE))
        self.run_example("duck_music.py", "in.wav", "in.wav", "ducked.wav")
        self.assertLess(qw.measure(self.path("ducked.wav")).integrated,
                        qw.measure(self.path("in.wav")).integrated - 3)
        self.run_example("vary_recordings.py", "in.wav", "varied", 2)
        first = (pathlib.Path(self.folder) / "varied/in-0.wav").read_bytes()
        self.run_example("vary_recordings.py", "in.wav", "again", 1)
        self.assertEqual((pathlib.Path(self.folder) / "again/in-0.wav").read_bytes(), first)


@unittest.skipUnless(importlib.util.find_spec("distributed"), "needs python3-distributed")
class Cluster(InFolder):
    def test_a_worker_that_is_killed_costs_no_file_and_leaves_no_half_one(self):
        files = [f"{number}/{number}.wav" for number in range(9)]
        for seed, name in enumerate(files):
            path = pathlib.Path(self.folder, "in", name)
            path.parent.mkdir(parents=True)
            qw.write(path, noise(2, 8 * RATE, seed=seed), RATE)
        pathlib.Path(self.folder, "in", "bad.wav").write_bytes(b"no sound")
        command = [sys.executable, "-u", EXAMPLES / "normalise_on_a_cluster.py", "in", "out"]
        program = subprocess.Popen([*command, "--local", "2"], cwd=self.folder, text=True,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        lines = [program.stdout.readline()]
        # Each worker is a child of the program that a nanny brings back; one dies at its work.
        os.kill(self.worker_of(program.pid), 9)
        lines += program.communicate(timeout=200)[0].splitlines()
        self.assertEqual(lines[-1], "9 done, 1 failed")
        self.assertEqual(program.returncode, 1)
        told = sorted(line.split(":")[0] for line in lines[:-1] if "LUFS" in line)
        self.assertEqual(told, sorted(str(pathlib.Path(self.folder, "in", name)) for name in files))
        left = [str(path.relative_to(pathlib.Path(self.folder, "out")))
                for path in pathlib.Path(self.folder, "out").rglob("*") if path.is_file()]
        self.assertEqual(sorted(left), sorted(files))
        for name in files:
            self.assertAlmostEqual(qw.measure(self.path("out/" + name)).integrated, -16, delta=0.3)

    def worker_of(self, pid):
        """The child of the program that has used most of the processor."""
        used = {}
        for entry in pathlib.Path("/proc").glob("[0-9]*/stat"):
            try:
                fields = entry.read_text().rpartition(")")[2].split()
            except OSError:
                continue
            if int(fields[1]) == pid:
                used[int(entry.parent.name)] = int(fields[11])
        return max(used, key=used.get)


if __name__ == "__main__":
    unittest.main()
