"""The library's C calls and records, as vorn_ycnr.h declares them."""

import ctypes
import ctypes.util
import os
from ctypes import POINTER, Structure, c_char, c_int32, c_uint8, c_uint64, c_void_p

SONAME = "libvornynr2cnr4.so.1"
IMAGE_YUV420SP = 3


class InitParam(Structure):
    _fields_ = [("width", c_int32), ("height", c_int32)]


class Image(Structure):
    _fields_ = [
        ("type", c_int32),
        ("width", c_int32),
        ("height", c_int32),
        ("plane", c_void_p * 4),
        ("stride", c_int32 * 4),
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
        (name, c_int32)
        for name in (
            "enable",
            "range_factor",
            "smooth_radius",
            "scale",
            "step",
            "color_edge_u",
            "color_edge_v",
            "saturation",
            "param0",
            "param1",
            "param2",
        )
    ]


class Parameters(Structure):
    _fields_ = [
        ("caller_data", c_uint64),
        ("ynr", POINTER(LumaParam)),
        ("cnr", POINTER(ChromaParam)),
    ]


_HEAD = [
    ("name", c_char * 256),
    ("build_date", c_char * 32),
    ("build_time", c_char * 32),
    ("version", c_char * 256),
    ("memory_mb", c_int32),
]


class AlgorithmCapability(Structure):
    _fields_ = _HEAD


class Capability(Structure):
    _fields_ = _HEAD + [("ynr", AlgorithmCapability), ("cnr", AlgorithmCapability)]


def _load():
    named = os.environ.get("VORN_LIBRARY")
    found = ctypes.util.find_library("vornynr2cnr4")
    for candidate in [named] if named else filter(None, [SONAME, found]):
        try:
            return ctypes.CDLL(candidate)
        except OSError as error:
            reason = error
    raise ImportError(f"the library vornynr2cnr4 cannot be loaded: {reason}") from reason


lib = _load()
lib.vorn_ycnr_init.argtypes = [POINTER(InitParam)]
lib.vorn_ycnr_init.restype = c_void_p
lib.vorn_ycnr_process.argtypes = [c_void_p, POINTER(Image), POINTER(Image), POINTER(Parameters)]
lib.vorn_ycnr_process.restype = c_int32
lib.vorn_ycnr_deinit.argtypes = [c_void_p]
lib.vorn_ycnr_deinit.restype = c_int32
lib.vorn_ycnr_capability.argtypes = [c_void_p, POINTER(Capability)]
lib.vorn_ycnr_capability.restype = c_int32


def set_log_level(level):
    """Which of the library's lines reach standard error: 0 none, 1 errors (the module's default), 3
    also what happened to each frame, 4 also the time of every stage. A property file that the
    environment variable VORN_PROPERTIES names has the last word."""
    c_int32.in_dll(lib, "nr_log_Level").value = level


set_log_level(1)


def image_over(array, width, height):
    """An image record over a contiguous frame; the array must outlive it."""
    image = Image(type=IMAGE_YUV420SP, width=width, height=height)
    image.plane[0] = array.ctypes.data
    image.stride[0] = image.stride[1] = width
    return image
