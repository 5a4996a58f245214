#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""Music that makes room for a voice, by a side-chain: duck_music.py MUSIC VOICE OUT"""

import sys

import quillworks as qw

music, rate = qw.read(sys.argv[1])
voice, _ = qw.read(sys.argv[2], rate)  # at the rate of the music

duck = qw.Effect("compressor", threshold="-40 dB", ratio=4, attack=5, release=300)
ducked = duck.process(music, rate, side_chain=voice)

qw.write(sys.argv[3], ducked, rate)
before, after = qw.measure(music, rate), qw.measure(ducked, rate)
print(f"{sys.argv[3]}: {before.integrated:.1f} to {after.integrated:.1f} LUFS")
