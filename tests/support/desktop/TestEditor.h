#pragma once

#include "support/desktop/DesktopSession.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <vector>

namespace sayvo::testing {

// A one-field window on a DesktopSession, activated and focused; readable and writable from
// the test through its standard input, independently of the accessibility and clipboard code
// under test. GTK 3 by default (test_editor.py, run by Debian's python3 with PyGObject); GTK 4
// and Qt 6 (PyQt6) windows answer the same commands.
class TestEditor
{
public:
    enum class Toolkit {
        gtk3,
        gtk4,
        qt6,
    };

    // Without accessibility the window runs with GTK's AT-SPI bridge switched off, like an
    // application that exposes nothing. An X11 client runs on a Wayland session's XWayland.
    TestEditor(DesktopSession &session, QString title, bool accessible = true,
        Toolkit toolkit = Toolkit::gtk3, bool x11Client = false);

    bool isReady() const { return m_ready; }
    QString title() const { return m_title; }
    qint64 pid() const { return m_pid; }

    QString text();
    // [start, end) of the selection, or the caret twice.
    std::pair<int, int> selection();
    QStringList keys();
    // Every change of the text as the window first drew it: when (steady_clock nanoseconds,
    // CLOCK_MONOTONIC) and the text's length then. Oldest first.
    struct Shown
    {
        qint64 atNs = 0;
        int length = 0;
    };
    std::vector<Shown> shown();
    void setText(const QString &text, int selectionStart, int selectionEnd);
    void setText(const QString &text) { setText(text, int(text.size()), int(text.size())); }
    // Waits until the field holds exactly this text.
    bool waitForText(const QString &text, int timeoutMs = 5000);
    // Puts text on the clipboard through GTK.
    void copy(const QString &text);
    // A read-only field shows its text but takes none, from the keyboard or accessibility.
    void setReadOnly(bool readOnly);
    // Makes the window the active one again.
    bool activate();

private:
    QJsonObject command(const QJsonObject &request);

    DesktopSession &m_session;
    QString m_title;
    QProcess *m_process = nullptr;
    bool m_ready = false;
    qint64 m_pid = 0;
};

} // namespace sayvo::testing
