#!/usr/bin/env python3
"""The library's includes go one way: no room includes one above it, no two headers each other.

    include_graph.py SOURCE_DIR
"""
import pathlib
import re
import sys

ROOMS = ["include", "base", "runtime", "pyramid", "cnr", "ynr", "api"]  # lowest first
APART = {("ynr", "cnr")}  # equals: neither may include the other

root = pathlib.Path(sys.argv[1])
files = [f.relative_to(root) for room in ROOMS for f in (root / room).rglob("*.*")
         if f.suffix in (".h", ".cpp")]
graph = {}
for file in files:
    named = re.findall(r'^\s*#\s*include\s+"([^"]+)"', (root / file).read_text(), re.M)
    graph[file] = [pathlib.Path(n if (root / n).exists() else f"include/{n}") for n in named]
for file in (root / "bindings").rglob("*.*"):
    if file.suffix in (".c", ".h", ".cpp") and re.search(rf'#\s*include\s+"({"|".join(ROOMS[1:])})/', file.read_text()):
        sys.exit(f"{file} includes a room of the library: bindings see include/ alone")
faults = [f"{file} includes {to}: no such file of the library" for file in graph
          for to in graph[file] if to not in graph]
for file, included in graph.items():
    for to in included:
        up = ROOMS.index(to.parts[0]) > ROOMS.index(file.parts[0]) if to in graph else False
        if up or (file.parts[0], to.parts[0]) in APART:
            faults.append(f"{file} includes {to}: not below it")
        if "exported" in to.parts and "exported" not in file.parts:
            faults.append(f"{file} includes {to}: what runs does not need what is only exported")


def walk(file, path):
    if file in path:
        faults.append("a circle: " + " -> ".join(map(str, path[path.index(file):] + [file])))
    elif file not in done:
        for to in graph.get(file, []):
            walk(to, path + [file])
        done.add(file)


# A source and its header are one unit: what either includes, both do.
units = {}
for file, included in graph.items():
    units.setdefault(file.with_suffix(""), []).extend(
        to.with_suffix("") for to in included if to.with_suffix("") != file.with_suffix(""))
graph, done = units, set()
for unit in graph:
    walk(unit, [])
print("\n".join(sorted(set(faults))) or f"{len(files)} files, every include goes down")
sys.exit(1 if faults else 0)
