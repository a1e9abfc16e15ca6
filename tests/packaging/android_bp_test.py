#!/usr/bin/env python3
"""Android.bp against the CMake build of the same library: the same files, and the flags that decide
the bytes.

    android_bp_test.py SOURCE_DIR COMPILE_COMMANDS_JSON     (of a build with ANDROID on)
"""

import json
import re
import sys
from pathlib import Path

root = Path(sys.argv[1]).resolve()


def modules(text):
    """The file's modules as (type, properties): the syntax is JSON with bare keys, // comments and
    commas before closing brackets."""
    text = re.sub(r"//[^\n]*", "", text)
    for kind, body in re.findall(r"^(\w+) (\{.*?^\})", text, re.S | re.M):
        body = re.sub(r"(\w+):(?=\s)", r'"\1":', body)
        yield kind, json.loads(re.sub(r",(\s*[\]}])", r"\1", body))


def expand(patterns):
    return {str(p.relative_to(root)) for pattern in patterns for p in root.glob(pattern)}


named = {
    body["name"]: (kind, body)
    for kind, body in modules((root / "Android.bp").read_text())
    if "name" in body
}
defaults = named["libvornynr2cnr4_defaults"][1]
library = named["libvornynr2cnr4"][1]
dot = named["libvornynr2cnr4_dot"][1]
plain_files = expand(library["srcs"]) - expand(library["exclude_srcs"])
# A pattern like */*_neon_dot.cpp must not reach beyond the library's folders.
dot_files = expand(dot["srcs"])

built = {}
for entry in json.loads(Path(sys.argv[2]).read_text()):
    command = entry["command"]
    if "vorn_objects.dir" in command:
        built[str(Path(entry["file"]).relative_to(root))] = command.split()

faults = []
if library["export_include_dirs"] != ["include"]:
    faults.append(f"other folders than the public headers' are exported: {library['export_include_dirs']}")
for name in sorted((plain_files | dot_files) ^ built.keys()):
    faults.append(f"{name}: only in {'CMake' if name in built else 'Android.bp'}")
for name in sorted(plain_files & dot_files):
    faults.append(f"{name}: twice in Android.bp")
for name, command in sorted(built.items()):
    march = [a for a in command if a.startswith("-march=")]
    wanted = [a for a in dot["cflags"] if a.startswith("-march=")] if name in dot_files else []
    if march != wanted:
        faults.append(f"{name}: CMake compiles it with {march}, Android.bp with {wanted}")
    for flag in command:
        # __ANDROID__ is the device compiler's own.
        if flag in ("-fPIC", "-DNDEBUG", "-D__ANDROID__") or not flag.startswith(("-f", "-D", "-mb")):
            continue
        if flag not in defaults["cflags"]:
            faults.append(f"{name}: {flag} is missing in Android.bp")

print("\n".join(sorted(set(faults))) or f"{len(built)} files, the same in both")
sys.exit(1 if faults else 0)
