#include "runtime/AppBundle.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace sayvo {

AppBundle mainAppBundle()
{
    // The application is installed as <prefix>/lib/sayvo/sayvo-app, beside its resources,
    // and started by the command <prefix>/bin/sayvo; the build tree mirrors that layout
    // (build/lib/sayvo, build/bin/sayvo), so the same relative paths find both, and an
    // installed tree works wherever it was unpacked. A program moved elsewhere falls back to
    // the configured install prefix.
    const QString executable = QCoreApplication::applicationFilePath();
    const QString directory = QFileInfo(executable).absolutePath();
    QString resources = directory;
    if (!QFileInfo::exists(resources + QStringLiteral("/engine-payload"))) {
        resources = QStringLiteral(SAYVO_INSTALL_RESOURCE_DIR);
    }
    const QString version = QStringLiteral(SAYVO_VERSION_STRING);

    AppBundle bundle;
    // What the user starts Sayvo with, and what the login item and the uninstall name.
    const QString command = QDir::cleanPath(directory + QStringLiteral("/../../bin/sayvo"));
    if (QFileInfo(command).isExecutable()) {
        bundle.bundlePath = command;
    } else if (!executable.isEmpty()) {
        bundle.bundlePath = executable;
    }
    bundle.resourceDir = resources;
    if (!version.isEmpty() && version != QLatin1String("dev")) {
        bundle.shortVersion = version;
    }
    return bundle;
}

QString userDataDirectory()
{
    // $XDG_DATA_HOME, or ~/.local/share when it is unset.
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
}

QString userStateDirectory()
{
    // $XDG_STATE_HOME when it is an absolute path, or ~/.local/state.
    QString fromEnvironment = qEnvironmentVariable("XDG_STATE_HOME");
    if (!fromEnvironment.isEmpty() && QDir::isAbsolutePath(fromEnvironment)) {
        return fromEnvironment;
    }
    return QDir::homePath() + QStringLiteral("/.local/state");
}

} // namespace sayvo
