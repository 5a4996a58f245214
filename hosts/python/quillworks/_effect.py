# SPDX-License-Identifier: ISC
"""Effects, alone and in series."""

from __future__ import annotations

import json
import os
from collections.abc import Iterable, Iterator
from types import TracebackType
from typing import Any, Literal, Union

import numpy as np
from numpy.typing import DTypeLike

from . import _native
from ._sound import Array, Path, is_double, path_of

Value = Union[bool, int, float, str]

_LONGEST_TAIL = 24 * 3600.0  # seconds


def effects() -> list[str]:
    """The names of all effects. Case, blanks and hyphens do not count where one is named."""
    return _native.effects()


def info(name: str) -> dict[str, Any]:
    """What an effect offers: its parameters, meters, presets' texts, displays, latency (samples at
    48 kHz) and tail (seconds), as `quillhost info --json` says it."""
    return json.loads(_native.info(name))  # type: ignore[no-any-return]


class _Processor:
    """What one effect and several in series have in common."""

    __slots__ = ()

    def _natives(self) -> list[_native.Effect]:
        raise NotImplementedError

    def _player(self, rate: float, channels: int, double: bool, **setup: Any) -> _native.Player:
        return _native.Player(
            self._natives(),
            rate=rate,
            channels=channels,
            is_double=double,
            layout=setup.get("layout") or "",
            output_layout=setup.get("output_layout") or "",
            side_chain_channels=setup.get("side_chain_channels", 0),
            block=setup.get("block", 512),
            tempo=setup.get("tempo", 120.0),
            position=setup.get("position", 0.0),
            playing=setup.get("playing", True),
            allow_missing=setup.get("allow_missing", False),
        )

    def process(
        self,
        sound: Array,
        rate: float,
        *,
        side_chain: Array | None = None,
        tail: float | Literal["auto"] = 0,
        keep_latency: bool = False,
        layout: str | None = None,
        output_layout: str | None = None,
        block: int = 512,
        tempo: float = 120.0,
        position: float = 0.0,
        playing: bool = True,
        allow_missing: bool = False,
    ) -> Array:
        """A whole sound, from a cleared effect, as `quillhost render` makes it of a file.

        sound: channels by frames, or the frames of one channel; float32 or float64, in which it is
            processed and comes back, at `rate` Hz. It stays as it is.
        side_chain: a sound of the same rate for the effects that listen to one; padded with silence.
        tail: seconds of silence behind the sound, or "auto": as long as the effects go on, at most
            60 s.
        keep_latency: else the effects' delay is taken out, so that output and input line up.
        layout, output_layout: "mono", "stereo", "5.1", "7.1.4", ... Without them the number of
            channels says it, and the output has what the effects make of the input.
        block: longest block of frames that the effects see.
        tempo, position, playing: of the song, in quarter notes per minute and quarter notes.
        allow_missing: though a file that an effect names cannot be had.
        """
        array = np.asarray(sound)
        side = None if side_chain is None else np.asarray(side_chain)
        player = self._player(
            rate,
            _native.channels_of(array),
            is_double(array.dtype),
            layout=layout,
            output_layout=output_layout,
            side_chain_channels=0 if side is None else _native.channels_of(side),
            block=block,
            tempo=tempo,
            position=position,
            playing=playing,
            allow_missing=allow_missing,
        )
        try:
            return player.render(array, side, _tail_frames(tail, rate), keep_latency)
        finally:
            player.close()

    def stream(
        self,
        rate: float,
        channels: int = 2,
        *,
        dtype: DTypeLike = "float32",
        side_chain_channels: int = 0,
        layout: str | None = None,
        output_layout: str | None = None,
        block: int = 512,
        tempo: float = 120.0,
        position: float = 0.0,
        playing: bool = True,
        allow_missing: bool = False,
    ) -> Stream:
        """Prepares to play block by block: `with fx.stream(48000, 2) as s: y = s.process(x)`.

        The effects belong to the stream until it is closed. For the rest see `process`.
        """
        return Stream(
            self._player(
                rate,
                channels,
                is_double(dtype),
                side_chain_channels=side_chain_channels,
                layout=layout,
                output_layout=output_layout,
                block=block,
                tempo=tempo,
                position=position,
                playing=playing,
                allow_missing=allow_missing,
            )
        )

    def latency_samples(self, rate: float = 48000, channels: int = 2) -> int:
        """The delay that `process` takes out, with the present parameters."""
        with self.stream(rate, channels, allow_missing=True) as stream:
            return stream.latency

    def tail_seconds(self, rate: float = 48000, channels: int = 2) -> float:
        """How long `process` goes on with tail="auto"; 60 where it never ends."""
        with self.stream(rate, channels, allow_missing=True) as stream:
            return stream.tail / rate


class Stream:
    """Effects that play block by block. Made by `stream`."""

    __slots__ = ("_player",)

    def __init__(self, player: _native.Player) -> None:
        self._player = player

    @property
    def latency(self) -> int:
        """Samples that the output is late."""
        return self._player.latency

    @property
    def tail(self) -> int:
        """Samples that the output goes on beyond input and latency, at most 60 s."""
        return self._player.tail

    @property
    def channels(self) -> int:
        """Of the output."""
        return self._player.channels

    def process(
        self, block: Array, *, side_chain: Array | None = None, reset: bool = False
    ) -> Array:
        """The next block, of any length, with the latency left in. Parameters that have been set
        since the last one act from its first frame on. `reset` starts anew."""
        if reset:
            self.reset()
        side = None if side_chain is None else np.asarray(side_chain)
        return self._player.play(np.asarray(block), side)

    def reset(self) -> None:
        """Clears the effects; the song starts again."""
        self._player.restart()

    def close(self) -> None:
        """Lets the effects go. A stream that is closed plays no more."""
        self._player.close()

    def __enter__(self) -> Stream:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.close()


class Effect(_Processor):
    """An effect by its name, a SPEC of quillhost ("compressor:threshold=-18,ratio=4") or a preset
    file (*.fxpreset); parameters may follow by their keys. "lv2:URI" is somebody else's LV2 plug-in.

    Parameters are attributes in their units, and items where a name is in the way:

        fx = Effect("compressor", ratio=4)
        fx.threshold = -18           # or "-18 dB"
        fx.threshold_text            # "-18 dB"
        fx.mode = "Warm"             # lists by their texts, or by number
        fx["threshold"]

    They read as bool (switches), float, int, or the text of a list. `info` says what there is.
    """

    __slots__ = ("_bound",)
    _bound: _native.Effect

    def __init__(self, spec: Path, **parameters: Value) -> None:
        text = os.fspath(spec)
        if text.endswith(".fxpreset") and ":" not in text:
            path_of(text)
        self._hold(_native.Effect(text))
        for key, value in parameters.items():
            try:
                self._bound.set(key, value)
            except KeyError as error:
                raise TypeError(error.args[0]) from None

    def _hold(self, native: _native.Effect) -> None:
        object.__setattr__(self, "_bound", native)

    @classmethod
    def _of(cls, native: _native.Effect) -> Effect:
        effect = cls.__new__(cls)
        effect._hold(native)
        return effect

    @classmethod
    def _from_state(cls, name: str, state: bytes) -> Effect:
        return cls._of(_native.Effect.from_state(name, state))

    def __reduce__(self) -> tuple[Any, ...]:
        return (Effect._from_state, (self._bound.name, self._bound.state()))

    def _natives(self) -> list[_native.Effect]:
        return [self._bound]

    # Parameters

    def __getitem__(self, key: str) -> Value:
        return self._bound.get(key)

    def __setitem__(self, key: str, value: Value) -> None:
        self._bound.set(key, value)

    def __getattr__(self, name: str) -> Value:
        if name.startswith("_"):
            raise AttributeError(name)
        try:
            if name.endswith("_text"):
                return self._bound.get_text(name[: -len("_text")])
            return self._bound.get(name)
        except KeyError as error:
            raise AttributeError(error.args[0]) from None

    def __setattr__(self, name: str, value: Value) -> None:
        if hasattr(type(self), name):
            raise AttributeError(f"{self.title}: {name} cannot be set")
        try:
            if self._bound.is_measured(name):
                raise AttributeError(f"{self.title}: {name} is a measured value and cannot be set")
            self._bound.set(name, value)
        except KeyError as error:
            raise AttributeError(error.args[0]) from None

    def __dir__(self) -> list[str]:
        return [*super().__dir__(), *self._bound.keys()]

    def keys(self) -> list[str]:
        """The keys of all parameters and texts; `dict(fx)` holds their values."""
        return self._bound.keys()

    @property
    def title(self) -> str:
        """The name of the effect."""
        return self._bound.title

    @property
    def info(self) -> dict[str, Any]:
        """What the effect offers, as `quillworks.info` says it."""
        return info(self._bound.name)

    @property
    def meters(self) -> dict[str, float]:
        """The latest reading of every meter; not-a-number where there is nothing to show."""
        return self._bound.meters()

    # Presets and states

    @property
    def presets(self) -> list[str]:
        """The names of the factory presets."""
        return self._bound.presets()

    @property
    def preset(self) -> str:
        """The name of the preset loaded last, "(Unnamed)" without one."""
        return self._bound.preset_name()

    def load_preset(self, name: Path) -> None:
        """A factory preset by its name, or a preset file. Nothing changes where it is refused."""
        text = os.fspath(name)
        names = self.presets
        folded = [title.casefold() for title in names]
        if text.casefold() in folded:
            self._bound.load_factory_preset(folded.index(text.casefold()))
        elif text.endswith(".fxpreset") or os.path.exists(text):
            self._bound.load_preset(path_of(text))
        else:
            raise ValueError(f"{self.title} has no preset {text!r} ({', '.join(names)})")

    def save_preset(self, path: Path, title: str | None = None) -> None:
        """Writes a preset file; its title is that of the file if none is given."""
        text = os.fspath(path)
        name = os.path.basename(text).removesuffix(".fxpreset") if title is None else title
        self._bound.save_preset(text, name)

    def save_state(self) -> bytes:
        """All settings. Hosts of all formats keep the same bytes in their songs."""
        return self._bound.state()

    def load_state(self, state: bytes) -> None:
        """ValueError, and nothing changes, where these are no settings of this effect."""
        self._bound.load_state(bytes(state))

    def __repr__(self) -> str:
        return f"<quillworks.Effect {self.title}>"


class Chain(_Processor):
    """Effects in series: Chain("compressor:ratio=4,limiter"), or a list of effects, names and SPECs.

    In one text, a part that begins with the name of an effect begins the next one.
    """

    __slots__ = ("effects",)
    effects: tuple[Effect, ...]

    def __init__(self, effects: str | Effect | Iterable[str | Effect]) -> None:
        parts = [effects] if isinstance(effects, (str, Effect)) else list(effects)
        made: list[Effect] = []
        for part in parts:
            if isinstance(part, Effect):
                made.append(part)
            elif isinstance(part, str):
                made += [Effect._of(native) for native in _native.chain(part)]
            else:
                raise TypeError(f"a chain is of effects and their names, not {type(part).__name__}")
        if len({id(effect) for effect in made}) < len(made):
            raise ValueError("an effect stands twice in the chain (make one for each place)")
        self.effects = tuple(made)

    def _natives(self) -> list[_native.Effect]:
        return [effect._bound for effect in self.effects]

    def __getitem__(self, index: int) -> Effect:
        return self.effects[index]

    def __len__(self) -> int:
        return len(self.effects)

    def __iter__(self) -> Iterator[Effect]:
        return iter(self.effects)

    def __repr__(self) -> str:
        return f"<quillworks.Chain {', '.join(effect.title for effect in self)}>"


def _tail_frames(tail: float | str, rate: float) -> int:
    if tail == "auto":
        return -1
    if isinstance(tail, str) or not 0 <= tail <= _LONGEST_TAIL:
        raise ValueError(f"tail is 0 to {_LONGEST_TAIL:g} seconds, or 'auto', not {tail!r}")
    return round(tail * rate)
