#!/usr/bin/env python3
"""Every room's README names each of its units.

    room_readmes.py SOURCE_DIR
"""
import pathlib
import re
import sys

ROOMS = ["api", "base", "runtime", "pyramid", "cnr", "ynr", "tuning", "tools", "tools/lab",
         "tools/tuning", "tools/workbench", "tuning/noise", "bindings/gstreamer", "bindings/obs"]

root = pathlib.Path(sys.argv[1])
faults = []
for room in ROOMS:
    page = next(p for p in (root / room / "README.md", root / room / "../README.md") if p.exists())
    named = {word.rsplit(".", 1)[0] for word in re.findall(r"`([\w.]+)`", page.read_text())}
    units = {f.stem for f in (root / room).iterdir() if f.suffix in (".h", ".c", ".cpp")}
    faults += [f"{page.resolve()} does not name {room}/{unit}" for unit in sorted(units - named)]
print("\n".join(faults) or f"{len(ROOMS)} rooms, all their units named")
sys.exit(1 if faults else 0)
