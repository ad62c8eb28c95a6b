#include "support/session/CoordinatorHarness.h"

#include "protocol/WireCodec.h"

#include <QTest>

#include <cmath>

namespace sayvo::test {

CoordinatorHarness::CoordinatorHarness()
{
    clock.start();

    engine.listen();
    engine.setOnText([this](const QByteArray &text, int) {
        const auto decoded = decodeOutbound(text.toStdString());
        if (!decoded || !m_answer) {
            return;
        }
        if (const auto *end = std::get_if<UtteranceEndMessage>(&decoded.value())) {
            FinalMessage final = *m_answer;
            final.utteranceId = end->utteranceId;
            engine.sendText(QByteArray::fromStdString(encode(final)));
        }
    });

    FakeAudioDevice mic;
    mic.id = 11;
    mic.uid = QStringLiteral("mic-1");
    mic.name = QStringLiteral("Built-in Microphone");
    mic.sampleRate = 16000.0;
    hardware.setDevices({mic});
    auto audio = std::make_unique<FakeAudioInputEngine>(AudioStreamFormat {16000.0, 1});
    audioEngine = audio.get();
    capture = std::make_unique<AudioCapture>(std::move(audio), hardware);

    auto source = std::make_unique<testing::FakeKeyboardEventSource>();
    keys = source.get();
    hotkeys = std::make_unique<HotkeyManager>(HotkeyTrigger::f5, std::move(source));

    pasteboard = std::make_shared<testing::FakePasteboard>();
    synthesizer = std::make_shared<testing::FakeKeySynthesizer>();
    synthesizer->onPaste = [this] { m_pasted.push_back(pasteboard->string().value_or(QString())); };
    accessibility = std::make_shared<testing::FakeAccessibilityProvider>();
    workspace = std::make_shared<testing::FakeWorkspace>();
    workspace->front
        = FrontApplication {QStringLiteral("org.example.Editor"), QStringLiteral("Editor"), 4242};
    windowList = std::make_shared<testing::FakeWindowList>();
    harvester
        = std::make_unique<ContextHarvester>(workspace, accessibility, windowList, pasteboard);
    inserter = std::make_unique<TextInserter>(pasteboard, synthesizer, accessibility, workspace);

    settings = std::make_unique<SettingsStore>(preferences);
    usage = std::make_unique<UsageStatsStore>(preferences);
    client = std::make_unique<EngineClient>(engine.url(), QStringLiteral("0.1.0"));
    coordinator = std::make_unique<SayvoCoordinator>(
        *client, *capture, *hotkeys, *harvester, *inserter, *settings, *usage, hardware, center);
    QObject::connect(
        coordinator.get(), &SayvoCoordinator::stateChanged, [this](const AppState &state) {
            states.push_back({state, clock.elapsed()});
        });
}

CoordinatorHarness::~CoordinatorHarness()
{
    coordinator.reset();
    client.reset();
}

bool CoordinatorHarness::startAndConnect()
{
    coordinator->start();
    return QTest::qWaitFor(
        [this] { return coordinator->connectionHealth().is<EngineConnectionHealth::Connected>(); },
        5000);
}

void CoordinatorHarness::speak(const QByteArray &pcm)
{
    audioEngine->playS16(pcm, 1600);
}

QByteArray CoordinatorHarness::tone(int bytes)
{
    QByteArray pcm(bytes, '\0');
    for (int i = 0; i + 1 < bytes; i += 2) {
        const auto sample
            = static_cast<qint16>(8000.0 * std::sin(i / 2 * 2.0 * M_PI * 440.0 / 16000.0));
        pcm[i] = static_cast<char>(sample & 0xff);
        pcm[i + 1] = static_cast<char>((sample >> 8) & 0xff);
    }
    return pcm;
}

FinalMessage CoordinatorHarness::finalWithText(const std::string &formatted, bool guardrailApplied)
{
    FinalMessage final;
    final.rawText = formatted;
    final.formattedText = formatted;
    final.domain = "default";
    final.domainSource = "context";
    final.guardrail.applied = guardrailApplied;
    return final;
}

std::vector<QByteArray> CoordinatorHarness::audioFramesReceived() const
{
    std::vector<QByteArray> frames;
    for (const auto &frame : engine.frames()) {
        if (frame.binary) {
            frames.push_back(frame.bytes);
        }
    }
    return frames;
}

QStringList CoordinatorHarness::logLines() const
{
    return m_log.messages();
}

} // namespace sayvo::test
