#!/usr/bin/python3
"""A client of a host: prints the paths of its objects, then what is added, changed and removed.

    client.py [SERVICE [ROOT]]
"""
import sys

from gi.repository import Gio, GLib

given = dict(enumerate(sys.argv))
service = given.get(1, "com.orvane.velmar.inventory")
root = given.get(2, "/com/orvane/velmar")


def show(word, entry, *more):
    print(word, entry.get_object_path(), *more, flush=True)


def changed(_manager, entry, interface, values, _invalidated):
    for name, value in values.unpack().items():
        show("changed", entry, interface.get_interface_name(), name, value)


# It calls GetManagedObjects, and keeps what it knows up to date by the signals.
manager = Gio.DBusObjectManagerClient.new_for_bus_sync(
    Gio.BusType.SYSTEM, Gio.DBusObjectManagerClientFlags.NONE, service, root, None, None, None)
manager.connect("object-added", lambda _manager, entry: show("added", entry))
manager.connect("object-removed", lambda _manager, entry: show("removed", entry))
manager.connect("interface-proxy-properties-changed", changed)
for known in manager.get_objects():
    show("found", known)
GLib.MainLoop().run()
