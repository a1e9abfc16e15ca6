"""Noise reduction for 8-bit YUV 4:2:0 frames, on numpy arrays.

    import vornycnr
    clean = vornycnr.denoise_rgb(noisy, gain=8)          # height x width x 3, uint8

    tuning = vornycnr.TuningSet.load("sensor.json").nearest(8)
    with vornycnr.Denoiser(1920, 1080) as denoiser:      # one size, many frames
        for frame in frames:                             # 1620 x 1920, NV12
            show(denoiser.nv12(frame, tuning))

gain is the sensor gain of a frame, 1 for base sensitivity; a higher gain filters more, and "auto"
measures the noise. Faults are
ValueError (an array, size or gain that cannot be used; TuningError for a tuning), TypeError, OSError
(a file), and DenoiseError where the library itself fails.

The work is done by the shared libraries libvornynr2cnr4 and libvorn_tuning; the environment variables
VORN_LIBRARY and VORN_TUNING_LIBRARY name other files to load instead.
"""

from ._native import set_log_level, tuning_lib as _tuning_lib
from .denoiser import (
    Denoiser,
    DenoiseError,
    denoise_nv12,
    denoise_planes,
    denoise_rgb,
    measured_tuning,
)
from .tuning import (
    ChromaTuning,
    LumaTuning,
    Tuning,
    TuningEntry,
    TuningError,
    TuningSet,
    default_tuning_set,
)

__version__: str = _tuning_lib.vorn_tuning_version().decode()

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
    "measured_tuning",
    "set_log_level",
    "__version__",
]
