#include "ui/linux/LoginItemXdg.h"

#include "base/AppIdentity.h"
#include "base/Logging.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace sayvo {

namespace {

// Exec values are quoted, and inside quotes the desktop-entry format escapes ", `, $ and \.
QString quotedExec(const QString &path)
{
    QString escaped;
    for (const QChar c : path) {
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\') {
            escaped.append(u'\\');
        }
        escaped.append(c);
    }
    return u'"' + escaped + u'"';
}

} // namespace

LoginItemXdg::LoginItemXdg(QString configHome, QString executablePath)
    : m_configHome(std::move(configHome)), m_executablePath(std::move(executablePath))
{ }

QString LoginItemXdg::defaultConfigHome()
{
    QString fromEnvironment = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (!fromEnvironment.isEmpty() && QDir::isAbsolutePath(fromEnvironment)) {
        return fromEnvironment;
    }
    return QDir::homePath() + QStringLiteral("/.config");
}

QString LoginItemXdg::entryPath() const
{
    return m_configHome + QStringLiteral("/autostart/%1.desktop").arg(QLatin1String(kAppId));
}

QString LoginItemXdg::legacyEntryPath() const
{
    return m_configHome + QStringLiteral("/autostart/sayvo.desktop");
}

QString LoginItemXdg::entryText() const
{
    return QStringLiteral("[Desktop Entry]\n"
                          "Type=Application\n"
                          "Name=Sayvo\n"
                          "Comment=Push-to-talk dictation\n"
                          "Icon=%1\n"
                          "Exec=%2\n"
                          "Terminal=false\n"
                          "X-GNOME-Autostart-enabled=true\n")
        .arg(QLatin1String(kAppId), quotedExec(m_executablePath));
}

bool LoginItemXdg::isEnabled() const
{
    return QFileInfo(entryPath()).isFile() || QFileInfo(legacyEntryPath()).isFile();
}

LoginLaunch LoginItemXdg::state() const
{
    return isEnabled() ? LoginLaunch::on : LoginLaunch::off;
}

bool LoginItemXdg::setEnabled(bool enabled)
{
    // An entry under the name earlier versions wrote goes either way: replaced or removed.
    const QString legacy = legacyEntryPath();
    if (QFile::exists(legacy) && !QFile::remove(legacy)) {
        Logging::shared().error(QStringLiteral("could not remove login item: ") + legacy);
        return false;
    }
    const QString path = entryPath();
    if (!enabled) {
        if (QFile::exists(path) && !QFile::remove(path)) {
            Logging::shared().error(QStringLiteral("could not remove login item: ") + path);
            return false;
        }
        return true;
    }
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        Logging::shared().error(QStringLiteral("could not create autostart folder: ") + path);
        return false;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(entryText().toUtf8()) < 0
        || !file.commit()) {
        Logging::shared().error(QStringLiteral("could not write login item: ") + path);
        return false;
    }
    return true;
}

std::unique_ptr<LoginItem> makeLoginItem(const QString &executablePath)
{
    return std::make_unique<LoginItemXdg>(LoginItemXdg::defaultConfigHome(), executablePath);
}

} // namespace sayvo
