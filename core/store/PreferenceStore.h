#pragma once

#include <QString>
#include <QVariant>

#include <optional>

namespace sayvo {

// The platform's per-user preference store, seen as a flat map of keys to values. The
// settings and usage statistics stores read and write through it and never learn where the
// values live. Main thread only; writes are fire-and-forget (the backend persists them in its
// own time, and at the latest on sync() or destruction).
class PreferenceStore
{
public:
    virtual ~PreferenceStore() = default;

    // The stored value, or nullopt when the key is absent. A present key may still hold a
    // value of an unexpected type (a hand-edited or damaged file); readers decide what that
    // means for them.
    virtual std::optional<QVariant> value(const QString &key) const = 0;
    virtual void setValue(const QString &key, const QVariant &value) = 0;
    virtual void remove(const QString &key) = 0;
    virtual bool contains(const QString &key) const = 0;
    // Pushes pending writes to the backing store now.
    virtual void sync() = 0;

    // Whether a one-entry list comes back as a lone string: the INI format writes it as a plain
    // value and cannot tell the two apart when reading. Stores with real lists keep them.
    virtual bool readsOneEntryListsAsText() const { return false; }
};

} // namespace sayvo
