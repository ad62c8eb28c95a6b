#include "store/PreferenceStoreQSettings.h"

#include "store/IniVariantScrubber.h"

#include <QFile>
#include <QLoggingCategory>
#include <QSaveFile>

#include <optional>

namespace sayvo {

namespace {

Q_LOGGING_CATEGORY(lcPreferences, "com.sayvoapp.shell.preferences", QtInfoMsg)

// Replaces the file at `path` with `bytes` whole or not at all; the reason when not.
std::optional<QString> saveWhole(const QString &path, const QByteArray &bytes)
{
    // Unbuffered, so that a short write (a full disk) is seen before commit and the original
    // file kept: an uncommitted QSaveFile is discarded. A buffered one can fail only at commit
    // and still replace the file with a truncated copy.
    QSaveFile save(path);
    if (save.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && save.write(bytes) == bytes.size()
        && save.commit()) {
        return std::nullopt;
    }
    // A short write is no error to Qt.
    return save.error() == QFileDevice::NoError ? QStringLiteral("only part of it could be written")
                                                : save.errorString();
}

QByteArray contentsOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

struct Repair
{
    enum class Result {
        unchanged,
        repaired,
        notSaved
    };
    Result result = Result::unchanged;
    QByteArray repaired;
};

Repair repairFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    const QByteArray original = file.readAll();
    file.close();
    QByteArray repaired = IniVariantScrubber::scrubbed(original);
    if (repaired == original) {
        return {};
    }
    const std::optional<QString> failure = saveWhole(path, repaired);
    if (!failure) {
        qCInfo(lcPreferences).noquote()
            << "Settings file" << path << "held binary values; they are kept as plain text";
        return {Repair::Result::repaired, std::move(repaired)};
    }
    qCWarning(lcPreferences).noquote() << "Settings file" << path
                                       << "holds binary values and cannot be rewritten (" + *failure
            + "); this run keeps its settings aside and saves them at the end";
    return {Repair::Result::notSaved, std::move(repaired)};
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

PreferenceStoreQSettings::~PreferenceStoreQSettings()
{
    sync();
}

// QSettings has only read the raw text when it is constructed; values are parsed on first
// access, so the file can still be repaired underneath it.
void PreferenceStoreQSettings::openRepaired(std::unique_ptr<QSettings> settings)
{
    const Repair repair = repairFile(settings->fileName());
    switch (repair.result) {
    case Repair::Result::unchanged:
        break;
    case Repair::Result::repaired:
        // The repaired file is longer, which makes Qt read it again.
        settings->sync();
        break;
    case Repair::Result::notSaved:
        // The run works on a private copy of the repaired text, so every setting that was
        // readable stays; its changes go back to the user's file at sync() and at the end.
        if (auto copy = privateCopy(repair.repaired)) {
            m_userFilePath = settings->fileName();
            settings = std::move(copy);
        } else {
            // Defaults, and never the damaged text.
            settings = std::make_unique<QSettings>(QString(), QSettings::IniFormat);
        }
        break;
    }
    m_settings = std::move(settings);
}

std::unique_ptr<QSettings> PreferenceStoreQSettings::privateCopy(const QByteArray &contents)
{
    auto directory = std::make_unique<QTemporaryDir>();
    const QString path = directory->filePath(QStringLiteral("Sayvo.conf"));
    QFile file(path);
    if (!directory->isValid() || !file.open(QIODevice::WriteOnly)
        || !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)
        || file.write(contents) != contents.size()) {
        return nullptr;
    }
    file.close();
    m_fallbackDir = std::move(directory);
    return std::make_unique<QSettings>(path, QSettings::IniFormat);
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
    if (m_userFilePath.isEmpty()) {
        return;
    }
    const QByteArray contents = contentsOf(m_settings->fileName());
    if (contents == contentsOf(m_userFilePath)) {
        return;
    }
    if (const std::optional<QString> failure = saveWhole(m_userFilePath, contents)) {
        qCWarning(lcPreferences).noquote()
            << "Settings file" << m_userFilePath << "still cannot be written (" + *failure + ")";
    }
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
