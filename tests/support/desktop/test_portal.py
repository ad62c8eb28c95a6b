"""A desktop's side of the GlobalShortcuts and RemoteDesktop portals, for tests.

The real xdg-desktop-portal frontend finds it through a .portal file and calls it as it would
call GNOME's or KDE's backend. No dialog is shown: each request is answered at once, as the
test told it to. It records every call and emits the desktop's signals on request, through a
control object the test calls on the same bus:

  org.sayvo.TestPortal at /org/sayvo/TestPortal
    Calls() -> s                 every call so far, a JSON list of [method, {arguments}]
    SetAnswer(s method, s how)   "grant" (the default), "decline" (response 1),
                                 "decline-once" (response 1 this once, then "grant"),
                                 "cancel" (response 2), "error" (a D-Bus error) or "hang"
                                 (never answer) for later calls of that method
    Emit(s signal, s id)         Activated / Deactivated for shortcut id on the newest
                                 GlobalShortcuts session; ShortcutsChanged with id as the
                                 new trigger description
    EmitFor(s signal, o session, s id)   the same for a session path of the test's choosing

Prints "ready" on standard output once it owns its bus name.
"""
import json
import sys

from gi.repository import Gio, GLib

from portal_script import interface, plain, serve

BUS_NAME = sys.argv[1] if len(sys.argv) > 1 else "org.freedesktop.impl.portal.desktop.sayvotest"
PORTAL_PATH = "/org/freedesktop/portal/desktop"
CONTROL_XML = """
<node>
  <interface name="org.sayvo.TestPortal">
    <method name="Calls"><arg type="s" direction="out"/></method>
    <method name="SetAnswer"><arg type="s" direction="in"/><arg type="s" direction="in"/></method>
    <method name="Emit"><arg type="s" direction="in"/><arg type="s" direction="in"/></method>
    <method name="EmitFor">
      <arg type="s" direction="in"/><arg type="o" direction="in"/><arg type="s" direction="in"/>
    </method>
  </interface>
</node>
"""


shortcuts_info = interface("org.freedesktop.impl.portal.GlobalShortcuts")
remote_info = interface("org.freedesktop.impl.portal.RemoteDesktop")
session_info = interface("org.freedesktop.impl.portal.Session")
control_info = Gio.DBusNodeInfo.new_for_xml(CONTROL_XML).lookup_interface("org.sayvo.TestPortal")

connection = Gio.bus_get_sync(Gio.BusType.SESSION, None)
calls = []
answers = {}
shortcut_sessions = []
session_objects = {}
pending = []
bound_shortcuts = {}


def export_session(path):
    if path in session_objects:
        return

    def on_session_call(_conn, _sender, object_path, _iface, method, _params, invocation):
        calls.append(["Session." + method, {"session": object_path}])
        if method == "Close":
            ident = session_objects.pop(object_path, None)
            if ident is not None:
                connection.unregister_object(ident)
            if object_path in shortcut_sessions:
                shortcut_sessions.remove(object_path)
        invocation.return_value(None)

    session_objects[path] = connection.register_object(path, session_info, on_session_call)


def answer(method, invocation, results):
    how = answers.get(method, "grant")
    if how == "decline-once":
        answers[method] = "grant"
        how = "decline"
    if how == "hang":
        pending.append(invocation)
        return False
    if how == "error":
        invocation.return_dbus_error("org.freedesktop.portal.Error.Failed", "test portal failed")
        return False
    response = {"grant": 0, "decline": 1, "cancel": 2}[how]
    invocation.return_value(GLib.Variant("(ua{sv})", (response, results if response == 0 else {})))
    return response == 0


def shortcut_list(shortcuts, trigger=None):
    listed = []
    for ident, options in shortcuts:
        description = options.get("description", "")
        chosen = trigger if trigger is not None else options.get("preferred_trigger", "")
        listed.append((ident, {"description": GLib.Variant("s", description),
                               "trigger_description": GLib.Variant("s", chosen)}))
    return listed


def on_portal_call(_conn, _sender, _path, iface, method, params, invocation):
    args = params.unpack()
    short = iface.rsplit(".", 1)[-1] + "." + method
    if method in ("CreateSession", "SelectDevices", "Start", "BindShortcuts", "ListShortcuts"):
        session = args[1]
        names = {"CreateSession": ["app_id", "options"], "SelectDevices": ["app_id", "options"],
                 "Start": ["app_id", "parent_window", "options"],
                 "BindShortcuts": ["shortcuts", "parent_window", "options"],
                 "ListShortcuts": []}[method]
        calls.append([short, dict({"session": session}, **dict(zip(names, plain(list(args[2:])))))])
        results = {}
        if method == "CreateSession":
            results = {"session_id": GLib.Variant("s", session)}
        elif method == "BindShortcuts":
            bound_shortcuts[session] = [(ident, plain(options)) for ident, options in args[2]]
            results = {"shortcuts": GLib.Variant("a(sa{sv})", shortcut_list(bound_shortcuts[session]))}
        elif method == "ListShortcuts":
            results = {"shortcuts": GLib.Variant("a(sa{sv})",
                                                 shortcut_list(bound_shortcuts.get(session, [])))}
        elif method == "Start":
            results = {"devices": GLib.Variant("u", 1)}
        if answer(short, invocation, results) and method == "CreateSession":
            export_session(session)
            if iface.endswith("GlobalShortcuts"):
                shortcut_sessions.append(session)
        return
    # The Notify* input methods: recorded in order, nothing to answer.
    calls.append([short, {"session": args[0], "options": plain(args[1]),
                          "values": plain(list(args[2:]))}])
    invocation.return_value(None)


def on_portal_property(_conn, _sender, _path, iface, name):
    if name == "version":
        return GLib.Variant("u", 1)
    if name == "AvailableDeviceTypes":
        return GLib.Variant("u", 7)
    return None


def emit(signal, session, ident):
    iface = "org.freedesktop.impl.portal.GlobalShortcuts"
    now = GLib.Variant("t", GLib.get_monotonic_time() // 1000)
    if signal in ("Activated", "Deactivated"):
        body = GLib.Variant("(osta{sv})", (session, ident, now.unpack(), {}))
    else:
        shortcuts = bound_shortcuts.get(session, [("dictate", {"description": ""})])
        body = GLib.Variant("(oa(sa{sv}))", (session, shortcut_list(shortcuts, ident)))
    connection.emit_signal(None, PORTAL_PATH, iface, signal, body)


def on_control_call(_conn, _sender, _path, _iface, method, params, invocation):
    args = params.unpack()
    if method == "Calls":
        invocation.return_value(GLib.Variant("(s)", (json.dumps(calls),)))
        return
    if method == "SetAnswer":
        answers[args[0]] = args[1]
    elif method == "Emit":
        if not shortcut_sessions:
            invocation.return_dbus_error("org.sayvo.TestPortal.NoSession", "no session yet")
            return
        emit(args[0], shortcut_sessions[-1], args[1])
    elif method == "EmitFor":
        emit(args[0], args[1], args[2])
    invocation.return_value(None)


connection.register_object(PORTAL_PATH, shortcuts_info, on_portal_call, on_portal_property)
connection.register_object(PORTAL_PATH, remote_info, on_portal_call, on_portal_property)
connection.register_object("/org/sayvo/TestPortal", control_info, on_control_call)

serve(connection, BUS_NAME)
