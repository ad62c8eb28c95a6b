#pragma once

#include "desktop/DesktopPlan.h"

#include <QString>

#include <functional>

namespace sayvo {

// The desktop's permission for Sayvo to post keys, where the desktop asks the user (the
// remote-desktop portal of GNOME and KDE). The desktop hands out a token for a permission it
// keeps; given back at the next launch, it spares the user the dialog. Main thread only.
class KeystrokeConsent
{
public:
    struct Handlers
    {
        // What the keystrokes capability says now: asked, granted, refused.
        std::function<void(const DesktopCapabilityStatus &)> onStatus;
        // A new token to keep for the next launch; empty when the kept one no longer holds.
        std::function<void(const QString &)> onRestoreToken;
    };

    virtual ~KeystrokeConsent() = default;

    // Asks once, with the token kept from the last launch (empty for none).
    virtual void request(const QString &restoreToken, Handlers handlers) = 0;
    // The user's "Ask again" after a refusal; nothing while a request is under way or granted.
    virtual void askAgain() = 0;
};

// Keys need no consent in this session, or cannot be posted at all.
class NoKeystrokeConsent : public KeystrokeConsent
{
public:
    void request(const QString &, Handlers) override { }
    void askAgain() override { }
};

} // namespace sayvo
