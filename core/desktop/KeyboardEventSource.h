#pragma once

#include <QtGlobal>

#include <functional>
#include <vector>

namespace sayvo {

// What a system-wide keyboard tap reports. Modifier keys arrive as flagsChanged events
// carrying the modifier state after the change; other keys as keyDown / keyUp. The two
// tapDisabled types tell that the system switched the tap off.
enum class KeyEventType {
    keyDown,
    keyUp,
    flagsChanged,
    tapDisabledByTimeout,
    tapDisabledByUserInput,
};

// Modifier state bits of a key event. The values are those of the macOS event flags, so the
// macOS tap passes its flags through unchanged; other platforms translate into them.
namespace KeyFlags {
inline constexpr quint64 kShift = 0x20000;
inline constexpr quint64 kControl = 0x40000;
inline constexpr quint64 kOption = 0x80000;
inline constexpr quint64 kCommand = 0x100000;
// Set while the key that plays the Fn/Globe role is held (Right Ctrl on a PC keyboard).
inline constexpr quint64 kSecondaryFunction = 0x800000;
} // namespace KeyFlags

struct KeyEvent
{
    KeyEventType type = KeyEventType::keyDown;
    int keyCode = 0;
    quint64 flags = 0;
    // A key-down produced by holding the key, not by pressing it.
    bool isAutoRepeat = false;
};

enum class KeyEventDisposition {
    pass,
    swallow,
};

// This platform's codes for the physical keys that can be triggers.
struct TriggerKeyCodes
{
    int f5 = 0;
    int rightOption = 0;
};

// A system-wide keyboard hook. Events are delivered on the main thread, one callback at a
// time; the callback's answer swallows the event where the platform can drop single events.
// Where it can only withhold whole keys (X11 key grabs), the keys in swallowedKeyCodes never
// reach another client, and the answer is not needed.
class KeyboardEventSource
{
public:
    using Callback = std::function<KeyEventDisposition(const KeyEvent &)>;

    virtual ~KeyboardEventSource() = default;

    // False when the system refuses the hook (no display, a key already grabbed by another
    // client, permission missing); nothing is left installed then.
    virtual bool install(const std::vector<int> &swallowedKeyCodes, Callback callback) = 0;
    virtual void uninstall() = 0;
    // Switches a tap the system disabled back on.
    virtual void reenable() = 0;
    // Whether the user has let this process watch the keyboard. Where that takes leave
    // (macOS), a hook made without it is created all the same but never sees a key.
    virtual bool isPermitted() const { return true; }
    virtual TriggerKeyCodes keyCodes() const = 0;
};

// A session whose keys no application may watch (Wayland): the trigger arrives from a key
// binding of the compositor running `sayvo trigger`, handed to HotkeyManager directly. There
// is nothing to install, so the hook never fails and is never retried.
class NoKeyboardEventSource : public KeyboardEventSource
{
public:
    bool install(const std::vector<int> &, Callback) override { return true; }
    void uninstall() override { }
    void reenable() override { }
    TriggerKeyCodes keyCodes() const override { return {}; }
};

} // namespace sayvo
