#include "support/desktop/FakeKeyboardEventSource.h"

namespace sayvo::testing {

bool FakeKeyboardEventSource::install(const std::vector<int> &swallowed, Callback callback)
{
    if (failInstall) {
        return false;
    }
    ++installCount;
    swallowedKeyCodes = swallowed;
    m_callback = std::move(callback);
    return true;
}

void FakeKeyboardEventSource::uninstall()
{
    ++uninstallCount;
    m_callback = nullptr;
}

KeyEventDisposition FakeKeyboardEventSource::deliver(const KeyEvent &event)
{
    const KeyEventDisposition disposition
        = m_callback ? m_callback(event) : KeyEventDisposition::pass;
    dispositions.push_back(disposition);
    return disposition;
}

KeyEventDisposition FakeKeyboardEventSource::keyDown(int keyCode, bool isAutoRepeat, quint64 flags)
{
    return deliver({KeyEventType::keyDown, keyCode, flags, isAutoRepeat});
}

KeyEventDisposition FakeKeyboardEventSource::keyUp(int keyCode, quint64 flags)
{
    return deliver({KeyEventType::keyUp, keyCode, flags, false});
}

KeyEventDisposition FakeKeyboardEventSource::flagsChanged(int keyCode, quint64 flags)
{
    return deliver({KeyEventType::flagsChanged, keyCode, flags, false});
}

} // namespace sayvo::testing
