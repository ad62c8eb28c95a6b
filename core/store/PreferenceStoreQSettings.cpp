#include "store/PreferenceStoreQSettings.h"

#include "store/IniVariantScrubber.h"

#include <QFile>
#include <QLoggingCategory>
#include <QSaveFile>

namespace sayvo {

namespace {

Q_LOGGING_CATEGORY(lcPreferences, "com.sayvoapp.shell.preferences", QtInfoMsg)

enum class RepairResult {
    unchanged,
    repaired,
    notSaved
};

RepairResult repairFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return RepairResult::unchanged;
    }
    const QByteArray original = file.readAll();
    file.close();
    const QByteArray repaired = IniVariantScrubber::scrubbed(original);
    if (repaired == original) {
        return RepairResult::unchanged;
    }
    // Unbuffered, so that a short write (a full disk) is seen before commit and the original
    // file kept: an uncommitted QSaveFile is discarded. A buffered one can fail only at commit
    // and still replace the file with a truncated copy.
    QSaveFile save(path);
    if (save.open(QIODevice::WriteOnly | QIODevice::Unbuffered)
        && save.write(repaired) == repaired.size() && save.commit()) {
        qCInfo(lcPreferences).noquote()
            << "Settings file" << path << "held binary values; they are kept as plain text";
        return RepairResult::repaired;
    }
    // A short write is no error to Qt.
    const QString reason = save.error() == QFileDevice::NoError
        ? QStringLiteral("only part of it could be written")
        : save.errorString();
    qCWarning(lcPreferences).noquote()
        << "Settings file" << path
        << "holds binary values and cannot be rewritten (" + reason + "); using defaults for now";
    return RepairResult::notSaved;
}

} // namespace

PreferenceStoreQSettings::PreferenceStoreQSettings()
{
    auto settings = std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope,
        QString::fromLatin1(kOrganization), QString::fromLatin1(kApplication));
    // Only the user's own file: the system-wide ones under /etc/xdg could not be repaired.
    settings->setFallbacksEnabled(false);
    openRepaired(std::move(settings));
}

PreferenceStoreQSettings::PreferenceStoreQSettings(const QString &iniFilePath)
{
    openRepaired(std::make_unique<QSettings>(iniFilePath, QSettings::IniFormat));
}

// QSettings has only read the raw text when it is constructed; values are parsed on first
// access, so the file can still be repaired underneath it.
void PreferenceStoreQSettings::openRepaired(std::unique_ptr<QSettings> settings)
{
    switch (repairFile(settings->fileName())) {
    case RepairResult::unchanged:
        break;
    case RepairResult::repaired:
        // The repaired file is longer, which makes Qt read it again.
        settings->sync();
        break;
    case RepairResult::notSaved:
        m_fallbackDir = std::make_unique<QTemporaryDir>();
        settings = std::make_unique<QSettings>(
            m_fallbackDir->filePath(QStringLiteral("Sayvo.conf")), QSettings::IniFormat);
        break;
    }
    m_settings = std::move(settings);
}

std::optional<QVariant> PreferenceStoreQSettings::value(const QString &key) const
{
    if (!m_settings->contains(key)) {
        return std::nullopt;
    }
    return m_settings->value(key);
}

void PreferenceStoreQSettings::setValue(const QString &key, const QVariant &value)
{
    m_settings->setValue(key, value);
}

void PreferenceStoreQSettings::remove(const QString &key)
{
    m_settings->remove(key);
}

bool PreferenceStoreQSettings::contains(const QString &key) const
{
    return m_settings->contains(key);
}

void PreferenceStoreQSettings::sync()
{
    m_settings->sync();
}

QString PreferenceStoreQSettings::location() const
{
    return m_settings->fileName();
}

QSettings::Status PreferenceStoreQSettings::status() const
{
    return m_settings->status();
}

} // namespace sayvo
