# SPDX-License-Identifier: ISC
"""What the tests play, and the program they are held against."""

import os
import subprocess
import tempfile
import unittest
import warnings

import numpy as np

RATE = 48000


def noise(channels=2, frames=RATE, dtype="float32", seed=1):
    """A programme of changing level, no frame like another."""
    samples = np.random.default_rng(seed).standard_normal((channels, frames))
    return (samples * 0.2 * np.abs(np.sin(np.arange(frames) / 4000))).astype(dtype)


def quillhost(*arguments):
    return subprocess.run(
        [os.environ["QUILLHOST"], *map(str, arguments)], check=True, capture_output=True, text=True
    ).stdout


class InFolder(unittest.TestCase):
    """Each test has an empty folder, and a warning that it does not expect fails it."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        caught = warnings.catch_warnings()
        caught.__enter__()
        self.addCleanup(caught.__exit__, None, None, None)
        warnings.simplefilter("error")

    def path(self, name):
        return os.path.join(self.folder, name)
