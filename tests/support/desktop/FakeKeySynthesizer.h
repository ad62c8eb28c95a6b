#pragma once

#include "desktop/KeySynthesizer.h"

#include <QStringList>

#include <functional>
#include <vector>

namespace sayvo::testing {

// Records every paste chord it was asked to post and every text it was asked to type;
// `onPaste` runs at each chord (a target reading the clipboard, another program writing it).
class FakeKeySynthesizer : public KeySynthesizer
{
public:
    bool postPaste(PasteShortcut shortcut) override
    {
        posted.push_back(shortcut);
        if (onPaste) {
            onPaste();
        }
        return succeeds;
    }
    bool isAvailable() const override { return available; }
    bool typeText(const QString &text) override
    {
        typed << text;
        return succeeds;
    }
    bool isAnyKeyHeld() override { return keyHeld; }
    bool mayPostEvents() override { return mayPost; }

    bool succeeds = true;
    // False: a session that lets no application post keys.
    bool available = true;
    // false: the user has not let this process post keys.
    bool mayPost = true;
    // A key still down, as the trigger often is when the transcript arrives.
    bool keyHeld = false;
    std::function<void()> onPaste;
    std::vector<PasteShortcut> posted;
    QStringList typed;
};

} // namespace sayvo::testing
