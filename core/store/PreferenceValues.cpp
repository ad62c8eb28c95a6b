#include "store/PreferenceValues.h"

#include <cmath>
#include <limits>

namespace sayvo {

namespace {

bool isIntegerType(const QVariant &value)
{
    switch (value.metaType().id()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
        return true;
    default:
        return false;
    }
}

bool isFloatingType(const QVariant &value)
{
    const int type = value.metaType().id();
    return type == QMetaType::Double || type == QMetaType::Float;
}

// Truncates towards zero when the result fits; 2^63 itself is the first double that does not.
std::optional<std::int64_t> truncatedToInt64(double value)
{
    constexpr double kLimit = 9223372036854775808.0;
    if (!std::isfinite(value) || value >= kLimit || value < -kLimit) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(value);
}

std::optional<std::int64_t> int64FromVariant(const QVariant &value)
{
    if (value.metaType().id() == QMetaType::Bool) {
        return value.toBool() ? 1 : 0;
    }
    if (value.metaType().id() == QMetaType::ULongLong
        || value.metaType().id() == QMetaType::ULong) {
        const qulonglong unsignedValue = value.toULongLong();
        if (unsignedValue > static_cast<qulonglong>(std::numeric_limits<std::int64_t>::max())) {
            return std::nullopt;
        }
        return static_cast<std::int64_t>(unsignedValue);
    }
    if (isIntegerType(value)) {
        return value.toLongLong();
    }
    if (isFloatingType(value)) {
        return truncatedToInt64(value.toDouble());
    }
    if (value.metaType().id() == QMetaType::QString) {
        const QString text = value.toString().trimmed();
        bool ok = false;
        const qlonglong integer = text.toLongLong(&ok);
        if (ok) {
            return integer;
        }
        const double number = text.toDouble(&ok);
        if (ok) {
            return truncatedToInt64(number);
        }
    }
    return std::nullopt;
}

std::optional<double> doubleFromVariant(const QVariant &value)
{
    std::optional<double> number;
    if (isFloatingType(value) || isIntegerType(value)) {
        number = value.toDouble();
    } else if (value.metaType().id() == QMetaType::QString) {
        bool ok = false;
        const double parsed = value.toString().trimmed().toDouble(&ok);
        if (ok) {
            number = parsed;
        }
    }
    if (!number || !std::isfinite(*number)) {
        return std::nullopt;
    }
    return number;
}

} // namespace

std::optional<QString> readString(const PreferenceStore &store, const QString &key)
{
    const std::optional<QVariant> value = store.value(key);
    if (!value || value->metaType().id() != QMetaType::QString) {
        return std::nullopt;
    }
    return value->toString();
}

std::optional<QStringList> readStringList(const PreferenceStore &store, const QString &key)
{
    const std::optional<QVariant> value = store.value(key);
    if (!value) {
        return std::nullopt;
    }
    switch (value->metaType().id()) {
    case QMetaType::QStringList:
        return value->toStringList();
    case QMetaType::QString:
        if (!store.readsOneEntryListsAsText()) {
            return std::nullopt;
        }
        return QStringList {value->toString()};
    case QMetaType::QVariantList: {
        QStringList strings;
        for (const QVariant &item : value->toList()) {
            if (item.metaType().id() != QMetaType::QString) {
                return std::nullopt;
            }
            strings.append(item.toString());
        }
        return strings;
    }
    default:
        return std::nullopt;
    }
}

bool readBool(const PreferenceStore &store, const QString &key)
{
    const std::optional<QVariant> value = store.value(key);
    if (!value) {
        return false;
    }
    if (value->metaType().id() == QMetaType::Bool) {
        return value->toBool();
    }
    if (value->metaType().id() == QMetaType::QString) {
        const QString text = value->toString().trimmed();
        if (text.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0
            || text.compare(QLatin1String("yes"), Qt::CaseInsensitive) == 0) {
            return true;
        }
        bool ok = false;
        const qlonglong integer = text.toLongLong(&ok);
        return ok && integer != 0;
    }
    if (isIntegerType(*value)) {
        return value->toLongLong() != 0 || value->toULongLong() != 0;
    }
    if (isFloatingType(*value)) {
        const double number = value->toDouble();
        return number != 0.0 && !std::isnan(number);
    }
    return false;
}

std::int64_t readInt64(const PreferenceStore &store, const QString &key)
{
    const std::optional<QVariant> value = store.value(key);
    return value ? int64FromVariant(*value).value_or(0) : 0;
}

double readDouble(const PreferenceStore &store, const QString &key)
{
    const std::optional<QVariant> value = store.value(key);
    return value ? doubleFromVariant(*value).value_or(0.0) : 0.0;
}

} // namespace sayvo
