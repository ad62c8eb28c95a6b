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

    // An entry exists, under either name.
    bool isEnabled() const;

    LoginLaunch state() const override;
    bool setEnabled(bool enabled) override;
    // The desktop starts whatever entry it finds: there is nothing to approve.
    void openApproval() override { }

private:
    QString m_configHome;
    QString m_executablePath;
};

} // namespace sayvo
