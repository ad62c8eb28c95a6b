#pragma once

#include "support/desktop/DesktopSession.h"

#include <QByteArray>
#include <QJsonArray>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <optional>

namespace sayvo::testing {

// The desktop portal as an application meets it on GNOME or KDE, on a DesktopSession's bus:
// Debian's real xdg-desktop-portal frontend, with a backend of the project's own standing in
// for the desktop's side (test_portal.py: GlobalShortcuts and RemoteDesktop, no dialogs,
// every call recorded, the desktop's signals emitted on request). The frontend finds the
// backend through a .portal file in the folder XDG_DESKTOP_PORTAL_DIR names, used for the
// desktop named in its XDG_CURRENT_DESKTOP. Both stop with the session.
//
// Debian's frontend (1.16) has no Clipboard interface; a newer one is played by
// test_portal_frontend.py alone (RemoteDesktop and Clipboard, requests answered at once), which
// is also the compositor's clipboard and the application that pastes on the chord.
class TestPortal
{
public:
    static constexpr const char *kDesktopName = "sayvotest";

    enum class Frontend {
        // Debian's xdg-desktop-portal with the project's backend.
        debian,
        // The stand-in for a frontend that offers the Clipboard interface.
        withClipboard,
    };

    explicit TestPortal(DesktopSession &session, Frontend frontend = Frontend::debian);

    bool isReady() const { return m_failure.isEmpty(); }
    QString failure() const { return m_failure; }

    // Every call the backend received so far, [method, {arguments}] each; the methods are
    // named "GlobalShortcuts.BindShortcuts", "RemoteDesktop.NotifyKeyboardKeysym", ...
    QJsonArray calls();
    // The arguments of each call of one method, in order.
    QJsonArray callsOf(const QString &method);
    // "grant", "decline", "decline-once", "cancel", "error" or "hang" for later calls of a
    // method ("RemoteDesktop.Start", ...).
    bool setAnswer(const QString &method, const QString &how);
    // Activated / Deactivated for a shortcut id, or ShortcutsChanged with a new trigger
    // description, on the newest GlobalShortcuts session, or on a session path given here.
    // With the stand-in frontend: SelectionTransfer or SelectionOwnerChanged with a MIME type.
    bool emitSignal(const QString &signal, const QString &argument);
    bool emitSignalFor(const QString &signal, const QString &sessionPath, const QString &argument);

    // The stand-in frontend only. The desktop's own selection, MIME type to bytes.
    bool offer(const QVariantMap &data);
    // The current selection's data of a type, asked of its owner as a pasting application
    // would; absent when the owner gave none.
    std::optional<QByteArray> fetch(const QString &mimeType);
    // "desktop", the owning session's path, or empty.
    QString owner();
    // What the pasting application does on the paste chord: "read" the text after delayMs, or
    // "never".
    bool setPasteReader(const QString &how, uint delayMs = 0);
    // The texts the pasting application received, in order.
    QStringList pasted();

private:
    bool control(const QString &method, const QVariantList &arguments, QVariant *answer = nullptr);

    DesktopSession &m_session;
    QString m_controlName;
    QString m_failure;
};

} // namespace sayvo::testing
