// Dictation on a machine whose cores are all busy: every utterance must land exactly, and the
// user's clipboard must come back after every paste.
#include "support/e2e/DictationDesk.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using sayvo::test::DictationDesk;

namespace {

const QString kSentence = QStringLiteral("please send me the report before the meeting");
const QString kWritten = QStringLiteral("Please send me the report before the meeting.");

// One busy process per core, for as long as this lives.
class CpuLoad
{
public:
    CpuLoad()
    {
        const int cores = std::max(2, QThread::idealThreadCount());
        for (int i = 0; i < cores; ++i) {
            auto busy = std::make_unique<QProcess>();
            busy->start(QStringLiteral("sh"),
                {QStringLiteral("-c"), QStringLiteral("while :; do :; done")});
            busy->waitForStarted(5000);
            m_processes.push_back(std::move(busy));
        }
    }
    ~CpuLoad()
    {
        for (auto &busy : m_processes) {
            busy->kill();
            busy->waitForFinished(5000);
        }
    }

private:
    std::vector<std::unique_ptr<QProcess>> m_processes;
};

QString replayOf(QTemporaryDir &dir, int utterances)
{
    QFile file(dir.filePath(QStringLiteral("replay.txt")));
    file.open(QIODevice::WriteOnly);
    for (int i = 0; i < utterances; ++i) {
        file.write(kSentence.toUtf8() + '\n');
    }
    return QStringLiteral("replay:") + file.fileName();
}

void dictateRepeatedly(const QString &insertionMethod, int utterances)
{
    QTemporaryDir replay;
    DictationDesk desk(
        {replayOf(replay, utterances), {{QStringLiteral("sayvo.insertionMethod"), insertionMethod}},
            QStringLiteral("Editor Under Load")});
    ASSERT_TRUE(desk.isReady()) << desk.failure().toStdString();
    ASSERT_TRUE(desk.launchSayvo()) << desk.log().join('\n').toStdString();
    const QByteArray speech = DictationDesk::synthesize(kSentence);
    ASSERT_FALSE(speech.isEmpty());
    const CpuLoad load;
    for (int i = 0; i < utterances; ++i) {
        SCOPED_TRACE(i);
        desk.editor().setText(QString());
        const QString ownClipboard = QStringLiteral("clipboard %1 of the user").arg(i);
        desk.editor().copy(ownClipboard);
        const QRegularExpression idle(QStringLiteral("state: idle"));
        const int idleBefore = desk.countLog(idle);
        ASSERT_TRUE(desk.dictate(speech, 60000)) << desk.log().join('\n').toStdString();
        EXPECT_TRUE(desk.editor().waitForText(kWritten, 10000))
            << "landed: " << desk.editor().text().toStdString();
        // The outcome is shown once the paste went out; the clipboard is back soon after.
        EXPECT_TRUE(QTest::qWaitFor(
            [&] { return QString::fromUtf8(desk.clipboard()) == ownClipboard; }, 5000))
            << "clipboard: " << desk.clipboard().toStdString();
        ASSERT_TRUE(QTest::qWaitFor([&] { return desk.countLog(idle) > idleBefore; }, 10000));
    }
    EXPECT_EQ(desk.countLog(QRegularExpression(QStringLiteral("state: success"))), utterances)
        << desk.states().join('\n').toStdString();
}

} // namespace

TEST(DictationUnderLoad, EveryPastedUtteranceLandsAndEveryClipboardComesBack)
{
    dictateRepeatedly(QStringLiteral("paste"), 5);
}

TEST(DictationUnderLoad, EveryDirectlyInsertedUtteranceLandsAndTheClipboardIsUntouched)
{
    dictateRepeatedly(QStringLiteral("axDirect"), 3);
}
