#!/usr/bin/env python3
"""Fails when a source includes a header of a higher layer.

The layers, lowest first: utils, core/hash, core/archive, core/math, core/metadata,
core/skeleton, core/pose, core/ik, the files directly in core/ (start-up and the umbrella
header), tools. A file may include its own layer and those below; tests/ and bench/ may include
anything. Only quoted includes count (system and dependency headers use <...>).
"""
import pathlib
import re
import subprocess
import sys

LAYERS = ["utils", "core/hash", "core/archive", "core/math", "core/metadata", "core/skeleton",
          "core/pose", "core/ik", "core", "tools"]
FREE = ("tests/", "bench/")
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"')


def layer(path):
    """Rank of the layer a repository path belongs to; None outside the layers."""
    parts = path.split("/")
    if parts[0] == "core" and len(parts) > 2:
        name = "core/" + parts[1]
    else:
        name = parts[0]
    return LAYERS.index(name) if name in LAYERS else None


def main():
    root = pathlib.Path(__file__).resolve().parent.parent
    files = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard",
                            "*.h", "*.cpp"], cwd=root, check=True, capture_output=True,
                           text=True).stdout.split()
    errors = []
    for f in files:
        if f.startswith(FREE):
            continue
        own = layer(f)
        for n, line in enumerate((root / f).read_text(errors="replace").splitlines(), 1):
            m = INCLUDE.match(line)
            if not m:
                continue
            target = layer(m.group(1))
            if target is None:
                errors.append(f"{f}:{n}: \"{m.group(1)}\" is in no layer")
            elif own is not None and target > own:
                errors.append(f"{f}:{n}: {LAYERS[own]} includes \"{m.group(1)}\" of the higher "
                              f"layer {LAYERS[target]}")
    for e in errors:
        print(e, file=sys.stderr)
    if errors:
        print(f"layer check: {len(errors)} wrong-way include(s); order: "
              + " -> ".join(LAYERS), file=sys.stderr)
        return 1
    print(f"layer check: {len(files)} files, no wrong-way include")
    return 0


if __name__ == "__main__":
    sys.exit(main())
