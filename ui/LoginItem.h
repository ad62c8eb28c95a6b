#pragma once

#include <QString>

#include <memory>

namespace sayvo {

// Whether Sayvo starts when the user logs in, kept where the desktop looks for it.
class LoginItem
{
public:
    virtual ~LoginItem() = default;
    // The entry exists now.
    virtual bool isEnabled() const = 0;
    // Creates or removes the entry; false when that failed (nothing else changes).
    virtual bool setEnabled(bool enabled) = 0;
};

// This platform's login item for the program at `executablePath` (defined per platform).
std::unique_ptr<LoginItem> makeLoginItem(const QString &executablePath);

} // namespace sayvo
