#pragma once

#include "desktop/KeyboardEventSource.h"

#include <vector>

namespace sayvo::testing {

// A keyboard tap driven by the test: deliver() plays an event through the installed callback.
// Records every install, uninstall and re-enable.
class FakeKeyboardEventSource : public KeyboardEventSource
{
public:
    bool install(const std::vector<int> &swallowedKeyCodes, Callback callback) override;
    void uninstall() override;
    void reenable() override { ++reenableCount; }
    bool isPermitted() const override { return permitted; }
    TriggerKeyCodes keyCodes() const override { return codes; }

    // Plays one event; pass when nothing is installed.
    KeyEventDisposition deliver(const KeyEvent &event);
    KeyEventDisposition keyDown(int keyCode, bool isAutoRepeat = false, quint64 flags = 0);
    KeyEventDisposition keyUp(int keyCode, quint64 flags = 0);
    KeyEventDisposition flagsChanged(int keyCode, quint64 flags);

    bool isInstalled() const { return static_cast<bool>(m_callback); }

    // The tap refuses to install while this is set.
    bool failInstall = false;
    // false: the user has not let the process watch the keyboard.
    bool permitted = true;
    TriggerKeyCodes codes {96, 61};
    int installCount = 0;
    int uninstallCount = 0;
    int reenableCount = 0;
    std::vector<int> swallowedKeyCodes;
    std::vector<KeyEventDisposition> dispositions;

private:
    Callback m_callback;
};

} // namespace sayvo::testing
