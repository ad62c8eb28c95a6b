#pragma once

#include "desktop/DesktopPlan.h"
#include "store/HotkeyTrigger.h"

#include <QString>

#include <functional>

namespace sayvo {

// A desktop-wide shortcut that the desktop itself watches for Sayvo and reports going down
// and up: the trigger key where no application may watch keys (Wayland), without a key
// binding set up by hand. Main thread only.
class DesktopShortcut
{
public:
    struct Handlers
    {
        std::function<void()> onPress;
        std::function<void()> onRelease;
        // What the trigger capability says now: asked, granted with its key, refused.
        std::function<void(const DesktopCapabilityStatus &)> onStatus;
    };

    virtual ~DesktopShortcut() = default;

    // Asks the desktop for the shortcut, suggesting preferredTrigger in the desktop's shortcut
    // notation ("F5", "CTRL+a"; empty to let the user choose). The answer and every later
    // change arrive through the handlers.
    virtual void start(const QString &preferredTrigger, Handlers handlers) = 0;
};

// The trigger key setting in the desktop's shortcut notation; empty where no single key
// stands for it (the desktop then lets the user choose).
QString shortcutNotation(HotkeyTrigger trigger);

// A session whose desktop watches no shortcuts for applications.
class NoDesktopShortcut : public DesktopShortcut
{
public:
    void start(const QString &, Handlers) override { }
};

} // namespace sayvo
