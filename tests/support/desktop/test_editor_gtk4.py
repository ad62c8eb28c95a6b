"""The one-field test window of test_editor.py, in GTK 4 (python3-gi, gir1.2-gtk-4.0).

Same JSON commands on standard input and the same replies; see test_editor.py.
"""
import json
import os
import sys

import gi

gi.require_version("Gtk", "4.0")
gi.require_version("Gdk", "4.0")
from gi.repository import Gdk, GLib, GObject, Gtk  # noqa: E402

GLib.set_prgname("sayvo-test-editor-gtk4")
title = sys.argv[1] if len(sys.argv) > 1 else "Sayvo test editor"
keys = []
loop = GLib.MainLoop()

window = Gtk.Window(title=title)
window.set_default_size(600, 80)
entry = Gtk.Entry()
window.set_child(entry)
window.connect("close-request", lambda *_args: loop.quit())


def record(kind):
    def handler(_controller, keyval, _code, _state):
        keys.append(kind + ":" + (Gdk.keyval_name(keyval) or str(keyval)))
        return False
    return handler


controller = Gtk.EventControllerKey()
controller.set_propagation_phase(Gtk.PropagationPhase.CAPTURE)
controller.connect("key-pressed", record("press"))
controller.connect("key-released", record("release"))
window.add_controller(controller)


def reply(value):
    sys.stdout.write(json.dumps(value) + "\n")
    sys.stdout.flush()


def on_command(source, _condition):
    line = source.readline()
    if not line:
        loop.quit()
        return False
    command = json.loads(line)
    name = command.get("cmd")
    if name == "get":
        # The override gives (start, end), or () without a selection.
        bounds = entry.get_selection_bounds()
        if bounds:
            start, end = bounds[-2:]
        else:
            start = end = entry.get_position()
        reply({"text": entry.get_text(), "selection": [start, end], "keys": keys})
    elif name == "set":
        entry.set_text(command["text"])
        start, end = command.get("select", [len(command["text"])] * 2)
        entry.grab_focus()
        entry.select_region(start, end)
        if start == end:
            entry.set_position(start)
        reply({"ok": True})
    elif name == "copy":
        value = GObject.Value(str, command["text"])
        Gdk.Display.get_default().get_clipboard().set_content(
            Gdk.ContentProvider.new_for_value(value))
        reply({"ok": True})
    elif name == "readonly":
        entry.set_editable(not command["value"])
        reply({"ok": True})
    else:
        reply({"error": "unknown command"})
    return True


def announce():
    entry.grab_focus()
    reply({"ready": True, "pid": os.getpid()})
    return False


def on_mapped(*_args):
    GLib.timeout_add(100, announce)


window.connect("map", on_mapped)
GLib.io_add_watch(sys.stdin, GLib.IO_IN | GLib.IO_HUP, on_command)
window.present()
loop.run()
