"""Noise reduction for 8-bit YUV 4:2:0 frames, on numpy arrays.

    import vornycnr
    clean = vornycnr.denoise_rgb(noisy, gain=8)          # height x width x 3, uint8

    tuning = vornycnr.TuningSet.load("sensor.json").nearest(8)
    with vornycnr.Denoiser(1920, 1080) as denoiser:      # one size, many frames
        for frame in frames:                             # 1620 x 1920, NV12
            show(denoiser.nv12(frame, tuning))

The work is done by the shared library libvornynr2cnr4; the environment variable VORN_LIBRARY names
another file to load instead of the installed one.
"""

from ._native import set_log_level
from .denoiser import Denoiser, DenoiseError, denoise_nv12, denoise_planes, denoise_rgb
from .tuning import (
    ChromaTuning,
    LumaTuning,
    Tuning,
    TuningEntry,
    TuningError,
    TuningSet,
    default_tuning_set,
)

__all__ = [
    "ChromaTuning",
    "Denoiser",
    "DenoiseError",
    "LumaTuning",
    "Tuning",
    "TuningEntry",
    "TuningError",
    "TuningSet",
    "default_tuning_set",
    "denoise_nv12",
    "denoise_planes",
    "denoise_rgb",
    "set_log_level",
]
