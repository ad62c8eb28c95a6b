#include "store/PreferenceValues.h"
#include "support/store/FakePreferenceStore.h"
#include "support/store/StorePrinters.h"

#include <QRect>

#include <gtest/gtest.h>

#include <limits>

namespace sayvo {
namespace {

constexpr QLatin1String kKey("sayvo.test");

FakePreferenceStore holding(const QVariant &value)
{
    return FakePreferenceStore(QVariantMap {{kKey, value}});
}

TEST(PreferenceValues, AbsentKeysReadAsNothingOrZero)
{
    FakePreferenceStore store;
    EXPECT_EQ(readString(store, kKey), std::nullopt);
    EXPECT_EQ(readStringList(store, kKey), std::nullopt);
    EXPECT_FALSE(readBool(store, kKey));
    EXPECT_EQ(readInt64(store, kKey), 0);
    EXPECT_EQ(readDouble(store, kKey), 0.0);
}

TEST(PreferenceValues, StringReadsOnlyText)
{
    EXPECT_EQ(readString(holding(QStringLiteral("en")), kKey), QStringLiteral("en"));
    EXPECT_EQ(readString(holding(QString()), kKey), QString());
    EXPECT_EQ(readString(holding(QStringList {"a", "b"}), kKey), std::nullopt);
    EXPECT_EQ(readString(holding(42), kKey), std::nullopt);
    EXPECT_EQ(readString(holding(true), kKey), std::nullopt);
    EXPECT_EQ(readString(holding(QVariant()), kKey), std::nullopt);
    EXPECT_EQ(readString(holding(QRect(1, 2, 3, 4)), kKey), std::nullopt);
}

TEST(PreferenceValues, StringListReadsListsOfStrings)
{
    EXPECT_EQ(readStringList(holding(QStringList {"a", "b"}), kKey), (QStringList {"a", "b"}));
    EXPECT_EQ(readStringList(holding(QVariantList {"a", "b"}), kKey), (QStringList {"a", "b"}));
    EXPECT_EQ(readStringList(holding(QStringList {}), kKey), QStringList {});
}

TEST(PreferenceValues, StringListTakesALoneStringAsOneEntryOnlyWhereListsComeBackAsText)
{
    FakePreferenceStore ini = holding(QStringLiteral("Kubernetes"));
    ini.oneEntryListsAsText = true;
    EXPECT_EQ(readStringList(ini, kKey), QStringList {"Kubernetes"});
    // In a store that keeps real lists, a lone string is a value of the wrong type.
    EXPECT_EQ(readStringList(holding(QStringLiteral("Kubernetes")), kKey), std::nullopt);
}

TEST(PreferenceValues, StringListRejectsMixedListsAndOtherTypes)
{
    EXPECT_EQ(readStringList(holding(QVariantList {"a", 3}), kKey), std::nullopt);
    EXPECT_EQ(readStringList(holding(42), kKey), std::nullopt);
    EXPECT_EQ(readStringList(holding(QVariant()), kKey), std::nullopt);
    EXPECT_EQ(readStringList(holding(QVariantMap {{"a", "b"}}), kKey), std::nullopt);
}

TEST(PreferenceValues, BoolReadsBooleansNumbersAndText)
{
    EXPECT_TRUE(readBool(holding(true), kKey));
    EXPECT_FALSE(readBool(holding(false), kKey));
    EXPECT_TRUE(readBool(holding(1), kKey));
    EXPECT_TRUE(readBool(holding(-3), kKey));
    EXPECT_FALSE(readBool(holding(0), kKey));
    EXPECT_TRUE(readBool(holding(0.5), kKey));
    EXPECT_FALSE(readBool(holding(0.0), kKey));
    EXPECT_TRUE(readBool(holding(QStringLiteral("true")), kKey));
    EXPECT_TRUE(readBool(holding(QStringLiteral("TRUE")), kKey));
    EXPECT_TRUE(readBool(holding(QStringLiteral("yes")), kKey));
    EXPECT_TRUE(readBool(holding(QStringLiteral("1")), kKey));
    EXPECT_FALSE(readBool(holding(QStringLiteral("false")), kKey));
    EXPECT_FALSE(readBool(holding(QStringLiteral("0")), kKey));
    EXPECT_FALSE(readBool(holding(QStringLiteral("")), kKey));
}

// QVariant would call any non-empty text other than "false" and "0" true; a damaged value must
// not switch a feature on.
TEST(PreferenceValues, BoolReadsGarbageAsFalse)
{
    EXPECT_FALSE(readBool(holding(QStringLiteral("banana")), kKey));
    EXPECT_FALSE(readBool(holding(QStringList {"true", "true"}), kKey));
    EXPECT_FALSE(readBool(holding(QVariant()), kKey));
    EXPECT_FALSE(readBool(holding(std::numeric_limits<double>::quiet_NaN()), kKey));
}

TEST(PreferenceValues, Int64ReadsIntegersAndIntegerText)
{
    EXPECT_EQ(readInt64(holding(qint64(25)), kKey), 25);
    EXPECT_EQ(readInt64(holding(7), kKey), 7);
    EXPECT_EQ(readInt64(holding(QStringLiteral("25")), kKey), 25);
    EXPECT_EQ(readInt64(holding(QStringLiteral("-4")), kKey), -4);
    EXPECT_EQ(readInt64(holding(QStringLiteral("9223372036854775807")), kKey),
        std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(readInt64(holding(QStringLiteral("-9223372036854775808")), kKey),
        std::numeric_limits<std::int64_t>::min());
}

TEST(PreferenceValues, Int64TruncatesFractions)
{
    EXPECT_EQ(readInt64(holding(2.7), kKey), 2);
    EXPECT_EQ(readInt64(holding(-2.7), kKey), -2);
    EXPECT_EQ(readInt64(holding(QStringLiteral("12.9")), kKey), 12);
}

TEST(PreferenceValues, Int64ReadsOutOfRangeAndGarbageAsZero)
{
    EXPECT_EQ(readInt64(holding(QStringLiteral("twelve")), kKey), 0);
    EXPECT_EQ(readInt64(holding(QStringLiteral("9223372036854775808")), kKey), 0);
    EXPECT_EQ(readInt64(holding(1e300), kKey), 0);
    EXPECT_EQ(readInt64(holding(std::numeric_limits<double>::infinity()), kKey), 0);
    EXPECT_EQ(readInt64(holding(std::numeric_limits<double>::quiet_NaN()), kKey), 0);
    EXPECT_EQ(readInt64(holding(qulonglong(1) << 63), kKey), 0);
    EXPECT_EQ(readInt64(holding(QStringList {"1", "2"}), kKey), 0);
    EXPECT_EQ(readInt64(holding(QVariant()), kKey), 0);
}

TEST(PreferenceValues, DoubleReadsNumbersAndNumericText)
{
    EXPECT_EQ(readDouble(holding(10.5), kKey), 10.5);
    EXPECT_EQ(readDouble(holding(3), kKey), 3.0);
    EXPECT_EQ(readDouble(holding(QStringLiteral("0.30000000000000004")), kKey), 0.1 + 0.2);
    EXPECT_EQ(readDouble(holding(QStringLiteral("1e3")), kKey), 1000.0);
}

TEST(PreferenceValues, DoubleReadsNonFiniteAndGarbageAsZero)
{
    EXPECT_EQ(readDouble(holding(QStringLiteral("nan")), kKey), 0.0);
    EXPECT_EQ(readDouble(holding(QStringLiteral("inf")), kKey), 0.0);
    EXPECT_EQ(readDouble(holding(std::numeric_limits<double>::infinity()), kKey), 0.0);
    EXPECT_EQ(readDouble(holding(QStringLiteral("ten")), kKey), 0.0);
    EXPECT_EQ(readDouble(holding(QStringList {"1", "2"}), kKey), 0.0);
    EXPECT_EQ(readDouble(holding(QVariant()), kKey), 0.0);
}

} // namespace
} // namespace sayvo
