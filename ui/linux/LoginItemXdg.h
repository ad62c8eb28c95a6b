#pragma once

#include "ui/LoginItem.h"

namespace sayvo {

// An XDG autostart entry, "<config home>/autostart/<application id>.desktop" with the icon
// of the installed menu entry, where the config home is $XDG_CONFIG_HOME or ~/.config.
class LoginItemXdg : public LoginItem
{
public:
    LoginItemXdg(QString configHome, QString executablePath);

    static QString defaultConfigHome();
    QString entryPath() const;
    // "sayvo.desktop", the name versions before the application id wrote.
    QString legacyEntryPath() const;
    // The entry's text, with the executable quoted as the desktop-entry rules require.
    QString entryText() const;

    bool isEnabled() const override;
    bool setEnabled(bool enabled) override;

private:
    QString m_configHome;
    QString m_executablePath;
};

} // namespace sayvo
