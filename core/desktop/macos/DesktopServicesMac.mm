#include "desktop/DesktopServices.h"
#include "desktop/macos/AccessibilityProviderMac.h"
#include "desktop/macos/KeySynthesizerMac.h"
#include "desktop/macos/KeyboardEventSourceMac.h"
#include "desktop/macos/PasteboardMac.h"
#include "desktop/macos/WindowListMac.h"
#include "desktop/macos/WorkspaceMac.h"

namespace sayvo {

DesktopServices createDesktopServices()
{
    DesktopServices services;
    services.keyboard = std::make_unique<KeyboardEventSourceMac>();
    services.pasteboard = std::make_shared<PasteboardMac>();
    services.keySynthesizer = std::make_shared<KeySynthesizerMac>();
    services.accessibility = std::make_shared<AccessibilityProviderMac>();
    services.workspace = std::make_shared<WorkspaceMac>();
    services.windowList = std::make_shared<WindowListMac>();
    return services;
}

} // namespace sayvo
