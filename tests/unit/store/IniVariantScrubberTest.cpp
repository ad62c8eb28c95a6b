#include "store/IniVariantScrubber.h"

#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace sayvo {
namespace {

// Three unsigned 32-bit fields that Qt reads as "a QVariantList of 4,294,967,280 entries";
// Qt reserves room for all of them before it reads the first, and the process ends.
constexpr const char *kHugeList = R"(@Variant(\0\0\0\t\xff\xff\xff\xf0))";

// What Qt makes of one value line once the text has been scrubbed. Every call uses a new file:
// Qt keeps each file it has parsed.
QVariant qtReads(const QByteArray &valueText)
{
    static int files = 0;
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("%1.conf").arg(++files));
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(IniVariantScrubber::scrubbed("[General]\nkey=" + valueText + "\n"));
    file.close();
    return QSettings(path, QSettings::IniFormat).value(QStringLiteral("key"));
}

TEST(IniVariantScrubber, AFileWithoutBinaryValuesIsLeftAsItIs)
{
    const QByteArray text = "[General]\n"
                            "sayvo.endpointURL=ws://127.0.0.1:8765\n"
                            "sayvo.personalDictionary=priya@example.com, @@Variant(x), \"a, b\"\n"
                            "sayvo.language=@@@Variant(\n"
                            "sayvo.inputDeviceUID=\\x40\\x40Variant(\n"
                            "sayvo.hotkeyTrigger=@String(@Variant(\\0))\n"
                            "sayvo.triggerMode=toggle@Variant(\n"
                            "sayvo.usageStats.utterances=12\n";
    EXPECT_EQ(IniVariantScrubber::scrubbed(text), text);
    EXPECT_EQ(IniVariantScrubber::scrubbed(""), "");
}

TEST(IniVariantScrubber, ABinaryValueBecomesItsOwnText)
{
    EXPECT_EQ(IniVariantScrubber::scrubbed(QByteArray("[General]\nsayvo.language=") + kHugeList),
        QByteArray("[General]\nsayvo.language=@") + kHugeList);
    const QVariant read = qtReads(kHugeList);
    EXPECT_EQ(read.typeId(), QMetaType::QString);
    const QString expected = QStringLiteral("@Variant(") + QString(3, QChar(0)) + u'\t'
        + QString(3, QChar(0xff)) + QChar(0xf0) + u')';
    EXPECT_EQ(read.toString(), expected);
}

TEST(IniVariantScrubber, EveryBinaryItemOfAListBecomesText)
{
    const QByteArray value = QByteArray("Sayvo, ") + kHugeList + ",  " + kHugeList;
    const QVariant read = qtReads(value);
    ASSERT_EQ(read.typeId(), QMetaType::QStringList);
    const QStringList items = read.toStringList();
    ASSERT_EQ(items.size(), 3);
    EXPECT_EQ(items[0], QStringLiteral("Sayvo"));
    EXPECT_TRUE(items[1].startsWith(QStringLiteral("@Variant(")));
    EXPECT_EQ(items[2], items[1]);
}

// Qt unescapes before it looks for "@Variant(", so each of these spellings reaches the binary
// reader; each must come out as text.
TEST(IniVariantScrubber, EscapedSpellingsAreFoundToo)
{
    const QByteArray payload = R"(\0\0\0\t\xff\xff\xff\xf0))";
    const QList<QByteArray> spellings {
        "\\x40Variant(",
        "\\x0040Variant(",
        "\\x10040Variant(", // Qt keeps only the low 16 bits of a \x escape
        "\\100Variant(",
        "\\x40\\x56\\x61riant(",
        "@Var\"\"iant(",
        "\"@Variant(\"",
        "@\\qVariant(", // Qt drops an unknown escape with its backslash
        "@\\xVariant(", // and a \x without digits
        "@Vari\\\nant(", // a continued line
        "@Vari\\\r\nant(",
        "  @Variant(",
    };
    for (const QByteArray &spelling : spellings) {
        SCOPED_TRACE(spelling.toStdString());
        const QVariant read = qtReads(spelling + payload);
        EXPECT_EQ(read.typeId(), QMetaType::QString);
        EXPECT_TRUE(read.toString().startsWith(QStringLiteral("@Variant(")));
    }
}

TEST(IniVariantScrubber, BinaryValuesInAnySectionAreFound)
{
    const QByteArray text = QByteArray("[Other]\nsayvo.triggerMode=") + kHugeList
        + "\n[General]\nsayvo.hotkeyTrigger=f5\n";
    const QByteArray scrubbed = IniVariantScrubber::scrubbed(text);
    EXPECT_TRUE(scrubbed.contains("sayvo.triggerMode=@@Variant("));
    EXPECT_TRUE(scrubbed.endsWith("[General]\nsayvo.hotkeyTrigger=f5\n"));
}

TEST(IniVariantScrubber, ScrubbingTwiceChangesNothingMore)
{
    const QList<QByteArray> texts {
        QByteArray("k=") + kHugeList,
        "k=\\x40Variant(\\x40Variant(@Variant(",
        "@Variant(@Variant(",
        "k=\\",
        "k=\\x",
        "k=\\1",
    };
    for (const QByteArray &text : texts) {
        SCOPED_TRACE(text.toStdString());
        const QByteArray once = IniVariantScrubber::scrubbed(text);
        EXPECT_EQ(IniVariantScrubber::scrubbed(once), once);
    }
}

} // namespace
} // namespace sayvo
