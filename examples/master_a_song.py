#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""A song through a chain into a file, at a loudness: master_a_song.py IN OUT [LUFS]"""

import sys

import quillworks as qw

song, out = sys.argv[1:3]
target = float(sys.argv[3]) if len(sys.argv) > 3 else -14.0

sound, rate = qw.read(song, dtype="float64")
chain = qw.Chain("channel-strip,compressor:threshold=-24,ratio=2,limiter:ceiling=-1,highqual=1")
strip, compressor, limiter = chain
compressor.load_preset("Mix Bus Gentle")

# What the limiter takes away is made up for in a second pass.
for _ in range(2):
    mastered = chain.process(sound, rate)
    missing = target - qw.measure(mastered, rate).integrated
    limiter.ingain = min(18.0, max(0.0, limiter.ingain + missing))
mastered = chain.process(sound, rate)

qw.write(out, mastered, rate, format="pcm24")
after = qw.measure(out)
print(f"{out}: {after.integrated:.1f} LUFS, {after.true_peak:.1f} dBTP, input {limiter.ingain_text}")
