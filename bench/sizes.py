#!/usr/bin/env python3
"""What the library costs in flash and at load, per property of the catalogue.

    sizes.py LIBRARY TABLE...

LIBRARY is a release build. What the stand-ins of sdbusplus and sdeventplus bring into it counts too.
Beside it, where they are installed, the libraries that a host of GDBus loads.
"""

import pathlib
import re
import subprocess
import sys
import tempfile


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def loaded_size(library):
    return int(output("size", library).splitlines()[1].split()[0])


def report(what, value, properties, bar):
    each = value / properties
    verdict = "met" if each <= bar else "MISSED"
    print(f"{what:<39} {value:>8}  {each:>8.2f} a property  (bar {bar}: {verdict})")


def main():
    library, *tables = sys.argv[1:]
    properties = sum(
        len(re.findall(r"<property\s", pathlib.Path(table).read_text())) for table in tables
    )
    print(f"{len(tables)} interfaces, {properties} properties")
    with tempfile.TemporaryDirectory() as scratch:
        stripped = f"{scratch}/stripped"
        output("strip", "-o", stripped, library)
        loaded = loaded_size(stripped)
        text = int(re.search(r"^\.text\s+(\d+)", output("size", "-A", stripped), re.M)[1])
    # 1378 for the catalogue, and 54 KiB for subscriptions and for tables of a host's own.
    report("loaded read-only (size's text)", loaded, properties, 1448)
    report(".text", text, properties, 450)
    peers = re.findall(r"lib(?:gio|gobject|glib)-2\.0\.so\.0 .*=> (\S+)", output("/sbin/ldconfig", "-p"))
    if len(peers) == 3:
        of_gdbus = sum(map(loaded_size, peers))
        print(f"{'libgio, libgobject and libglib':<39} {of_gdbus:>8}  ours {loaded / of_gdbus:.2f} of it")


main()
