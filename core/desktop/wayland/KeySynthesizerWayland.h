#pragma once

#include "desktop/KeySynthesizer.h"

#include <cstdint>
#include <memory>

struct zwp_virtual_keyboard_v1;

namespace sayvo {

class WaylandConnection;

// Posts the paste chords (Control-V, and the terminals' Control-Shift-V, Control-Alt-V and
// Shift-Insert) through zwp_virtual_keyboard_v1. One virtual keyboard lives as long as this
// object, with its keymap (US layout, so V is always the V key whatever the user's layout)
// uploaded once at creation: a keyboard that was just created, or
// whose keymap just changed, loses its first key event on wlroots. Main thread only.
class KeySynthesizerWayland : public KeySynthesizer
{
public:
    KeySynthesizerWayland();
    ~KeySynthesizerWayland() override;

    bool postPaste(PasteShortcut shortcut) override;
    bool isAvailable() const override;

private:
    bool createKeyboard();
    void sendKey(uint32_t key, bool pressed);
    void sendModifiers(uint32_t depressed);

    std::unique_ptr<WaylandConnection> m_connection;
    zwp_virtual_keyboard_v1 *m_keyboard = nullptr;
    // Evdev codes of the chords' keys and the modifier masks of the uploaded keymap.
    struct Modifier
    {
        uint32_t key = 0;
        uint32_t mask = 0;
    };
    Modifier m_control;
    Modifier m_shift;
    Modifier m_alt;
    uint32_t m_vKey = 0;
    uint32_t m_insertKey = 0;
};

} // namespace sayvo
