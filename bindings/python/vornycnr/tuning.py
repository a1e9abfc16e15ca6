"""Tuning sets: one JSON file with the luma and chroma tuning of every sensor gain."""

import json
import math
import os
import sys
from dataclasses import asdict, dataclass, field, fields
from pathlib import Path
from typing import List

from . import _native

LEVELS = 5
FORMAT = "vorn-ycnr tuning set"
_PER_LEVEL = ("pIntensity", "pRadius")


class TuningError(ValueError):
    """A tuning set that cannot be used; the text names the file and the field."""


@dataclass
class LumaTuning:
    """Luma tuning of one frame; docs/tuning.md explains the fields."""

    enable: int = 1
    layer: int = 4
    pIntensity: List[int] = field(default_factory=lambda: [120, 48, 24, 12, 0])
    pRadius: List[int] = field(default_factory=lambda: [5, 5, 5, 5, 5])
    param0: int = 64
    param1: int = 0
    param2: int = 0

    def _record(self, enable):
        values = asdict(self)
        values["enable"] = int(self.enable == 1 and enable)
        values["pIntensity"] = (_native.c_int32 * LEVELS)(*self.pIntensity)
        values["pRadius"] = (_native.c_int32 * LEVELS)(*self.pRadius)
        return _native.LumaParam(**values)


@dataclass
class ChromaTuning:
    """Chroma tuning of one frame; docs/tuning.md explains the fields."""

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

    def _record(self, enable):
        values = asdict(self)
        values["enable"] = int(self.enable == 1 and enable)
        return _native.ChromaParam(**values)


@dataclass
class Tuning:
    luma: LumaTuning = field(default_factory=LumaTuning)
    chroma: ChromaTuning = field(default_factory=ChromaTuning)


@dataclass
class TuningEntry(Tuning):
    gain: float = 1.0


def _is_int32(value):
    return type(value) is int and -(2**31) <= value < 2**31


def _allow(values, known, where, prefix=""):
    for key in values:
        if key not in known:
            raise TuningError(f"{where}: unknown field {prefix}{key}")


def _read_record(record_type, name, entry, where):
    values = entry.get(name)
    if not isinstance(values, dict):
        raise TuningError(f'{where}: "{name}" is missing')
    known = [f.name for f in fields(record_type)]
    _allow(values, known, where, name + ".")
    for key in known:
        if key not in values:
            raise TuningError(f"{where}: field {name}.{key} is missing")
        value = values[key]
        if key in _PER_LEVEL:
            good = isinstance(value, list) and len(value) == LEVELS and all(map(_is_int32, value))
        else:
            good = _is_int32(value)
        if not good:
            kind = "five 32-bit integers" if key in _PER_LEVEL else "a 32-bit integer"
            raise TuningError(f"{where}: {name}.{key} must be {kind}")
    return record_type(**values)


@dataclass
class TuningSet:
    """Entries by rising gain."""

    entries: List[TuningEntry]
    name: str = ""
    description: str = ""

    @classmethod
    def load(cls, path):
        """Reads a set; TuningError when the file is not one, OSError when it cannot be read."""
        text = Path(path).read_text(encoding="utf-8")
        try:
            root = json.loads(text)
        except ValueError as error:
            raise TuningError(f"{path}: {error}") from error
        if not isinstance(root, dict) or root.get("format") != FORMAT:
            raise TuningError(f'{path}: "format" must be "{FORMAT}"')
        if root.get("version") != 1:
            raise TuningError(f'{path}: "version" must be 1')
        _allow(root, ("$schema", "format", "version", "name", "description", "entries"), str(path))
        if not isinstance(root.get("entries"), list) or not root["entries"]:
            raise TuningError(f'{path}: no "entries", an array of at least one')
        entries = []
        for index, entry in enumerate(root["entries"]):
            where = f"{path}: entry {index}"
            gain = entry.get("gain") if isinstance(entry, dict) else None
            if not isinstance(gain, (int, float)) or isinstance(gain, bool) or not 0 < gain <= 1e6:
                raise TuningError(f"{where}: no gain above 0, up to 1e6")
            _allow(entry, ("gain", "luma", "chroma"), where)
            if entries and gain <= entries[-1].gain:
                raise TuningError(f"{where}: gains must rise")
            entries.append(
                TuningEntry(
                    gain=gain,
                    luma=_read_record(LumaTuning, "luma", entry, where),
                    chroma=_read_record(ChromaTuning, "chroma", entry, where),
                )
            )
        return cls(entries, str(root.get("name", "")), str(root.get("description", "")))

    def save(self, path):
        """Writes the set, whole or not at all."""
        head = {"format": FORMAT, "version": 1, "name": self.name, "description": self.description}
        lines = ",\n".join(
            f"  {json.dumps(key)}: {json.dumps(value)}" for key, value in head.items()
        )
        entries = ",\n".join(
            f'    {{ "gain": {json.dumps(e.gain)},\n'
            f'      "luma": {json.dumps(asdict(e.luma))},\n'
            f'      "chroma": {json.dumps(asdict(e.chroma))} }}'
            for e in self.entries
        )
        text = f'{{\n{lines},\n  "entries": [\n{entries}\n  ]\n}}\n'
        path = Path(path)
        beside = path.with_name(path.name + ".part")
        try:
            beside.write_text(text, encoding="utf-8")
            beside.replace(path)
        finally:
            beside.unlink(missing_ok=True)

    def nearest(self, gain):
        """The entry nearest to gain in stops; half-way between two, the lower one."""
        return min(self.entries, key=lambda e: abs(math.log2(gain) - math.log2(e.gain)))


def default_tuning_set():
    """The set that is installed with the library, for gains 1 to 64."""
    here = Path(__file__).resolve()
    candidates = [
        os.environ.get("VORN_DEFAULT_TUNING"),
        here.parents[3] / "tools" / "tuning" / "default_tuning.json",  # the source tree
        *(parent / "share" / "vornycnr" / "default_tuning.json" for parent in here.parents),
        Path(sys.prefix, "share", "vornycnr", "default_tuning.json"),
        "/usr/local/share/vornycnr/default_tuning.json",
        "/usr/share/vornycnr/default_tuning.json",
    ]
    for candidate in candidates:
        if candidate and Path(candidate).is_file():
            return TuningSet.load(candidate)
    raise FileNotFoundError(
        "the default tuning set (share/vornycnr/default_tuning.json) is not installed"
    )
