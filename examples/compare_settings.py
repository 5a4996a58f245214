#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""What many settings of a compressor do to a sound, on all cores: compare_settings.py IN"""

import sys
from concurrent.futures import ThreadPoolExecutor
from itertools import product

import quillworks as qw

sound, rate = qw.read(sys.argv[1])


def figures(settings: tuple[float, float]) -> str:
    threshold, ratio = settings
    # Each thread has an effect of its own; while it plays the others go on.
    fx = qw.Effect("compressor", threshold=threshold, ratio=ratio, adaptive=False)
    after = qw.measure(fx.process(sound, rate), rate)
    return f"{fx.threshold_text:>8} {fx.ratio_text:>10} {after.integrated:8.1f} {after.range:6.1f}"


print("threshold      ratio     LUFS     LU")
with ThreadPoolExecutor() as threads:
    for line in threads.map(figures, product((-40, -30, -20), (2, 4, 8))):
        print(line)
