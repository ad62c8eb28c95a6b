#pragma once

#include "desktop/KeyboardEventSource.h"

#include <CoreGraphics/CoreGraphics.h>

namespace sayvo {

// A Quartz event tap on the login session, at the head of the chain and active, so its answer
// can drop single events. Its run-loop source sits on the main run loop (which Qt's event
// loop runs), so events arrive on the main thread. Flags pass through unchanged: the seam's
// flag values are the Quartz ones.
class KeyboardEventSourceMac : public KeyboardEventSource
{
public:
    // Virtual key codes of F5 and Right Option on every Mac keyboard.
    static constexpr int kF5KeyCode = 96;
    static constexpr int kRightOptionKeyCode = 61;

    ~KeyboardEventSourceMac() override;

    // The tap decides per event, so nothing needs to be withheld up front.
    bool install(const std::vector<int> &swallowedKeyCodes, Callback callback) override;
    void uninstall() override;
    void reenable() override;
    TriggerKeyCodes keyCodes() const override { return {kF5KeyCode, kRightOptionKeyCode}; }

private:
    static CGEventRef handleEvent(
        CGEventTapProxy proxy, CGEventType type, CGEventRef event, void *userInfo);

    Callback m_callback;
    CFMachPortRef m_tap = nullptr;
    CFRunLoopSourceRef m_source = nullptr;
};

} // namespace sayvo
