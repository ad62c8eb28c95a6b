"""Presses a push button in a running application's window through AT-SPI, as a screen
reader or a user's click would.

  press_button.py WINDOW_TITLE BUTTON_TEXT [TIMEOUT_SECONDS]

Waits until a window titled WINDOW_TITLE holds an enabled push button labelled BUTTON_TEXT,
presses it and exits 0; exits 1 when none showed up in time. Run it against the desktop's
session bus, whose accessibility bus must be enabled.
"""
import sys
import time

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

MAX_DEPTH = 40


def descendants(node, depth=0):
    if node is None or depth > MAX_DEPTH:
        return
    yield node
    try:
        count = node.get_child_count()
    except GLib.Error:
        return
    for index in range(count):
        try:
            child = node.get_child_at_index(index)
        except GLib.Error:
            continue
        yield from descendants(child, depth + 1)


def enabled(node):
    return node.get_state_set().contains(Atspi.StateType.ENABLED)


def find_button(title, text):
    desktop = Atspi.get_desktop(0)
    for app_index in range(desktop.get_child_count()):
        app = desktop.get_child_at_index(app_index)
        if app is None:
            continue
        for window_index in range(app.get_child_count()):
            window = app.get_child_at_index(window_index)
            if window is None or window.get_name() != title:
                continue
            for node in descendants(window):
                if (node.get_role() == Atspi.Role.PUSH_BUTTON and node.get_name() == text
                        and enabled(node)):
                    return node
    return None


def seen():
    """What the accessibility bus shows: each application with its windows."""
    desktop = Atspi.get_desktop(0)
    apps = []
    for app_index in range(desktop.get_child_count()):
        app = desktop.get_child_at_index(app_index)
        if app is None:
            continue
        windows = [app.get_child_at_index(i) for i in range(app.get_child_count())]
        apps.append(f"{app.get_name()}: " + ", ".join(
            f"'{w.get_name()}'" for w in windows if w is not None))
    return "; ".join(apps) or "no applications"


def main():
    title, text = sys.argv[1], sys.argv[2]
    timeout = float(sys.argv[3]) if len(sys.argv) > 3 else 20.0
    deadline = time.monotonic() + timeout
    error = ""
    while time.monotonic() < deadline:
        try:
            button = find_button(title, text)
            if button is not None and button.do_action(0):
                return 0
        except GLib.Error as e:
            error = str(e)  # the window changed while being read: look again
        time.sleep(0.2)
    # On standard output, which the caller shows in its log.
    print(f"press_button: no button '{text}' in a window '{title}' {error}; seen: {seen()}")
    return 1


if __name__ == "__main__":
    sys.exit(main())
