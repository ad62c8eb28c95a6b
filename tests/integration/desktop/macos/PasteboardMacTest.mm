#include "desktop/macos/PasteboardMac.h"
#include "desktop/PasteboardSnapshot.h"

#import <AppKit/AppKit.h>

#include <QCoreApplication>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

// A pasteboard of the test's own, so the user's clipboard is never touched.
class PasteboardMacTest : public ::testing::Test
{
protected:
    void TearDown() override { [raw() releaseGlobally]; }

    NSPasteboard *raw() const { return [NSPasteboard pasteboardWithName:name.toNSString()]; }

    const QString name
        = QStringLiteral("com.sayvoapp.Sayvo.tests.%1").arg(QCoreApplication::applicationPid());
    PasteboardMac pasteboard {name};
};

TEST_F(PasteboardMacTest, ADictatedTextIsPlainTextMarkedConcealedAndTransient)
{
    ASSERT_TRUE(pasteboard.setConcealedString(QStringLiteral("Grüße")));
    EXPECT_TRUE([[raw() stringForType:NSPasteboardTypeString] isEqual:@"Grüße"]);
    NSArray<NSPasteboardType> *types = raw().types;
    EXPECT_TRUE([types containsObject:@(PasteboardMac::kConcealedType)]);
    EXPECT_TRUE([types containsObject:@(PasteboardMac::kTransientType)]);
    EXPECT_EQ(pasteboard.string(), QStringLiteral("Grüße"));
}

TEST_F(PasteboardMacTest, EveryItemAndTypeComesBackInOrder)
{
    NSPasteboardItem *first = [[NSPasteboardItem alloc] init];
    [first setString:@"{\\rtf1 a}" forType:NSPasteboardTypeRTF];
    [first setString:@"a" forType:NSPasteboardTypeString];
    NSPasteboardItem *second = [[NSPasteboardItem alloc] init];
    [second setString:@"b" forType:NSPasteboardTypeString];
    NSArray<NSPasteboardItem *> *items = @[ first, second ];
    [raw() clearContents];
    ASSERT_TRUE([raw() writeObjects:items]);

    const PasteboardSnapshot snapshot = PasteboardSnapshot::capture(pasteboard);
    ASSERT_EQ(snapshot.items.size(), 2u);
    ASSERT_TRUE(pasteboard.setConcealedString(QStringLiteral("transcript")));
    const qint64 before = pasteboard.changeCount();
    ASSERT_TRUE(snapshot.restore(pasteboard));

    EXPECT_GT(pasteboard.changeCount(), before);
    EXPECT_EQ(PasteboardSnapshot::capture(pasteboard), snapshot);
    EXPECT_EQ(raw().pasteboardItems.count, 2u);
    EXPECT_TRUE([[raw().pasteboardItems[1] stringForType:NSPasteboardTypeString] isEqual:@"b"]);
}

TEST_F(PasteboardMacTest, AnEmptiedPasteboardHasNoItems)
{
    ASSERT_TRUE(pasteboard.setConcealedString(QStringLiteral("x")));
    pasteboard.clearContents();
    EXPECT_TRUE(pasteboard.items().empty());
    EXPECT_EQ(pasteboard.string(), std::nullopt);
}

} // namespace
} // namespace sayvo
