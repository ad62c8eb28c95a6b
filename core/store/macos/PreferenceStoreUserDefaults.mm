#include "store/macos/PreferenceStoreUserDefaults.h"

#include "store/NativePreferenceStore.h"

#import <Foundation/Foundation.h>

#include <QStringList>

namespace sayvo {

namespace {

id propertyListObject(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return @(value.toBool());
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return @(value.toLongLong());
    case QMetaType::Float:
    case QMetaType::Double:
        return @(value.toDouble());
    case QMetaType::QByteArray:
        return value.toByteArray().toNSData();
    case QMetaType::QStringList: {
        NSMutableArray<NSString *> *list = [NSMutableArray array];
        for (const QString &item : value.toStringList()) {
            [list addObject:item.toNSString()];
        }
        return list;
    }
    default:
        return value.toString().toNSString();
    }
}

QVariant fromPropertyListObject(id object)
{
    if ([object isKindOfClass:[NSString class]]) {
        return QString::fromNSString(object);
    }
    if ([object isKindOfClass:[NSNumber class]]) {
        const CFTypeRef number = (__bridge CFTypeRef)object;
        if (CFGetTypeID(number) == CFBooleanGetTypeID()) {
            return bool([object boolValue]);
        }
        if (CFNumberIsFloatType(static_cast<CFNumberRef>(number))) {
            return [object doubleValue];
        }
        return qint64([object longLongValue]);
    }
    if ([object isKindOfClass:[NSData class]]) {
        return QByteArray::fromNSData(object);
    }
    if ([object isKindOfClass:[NSArray class]]) {
        QStringList strings;
        QVariantList items;
        bool allStrings = true;
        for (id item in (NSArray *)object) {
            allStrings = allStrings && [item isKindOfClass:[NSString class]];
            if (allStrings) {
                strings.append(QString::fromNSString(item));
            }
            items.append(fromPropertyListObject(item));
        }
        return allStrings ? QVariant(strings) : QVariant(items);
    }
    // Dates and dictionaries are never written by Sayvo; readers treat them as damaged.
    return QVariant();
}

} // namespace

struct PreferenceStoreUserDefaults::Defaults
{
    NSUserDefaults *defaults = nil;
};

PreferenceStoreUserDefaults::PreferenceStoreUserDefaults()
    : m_defaults(std::make_unique<Defaults>())
{
    m_defaults->defaults = [NSUserDefaults standardUserDefaults];
}

PreferenceStoreUserDefaults::PreferenceStoreUserDefaults(const QString &suiteName)
    : m_defaults(std::make_unique<Defaults>())
{
    m_defaults->defaults = [[NSUserDefaults alloc] initWithSuiteName:suiteName.toNSString()];
}

PreferenceStoreUserDefaults::~PreferenceStoreUserDefaults() = default;

std::optional<QVariant> PreferenceStoreUserDefaults::value(const QString &key) const
{
    id object = [m_defaults->defaults objectForKey:key.toNSString()];
    if (!object) {
        return std::nullopt;
    }
    return fromPropertyListObject(object);
}

void PreferenceStoreUserDefaults::setValue(const QString &key, const QVariant &value)
{
    [m_defaults->defaults setObject:propertyListObject(value) forKey:key.toNSString()];
}

void PreferenceStoreUserDefaults::remove(const QString &key)
{
    [m_defaults->defaults removeObjectForKey:key.toNSString()];
}

bool PreferenceStoreUserDefaults::contains(const QString &key) const
{
    return [m_defaults->defaults objectForKey:key.toNSString()] != nil;
}

void PreferenceStoreUserDefaults::sync()
{
    // Writes reach cfprefsd at once; this only waits for them to be on disk.
    [m_defaults->defaults synchronize];
}

std::unique_ptr<PreferenceStore> createNativePreferenceStore()
{
    return std::make_unique<PreferenceStoreUserDefaults>();
}

} // namespace sayvo
