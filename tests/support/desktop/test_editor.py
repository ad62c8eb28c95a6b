"""A one-field GTK 3 window for desktop tests.

It answers JSON commands on standard input, one per line, with one JSON line each:
  {"cmd": "get"}                              -> {"text": ..., "selection": [start, end], "keys": [...]}
  {"cmd": "set", "text": ..., "select": [a, b]} -> {"ok": true}
  {"cmd": "copy", "text": ...}                -> {"ok": true}  (puts text on the clipboard)
  {"cmd": "readonly", "value": true}          -> {"ok": true}  (the field takes no more text)
  {"cmd": "shown"}                            -> {"shown": [[ns, length], ...]}
"keys" lists every key press and release the window received, e.g. "press:F5".
"shown" lists, for every change of the field's text, when the field was first drawn with it
(CLOCK_MONOTONIC nanoseconds, the clock of std::chrono::steady_clock) and the text's length.
It prints {"ready": true} once the window is mapped and the field has the focus.
"""
import json
import sys
import time

import gi

gi.require_version("Gtk", "3.0")
gi.require_version("Gdk", "3.0")
from gi.repository import Gdk, GLib, Gtk  # noqa: E402

GLib.set_prgname("sayvo-test-editor")
title = sys.argv[1] if len(sys.argv) > 1 else "Sayvo test editor"
keys = []
shown = []
changed = False

window = Gtk.Window(title=title)
window.set_wmclass("sayvo-test-editor", "SayvoTestEditor")
window.set_default_size(600, 80)
entry = Gtk.Entry()
window.add(entry)
window.connect("destroy", Gtk.main_quit)


def reply(value):
    sys.stdout.write(json.dumps(value) + "\n")
    sys.stdout.flush()


def on_key(_widget, event):
    kind = "press" if event.type == Gdk.EventType.KEY_PRESS else "release"
    keys.append(kind + ":" + (Gdk.keyval_name(event.keyval) or str(event.keyval)))
    return False


window.connect("key-press-event", on_key)
window.connect("key-release-event", on_key)


def on_changed(_entry):
    global changed
    changed = True


def on_drawn(_widget, _cairo):
    # Runs after the entry's own drawing: the frame that shows the new text is being painted.
    global changed
    if changed:
        changed = False
        shown.append([time.monotonic_ns(), len(entry.get_text())])
    return False


entry.connect("changed", on_changed)
entry.connect_after("draw", on_drawn)


def on_command(source, _condition):
    line = source.readline()
    if not line:
        Gtk.main_quit()
        return False
    command = json.loads(line)
    name = command.get("cmd")
    if name == "get":
        bounds = entry.get_selection_bounds()
        if not bounds:
            caret = entry.get_position()
            bounds = (caret, caret)
        reply({"text": entry.get_text(), "selection": list(bounds), "keys": keys})
    elif name == "set":
        entry.set_text(command["text"])
        start, end = command.get("select", [len(command["text"])] * 2)
        entry.grab_focus()
        entry.select_region(start, end)
        if start == end:
            entry.set_position(start)
        reply({"ok": True})
    elif name == "shown":
        reply({"shown": shown})
    elif name == "copy":
        Gtk.Clipboard.get(Gdk.SELECTION_CLIPBOARD).set_text(command["text"], -1)
        reply({"ok": True})
    elif name == "readonly":
        entry.set_editable(not command["value"])
        reply({"ok": True})
    else:
        reply({"error": "unknown command"})
    return True


def on_mapped(*_args):
    entry.grab_focus()
    reply({"ready": True, "pid": __import__("os").getpid()})
    return False


window.connect("map-event", on_mapped)
GLib.io_add_watch(sys.stdin, GLib.IO_IN | GLib.IO_HUP, on_command)
window.show_all()
Gtk.main()
