#pragma once

#include "desktop/KeySynthesizer.h"

#include <memory>

namespace sayvo {

class X11Connection;

// Posts the paste chords with the XTest extension. Keys are looked up from their keysyms at
// each paste, with the key map refreshed when the layout changes, so the chord lands on the
// right keys on any layout. Main thread only.
class KeySynthesizerX11 : public KeySynthesizer
{
public:
    KeySynthesizerX11();
    ~KeySynthesizerX11() override;

    bool postPaste(PasteShortcut shortcut) override;
    bool isAnyKeyHeld() override;

private:
    bool ensureConnection();

    std::unique_ptr<X11Connection> m_connection;
};

} // namespace sayvo
