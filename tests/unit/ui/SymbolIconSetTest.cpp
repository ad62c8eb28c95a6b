#include "ui/SymbolIconSet.h"

#include <gtest/gtest.h>

using namespace sayvo;

// Each state change asks for its icon again: the same drawing comes back, so Qt's pixmap
// cache, keyed by the icon, holds one scaled copy per symbol and colour instead of one per
// dictation.
TEST(SymbolIconSetTest, AnIconAskedForAgainIsTheSameIcon)
{
    SymbolIconSet icons;
    const QColor green(0x2e, 0x9d, 0x4f);
    const QIcon first = icons.icon(QStringLiteral("checkmark.circle.fill"), green, 56);
    ASSERT_FALSE(first.isNull());
    for (int i = 0; i < 100; ++i) {
        const QIcon again = icons.icon(QStringLiteral("checkmark.circle.fill"), green, 56);
        EXPECT_EQ(again.cacheKey(), first.cacheKey());
        EXPECT_EQ(again.pixmap(28, 28).cacheKey(), first.pixmap(28, 28).cacheKey());
    }
    EXPECT_EQ(icons.size(), 1);
}

TEST(SymbolIconSetTest, EachSymbolColourAndSizeIsDrawnOnce)
{
    SymbolIconSet icons;
    const QColor light(0xf2, 0xf2, 0xf2);
    const QColor dark(0x1d, 0x1d, 0x1f);
    const qint64 mic = icons.icon(QStringLiteral("mic"), light).cacheKey();
    EXPECT_NE(icons.icon(QStringLiteral("mic"), dark).cacheKey(), mic);
    EXPECT_NE(icons.icon(QStringLiteral("mic.fill"), light).cacheKey(), mic);
    EXPECT_NE(icons.icon(QStringLiteral("mic"), light, 32).cacheKey(), mic);
    EXPECT_EQ(icons.icon(QStringLiteral("mic"), light).cacheKey(), mic);
    EXPECT_EQ(icons.size(), 4);
}
