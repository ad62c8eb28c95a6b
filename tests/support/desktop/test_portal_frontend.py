"""The whole desktop portal of a newer release, frontend and desktop in one, for tests.

Debian's xdg-desktop-portal (1.16) has no Clipboard interface, so this stands in for the
frontend itself: it owns org.freedesktop.portal.Desktop and offers RemoteDesktop and Clipboard
(version 1), with the Request and Session objects an application sees. Requests are answered
at once, as the test told it to. It plays the compositor's clipboard too: it can own a
selection of its own, asks the owning session for its data by SelectionTransfer, and acts as
the application that pastes when it receives the keysym "v" pressed. Control object for the
test, on the same bus name:

  org.sayvo.TestPortal at /org/sayvo/TestPortal
    Calls() -> s                 every call so far, a JSON list of [method, {arguments}]
    SetAnswer(s method, s how)   for "RemoteDesktop.CreateSession", "RemoteDesktop.Start", ...:
                                 "grant" (default), "decline", "cancel", "error", "hang";
                                 for "Clipboard.RequestClipboard": "grant", "error", "hang";
                                 for "Clipboard.Access": "grant" or "decline" (what Start
                                 reports as clipboard_enabled)
    Offer(a{sv} data)            the desktop's own selection: MIME type -> bytes (ay)
    Fetch(s mime) -> ay          the current selection's data of that type, asked of its
                                 owner as a pasting application would
    Owner() -> s                 "desktop", the owning session's path, or "" for none
    SetPasteReader(s how, u ms)  on the paste chord: "read" the text after ms, or "never"
    Pasted() -> as               the texts the pasting application received
    EmitFor(s signal, o session, s mime)   SelectionTransfer or SelectionOwnerChanged for a
                                 session of the test's choosing

Prints "ready" on standard output once it owns its bus name.
"""
import json
import os
import sys

from gi.repository import Gio, GLib

from portal_script import interface, plain, serve

BUS_NAME = "org.freedesktop.portal.Desktop"
PORTAL_PATH = "/org/freedesktop/portal/desktop"
CLIPBOARD = "org.freedesktop.portal.Clipboard"
TEXT_TYPE = "text/plain;charset=utf-8"
KEYSYM_V = 0x76
FETCH_TIMEOUT_MS = 5000
CONTROL_XML = """
<node>
  <interface name="org.sayvo.TestPortal">
    <method name="Calls"><arg type="s" direction="out"/></method>
    <method name="SetAnswer"><arg type="s" direction="in"/><arg type="s" direction="in"/></method>
    <method name="Offer"><arg type="a{sv}" direction="in"/></method>
    <method name="Fetch"><arg type="s" direction="in"/><arg type="ay" direction="out"/></method>
    <method name="Owner"><arg type="s" direction="out"/></method>
    <method name="SetPasteReader">
      <arg type="s" direction="in"/><arg type="u" direction="in"/>
    </method>
    <method name="Pasted"><arg type="as" direction="out"/></method>
    <method name="EmitFor">
      <arg type="s" direction="in"/><arg type="o" direction="in"/><arg type="s" direction="in"/>
    </method>
  </interface>
</node>
"""


remote_info = interface("org.freedesktop.portal.RemoteDesktop")
session_info = interface("org.freedesktop.portal.Session")
clipboard_info = interface(
    CLIPBOARD, os.path.join(os.path.dirname(os.path.abspath(__file__)), CLIPBOARD + ".xml"))
control_info = Gio.DBusNodeInfo.new_for_xml(CONTROL_XML).lookup_interface("org.sayvo.TestPortal")

connection = Gio.bus_get_sync(Gio.BusType.SESSION, None)
calls = []
answers = {}
# Session path -> {"clipboard_requested": bool, "clipboard": bool}
sessions = {}
session_objects = {}
held = []
# The clipboard: owner "desktop" (data in desktop_data) or a session path (data asked of it).
selection = {"owner": "", "types": []}
desktop_data = {}
transfers = {}
next_serial = [1]
paste_reader = {"how": "read", "delay": 0}
pasted = []


def sender_part(sender):
    return sender.lstrip(":").replace(".", "_")


def emit_clipboard(signal, body):
    connection.emit_signal(None, PORTAL_PATH, CLIPBOARD, signal, body)


def owner_changed(session, types, is_owner):
    emit_clipboard("SelectionOwnerChanged", GLib.Variant("(oa{sv})", (session, {
        "mime_types": GLib.Variant("as", types),
        "session_is_owner": GLib.Variant("b", is_owner)})))


def export_session(path):
    def on_session_call(_conn, _sender, object_path, _iface, method, _params, invocation):
        calls.append(["Session." + method, {"session": object_path}])
        if method == "Close":
            sessions.pop(object_path, None)
            ident = session_objects.pop(object_path, None)
            if ident is not None:
                connection.unregister_object(ident)
        invocation.return_value(None)

    session_objects[path] = connection.register_object(path, session_info, on_session_call)
    sessions[path] = {"clipboard_requested": False, "clipboard": False}


def respond(sender, token, method, results):
    """Answers a request through its Request object, as the frontend does."""
    path = "%s/request/%s/%s" % (PORTAL_PATH, sender_part(sender), token)
    how = answers.get(method, "grant")
    if how == "hang":
        return path, None
    response = {"grant": 0, "decline": 1, "cancel": 2}[how]

    def send():
        connection.emit_signal(sender, path, "org.freedesktop.portal.Request", "Response",
                               GLib.Variant("(ua{sv})", (response, results if response == 0 else {})))
        return False

    GLib.idle_add(send)
    return path, response


def on_remote_call(_conn, sender, _path, _iface, method, params, invocation):
    args = params.unpack()
    short = "RemoteDesktop." + method
    if method == "CreateSession":
        options = args[0]
        calls.append([short, {"options": plain(options)}])
        if answers.get(short) == "error":
            invocation.return_dbus_error("org.freedesktop.portal.Error.Failed", "test portal failed")
            return
        session = "%s/session/%s/%s" % (PORTAL_PATH, sender_part(sender),
                                        options["session_handle_token"])
        path, response = respond(sender, options["handle_token"], short,
                                 {"session_handle": GLib.Variant("s", session)})
        if response == 0:
            export_session(session)
        invocation.return_value(GLib.Variant("(o)", (path,)))
        return
    if method in ("SelectDevices", "Start"):
        session = args[0]
        options = args[-1]
        calls.append([short, {"session": session, "options": plain(options)}])
        if answers.get(short) == "error":
            invocation.return_dbus_error("org.freedesktop.portal.Error.Failed", "test portal failed")
            return
        results = {}
        if method == "SelectDevices" and "persist_mode" in options:
            sessions.setdefault(session, {})["persist_mode"] = options["persist_mode"]
        if method == "Start":
            state = sessions.get(session, {})
            shared = state.get("clipboard_requested", False) \
                and answers.get("Clipboard.Access", "grant") == "grant"
            results = {"devices": GLib.Variant("u", 1),
                       "clipboard_enabled": GLib.Variant("b", shared)}
            # A newer frontend hands out a token that lets the next launch skip the dialog.
            if state.get("persist_mode") == 2:
                results["restore_token"] = GLib.Variant("s", "kept-permission-%d" % len(calls))
            if shared:
                state["clipboard"] = True
                if selection["owner"] == "desktop":
                    GLib.idle_add(lambda: owner_changed(session, selection["types"], False))
        path, _response = respond(sender, options["handle_token"], short, results)
        invocation.return_value(GLib.Variant("(o)", (path,)))
        return
    calls.append([short, {"session": args[0], "options": plain(args[1]),
                          "values": plain(list(args[2:]))}])
    invocation.return_value(None)
    if method == "NotifyKeyboardKeysym" and args[2] == KEYSYM_V and args[3] == 1:
        paste()


def on_remote_property(_conn, _sender, _path, _iface, name):
    if name == "version":
        return GLib.Variant("u", 2)
    if name == "AvailableDeviceTypes":
        return GLib.Variant("u", 7)
    return None


def clipboard_session(args, invocation):
    session = args[0]
    if not sessions.get(session, {}).get("clipboard"):
        invocation.return_dbus_error("org.freedesktop.portal.Error.NotAllowed",
                                     "no clipboard access for this session")
        return None
    return session


def finish_transfer(serial):
    transfer = transfers.get(serial)
    if transfer is None or transfer["success"] is None or not transfer["ended"]:
        return
    del transfers[serial]
    data = bytes(transfer["data"]) if transfer["success"] else None
    for callback in transfer["waiting"]:
        callback(data)


def ask_owner(mime, callback):
    """Asks the owning session for one type, as the compositor does for a reading client."""
    serial = next_serial[0]
    next_serial[0] += 1
    transfers[serial] = {"mime": mime, "data": bytearray(), "success": None, "ended": False,
                         "waiting": [callback]}
    emit_clipboard("SelectionTransfer", GLib.Variant("(osu)", (selection["owner"], mime, serial)))

    def give_up():
        transfer = transfers.pop(serial, None)
        if transfer is not None:
            for waiting in transfer["waiting"]:
                waiting(None)
        return False

    GLib.timeout_add(FETCH_TIMEOUT_MS, give_up)


def fetch(mime, callback):
    if selection["owner"] == "desktop":
        callback(desktop_data.get(mime))
    elif selection["owner"] and mime in selection["types"]:
        ask_owner(mime, callback)
    else:
        callback(None)


def paste():
    if paste_reader["how"] == "never":
        return

    def read():
        fetch(TEXT_TYPE, lambda data: pasted.append(data.decode("utf-8")) if data is not None
              else None)
        return False

    GLib.timeout_add(paste_reader["delay"], read)


def watch_pipe(serial, fd):
    def on_readable(source, _condition):
        try:
            chunk = os.read(source, 65536)
        except BlockingIOError:
            return True
        transfer = transfers.get(serial)
        if chunk and transfer is not None:
            transfer["data"].extend(chunk)
            return True
        os.close(source)
        if transfer is not None:
            transfer["ended"] = True
            finish_transfer(serial)
        return False

    GLib.unix_fd_add_full(GLib.PRIORITY_DEFAULT, fd, GLib.IOCondition.IN | GLib.IOCondition.HUP,
                          on_readable)


def return_fd(invocation, fd):
    fds = Gio.UnixFDList.new()
    fds.append(fd)
    os.close(fd)
    invocation.return_value_with_unix_fd_list(GLib.Variant("(h)", (0,)), fds)


def on_clipboard_call(_conn, _sender, _path, _iface, method, params, invocation):
    args = params.unpack()
    short = "Clipboard." + method
    recorded = {"session": args[0]}
    if method in ("SetSelection", "RequestClipboard"):
        recorded["options"] = plain(args[1])
    elif method in ("SelectionWrite", "SelectionWriteDone"):
        recorded["serial"] = args[1]
        if method == "SelectionWriteDone":
            recorded["success"] = args[2]
    elif method == "SelectionRead":
        recorded["mime_type"] = args[1]
    calls.append([short, recorded])

    if method == "RequestClipboard":
        how = answers.get(short, "grant")
        if how == "hang":
            held.append(invocation)
            return
        if how == "error":
            invocation.return_dbus_error("org.freedesktop.portal.Error.Failed", "test portal failed")
            return
        if args[0] in sessions:
            sessions[args[0]]["clipboard_requested"] = True
        invocation.return_value(None)
        return
    session = clipboard_session(args, invocation)
    if session is None:
        return
    if method == "SetSelection":
        types = list(args[1].get("mime_types", []))
        selection.update(owner=session if types else "", types=types)
        invocation.return_value(None)
        owner_changed(session, types, True)
    elif method == "SelectionWrite":
        transfer = transfers.get(args[1])
        if transfer is None:
            invocation.return_dbus_error("org.freedesktop.portal.Error.InvalidArgument", "serial")
            return
        read_end, write_end = os.pipe2(os.O_NONBLOCK | os.O_CLOEXEC)
        watch_pipe(args[1], read_end)
        return_fd(invocation, write_end)
    elif method == "SelectionWriteDone":
        invocation.return_value(None)
        transfer = transfers.get(args[1])
        if transfer is not None:
            transfer["success"] = args[2]
            if not args[2]:
                transfer["ended"] = True
            finish_transfer(args[1])
    elif method == "SelectionRead":
        if selection["owner"] != "desktop" or args[1] not in desktop_data:
            invocation.return_dbus_error("org.freedesktop.portal.Error.InvalidArgument", "type")
            return
        read_end, write_end = os.pipe2(os.O_CLOEXEC)
        data = desktop_data[args[1]]

        def write():
            with os.fdopen(write_end, "wb") as pipe:
                pipe.write(data)
            return False

        return_fd(invocation, read_end)
        GLib.idle_add(write)


def on_clipboard_property(_conn, _sender, _path, _iface, name):
    if name == "version":
        return GLib.Variant("u", 1)
    return None


def on_control_call(_conn, _sender, _path, _iface, method, params, invocation):
    args = params.unpack()
    if method == "Calls":
        invocation.return_value(GLib.Variant("(s)", (json.dumps(calls),)))
        return
    if method == "Fetch":
        fetch(args[0], lambda data: invocation.return_value(GLib.Variant("(ay)", (data,)))
              if data is not None else invocation.return_dbus_error(
                  "org.sayvo.TestPortal.NoData", "no data of that type"))
        return
    if method == "Owner":
        invocation.return_value(GLib.Variant("(s)", (selection["owner"],)))
        return
    if method == "Pasted":
        invocation.return_value(GLib.Variant("(as)", (pasted,)))
        return
    if method == "SetAnswer":
        answers[args[0]] = args[1]
    elif method == "Offer":
        desktop_data.clear()
        desktop_data.update({mime: bytes(data) for mime, data in args[0].items()})
        selection.update(owner="desktop", types=list(args[0].keys()))
        for session, state in sessions.items():
            if state["clipboard"]:
                owner_changed(session, selection["types"], False)
    elif method == "SetPasteReader":
        paste_reader.update(how=args[0], delay=args[1])
    elif method == "EmitFor":
        if args[0] == "SelectionTransfer":
            emit_clipboard("SelectionTransfer", GLib.Variant("(osu)", (args[1], args[2], 999)))
        else:
            owner_changed(args[1], [args[2]], False)
    invocation.return_value(None)


connection.register_object(PORTAL_PATH, remote_info, on_remote_call, on_remote_property)
connection.register_object(PORTAL_PATH, clipboard_info, on_clipboard_call, on_clipboard_property)
connection.register_object("/org/sayvo/TestPortal", control_info, on_control_call)

serve(connection, BUS_NAME)
