#include "support/store/FakePreferenceStore.h"

namespace sayvo {

FakePreferenceStore::FakePreferenceStore(const QVariantMap &initialValues) : m_values(initialValues)
{ }

std::optional<QVariant> FakePreferenceStore::value(const QString &key) const
{
    const auto found = m_values.constFind(key);
    if (found == m_values.constEnd()) {
        return std::nullopt;
    }
    return *found;
}

void FakePreferenceStore::setValue(const QString &key, const QVariant &value)
{
    m_values.insert(key, value);
    m_writes.push_back({Write::Kind::set, key, value});
}

void FakePreferenceStore::remove(const QString &key)
{
    m_values.remove(key);
    m_writes.push_back({Write::Kind::remove, key, QVariant()});
}

bool FakePreferenceStore::contains(const QString &key) const
{
    return m_values.contains(key);
}

void FakePreferenceStore::sync()
{
    ++m_syncCount;
}

std::vector<FakePreferenceStore::Write> FakePreferenceStore::writesOf(const QString &key) const
{
    std::vector<Write> matching;
    for (const Write &write : m_writes) {
        if (write.key == key) {
            matching.push_back(write);
        }
    }
    return matching;
}

} // namespace sayvo
