#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""Variants of a recording for training a model, the same ones for the same seed:
vary_recordings.py IN FOLDER [COUNT]"""

import random
import sys
from pathlib import Path

import quillworks as qw

recording, folder = sys.argv[1], Path(sys.argv[2])
count = int(sys.argv[3]) if len(sys.argv) > 3 else 4

sound, rate = qw.read(recording)
chain = qw.Chain(["room-reverb", "bitcrusher:bits=12", "channel-strip"])
plain = [effect.save_state() for effect in chain]
chance = random.Random(1)

folder.mkdir(parents=True, exist_ok=True)
for number in range(count):
    for effect, state in zip(chain, plain):
        effect.load_state(state)
        for row in effect.info["parameters"]:
            # One knob in four moves, within the middle of its range.
            if row["kind"] != "float" or row["readOnly"] or chance.random() > 0.25:
                continue
            effect[row["key"]] = row["min"] + (row["max"] - row["min"]) * chance.uniform(0.3, 0.7)
    name = folder / f"{Path(recording).stem}-{number}.wav"
    qw.write(name, chain.process(sound, rate, tail=0.5), rate, format="pcm16")
    print(name)
