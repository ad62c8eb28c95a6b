#pragma once

#include "store/PreferenceStore.h"

#include <QMap>
#include <QString>
#include <QVariant>

#include <vector>

namespace sayvo {

// An in-memory PreferenceStore for unit tests. It holds values with the types they were given
// (like the macOS backend, unlike INI text, unless told to read a lone string as a one-entry
// list) and records every write and removal in order, so a test can assert both what is
// stored and that a write happened.
class FakePreferenceStore : public PreferenceStore
{
public:
    struct Write
    {
        enum class Kind {
            set,
            remove,
        };
        Kind kind;
        QString key;
        QVariant value; // invalid for a removal

        bool operator==(const Write &) const = default;
    };

    FakePreferenceStore() = default;
    // Starts with these values, as if a previous run had left them; not recorded as writes.
    explicit FakePreferenceStore(const QVariantMap &initialValues);

    std::optional<QVariant> value(const QString &key) const override;
    void setValue(const QString &key, const QVariant &value) override;
    void remove(const QString &key) override;
    bool contains(const QString &key) const override;
    void sync() override;
    bool readsOneEntryListsAsText() const override { return oneEntryListsAsText; }

    // Like the INI format rather than the macOS user defaults.
    bool oneEntryListsAsText = false;

    const QVariantMap &values() const { return m_values; }
    const std::vector<Write> &writes() const { return m_writes; }
    // The recorded writes of one key, in order.
    std::vector<Write> writesOf(const QString &key) const;
    void clearWrites() { m_writes.clear(); }
    int syncCount() const { return m_syncCount; }

private:
    QVariantMap m_values;
    std::vector<Write> m_writes;
    int m_syncCount = 0;
};

} // namespace sayvo
