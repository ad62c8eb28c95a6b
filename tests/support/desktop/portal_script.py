"""What the test portal scripts share: reading interface definitions, turning D-Bus values into
JSON-ready ones for the call log, and owning the bus name around the main loop."""
from gi.repository import Gio, GLib

SYSTEM_INTERFACES = "/usr/share/dbus-1/interfaces/"


def interface(name, path=None):
    """One interface from its XML definition; the system's copy unless a file is named."""
    with open(path or SYSTEM_INTERFACES + name + ".xml", encoding="utf-8") as source:
        return Gio.DBusNodeInfo.new_for_xml(source.read()).lookup_interface(name)


def plain(value):
    if isinstance(value, GLib.Variant):
        return plain(value.unpack())
    if isinstance(value, dict):
        return {key: plain(item) for key, item in value.items()}
    if isinstance(value, (list, tuple)):
        return [plain(item) for item in value]
    if isinstance(value, bytes):
        return value.decode("utf-8", "replace")
    return value


def serve(connection, bus_name):
    """Owns the bus name, prints "ready" once it is owned, and runs until it is lost."""
    loop = GLib.MainLoop()
    owned = []

    def on_acquired(_conn, _name):
        owned.append(True)
        if len(owned) == 1:
            print("ready", flush=True)

    Gio.bus_own_name_on_connection(connection, bus_name, Gio.BusNameOwnerFlags.NONE, on_acquired,
                                   lambda _conn, _name: loop.quit())
    loop.run()
