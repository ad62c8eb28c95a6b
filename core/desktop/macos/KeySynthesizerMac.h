#pragma once

#include "desktop/KeySynthesizer.h"

namespace sayvo {

// Command-V as two Quartz keyboard events posted at the HID tap, so they enter the stream
// where real key presses do. Terminals take Command-V too, so both shortcuts are the same.
// The V is the key that types "v" in the current layout (with Command held). Posting needs
// the user's leave (Privacy & Security > Accessibility); without it nothing is posted.
class KeySynthesizerMac : public KeySynthesizer
{
public:
    // The key V sits on in QWERTY, where the system matches shortcuts for layouts of other
    // scripts too.
    static constexpr int kVKeyCode = 9;

    bool postPaste(PasteShortcut shortcut) override;
    bool mayPostEvents() override;

private:
    static int pasteKeyCode();
};

} // namespace sayvo
