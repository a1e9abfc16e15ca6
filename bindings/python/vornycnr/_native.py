"""The C calls and records, as vorn_ycnr.h, vorn_ycnr_ext.h and vorn_tuning.h declare them."""

from __future__ import annotations

import ctypes
import os
from ctypes import POINTER, Structure, c_char, c_char_p, c_double, c_int32, c_void_p
from pathlib import Path
from typing import Any

LAYOUT_NV12 = 0


class Options(Structure):
    _fields_ = [
        ("width", c_int32),
        ("height", c_int32),
        ("workers", c_int32),
        ("bind_cores", c_int32),
    ]


class Planes(Structure):
    _fields_ = [
        ("layout", c_int32),
        ("width", c_int32),
        ("height", c_int32),
        ("plane", c_void_p * 3),
        ("stride", c_int32 * 3),
    ]


class LumaParam(Structure):
    _fields_ = [
        ("enable", c_int32),
        ("layer", c_int32),
        ("pIntensity", c_int32 * 5),
        ("pRadius", c_int32 * 5),
        ("param0", c_int32),
        ("param1", c_int32),
        ("param2", c_int32),
    ]


class ChromaParam(Structure):
    _fields_ = [
        ("enable", c_int32),
        ("range_factor", c_int32),
        ("smooth_radius", c_int32),
        ("scale", c_int32),
        ("step", c_int32),
        ("color_edge_u", c_int32),
        ("color_edge_v", c_int32),
        ("saturation", c_int32),
        ("param0", c_int32),
        ("param1", c_int32),
        ("param2", c_int32),
    ]


class AlgorithmCapability(Structure):
    _fields_ = [
        ("name", c_char * 256),
        ("build_date", c_char * 32),
        ("build_time", c_char * 32),
        ("version", c_char * 256),
        ("memory_mb", c_int32),
    ]


class Capability(Structure):
    _fields_ = [
        *AlgorithmCapability._fields_,
        ("ynr", AlgorithmCapability),
        ("cnr", AlgorithmCapability),
    ]


class Fault(Structure):
    _fields_ = [
        ("code", c_int32),
        ("system_error", c_int32),
        ("line", c_int32),
        ("field", c_char * 48),
        ("text", c_char * 976),
    ]


class NoiseFrame(Structure):
    _fields_ = [
        ("luma", c_void_p),
        ("u", c_void_p),
        ("v", c_void_p),
        ("width", c_int32),
        ("height", c_int32),
        ("luma_stride", c_int32),
        ("chroma_stride", c_int32),
        ("chroma_step", c_int32),
    ]


class Follower(Structure):
    """Zeros to begin with; what follows the gains is the library's, and less than this."""

    _fields_ = [
        ("luma_gain", c_double),
        ("chroma_gain", c_double),
        ("luma_entry", c_double),
        ("chroma_entry", c_double),
        ("rest", c_double * 252),
    ]


TUNING_ARGUMENT, TUNING_INVALID, TUNING_IO, TUNING_MEMORY = -1, -2, -3, -4


def _load(name: str, variable: str) -> ctypes.CDLL:
    """The file that the environment variable names, else the one inside this package (as a wheel has
    it), else the installed one."""
    named = os.environ.get(variable)
    inside = Path(__file__).resolve().parent / "lib" / name
    file = named or (str(inside) if inside.exists() else name)
    try:
        return ctypes.CDLL(file)
    except OSError as error:
        raise ImportError(
            f"the library {file} cannot be loaded ({error}); install it, or name its file in the "
            f"environment variable {variable}"
        ) from error


lib = _load("libvornynr2cnr4.so.1", "VORN_LIBRARY")
tuning_lib = _load("libvorn_tuning.so.1", "VORN_TUNING_LIBRARY")


def _declare(library: ctypes.CDLL, name: str, result: Any, *arguments: Any) -> None:
    call = getattr(library, name)
    call.restype = result
    call.argtypes = arguments


_declare(lib, "vorn_ycnr_open", c_void_p, POINTER(Options))
_frame = (c_void_p, POINTER(Planes), POINTER(Planes), POINTER(LumaParam), POINTER(ChromaParam))
_declare(lib, "vorn_ycnr_process_any", c_int32, *_frame)
_declare(lib, "vorn_ycnr_process_any_fine", c_int32, *_frame)
_declare(lib, "vorn_ycnr_set_log_level", c_int32, c_int32)
_declare(lib, "vorn_ycnr_deinit", c_int32, c_void_p)
_declare(lib, "vorn_ycnr_capability", c_int32, c_void_p, POINTER(Capability))

_records = (POINTER(LumaParam), POINTER(ChromaParam))
for _name, _result, _arguments in (
    ("load", c_void_p, (c_char_p, POINTER(Fault))),
    ("default", c_void_p, (POINTER(Fault),)),
    ("new", c_void_p, (POINTER(Fault),)),
    ("free", None, (c_void_p,)),
    ("name", c_char_p, (c_void_p,)),
    ("description", c_char_p, (c_void_p,)),
    ("count", c_int32, (c_void_p,)),
    ("gain", c_double, (c_void_p, c_int32)),
    ("entry_name", c_char_p, (c_void_p, c_int32)),
    ("entry_notes", c_char_p, (c_void_p, c_int32)),
    ("get", c_int32, (c_void_p, c_int32, *_records)),
    ("nearest_gain", c_int32, (POINTER(c_double), c_int32, c_double)),
    ("describe", c_int32, (c_void_p, c_char_p, c_char_p, POINTER(Fault))),
    ("put", c_int32, (c_void_p, c_double, *_records, POINTER(Fault))),
    ("annotate", c_int32, (c_void_p, c_int32, c_char_p, c_char_p, POINTER(Fault))),
    ("save", c_int32, (c_void_p, c_char_p, POINTER(Fault))),
    ("check", c_int32, (*_records, POINTER(Fault))),
    ("version", c_char_p, ()),
    ("temporal_new", c_void_p, ()),
    ("temporal_free", None, (c_void_p,)),
    ("temporal_reset", None, (c_void_p,)),
    ("temporal_run", c_int32, (c_void_p, POINTER(Planes), POINTER(LumaParam))),
    ("follow", c_int32, (POINTER(Follower), c_void_p, c_void_p, POINTER(NoiseFrame), *_records)),
):
    _declare(tuning_lib, "vorn_tuning_" + _name, _result, *_arguments)


def set_log_level(level: int) -> None:
    """Which of the library's lines reach standard error: 0 none, 1 errors (the module's default), 2
    also warnings, 3 also what happened to each frame, 4 also the time of every stage. A negative
    level hands it back to the property file that the environment variable VORN_PROPERTIES names."""
    lib.vorn_ycnr_set_log_level(level)


if "VORN_PROPERTIES" not in os.environ:
    set_log_level(1)
