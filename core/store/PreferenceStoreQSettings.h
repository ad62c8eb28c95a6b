#pragma once

#include "store/PreferenceStore.h"

#include <QSettings>
#include <QTemporaryDir>

#include <memory>

namespace sayvo {

// PreferenceStore on QSettings. The default instance is the user's own store in the native
// format: ~/.config/SayvoApp/Sayvo.conf (honouring XDG_CONFIG_HOME) on Linux. macOS uses
// PreferenceStoreUserDefaults instead, because QSettings' macOS backend rewrites the dots of
// "sayvo.*" keys. A file path gives an INI file at that path, which lets tests and tools work
// on a copy. Main thread only; owns its QSettings.
//
// Before Qt parses the file, values Qt would decode as binary variants are rewritten as plain
// text (see IniVariantScrubber), because a damaged one can end the process. If the repaired
// file cannot be saved, this run works on a private copy of the repaired text (owner-only)
// and writes it back to the user's file at every sync() and on destruction, as far as it can.
class PreferenceStoreQSettings : public PreferenceStore
{
public:
    static constexpr const char *kOrganization = "SayvoApp";
    static constexpr const char *kApplication = "Sayvo";

    PreferenceStoreQSettings();
    explicit PreferenceStoreQSettings(const QString &iniFilePath);
    ~PreferenceStoreQSettings() override;

    std::optional<QVariant> value(const QString &key) const override;
    void setValue(const QString &key, const QVariant &value) override;
    void remove(const QString &key) override;
    bool contains(const QString &key) const override;
    void sync() override;
    bool readsOneEntryListsAsText() const override { return true; }

    // Where the values live: the file path on Linux, the domain's property list on macOS.
    QString location() const;
    // Whether the backend could read or write its file; kept for diagnostics only, since an
    // unreadable store simply reads as empty.
    QSettings::Status status() const;

private:
    void openRepaired(std::unique_ptr<QSettings> settings);
    std::unique_ptr<QSettings> privateCopy(const QByteArray &contents);

    // Holds the private file when the user's file could not be repaired.
    std::unique_ptr<QTemporaryDir> m_fallbackDir;
    // The user's file, while the run works on the private one.
    QString m_userFilePath;
    std::unique_ptr<QSettings> m_settings;
};

} // namespace sayvo
