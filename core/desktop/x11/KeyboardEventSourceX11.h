#pragma once

#include "desktop/KeyboardEventSource.h"

#include <QSet>

#include <map>
#include <memory>

namespace sayvo {

class X11Connection;

// Watches the keyboard of the whole X display through XInput2 raw key events, which every
// client may observe without taking the keys from anyone. Keys that must be swallowed are
// grabbed with XGrabKey under every modifier combination, so no other client sees them; their
// presses arrive as the grab's own events. Modifier keys are reported as flagsChanged with the
// modifier state rebuilt from the keys held.
class KeyboardEventSourceX11 : public KeyboardEventSource
{
public:
    // Evdev key codes of F5 and Right Alt (AltGr), the same on every PC keyboard layout.
    static constexpr int kF5KeyCode = 71;
    static constexpr int kRightAltKeyCode = 108;

    KeyboardEventSourceX11();
    ~KeyboardEventSourceX11() override;

    bool install(const std::vector<int> &swallowedKeyCodes, Callback callback) override;
    void uninstall() override;
    void reenable() override;
    TriggerKeyCodes keyCodes() const override { return {kF5KeyCode, kRightAltKeyCode}; }
    RightAltRole rightAltRole() const override { return m_rightAltRole; }

private:
    bool selectRawEvents();
    // Which keys are modifiers, from the layout as it is now.
    void readKeyMap();
    void handleKey(int keyCode, bool pressed);
    quint64 modifierFlags() const;

    std::unique_ptr<X11Connection> m_connection;
    Callback m_callback;
    int m_xinputOpcode = 0;
    // The first XKB event code, or -1 without XKB.
    int m_xkbEventBase = -1;
    QSet<int> m_swallowed;
    QSet<int> m_pressed;
    std::map<int, quint64> m_modifierFlagsByKeyCode;
    RightAltRole m_rightAltRole = RightAltRole::alt;
};

} // namespace sayvo
