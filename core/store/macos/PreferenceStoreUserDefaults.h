#pragma once

#include "store/PreferenceStore.h"

#include <memory>
#include <optional>

namespace sayvo {

// PreferenceStore on NSUserDefaults, with the keys exactly as given ("sayvo.endpointURL"):
// QSettings' own macOS backend would turn every '.' of a key into a middle dot. Strings,
// booleans, integers, doubles, string lists and byte arrays are stored as their property-list
// types. Main thread only.
class PreferenceStoreUserDefaults : public PreferenceStore
{
public:
    // The standard user defaults: the bundle's own domain (com.sayvoapp.Sayvo).
    PreferenceStoreUserDefaults();
    // A separate suite, so tests never touch the user's real preferences.
    explicit PreferenceStoreUserDefaults(const QString &suiteName);
    ~PreferenceStoreUserDefaults() override;

    std::optional<QVariant> value(const QString &key) const override;
    void setValue(const QString &key, const QVariant &value) override;
    void remove(const QString &key) override;
    bool contains(const QString &key) const override;
    void sync() override;

private:
    // The NSUserDefaults object, kept in the Objective-C++ source.
    struct Defaults;
    std::unique_ptr<Defaults> m_defaults;
};

} // namespace sayvo
