#include "app/ApplicationPlatform.h"

#include "base/Logging.h"

#import <AppKit/AppKit.h>
#include <os/log.h>

#include <QCoreApplication>
#include <QString>

#include <cstring>

namespace sayvo {

namespace {

QtMessageHandler previousHandler = nullptr;

os_log_type_t systemLogType(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return OS_LOG_TYPE_DEBUG;
    case QtInfoMsg:
        return OS_LOG_TYPE_INFO;
    case QtWarningMsg:
        return OS_LOG_TYPE_DEFAULT;
    case QtCriticalMsg:
    case QtFatalMsg:
        return OS_LOG_TYPE_ERROR;
    }
    return OS_LOG_TYPE_DEFAULT;
}

// Sayvo's own lines go to its log handle as one public string each, so Console shows them
// unredacted under the app's subsystem; Qt's lines keep Qt's own route.
void writeToSystemLog(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    static const os_log_t appLog = os_log_create(Logging::kSubsystem, Logging::kCategory);
    if (context.category && std::strcmp(context.category, lcApp().categoryName()) == 0) {
        os_log_with_type(appLog, systemLogType(type), "%{public}s", message.toUtf8().constData());
        return;
    }
    if (previousHandler) {
        previousHandler(type, context, message);
    }
}

} // namespace

bool prepareDesktopSession()
{
    // A logged-in Mac always has its window server.
    return true;
}

void installSystemLog()
{
    previousHandler = qInstallMessageHandler(writeToSystemLog);
}

QString launchCommandPath()
{
    return QCoreApplication::applicationFilePath();
}

void becomeAccessoryApplication()
{
    [[NSApplication sharedApplication] setActivationPolicy:NSApplicationActivationPolicyAccessory];
}

void activateIgnoringOtherApps()
{
    // From macOS 14 the system decides whether an activation takes the focus, and the old
    // call is deprecated.
    if (@available(macOS 14.0, *)) {
        [[NSApplication sharedApplication] activate];
    } else {
        [[NSApplication sharedApplication] activateIgnoringOtherApps:YES];
    }
}

} // namespace sayvo
