#pragma once

#include "desktop/KeySynthesizer.h"

namespace sayvo {

// Command-V as two Quartz keyboard events posted at the HID tap, so they enter the stream
// where real key presses do. Terminals take Command-V too, so both shortcuts are the same.
class KeySynthesizerMac : public KeySynthesizer
{
public:
    // The V key's virtual key code on every layout's physical position.
    static constexpr int kVKeyCode = 9;

    bool postPaste(PasteShortcut shortcut) override;
};

} // namespace sayvo
