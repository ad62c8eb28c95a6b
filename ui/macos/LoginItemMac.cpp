#include "ui/LoginItem.h"

#include "base/Logging.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace sayvo {

namespace {

// A per-user launch agent that opens the app once at login.
class LoginItemMac : public LoginItem
{
public:
    explicit LoginItemMac(QString executablePath) : m_executablePath(std::move(executablePath)) { }

    bool isEnabled() const override { return QFileInfo(path()).isFile(); }

    bool setEnabled(bool enabled) override
    {
        if (!enabled) {
            return !QFile::exists(path()) || QFile::remove(path());
        }
        if (!QDir().mkpath(QFileInfo(path()).absolutePath())) {
            return false;
        }
        QSaveFile file(path());
        const QString plist
            = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                             "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                             "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                             "<plist version=\"1.0\"><dict>\n"
                             "<key>Label</key><string>com.sayvoapp.sayvo</string>\n"
                             "<key>ProgramArguments</key><array><string>%1</string></array>\n"
                             "<key>RunAtLoad</key><true/>\n"
                             "</dict></plist>\n")
                  .arg(m_executablePath.toHtmlEscaped());
        if (!file.open(QIODevice::WriteOnly) || file.write(plist.toUtf8()) < 0 || !file.commit()) {
            Logging::shared().error(QStringLiteral("could not write login item: ") + path());
            return false;
        }
        return true;
    }

private:
    static QString path()
    {
        return QDir::homePath() + QStringLiteral("/Library/LaunchAgents/com.sayvoapp.sayvo.plist");
    }

    QString m_executablePath;
};

} // namespace

std::unique_ptr<LoginItem> makeLoginItem(const QString &executablePath)
{
    return std::make_unique<LoginItemMac>(executablePath);
}

} // namespace sayvo
