#pragma once

#include "desktop/KeyboardEventSource.h"

#include <memory>

namespace sayvo {

// A Quartz event tap on the login session, at the head of the chain and active, so it can
// drop single events. The tap runs on a thread of its own: the system waits for its answer on
// every keystroke and switches off a tap that is slow, so the answer must never wait for the
// main thread. There it withholds the keys in swallowedKeyCodes and passes everything else;
// each event then goes on to the callback on the main thread, whose answer is not needed.
// Flags pass through unchanged: the seam's flag values are the Quartz ones. Watching the
// keyboard needs the user's leave (Input Monitoring or Accessibility): without it the system
// creates a tap that never sees a key, so install() refuses.
class KeyboardEventSourceMac : public KeyboardEventSource
{
public:
    // Virtual key codes of F5 and Right Option on every Mac keyboard.
    static constexpr int kF5KeyCode = 96;
    static constexpr int kRightOptionKeyCode = 61;

    KeyboardEventSourceMac();
    ~KeyboardEventSourceMac() override;

    bool install(const std::vector<int> &swallowedKeyCodes, Callback callback) override;
    void uninstall() override;
    void reenable() override;
    bool isPermitted() const override;
    TriggerKeyCodes keyCodes() const override { return {kF5KeyCode, kRightOptionKeyCode}; }

private:
    // The tap, its run-loop source and its thread, kept in the Objective-C++ source.
    struct Tap;
    std::unique_ptr<Tap> m_tap;
};

} // namespace sayvo
