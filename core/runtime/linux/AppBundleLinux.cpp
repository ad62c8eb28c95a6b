#include "runtime/AppBundle.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace sayvo {

AppBundle mainAppBundle()
{
    // Installed as <prefix>/bin/sayvo with resources in <prefix>/lib/sayvo; the build tree
    // mirrors that layout (build/app/sayvo, build/lib/sayvo), so one relative rule finds
    // both, and an installed tree works wherever it was unpacked. A binary moved elsewhere
    // falls back to the configured install prefix.
    const QString executable = QCoreApplication::applicationFilePath();
    QString resources
        = QDir::cleanPath(QFileInfo(executable).absolutePath() + QStringLiteral("/../lib/sayvo"));
    if (!QFileInfo::exists(resources)) {
        resources = QStringLiteral(SAYVO_INSTALL_RESOURCE_DIR);
    }
    const QString version = QStringLiteral(SAYVO_VERSION_STRING);

    AppBundle bundle;
    if (!executable.isEmpty()) {
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

} // namespace sayvo
