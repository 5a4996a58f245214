# SPDX-License-Identifier: ISC
"""Sound files and loudness."""

from __future__ import annotations

import dataclasses
import os
from typing import Any, Union

import numpy as np
from numpy.typing import DTypeLike, NDArray

from . import _native

Array = NDArray[np.floating[Any]]
Path = Union[str, "os.PathLike[str]"]

FORMATS = ("pcm16", "pcm24", "pcm32", "float32", "float64")
DITHERS = ("tpdf", "shaped", "none")


def path_of(path: Path) -> str:
    """The path of a file that is to be there, as text; OSError where it is not."""
    text = os.fspath(path)
    os.stat(text)
    return text


def is_double(dtype: DTypeLike) -> bool:
    kind = np.dtype(dtype)
    if kind not in (np.float32, np.float64):
        raise TypeError(f"sound is float32 or float64, not {kind}")
    return kind == np.float64


def whole(rate: float) -> int:
    if int(rate) != rate:
        raise ValueError(f"a file's sampling rate is a whole number, not {rate}")
    return int(rate)


def word(what: str, name: str, words: tuple[str, ...]) -> int:
    if name not in words:
        raise ValueError(f"{what} is one of {', '.join(words)}, not {name!r}")
    return words.index(name)


@dataclasses.dataclass(frozen=True)
class Loudness:
    """What `quillhost measure` reports, by EBU Tech 3341 and 3342 and ITU-R BS.1770.

    A figure with nothing to report (silence, a sound shorter than the window) is not-a-number.
    """

    integrated: float  #: LUFS
    momentary_max: float  #: LUFS, 0.4 s
    short_term_max: float  #: LUFS, 3 s
    range: float  #: LU
    range_low: float  #: LUFS
    range_high: float  #: LUFS
    true_peak: float  #: dBTP
    sample_peak: tuple[float, ...]  #: dBFS by channel
    rms: tuple[float, ...]  #: dB by channel
    frames: int
    sample_rate: int  #: Hz
    channels: int


def measure(
    sound: Array | Path, rate: float | None = None, *, layout: str | None = None
) -> Loudness:
    """Loudness and peaks of an array at `rate`, or of a file, which is read in constant memory.

    `layout` ("5.1", ...) says where the channels of an array stand, which gives them their weights;
    a file says so itself. ValueError, or OSError and Error for files that cannot be read.
    """
    if isinstance(sound, (str, os.PathLike)):
        if rate is not None or layout is not None:
            raise TypeError("a file has a rate and a layout of its own")
        return Loudness(**_native.measure_file(path_of(sound)))
    if rate is None:
        raise TypeError("the sampling rate of an array is needed: measure(array, rate)")
    return Loudness(**_native.measure_array(np.asarray(sound), whole(rate), layout or ""))


def read(
    path: Path, rate: int | None = None, *, dtype: DTypeLike = "float32"
) -> tuple[Array, int]:
    """The whole of a sound file as (array, rate): channels by frames, Hz.

    Any kind that libsndfile decodes. With `rate` it is converted by the SoX resampler at its highest
    quality, without latency. OSError or Error where it cannot be read.
    """
    return _native.read(path_of(path), whole(rate or 0), is_double(dtype))


def write(
    path: Path,
    sound: Array,
    rate: float,
    *,
    format: str | None = None,
    dither: str = "tpdf",
    layout: str | None = None,
) -> None:
    """Writes a sound file, of the kind that its ending names (wav, flac, aiff, ogg, ...).

    The file appears when it is complete; one that was there stays until then, and an interrupted
    process leaves nothing. `format` is pcm16, pcm24, pcm32, float32 or float64 (float32 where the
    kind holds it, else pcm24), `dither` tpdf, shaped or none, `layout` as of `measure`.
    """
    asked = -1 if format is None else word("format", format, FORMATS)
    _native.write(
        os.fspath(path),
        np.asarray(sound),
        whole(rate),
        asked,
        word("dither", dither, DITHERS),
        layout or "",
    )
