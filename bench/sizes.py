#!/usr/bin/env python3
"""What the library costs in flash and at load, per property of the catalogue.

    sizes.py LIBRARY OBJECT_DIRECTORY TABLE...

LIBRARY is a release build, and OBJECT_DIRECTORY has its objects. What the stand-ins of sdbusplus
and sdeventplus bring into the library counts too.
"""

import pathlib
import re
import subprocess
import sys
import tempfile

# Of what is loaded read-only. The first is what the library had before a host could answer a call
# later, per property; the second is what the functions for that may add, one answering function a
# method among them, which doesn't grow with the properties.
LOADED_PER_PROPERTY = 1348
LOADED_FOR_ANSWERS = 60 * 1024


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
    verdict = "" if bar is None else f"  (bar {bar:.6g}: {'met' if each <= bar else 'MISSED'})"
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

    entries = sum(
        text_size(path) for path in pathlib.Path(objects).glob("meson-generated_*_server.cpp.o")
    )
    verdict = "met" if whole_text <= 480 * 1024 else "MISSED"
    print(f".text of the whole library: {whole_text / 1024:.0f} KiB (bar 480: {verdict})")
    report(".text of the whole library", whole_text, properties, 450)
    report(".text of generated code", entries, properties, 450)
    loaded_bar = LOADED_PER_PROPERTY + LOADED_FOR_ANSWERS / properties
    report("loaded read-only (size's text)", loaded, properties, loaded_bar)
    report("relocations that look up a symbol", looked_up, properties, 0.65)


main()
