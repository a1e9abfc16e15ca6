"""The denoiser for one frame size, and one-call forms for single pictures."""

import ctypes
import threading

import numpy as np

from . import _native
from .tuning import Tuning, default_tuning_set

DEFAULT_GAIN = 8


class DenoiseError(RuntimeError):
    """The library refused; its log line on standard error has the reason."""


class Denoiser:
    """Denoises frames of one size. Use it in a with statement, or call close().

    Any sizes are taken; odd ones are padded inside and cropped again. Frames go through one at a time
    (a lock sees to that); several denoisers work side by side, without the interpreter's lock.
    """

    def __init__(self, width, height):
        self._handle = None
        if width < 1 or height < 1:
            raise ValueError(f"a frame of {width}x{height} has no pixels")
        self.width, self.height = int(width), int(height)
        self._padded_width, self._padded_height = (self.width + 1) & ~1, (self.height + 1) & ~1
        self._lock = threading.Lock()
        size = _native.InitParam(self._padded_width, self._padded_height)
        self._handle = _native.lib.vorn_ycnr_init(ctypes.byref(size))
        if not self._handle:
            raise DenoiseError(f"no denoiser for frames of {width}x{height}")

    def close(self):
        handle, self._handle = self._handle, None
        if handle:
            _native.lib.vorn_ycnr_deinit(handle)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def __del__(self):
        if getattr(self, "_handle", None):
            self.close()

    def capability(self):
        """Names, versions and scratch sizes, as a dict of dicts: library, luma, chroma."""
        record = _native.Capability()
        if _native.lib.vorn_ycnr_capability(self._open_handle(), ctypes.byref(record)) != 0:
            raise DenoiseError("the library does not tell its capability")

        def head(r):
            texts = {
                key: getattr(r, key).decode()
                for key in ("name", "build_date", "build_time", "version")
            }
            return {**texts, "memory_mb": r.memory_mb}

        return {"library": head(record), "luma": head(record.ynr), "chroma": head(record.cnr)}

    def nv12(self, frame, tuning=None, *, luma=True, chroma=True):
        """Denoises one NV12 frame of an even size: (height * 3 / 2, width) uint8, in and out."""
        frame = np.asarray(frame)
        if self.width % 2 or self.height % 2:
            raise ValueError("an odd size has no single-array form; use planes()")
        _check(frame, (self.height * 3 // 2, self.width), "frame")
        return self._run(np.array(frame, order="C"), tuning, luma, chroma)

    def planes(self, y, uv, tuning=None, *, luma=True, chroma=True):
        """Denoises a luma plane (height, width) with its chroma (rounded up halves, 2), U first.

        Strided views are fine. Returns the two as new arrays."""
        y, uv = np.asarray(y), np.asarray(uv)
        chroma_shape = (self._padded_height // 2, self._padded_width // 2, 2)
        _check(y, (self.height, self.width), "y")
        _check(uv, chroma_shape, "uv")
        source = np.empty((self._padded_height * 3 // 2, self._padded_width), np.uint8)
        source[: self._padded_height] = np.pad(
            y,
            ((0, self._padded_height - self.height), (0, self._padded_width - self.width)),
            "edge",
        )
        source[self._padded_height :] = uv.reshape(self._padded_height // 2, self._padded_width)
        result = self._run(source, tuning, luma, chroma)
        return (
            result[: self.height, : self.width].copy(),
            result[self._padded_height :].reshape(chroma_shape).copy(),
        )

    def _open_handle(self):
        if not self._handle:
            raise ValueError("the denoiser is closed")
        return self._handle

    def _run(self, source, tuning, luma, chroma):
        """source is the library's to overwrite."""
        tuning = tuning or default_tuning_set().nearest(DEFAULT_GAIN)
        result = np.empty_like(source)
        luma_record = tuning.luma._record(luma)
        chroma_record = tuning.chroma._record(chroma)
        parameters = _native.Parameters(
            0, ctypes.pointer(luma_record), ctypes.pointer(chroma_record)
        )
        images = [
            _native.image_over(a, self._padded_width, self._padded_height) for a in (source, result)
        ]
        with self._lock:
            code = _native.lib.vorn_ycnr_process(
                self._open_handle(),
                ctypes.byref(images[0]),
                ctypes.byref(images[1]),
                ctypes.byref(parameters),
            )
        if code != 0:
            raise DenoiseError(
                f"the frame was refused ({code}): the tuning does not fit {self.width}x{self.height}"
            )
        return result


def _check(array, shape, name):
    if array.dtype != np.uint8 or array.shape != shape:
        raise ValueError(
            f"{name} must be uint8 of shape {shape}, not {array.dtype} of {array.shape}"
        )


def _pick(tuning, gain):
    if tuning is not None and gain is not None:
        raise ValueError("give a tuning or a gain, not both")
    return tuning or default_tuning_set().nearest(DEFAULT_GAIN if gain is None else gain)


def denoise_nv12(frame, tuning=None, *, gain=None, luma=True, chroma=True):
    """Denoises one NV12 frame, (height * 3 / 2, width) uint8, with a tuning or the default for a gain."""
    frame = np.asarray(frame)
    if frame.ndim != 2 or frame.shape[0] % 3:
        raise ValueError(
            f"an NV12 frame has height * 3 / 2 rows of width bytes, not the shape {frame.shape}"
        )
    with Denoiser(frame.shape[1], frame.shape[0] // 3 * 2) as denoiser:
        return denoiser.nv12(frame, _pick(tuning, gain), luma=luma, chroma=chroma)


def denoise_planes(y, uv, tuning=None, *, gain=None, luma=True, chroma=True):
    """Denoises a luma plane and its chroma plane of U/V pairs, of any size."""
    height, width = np.shape(y)
    with Denoiser(width, height) as denoiser:
        return denoiser.planes(y, uv, _pick(tuning, gain), luma=luma, chroma=chroma)


def denoise_rgb(rgb, tuning=None, *, gain=None, luma=True, chroma=True):
    """Denoises an RGB picture, (height, width, 3) uint8, of any size.

    Works in full-range BT.601 YCbCr 4:2:0, as JPEG does: with chroma on, colour comes back at half
    its resolution; with chroma off it stays as it was.
    """
    rgb = np.asarray(rgb)
    if rgb.ndim != 3 or rgb.shape[2] != 3 or rgb.dtype != np.uint8:
        raise ValueError(
            f"an RGB picture is uint8 of (height, width, 3), not {rgb.dtype} of {rgb.shape}"
        )
    height, width = rgb.shape[:2]
    ycc = rgb.astype(np.float32) @ _RGB_TO_YCC.T
    y = _to_bytes(ycc[..., 0])
    uv = _to_bytes(_halve(ycc[..., 1:]) + 128)
    new_y, new_uv = denoise_planes(y, uv, tuning, gain=gain, luma=luma, chroma=chroma)
    ycc[..., 0] += new_y.astype(np.float32) - y
    if chroma:
        ycc[..., 1:] = _double(new_uv.astype(np.float32) - 128)[:height, :width]
    return _to_bytes(ycc @ _YCC_TO_RGB.T)


_RGB_TO_YCC = np.array(
    [
        [0.299, 0.587, 0.114],
        [-0.299 / 1.772, -0.587 / 1.772, 0.5],
        [0.5, -0.587 / 1.402, -0.114 / 1.402],
    ],
    np.float32,
)
_YCC_TO_RGB = np.linalg.inv(_RGB_TO_YCC.astype(np.float64)).astype(np.float32)


def _to_bytes(values):
    return np.clip(values + 0.5, 0, 255).astype(np.uint8)


def _halve(planes):
    """Means of 2x2 pixels; an odd last column or row stands for the missing one."""
    height, width = planes.shape[:2]
    even = np.pad(planes, ((0, height % 2), (0, width % 2), (0, 0)), "edge")
    return even.reshape(even.shape[0] // 2, 2, even.shape[1] // 2, 2, -1).mean(axis=(1, 3))


def _double(planes):
    """Twice the size, bilinear, samples centred as _halve() leaves them."""
    for axis in (0, 1):
        last = planes.shape[axis] - 1
        before = np.take(planes, np.maximum(np.arange(last + 1) - 1, 0), axis)
        after = np.take(planes, np.minimum(np.arange(last + 1) + 1, last), axis)
        pair = np.stack([0.75 * planes + 0.25 * before, 0.75 * planes + 0.25 * after], axis + 1)
        shape = list(planes.shape)
        shape[axis] *= 2
        planes = pair.reshape(shape)
    return planes
