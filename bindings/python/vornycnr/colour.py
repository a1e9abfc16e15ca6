"""RGB to full-range BT.601 YCbCr 4:2:0 and back, as JPEG has it: by OpenCV where it is installed, else
by numpy. Both round as OpenCV does and differ by at most 2 of 255 after the way back."""

from __future__ import annotations

from typing import Tuple

import numpy as np
from numpy.typing import NDArray

try:
    import cv2
except ImportError:
    cv2 = None

Bytes = NDArray[np.uint8]

_ROWS = 64  # worked on at a time by numpy, even: what a core's own cache holds


def split(rgb: Bytes) -> Tuple[Bytes, Bytes]:
    """The luma plane, and U/V pairs that are means of 2x2 pixels; an odd last column or row stands
    for the missing one."""
    height, width = rgb.shape[:2]
    if cv2 is not None:
        ycc = cv2.cvtColor(np.ascontiguousarray(rgb), cv2.COLOR_RGB2YCrCb)
        y, cr, cb = cv2.split(ycc)
        if height % 2 or width % 2:
            cr, cb = (
                cv2.copyMakeBorder(p, 0, height % 2, 0, width % 2, cv2.BORDER_REPLICATE)
                for p in (cr, cb)
            )
        half = ((width + 1) // 2, (height + 1) // 2)
        return y, cv2.merge([cv2.resize(p, half, interpolation=cv2.INTER_AREA) for p in (cb, cr)])
    y = np.empty((height, width), np.uint8)
    uv = np.empty(((height + 1) // 2, (width + 1) // 2, 2), np.uint8)
    for top in range(0, height, _ROWS):
        part = rgb[top : top + _ROWS].astype(np.int32)
        r, g, b = part[..., 0], part[..., 1], part[..., 2]
        luma = (r * 4899 + g * 9617 + b * 1868 + 8192) >> 14
        y[top : top + _ROWS] = luma
        for index, difference in enumerate(((b - luma) * 9241, (r - luma) * 11682)):
            plane = np.clip((difference + (128 << 14) + 8192) >> 14, 0, 255)
            rows, columns = plane.shape
            if rows % 2 or columns % 2:
                plane = np.pad(plane, ((0, rows % 2), (0, columns % 2)), "edge")
            pairs = plane[:, 0::2] + plane[:, 1::2]
            uv[top // 2 : (top + _ROWS) // 2, :, index] = (pairs[0::2] + pairs[1::2] + 2) >> 2
    return y, uv


def join(y: Bytes, uv: Bytes) -> Bytes:
    """RGB of a luma plane and its U/V pairs, which are enlarged bilinearly."""
    height, width = y.shape
    if cv2 is not None:
        full = (uv.shape[1] * 2, uv.shape[0] * 2)
        cb, cr = cv2.split(cv2.resize(np.ascontiguousarray(uv), full, interpolation=cv2.INTER_LINEAR)[:height, :width])
        return cv2.cvtColor(cv2.merge([y, cr, cb]), cv2.COLOR_YCrCb2RGB)
    rgb = np.empty((height, width, 3), np.uint8)
    for top in range(0, height, _ROWS):
        luma = y[top : top + _ROWS].astype(np.int32)
        rows = slice(top, top + len(luma))
        cb, cr = (plane - 128 for plane in _enlarged(uv, rows, width))
        rgb[rows, :, 0] = np.clip(luma + ((cr * 22987 + 8192) >> 14), 0, 255)
        rgb[rows, :, 1] = np.clip(luma + ((cb * -5636 + cr * -11698 + 8192) >> 14), 0, 255)
        rgb[rows, :, 2] = np.clip(luma + ((cb * 29049 + 8192) >> 14), 0, 255)
    return rgb


def add_to_luma(rgb: Bytes, before: Bytes, after: Bytes) -> Bytes:
    """The picture with its luma changed and its colour differences kept: what luma gains or loses,
    each of R, G and B does."""
    more = np.where(after > before, after - before, 0).astype(np.uint8)[..., None]
    less = np.where(after < before, before - after, 0).astype(np.uint8)[..., None]
    out = rgb + np.minimum(more, 255 - rgb)
    out -= np.minimum(less, out)
    return out


def _enlarged(uv: Bytes, rows: slice, width: int):
    """U and V of some rows at full size, samples centred in the 2x2 pixels that they stand for."""
    last = uv.shape[0] - 1
    y = np.arange(rows.start, rows.stop)
    near, far = y // 2, np.clip(y // 2 + np.where(y % 2, 1, -1), 0, last)
    first, end = min(near[0], far[0]), max(near[-1], far[-1]) + 1
    for index in range(2):
        plane = uv[first:end, :, index].astype(np.int32)
        tall = 3 * plane[near - first] + plane[far - first]
        before = np.concatenate([tall[:, :1], tall[:, :-1]], 1)
        after = np.concatenate([tall[:, 1:], tall[:, -1:]], 1)
        wide = np.empty((len(y), 2 * tall.shape[1]), np.int32)
        wide[:, 0::2] = (3 * tall + before + 8) >> 4
        wide[:, 1::2] = (3 * tall + after + 8) >> 4
        yield wide[:, :width]
