#include "ui/LoginItem.h"

#include "base/Logging.h"

#include <QDir>
#include <QFile>

#import <Foundation/Foundation.h>
#import <ServiceManagement/ServiceManagement.h>

namespace sayvo {

namespace {

// The application itself as the system's login item (SMAppService, macOS 13), which System
// Settings lists under General → Login Items and the user may switch off there.
class LoginItemMac : public LoginItem
{
public:
    LoginLaunch state() const override
    {
        switch (SMAppService.mainAppService.status) {
        case SMAppServiceStatusEnabled:
            return LoginLaunch::on;
        case SMAppServiceStatusRequiresApproval:
            return LoginLaunch::awaitingApproval;
        case SMAppServiceStatusNotRegistered:
        case SMAppServiceStatusNotFound:
            break;
        }
        // Earlier versions wrote a launch agent of their own; it still opens Sayvo.
        return QFile::exists(legacyAgentPath()) ? LoginLaunch::on : LoginLaunch::off;
    }

    bool setEnabled(bool enabled) override
    {
        // The agent earlier versions wrote goes either way: the service replaces it.
        const QString legacy = legacyAgentPath();
        if (QFile::exists(legacy) && !QFile::remove(legacy)) {
            Logging::shared().error(QStringLiteral("could not remove login item: ") + legacy);
            return false;
        }
        SMAppService *service = SMAppService.mainAppService;
        const SMAppServiceStatus status = service.status;
        const bool registered
            = status == SMAppServiceStatusEnabled || status == SMAppServiceStatusRequiresApproval;
        if (enabled == registered) {
            return true;
        }
        NSError *error = nil;
        const BOOL done = enabled ? [service registerAndReturnError:&error]
                                  : [service unregisterAndReturnError:&error];
        if (!done) {
            Logging::shared().error(
                QStringLiteral("could not %1 the login item: %2")
                    .arg(enabled ? QStringLiteral("register") : QStringLiteral("unregister"),
                        QString::fromNSString(error.localizedDescription)));
        }
        return done;
    }

    void openApproval() override { [SMAppService openSystemSettingsLoginItems]; }

private:
    static QString legacyAgentPath()
    {
        return QDir::homePath() + QStringLiteral("/Library/LaunchAgents/com.sayvoapp.sayvo.plist");
    }
};

} // namespace

std::unique_ptr<LoginItem> makeLoginItem(const QString &)
{
    return std::make_unique<LoginItemMac>();
}

} // namespace sayvo
