# SPDX-License-Identifier: ISC
"""31 audio effects on NumPy arrays, the same bits as quillhost renders.

    import quillworks as qw

    sound, rate = qw.read("voice.wav")
    chain = qw.Chain("compressor:threshold=-30,ratio=4,limiter:ceiling=-1")
    qw.write("loud.wav", chain.process(sound, rate), rate)
    print(qw.measure("loud.wav").integrated)

A sound is an array of channels by frames, or of the frames of one channel; float32 is processed in
32 bits, float64 in 64. Full scale is at 1. Rates are 8000 to 384000 Hz, channels 1 to 16.

While an effect plays, other threads of Python go on: threads with effects of their own use all cores.
An effect plays in one place at a time; a second one gets a RuntimeError. Its parameters may be set
from anywhere meanwhile. Effects can be pickled, and survive a fork.

What is wrong with an argument is a ValueError or TypeError, a name that does not exist an
AttributeError, KeyError or, of an effect, ValueError, each with what would be right. Work that cannot
be done (a file that is damaged) is an Error. Remarks are warnings.
"""

from ._effect import Chain, Effect, Stream, effects, info
from ._native import Error
from ._sound import Loudness, measure, read, write

__all__ = [
    "Chain",
    "Effect",
    "Error",
    "Loudness",
    "Stream",
    "effects",
    "info",
    "measure",
    "read",
    "write",
]
