#pragma once

#include "desktop/AccessibilityProvider.h"
#include "desktop/DesktopPlan.h"
#include "desktop/DesktopShortcut.h"
#include "desktop/KeySynthesizer.h"
#include "desktop/KeyboardEventSource.h"
#include "desktop/KeystrokeConsent.h"
#include "desktop/Pasteboard.h"
#include "desktop/WindowList.h"
#include "desktop/Workspace.h"

#include <memory>

namespace sayvo {

// This platform's implementation of every desktop seam. The keyboard source is handed to the
// one HotkeyManager; the others are shared by TextInserter and ContextHarvester.
struct DesktopServices
{
    std::unique_ptr<KeyboardEventSource> keyboard;
    std::shared_ptr<Pasteboard> pasteboard;
    // The X11 primary selection, which some terminals paste from; null where there is none.
    std::shared_ptr<Pasteboard> primarySelection;
    std::shared_ptr<KeySynthesizer> keySynthesizer;
    std::shared_ptr<AccessibilityProvider> accessibility;
    std::shared_ptr<Workspace> workspace;
    std::shared_ptr<WindowList> windowList;
    // The trigger as a shortcut the desktop watches, where it offers one (GNOME, KDE).
    std::shared_ptr<DesktopShortcut> shortcut = std::make_shared<NoDesktopShortcut>();
    // The desktop's permission for the keystrokes, where it asks the user for it.
    std::shared_ptr<KeystrokeConsent> keystrokeConsent = std::make_shared<NoKeystrokeConsent>();
    // Which adapter each capability got, and what the user is told about it.
    DesktopPlan plan;
};

// Defined once per platform. Never fails: an adapter whose service is missing answers
// "absent" or "failed" at run time. Where the platform offers several ways (X11 or Wayland),
// the choice is made here once, per capability, and logged.
DesktopServices createDesktopServices();

} // namespace sayvo
