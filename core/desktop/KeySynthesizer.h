#pragma once

#include <QString>

#include <vector>

namespace sayvo {

// Which paste chord to send: terminal emulators take Control-V as a literal character, so
// they have chords of their own.
enum class PasteShortcut {
    // Control-V (Command-V on macOS).
    standard,
    // Control-Shift-V: the clipboard paste of most terminal emulators.
    controlShiftV,
    // Control-Alt-V: rxvt-unicode's clipboard paste.
    controlAltV,
    // Shift-Insert, which pastes the primary selection, not the clipboard: xterm has no chord
    // for the clipboard.
    shiftInsert,
};

// The chord's keys as X keysyms (the numbering X11, XKB and the desktop portals share), in the
// order they go down: modifiers first, the key last; they come up in reverse.
std::vector<quint32> pasteChordKeysyms(PasteShortcut shortcut);

// Posts synthetic keyboard events to the focused application. Main thread only.
class KeySynthesizer
{
public:
    virtual ~KeySynthesizer() = default;

    // Presses and releases the paste chord (Command-V on macOS whatever is asked). True when
    // the events were posted; whether the target acted on them cannot be observed.
    virtual bool postPaste(PasteShortcut shortcut) = 0;
    // Whether the system delivers the events this process posts. Where posting needs the
    // user's leave (macOS), events posted without it vanish without an error.
    virtual bool mayPostEvents() { return true; }
    // Whether any key is held down now. A paste waits for the keyboard to be quiet, so its
    // chord is not mixed with a held modifier and (X11) does not go to the client that
    // grabbed a held trigger key. Platforms where neither can happen say false.
    virtual bool isAnyKeyHeld() { return false; }
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
