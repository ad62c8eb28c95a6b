#include "base/Logging.h"
#include "desktop/DesktopServices.h"
#include "desktop/atspi/AccessibilityProviderAtSpi.h"
#include "desktop/atspi/WorkspaceAtSpi.h"
#include "desktop/portal/GlobalShortcutsPortal.h"
#include "desktop/portal/KeySynthesizerPortal.h"
#include "desktop/portal/PasteboardPortal.h"
#include "desktop/portal/PortalVersion.h"
#include "desktop/wayland/KeySynthesizerWayland.h"
#include "desktop/wayland/PasteboardWayland.h"
#include "desktop/wayland/WaylandConnection.h"
#include "desktop/wayland/WorkspaceWayland.h"
#include "desktop/x11/KeySynthesizerX11.h"
#include "desktop/x11/KeyboardEventSourceX11.h"
#include "desktop/x11/PasteboardX11.h"
#include "desktop/x11/WindowListX11.h"
#include "desktop/x11/WorkspaceX11.h"

#include <QDBusConnection>
#include <QProcessEnvironment>

namespace sayvo {

namespace {

QString environmentDesktopName()
{
    return QProcessEnvironment::systemEnvironment().value(QStringLiteral("XDG_CURRENT_DESKTOP"));
}

DesktopSessionFacts gatherFacts()
{
    const QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    DesktopSessionFacts facts;
    facts.kind = sessionKind(environment);
    facts.desktopName = environmentDesktopName();
    if (facts.kind != SessionKind::wayland) {
        return facts;
    }
    // Set by the end-to-end tests only. GNOME's compositor cannot run headless with a seat, so
    // those tests stand in for it with sway and have Sayvo overlook sway's wlroots protocols:
    // the portal and accessibility adapters are then chosen as on GNOME.
    const bool ignoreWlroots
        = environment.value(QStringLiteral("SAYVO_TEST_IGNORE_WLROOTS_PROTOCOLS"))
        == QLatin1String("1");
    // One look at the compositor's globals; each adapter then opens its own connection.
    if (const auto probe
        = ignoreWlroots ? nullptr : WaylandConnection::open(QStringLiteral("session probe"))) {
        facts.dataControl = probe->offers("ext_data_control_manager_v1")
            || probe->offers("zwlr_data_control_manager_v1");
        facts.virtualKeyboard = probe->offers("zwp_virtual_keyboard_manager_v1");
        facts.foreignToplevel = probe->offers("zwlr_foreign_toplevel_manager_v1");
    }
    // Only where the remote-desktop session posts the keys; a short wait at launch, as the
    // bus starts the portal's frontend on first use.
    if (!facts.dataControl && !facts.virtualKeyboard) {
        facts.portalClipboard = portalInterfaceVersion(QDBusConnection::sessionBus(),
                                    QStringLiteral("org.freedesktop.portal.Clipboard"), 3000)
            > 0;
    }
    return facts;
}

} // namespace

DesktopServices createDesktopServices()
{
    DesktopServices services;
    services.plan = DesktopPlan::choose(gatherFacts());
    for (const QString &line : services.plan.logLines()) {
        Logging::shared().info(line);
    }
    const DesktopPlan &plan = services.plan;

    if (plan.adapter(DesktopCapability::trigger) == DesktopAdapter::x11) {
        services.keyboard = std::make_unique<KeyboardEventSourceX11>();
    } else {
        services.keyboard = std::make_unique<NoKeyboardEventSource>();
    }
    if (plan.adapter(DesktopCapability::trigger) == DesktopAdapter::portal) {
        services.shortcut = std::make_shared<GlobalShortcutsPortal>(environmentDesktopName());
    }
    switch (plan.adapter(DesktopCapability::keystrokes)) {
    case DesktopAdapter::x11:
        services.keySynthesizer = std::make_shared<KeySynthesizerX11>();
        break;
    case DesktopAdapter::waylandProtocol:
        services.keySynthesizer = std::make_shared<KeySynthesizerWayland>();
        break;
    case DesktopAdapter::portal: {
        auto portal = std::make_shared<KeySynthesizerPortal>(
            plan.adapter(DesktopCapability::clipboard) == DesktopAdapter::none
                ? KeystrokeUse::typing
                : KeystrokeUse::pasting);
        if (plan.adapter(DesktopCapability::clipboard) == DesktopAdapter::portal) {
            auto clipboard = std::make_shared<PasteboardPortal>();
            portal->shareClipboard(clipboard);
            services.pasteboard = clipboard;
        }
        services.keySynthesizer = portal;
        services.keystrokeConsent = portal;
        break;
    }
    default:
        services.keySynthesizer = std::make_shared<NoKeySynthesizer>();
        break;
    }
    switch (plan.adapter(DesktopCapability::clipboard)) {
    case DesktopAdapter::x11:
        services.pasteboard = std::make_shared<PasteboardX11>();
        services.primarySelection
            = std::make_shared<PasteboardX11>(PasteboardX11::Selection::primary);
        break;
    case DesktopAdapter::waylandProtocol:
        services.pasteboard = std::make_shared<PasteboardWayland>();
        break;
    case DesktopAdapter::portal:
        // Made with the keystrokes' session above.
        break;
    default:
        services.pasteboard = std::make_shared<NoPasteboard>();
        break;
    }
    auto accessibility = std::make_shared<AccessibilityProviderAtSpi>();
    services.accessibility = accessibility;
    switch (plan.adapter(DesktopCapability::focusedWindow)) {
    case DesktopAdapter::x11:
        services.workspace = std::make_shared<WorkspaceX11>();
        services.windowList = std::make_shared<WindowListX11>();
        break;
    case DesktopAdapter::waylandProtocol:
        services.workspace = std::make_shared<WorkspaceWayland>();
        services.windowList = std::make_shared<NoWindowList>();
        break;
    case DesktopAdapter::atspi:
        services.workspace = std::make_shared<WorkspaceAtSpi>(accessibility);
        services.windowList = std::make_shared<NoWindowList>();
        break;
    default:
        services.workspace = std::make_shared<NoWorkspace>();
        services.windowList = std::make_shared<NoWindowList>();
        break;
    }
    return services;
}

} // namespace sayvo
