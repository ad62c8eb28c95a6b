#pragma once

#include "desktop/KeySynthesizer.h"

#include <memory>

namespace sayvo {

class X11Connection;

// Posts Control-V (Control-Shift-V for terminals) with the XTest extension. The V key is looked
// up from its keysym, so the chord lands on the right key on any layout. Main thread only.
class KeySynthesizerX11 : public KeySynthesizer
{
public:
    KeySynthesizerX11();
    ~KeySynthesizerX11() override;

    bool postPaste(PasteShortcut shortcut) override;

private:
    std::unique_ptr<X11Connection> m_connection;
};

} // namespace sayvo
