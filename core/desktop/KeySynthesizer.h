#pragma once

#include <QString>

namespace sayvo {

// Which paste chord to send: terminal emulators take Control-V as a literal character, so
// they get their own.
enum class PasteShortcut {
    standard,
    terminal,
};

// Posts synthetic keyboard events to the focused application. Main thread only.
class KeySynthesizer
{
public:
    virtual ~KeySynthesizer() = default;

    // Presses and releases the paste chord (Command-V on macOS, Control-V or Control-Shift-V
    // on X11). True when the events were posted; whether the target acted on them cannot be
    // observed.
    virtual bool postPaste(PasteShortcut shortcut) = 0;
    // False where the session lets no application post keys; pasting is not tried then.
    virtual bool isAvailable() const { return true; }
    // Types the text key by key, where no clipboard can carry it; false where this session's
    // keys cannot type arbitrary characters or the text is too long to type.
    virtual bool typeText(const QString &text)
    {
        Q_UNUSED(text);
        return false;
    }
};

// The keystrokes of a session that offers no way to post them.
class NoKeySynthesizer : public KeySynthesizer
{
public:
    bool postPaste(PasteShortcut) override { return false; }
    bool isAvailable() const override { return false; }
};

} // namespace sayvo
