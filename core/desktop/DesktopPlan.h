#pragma once

#include "desktop/DesktopSessionFacts.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace sayvo {

// What dictation needs from the desktop, one line each in the setup area.
enum class DesktopCapability {
    trigger,
    keystrokes,
    clipboard,
    focusedWindow,
    accessibility,
};

// How a capability is served in this session.
enum class DesktopAdapter {
    // The X server: raw key events and grabs, XTest, the CLIPBOARD selection, EWMH.
    x11,
    // A Wayland protocol of the wlroots family (virtual keyboard, data-control,
    // foreign-toplevel).
    waylandProtocol,
    // A key binding of the compositor that runs `sayvo trigger`.
    triggerCommand,
    // The AT-SPI accessibility bus.
    atspi,
    // An XDG desktop portal (GlobalShortcuts, RemoteDesktop, Clipboard): the desktop asks the
    // user once.
    portal,
    // Nothing in this session serves it.
    none,
};

// One capability as the user is told about it: what works, and what they can do about it.
struct DesktopCapabilityStatus
{
    DesktopCapability capability = DesktopCapability::trigger;
    DesktopAdapter adapter = DesktopAdapter::none;
    QString works;
    // Empty when there is nothing to do.
    QString action;
    // The desktop said no and may be asked again (an "Ask again" button).
    bool canAskAgain = false;

    bool isAvailable() const { return adapter != DesktopAdapter::none; }
    bool operator==(const DesktopCapabilityStatus &) const = default;
};

// The adapter each capability gets in a session, chosen once at launch from what the session
// offers. The factory creates what the plan names and nothing else; the setup area and the
// log show the statuses.
struct DesktopPlan
{
    SessionKind session = SessionKind::none;
    // One status per capability, in the order of DesktopCapability.
    std::vector<DesktopCapabilityStatus> capabilities;
    // Whether a floating panel (the heads-up display) can be shown without taking the keyboard
    // focus from the field being dictated into: xdg-shell has no window that stays unfocused.
    bool canShowPanelWithoutFocus = true;

    static DesktopPlan choose(const DesktopSessionFacts &facts);

    DesktopAdapter adapter(DesktopCapability capability) const;
    // Replaces the status of the same capability: the desktop answered a request.
    void setStatus(const DesktopCapabilityStatus &status);
    // One line per capability, for the log at launch.
    QStringList logLines() const;
    // The log's line for one capability.
    QString logLine(const DesktopCapabilityStatus &status) const;
};

QString displayName(DesktopCapability capability);

// How far a request to the desktop's portal has come, as the status lines tell it.
enum class PortalState {
    asking,
    granted,
    refused,
};

// The trigger's status while it comes from the desktop's shortcut "Dictate": its key as the
// desktop describes it once granted; the key binding to set up by hand once refused, with the
// reason.
DesktopCapabilityStatus portalShortcutStatus(PortalState state, const QString &triggerLabel,
    const QString &reason, const QString &desktopName);
// What the desktop's keystrokes are for: the paste chord, or, where the session keeps the
// clipboard from Sayvo, typing the text itself.
enum class KeystrokeUse {
    pasting,
    typing
};
// The keystrokes' status while they go through the desktop's remote-desktop session.
DesktopCapabilityStatus portalKeystrokeStatus(
    PortalState state, const QString &reason, KeystrokeUse use);

// The clipboard's status while it comes with the desktop's remote-desktop session; once
// refused, text is written through accessibility or typed, and the clipboard left alone.
DesktopCapabilityStatus portalClipboardStatus(PortalState state, const QString &reason);

} // namespace sayvo
