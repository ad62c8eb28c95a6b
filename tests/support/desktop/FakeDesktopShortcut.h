#pragma once

#include "desktop/DesktopShortcut.h"
#include "desktop/KeystrokeConsent.h"

#include <QStringList>

namespace sayvo::testing {

// The desktop's shortcut as a test plays it: what was asked for, and the handlers to drive.
class FakeDesktopShortcut : public DesktopShortcut
{
public:
    void start(const QString &preferredTrigger, Handlers given) override
    {
        requested << preferredTrigger;
        handlers = std::move(given);
    }

    QStringList requested;
    Handlers handlers;
};

// The desktop's keystroke permission as a test plays it.
class FakeKeystrokeConsent : public KeystrokeConsent
{
public:
    void request(const QString &restoreToken, Handlers given) override
    {
        tokens << restoreToken;
        handlers = std::move(given);
    }
    void askAgain() override { ++askedAgain; }

    QStringList tokens;
    Handlers handlers;
    int askedAgain = 0;
};

} // namespace sayvo::testing
