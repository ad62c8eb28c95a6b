#include "AccessibilityProviderMac.h"
#include "DesktopServices.h"
#include "KeySynthesizerMac.h"
#include "KeyboardEventSourceMac.h"
#include "PasteboardMac.h"
#include "WindowListMac.h"
#include "WorkspaceMac.h"

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
