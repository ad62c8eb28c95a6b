#include "PreferenceStoreQSettings.h"

namespace sayvo {

PreferenceStoreQSettings::PreferenceStoreQSettings()
    : m_settings(QSettings::NativeFormat, QSettings::UserScope, QString::fromLatin1(kOrganization),
        QString::fromLatin1(kApplication))
{ }

PreferenceStoreQSettings::PreferenceStoreQSettings(const QString &iniFilePath)
    : m_settings(iniFilePath, QSettings::IniFormat)
{ }

std::optional<QVariant> PreferenceStoreQSettings::value(const QString &key) const
{
    if (!m_settings.contains(key)) {
        return std::nullopt;
    }
    return m_settings.value(key);
}

void PreferenceStoreQSettings::setValue(const QString &key, const QVariant &value)
{
    m_settings.setValue(key, value);
}

void PreferenceStoreQSettings::remove(const QString &key)
{
    m_settings.remove(key);
}

bool PreferenceStoreQSettings::contains(const QString &key) const
{
    return m_settings.contains(key);
}

void PreferenceStoreQSettings::sync()
{
    m_settings.sync();
}

QString PreferenceStoreQSettings::location() const
{
    return m_settings.fileName();
}

QSettings::Status PreferenceStoreQSettings::status() const
{
    return m_settings.status();
}

} // namespace sayvo
