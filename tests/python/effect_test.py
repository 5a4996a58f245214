# SPDX-License-Identifier: ISC
import json
import pickle
import subprocess
import sys
import threading
import unittest

import numpy as np
from signals import RATE, InFolder, noise, quillhost

import quillworks as qw


class Parameters(unittest.TestCase):
    def test_every_key_of_every_effect_can_be_reached_and_set_to_what_it_is(self):
        for name in qw.effects():
            fx = qw.Effect(name)
            taken = set(dir(qw.Effect)) & set(fx.keys())
            self.assertFalse(taken - {"latency"}, "methods hide parameters")
            for row in fx.info["parameters"]:
                value = getattr(fx, row["key"])
                if row["kind"] in ("float", "list", "toggle") and not row["readOnly"]:
                    setattr(fx, row["key"], value)
                    self.assertEqual(fx[row["key"]], value, (name, row["key"]))

    def test_numbers_and_texts_are_read_as_the_command_line_reads_them(self):
        fx = qw.Effect("Compressor:threshold=-18,ratio=4", knee=6)
        self.assertEqual((fx.threshold, fx.ratio, fx.knee), (-18, 4, 6))
        for value in (-20.1, "-20.1 dB", np.float32(-20.1)):
            fx.threshold = value
            self.assertEqual((fx.threshold, fx.threshold_text), (-20.1, "-20.1 dB"))
        limiter = qw.Effect("limiter")
        for value, text in ((0, "Fast"), ("slow", "Slow"), (np.int64(1), "Medium")):
            limiter.attack = value
            self.assertEqual(limiter.attack, text)
        limiter.highqual = "on"
        self.assertIs(limiter.highqual, True)

    def test_what_is_wrong_is_said_and_changes_nothing(self):
        fx = qw.Effect("compressor", threshold=-18)

        def refused(error, words, work, *arguments):
            with self.assertRaisesRegex(error, words):
                work(*arguments)

        for value in (99, "99", float("nan"), float("inf"), "loud"):
            refused(ValueError, "-48 to 0 dB", setattr, fx, "threshold", value)
        for value in (None, [1], {}, 1j):
            refused(TypeError, "number or a text", setattr, fx, "threshold", value)
        refused(AttributeError, "nearest: threshold", setattr, fx, "treshold", 1)
        refused(AttributeError, "nearest", getattr, fx, "treshold_text")
        refused(AttributeError, "measured", setattr, fx, "reduction", 1)
        refused(AttributeError, "cannot be set", setattr, fx, "process", 1)
        refused(KeyError, "nearest", fx.__getitem__, "treshold")
        refused(ValueError, "nearest: Compressor", qw.Effect, "kompressor")
        refused(TypeError, "no parameter", lambda: qw.Effect("gate", foo=1))
        refused(ValueError, "0 to 2: Fast", qw.Chain, "gate,limiter:attack=7")
        refused(ValueError, "twice", qw.Chain, [fx, fx])
        refused(ValueError, "does not take this state", fx.load_state, b"\0junk" * 99)
        refused(ValueError, "Vocal Even", fx.load_preset, "Nothing of this name")
        self.assertEqual(fx.threshold, -18)

    def test_states_presets_and_pickles_carry_the_settings(self):
        fx = qw.Effect("compressor")
        fx.load_preset("vocal even")
        self.assertEqual(fx.preset, "Vocal Even")
        fx.ratio = 7
        for other in (qw.Effect("compressor"), pickle.loads(pickle.dumps(fx))):
            other.load_state(fx.save_state())
            self.assertEqual(dict(other), dict(fx))

    def test_info_is_what_the_command_line_says(self):
        for name in ("vaulter", "limiter"):
            self.assertEqual(qw.info(name), json.loads(quillhost("info", name, "--json")))


class Processing(InFolder):
    def test_arrays_give_the_bits_of_files(self):
        cases = (
            (2, "float32", "compressor:threshold=-30,ratio=4,limiter:highqual=1", {}, []),
            (6, "float64", "surround-delay:mix=40", {"layout": "5.1", "tail": 0.5}, ["--tail", 0.5]),
            (1, "float32", "room-reverb", {"tail": "auto", "block": 100}, ["--tail", "auto"]),
            (2, "float32", "beat-delay", {"tempo": 97.0, "keep_latency": True}, ["--tempo", 97]),
        )
        for channels, dtype, spec, options, words in cases:
            sound = noise(channels, RATE + 1, dtype)
            qw.write(self.path("in.wav"), sound, RATE, format=dtype, layout=options.get("layout"))
            chain = qw.Chain(spec)
            effects = [word for part in spec.split(",limiter") for word in ("--fx", part)]
            if len(chain) == 2:
                effects[3] = "limiter" + effects[3]
            precision = "64" if dtype == "float64" else "32"
            quillhost("render", self.path("in.wav"), self.path("out.wav"), *effects, *words,
                      "--precision", precision, "--block", options.get("block", 512))
            ours = chain.process(sound[0] if channels == 1 else sound, RATE, **options)
            files, _ = qw.read(self.path("out.wav"), dtype=dtype)
            self.assertEqual((ours.dtype, ours.ndim), (sound.dtype, 1 if channels == 1 else 2))
            np.testing.assert_array_equal(np.atleast_2d(ours), files, spec)

    def test_a_stream_of_any_blocks_gives_the_whole_and_settings_act_at_once(self):
        sound = noise()
        fx = qw.Effect("limiter", ingain=12, highqual=True)
        whole = fx.process(sound, RATE, keep_latency=True)
        with fx.stream(RATE, 2) as stream:
            self.assertGreater(stream.latency, 0)
            for _ in range(2):
                cuts = [0, 0, 1, 33, 1000, 40000, RATE]
                parts = [stream.process(sound[:, a:b]) for a, b in zip(cuts, cuts[1:])]
                np.testing.assert_array_equal(np.concatenate(parts, axis=1), whole)
                stream.reset()
        gain = qw.Effect("mixtool")
        with gain.stream(RATE, 1) as stream:
            one = stream.process(np.ones(4800, "f4"))
            gain.gain = -6
            after = stream.process(np.ones(4800, "f4"))
        self.assertAlmostEqual(20 * np.log10(after[-1] / one[-1]), -6, 3)

    def test_strides_do_not_matter_and_the_input_stays(self):
        sound = noise()
        fx = qw.Effect("compressor", threshold=-30)
        whole = fx.process(sound, RATE)
        unaligned = np.frombuffer(b"x" + sound.tobytes(), "f4", offset=1).reshape(sound.shape)
        for same in (np.asfortranarray(sound), np.ascontiguousarray(sound.T).T,
                     np.repeat(sound, 2, axis=1)[:, ::2], sound[::-1, ::-1][::-1, ::-1], unaligned):
            kept = same.copy()
            np.testing.assert_array_equal(fx.process(same, RATE), whole)
            np.testing.assert_array_equal(same, kept)

    def test_a_side_chain_ducks_and_meters_show_it(self):
        fx = qw.Effect("compressor", threshold=-40, ratio=8)
        sound, key = noise(2) * np.float32(0.01), noise(1)
        ducked = fx.process(sound, RATE, side_chain=key)
        self.assertLess(np.abs(ducked).sum(), 0.7 * np.abs(fx.process(sound, RATE)).sum())
        self.assertLess(min(v for k, v in fx.meters.items() if "reduction" in k), 0.1)
        with self.assertRaisesRegex(UserWarning, "side-chain"):
            qw.Effect("mixtool").process(sound, RATE, side_chain=key)

    def test_what_is_no_sound_is_refused_and_the_effect_goes_on(self):
        fx = qw.Effect("analog-delay")
        poisoned = noise()
        poisoned[1, 30000] = np.inf
        for sound, rate, error, words in (
            (noise(2).T, RATE, ValueError, "array.T"),
            (noise(17), RATE, ValueError, "1 to 16"),
            (np.zeros((0, 5), "f4"), RATE, ValueError, "0 channels"),
            (np.zeros((1, 2, 5), "f4"), RATE, ValueError, "dimensions"),
            (np.float32(1), RATE, ValueError, "dimensions"),
            (np.zeros(5, "i2"), RATE, TypeError, "float32 or float64"),
            (np.zeros(5, ">f4"), RATE, TypeError, "float32 or float64"),
            (np.array(["a"]), RATE, TypeError, "float32 or float64"),
            (poisoned, RATE, ValueError, "channel 1 at frame 30000"),
            (noise(), 0, ValueError, "sampling rate"),
            (noise(), float("nan"), ValueError, "sampling rate"),
        ):
            with self.assertRaisesRegex(error, words):
                fx.process(sound, rate)
        for tail in (-1, float("inf"), "long"):
            with self.assertRaisesRegex(ValueError, "tail"):
                fx.process(noise(), RATE, tail=tail)
        self.assertEqual(fx.process(np.zeros((2, 0), "f4"), RATE).shape, (2, 0))
        self.assertTrue(np.isfinite(fx.process(noise(), RATE)).all())


class Threads(unittest.TestCase):
    def test_others_go_on_while_an_effect_plays_and_a_second_player_is_refused(self):
        sound = noise(2, 60 * RATE)
        fx, errors, ends = qw.Effect("room-reverb"), [], []

        def play(effect):
            try:
                effect.process(sound, RATE)
                ends.append(effect)
            except RuntimeError as error:
                errors.append(str(error))

        threads = [threading.Thread(target=play, args=(e,)) for e in (fx, fx, qw.Effect("gate"))]
        for thread in threads:
            thread.start()
        ticks = 0
        while any(thread.is_alive() for thread in threads):
            fx.bypass = ticks % 2
            ticks += 1
        self.assertEqual((len(ends), len(errors)), (2, 1))
        self.assertIn("Room Reverb is in use", errors[0])
        self.assertGreater(ticks, 1000, "the interpreter stood still")

    def test_streams_hold_their_effects_and_survive_their_names(self):
        fx = qw.Effect("gate")
        stream = fx.stream(RATE, 1)
        with self.assertRaisesRegex(RuntimeError, "in use"):
            fx.process(noise(), RATE)
        stream.close()
        with self.assertRaisesRegex(ValueError, "closed"):
            stream.process(noise(1))
        stream = fx.stream(RATE, 1)
        del fx
        self.assertEqual(stream.process(noise(1)).shape, (1, RATE))
        with self.assertRaisesRegex(ValueError, "channels"):
            stream.process(noise(2))
        with self.assertRaisesRegex(TypeError, "float32"):
            stream.process(noise(1, dtype="float64"))

    def test_a_fork_takes_effects_along_even_those_that_load_files(self):
        # In a process of its own, so that the child ends as processes do.
        program = """
import os, sys
import numpy as np, quillworks as qw
fx, sound = qw.Effect("vaulter", mix=70), np.ones((2, 9600), "f4")
before = fx.process(sound, 48000)
stream = fx.stream(48000, 2)
child = os.fork()
if child:
    assert os.waitpid(child, 0)[1] == 0
    stream.process(sound)
else:
    assert np.array_equal(fx.process(sound, 48000), before)
    try:
        stream.process(sound)
        sys.exit(2)
    except RuntimeError as error:
        assert "another process" in str(error)
"""
        subprocess.run([sys.executable, "-c", program], check=True, timeout=60)


if __name__ == "__main__":
    unittest.main()
