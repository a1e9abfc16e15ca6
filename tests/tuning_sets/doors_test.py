#!/usr/bin/env python3
"""Runs every set of good/ and bad/, and large ones made here, through the three doors (command-line
tool, GStreamer element, Python module) and compares their verdicts; then a short video, blended over
time, whose bytes have to agree.

    doors_test.py SCRATCH_DIR VORN_YCNR

The plugin is found by GST_PLUGIN_PATH, the module by PYTHONPATH.
"""

import subprocess
import sys
import time
from pathlib import Path

import numpy as np
import vornycnr

here = Path(__file__).resolve().parent
scratch = Path(sys.argv[1])
tool = sys.argv[2]
scratch.mkdir(parents=True, exist_ok=True)

HEAD = '{"format": "vorn-ycnr tuning set", "version": 1, '
made = {
    "nested_arrays": "[" * 100000,
    "nested_objects": '{"format":' * 100000,
    "many_keys": HEAD + ", ".join(f'"k{i}": 1' for i in range(200000)) + "}",
    "ten_megabytes": HEAD + " " * 10_000_000 + '"entries": []}',
    "long_name": HEAD + '"name": "' + "x" * 5_000_000 + '", "entries": []}',
}
for name, text in made.items():
    (scratch / f"{name}.json").write_text(text)


def by_tool(path):
    result = subprocess.run([tool, "tuning", "check", path], capture_output=True, timeout=20)
    return result.returncode == 0, result.stderr.decode(errors="replace")


def by_element(path):
    result = subprocess.run(
        ["gst-launch-1.0", "-q", "videotestsrc", "num-buffers=1", "!", "vornycnr",
         f"tuning-file={path}", "!", "fakesink"], capture_output=True, timeout=20)  # fmt: skip
    return result.returncode == 0, result.stderr.decode(errors="replace")


def by_module(path):
    try:
        vornycnr.TuningSet.load(path)
        return True, ""
    except vornycnr.TuningError as error:
        return False, str(error)


causes = dict(row.split(": ", 1) for row in (here / "bad.txt").read_text().splitlines())
wrong = 0
paths = [*sorted((here / "good").iterdir()), *sorted((here / "bad").iterdir())]
for path in [*paths, *sorted(scratch.glob("*.json"))]:
    start = time.monotonic()
    verdicts = [door(str(path)) for door in (by_tool, by_element, by_module)]
    good = path.parent.name == "good"
    told = good or all(causes.get(path.name, "") in text and path.name in text for _, text in verdicts)
    # A hundred times what any of them needs, the start of a pipeline included.
    slow = time.monotonic() - start > 10
    if [taken for taken, _ in verdicts] != [good] * 3 or not told or slow:
        wrong += 1
        print(f"WRONG {path}: {verdicts}{' (slow)' if slow else ''}")
WIDTH, HEIGHT, CUT, FRAMES = 192, 128, 3, 6


def video():
    """Noise over a ramp; at CUT the ramp turns round."""
    random = np.random.default_rng(1)
    ramp = np.tile(np.linspace(60, 180, WIDTH), (HEIGHT * 3 // 2, 1))
    ramp[HEIGHT:] = 120
    frames = [ramp if i < CUT else ramp[:, ::-1] for i in range(FRAMES)]
    return [np.rint(random.normal(f, 5)).astype(np.uint8) for f in frames]


frames = video()
source = scratch / f"video_{WIDTH}x{HEIGHT}.nv12"
source.write_bytes(b"".join(f.tobytes() for f in frames))
results = [scratch / f"by_{door}.nv12" for door in ("tool", "element")]
subprocess.run([tool, "denoise", source, "-o", results[0], "--gain", "8", "--temporal"], check=True)
subprocess.run(
    ["gst-launch-1.0", "-q", "filesrc", f"location={source}", "!", "rawvideoparse", "format=nv12",
     f"width={WIDTH}", f"height={HEIGHT}", "!", "vornycnr", "gain=8", "temporal=true", "!", "filesink",
     f"location={results[1]}"], check=True, timeout=60)  # fmt: skip
with vornycnr.Denoiser(WIDTH, HEIGHT) as denoiser:
    steady = [denoiser.nv12(f, temporal=True) for f in frames]
    denoiser.restart()
    again = denoiser.nv12(frames[1], temporal=True)
    alone = [denoiser.nv12(f) for f in frames]
by_module_bytes = b"".join(f.tobytes() for f in steady)
agree = all(r.read_bytes() == by_module_bytes for r in results) and np.array_equal(again, alone[1])
kept = [i for i in range(FRAMES) if np.array_equal(steady[i], alone[i])]
if not agree or kept != [0, CUT]:
    wrong += 1
    print(f"WRONG video: the doors agree: {agree}; frames without blend: {kept}")
print(f"{len(paths) + len(made)} sets through three doors, {wrong} with wrong or different verdicts")
sys.exit(wrong != 0)
