#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""A filter turned by hand while blocks go by, as in a live programme: play_blocks.py IN OUT"""

import sys

import numpy as np

import quillworks as qw

BLOCK = 256

sound, rate = qw.read(sys.argv[1])
fx = qw.Effect("autofilter")
with fx.stream(rate, sound.shape[0], block=BLOCK) as stream:
    played = []
    for at in range(0, sound.shape[1], BLOCK):
        fx.cutoff = 200 * 40 ** (at / sound.shape[1])  # Hz, up by five octaves
        played.append(stream.process(sound[:, at : at + BLOCK]))
    # What is still on its way comes out with silence.
    late = stream.latency
    played.append(stream.process(np.zeros((sound.shape[0], late), sound.dtype)))
qw.write(sys.argv[2], np.concatenate(played, axis=1)[:, late:], rate)
print(f"{sys.argv[2]}: {len(played)} blocks, cutoff at the end {fx.cutoff_text}")
