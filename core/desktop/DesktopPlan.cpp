#include "desktop/DesktopPlan.h"

namespace sayvo {

namespace {

const QString kX11Session = QStringLiteral("Log in with an X11 session to have it.");

QString triggerBindingAdvice(const QString &desktopName)
{
    if (desktopName.contains(QLatin1String("GNOME"), Qt::CaseInsensitive)
        || desktopName.contains(QLatin1String("KDE"), Qt::CaseInsensitive)) {
        return QStringLiteral("Add a custom shortcut in the desktop's keyboard settings that runs "
                              "\"sayvo trigger toggle\", and choose Toggle as the trigger mode.");
    }
    if (desktopName.contains(QLatin1String("Hyprland"), Qt::CaseInsensitive)) {
        return QStringLiteral("Bind a key in hyprland.conf: \"bind = , Control_R, exec, sayvo "
                              "trigger press\" and \"bindr = , Control_R, exec, sayvo trigger "
                              "release\".");
    }
    return QStringLiteral("Bind a key in the compositor, in sway: \"bindsym --no-repeat Control_R "
                          "exec sayvo trigger press\" and \"bindsym --release Control_R exec "
                          "sayvo trigger release\".");
}

DesktopCapabilityStatus accessibility()
{
    return {DesktopCapability::accessibility, DesktopAdapter::atspi,
        QStringLiteral("Reads the text around the cursor and writes into fields directly "
                       "through AT-SPI."),
        {}};
}

DesktopPlan x11Plan()
{
    DesktopPlan plan;
    plan.session = SessionKind::x11;
    plan.capabilities = {
        {DesktopCapability::trigger, DesktopAdapter::x11,
            QStringLiteral("Watches the trigger key through the X server."), {}},
        {DesktopCapability::keystrokes, DesktopAdapter::x11,
            QStringLiteral("Pastes with Control-V (Control-Shift-V in terminals) through the X "
                           "server."),
            {}},
        {DesktopCapability::clipboard, DesktopAdapter::x11,
            QStringLiteral("Puts the transcript on the clipboard and your own content back "
                           "afterwards."),
            {}},
        {DesktopCapability::focusedWindow, DesktopAdapter::x11,
            QStringLiteral("Knows the application and window title in front."), {}},
        accessibility(),
    };
    return plan;
}

DesktopPlan waylandPlan(const DesktopSessionFacts &facts)
{
    DesktopPlan plan;
    plan.session = SessionKind::wayland;
    plan.canShowPanelWithoutFocus = false;
    // The compositor hands keys to no other application. The wlroots family leaves key
    // bindings to its configuration file, which then runs the command; the big desktops
    // (GNOME, KDE) offer no virtual keyboard but watch a shortcut for Sayvo through the
    // portal and ask the user about keystrokes once.
    if (facts.virtualKeyboard) {
        plan.capabilities.push_back({DesktopCapability::trigger, DesktopAdapter::triggerCommand,
            QStringLiteral("The compositor keeps keys to itself: a key binding in it runs "
                           "\"sayvo trigger press\" and \"sayvo trigger release\"."),
            triggerBindingAdvice(facts.desktopName)});
    } else {
        plan.capabilities.push_back(
            portalShortcutStatus(PortalState::asking, {}, {}, facts.desktopName));
    }
    if (facts.virtualKeyboard) {
        plan.capabilities.push_back({DesktopCapability::keystrokes, DesktopAdapter::waylandProtocol,
            QStringLiteral("Pastes with Control-V (Control-Shift-V in terminals) through a virtual "
                           "keyboard."),
            {}});
    } else {
        plan.capabilities.push_back(portalKeystrokeStatus(PortalState::asking, {},
            facts.dataControl || facts.portalClipboard ? KeystrokeUse::pasting
                                                       : KeystrokeUse::typing));
    }
    if (facts.dataControl) {
        plan.capabilities.push_back({DesktopCapability::clipboard, DesktopAdapter::waylandProtocol,
            QStringLiteral("Puts the transcript on the clipboard and your own content back "
                           "afterwards."),
            {}});
    } else if (facts.portalClipboard && !facts.virtualKeyboard) {
        // It comes with the remote-desktop session the keystrokes ask for.
        plan.capabilities.push_back(portalClipboardStatus(PortalState::asking, {}));
    } else {
        plan.capabilities.push_back({DesktopCapability::clipboard, DesktopAdapter::none,
            QStringLiteral("This compositor keeps the clipboard from Sayvo: it is neither used "
                           "for pasting nor sent as context."),
            QStringLiteral("Update the desktop portal (xdg-desktop-portal 1.18 or later shares "
                           "the clipboard), or log in with an X11 session.")});
    }
    if (facts.foreignToplevel) {
        plan.capabilities.push_back(
            {DesktopCapability::focusedWindow, DesktopAdapter::waylandProtocol,
                QStringLiteral("Knows the application and window title in front."), {}});
    } else {
        // GNOME and KDE keep it to themselves, but their applications tell accessibility.
        plan.capabilities.push_back({DesktopCapability::focusedWindow, DesktopAdapter::atspi,
            QStringLiteral("Knows the application and window title in front through "
                           "accessibility, where the application takes part in it."),
            {}});
    }
    plan.capabilities.push_back(accessibility());
    return plan;
}

DesktopPlan noSessionPlan()
{
    DesktopPlan plan;
    for (const DesktopCapability capability :
        {DesktopCapability::trigger, DesktopCapability::keystrokes, DesktopCapability::clipboard,
            DesktopCapability::focusedWindow, DesktopCapability::accessibility}) {
        plan.capabilities.push_back(
            {capability, DesktopAdapter::none, QStringLiteral("No graphical session was found."),
                QStringLiteral("Start Sayvo from within your desktop session.")});
    }
    return plan;
}

QString adapterName(DesktopCapability capability, DesktopAdapter adapter)
{
    switch (adapter) {
    case DesktopAdapter::x11:
        return QStringLiteral("X11");
    case DesktopAdapter::waylandProtocol:
        switch (capability) {
        case DesktopCapability::keystrokes:
            return QStringLiteral("Wayland virtual keyboard");
        case DesktopCapability::clipboard:
            return QStringLiteral("Wayland data-control");
        case DesktopCapability::focusedWindow:
            return QStringLiteral("Wayland foreign-toplevel");
        case DesktopCapability::trigger:
        case DesktopCapability::accessibility:
            break;
        }
        return QStringLiteral("Wayland");
    case DesktopAdapter::triggerCommand:
        return QStringLiteral("compositor key binding (sayvo trigger)");
    case DesktopAdapter::atspi:
        return QStringLiteral("AT-SPI");
    case DesktopAdapter::portal:
        switch (capability) {
        case DesktopCapability::trigger:
            return QStringLiteral("desktop portal (GlobalShortcuts)");
        case DesktopCapability::clipboard:
            return QStringLiteral("desktop portal (Clipboard)");
        case DesktopCapability::keystrokes:
        case DesktopCapability::focusedWindow:
        case DesktopCapability::accessibility:
            break;
        }
        return QStringLiteral("desktop portal (RemoteDesktop)");
    case DesktopAdapter::none:
        return QStringLiteral("unavailable");
    }
    return {};
}

QString sessionName(SessionKind kind)
{
    switch (kind) {
    case SessionKind::x11:
        return QStringLiteral("X11");
    case SessionKind::wayland:
        return QStringLiteral("Wayland");
    case SessionKind::none:
        return QStringLiteral("no graphical");
    }
    return {};
}

} // namespace

DesktopPlan DesktopPlan::choose(const DesktopSessionFacts &facts)
{
    switch (facts.kind) {
    case SessionKind::x11:
        return x11Plan();
    case SessionKind::wayland:
        return waylandPlan(facts);
    case SessionKind::none:
        break;
    }
    return noSessionPlan();
}

DesktopAdapter DesktopPlan::adapter(DesktopCapability capability) const
{
    for (const DesktopCapabilityStatus &status : capabilities) {
        if (status.capability == capability) {
            return status.adapter;
        }
    }
    return DesktopAdapter::none;
}

void DesktopPlan::setStatus(const DesktopCapabilityStatus &status)
{
    for (DesktopCapabilityStatus &entry : capabilities) {
        if (entry.capability == status.capability) {
            entry = status;
        }
    }
}

QString DesktopPlan::logLine(const DesktopCapabilityStatus &status) const
{
    QString line = QStringLiteral("desktop (%1 session): %2: %3")
                       .arg(sessionName(session), displayName(status.capability).toLower(),
                           adapterName(status.capability, status.adapter));
    if (status.adapter == DesktopAdapter::portal || status.adapter == DesktopAdapter::none) {
        line += QStringLiteral(" (") + status.works + QLatin1Char(')');
    }
    return line;
}

QStringList DesktopPlan::logLines() const
{
    QStringList lines;
    for (const DesktopCapabilityStatus &status : capabilities) {
        lines << logLine(status);
    }
    if (!canShowPanelWithoutFocus) {
        lines << QStringLiteral("desktop (%1 session): heads-up display: hidden, it would take "
                                "the focus; the tray icon shows the state")
                     .arg(sessionName(session));
    }
    return lines;
}

DesktopCapabilityStatus portalShortcutStatus(PortalState state, const QString &triggerLabel,
    const QString &reason, const QString &desktopName)
{
    switch (state) {
    case PortalState::asking:
        return {DesktopCapability::trigger, DesktopAdapter::portal,
            QStringLiteral("Asking the desktop for the shortcut \"Dictate\"."), {}};
    case PortalState::granted:
        return {DesktopCapability::trigger, DesktopAdapter::portal,
            triggerLabel.isEmpty()
                ? QStringLiteral("The desktop's shortcut \"Dictate\" has no key yet.")
                : QStringLiteral("The desktop's shortcut \"Dictate\" (%1) starts dictation.")
                      .arg(triggerLabel),
            QStringLiteral("Change its key in the desktop's keyboard shortcut settings.")};
    case PortalState::refused:
        break;
    }
    return {DesktopCapability::trigger, DesktopAdapter::triggerCommand,
        QStringLiteral("The desktop gave Sayvo no shortcut (%1): a key binding in it runs \"sayvo "
                       "trigger press\" and \"sayvo trigger release\".")
            .arg(reason),
        triggerBindingAdvice(desktopName)};
}

DesktopCapabilityStatus portalKeystrokeStatus(
    PortalState state, const QString &reason, KeystrokeUse use)
{
    switch (state) {
    case PortalState::asking:
        return {DesktopCapability::keystrokes, DesktopAdapter::portal,
            QStringLiteral("Asking the desktop to let Sayvo type keys."),
            QStringLiteral("Allow it in the desktop's dialog; it is asked once.")};
    case PortalState::granted:
        return {DesktopCapability::keystrokes, DesktopAdapter::portal,
            use == KeystrokeUse::pasting
                ? QStringLiteral("Pastes with Control-V (Control-Shift-V in terminals) through "
                                 "the desktop's remote-desktop permission.")
                : QStringLiteral("Types the text into fields that accessibility cannot write, "
                                 "through the desktop's remote-desktop permission; the clipboard "
                                 "is left alone."),
            {}};
    case PortalState::refused:
        break;
    }
    return {DesktopCapability::keystrokes, DesktopAdapter::none,
        QStringLiteral("The desktop did not let Sayvo type keys (%1): it writes into fields "
                       "through accessibility instead, where the field allows it.")
            .arg(reason),
        QStringLiteral("Ask again, and allow Sayvo in the desktop's dialog."), true};
}

DesktopCapabilityStatus portalClipboardStatus(PortalState state, const QString &reason)
{
    switch (state) {
    case PortalState::asking:
        return {DesktopCapability::clipboard, DesktopAdapter::portal,
            QStringLiteral("Asking the desktop to share the clipboard with Sayvo."),
            QStringLiteral("Allow it in the desktop's dialog; it is asked once.")};
    case PortalState::granted:
        return {DesktopCapability::clipboard, DesktopAdapter::portal,
            QStringLiteral("Puts the transcript on the clipboard and your own content back "
                           "afterwards, through the desktop's remote-desktop permission."),
            {}};
    case PortalState::refused:
        break;
    }
    return {DesktopCapability::clipboard, DesktopAdapter::none,
        QStringLiteral("The desktop did not share the clipboard with Sayvo (%1): text is written "
                       "through accessibility or typed, and the clipboard is left alone.")
            .arg(reason),
        QStringLiteral("Allow clipboard access for Sayvo in the desktop's remote-desktop dialog; "
                       "to be asked again, remove Sayvo's permission in the desktop's privacy "
                       "settings and restart it.")};
}

QString displayName(DesktopCapability capability)
{
    switch (capability) {
    case DesktopCapability::trigger:
        return QStringLiteral("Trigger key");
    case DesktopCapability::keystrokes:
        return QStringLiteral("Pasting");
    case DesktopCapability::clipboard:
        return QStringLiteral("Clipboard");
    case DesktopCapability::focusedWindow:
        return QStringLiteral("Focused window");
    case DesktopCapability::accessibility:
        return QStringLiteral("Accessibility");
    }
    return {};
}

} // namespace sayvo
