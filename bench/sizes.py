#!/usr/bin/env python3
"""What the library costs in flash and at load, per property of the catalogue.

    sizes.py LIBRARY OBJECT_DIRECTORY TABLE...

LIBRARY is a release build. OBJECT_DIRECTORY has the objects of the generated code and the frame,
which is what grows with the catalogue.
"""

import pathlib
import re
import subprocess
import sys
import tempfile


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def sections(path):
    """Section sizes by name prefix: an object has one text section a function template."""
    for line in output("size", "-A", path).splitlines():
        match = re.match(r"(\.\S+)\s+(\d+)", line)
        if match:
            yield match[1], int(match[2])


def text_size(path):
    return sum(size for name, size in sections(path) if re.match(r"\.text(\.|$)", name))


def report(what, value, properties, bar=None):
    each = value / properties
    verdict = "" if bar is None else f"  (bar {bar:g}: {'met' if each <= bar else 'MISSED'})"
    print(f"{what:<48} {value:>8}  {each:>8.2f} a property{verdict}")


def main():
    library, objects, *tables = sys.argv[1:]
    properties = sum(
        len(re.findall(r"<property\s", pathlib.Path(table).read_text())) for table in tables
    )
    print(f"{len(tables)} interfaces, {properties} properties")

    with tempfile.TemporaryDirectory() as scratch:
        stripped = f"{scratch}/stripped"
        output("strip", "-o", stripped, library)
        whole_text = text_size(stripped)
        loaded = int(output("size", stripped).splitlines()[1].split()[0])
        relocations = output("readelf", "-rW", stripped)
    looked_up = len(re.findall(r"\bR_\w+_(?:GLOB_DAT|JUMP_SLOT?|ABS64|64|COPY)\b", relocations))

    code = sum(text_size(path) for path in pathlib.Path(objects).glob("*.o"))
    entries = sum(
        text_size(path) for path in pathlib.Path(objects).glob("meson-generated_*_server.cpp.o")
    )
    report(".text of generated code and frame", code, properties, 450)
    report(".text of generated code", entries, properties)
    report(".text of the whole library", whole_text, properties)
    report("loaded read-only (size's text)", loaded, properties)
    report("relocations that look up a symbol", looked_up, properties)


main()
