# SPDX-License-Identifier: ISC
import json
import math
import os
import unittest

import numpy as np
from signals import RATE, InFolder, noise, quillhost

import quillworks as qw


class Sounds(InFolder):
    def test_measure_says_what_the_command_line_says_of_files_and_arrays(self):
        sound = noise(2, 4 * RATE)
        qw.write(self.path("in.wav"), sound, RATE)
        theirs = json.loads(quillhost("measure", self.path("in.wav"), "--json"))[0]
        names = {"integrated": "integrated", "momentaryMax": "momentary_max",
                 "shortTermMax": "short_term_max", "range": "range", "truePeak": "true_peak",
                 "samplePeak": "sample_peak", "rms": "rms", "frames": "frames"}
        for ours in (qw.measure(self.path("in.wav")), qw.measure(sound, RATE)):
            for key, name in names.items():
                value = getattr(ours, name)
                self.assertEqual(list(value) if isinstance(value, tuple) else value, theirs[key], key)
        self.assertTrue(math.isnan(qw.measure(np.zeros(100), RATE).integrated))
        self.assertNotEqual(qw.measure(noise(6), RATE, layout="5.1").integrated,
                            qw.measure(noise(6), RATE).integrated)

    def test_files_come_back_as_they_were(self):
        whole = np.round(noise(3) * 2**23) / np.float32(2**23)
        for name, format in (("a.wav", "float32"), ("a.flac", None), ("a.aiff", "pcm24")):
            qw.write(self.path(name), whole, RATE, format=format)
            back, rate = qw.read(self.path(name))
            np.testing.assert_array_equal(back, whole, name)
            self.assertEqual(rate, RATE)
        converted, rate = qw.read(self.path("a.wav"), 24000)
        self.assertEqual((converted.shape, rate), ((3, RATE // 2), 24000))

    def test_files_that_cannot_be_leave_what_is_there(self):
        with open(self.path("junk.wav"), "wb") as junk:
            junk.write(b"RIFF" + bytes(99))
        for error, words, work in (
            (OSError, "nothing.wav", lambda: qw.read(self.path("nothing.wav"))),
            (OSError, "nothing.wav", lambda: qw.measure(self.path("nothing.wav"))),
            (qw.Error, "junk.wav", lambda: qw.read(self.path("junk.wav"))),
            (qw.Error, "cannot be written", lambda: qw.write("/nowhere/a.wav", noise(), RATE)),
            (ValueError, "do not hold", lambda: qw.write(self.path("a.flac"), noise(16), RATE)),
            (ValueError, "not finite", lambda: qw.write(self.path("a.wav"), noise() / 0, RATE)),
            (ValueError, "format is one of", lambda: qw.write(self.path("a.wav"), noise(), RATE,
                                                              format="mp3")),
            (qw.Error, "allow_missing", lambda: qw.Effect("vaulter", irfile=self.path("ir.wav"))
                .process(noise(), RATE)),
        ):
            with np.errstate(all="ignore"), self.assertRaisesRegex(error, words):
                work()
        self.assertEqual(os.listdir(self.folder), ["junk.wav"])
        with self.assertRaisesRegex(UserWarning, "clipped"):
            qw.write(self.path("loud.wav"), noise() * 99, RATE, format="pcm16")


if __name__ == "__main__":
    unittest.main()
