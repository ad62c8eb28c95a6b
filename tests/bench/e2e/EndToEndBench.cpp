// The real sayvo with its real reference engine (PocketSphinx) on a private desktop (Xvfb,
// window manager, AT-SPI bus, PulseAudio with a live test microphone, a GTK text field),
// measured as a user feels it:
// - per dictation of a 2-6 s sentence: key-down -> microphone open (first converted buffer),
//   key-up -> utterance.end written to the socket, utterance.end -> final at the client,
//   final -> text drawn in the GTK field (seen by the window itself), and key-up -> text;
//   p50/p95/max of each, per trigger path;
// - the client's share of key-up -> text: everything but the engine's end -> final; and its
//   own part of that, the stretches where sayvo itself is at work (key-up -> end on the wire,
//   final -> paste chord);
// - baseline in the same run: the engine's own end -> final for the same sentences, from a
//   bare WebSocket client pacing the audio in real time;
// - idle: wake-ups (context switches) of every thread of both processes over 60 s;
// - memory: resident size of both after launch, after 10 dictations and after 100.
// `./dev bench e2e` runs it and writes the figures as JSON (build/bench-e2e.json).
#include "support/ProcessStatus.h"
#include "support/e2e/DictationDesk.h"
#include "support/engine/EngineTestClient.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QTest>

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <tuple>

using namespace sayvo;
using sayvo::test::DictationDesk;

namespace {

// The run's size; smaller with --dictations=N, --memory-dictations=N, --idle-seconds=S (the
// smoke run in ./dev test).
int kDictations = 30;
int kMemoryDictations = 100;
int kIdleSeconds = 60;
constexpr int kWarmUpDictations = 10;
// Before memory is read: the last success display and clipboard restore are over.
constexpr int kSettleMs = 3000;
// What a speaker leaves between the last word and letting go of the key.
constexpr int kTrailingSilenceMs = 200;

// 2 to 6 seconds each in festival's voice.
const QStringList kSentences = {
    QStringLiteral("please call me back tomorrow"),
    QStringLiteral("the meeting starts at nine in the morning"),
    QStringLiteral("send me the report before the meeting"),
    QStringLiteral("i will be late for dinner tonight"),
    QStringLiteral("we need to order more paper for the office printer this week"),
    QStringLiteral("thank you for your help with the project"),
    QStringLiteral("can you check the numbers in the second table again"),
    QStringLiteral("the train leaves from the main station at half past four in the afternoon"),
    QStringLiteral("let us talk about it next week"),
    QStringLiteral("my flight was cancelled so i will stay another night at the hotel"),
};

qint64 steadyNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
        std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double msBetween(qint64 fromNs, qint64 toNs)
{
    return static_cast<double>(toNs - fromNs) / 1e6;
}

// Key events as the X server gets them from a keyboard, sent from this process so that the
// moment of sending is known to the nanosecond (a command-line tool would add its start-up).
class XTestKeyboard
{
public:
    explicit XTestKeyboard(const QString &display)
        : m_display(XOpenDisplay(display.toLocal8Bit().constData()))
    {
        if (m_display) {
            m_f5 = XKeysymToKeycode(m_display, XStringToKeysym("F5"));
        }
    }
    ~XTestKeyboard()
    {
        if (m_display) {
            XCloseDisplay(m_display);
        }
    }
    XTestKeyboard(const XTestKeyboard &) = delete;
    XTestKeyboard &operator=(const XTestKeyboard &) = delete;

    bool isOpen() const { return m_display != nullptr && m_f5 != 0; }

    // The moment the event left for the server.
    qint64 send(bool press)
    {
        XTestFakeKeyEvent(m_display, m_f5, press ? True : False, CurrentTime);
        const qint64 sentAt = steadyNs();
        XFlush(m_display);
        return sentAt;
    }

private:
    Display *m_display = nullptr;
    KeyCode m_f5 = 0;
};

// Everything the dictations share: one desk, one running sayvo, its engine, the speech.
struct Rig
{
    std::unique_ptr<DictationDesk> desk;
    std::unique_ptr<XTestKeyboard> keyboard;
    std::vector<QByteArray> speech;
    qint64 clientKiBAtLaunch = 0;
    qint64 engineKiBAtLaunch = 0;
    // After the first kWarmUpDictations: what the first dictations set up once (the sound
    // stream, fonts, the recogniser's search) is in by then, so growth from here is kept
    // per dictation.
    qint64 clientKiBWarm = 0;
    qint64 engineKiBWarm = 0;
    int dictationsDone = 0;
    QString failure;

    qint64 enginePid() const
    {
        const QList<qint64> pids = desk->enginePids();
        return pids.isEmpty() ? 0 : pids.first();
    }
};

std::unique_ptr<Rig> g_rig;

Rig &rig()
{
    if (!g_rig) {
        g_rig = std::make_unique<Rig>();
        Rig *r = g_rig.get();
        for (const QString &sentence : kSentences) {
            r->speech.push_back(DictationDesk::synthesize(sentence));
            if (r->speech.back().isEmpty()) {
                r->failure = QStringLiteral("festival could not say: ") + sentence;
                return *r;
            }
        }
        // sayvo inherits it from the desk: its latency marks on.
        qputenv("QT_LOGGING_RULES", "com.sayvoapp.shell.latency.debug=true");
        DictationDesk::Options options;
        r->desk = std::make_unique<DictationDesk>(options);
        if (!r->desk->isReady()) {
            r->failure = r->desk->failure();
            return *r;
        }
        // A live microphone in a quiet room: the sound server always has audio to give.
        r->desk->microphone().startStreaming();
        if (!r->desk->launchSayvo()) {
            r->failure = QStringLiteral("sayvo did not connect to its engine");
            return *r;
        }
        r->keyboard = std::make_unique<XTestKeyboard>(r->desk->desktop().display());
        if (!r->keyboard->isOpen()) {
            r->failure = QStringLiteral("no XTest keyboard on the desk's display");
            return *r;
        }
        // Where no tray hosts it, the settings window stands in for the menu and samples the
        // footprint every second while it is open: a user closes it, clicks back into the
        // field, and dictates with nothing but the tray app running.
        if (const QString closing = r->desk->closeStandInSettingsWindow(); !closing.isEmpty()) {
            r->failure = closing;
            return *r;
        }
        if (!r->desk->editor().activate()) {
            r->failure = QStringLiteral("the editor did not take the focus");
            return *r;
        }
        QTest::qWait(kSettleMs);
        r->clientKiBAtLaunch = test::residentKiB(r->desk->sayvoPid());
        r->engineKiBAtLaunch = test::residentKiB(r->enginePid());
    }
    return *g_rig;
}

// One way of starting and ending a dictation; returns the moment the request left.
struct TriggerPath
{
    const char *name;
    std::function<qint64(Rig &)> press;
    std::function<qint64(Rig &)> release;
};

// `sayvo trigger <verb>` run to its end; the moment before its process was started. A
// failed command leaves the dictation without text, which counts it as failed.
qint64 runTrigger(Rig &r, const QString &verb)
{
    const qint64 startedAt = steadyNs();
    if (const int code = r.desk->trigger(verb); code != 0) {
        std::fprintf(stderr, "sayvo trigger %s ended with %d\n", qPrintable(verb), code);
    }
    return startedAt;
}

// Every path is measured the same way; a new one is one more entry here.
std::vector<TriggerPath> triggerPaths()
{
    return {
        {"key", [](Rig &r) { return r.keyboard->send(true); },
            [](Rig &r) { return r.keyboard->send(false); }},
        // What a compositor's key binding runs: the time counts from before the command's
        // process start, as the user's key press does.
        {"command", [](Rig &r) { return runTrigger(r, QStringLiteral("press")); },
            [](Rig &r) { return runTrigger(r, QStringLiteral("release")); }},
    };
}

// One of sayvo's latency marks: when, and the marking thread's CPU time and run-queue time
// by then (-1 where not reported).
struct Mark
{
    qint64 atNs = 0;
    qint64 cpuNs = -1;
    qint64 waitedNs = -1;
};

// What one thread did between two of its marks: its own work (CPU time), waiting to be
// scheduled while runnable, and the rest, blocked (on a lock, the X server, the socket).
struct Split
{
    double cpuMs = 0.0;
    double runQueueMs = 0.0;
    double blockedMs = 0.0;
};

std::optional<Split> splitBetween(const Mark &from, const Mark &to)
{
    if (from.atNs == 0 || to.atNs == 0 || from.cpuNs < 0 || to.cpuNs < 0 || from.waitedNs < 0
        || to.waitedNs < 0) {
        return std::nullopt;
    }
    Split split;
    split.cpuMs = msBetween(from.cpuNs, to.cpuNs);
    split.runQueueMs = msBetween(from.waitedNs, to.waitedNs);
    split.blockedMs = msBetween(from.atNs, to.atNs) - split.cpuMs - split.runQueueMs;
    return split;
}

// The moments of one dictation, steady_clock nanoseconds, 0 when not seen.
struct Moments
{
    qint64 keyDown = 0;
    qint64 triggerDown = 0;
    qint64 microphoneOpen = 0;
    qint64 keyUp = 0;
    qint64 triggerUp = 0;
    qint64 endSent = 0;
    qint64 finalReceived = 0;
    qint64 textInserted = 0;
    qint64 clipboardServed = 0;
    qint64 textShown = 0;
    // sayvo's main thread from the key-up's mark to the end on the wire, and from the final
    // to the paste chord.
    std::optional<Split> keyUpWork;
    std::optional<Split> finalWork;
};

// sayvo's latency marks ("latency: end-sent 123 cpu 45 waited 6") from line `from` on.
std::map<QString, Mark> marksSince(DictationDesk &desk, qsizetype from)
{
    static const QRegularExpression mark(
        QStringLiteral("latency: ([a-z-]+) (\\d+)(?: cpu (\\d+))?(?: waited (\\d+))?"));
    std::map<QString, Mark> marks;
    const QStringList lines = desk.log();
    for (qsizetype i = from; i < lines.size(); ++i) {
        const auto match = mark.match(lines.at(i));
        if (match.hasMatch() && !marks.count(match.captured(1))) {
            marks[match.captured(1)] = {match.captured(2).toLongLong(),
                match.captured(3).isEmpty() ? -1 : match.captured(3).toLongLong(),
                match.captured(4).isEmpty() ? -1 : match.captured(4).toLongLong()};
        }
    }
    return marks;
}

std::optional<Moments> dictate(Rig &r, const TriggerPath &path, const QByteArray &pcm)
{
    DictationDesk &desk = *r.desk;
    static const QRegularExpression idle(QStringLiteral("state: idle"));
    static const QRegularExpression outcome(
        QStringLiteral("state: (success|error|emptyTranscript)"));
    desk.editor().setText(QString());
    const qsizetype from = desk.log().size();
    const int outcomes = desk.countLog(outcome);
    const int idles = desk.countLog(idle);

    Moments m;
    m.keyDown = path.press(r);
    if (!QTest::qWaitFor(
            [&] { return marksSince(desk, from).count(QStringLiteral("microphone-open")); },
            5000)) {
        path.release(r);
        return std::nullopt;
    }
    desk.microphone().say(pcm);
    const bool said = QTest::qWaitFor([&] { return !desk.microphone().isSpeaking(); }, 30000);
    QTest::qWait(kTrailingSilenceMs);
    m.keyUp = path.release(r);
    const bool ended
        = said && QTest::qWaitFor([&] { return desk.countLog(outcome) > outcomes; }, 30000);
    // Drawn by the window: the first frame after the key went up showing some text.
    const bool shown = ended && QTest::qWaitFor([&] {
        for (const auto &change : desk.editor().shown()) {
            if (change.atNs > m.keyUp && change.length > 0) {
                m.textShown = change.atNs;
                return true;
            }
        }
        return false;
    });
    // Back to idle before the next one.
    const bool idleAgain = QTest::qWaitFor([&] { return desk.countLog(idle) > idles; }, 10000);
    if (!shown || !idleAgain) {
        return std::nullopt;
    }
    const auto marks = marksSince(desk, from);
    auto markOf = [&](const char *name) {
        const auto it = marks.find(QString::fromLatin1(name));
        return it == marks.end() ? Mark {} : it->second;
    };
    auto at = [&](const char *name) { return markOf(name).atNs; };
    m.triggerDown = at("trigger-down");
    m.microphoneOpen = at("microphone-open");
    m.triggerUp = at("trigger-up");
    m.endSent = at("end-sent");
    m.finalReceived = at("final-received");
    m.textInserted = at("text-inserted");
    m.clipboardServed = at("clipboard-served");
    m.keyUpWork = splitBetween(markOf("trigger-up"), markOf("end-sent"));
    m.finalWork = splitBetween(markOf("final-received"), markOf("text-inserted"));
    if (++r.dictationsDone == kWarmUpDictations) {
        QTest::qWait(kSettleMs); // as the last figure is taken
        r.clientKiBWarm = test::residentKiB(desk.sayvoPid());
        r.engineKiBWarm = test::residentKiB(r.enginePid());
    }
    return m;
}

bool g_failed = false;

// Failures also fail the process, so that the smoke run in ./dev test notices them.
void fail(benchmark::State &state, const std::string &reason)
{
    g_failed = true;
    state.SkipWithError(reason.c_str());
}

struct Spread
{
    double p50 = 0.0;
    double p95 = 0.0;
    double max = 0.0;
};

// Nearest-rank percentiles.
Spread spreadOf(std::vector<double> values)
{
    Spread s;
    if (values.empty()) {
        return s;
    }
    std::sort(values.begin(), values.end());
    auto rank = [&](double p) {
        const auto index = static_cast<std::size_t>(
            std::max(0.0, std::ceil(p * static_cast<double>(values.size())) - 1.0));
        return values[std::min(index, values.size() - 1)];
    };
    s.p50 = rank(0.50);
    s.p95 = rank(0.95);
    s.max = values.back();
    return s;
}

void report(benchmark::State &state, const char *stage, const std::vector<double> &values)
{
    const Spread s = spreadOf(values);
    state.counters[std::string(stage) + "_p50_ms"] = s.p50;
    state.counters[std::string(stage) + "_p95_ms"] = s.p95;
    state.counters[std::string(stage) + "_max_ms"] = s.max;
    std::fprintf(stderr, "  %-28s p50 %8.2f ms   p95 %8.2f ms   max %8.2f ms   (n=%zu)\n", stage,
        s.p50, s.p95, s.max, values.size());
}

bool ready(benchmark::State &state)
{
    if (!rig().failure.isEmpty()) {
        fail(state, rig().failure.toStdString());
        return false;
    }
    return true;
}

void BM_KeyUpToText(benchmark::State &state, const TriggerPath &path)
{
    if (!ready(state)) {
        return;
    }
    Rig &r = rig();
    std::map<std::string, std::vector<double>> stages;
    int failed = 0;
    for (auto _ : state) {
        for (int i = 0; i < kDictations; ++i) {
            const auto m
                = dictate(r, path, r.speech[static_cast<std::size_t>(i) % r.speech.size()]);
            if (!m || !m->microphoneOpen || !m->endSent || !m->finalReceived || !m->textShown) {
                ++failed;
                continue;
            }
            const double keyUpToText = msBetween(m->keyUp, m->textShown);
            const double engine = msBetween(m->endSent, m->finalReceived);
            stages["keydown_to_mic"].push_back(msBetween(m->keyDown, m->microphoneOpen));
            // Where the client's part goes: the key reaching the coordinator, and what
            // follows from there.
            stages["keydown_to_trigger"].push_back(msBetween(m->keyDown, m->triggerDown));
            stages["trigger_to_mic"].push_back(msBetween(m->triggerDown, m->microphoneOpen));
            stages["keyup_to_trigger"].push_back(msBetween(m->keyUp, m->triggerUp));
            stages["trigger_to_end_sent"].push_back(msBetween(m->triggerUp, m->endSent));
            stages["keyup_to_end_sent"].push_back(msBetween(m->keyUp, m->endSent));
            stages["end_to_final"].push_back(engine);
            stages["final_to_text"].push_back(msBetween(m->finalReceived, m->textShown));
            stages["final_to_inserted"].push_back(msBetween(m->finalReceived, m->textInserted));
            // The editor asking for the pasted text and sayvo handing it over.
            stages["inserted_to_served"].push_back(msBetween(m->textInserted, m->clipboardServed));
            stages["served_to_text"].push_back(msBetween(m->clipboardServed, m->textShown));
            stages["keyup_to_text"].push_back(keyUpToText);
            stages["client_share"].push_back(keyUpToText - engine);
            // Only the stretches where sayvo holds the baton: from the key-up to the end on
            // the wire, and from the final to the paste chord (the rest is the X server, the
            // engine and the editor).
            stages["client_own"].push_back(
                msBetween(m->keyUp, m->endSent) + msBetween(m->finalReceived, m->textInserted));
            // The main thread's part of those stretches (from its key-up mark on): its own
            // work, waiting for a core, and blocked.
            if (m->keyUpWork && m->finalWork) {
                stages["own_main_cpu"].push_back(m->keyUpWork->cpuMs + m->finalWork->cpuMs);
                stages["own_main_runqueue"].push_back(
                    m->keyUpWork->runQueueMs + m->finalWork->runQueueMs);
                stages["own_main_blocked"].push_back(
                    m->keyUpWork->blockedMs + m->finalWork->blockedMs);
            }
        }
        const Spread total = spreadOf(stages["keyup_to_text"]);
        state.SetIterationTime(total.p50 / 1000.0);
    }
    std::fprintf(
        stderr, "trigger path '%s', %d dictations, %d failed:\n", path.name, kDictations, failed);
    for (const char *stage : {"keydown_to_mic", "keydown_to_trigger", "trigger_to_mic",
             "keyup_to_end_sent", "keyup_to_trigger", "trigger_to_end_sent", "end_to_final",
             "final_to_inserted", "inserted_to_served", "served_to_text", "final_to_text",
             "keyup_to_text", "client_share", "client_own", "own_main_cpu", "own_main_runqueue",
             "own_main_blocked"}) {
        report(state, stage, stages[stage]);
    }
    state.counters["failed"] = failed;
    if (failed > 0) {
        fail(state, "some dictations did not bring text");
    }
}

// The engine alone: the same sentences from a bare client at the microphone's pace.
void BM_EngineEndToFinalBaseline(benchmark::State &state)
{
    if (!ready(state)) {
        return;
    }
    Rig &r = rig();
    test::EngineTestClient client;
    if (!client.connectTo(QStringLiteral("ws://127.0.0.1:%1").arg(r.desk->enginePort()))) {
        fail(state, "the bare client could not connect");
        return;
    }
    if (!client.greet()) {
        fail(state, "the engine did not answer hello");
        return;
    }
    std::vector<double> values;
    const QByteArray silence(qsizetype {kTrailingSilenceMs} * 32, '\0');
    for (auto _ : state) {
        for (int i = 0; i < kDictations; ++i) {
            const auto latency = client.endToFinalMs("baseline-" + std::to_string(i),
                r.speech[static_cast<std::size_t>(i) % r.speech.size()] + silence);
            if (!latency) {
                fail(state, "the engine gave no final");
                return;
            }
            values.push_back(*latency);
        }
        state.SetIterationTime(spreadOf(values).p50 / 1000.0);
    }
    std::fprintf(stderr, "bare client, %d utterances:\n", kDictations);
    report(state, "engine_end_to_final", values);
}

void BM_IdleWakeups(benchmark::State &state)
{
    if (!ready(state)) {
        return;
    }
    Rig &r = rig();
    const qint64 clientPid = r.desk->sayvoPid();
    const qint64 enginePid = r.enginePid();
    std::vector<test::ThreadSwitches> client;
    std::vector<test::ThreadSwitches> engine;
    for (auto _ : state) {
        // Settled: the last dictation's success display and clipboard restore are over.
        QTest::qWait(3000);
        const auto clientBefore = test::threadSwitches(clientPid);
        const auto engineBefore = test::threadSwitches(enginePid);
        QTest::qWait(kIdleSeconds * 1000);
        client = test::wakeupsBetween(clientBefore, test::threadSwitches(clientPid));
        engine = test::wakeupsBetween(engineBefore, test::threadSwitches(enginePid));
        state.SetIterationTime(kIdleSeconds);
    }
    std::fprintf(stderr, "idle for %d s, connected and ready:\n", kIdleSeconds);
    for (const auto &[process, threads] :
        {std::pair {"sayvo", &client}, std::pair {"sayvo-engine", &engine}}) {
        std::fprintf(stderr, "  %-13s %4lld wake-ups\n", process,
            static_cast<long long>(test::totalSwitches(*threads)));
        for (const auto &thread : *threads) {
            if (thread.switches > 0) {
                std::fprintf(stderr, "    thread %-16s %4lld\n", thread.name.toUtf8().constData(),
                    static_cast<long long>(thread.switches));
            }
        }
    }
    state.counters["client_wakeups"] = static_cast<double>(test::totalSwitches(client));
    state.counters["engine_wakeups"] = static_cast<double>(test::totalSwitches(engine));
    state.counters["engine_wakeups_per_10s"]
        = static_cast<double>(test::totalSwitches(engine)) * 10.0 / kIdleSeconds;
}

void BM_ResidentMemory(benchmark::State &state)
{
    if (!ready(state)) {
        return;
    }
    Rig &r = rig();
    const TriggerPath path = triggerPaths().front();
    for (auto _ : state) {
        while (r.dictationsDone < kMemoryDictations) {
            if (!dictate(r, path,
                    r.speech[static_cast<std::size_t>(r.dictationsDone) % r.speech.size()])) {
                fail(state, "a dictation failed");
                return;
            }
        }
        state.SetIterationTime(1.0);
    }
    QTest::qWait(kSettleMs);
    const qint64 client = test::residentKiB(r.desk->sayvoPid());
    const qint64 engine = test::residentKiB(r.enginePid());
    std::fprintf(
        stderr, "resident memory after launch -> after %d dictations:\n", r.dictationsDone);
    for (const auto &[process, launch, warm, after] :
        {std::tuple {"sayvo", r.clientKiBAtLaunch, r.clientKiBWarm, client},
            std::tuple {"sayvo-engine", r.engineKiBAtLaunch, r.engineKiBWarm, engine}}) {
        std::fprintf(stderr, "  %-13s %7lld KiB -> %7lld KiB (%+lld KiB)", process,
            static_cast<long long>(launch), static_cast<long long>(after),
            static_cast<long long>(after - launch));
        if (warm > 0) {
            std::fprintf(stderr, ", %+lld KiB since dictation %d",
                static_cast<long long>(after - warm), kWarmUpDictations);
        }
        std::fprintf(stderr, "\n");
    }
    state.counters["client_launch_KiB"] = static_cast<double>(r.clientKiBAtLaunch);
    state.counters["client_after_KiB"] = static_cast<double>(client);
    state.counters["engine_launch_KiB"] = static_cast<double>(r.engineKiBAtLaunch);
    state.counters["engine_after_KiB"] = static_cast<double>(engine);
    state.counters["client_warm_KiB"] = static_cast<double>(r.clientKiBWarm);
    state.counters["engine_warm_KiB"] = static_cast<double>(r.engineKiBWarm);
    state.counters["client_growth_since_warm_KiB"] = static_cast<double>(client - r.clientKiBWarm);
    state.counters["engine_growth_since_warm_KiB"] = static_cast<double>(engine - r.engineKiBWarm);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        const QString argument = QString::fromLocal8Bit(argv[i]);
        const QString value = argument.section(QLatin1Char('='), 1);
        if (argument.startsWith(QStringLiteral("--dictations="))) {
            kDictations = value.toInt();
        } else if (argument.startsWith(QStringLiteral("--memory-dictations="))) {
            kMemoryDictations = value.toInt();
        } else if (argument.startsWith(QStringLiteral("--idle-seconds="))) {
            kIdleSeconds = value.toInt();
        } else {
            std::fprintf(stderr, "unknown argument %s\n", argv[i]);
            return 2;
        }
    }
    benchmark::RegisterBenchmark("BM_EngineEndToFinalBaseline", BM_EngineEndToFinalBaseline)
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    for (const TriggerPath &path : triggerPaths()) {
        benchmark::RegisterBenchmark(
            (std::string("BM_KeyUpToText/") + path.name).c_str(), BM_KeyUpToText, path)
            ->Iterations(1)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::RegisterBenchmark("BM_IdleWakeups", BM_IdleWakeups)
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kSecond);
    benchmark::RegisterBenchmark("BM_ResidentMemory", BM_ResidentMemory)
        ->Iterations(1)
        ->UseManualTime()
        ->Unit(benchmark::kSecond);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    g_rig.reset();
    return g_failed ? 1 : 0;
}
