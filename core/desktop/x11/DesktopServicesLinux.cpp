#include "AccessibilityProviderAtSpi.h"
#include "DesktopServices.h"
#include "KeySynthesizerX11.h"
#include "KeyboardEventSourceX11.h"
#include "PasteboardX11.h"
#include "WindowListX11.h"
#include "WorkspaceX11.h"

namespace sayvo {

DesktopServices createDesktopServices()
{
    DesktopServices services;
    services.keyboard = std::make_unique<KeyboardEventSourceX11>();
    services.pasteboard = std::make_shared<PasteboardX11>();
    services.keySynthesizer = std::make_shared<KeySynthesizerX11>();
    services.accessibility = std::make_shared<AccessibilityProviderAtSpi>();
    services.workspace = std::make_shared<WorkspaceX11>();
    services.windowList = std::make_shared<WindowListX11>();
    return services;
}

} // namespace sayvo
