#include "desktop/DesktopServices.h"
#include "desktop/atspi/AccessibilityProviderAtSpi.h"
#include "desktop/x11/KeySynthesizerX11.h"
#include "desktop/x11/KeyboardEventSourceX11.h"
#include "desktop/x11/PasteboardX11.h"
#include "desktop/x11/WindowListX11.h"
#include "desktop/x11/WorkspaceX11.h"

namespace sayvo {

DesktopServices createDesktopServices()
{
    DesktopServices services;
    services.keyboard = std::make_unique<KeyboardEventSourceX11>();
    services.pasteboard = std::make_shared<PasteboardX11>();
    services.primarySelection = std::make_shared<PasteboardX11>(PasteboardX11::Selection::primary);
    services.keySynthesizer = std::make_shared<KeySynthesizerX11>();
    services.accessibility = std::make_shared<AccessibilityProviderAtSpi>();
    services.workspace = std::make_shared<WorkspaceX11>();
    services.windowList = std::make_shared<WindowListX11>();
    return services;
}

} // namespace sayvo
