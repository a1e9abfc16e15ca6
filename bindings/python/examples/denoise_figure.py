#!/usr/bin/env python3
"""Denoises a picture and draws what happened, as a notebook would: the picture before and after, what
was taken away, and how well each strength of the default set does.

    denoise_figure.py [-o FIGURE.png] [--gain G] [PICTURE]

Without a picture it draws a noisy chart of its own, for which the true picture is known.
"""

import argparse

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

import vornycnr


# %% A chart with flat colours, a gradient, edges and fine stripes, and noise that grows with light.
def chart(height=240, width=320):
    y, x = np.mgrid[0:height, 0:width].astype(np.float32)
    picture = np.stack([x / width, y / height, 0.5 + 0.3 * np.sin(x / 40)], -1) * 200 + 20
    picture[40:100, 40:100] = (200, 60, 50)
    picture[60:130, 120:190] = (40, 110, 190)
    picture[(np.hypot(x - 250, y - 80) < 40)] = (230, 215, 160)
    stripes = 110 + 60 * np.sign(np.sin(x * (0.2 + x / 600)))
    picture[170:210] = stripes[170:210, :, None]
    return picture


def with_noise(picture, gain, seed=1):
    random = np.random.default_rng(seed)
    sigma = np.sqrt(gain * (1 + picture * 0.03))
    return np.clip(picture + random.normal(size=picture.shape) * sigma + 0.5, 0, 255).astype(
        np.uint8
    )


def psnr(a, b):
    error = np.mean((a.astype(np.float32) - b.astype(np.float32)) ** 2)
    return 10 * np.log10(255**2 / max(error, 1e-9))


# %% Options
parser = argparse.ArgumentParser(description="Draws a picture before and after denoising.")
parser.add_argument("picture", nargs="?", help="a PNG or JPEG file; none draws a chart")
parser.add_argument("-o", "--output", default="denoise_figure.png")
parser.add_argument("--gain", type=float, default=8)
options = parser.parse_args()

if options.picture:
    noisy = plt.imread(options.picture)[..., :3]
    if noisy.dtype != np.uint8:
        noisy = (noisy * 255 + 0.5).astype(np.uint8)
    truth = None
else:
    truth = chart()
    noisy = with_noise(truth, options.gain)

# %% Denoise: once for the picture's gain, once with every entry of the default set.
clean = vornycnr.denoise_rgb(noisy, gain=options.gain)
entries = vornycnr.default_tuning_set().entries
results = [vornycnr.denoise_rgb(noisy, entry) for entry in entries]


# %% Draw
def show(axis, image, title):
    axis.imshow(image)
    axis.set_title(title)
    axis.set_axis_off()


def named(title, image):
    return title if truth is None else f"{title}: {psnr(image, truth):.1f} dB"


figure, axes = plt.subplots(2, 2, figsize=(10, 7.5), constrained_layout=True)
taken = np.clip(128 + 4.0 * (noisy.astype(np.float32) - clean), 0, 255).astype(np.uint8)
show(axes[0, 0], noisy, named("before", noisy))
show(axes[0, 1], clean, named(f"after, gain {options.gain:g}", clean))
show(axes[1, 0], taken, "taken away, x 4")

axis = axes[1, 1]
gains = [entry.gain for entry in entries]
if truth is None:
    axis.plot(gains, [np.std(noisy.astype(np.float32) - r) for r in results], "o-")
    axis.set_ylabel("taken away, standard deviation")
else:
    axis.plot(gains, [psnr(r, truth) for r in results], "o-", label="after")
    axis.axhline(psnr(noisy, truth), linestyle=":", label="before")
    axis.set_ylabel("PSNR, dB")
    axis.legend()
axis.set_xscale("log", base=2)
axis.set_xlabel("gain entry of the default set")
figure.savefig(options.output, dpi=110)
print(f"{options.output}: {noisy.shape[1]}x{noisy.shape[0]}, gain {options.gain:g}")
if truth is not None:
    print(f"PSNR {psnr(noisy, truth):.2f} dB -> {psnr(clean, truth):.2f} dB")
