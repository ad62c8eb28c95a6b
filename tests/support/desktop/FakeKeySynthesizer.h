#pragma once

#include "desktop/KeySynthesizer.h"

#include <QStringList>

#include <functional>
#include <vector>

namespace sayvo::testing {

// Records every paste chord it was asked to post; `onPaste` runs at that moment (a target
// reading the clipboard, another program writing it).
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

    bool succeeds = true;
    // False: a session that lets no application post keys.
    bool available = true;
    std::function<void()> onPaste;
    std::vector<PasteShortcut> posted;
    QStringList typed;
};

} // namespace sayvo::testing
