#pragma once

#include "audio/AudioCapture.h"
#include "desktop/ContextHarvester.h"
#include "desktop/HotkeyManager.h"
#include "desktop/TextInserter.h"
#include "engineclient/EngineClient.h"
#include "session/InProcessNotificationCenter.h"
#include "session/SayvoCoordinator.h"
#include "store/SettingsStore.h"
#include "store/UsageStatsStore.h"
#include "support/LogCapture.h"
#include "support/audio/FakeAudioHardware.h"
#include "support/audio/FakeAudioInputEngine.h"
#include "support/desktop/FakeAccessibilityProvider.h"
#include "support/desktop/FakeKeySynthesizer.h"
#include "support/desktop/FakeKeyboardEventSource.h"
#include "support/desktop/FakePasteboard.h"
#include "support/desktop/FakeWindowList.h"
#include "support/desktop/FakeWorkspace.h"
#include "support/engine/TestEngine.h"
#include "support/store/FakePreferenceStore.h"

#include <QElapsedTimer>

#include <memory>
#include <vector>

namespace sayvo::test {

// A coordinator wired to the real engine client talking to the scriptable test engine on
// loopback, with fakes of the microphone, keyboard, clipboard and accessibility. The engine
// answers each "utterance.end" with a final built by `finalFor` (when set).
class CoordinatorHarness
{
    // Declared first: it sees every line the others write and is removed after them.
    LogCapture m_log;

public:
    CoordinatorHarness();
    ~CoordinatorHarness();

    // Starts the coordinator and waits until the engine handshake is done.
    bool startAndConnect();

    // Plays 16 kHz mono s16le through the fake microphone in 1600-frame buffers.
    void speak(const QByteArray &pcm);
    static QByteArray tone(int bytes);

    // Final text the engine answers with; the utterance id is filled in.
    void answerWith(FinalMessage final) { m_answer = std::move(final); }
    void answerNothing() { m_answer.reset(); }
    static FinalMessage finalWithText(const std::string &formatted, bool guardrailApplied = true);

    std::vector<QByteArray> audioFramesReceived() const;
    std::vector<QString> pastedTexts() const { return m_pasted; }
    QStringList logLines() const;

    TestEngine engine;
    FakeAudioHardware hardware;
    FakeAudioInputEngine *audioEngine = nullptr; // owned by capture
    std::unique_ptr<AudioCapture> capture;
    testing::FakeKeyboardEventSource *keys = nullptr; // owned by hotkeys
    std::unique_ptr<HotkeyManager> hotkeys;
    std::shared_ptr<testing::FakePasteboard> pasteboard;
    std::shared_ptr<testing::FakeKeySynthesizer> synthesizer;
    std::shared_ptr<testing::FakeAccessibilityProvider> accessibility;
    std::shared_ptr<testing::FakeWorkspace> workspace;
    std::shared_ptr<testing::FakeWindowList> windowList;
    std::unique_ptr<ContextHarvester> harvester;
    std::unique_ptr<TextInserter> inserter;
    FakePreferenceStore preferences;
    std::unique_ptr<SettingsStore> settings;
    std::unique_ptr<UsageStatsStore> usage;
    std::unique_ptr<EngineClient> client;
    InProcessNotificationCenter center;
    std::unique_ptr<SayvoCoordinator> coordinator;

    // Every state the coordinator published, with the time it was published.
    struct StateChange
    {
        AppState state;
        qint64 atMs;
    };
    std::vector<StateChange> states;
    QElapsedTimer clock;

private:
    std::optional<FinalMessage> m_answer;
    std::vector<QString> m_pasted;
};

} // namespace sayvo::test
