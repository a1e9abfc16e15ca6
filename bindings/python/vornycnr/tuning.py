"""Tuning sets: one JSON file with the luma and chroma tuning of every sensor gain."""

from __future__ import annotations

import ctypes
import operator
import os
from dataclasses import dataclass, field, fields
from typing import List, Tuple, Union

from . import _native

LEVELS = 5
DEFAULT_GAIN = 8.0  # VORN_TUNING_DEFAULT_GAIN
_call = _native.tuning_lib

PathLike = Union[str, "os.PathLike[str]"]


class TuningError(ValueError):
    """A tuning that cannot be used; the text names the field, and of a file its name and line."""


@dataclass
class LumaTuning:
    """Luma tuning of one frame; docs/tuning.md explains the fields.

    enable is 0 or 1, layer 2 to 5 (pyramid levels in use), pIntensity 0 to 2000 (strength per
    level, finest first), pRadius 0, 3, 5 or 7 (window per level), param0 0 to 112 (more strength
    towards the corners, 64 is even); param1 and param2 are not used.
    """

    enable: int = 1
    layer: int = 4
    pIntensity: List[int] = field(default_factory=lambda: [120, 48, 24, 12, 0])
    pRadius: List[int] = field(default_factory=lambda: [5, 5, 5, 5, 5])
    param0: int = 64
    param1: int = 0
    param2: int = 0


@dataclass
class ChromaTuning:
    """Chroma tuning of one frame; docs/tuning.md explains the fields.

    enable is 0 or 1, range_factor 1 to 200 (half the colour distance at which a neighbour stops
    counting), smooth_radius 0 to 64 (half-length of the window), scale 0 to 2 (0 full chroma size,
    1 half size, 2 both), step 1 to 4, color_edge_u and color_edge_v 0 to 64 (8 is 1.0), saturation
    -16 to 127 (sixteenths, 0 leaves colours alone); param0 to param2 are not used.
    """

    enable: int = 1
    range_factor: int = 14
    smooth_radius: int = 6
    scale: int = 2
    step: int = 1
    color_edge_u: int = 8
    color_edge_v: int = 8
    saturation: int = 0
    param0: int = 0
    param1: int = 0
    param2: int = 0


@dataclass
class Tuning:
    """Luma and chroma tuning of one frame."""

    luma: LumaTuning = field(default_factory=LumaTuning)
    chroma: ChromaTuning = field(default_factory=ChromaTuning)

    def check(self) -> None:
        """TypeError for what is no whole number, TuningError for a value out of its range."""
        self._records(True, True)

    def _records(self, luma: bool, chroma: bool) -> Tuple[_native.LumaParam, _native.ChromaParam]:
        """The C records, checked, with the switches applied."""
        records = _record(_native.LumaParam, self.luma), _record(_native.ChromaParam, self.chroma)
        fault = _native.Fault()
        if _call.vorn_tuning_check(*map(ctypes.byref, records), ctypes.byref(fault)) != 0:
            _raise(fault)
        records[0].enable &= bool(luma)
        records[1].enable &= bool(chroma)
        return records


@dataclass
class TuningEntry(Tuning):
    """The tuning of one sensor gain (1 is base sensitivity), with words of your own."""

    gain: float = 1.0
    name: str = ""
    notes: str = ""


@dataclass
class TuningSet:
    """Entries by rising gain.

    >>> tuning = TuningSet.load("sensor.json").nearest(8)
    """

    entries: List[TuningEntry]
    name: str = ""
    description: str = ""

    @classmethod
    def load(cls, path: PathLike) -> "TuningSet":
        """Reads a set. TuningError when the file holds none, with the line and the field at fault;
        OSError when it cannot be read."""
        fault = _native.Fault()
        handle = _call.vorn_tuning_load(os.fsencode(path), ctypes.byref(fault))
        return cls._take(handle, fault, path)

    def save(self, path: PathLike) -> None:
        """Writes the set; the file appears whole or not at all. TuningError for values out of their
        range or gains that do not rise, OSError when the file cannot be written."""
        self._gains()
        fault = _native.Fault()
        handle = _call.vorn_tuning_new(ctypes.byref(fault))
        try:
            _must(_call.vorn_tuning_describe(handle, _text(self.name), _text(self.description),
                                             ctypes.byref(fault)), fault)  # fmt: skip
            for index, entry in enumerate(self.entries):
                luma, chroma = entry._records(True, True)
                _must(_call.vorn_tuning_put(handle, entry.gain, ctypes.byref(luma),
                                            ctypes.byref(chroma), ctypes.byref(fault)), fault)  # fmt: skip
                _must(_call.vorn_tuning_annotate(handle, index, _text(entry.name),
                                                 _text(entry.notes), ctypes.byref(fault)), fault)  # fmt: skip
            code = _call.vorn_tuning_save(handle, os.fsencode(path), ctypes.byref(fault))
            _must(code, fault, path)
        finally:
            _call.vorn_tuning_free(handle)

    def nearest(self, gain: float) -> TuningEntry:
        """The entry nearest to gain in stops; half-way between two, the lower one. ValueError unless
        gain is a finite number above 0."""
        gains = self._gains()
        index = _call.vorn_tuning_nearest_gain(
            (ctypes.c_double * len(gains))(*gains), len(gains), _number(gain)
        )
        if index < 0:
            raise ValueError(f"gain must be a finite number above 0, not {gain!r}")
        return self.entries[index]

    def _gains(self) -> List[float]:
        gains = [_number(entry.gain) for entry in self.entries]
        if not gains:
            raise TuningError("a tuning set needs at least one entry")
        if any(not low < high for low, high in zip(gains, gains[1:])):
            raise TuningError("gain must rise from entry to entry")
        return gains

    @classmethod
    def _take(cls, handle, fault: _native.Fault, path: PathLike = "") -> "TuningSet":
        """A Python set with the contents of the library's, which is freed."""
        if not handle:
            _raise(fault, path)
        try:
            entries = []
            for index in range(_call.vorn_tuning_count(handle)):
                luma, chroma = _native.LumaParam(), _native.ChromaParam()
                _call.vorn_tuning_get(handle, index, ctypes.byref(luma), ctypes.byref(chroma))
                entries.append(
                    TuningEntry(
                        LumaTuning(**_values(luma)),
                        ChromaTuning(**_values(chroma)),
                        gain=_call.vorn_tuning_gain(handle, index),
                        name=_call.vorn_tuning_entry_name(handle, index).decode(),
                        notes=_call.vorn_tuning_entry_notes(handle, index).decode(),
                    )
                )
            return cls(
                entries,
                _call.vorn_tuning_name(handle).decode(),
                _call.vorn_tuning_description(handle).decode(),
            )
        finally:
            _call.vorn_tuning_free(handle)


def default_tuning_set() -> TuningSet:
    """The set that comes with the library, for gains 1 to 64; a new one with every call."""
    fault = _native.Fault()
    return TuningSet._take(_call.vorn_tuning_default(ctypes.byref(fault)), fault)


def _values(record) -> dict:
    """Fields of a C record as Python numbers and lists."""
    read = {name: getattr(record, name) for name, _ in record._fields_}
    return {k: v if isinstance(v, int) else list(v) for k, v in read.items()}


def _record(record_type, tuning):
    """The C record with the values of a dataclass; nothing is wrapped, cut or filled up."""
    group = "luma" if record_type is _native.LumaParam else "chroma"
    record = record_type()
    for item in fields(tuning):
        value, name = getattr(tuning, item.name), f"{group}.{item.name}"
        target = getattr(record, item.name)
        if isinstance(target, int):
            setattr(record, item.name, _whole(value, name))
            continue
        values = list(value)
        if len(values) != LEVELS:
            raise TuningError(f'"{name}" must have five numbers, level 0 first, not {len(values)}')
        for level, number in enumerate(values):
            target[level] = _whole(number, f"{name}[{level}]")
    return record


def _whole(value, name: str) -> int:
    try:
        number = operator.index(value)
    except TypeError:
        raise TypeError(f'"{name}" must be a whole number, not {value!r}') from None
    if not -(2**31) <= number < 2**31:
        raise TuningError(f'"{name}" must be a whole number of 32 bits, not {number}')
    return number


def _number(gain) -> float:
    if isinstance(gain, (str, bytes)):
        raise TypeError(f"gain must be a number, not {gain!r}")
    try:
        return float(gain)
    except TypeError:
        raise TypeError(f"gain must be a number, not {gain!r}") from None


def _text(value: str) -> bytes:
    if "\0" in value:
        raise TuningError("a text of a tuning set cannot hold NUL")
    return value.encode()


def _must(code: int, fault: _native.Fault, path: PathLike = "") -> None:
    if code < 0:
        _raise(fault, path)


def _raise(fault: _native.Fault, path: PathLike = ""):
    """The library's fault as one of Python's own kinds."""
    text = fault.text.decode(errors="replace")
    if fault.code == _native.TUNING_IO:
        raise OSError(fault.system_error, os.strerror(fault.system_error), os.fspath(path))
    if fault.code == _native.TUNING_MEMORY:
        raise MemoryError(text)
    raise TuningError(text)
