#pragma once

#include "store/PreferenceStore.h"

#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

namespace sayvo {

// Typed reads of preference values. A preference file may have been written by an older
// build, edited by hand or damaged, and the INI backend hands back every scalar as text, so
// each reader accepts the value in its native type or as text and reports anything else as
// unreadable; none of them fails in any other way.

// A string value, or nullopt when the key is absent or holds something else (a list, a map).
std::optional<QString> readString(const PreferenceStore &store, const QString &key);

// A list of strings, or nullopt when the key is absent or holds anything but strings. A
// single string counts as a one-entry list only in a store that reads one-entry lists back
// that way (the INI format); elsewhere it is a value of the wrong type.
std::optional<QStringList> readStringList(const PreferenceStore &store, const QString &key);

// A Boolean: true for a true Boolean, a non-zero number, or the text "true", "yes" or a
// non-zero integer (any letter case); false for everything else, absence included.
bool readBool(const PreferenceStore &store, const QString &key);

// A signed 64-bit integer: an integer value, a finite in-range number truncated towards zero,
// or text that reads as either; 0 for absence and everything else.
std::int64_t readInt64(const PreferenceStore &store, const QString &key);

// A finite double, from a number or text; 0 for absence and everything else. NaN and the
// infinities read as 0 too, so one damaged value cannot poison every later total.
double readDouble(const PreferenceStore &store, const QString &key);

} // namespace sayvo
