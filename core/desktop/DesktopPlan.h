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
    // One line per capability, for the log at launch.
    QStringList logLines() const;
};

QString displayName(DesktopCapability capability);

} // namespace sayvo
