#!/usr/bin/env python3
"""Runs every set of good/ and bad/, and large ones made here, through the three doors (command-line
tool, GStreamer element, Python module) and compares their verdicts.

    doors_test.py SCRATCH_DIR VORN_YCNR

The plugin is found by GST_PLUGIN_PATH, the module by PYTHONPATH.
"""

import subprocess
import sys
import time
from pathlib import Path

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
print(f"{len(paths) + len(made)} sets through three doors, {wrong} with wrong or different verdicts")
sys.exit(wrong != 0)
