// The coordinator's utterance lifecycle, context, domains, suggestions and feedback, with a
// real engine client against the scripted test engine and fakes for everything local.
#include "protocol/WireCodec.h"
#include "support/session/CoordinatorHarness.h"

#include <QLoggingCategory>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <thread>

using namespace sayvo;
using sayvo::test::CoordinatorHarness;

namespace {

bool waitFor(const std::function<bool()> &condition, int timeoutMs = 5000)
{
    return QTest::qWaitFor(condition, timeoutMs);
}

bool isIdle(const SayvoCoordinator &c)
{
    return c.state().is<AppState::Idle>();
}

std::vector<nlohmann::json> textMessages(const CoordinatorHarness &h)
{
    std::vector<nlohmann::json> messages;
    for (const QByteArray &text : h.engine.textFrames()) {
        messages.push_back(nlohmann::json::parse(text.toStdString()));
    }
    return messages;
}

int countOfType(const CoordinatorHarness &h, const std::string &type)
{
    int count = 0;
    for (const auto &m : textMessages(h)) {
        count += m["type"] == type ? 1 : 0;
    }
    return count;
}

bool loggedLine(const CoordinatorHarness &h, const char *text)
{
    const QStringList lines = h.logLines();
    return std::any_of(lines.begin(), lines.end(),
        [text](const QString &line) { return line.contains(QLatin1String(text)); });
}

// Runs `check` once `turns` more event-loop turns are over: queued calls run in the order
// they were posted.
void afterTurns(QObject *context, int turns, std::function<void()> check)
{
    QMetaObject::invokeMethod(
        context,
        [context, turns, check = std::move(check)] {
            if (turns > 1) {
                afterTurns(context, turns - 1, check);
            } else {
                check();
            }
        },
        Qt::QueuedConnection);
}

class CoordinatorTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(h.startAndConnect()); }

    // Waits until the pump has sent everything queued so far.
    void settle() { QTest::qWait(50); }

    // One whole utterance in hold-to-talk: down, some audio, up; waits for the result.
    void dictate(const QByteArray &pcm = CoordinatorHarness::tone(6400))
    {
        c().handleTriggerDown();
        h.speak(pcm);
        c().handleTriggerUp();
        ASSERT_TRUE(waitFor([&] { return !c().state().is<AppState::Processing>(); }));
    }

    // How long the state that starts at `index` of the published list stayed before idle.
    qint64 shownForMs(size_t index)
    {
        EXPECT_TRUE(waitFor([&] { return isIdle(c()); }, 4000));
        for (size_t i = index + 1; i < h.states.size(); ++i) {
            if (h.states[i].state.is<AppState::Idle>()) {
                return h.states[i].atMs - h.states[index].atMs;
            }
        }
        return -1;
    }

    size_t lastIndexOf(const std::function<bool(const AppState &)> &predicate)
    {
        for (size_t i = h.states.size(); i-- > 0;) {
            if (predicate(h.states[i].state)) {
                return i;
            }
        }
        return h.states.size();
    }

    SayvoCoordinator &c() { return *h.coordinator; }

    CoordinatorHarness h;
};

} // namespace

TEST(CoordinatorStartTest, AFreshCoordinatorIsIdleAndStartConnectsAndPreparesInput)
{
    CoordinatorHarness h;
    EXPECT_TRUE(h.coordinator->state().is<AppState::Idle>());
    EXPECT_EQ(h.coordinator->connectionHealth(), EngineConnectionHealth::idle());
    EXPECT_FALSE(h.coordinator->inputReady());
    EXPECT_FALSE(h.coordinator->pinnedDomain());
    EXPECT_FALSE(h.coordinator->suggestions());
    ASSERT_EQ(h.coordinator->inputDevices().size(), 1);
    EXPECT_EQ(h.coordinator->inputDevices()[0].uid, "mic-1");

    ASSERT_TRUE(h.startAndConnect());
    EXPECT_TRUE(h.coordinator->inputReady());
    EXPECT_TRUE(h.capture->isPrepared());
    EXPECT_TRUE(h.hotkeys->isInstalled());
    EXPECT_EQ(h.coordinator->connectionHealth(), EngineConnectionHealth::connected(false));
    EXPECT_TRUE(h.logLines().contains("connected: server=test-engine 1.0 mock=false"));
}

TEST(CoordinatorStartTest, InputSetUpFailuresAreLoggedAndRetried)
{
    CoordinatorHarness h;
    h.audioEngine->setUnavailable(QStringLiteral("no sound server"));
    h.keys->failInstall = true;
    EXPECT_FALSE(h.coordinator->retryInputSetupIfNeeded());
    const QStringList log = h.logLines();
    EXPECT_TRUE(std::any_of(log.begin(), log.end(),
        [](const QString &l) { return l.startsWith("audio prewarm failed: "); }));
    EXPECT_TRUE(std::any_of(log.begin(), log.end(), [](const QString &l) {
        return l.startsWith("hotkey tap failed to install: ")
            && l.endsWith(QString::fromUtf8(" — Accessibility not granted?"));
    }));
    EXPECT_FALSE(h.coordinator->inputReady());

    h.keys->failInstall = false;
    EXPECT_FALSE(h.coordinator->retryInputSetupIfNeeded()); // the microphone is still missing
    EXPECT_TRUE(h.hotkeys->isInstalled());
    h.audioEngine->setUnavailable(std::nullopt);
    EXPECT_TRUE(h.coordinator->retryInputSetupIfNeeded());
    EXPECT_EQ(h.keys->installCount, 1);
}

TEST_F(CoordinatorTest, HoldToTalkSendsContextStartAudioEndInOrderAndInsertsTheFinal)
{
    h.answerWith(CoordinatorHarness::finalWithText("Hello there."));
    c().handleTriggerDown();
    ASSERT_TRUE(c().state() == AppState::listening(""));
    ASSERT_TRUE(c().currentUtteranceId().has_value());
    const QString id = *c().currentUtteranceId();
    EXPECT_TRUE(QRegularExpression("^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$")
                    .match(id)
                    .hasMatch());

    const QByteArray pcm = CoordinatorHarness::tone(7000);
    h.speak(pcm);
    h.engine.sendText(
        QByteArray::fromStdString(encode(PartialMessage {id.toStdString(), "hello"})));
    ASSERT_TRUE(waitFor([&] { return c().state() == AppState::listening("hello"); }));
    c().handleTriggerUp();
    EXPECT_TRUE(c().state().is<AppState::Processing>() || c().state().is<AppState::Success>());
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Success>(); }));
    EXPECT_EQ(c().state(), AppState::success("Hello there.", false));
    EXPECT_FALSE(c().currentUtteranceId());
    EXPECT_EQ(h.pastedTexts(), std::vector<QString> {"Hello there."});

    // The engine saw context, start, every byte of audio in 3200-byte chunks, then end.
    const auto types = h.engine.textTypes();
    EXPECT_EQ(types,
        (std::vector<QString> {"hello", "context.update", "utterance.start", "utterance.end"}));
    const auto frames = h.engine.frames();
    const auto endIndex = std::find_if(frames.begin(), frames.end(),
        [](const auto &f) { return !f.binary && f.bytes.contains("utterance.end"); });
    const auto lastAudio
        = std::find_if(frames.rbegin(), frames.rend(), [](const auto &f) { return f.binary; });
    ASSERT_NE(lastAudio, frames.rend());
    EXPECT_LT(std::distance(frames.begin(), lastAudio.base()),
        std::distance(frames.begin(), endIndex) + 1);
    QByteArray audio;
    std::vector<int> sizes;
    for (const QByteArray &frame : h.audioFramesReceived()) {
        audio += frame;
        sizes.push_back(static_cast<int>(frame.size()));
    }
    EXPECT_EQ(audio, pcm);
    EXPECT_EQ(sizes, (std::vector<int> {3200, 3200, 600}));
    const auto messages = textMessages(h);
    EXPECT_EQ(messages[2]["utterance_id"], id.toStdString());
    EXPECT_EQ(messages[3]["utterance_id"], id.toStdString());
    EXPECT_EQ(messages[1]["context"]["app_bundle_id"], "org.example.Editor");
}

// The trigger key's way to the microphone and to the wire, in event-loop turns: the key's own
// turn opens the microphone, or ends the utterance and writes the last audio and
// utterance.end onto the socket.
TEST_F(CoordinatorTest, TheTriggerKeyReachesTheMicrophoneAndTheWireInOneTurn)
{
    QLoggingCategory::setFilterRules(QStringLiteral("com.sayvoapp.shell.latency.debug=true"));
    h.answerWith(CoordinatorHarness::finalWithText("Hi."));
    bool listening = false;
    h.hotkeys->press();
    afterTurns(&c(), 1, [&] { listening = c().state().is<AppState::Listening>(); });
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Listening>(); }));
    EXPECT_TRUE(listening);
    EXPECT_TRUE(h.audioEngine->isRunning());

    h.speak(CoordinatorHarness::tone(7000));
    settle();
    const auto endSent = [&] { return loggedLine(h, "latency: end-sent"); };
    ASSERT_FALSE(endSent());
    bool processing = false;
    bool sent = false;
    h.hotkeys->release();
    afterTurns(&c(), 1, [&] { processing = c().state().is<AppState::Processing>(); });
    afterTurns(&c(), 1, [&] { sent = endSent(); });
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Success>(); }));
    QLoggingCategory::setFilterRules(QString());
    EXPECT_TRUE(processing);
    EXPECT_TRUE(sent);
}

// What the processing state sets off (the HUD and the tray icon redrawn by its observers, and
// what they post to the event loop) comes after utterance.end has gone out, not before it.
TEST_F(CoordinatorTest, TheEndGoesOutBeforeWhatTheProcessingStatePosts)
{
    QLoggingCategory::setFilterRules(QStringLiteral("com.sayvoapp.shell.latency.debug=true"));
    h.answerWith(CoordinatorHarness::finalWithText("Hi."));
    std::optional<bool> sentBeforeObservers;
    std::optional<bool> sentBeforeRepaint;
    QObject::connect(&c(), &SayvoCoordinator::stateChanged, &c(), [&](const AppState &state) {
        if (state.is<AppState::Processing>()) {
            sentBeforeObservers = loggedLine(h, "latency: end-sent");
            QMetaObject::invokeMethod(
                &c(), [&] { sentBeforeRepaint = loggedLine(h, "latency: end-sent"); },
                Qt::QueuedConnection);
        }
    });
    c().handleTriggerDown();
    h.speak(CoordinatorHarness::tone(6400));
    settle(); // the audio so far has gone out: the key-up finds the queue idle
    c().handleTriggerUp();
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Success>(); }));
    QLoggingCategory::setFilterRules(QString());
    ASSERT_TRUE(sentBeforeObservers.has_value());
    EXPECT_TRUE(*sentBeforeObservers);
    ASSERT_TRUE(sentBeforeRepaint.has_value());
    EXPECT_TRUE(*sentBeforeRepaint);
}

// The user's clipboard is read while the engine works on the final, not after it arrives:
// the paste then asks the clipboard's owner for nothing, and the clipboard still comes back.
TEST_F(CoordinatorTest, TheClipboardIsSavedWhileTheEngineFinishes)
{
    const std::vector<PasteboardItem> mine {{{QStringLiteral("text/plain"), QByteArray("mine")}}};
    h.pasteboard->preload(mine);
    h.answerNothing();
    c().handleTriggerDown();
    const std::string id = c().currentUtteranceId()->toStdString();
    h.speak(CoordinatorHarness::tone(3200));
    c().handleTriggerUp();
    ASSERT_TRUE(waitFor([&] { return countOfType(h, "utterance.end") == 1; }));
    EXPECT_EQ(h.pasteboard->log.count(QStringLiteral("items")), 1)
        << h.pasteboard->log.join(' ').toStdString();

    FinalMessage final = CoordinatorHarness::finalWithText("Saved ahead.");
    final.utteranceId = id;
    h.engine.sendText(QByteArray::fromStdString(encode(final)));
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Success>(); }));
    EXPECT_EQ(h.pasteboard->log.count(QStringLiteral("items")), 1)
        << h.pasteboard->log.join(' ').toStdString();
    EXPECT_EQ(h.pastedTexts(), std::vector<QString> {"Saved ahead."});
    ASSERT_TRUE(waitFor([&] { return h.pasteboard->contents == mine; }, 3000));
}

TEST_F(CoordinatorTest, SuccessReturnsToIdleAfterOnePointTwoSeconds)
{
    h.answerWith(CoordinatorHarness::finalWithText("Done."));
    dictate();
    ASSERT_TRUE(c().state().is<AppState::Success>());
    EXPECT_TRUE(c().isReturnToIdlePending());
    const qint64 shown
        = shownForMs(lastIndexOf([](const AppState &s) { return s.is<AppState::Success>(); }));
    EXPECT_GE(shown, 1150);
    EXPECT_LE(shown, 1500);
}

TEST_F(CoordinatorTest, AnUnappliedGuardrailMarksTheSuccessRaw)
{
    h.answerWith(CoordinatorHarness::finalWithText("raw words", false));
    dictate();
    EXPECT_EQ(c().state(), AppState::success("raw words", true));
}

TEST_F(CoordinatorTest, StatsOfTheFinalReachTheUsageStore)
{
    FinalMessage final = CoordinatorHarness::finalWithText("Two words.");
    final.stats = Stats {10.0, 25, 150.0, 0.3, 0.2, 2, 0.08};
    h.answerWith(final);
    dictate();
    EXPECT_EQ(h.usage->utterances(), 1);
    EXPECT_EQ(h.usage->totalWords(), 25);
    EXPECT_DOUBLE_EQ(h.usage->totalAudioSeconds(), 10.0);
}

// The paste chord does not wait for the statistics and the domain to be booked.
TEST_F(CoordinatorTest, TheChordGoesOutBeforeTheStatisticsAndTheDomainAreBooked)
{
    FinalMessage final = CoordinatorHarness::finalWithText("Two words.");
    final.stats = Stats {10.0, 25, 150.0, 0.3, 0.2, 2, 0.08};
    final.domain = "email";
    h.answerWith(final);
    std::optional<std::size_t> chordsWhenRecorded;
    std::optional<std::size_t> chordsWhenResolved;
    QObject::connect(h.usage.get(), &UsageStatsStore::changed, &c(),
        [&] { chordsWhenRecorded = h.synthesizer->posted.size(); });
    QObject::connect(&c(), &SayvoCoordinator::resolvedDomainChanged, &c(),
        [&] { chordsWhenResolved = h.synthesizer->posted.size(); });
    dictate();
    EXPECT_EQ(h.pastedTexts(), std::vector<QString> {"Two words."});
    EXPECT_EQ(chordsWhenRecorded, std::optional<std::size_t>(1));
    EXPECT_EQ(chordsWhenResolved, std::optional<std::size_t>(1));
    EXPECT_EQ(h.usage->utterances(), 1);
    EXPECT_EQ(c().resolvedDomain(), std::optional<QString>(QStringLiteral("email")));
}

TEST_F(CoordinatorTest, AnEmptyFinalIsShownAsEmptyAndLoggedWithoutInsertion)
{
    h.answerWith(CoordinatorHarness::finalWithText(""));
    dictate(CoordinatorHarness::tone(6400));
    EXPECT_TRUE(c().state().is<AppState::EmptyTranscript>());
    EXPECT_TRUE(h.pastedTexts().empty());
    EXPECT_TRUE(h.synthesizer->posted.empty());
    const QStringList log = h.logLines();
    const auto line = std::find_if(log.begin(), log.end(),
        [](const QString &l) { return l.startsWith("empty transcript: "); });
    ASSERT_NE(line, log.end());
    EXPECT_TRUE(line->startsWith("empty transcript: capturedBytes=6400 peakRMS=0."))
        << line->toStdString();
    const qint64 shown = shownForMs(
        lastIndexOf([](const AppState &s) { return s.is<AppState::EmptyTranscript>(); }));
    EXPECT_GE(shown, 1950);
    EXPECT_LE(shown, 2400);
}

TEST_F(CoordinatorTest, AxDirectFallsBackToPasteWhenAccessibilityFails)
{
    h.settings->setInsertionMethod(InsertionMethod::axDirect);
    h.accessibility->available = false;
    h.answerWith(CoordinatorHarness::finalWithText("Via paste."));
    dictate();
    EXPECT_EQ(c().state(), AppState::success("Via paste.", false));
    EXPECT_EQ(h.pastedTexts(), std::vector<QString> {"Via paste."});
}

TEST_F(CoordinatorTest, AxDirectWritesTheFocusedFieldWithoutPasting)
{
    h.settings->setInsertionMethod(InsertionMethod::axDirect);
    auto field
        = h.accessibility->addApplication(4242, QStringLiteral("notes"), QStringLiteral("Dear "));
    field->writable.insert(QStringLiteral("AXSelectedText"));
    h.accessibility->focusSystemWide(field);
    h.answerWith(CoordinatorHarness::finalWithText("Sam,"));
    dictate();
    EXPECT_EQ(c().state(), AppState::success("Sam,", false));
    EXPECT_TRUE(h.pastedTexts().empty());
}

TEST_F(CoordinatorTest, WhenBothInsertionsFailTheUserIsTold)
{
    h.settings->setInsertionMethod(InsertionMethod::axDirect);
    h.accessibility->available = false;
    h.synthesizer->succeeds = false;
    h.answerWith(CoordinatorHarness::finalWithText("Lost."));
    dictate();
    EXPECT_EQ(c().state(), AppState::error("couldn't insert text here"));
    const qint64 shown
        = shownForMs(lastIndexOf([](const AppState &s) { return s.is<AppState::Error>(); }));
    EXPECT_GE(shown, 1950);
    EXPECT_LE(shown, 2400);
}

TEST_F(CoordinatorTest, ToggleModeStartsEndsAndIgnoresPressesWhileAResultShows)
{
    h.settings->setTriggerMode(TriggerMode::toggle);
    h.answerWith(CoordinatorHarness::finalWithText("Toggled."));
    c().handleTriggerDown();
    EXPECT_TRUE(c().state().is<AppState::Listening>());
    c().handleTriggerUp(); // releases mean nothing in toggle mode
    EXPECT_TRUE(c().state().is<AppState::Listening>());
    h.speak(CoordinatorHarness::tone(3200));
    c().handleTriggerDown();
    EXPECT_TRUE(c().state().is<AppState::Processing>());
    c().handleTriggerDown(); // while processing: ignored
    EXPECT_TRUE(c().state().is<AppState::Processing>());
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Success>(); }));
    const size_t starts = static_cast<size_t>(countOfType(h, "utterance.start"));
    c().handleTriggerDown(); // while the result shows: ignored
    EXPECT_TRUE(c().state().is<AppState::Success>());
    settle();
    EXPECT_EQ(static_cast<size_t>(countOfType(h, "utterance.start")), starts);
    ASSERT_TRUE(waitFor([&] { return isIdle(c()); }));
    c().handleTriggerDown();
    EXPECT_TRUE(c().state().is<AppState::Listening>());
}

TEST_F(CoordinatorTest, ToggleModeIgnoresAPressWhileAnErrorShows)
{
    h.settings->setTriggerMode(TriggerMode::toggle);
    h.answerNothing();
    c().handleTriggerDown();
    h.engine.sendText(R"({"type":"error","code":"x","message":"engine broke"})");
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Error>(); }));
    c().handleTriggerDown();
    EXPECT_EQ(c().state(), AppState::error("engine broke"));
}

TEST_F(CoordinatorTest, TheTrayToggleStartsAndEndsInHoldModeToo)
{
    h.answerWith(CoordinatorHarness::finalWithText("Clicked."));
    ASSERT_EQ(h.settings->triggerMode(), TriggerMode::holdToTalk);
    c().toggleDictation();
    EXPECT_TRUE(c().state().is<AppState::Listening>());
    h.speak(CoordinatorHarness::tone(3200));
    c().toggleDictation();
    EXPECT_TRUE(c().state().is<AppState::Processing>());
    c().toggleDictation(); // while processing: nothing
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Success>(); }));
    c().toggleDictation(); // while the result shows: nothing
    EXPECT_TRUE(c().state().is<AppState::Success>());
}

TEST_F(CoordinatorTest, AReleaseWithoutABeginDoesNothing)
{
    c().handleTriggerUp();
    settle();
    EXPECT_TRUE(isIdle(c()));
    EXPECT_TRUE(h.states.empty());
    EXPECT_EQ(countOfType(h, "utterance.end"), 0);
}

TEST_F(CoordinatorTest, APressWhileListeningStartsNothingNew)
{
    c().handleTriggerDown();
    const QString id = *c().currentUtteranceId();
    c().handleTriggerDown();
    EXPECT_EQ(*c().currentUtteranceId(), id);
    settle();
    EXPECT_EQ(countOfType(h, "utterance.start"), 1);
}

TEST_F(CoordinatorTest, StalePartialsAndFinalsChangeNothing)
{
    h.answerNothing();
    h.engine.sendText(R"({"type":"partial","utterance_id":"NOPE","text":"ghost"})");
    h.engine.sendText(QByteArray::fromStdString(encode([] {
        FinalMessage f = CoordinatorHarness::finalWithText("Ghost.");
        f.utteranceId = "NOPE";
        return f;
    }())));
    settle();
    EXPECT_TRUE(isIdle(c()));
    EXPECT_TRUE(h.pastedTexts().empty());

    c().handleTriggerDown();
    h.engine.sendText(R"({"type":"partial","utterance_id":"OTHER","text":"ghost"})");
    settle();
    EXPECT_EQ(c().state(), AppState::listening(""));
    c().handleTriggerUp();
    FinalMessage other = CoordinatorHarness::finalWithText("Other.");
    other.utteranceId = "OTHER";
    h.engine.sendText(QByteArray::fromStdString(encode(other)));
    settle();
    EXPECT_TRUE(c().state().is<AppState::Processing>());
    EXPECT_TRUE(h.pastedTexts().empty());
}

TEST_F(CoordinatorTest, AFinalAfterTheUtteranceWasAbandonedIsIgnored)
{
    h.answerNothing();
    c().handleTriggerDown();
    const std::string id = c().currentUtteranceId()->toStdString();
    h.engine.sendText(R"({"type":"error","code":"asr","message":"recogniser failed"})");
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Error>(); }));
    EXPECT_FALSE(c().currentUtteranceId());
    FinalMessage late = CoordinatorHarness::finalWithText("Late.");
    late.utteranceId = id;
    h.engine.sendText(QByteArray::fromStdString(encode(late)));
    settle();
    EXPECT_EQ(c().state(), AppState::error("recogniser failed"));
    EXPECT_TRUE(h.pastedTexts().empty());
    c().handleTriggerUp(); // the key released after the error: nothing
    EXPECT_EQ(c().state(), AppState::error("recogniser failed"));
}

TEST_F(CoordinatorTest, AnEngineErrorDuringAnUtteranceIsShownForTwoSeconds)
{
    h.answerNothing();
    c().handleTriggerDown();
    h.engine.sendText(R"({"type":"error","code":"too_long","message":"utterance too long"})");
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Error>(); }));
    EXPECT_EQ(c().state(), AppState::error("utterance too long"));
    EXPECT_TRUE(h.logLines().contains("engine error [too_long]: utterance too long"));
    EXPECT_FALSE(h.capture->isForwarding());
    const qint64 shown
        = shownForMs(lastIndexOf([](const AppState &s) { return s.is<AppState::Error>(); }));
    EXPECT_GE(shown, 1950);
    EXPECT_LE(shown, 2400);
}

TEST_F(CoordinatorTest, AnEngineErrorOutsideAnUtteranceOnlyLogs)
{
    h.engine.sendText(R"({"type":"error","code":"bad","message":"stray"})");
    ASSERT_TRUE(waitFor([&] { return h.logLines().contains("engine error [bad]: stray"); }));
    EXPECT_TRUE(isIdle(c()));
    EXPECT_TRUE(h.states.empty());
}

TEST_F(CoordinatorTest, LosingTheConnectionWhileProcessingShowsConnectionLost)
{
    h.answerNothing();
    c().handleTriggerDown();
    h.speak(CoordinatorHarness::tone(3200));
    c().handleTriggerUp();
    ASSERT_TRUE(waitFor([&] { return countOfType(h, "utterance.end") == 1; }));
    h.engine.dropConnection();
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Error>(); }));
    EXPECT_EQ(c().state(), AppState::error("connection lost"));
    EXPECT_EQ(c().connectionHealth(), EngineConnectionHealth::offline());
    EXPECT_FALSE(c().currentUtteranceId());
    const qint64 shown
        = shownForMs(lastIndexOf([](const AppState &s) { return s.is<AppState::Error>(); }));
    EXPECT_GE(shown, 1950);
    EXPECT_LE(shown, 2400);
}

TEST_F(CoordinatorTest, LosingTheConnectionWhileIdleOnlyChangesHealth)
{
    h.engine.dropConnection();
    ASSERT_TRUE(
        waitFor([&] { return c().connectionHealth() == EngineConnectionHealth::offline(); }));
    EXPECT_TRUE(isIdle(c()));
    EXPECT_TRUE(h.states.empty());
}

TEST(CoordinatorConnectionTest, BeforeTheFirstConnectionTheEngineIsStartingUpAfterwardsReconnecting)
{
    CoordinatorHarness h;
    h.engine.stopListening();
    h.client->updateEndpoint(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(h.engine.port())));
    h.coordinator->start();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return h.coordinator->connectionHealth() == EngineConnectionHealth::offline(); },
        5000));
    h.coordinator->handleTriggerDown();
    EXPECT_EQ(h.coordinator->state(), AppState::error(QString::fromUtf8("Engine starting up…")));
    EXPECT_FALSE(h.coordinator->currentUtteranceId());
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.coordinator->state().is<AppState::Idle>(); }, 3000));
    const qint64 shown = h.states.back().atMs - h.states[h.states.size() - 2].atMs;
    EXPECT_GE(shown, 1950);
    EXPECT_LE(shown, 2400);

    // Once connected, the same situation reads as a reconnect.
    sayvo::test::TestEngine second;
    ASSERT_TRUE(second.listen());
    h.client->updateEndpoint(second.url());
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return h.coordinator->connectionHealth().is<EngineConnectionHealth::Connected>(); },
        5000));
    EXPECT_TRUE(h.coordinator->hasEverConnected());
    second.dropConnection();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return h.coordinator->connectionHealth() == EngineConnectionHealth::offline(); },
        5000));
    h.coordinator->handleTriggerDown();
    EXPECT_EQ(
        h.coordinator->state(), AppState::error(QString::fromUtf8("Reconnecting to engine…")));
}

TEST(CoordinatorConnectionTest, AMockEngineIsRefused)
{
    CoordinatorHarness h;
    h.engine.setHelloAckBackends(Backends {"mock", "mock", "mock"});
    ASSERT_TRUE(h.startAndConnect());
    EXPECT_EQ(h.coordinator->connectionHealth(), EngineConnectionHealth::connected(true));
    h.coordinator->handleTriggerDown();
    EXPECT_EQ(h.coordinator->state(),
        AppState::error(QString::fromUtf8("Engine in mock mode — restart it (no transcription)")));
    EXPECT_TRUE(h.logLines().contains(QString::fromUtf8(
        "refusing to dictate: engine backends are mock (placeholder) — restart the engine")));
    EXPECT_FALSE(h.capture->isForwarding());
    QTest::qWait(50);
    EXPECT_EQ(h.engine.textTypes(), std::vector<QString> {"hello"});
}

TEST_F(CoordinatorTest, ASocketClosedBeforeTheStartIsSentFailsTheUtteranceOnce)
{
    c().handleTriggerDown();
    h.speak(CoordinatorHarness::tone(3200));
    h.client->disconnect(); // the socket is gone before the pump sends the start
    EXPECT_EQ(c().state(), AppState::error(SayvoCoordinator::kConnectionRestartedMessage));
    EXPECT_FALSE(c().currentUtteranceId());
    EXPECT_FALSE(h.capture->isForwarding());
    // Nothing of it reaches the next connection.
    h.client->connect();
    ASSERT_TRUE(waitFor([&] { return h.engine.connectionCount() == 2; }));
    const qint64 shown
        = shownForMs(lastIndexOf([](const AppState &s) { return s.is<AppState::Error>(); }));
    EXPECT_GE(shown, 1950);
    EXPECT_LE(shown, 2400);
    EXPECT_EQ(h.engine.textTypes(), (std::vector<QString> {"hello", "hello"}));
    EXPECT_TRUE(h.audioFramesReceived().empty());
    EXPECT_EQ(std::count_if(h.states.begin(), h.states.end(),
                  [](const CoordinatorHarness::StateChange &change) {
                      return change.state.is<AppState::Error>();
                  }),
        1);
}

TEST_F(CoordinatorTest, AnEndNotYetSentWhenTheSocketClosedStaysUnsent)
{
    c().handleTriggerDown();
    ASSERT_TRUE(waitFor([&] { return countOfType(h, "utterance.start") == 1; }));
    c().handleTriggerUp();
    h.client->disconnect();
    EXPECT_EQ(c().state(), AppState::error(SayvoCoordinator::kConnectionRestartedMessage));
    h.client->connect();
    ASSERT_TRUE(
        waitFor([&] { return c().connectionHealth().is<EngineConnectionHealth::Connected>(); }));
    ASSERT_TRUE(waitFor([&] { return isIdle(c()); }));
    EXPECT_EQ(countOfType(h, "utterance.end"), 0);
    h.answerWith(CoordinatorHarness::finalWithText("Fine."));
    dictate();
    EXPECT_EQ(c().state(), AppState::success("Fine.", false));
    EXPECT_EQ(countOfType(h, "utterance.end"), 1);
}

TEST_F(CoordinatorTest, ANewUtteranceCancelsThePendingReturnToIdle)
{
    h.engine.dropConnection();
    ASSERT_TRUE(
        waitFor([&] { return c().connectionHealth() == EngineConnectionHealth::offline(); }));
    c().handleTriggerDown(); // error "Reconnecting to engine…", idle in 2 s
    ASSERT_TRUE(c().state().is<AppState::Error>());
    ASSERT_TRUE(
        waitFor([&] { return c().connectionHealth().is<EngineConnectionHealth::Connected>(); }));
    QTest::qWait(300);
    ASSERT_TRUE(waitFor([&] { return isIdle(c()); }));
    h.answerNothing();
    c().handleTriggerDown();
    ASSERT_TRUE(c().state().is<AppState::Listening>());
    EXPECT_FALSE(c().isReturnToIdlePending());
    QTest::qWait(2200);
    EXPECT_TRUE(c().state().is<AppState::Listening>()); // no stale timer fired
}

TEST_F(CoordinatorTest, CaptureGoesLiveOnlyWhileListening)
{
    h.answerNothing();
    c().handleTriggerDown();
    EXPECT_FALSE(c().isCaptureLive());
    h.speak(CoordinatorHarness::tone(3200));
    ASSERT_TRUE(waitFor([&] { return c().isCaptureLive(); }));
    c().handleTriggerUp();
    settle();
    c().handleTriggerDown(); // processing: ignored, so no new utterance resets the flag
    EXPECT_TRUE(c().isCaptureLive());
}

TEST_F(CoordinatorTest, TheTriggerKeyReachesTheCoordinatorThroughTheEventLoop)
{
    h.answerNothing();
    h.keys->keyDown(h.keys->codes.f5);
    EXPECT_TRUE(isIdle(c())); // never inside the key callback
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Listening>(); }));
    h.keys->keyUp(h.keys->codes.f5);
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Processing>(); }));
}

TEST_F(CoordinatorTest, AMicrophoneChangeDuringAnUtteranceNeitherHangsNorLosesTheEnd)
{
    FakeAudioDevice usb;
    usb.id = 12;
    usb.uid = QStringLiteral("usb-1");
    usb.name = QStringLiteral("USB Mic");
    usb.sampleRate = 48000.0;
    h.hardware.addDevice(usb);
    h.hardware.notifyDeviceListChanged();
    ASSERT_TRUE(waitFor([&] { return c().inputDevices().size() == 2; }));

    h.answerWith(CoordinatorHarness::finalWithText("Still here."));
    c().handleTriggerDown();
    h.speak(CoordinatorHarness::tone(3200));
    h.settings->setInputDeviceUID(QStringLiteral("usb-1"));
    EXPECT_EQ(h.capture->desiredDeviceUID(), QStringLiteral("usb-1"));
    c().handleTriggerUp();
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Success>(); }));
    EXPECT_EQ(countOfType(h, "utterance.end"), 1);
    EXPECT_EQ(h.capture->activeDeviceUID(), QStringLiteral("usb-1"));
}

TEST_F(CoordinatorTest, EachDeviceChangeRebuildsTheCaptureOnce)
{
    FakeAudioDevice usb;
    usb.id = 12;
    usb.uid = QStringLiteral("usb-1");
    usb.name = QStringLiteral("USB Mic");
    ASSERT_TRUE(h.capture->isPrepared());
    const int initialBuilds = h.audioEngine->installTapCalls();

    // Chosen while absent: the default stays bound, nothing to rebuild onto.
    h.settings->setInputDeviceUID(QStringLiteral("usb-1"));
    EXPECT_EQ(h.audioEngine->installTapCalls(), initialBuilds + 1);

    // Plugged in: one rebuild onto it.
    h.hardware.addDevice(usb);
    h.hardware.notifyDeviceListChanged();
    ASSERT_TRUE(waitFor([&] { return c().inputDevices().size() == 2; }));
    EXPECT_EQ(h.audioEngine->installTapCalls(), initialBuilds + 2);
    EXPECT_EQ(h.capture->activeDeviceUID(), QStringLiteral("usb-1"));

    // Back to the default: one more.
    h.settings->setInputDeviceUID(std::nullopt);
    EXPECT_EQ(h.audioEngine->installTapCalls(), initialBuilds + 3);
    EXPECT_EQ(h.capture->activeDeviceUID(), std::nullopt);
}

TEST_F(CoordinatorTest, ANewSystemDefaultInputIsFollowedOnlyWithoutAChosenDevice)
{
    ASSERT_TRUE(h.capture->isPrepared());
    const int initialBuilds = h.audioEngine->installTapCalls();

    // "System default": the capture moves to the input the user just picked in the system.
    h.audioEngine->setFormat({44100.0, 2});
    h.hardware.notifyDefaultInputChanged();
    ASSERT_TRUE(waitFor([&] { return h.audioEngine->installTapCalls() == initialBuilds + 1; }));
    EXPECT_EQ(h.audioEngine->tapFormat(), (AudioStreamFormat {44100.0, 2}));

    // A chosen microphone stays bound whatever the system prefers.
    FakeAudioDevice usb;
    usb.id = 12;
    usb.uid = QStringLiteral("usb-1");
    usb.name = QStringLiteral("USB Mic");
    h.hardware.addDevice(usb);
    h.settings->setInputDeviceUID(QStringLiteral("usb-1"));
    ASSERT_EQ(h.capture->activeDeviceUID(), QStringLiteral("usb-1"));
    const int chosenBuilds = h.audioEngine->installTapCalls();
    h.hardware.notifyDefaultInputChanged();
    QCoreApplication::processEvents();
    QTest::qWait(50);
    EXPECT_EQ(h.audioEngine->installTapCalls(), chosenBuilds);
}

TEST_F(CoordinatorTest, AnInterruptedMicrophoneIsRebuiltAndTheUtteranceGoesOn)
{
    h.answerWith(CoordinatorHarness::finalWithText("Still here."));
    c().handleTriggerDown();
    ASSERT_TRUE(h.audioEngine->isRunning());
    const int builds = h.audioEngine->installTapCalls();
    h.speak(CoordinatorHarness::tone(3200));

    // The input changed format under the running engine, which stopped.
    h.audioEngine->setFormat({48000.0, 1});
    std::thread soundSystem([&] { h.audioEngine->interrupt(QStringLiteral("format change")); });
    soundSystem.join();
    ASSERT_TRUE(waitFor([&] { return h.audioEngine->isRunning(); }));
    EXPECT_EQ(h.audioEngine->installTapCalls(), builds + 1);
    EXPECT_EQ(h.audioEngine->tapFormat(), (AudioStreamFormat {48000.0, 1}));

    c().handleTriggerUp();
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Success>(); }));
    EXPECT_EQ(countOfType(h, "utterance.end"), 1);
}

TEST_F(CoordinatorTest, ChangingTheFeedbackSettingReconnectsEachTime)
{
    ASSERT_EQ(h.engine.connectionCount(), 1);
    h.settings->setFeedbackEnabled(true);
    ASSERT_TRUE(waitFor([&] {
        return h.engine.connectionCount() == 2
            && c().connectionHealth().is<EngineConnectionHealth::Connected>();
    }));
    EXPECT_EQ(textMessages(h).back()["feedback_enabled"], true);
    h.settings->setFeedbackEnabled(false);
    ASSERT_TRUE(waitFor([&] { return h.engine.connectionCount() == 3; }));
    ASSERT_TRUE(
        waitFor([&] { return c().connectionHealth().is<EngineConnectionHealth::Connected>(); }));
    EXPECT_EQ(textMessages(h).back()["feedback_enabled"], false);
    EXPECT_EQ(h.engine.closeCode(0), 1001);
}

TEST_F(CoordinatorTest, ChangingTheLanguageReconnectsWithItInTheHello)
{
    ASSERT_EQ(h.engine.connectionCount(), 1);
    EXPECT_FALSE(textMessages(h).front().contains("language"));
    h.settings->setLanguage(QStringLiteral("hi"));
    ASSERT_TRUE(waitFor([&] {
        return h.engine.connectionCount() == 2
            && c().connectionHealth().is<EngineConnectionHealth::Connected>();
    }));
    EXPECT_EQ(textMessages(h).back()["type"], "hello");
    EXPECT_EQ(textMessages(h).back()["language"], "hi");
    // Back to the engine's default: the hello names no language.
    h.settings->setLanguage(std::nullopt);
    ASSERT_TRUE(waitFor([&] {
        return h.engine.connectionCount() == 3
            && c().connectionHealth().is<EngineConnectionHealth::Connected>();
    }));
    EXPECT_EQ(textMessages(h).back()["type"], "hello");
    EXPECT_FALSE(textMessages(h).back().contains("language"));
}

TEST_F(CoordinatorTest, FeedbackFollowsEachFinalOnlyWhenEnabled)
{
    h.answerWith(CoordinatorHarness::finalWithText("No feedback."));
    dictate();
    settle();
    EXPECT_EQ(countOfType(h, "utterance.feedback"), 0);

    h.settings->setFeedbackEnabled(true);
    ASSERT_TRUE(waitFor([&] {
        return h.engine.connectionCount() == 2
            && c().connectionHealth().is<EngineConnectionHealth::Connected>();
    }));
    ASSERT_TRUE(waitFor([&] { return isIdle(c()); }));
    h.synthesizer->succeeds = false; // sent even when the insertion failed
    h.answerWith(CoordinatorHarness::finalWithText("With feedback."));
    c().handleTriggerDown();
    const std::string id = c().currentUtteranceId()->toStdString();
    QTest::qWait(120);
    c().handleTriggerUp();
    ASSERT_TRUE(waitFor([&] { return countOfType(h, "utterance.feedback") == 1; }));
    EXPECT_EQ(c().state(), AppState::error("couldn't insert text here"));
    nlohmann::json feedback;
    for (const auto &m : textMessages(h)) {
        if (m["type"] == "utterance.feedback") {
            feedback = m;
        }
    }
    EXPECT_EQ(feedback["utterance_id"], id);
    EXPECT_EQ(feedback["final_text_after_edit"], "With feedback.");
    EXPECT_EQ(feedback["source"], "edit");
    EXPECT_GE(feedback["edit_delay_ms"].get<int>(), 100);
    EXPECT_LT(feedback["edit_delay_ms"].get<int>(), 5000);
}

TEST_F(CoordinatorTest, ACalibrationSinkTakesTheFinalInsteadOfTheInserter)
{
    std::vector<FinalMessage> sunk;
    SayvoCoordinator::CalibrationSink sink;
    sink.onFinal = [&](const FinalMessage &f) { sunk.push_back(f); };
    FinalMessage final = CoordinatorHarness::finalWithText("Calibrated.");
    final.stats = Stats {1.0, 1, 60.0, 0.5, 0.4, 0, 0.0};
    h.answerWith(final);
    ASSERT_TRUE(c().beginCalibrationUtterance(sink).ok());
    EXPECT_TRUE(c().hasCalibrationSink());
    h.speak(CoordinatorHarness::tone(3200));
    c().endCalibrationUtterance();
    ASSERT_TRUE(waitFor([&] { return sunk.size() == 1; }));
    EXPECT_EQ(sunk[0].formattedText, "Calibrated.");
    EXPECT_TRUE(isIdle(c()));
    EXPECT_FALSE(c().isReturnToIdlePending());
    EXPECT_TRUE(h.pastedTexts().empty());
    EXPECT_EQ(h.usage->utterances(), 1);
    EXPECT_EQ(c().resolvedDomain(), QStringLiteral("default"));
    EXPECT_FALSE(c().hasCalibrationSink()) << "one line, one sink";

    h.answerWith(CoordinatorHarness::finalWithText("Typed."));
    c().handleTriggerDown();
    h.speak(CoordinatorHarness::tone(3200));
    c().handleTriggerUp();
    ASSERT_TRUE(waitFor([&] { return h.pastedTexts().size() == 1; }));
    EXPECT_EQ(sunk.size(), 1u);
}

TEST_F(CoordinatorTest, ACalibrationUtteranceStartsOnlyFromIdleWithAnEngine)
{
    int calls = 0;
    SayvoCoordinator::CalibrationSink sink;
    sink.onFinal = [&](const FinalMessage &) { ++calls; };
    c().stop();
    const auto offline = c().beginCalibrationUtterance(sink);
    ASSERT_FALSE(offline.ok());
    EXPECT_EQ(offline.error(), SayvoCoordinator::CalibrationStartError::engineUnavailable);
    EXPECT_FALSE(c().hasCalibrationSink());
    const auto busy = c().beginCalibrationUtterance(sink);
    ASSERT_FALSE(busy.ok()) << "the error is still on screen";
    EXPECT_EQ(busy.error(), SayvoCoordinator::CalibrationStartError::busy);
    EXPECT_FALSE(c().hasCalibrationSink());
    EXPECT_EQ(calls, 0);
}

TEST_F(CoordinatorTest, ACancelledCalibrationUtteranceEndsAndItsFinalReachesNobody)
{
    int calls = 0;
    SayvoCoordinator::CalibrationSink sink;
    sink.onFinal = [&](const FinalMessage &) { ++calls; };
    sink.onFailure = [&](const QString &) { ++calls; };
    h.answerWith(CoordinatorHarness::finalWithText("Not for anyone."));
    ASSERT_TRUE(c().beginCalibrationUtterance(sink).ok());
    h.speak(CoordinatorHarness::tone(3200));
    c().cancelCalibrationUtterance();
    EXPECT_TRUE(isIdle(c()));
    EXPECT_FALSE(c().hasCalibrationSink());
    EXPECT_FALSE(c().currentUtteranceId().has_value());
    EXPECT_FALSE(h.capture->isForwarding());
    EXPECT_FALSE(c().isAwaitingFinal());
    ASSERT_TRUE(waitFor([&] { return countOfType(h, "utterance.end") == 1; }));
    h.answerWith(CoordinatorHarness::finalWithText("Typed."));
    c().handleTriggerDown();
    h.speak(CoordinatorHarness::tone(3200));
    c().handleTriggerUp();
    ASSERT_TRUE(waitFor([&] { return h.pastedTexts().size() == 1; }));
    EXPECT_EQ(h.pastedTexts().front(), QStringLiteral("Typed."));
    EXPECT_EQ(calls, 0);
}

TEST_F(CoordinatorTest, TheEndOfACancelledCalibrationUtteranceNeverReachesTheNextConnection)
{
    h.answerNothing();
    ASSERT_TRUE(c().beginCalibrationUtterance({}).ok());
    ASSERT_TRUE(waitFor([&] { return countOfType(h, "utterance.start") == 1; }));
    c().cancelCalibrationUtterance();
    h.client->disconnect(); // before the pump sends the end
    h.client->connect();
    ASSERT_TRUE(
        waitFor([&] { return c().connectionHealth().is<EngineConnectionHealth::Connected>(); }));
    EXPECT_EQ(countOfType(h, "utterance.end"), 0);
    EXPECT_TRUE(isIdle(c()));
    h.answerWith(CoordinatorHarness::finalWithText("Fine."));
    dictate();
    EXPECT_EQ(c().state(), AppState::success("Fine.", false));
    EXPECT_EQ(countOfType(h, "utterance.end"), 1);
}

TEST_F(CoordinatorTest, ACalibrationUtteranceThatFailsTellsItsSinkWhy)
{
    std::vector<QString> failures;
    SayvoCoordinator::CalibrationSink sink;
    sink.onFailure = [&](const QString &message) { failures.push_back(message); };
    h.answerNothing();
    ASSERT_TRUE(c().beginCalibrationUtterance(sink).ok());
    h.engine.dropConnection();
    ASSERT_TRUE(waitFor([&] { return failures.size() == 1; }));
    EXPECT_EQ(failures.front(), QStringLiteral("connection lost"));
    EXPECT_FALSE(c().hasCalibrationSink());
}

TEST_F(CoordinatorTest, StopRemovesTheTapDisconnectsAndSendsNothingMore)
{
    h.answerNothing();
    c().handleTriggerDown();
    h.speak(CoordinatorHarness::tone(6400));
    ASSERT_TRUE(waitFor([&] { return h.audioFramesReceived().size() == 2; }));
    const size_t frames = h.engine.frames().size();

    c().stop();
    EXPECT_FALSE(h.hotkeys->isInstalled());
    EXPECT_FALSE(h.capture->isForwarding());
    EXPECT_TRUE(h.client->connectionState().is<ConnectionState::Disconnected>());
    EXPECT_EQ(c().connectionHealth(), EngineConnectionHealth::idle());
    ASSERT_TRUE(waitFor([&] { return h.engine.closeCode(0).has_value(); }));
    EXPECT_EQ(h.engine.closeCode(0), 1001);

    // Neither the microphone, nor a setting that reconnects a running coordinator, nor the
    // tray's toggle gets anything to the engine any more.
    h.speak(CoordinatorHarness::tone(6400));
    h.settings->setFeedbackEnabled(true);
    c().toggleDictation();
    h.keys->keyDown(h.keys->codes.f5);
    QTest::qWait(300);
    EXPECT_EQ(h.engine.connectionCount(), 1);
    EXPECT_EQ(h.engine.frames().size(), frames);
}

TEST_F(CoordinatorTest, AFinalWhileTheKeyIsStillHeldClosesTheMicrophone)
{
    // An engine that ends the utterance by itself (its length cap, or silence).
    h.answerNothing();
    c().handleTriggerDown();
    const std::string id = c().currentUtteranceId()->toStdString();
    h.speak(CoordinatorHarness::tone(6400));
    ASSERT_TRUE(waitFor([&] { return h.audioFramesReceived().size() == 2; }));
    FinalMessage final = CoordinatorHarness::finalWithText("Capped.");
    final.utteranceId = id;
    h.engine.sendText(QByteArray::fromStdString(encode(final)));
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Success>(); }));
    EXPECT_EQ(h.pastedTexts(), std::vector<QString> {"Capped."});
    EXPECT_FALSE(h.capture->isForwarding());
    EXPECT_FALSE(h.audioEngine->isRunning()); // the microphone is closed

    // The user goes on talking and lets go later: nothing more reaches the engine.
    const size_t frames = h.engine.frames().size();
    EXPECT_EQ(h.audioEngine->playS16(CoordinatorHarness::tone(6400), 1600), 0);
    c().handleTriggerUp();
    QTest::qWait(200);
    EXPECT_EQ(h.engine.frames().size(), frames);
    EXPECT_EQ(countOfType(h, "utterance.end"), 0);
    EXPECT_EQ(c().state(), AppState::success("Capped.", false));
}

TEST_F(CoordinatorTest, ALatePartialLeavesProcessingAlone)
{
    h.answerNothing();
    c().handleTriggerDown();
    const std::string id = c().currentUtteranceId()->toStdString();
    h.speak(CoordinatorHarness::tone(6400));
    c().handleTriggerUp();
    ASSERT_TRUE(c().state().is<AppState::Processing>());
    // The engine answers the last frames with a partial after the key is up.
    h.engine.sendText(QByteArray::fromStdString(encode(PartialMessage {id, "late words"})));
    h.engine.sendText(R"({"type":"domain.changed","domain":"email","source":"context"})");
    ASSERT_TRUE(waitFor([&] { return c().resolvedDomain() == QStringLiteral("email"); }));
    EXPECT_TRUE(c().state().is<AppState::Processing>());
    // So a press in that window is not taken for a release of a running utterance.
    c().handleTriggerDown();
    c().handleTriggerUp();
    settle();
    EXPECT_EQ(countOfType(h, "utterance.end"), 1);
    EXPECT_EQ(countOfType(h, "utterance.start"), 1);
}

TEST_F(CoordinatorTest, AHoldModeReleaseWhileProcessingSendsNoSecondEnd)
{
    h.answerNothing();
    c().handleTriggerDown();
    h.speak(CoordinatorHarness::tone(3200));
    c().handleTriggerUp();
    ASSERT_TRUE(c().state().is<AppState::Processing>());
    ASSERT_TRUE(waitFor([&] { return countOfType(h, "utterance.end") == 1; }));
    c().handleTriggerUp();
    settle();
    EXPECT_TRUE(c().state().is<AppState::Processing>());
    EXPECT_EQ(countOfType(h, "utterance.end"), 1);
    EXPECT_TRUE(c().currentUtteranceId().has_value());
}

TEST_F(CoordinatorTest, AnEngineThatNeverAnswersFreesDictationAfterTheDeadline)
{
    c().setFinalDeadline({0.3, 1.0});
    h.answerNothing();
    c().handleTriggerDown();
    h.speak(CoordinatorHarness::tone(32000)); // one second of audio
    c().handleTriggerUp();
    ASSERT_TRUE(c().state().is<AppState::Processing>());
    EXPECT_TRUE(c().isAwaitingFinal());
    const size_t processingAt = h.states.size() - 1;
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Error>(); }, 8000));
    EXPECT_EQ(c().state(), AppState::error(SayvoCoordinator::kNoAnswerMessage));
    EXPECT_FALSE(c().currentUtteranceId());
    // 0.3 s plus one second per second of audio.
    const qint64 waitedMs = h.states.back().atMs - h.states[processingAt].atMs;
    EXPECT_GE(waitedMs, 1300);
    EXPECT_LT(waitedMs, 4000);
    const QStringList log = h.logLines();
    EXPECT_TRUE(std::any_of(log.begin(), log.end(), [](const QString &l) {
        return l.startsWith("no final within 1300 ms: audioBytes=32000");
    })) << log.join('\n').toStdString();
    ASSERT_TRUE(waitFor([&] { return isIdle(c()); }));

    // Dictation works again, and a final that comes after all is ignored.
    h.answerWith(CoordinatorHarness::finalWithText("Next."));
    dictate();
    EXPECT_EQ(c().state(), AppState::success("Next.", false));
}

TEST(CoordinatorDeadlineTest, TheFinalMayTakeTenSecondsPlusTwiceTheAudioLength)
{
    const SayvoCoordinator::FinalDeadline deadline;
    EXPECT_EQ(deadline.forAudioBytes(0), std::chrono::milliseconds(10000));
    EXPECT_EQ(deadline.forAudioBytes(32000), std::chrono::milliseconds(12000));
    EXPECT_EQ(deadline.forAudioBytes(32000 * 300), std::chrono::milliseconds(610000));
}

TEST_F(CoordinatorTest, ADeliberateReconnectWhileProcessingFailsTheUtteranceAtOnce)
{
    h.answerNothing();
    c().handleTriggerDown();
    h.speak(CoordinatorHarness::tone(3200));
    c().handleTriggerUp();
    ASSERT_TRUE(waitFor([&] { return countOfType(h, "utterance.end") == 1; }));
    h.settings->setFeedbackEnabled(true); // reconnects so the handshake carries the choice
    EXPECT_EQ(c().state(), AppState::error(SayvoCoordinator::kConnectionRestartedMessage));
    EXPECT_FALSE(c().currentUtteranceId());
    EXPECT_FALSE(c().isAwaitingFinal());
    ASSERT_TRUE(waitFor([&] { return isIdle(c()); }));
    ASSERT_TRUE(
        waitFor([&] { return c().connectionHealth().is<EngineConnectionHealth::Connected>(); }));

    // The same for a new endpoint, while the user is still speaking.
    sayvo::test::TestEngine other;
    ASSERT_TRUE(other.listen());
    c().handleTriggerDown();
    ASSERT_TRUE(c().state().is<AppState::Listening>());
    h.client->updateEndpoint(other.url());
    EXPECT_EQ(c().state(), AppState::error(SayvoCoordinator::kConnectionRestartedMessage));
    EXPECT_FALSE(h.capture->isForwarding());
}

TEST(CoordinatorMicrophoneTest, AMicrophoneThatCannotBePreparedIsShownAndNothingIsSent)
{
    CoordinatorHarness h;
    h.audioEngine->setUnavailable(QStringLiteral("Connection refused"));
    ASSERT_TRUE(h.startAndConnect());
    ASSERT_FALSE(h.capture->isPrepared());
    h.coordinator->handleTriggerDown();
    EXPECT_EQ(h.coordinator->state(),
        AppState::error("could not reach the sound server: Connection refused"));
    EXPECT_FALSE(h.coordinator->currentUtteranceId());
    h.coordinator->handleTriggerUp();
    QTest::qWait(200);
    EXPECT_EQ(h.engine.textTypes(), std::vector<QString> {"hello"});
    EXPECT_EQ(h.usage->utterances(), 0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.coordinator->state().is<AppState::Idle>(); }, 4000));

    // Once the sound server answers, the next press prepares the microphone and dictates.
    h.audioEngine->setUnavailable(std::nullopt);
    h.coordinator->handleTriggerDown();
    EXPECT_TRUE(h.coordinator->state().is<AppState::Listening>());
    EXPECT_TRUE(h.capture->isPrepared());
}

TEST(CoordinatorMicrophoneTest, AMicrophoneThatWillNotOpenIsShownAndNothingIsSent)
{
    CoordinatorHarness h;
    ASSERT_TRUE(h.startAndConnect());
    h.audioEngine->setStartFailure(QStringLiteral("Device or resource busy"));
    h.coordinator->handleTriggerDown();
    EXPECT_EQ(h.coordinator->state(),
        AppState::error("could not start the microphone: Device or resource busy"));
    EXPECT_FALSE(h.coordinator->currentUtteranceId());
    EXPECT_FALSE(h.capture->isForwarding());
    h.coordinator->handleTriggerUp();
    QTest::qWait(200);
    EXPECT_EQ(h.engine.textTypes(), std::vector<QString> {"hello"});
    EXPECT_TRUE(h.engine.frames().size() == 1);
    EXPECT_EQ(h.usage->utterances(), 0);
}

TEST_F(CoordinatorTest, TheMicrophoneListensWhileTheContextIsGathered)
{
    h.answerWith(CoordinatorHarness::finalWithText("Every word."));
    // The user starts speaking while a slow application is still being asked for its text.
    const QByteArray early = CoordinatorHarness::tone(9600);
    h.workspace->onQuery = [&] {
        h.speak(early);
        h.capture->queue().sync([] {}); // its chunks are out of the capture's hands
    };
    c().handleTriggerDown();
    h.workspace->onQuery = nullptr;
    const QByteArray later = CoordinatorHarness::tone(3200);
    h.speak(later);
    c().handleTriggerUp();
    ASSERT_TRUE(waitFor([&] { return c().state().is<AppState::Success>(); }));

    QByteArray received;
    for (const QByteArray &frame : h.audioFramesReceived()) {
        received += frame;
    }
    EXPECT_EQ(received, early + later);
    // Context and start still go first.
    const auto &frames = h.engine.frames();
    ASSERT_GE(frames.size(), 4u);
    EXPECT_TRUE(frames[1].bytes.contains("\"context.update\""));
    EXPECT_TRUE(frames[2].bytes.contains("\"utterance.start\""));
    EXPECT_TRUE(frames[3].binary);
}

TEST(CoordinatorConnectionTest, WhileConnectingOrDisconnectedTheEngineIsStartingUp)
{
    CoordinatorHarness h;
    h.engine.setHelloAckBackends(std::nullopt); // the handshake never completes
    h.coordinator->handleTriggerDown(); // not started: the client is disconnected
    EXPECT_EQ(h.coordinator->connectionHealth(), EngineConnectionHealth::idle());
    EXPECT_EQ(h.coordinator->state(), AppState::error(QString::fromUtf8("Engine starting up…")));
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.coordinator->state().is<AppState::Idle>(); }, 4000));

    h.coordinator->start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return h.engine.textFrames().size() == 1; }, 5000));
    EXPECT_EQ(h.coordinator->connectionHealth(), EngineConnectionHealth::connecting());
    h.coordinator->handleTriggerDown();
    EXPECT_EQ(h.coordinator->state(), AppState::error(QString::fromUtf8("Engine starting up…")));
    EXPECT_FALSE(h.coordinator->currentUtteranceId());
    EXPECT_FALSE(h.capture->isForwarding());
    QTest::qWait(100);
    EXPECT_EQ(h.engine.textTypes(), std::vector<QString> {"hello"});
}

// ---- Context, domains, suggestions ---------------------------------------------------------

TEST_F(CoordinatorTest, AnActivationNotificationOnTheDefaultCentreSendsContext)
{
    EXPECT_EQ(
        h.center.observerCount(QStringLiteral("NSWorkspaceDidActivateApplicationNotification")), 1);
    h.center.post(QStringLiteral("SomeOtherNotification"));
    settle();
    EXPECT_EQ(countOfType(h, "context.update"), 0);
    h.settings->setPersonalDictionary({QStringLiteral("Sayvo")});
    h.center.post(QStringLiteral("NSWorkspaceDidActivateApplicationNotification"));
    ASSERT_TRUE(waitFor([&] { return countOfType(h, "context.update") == 1; }));
    const auto update = textMessages(h).back();
    EXPECT_EQ(update["context"]["app_name"], "Editor");
    EXPECT_EQ(update["context"]["personal_dictionary"], nlohmann::json::array({"Sayvo"}));
}

TEST_F(CoordinatorTest, PinningPublishesAtOnceAndKeepsThePinWhenTheSendFails)
{
    QSignalSpy pinned(&c(), &SayvoCoordinator::pinnedDomainChanged);
    c().pin(QStringLiteral("legal"));
    EXPECT_EQ(c().pinnedDomain(), QStringLiteral("legal"));
    EXPECT_EQ(pinned.count(), 1);
    EXPECT_EQ(countOfType(h, "domain.pin"), 0); // not yet: the send runs later
    ASSERT_TRUE(waitFor([&] { return countOfType(h, "domain.pin") == 1; }));
    EXPECT_EQ(textMessages(h).back()["domain"], "legal");

    c().unpinDomain();
    EXPECT_FALSE(c().pinnedDomain());
    ASSERT_TRUE(waitFor([&] { return countOfType(h, "domain.unpin") == 1; }));

    h.client->disconnect();
    c().pin(QStringLiteral("email"));
    settle();
    EXPECT_EQ(c().pinnedDomain(), QStringLiteral("email"));
}

TEST_F(CoordinatorTest, DomainChangesAndFinalsSetTheResolvedDomain)
{
    h.engine.sendText(R"({"type":"domain.changed","domain":"email","source":"context"})");
    ASSERT_TRUE(waitFor([&] { return c().resolvedDomain() == QStringLiteral("email"); }));
    FinalMessage final = CoordinatorHarness::finalWithText("Hi.");
    final.domain = "casual";
    h.answerWith(final);
    dictate();
    EXPECT_EQ(c().resolvedDomain(), QStringLiteral("casual"));
}

TEST_F(CoordinatorTest, SuggestionsAreRequestedReceivedDismissedAndAccepted)
{
    c().refreshSuggestions();
    ASSERT_TRUE(waitFor([&] { return countOfType(h, "suggestions.request") == 1; }));
    h.engine.sendText(
        R"({"type":"suggestions","dictionary":[)"
        R"({"misrecognized":"say vo","suggested_term":"Sayvo","occurrences":3},)"
        R"({"misrecognized":"cube","suggested_term":"Kube","occurrences":2},)"
        R"({"misrecognized":"say vo","suggested_term":"Sayvo","occurrences":5}],)"
        R"("exemplars":[{"domain":"email","spoken":"best","written":"Best,","occurrences":2}]})");
    ASSERT_TRUE(waitFor([&] { return c().suggestions().has_value(); }));
    ASSERT_EQ(c().suggestions()->dictionary.size(), 3u);

    // Dismiss removes every entry with the same pair, whatever its count; exemplars stay.
    c().dismissDictionarySuggestion(DictionarySuggestion {"say vo", "Sayvo", 99});
    ASSERT_EQ(c().suggestions()->dictionary.size(), 1u);
    EXPECT_EQ(c().suggestions()->dictionary[0].suggestedTerm, "Kube");
    EXPECT_EQ(c().suggestions()->exemplars.size(), 1u);
    EXPECT_TRUE(h.settings->personalDictionary().isEmpty());

    c().acceptDictionarySuggestion(DictionarySuggestion {"cube", "Kube", 2});
    EXPECT_EQ(h.settings->personalDictionary(), QStringList {"Kube"});
    EXPECT_TRUE(c().suggestions()->dictionary.empty());
    settle();
    EXPECT_EQ(countOfType(h, "context.update"), 0); // nothing sent directly
}

TEST_F(CoordinatorTest, AcceptingATermAlreadyInTheDictionaryOnlyRemovesTheSuggestion)
{
    h.settings->setPersonalDictionary({QStringLiteral("Kube")});
    h.engine.sendText(
        R"({"type":"suggestions","dictionary":[{"misrecognized":"cube","suggested_term":"Kube","occurrences":2}],"exemplars":[]})");
    ASSERT_TRUE(waitFor([&] { return c().suggestions().has_value(); }));
    QSignalSpy dictionaryChanges(h.settings.get(), &SettingsStore::personalDictionaryChanged);
    c().acceptDictionarySuggestion(DictionarySuggestion {"cube", "Kube", 2});
    EXPECT_EQ(h.settings->personalDictionary(), QStringList {"Kube"});
    EXPECT_EQ(dictionaryChanges.count(), 0);
    EXPECT_TRUE(c().suggestions()->dictionary.empty());

    // A different spelling is a different term.
    h.engine.sendText(
        R"({"type":"suggestions","dictionary":[{"misrecognized":"cube","suggested_term":"kube","occurrences":2}],"exemplars":[]})");
    ASSERT_TRUE(waitFor([&] { return !c().suggestions()->dictionary.empty(); }));
    c().acceptDictionarySuggestion(DictionarySuggestion {"cube", "kube", 2});
    EXPECT_EQ(h.settings->personalDictionary(), (QStringList {"Kube", "kube"}));
}

TEST_F(CoordinatorTest, DismissOrAcceptWithNoSuggestionsLeavesThemAbsent)
{
    QSignalSpy changes(&c(), &SayvoCoordinator::suggestionsChanged);
    c().dismissDictionarySuggestion(DictionarySuggestion {"a", "b", 1});
    c().acceptDictionarySuggestion(DictionarySuggestion {"a", "b", 1});
    EXPECT_FALSE(c().suggestions().has_value());
    EXPECT_EQ(changes.count(), 0);
}
