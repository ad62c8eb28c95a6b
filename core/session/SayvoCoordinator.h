#pragma once

#include "audio/AudioInputDevice.h"
#include "base/Expected.h"
#include "engineclient/EngineClientDelegate.h"
#include "protocol/InboundMessages.h"
#include "session/AppState.h"
#include "session/EngineConnectionHealth.h"
#include "session/NotificationCenter.h"
#include "session/OutboundQueue.h"
#include "store/HotkeyTrigger.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace sayvo {

class AudioCapture;
class AudioDeviceObserver;
class AudioHardware;
class ContextHarvester;
class EngineClient;
class HotkeyManager;
class SettingsStore;
class TextInserter;
class UsageStatsStore;

// Runs one utterance at a time, from the trigger key to the inserted text, and keeps the
// engine informed about context, pinned domain, suggestions and feedback. Lives on the main
// thread and publishes everything the tray, the HUD and the windows show. It is the engine
// client's delegate. The collaborators must outlive it.
class SayvoCoordinator : public QObject, public EngineClientDelegate
{
    Q_OBJECT

public:
    // Where a calibration utterance's outcome goes instead of the focused application: exactly
    // one of the two is called, once, and the sink is dropped with that call.
    struct CalibrationSink
    {
        std::function<void(const FinalMessage &)> onFinal;
        // The utterance ended without a final (engine error, lost connection); the text is
        // the one dictation shows for it.
        std::function<void(const QString &message)> onFailure;
    };

    enum class CalibrationStartError {
        // Dictation is not idle: an utterance or its result is still on screen.
        busy,
        // The engine is not connected or runs mock backends; the state says which.
        engineUnavailable,
    };

    static constexpr double kSuccessDisplaySeconds = 1.2;
    static constexpr double kErrorDisplaySeconds = 2.0;

    // How long outcomes stay on screen before the return to idle. Long runs of utterances in
    // tests shorten them; the app always uses the defaults.
    struct DisplayDurations
    {
        double successSeconds = kSuccessDisplaySeconds;
        double errorSeconds = kErrorDisplaySeconds;
    };
    void setDisplayDurations(DisplayDurations durations) { m_displayDurations = durations; }

    SayvoCoordinator(EngineClient &engineClient, AudioCapture &audioCapture,
        HotkeyManager &hotkeyManager, ContextHarvester &contextHarvester,
        TextInserter &textInserter, SettingsStore &settings, UsageStatsStore &usageStats,
        AudioHardware &audioHardware,
        NotificationCenter &notificationCenter = NotificationCenter::defaultCenter(),
        QObject *parent = nullptr);
    ~SayvoCoordinator() override;

    void start();
    void stop();

    // The microphone is prepared and the trigger key is watched.
    bool inputReady() const;
    // The key watched now: the one chosen when Sayvo started.
    HotkeyTrigger activeTrigger() const;
    // Prepares whatever of the two is missing; returns the new inputReady().
    bool retryInputSetupIfNeeded();

    void handleTriggerDown();
    void handleTriggerUp();
    // A click on the tray icon when it is the trigger: starts when idle, ends when listening,
    // whatever the trigger mode.
    void toggleDictation();

    // Focus, domains, suggestions.
    void handleFocusChange();
    void pin(const QString &domain);
    void unpinDomain();
    void refreshSuggestions();
    void dismissDictionarySuggestion(const DictionarySuggestion &suggestion);
    void acceptDictionarySuggestion(const DictionarySuggestion &suggestion);

    // Calibration runs the ordinary begin and end steps, with its outcome going to `sink`
    // instead of being inserted. The sink is kept only when the utterance began.
    Status<CalibrationStartError> beginCalibrationUtterance(CalibrationSink sink);
    void endCalibrationUtterance();
    // Ends a calibration utterance at once, recording or awaiting its final, and discards
    // its result: dictation is idle again and nothing reaches the sink or the focused app.
    void cancelCalibrationUtterance();
    bool hasCalibrationSink() const { return m_calibrationSink.has_value(); }

    const AppState &state() const { return m_state; }
    const EngineConnectionHealth &connectionHealth() const { return m_connectionHealth; }
    const std::optional<QString> &pinnedDomain() const { return m_pinnedDomain; }
    const std::optional<QString> &resolvedDomain() const { return m_resolvedDomain; }
    const std::optional<SuggestionsMessage> &suggestions() const { return m_suggestions; }
    const AudioInputDeviceList &inputDevices() const { return m_inputDevices; }
    bool isCaptureLive() const { return m_isCaptureLive; }
    const std::optional<QString> &currentUtteranceId() const { return m_currentUtteranceId; }
    bool hasEverConnected() const { return m_hasEverConnected; }
    bool isReturnToIdlePending() const { return m_returnToIdleTimer.isActive(); }

    // EngineClientDelegate
    void engineClientDidChangeConnection(
        EngineClient &client, const ConnectionState &state) override;
    void engineClientDidReceiveHelloAck(
        EngineClient &client, const HelloAckMessage &message) override;
    void engineClientDidReceivePartial(
        EngineClient &client, const PartialMessage &message) override;
    void engineClientDidReceiveFinal(EngineClient &client, const FinalMessage &message) override;
    void engineClientDidReceiveDomainChanged(
        EngineClient &client, const DomainChangedMessage &message) override;
    void engineClientDidReceiveError(EngineClient &client, const ErrorMessage &message) override;
    void engineClientDidReceiveSuggestions(
        EngineClient &client, const SuggestionsMessage &message) override;

signals:
    void stateChanged(const sayvo::AppState &state);
    void connectionHealthChanged(const sayvo::EngineConnectionHealth &health);
    void pinnedDomainChanged(const std::optional<QString> &domain);
    void resolvedDomainChanged(const std::optional<QString> &domain);
    void suggestionsChanged();
    void inputDevicesChanged(const sayvo::AudioInputDeviceList &devices);
    void isCaptureLiveChanged(bool live);

private:
    void wireHotkey();
    void wireAudio();
    void beginUtterance();
    void endUtterance();
    void consume(OutboundEvent event, const std::function<void()> &done);
    void failUtterance(const QString &message);
    void scheduleReturnToIdle(double seconds);
    void startFeedback(const QString &utteranceId, const QString &text, qint64 editDelayMs);
    void reconnectClient();

    void setState(AppState state);
    void setConnectionHealth(EngineConnectionHealth health);
    void setPinnedDomain(std::optional<QString> domain);
    void setResolvedDomain(std::optional<QString> domain);
    void setSuggestions(std::optional<SuggestionsMessage> suggestions);
    void setInputDevices(AudioInputDeviceList devices);
    void setIsCaptureLive(bool live);

    EngineClient &m_engineClient;
    AudioCapture &m_audioCapture;
    HotkeyManager &m_hotkeyManager;
    ContextHarvester &m_contextHarvester;
    TextInserter &m_textInserter;
    SettingsStore &m_settings;
    UsageStatsStore &m_usageStats;
    NotificationCenter &m_notificationCenter;
    AudioDeviceObserver *m_deviceObserver = nullptr; // child

    AppState m_state;
    EngineConnectionHealth m_connectionHealth;
    std::optional<QString> m_pinnedDomain;
    std::optional<QString> m_resolvedDomain;
    std::optional<SuggestionsMessage> m_suggestions;
    AudioInputDeviceList m_inputDevices;
    bool m_isCaptureLive = false;

    std::optional<CalibrationSink> m_calibrationSink;
    std::optional<QString> m_currentUtteranceId;
    std::optional<std::chrono::steady_clock::time_point> m_utteranceStartedAt;
    QTimer m_returnToIdleTimer;
    DisplayDurations m_displayDurations;
    bool m_hasEverConnected = false;
    // Shared with the capture queue's chunk callback, which may still hold it briefly.
    std::shared_ptr<OutboundQueue> m_outbound;
    std::optional<NotificationCenter::Token> m_focusObserver;
};

} // namespace sayvo
