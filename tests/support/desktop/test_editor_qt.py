"""The one-field test window of test_editor.py, in Qt 6 (python3-pyqt6), with Qt's AT-SPI
bridge on.

Same JSON commands on standard input and the same replies; see test_editor.py.
"""
import json
import os
import sys

# Qt asks the accessibility bus whether it is enabled; this makes the answer certain.
os.environ.setdefault("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1")

from PyQt6.QtCore import QSocketNotifier, QTimer  # noqa: E402
from PyQt6.QtWidgets import QApplication, QLineEdit, QVBoxLayout, QWidget  # noqa: E402

app = QApplication(sys.argv[:1])
app.setApplicationName("sayvo-test-editor-qt")
title = sys.argv[1] if len(sys.argv) > 1 else "Sayvo test editor"
keys = []


class Editor(QLineEdit):
    def keyPressEvent(self, event):
        keys.append("press:" + event.text())
        super().keyPressEvent(event)

    def keyReleaseEvent(self, event):
        keys.append("release:" + event.text())
        super().keyReleaseEvent(event)


window = QWidget()
window.setWindowTitle(title)
window.resize(600, 60)
entry = Editor(window)
QVBoxLayout(window).addWidget(entry)


def reply(value):
    sys.stdout.write(json.dumps(value) + "\n")
    sys.stdout.flush()


def on_command():
    line = sys.stdin.readline()
    if not line:
        app.quit()
        return
    command = json.loads(line)
    name = command.get("cmd")
    if name == "get":
        if entry.hasSelectedText():
            start = entry.selectionStart()
            bounds = [start, start + len(entry.selectedText())]
        else:
            bounds = [entry.cursorPosition()] * 2
        reply({"text": entry.text(), "selection": bounds, "keys": keys})
    elif name == "set":
        entry.setText(command["text"])
        start, end = command.get("select", [len(command["text"])] * 2)
        entry.setFocus()
        if start == end:
            entry.setCursorPosition(start)
        else:
            entry.setSelection(start, end - start)
        reply({"ok": True})
    elif name == "copy":
        QApplication.clipboard().setText(command["text"])
        reply({"ok": True})
    elif name == "readonly":
        entry.setReadOnly(command["value"])
        reply({"ok": True})
    else:
        reply({"error": "unknown command"})


notifier = QSocketNotifier(sys.stdin.fileno(), QSocketNotifier.Type.Read)
notifier.activated.connect(on_command)


def announce():
    window.activateWindow()
    entry.setFocus()
    reply({"ready": True, "pid": os.getpid()})


window.show()
QTimer.singleShot(200, announce)
sys.exit(app.exec())
