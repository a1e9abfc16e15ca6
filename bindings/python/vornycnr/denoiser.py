"""The denoiser for one frame size, and one-call forms for single pictures."""

from __future__ import annotations

import ctypes
import operator
import os
import threading
from typing import Any, Dict, Optional, Tuple, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _native, colour
from .tuning import DEFAULT_GAIN, ChromaTuning, LumaTuning, Tuning, _values, default_tuning_set

Bytes = NDArray[np.uint8]


class DenoiseError(RuntimeError):
    """The library refused or failed; its log line on standard error has the reason."""


class Denoiser:
    """Denoises frames of one size. Use it in a with statement, or call close().

    width and height are luma pixels, any from 1x1 on; odd and small frames are padded inside by
    repeating the last column and row, and cropped again. workers is the number of threads that one
    frame is worked on with, 1 to 4.

    Frames go through one at a time; a lock sees to that, so any thread may call. Denoisers work side
    by side, since the interpreter's lock is released during a frame: for many frames at once give
    each thread its own Denoiser with workers=1.

    A Denoiser belongs to the process that made it: after a fork, the child makes its own.
    """

    def __init__(self, width: int, height: int, *, workers: int = 4) -> None:
        self._handle: Optional[int] = None
        self._blend: Optional[int] = None
        width, height, workers = map(operator.index, (width, height, workers))
        if width < 1 or height < 1:
            raise ValueError(f"a frame of {width}x{height} has no pixels")
        if not 1 <= workers <= 4:
            raise ValueError(f"workers must be 1 to 4, not {workers}")
        self.width, self.height = width, height
        inside = self._filtered_size()
        if inside[0] * inside[1] * 3 >= 2**31:
            raise ValueError(f"a frame of {width}x{height} is too large: width * height * 3 of the "
                             f"{inside[0]}x{inside[1]} inside must stay below 2^31")  # fmt: skip
        self._lock = threading.Lock()
        self._process = os.getpid()
        options = _native.Options(*inside, workers, 0)
        self._handle = _native.lib.vorn_ycnr_open(ctypes.byref(options))
        if not self._handle:
            raise DenoiseError(f"no denoiser for frames of {width}x{height}: no memory or no threads")

    def _filtered_size(self) -> Tuple[int, int]:
        """Of the frames inside: what a device would filter."""
        return self.width + self.width % 2, self.height + self.height % 2

    def close(self) -> None:
        """Frees the denoiser, after the frame at hand if another thread is in one. May be repeated."""
        if self._process != os.getpid():
            # Nobody in a forked child is in a frame, whatever the copied lock says.
            handle, blend = self._take()
        else:
            with self._lock:
                handle, blend = self._take()
        if handle:
            _native.lib.vorn_ycnr_deinit(handle)
        _native.tuning_lib.vorn_tuning_temporal_free(blend)

    def _take(self) -> Tuple[Optional[int], Optional[int]]:
        """What the library holds for this denoiser, which is closed from then on."""
        taken = self._handle, self._blend
        self._handle = self._blend = None
        return taken

    def __enter__(self) -> "Denoiser":
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_handle", None):
            self.close()

    def __reduce__(self):
        raise TypeError("a Denoiser cannot be copied or pickled; make another one")

    def __repr__(self) -> str:
        state = "" if self._handle else ", closed"
        return f"Denoiser({self.width}, {self.height}{state})"

    def capability(self) -> Dict[str, Dict[str, Any]]:
        """Names, versions and scratch sizes, as a dict of dicts: library, luma, chroma."""
        record = _native.Capability()
        with self._lock_of_this_process():
            code = _native.lib.vorn_ycnr_capability(self._open_handle(), ctypes.byref(record))
        if code != 0:
            raise DenoiseError("the library does not tell its capability")

        def head(r: Any) -> Dict[str, Any]:
            keys = ("name", "build_date", "build_time", "version")
            return {**{key: getattr(r, key).decode() for key in keys}, "memory_mb": r.memory_mb}

        return {"library": head(record), "luma": head(record.ynr), "chroma": head(record.cnr)}

    def nv12(
        self,
        frame: ArrayLike,
        tuning: Optional[Tuning] = None,
        *,
        luma: bool = True,
        chroma: bool = True,
        fine: bool = False,
        temporal: bool = False,
    ) -> Bytes:
        """Denoises one NV12 frame of an even size: (height * 3 / 2, width) uint8, in and out.

        Without a tuning the default set's for gain 8 is taken. luma and chroma switch a filter off;
        fine=True takes the fine mode: luma better by 0.1 to 0.4 dB and chroma by 0.7 to 1.1, in about
        four times the time. temporal=True takes the frame for the next one of a video and blends what
        stands still in it with the result before, against flicker; cuts are found, and restart() begins
        another video.
        """
        frame = _array(frame, (self.height * 3 // 2, self.width), "frame")
        if self.width % 2 or self.height % 2:
            raise ValueError("an odd size has no single-array form; use planes()")
        half = (self.height // 2, self.width // 2, 2)
        result = np.empty(frame.shape, np.uint8)
        frame = _in_rows(frame)
        pairs = np.lib.stride_tricks.as_strided(
            frame[self.height :], half, (frame.strides[0], 2, 1), writeable=False
        )
        self._run(frame[: self.height], pairs, result[: self.height],
                  result[self.height :].reshape(half), tuning, luma, chroma, fine, temporal)  # fmt: skip
        return result

    def planes(
        self,
        y: ArrayLike,
        uv: ArrayLike,
        tuning: Optional[Tuning] = None,
        *,
        luma: bool = True,
        chroma: bool = True,
        fine: bool = False,
        temporal: bool = False,
    ) -> Tuple[Bytes, Bytes]:
        """Denoises a luma plane (height, width) with its chroma (rounded up halves, 2), U first.

        Strided views will do. Returns the two as new arrays. fine and temporal as for nv12."""
        y = _array(y, (self.height, self.width), "y")
        half = ((self.height + 1) // 2, (self.width + 1) // 2)
        uv = _array(uv, (*half, 2), "uv")
        new_y, new_uv = np.empty(y.shape, np.uint8), np.empty(uv.shape, np.uint8)
        self._run(_in_rows(y), _in_rows(uv), new_y, new_uv, tuning, luma, chroma, fine, temporal)
        return new_y, new_uv

    def restart(self) -> None:
        """The next frame with temporal=True is the first of a video."""
        with self._lock_of_this_process():
            _native.tuning_lib.vorn_tuning_temporal_reset(self._blend)

    def _open_handle(self) -> int:
        if not self._handle:
            raise ValueError("the denoiser is closed")
        return self._handle

    def _lock_of_this_process(self) -> threading.Lock:
        if self._process != os.getpid():
            raise RuntimeError("the denoiser belongs to the process that forked this one; make another")
        return self._lock

    def _planes(self, y: Bytes, uv: Bytes) -> _native.Planes:
        """A record over two planes with contiguous rows, which must outlive it."""
        record = _native.Planes(_native.LAYOUT_NV12, self.width, self.height)
        for index, plane in enumerate((y, uv)):
            record.plane[index] = plane.ctypes.data
            record.stride[index] = plane.strides[0]
        return record

    def _run(self, y: Bytes, uv: Bytes, new_y: Bytes, new_uv: Bytes, tuning: Optional[Tuning],
             luma: bool, chroma: bool, fine: bool, temporal: bool) -> None:  # fmt: skip
        if tuning is None:
            tuning = _default_tuning(DEFAULT_GAIN)
        if not isinstance(tuning, Tuning):
            raise TypeError(f"tuning must be a Tuning or an entry of a TuningSet, not {tuning!r}")
        records = (
            self._planes(y, uv),
            self._planes(new_y, new_uv),
            *tuning._records(luma, chroma),
        )
        with self._lock_of_this_process():
            lib = _native.lib
            process = lib.vorn_ycnr_process_any_fine if fine else lib.vorn_ycnr_process_any
            code = process(self._open_handle(), *map(ctypes.byref, records))
            if code == 0 and temporal:
                self._steady(records[1], records[2])
        if code != 0:
            raise DenoiseError(f"the frame of {self.width}x{self.height} was refused ({code})")

    def _steady(self, frame: _native.Planes, luma: _native.LumaParam) -> None:
        """Blends a result with the one before, in place. The lock is held."""
        if not self._blend:
            self._blend = _native.tuning_lib.vorn_tuning_temporal_new()
        code = _native.tuning_lib.vorn_tuning_temporal_run(
            self._blend, ctypes.byref(frame), ctypes.byref(luma)
        )
        if code == _native.TUNING_MEMORY:
            raise MemoryError("no memory for the frame before")
        if code < 0:
            raise DenoiseError(f"the frame of {self.width}x{self.height} cannot be blended ({code})")


_default_set = None


def _default_tuning(gain: float) -> Tuning:
    global _default_set
    if _default_set is None:
        _default_set = default_tuning_set()
    return _default_set.nearest(gain)


def _array(values: ArrayLike, shape: Tuple[int, ...], name: str) -> Bytes:
    array = np.asarray(values)
    if array.dtype != np.uint8 or array.shape != shape:
        raise ValueError(
            f"{name} must be uint8 of shape {shape}, not {array.dtype} of {array.shape}"
        )
    return array


def _in_rows(plane: Bytes) -> Bytes:
    """The plane itself where its rows are contiguous bytes, one below the other; else a copy."""
    row = plane.shape[1:]
    inner = (2, 1) if len(row) == 2 else (1,)
    if plane.strides[1:] == inner and np.prod(row) <= plane.strides[0] < 2**31:
        return plane
    return np.array(plane, order="C")


def measured_tuning(y: ArrayLike, uv: ArrayLike) -> Tuning:
    """The tuning of the default set that fits the noise of a picture, measured without a clean one: a
    luma plane (height, width) and its chroma plane of U/V pairs. What has no noise is switched off."""
    y, uv = np.asarray(y), np.asarray(uv)
    if y.ndim != 2:
        raise ValueError(f"y must be a plane of (height, width), not of shape {y.shape}")
    height, width = y.shape
    y = _in_rows(_array(y, y.shape, "y"))
    uv = _in_rows(_array(uv, ((height + 1) // 2, (width + 1) // 2, 2), "uv"))
    first = uv.ctypes.data
    frame = _native.NoiseFrame(
        y.ctypes.data, first, first + 1, width, height, y.strides[0], uv.strides[0], 2
    )
    follower, luma, chroma = _native.Follower(), _native.LumaParam(), _native.ChromaParam()
    records = map(ctypes.byref, (frame, luma, chroma))
    handle = _native.tuning_lib.vorn_tuning_default(None)
    code = _native.tuning_lib.vorn_tuning_follow(ctypes.byref(follower), handle, None, *records)
    _native.tuning_lib.vorn_tuning_free(handle)
    if code != 0:
        raise DenoiseError(f"the noise of a picture of {width}x{height} cannot be measured ({code})")
    return Tuning(LumaTuning(**_values(luma)), ChromaTuning(**_values(chroma)))


Gain = Union[float, str, None]


def _pick(tuning: Optional[Tuning], gain: Gain, y: Any, uv: Any) -> Tuning:
    """The tuning that the caller gave, or the default set's for a gain, or for the measured noise."""
    if tuning is not None and gain is not None:
        raise ValueError("give a tuning or a gain, not both")
    if tuning is not None:
        return tuning
    if isinstance(gain, str):
        if gain != "auto":
            raise TypeError(f'gain must be a number or "auto", not {gain!r}')
        return measured_tuning(y, uv)
    return _default_tuning(DEFAULT_GAIN if gain is None else gain)


def denoise_nv12(
    frame: ArrayLike,
    tuning: Optional[Tuning] = None,
    *,
    gain: Gain = None,
    luma: bool = True,
    chroma: bool = True,
    fine: bool = False,
) -> Bytes:
    """Denoises one NV12 frame, (height * 3 / 2, width) uint8, with a tuning or the default for a gain;
    gain="auto" measures the noise, fine=True takes the fine mode.

    For more than one frame of a size a Denoiser saves the set-up."""
    frame = np.asarray(frame)
    if frame.ndim != 2 or frame.shape[0] % 3 or frame.shape[1] % 2 or not frame.size:
        raise ValueError(
            "an NV12 frame has height * 3 / 2 rows of width bytes, both sides even, not the shape "
            f"{frame.shape}"
        )
    frame = _array(frame, frame.shape, "frame")
    height, width = frame.shape[0] // 3 * 2, frame.shape[1]
    pairs = frame[height:].reshape(height // 2, width // 2, 2) if gain == "auto" else None
    tuning = _pick(tuning, gain, frame[:height], pairs)
    with Denoiser(width, height) as denoiser:
        return denoiser.nv12(frame, tuning, luma=luma, chroma=chroma, fine=fine)


def denoise_planes(
    y: ArrayLike,
    uv: ArrayLike,
    tuning: Optional[Tuning] = None,
    *,
    gain: Gain = None,
    luma: bool = True,
    chroma: bool = True,
    fine: bool = False,
) -> Tuple[Bytes, Bytes]:
    """Denoises a luma plane (height, width) and its chroma plane of U/V pairs, of any size.

    gain="auto" measures the noise, fine=True takes the fine mode."""
    y = np.asarray(y)
    if y.ndim != 2:
        raise ValueError(f"y must be a plane of (height, width), not of shape {y.shape}")
    tuning = _pick(tuning, gain, y, uv)
    with Denoiser(y.shape[1], y.shape[0]) as denoiser:
        return denoiser.planes(y, uv, tuning, luma=luma, chroma=chroma, fine=fine)


class _PictureDenoiser(Denoiser):
    """For pictures that are looked at, of any size: padded as bindings/padded_size.h says."""

    def _filtered_size(self) -> Tuple[int, int]:
        return max(self.width + -self.width % 16, 128), self.height + -self.height % 4


def denoise_rgb(
    rgb: ArrayLike,
    tuning: Optional[Tuning] = None,
    *,
    gain: Gain = None,
    luma: bool = True,
    chroma: bool = True,
    fine: bool = False,
    bgr: bool = False,
) -> Bytes:
    """Denoises an RGB picture, (height, width, 3) uint8, of any size: an array, or a Pillow image of
    mode RGB. bgr=True takes and gives the order of OpenCV, gain="auto" measures the noise, fine=True takes
    the fine mode.

    Works in full-range BT.601 YCbCr 4:2:0, as JPEG does: with chroma on, colour comes back at half
    its resolution; with chroma off the colour differences stay as they were.
    """
    rgb = np.asarray(rgb)
    if rgb.ndim != 3 or rgb.shape[2] != 3 or rgb.dtype != np.uint8:
        raise ValueError(
            f"an RGB picture is uint8 of (height, width, 3), not {rgb.dtype} of {rgb.shape}"
        )
    if bgr:
        rgb = rgb[..., ::-1]
    y, uv = colour.split(rgb)
    tuning = _pick(tuning, gain, y, uv)
    with _PictureDenoiser(y.shape[1], y.shape[0]) as denoiser:
        new_y, new_uv = denoiser.planes(y, uv, tuning, luma=luma, chroma=chroma, fine=fine)
    result = colour.join(new_y, new_uv) if chroma else colour.add_to_luma(rgb, y, new_y)
    return np.ascontiguousarray(result[..., ::-1]) if bgr else result
