#include "session/SayvoCoordinator.h"

#include "audio/AudioCapture.h"
#include "audio/AudioDeviceObserver.h"
#include "base/Logging.h"
#include "desktop/ContextHarvester.h"
#include "desktop/HotkeyManager.h"
#include "desktop/TextInserter.h"
#include "engineclient/EngineClient.h"
#include "store/SettingsStore.h"
#include "store/UsageStatsStore.h"

#include <QPointer>
#include <QSet>
#include <QUuid>

#include <utility>

namespace sayvo {

namespace {

QString newUtteranceId()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

QString text(const std::string &s)
{
    return QString::fromStdString(s);
}

} // namespace

SayvoCoordinator::SayvoCoordinator(EngineClient &engineClient, AudioCapture &audioCapture,
    HotkeyManager &hotkeyManager, ContextHarvester &contextHarvester, TextInserter &textInserter,
    SettingsStore &settings, UsageStatsStore &usageStats, AudioHardware &audioHardware,
    NotificationCenter &notificationCenter, QObject *parent)
    : QObject(parent),
      m_engineClient(engineClient),
      m_audioCapture(audioCapture),
      m_hotkeyManager(hotkeyManager),
      m_contextHarvester(contextHarvester),
      m_textInserter(textInserter),
      m_settings(settings),
      m_usageStats(usageStats),
      m_notificationCenter(notificationCenter)
{
    m_deviceObserver = new AudioDeviceObserver(audioHardware, this);
    m_returnToIdleTimer.setSingleShot(true);
    m_returnToIdleTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_returnToIdleTimer, &QTimer::timeout, this, [this] { setState(AppState::idle()); });

    m_engineClient.setDelegate(this, this);
    wireHotkey();
    m_outbound = std::make_shared<OutboundQueue>(
        this, [this](OutboundEvent event, const std::function<void()> &done) {
            consume(std::move(event), done);
        });
    wireAudio();

    // A changed feedback choice must reach the engine in the handshake, so reconnect.
    connect(&m_settings, &SettingsStore::feedbackEnabledChanged, this, [this](bool enabled) {
        m_engineClient.setFeedbackEnabled(enabled);
        m_engineClient.disconnect();
        const ConnectionState &state = m_engineClient.connectionState();
        if (state.is<ConnectionState::Disconnected>() || state.is<ConnectionState::Failed>()) {
            reconnectClient();
        }
    });

    // Rebuilds a prepared capture by itself; an unprepared one binds the choice when prepared.
    m_audioCapture.setInputDevice(m_settings.inputDeviceUID());

    auto applyDevices = [this](const AudioInputDeviceList &devices) {
        setInputDevices(devices);
        QSet<QString> uids;
        for (const AudioInputDevice &device : devices) {
            uids.insert(device.uid);
        }
        m_audioCapture.reconcile(uids);
    };
    connect(m_deviceObserver, &AudioDeviceObserver::devicesChanged, this, applyDevices);
    applyDevices(m_deviceObserver->devices());
    connect(m_deviceObserver, &AudioDeviceObserver::defaultInputChanged, this,
        [this] { m_audioCapture.followDefaultInput(); });
    // From the sound system's thread; the capture is rebuilt on ours. Cleared in the
    // destructor, and a queued call is dropped once this object is gone.
    m_audioCapture.setOnInterrupted([this](const QString &reason) {
        QMetaObject::invokeMethod(
            this,
            [this, reason] {
                Logging::shared().info(QStringLiteral("audio input interrupted: %1").arg(reason));
                m_audioCapture.recover();
            },
            Qt::QueuedConnection);
    });

    // On the main thread: setInputDevice waits on the capture queue, so it must never be
    // called from that queue.
    connect(&m_settings, &SettingsStore::inputDeviceUIDChanged, this,
        [this](const std::optional<QString> &uid) { m_audioCapture.setInputDevice(uid); });
}

SayvoCoordinator::~SayvoCoordinator()
{
    if (m_focusObserver) {
        m_notificationCenter.removeObserver(*m_focusObserver);
    }
    m_outbound->finish();
    m_audioCapture.setOnChunk({});
    m_audioCapture.setOnCaptureLive({});
    m_audioCapture.setOnInterrupted({});
    m_hotkeyManager.setOnStart({});
    m_hotkeyManager.setOnEnd({});
}

void SayvoCoordinator::wireHotkey()
{
    QPointer<SayvoCoordinator> weak(this);
    m_hotkeyManager.setOnStart([weak] {
        QMetaObject::invokeMethod(
            weak.data(),
            [weak] {
                if (weak) {
                    weak->handleTriggerDown();
                }
            },
            Qt::QueuedConnection);
    });
    m_hotkeyManager.setOnEnd([weak] {
        QMetaObject::invokeMethod(
            weak.data(),
            [weak] {
                if (weak) {
                    weak->handleTriggerUp();
                }
            },
            Qt::QueuedConnection);
    });
}

void SayvoCoordinator::wireAudio()
{
    // Straight from the capture queue into the thread-safe outbound queue: no hop through the
    // main thread, so a flush's last chunk is queued before stopForwarding() returns.
    std::weak_ptr<OutboundQueue> outbound = m_outbound;
    m_audioCapture.setOnChunk([outbound](const QByteArray &chunk) {
        if (auto queue = outbound.lock()) {
            queue->enqueue(OutboundEvent {OutboundEvent::Audio {chunk}});
        }
    });
    QPointer<SayvoCoordinator> weak(this);
    m_audioCapture.setOnCaptureLive([weak] {
        QMetaObject::invokeMethod(
            weak.data(),
            [weak] {
                if (weak && weak->m_state.is<AppState::Listening>()) {
                    weak->setIsCaptureLive(true);
                }
            },
            Qt::QueuedConnection);
    });
}

void SayvoCoordinator::start()
{
    m_engineClient.setFeedbackEnabled(m_settings.feedbackEnabled());
    retryInputSetupIfNeeded();
    const ConnectionState &state = m_engineClient.connectionState();
    if (state.is<ConnectionState::Failed>() || state.is<ConnectionState::Disconnected>()) {
        reconnectClient();
    }
    if (!m_focusObserver) {
        m_focusObserver = m_notificationCenter.addObserver(
            kDidActivateApplicationNotification, [this] { handleFocusChange(); });
    }
}

void SayvoCoordinator::stop()
{
    m_hotkeyManager.stop();
    m_audioCapture.stopForwarding(false);
    m_outbound->finish();
    m_engineClient.disconnect();
}

void SayvoCoordinator::reconnectClient()
{
    // connect() stays connected, resets the back-off to 0.5 s and opens the socket.
    m_engineClient.connect();
}

HotkeyTrigger SayvoCoordinator::activeTrigger() const
{
    return m_hotkeyManager.trigger();
}

bool SayvoCoordinator::inputReady() const
{
    return m_audioCapture.isPrepared() && m_hotkeyManager.isInstalled();
}

bool SayvoCoordinator::retryInputSetupIfNeeded()
{
    if (!m_audioCapture.isPrepared()) {
        const auto status = m_audioCapture.prepare();
        if (!status) {
            Logging::shared().error(
                QStringLiteral("audio prewarm failed: ") + status.error().describe());
        }
    }
    if (m_hotkeyManager.isInstalled()) {
        return m_audioCapture.isPrepared();
    }
    const auto status = m_hotkeyManager.start();
    if (!status) {
        Logging::shared().error(QStringLiteral("hotkey tap failed to install: ")
            + describe(status.error()) + QString::fromUtf8(" — Accessibility not granted?"));
    }
    return inputReady();
}

void SayvoCoordinator::handleTriggerDown()
{
    if (m_settings.triggerMode() == TriggerMode::holdToTalk) {
        beginUtterance();
        return;
    }
    if (m_state.is<AppState::Listening>()) {
        endUtterance();
    } else if (m_state.is<AppState::Idle>()) {
        beginUtterance();
    }
}

void SayvoCoordinator::handleTriggerUp()
{
    if (m_settings.triggerMode() == TriggerMode::holdToTalk) {
        endUtterance();
    }
}

void SayvoCoordinator::toggleDictation()
{
    if (m_state.is<AppState::Listening>()) {
        endUtterance();
    } else if (m_state.is<AppState::Idle>()) {
        beginUtterance();
    }
}

Status<SayvoCoordinator::CalibrationStartError> SayvoCoordinator::beginCalibrationUtterance(
    CalibrationSink sink)
{
    if (!m_state.is<AppState::Idle>()) {
        return CalibrationStartError::busy;
    }
    beginUtterance();
    if (!m_currentUtteranceId) {
        return CalibrationStartError::engineUnavailable;
    }
    m_calibrationSink = std::move(sink);
    return {};
}

void SayvoCoordinator::endCalibrationUtterance()
{
    if (m_calibrationSink) {
        endUtterance();
    }
}

void SayvoCoordinator::cancelCalibrationUtterance()
{
    if (!m_calibrationSink) {
        return;
    }
    m_calibrationSink.reset();
    // The engine is told the utterance is over so it frees its decoder; whatever it answers
    // carries an identifier nobody waits for any more.
    endUtterance();
    m_currentUtteranceId.reset();
    m_returnToIdleTimer.stop();
    setState(AppState::idle());
}

void SayvoCoordinator::beginUtterance()
{
    if (!m_state.is<AppState::Idle>()) {
        return;
    }
    const auto *connected = m_connectionHealth.as<EngineConnectionHealth::Connected>();
    if (connected == nullptr) {
        setState(AppState::error(m_hasEverConnected ? QString::fromUtf8("Reconnecting to engine…")
                                                    : QString::fromUtf8("Engine starting up…")));
        scheduleReturnToIdle(m_displayDurations.errorSeconds);
        return;
    }
    if (connected->mockBackends) {
        Logging::shared().error(QString::fromUtf8(
            "refusing to dictate: engine backends are mock (placeholder) — restart the engine"));
        setState(AppState::error(
            QString::fromUtf8("Engine in mock mode — restart it (no transcription)")));
        scheduleReturnToIdle(m_displayDurations.errorSeconds);
        return;
    }
    m_returnToIdleTimer.stop();
    const QString id = newUtteranceId();
    m_currentUtteranceId = id;
    m_utteranceStartedAt = std::chrono::steady_clock::now();
    setIsCaptureLive(false);
    setState(AppState::listening());
    ContextPack context = m_contextHarvester.harvestCheapContext(m_settings.personalDictionary());
    if (!m_outbound->isFinished()) {
        m_outbound->enqueue(OutboundEvent {OutboundEvent::Start {id, std::move(context)}});
    }
    m_audioCapture.startForwarding();
}

void SayvoCoordinator::endUtterance()
{
    if (!m_state.is<AppState::Listening>() || !m_currentUtteranceId) {
        return;
    }
    // Returns only after the last chunks went into the queue, so the end follows them.
    m_audioCapture.stopForwarding(true);
    setState(AppState::processing());
    if (!m_outbound->isFinished()) {
        m_outbound->enqueue(OutboundEvent {OutboundEvent::End {*m_currentUtteranceId}});
    }
}

void SayvoCoordinator::consume(OutboundEvent event, const std::function<void()> &done)
{
    QPointer<SayvoCoordinator> weak(this);
    if (auto *start = std::get_if<OutboundEvent::Start>(&event.value)) {
        const QString id = start->id;
        auto sendStart = [weak, id, done] {
            if (!weak) {
                return;
            }
            weak->m_engineClient.startUtterance(
                id, [weak, done](const std::optional<SendFailure> &failure) {
                    if (weak && failure) {
                        Logging::shared().error(
                            QStringLiteral("utterance.start failed: ") + failure->description);
                        weak->failUtterance(QStringLiteral("failed to reach engine"));
                    }
                    done();
                });
        };
        if (start->context.isEmpty()) {
            sendStart();
            return;
        }
        ContextUpdateMessage update;
        update.context = start->context;
        // A failed context update does not stop the utterance.
        m_engineClient.send(
            update, [sendStart](const std::optional<SendFailure> &) { sendStart(); });
        return;
    }
    if (auto *audio = std::get_if<OutboundEvent::Audio>(&event.value)) {
        if (!m_engineClient.hasSocket()) {
            done();
            return;
        }
        m_engineClient.sendBinary(
            audio->bytes, [done](const std::optional<SendFailure> &) { done(); });
        return;
    }
    const auto &end = std::get<OutboundEvent::End>(event.value);
    m_engineClient.endUtterance(end.id, [weak, done](const std::optional<SendFailure> &failure) {
        if (weak && failure) {
            Logging::shared().error(
                QStringLiteral("utterance.end failed: ") + failure->description);
            weak->failUtterance(QStringLiteral("failed to reach engine"));
        }
        done();
    });
}

void SayvoCoordinator::failUtterance(const QString &message)
{
    m_currentUtteranceId.reset();
    m_audioCapture.stopForwarding(false);
    setState(AppState::error(message));
    scheduleReturnToIdle(m_displayDurations.errorSeconds);
    std::optional<CalibrationSink> sink = std::exchange(m_calibrationSink, std::nullopt);
    if (sink && sink->onFailure) {
        sink->onFailure(message);
    }
}

void SayvoCoordinator::scheduleReturnToIdle(double seconds)
{
    m_returnToIdleTimer.stop();
    m_returnToIdleTimer.start(std::chrono::milliseconds(std::llround(seconds * 1000.0)));
}

void SayvoCoordinator::engineClientDidChangeConnection(EngineClient &, const ConnectionState &state)
{
    if (const auto *connected = state.as<ConnectionState::Connected>()) {
        m_hasEverConnected = true;
        setConnectionHealth(EngineConnectionHealth::connected(connected->backends.isMock()));
        return;
    }
    if (state.is<ConnectionState::Failed>()) {
        setConnectionHealth(EngineConnectionHealth::offline());
        if (m_currentUtteranceId) {
            failUtterance(QStringLiteral("connection lost"));
        }
        return;
    }
    setConnectionHealth(EngineConnectionHealth::from(state));
}

void SayvoCoordinator::engineClientDidReceiveHelloAck(
    EngineClient &, const HelloAckMessage &message)
{
    Logging::shared().info(QStringLiteral("connected: server=") + text(message.serverVersion)
        + QStringLiteral(" mock=")
        + (message.backends.isMock() ? QStringLiteral("true") : QStringLiteral("false")));
}

void SayvoCoordinator::engineClientDidReceivePartial(EngineClient &, const PartialMessage &message)
{
    if (m_currentUtteranceId && *m_currentUtteranceId == text(message.utteranceId)) {
        setState(AppState::listening(text(message.text)));
    }
}

void SayvoCoordinator::engineClientDidReceiveFinal(EngineClient &, const FinalMessage &message)
{
    const QString id = text(message.utteranceId);
    if (!m_currentUtteranceId || *m_currentUtteranceId != id) {
        return;
    }
    m_currentUtteranceId.reset();
    setResolvedDomain(text(message.domain));
    if (message.stats) {
        m_usageStats.record(*message.stats);
    }
    if (std::optional<CalibrationSink> sink = std::exchange(m_calibrationSink, std::nullopt)) {
        setState(AppState::idle());
        if (sink->onFinal) {
            sink->onFinal(message);
        }
        return;
    }
    const QString formatted = text(message.formattedText);
    if (formatted.isEmpty()) {
        Logging::shared().info(
            QStringLiteral("empty transcript: capturedBytes=%1 peakRMS=%2")
                .arg(m_audioCapture.lastUtteranceBytes())
                .arg(static_cast<double>(m_audioCapture.lastUtterancePeakRMS())));
        setState(AppState::emptyTranscript());
        scheduleReturnToIdle(m_displayDurations.errorSeconds);
        return;
    }
    // The paste waits for the keyboard to be quiet and reports when its chord went out; the
    // outcome is shown then, with the state still processing meanwhile.
    const bool rawText = !message.guardrail.applied;
    QPointer<SayvoCoordinator> weak(this);
    m_textInserter.insert(
        formatted, m_settings.insertionMethod(), [weak, formatted, rawText](bool inserted) {
            if (!weak) {
                return;
            }
            if (inserted) {
                weak->setState(AppState::success(formatted, rawText));
                weak->scheduleReturnToIdle(weak->m_displayDurations.successSeconds);
            } else {
                weak->setState(AppState::error(QStringLiteral("couldn't insert text here")));
                weak->scheduleReturnToIdle(weak->m_displayDurations.errorSeconds);
            }
        });
    if (m_settings.feedbackEnabled() && m_utteranceStartedAt) {
        const auto elapsed = std::chrono::steady_clock::now() - *m_utteranceStartedAt;
        startFeedback(
            id, formatted, std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
    }
}

void SayvoCoordinator::engineClientDidReceiveError(EngineClient &, const ErrorMessage &message)
{
    Logging::shared().error(QStringLiteral("engine error [") + text(message.code)
        + QStringLiteral("]: ") + text(message.message));
    if (m_currentUtteranceId) {
        failUtterance(text(message.message));
    }
}

void SayvoCoordinator::engineClientDidReceiveDomainChanged(
    EngineClient &, const DomainChangedMessage &message)
{
    setResolvedDomain(text(message.domain));
}

void SayvoCoordinator::engineClientDidReceiveSuggestions(
    EngineClient &, const SuggestionsMessage &message)
{
    setSuggestions(message);
}

void SayvoCoordinator::handleFocusChange()
{
    const ContextPack context
        = m_contextHarvester.harvestCheapContext(m_settings.personalDictionary());
    QMetaObject::invokeMethod(
        this, [this, context] { m_engineClient.updateContext(context); }, Qt::QueuedConnection);
}

void SayvoCoordinator::pin(const QString &domain)
{
    setPinnedDomain(domain);
    QMetaObject::invokeMethod(
        this, [this, domain] { m_engineClient.pinDomain(domain); }, Qt::QueuedConnection);
}

void SayvoCoordinator::unpinDomain()
{
    setPinnedDomain(std::nullopt);
    QMetaObject::invokeMethod(
        this, [this] { m_engineClient.unpinDomain(); }, Qt::QueuedConnection);
}

void SayvoCoordinator::refreshSuggestions()
{
    QMetaObject::invokeMethod(
        this, [this] { m_engineClient.requestSuggestions(); }, Qt::QueuedConnection);
}

void SayvoCoordinator::dismissDictionarySuggestion(const DictionarySuggestion &suggestion)
{
    if (!m_suggestions) {
        return;
    }
    SuggestionsMessage remaining = *m_suggestions;
    const std::string key = suggestion.id();
    std::erase_if(
        remaining.dictionary, [&key](const DictionarySuggestion &s) { return s.id() == key; });
    setSuggestions(std::move(remaining));
}

void SayvoCoordinator::acceptDictionarySuggestion(const DictionarySuggestion &suggestion)
{
    const QString term = text(suggestion.suggestedTerm);
    QStringList dictionary = m_settings.personalDictionary();
    if (!dictionary.contains(term, Qt::CaseSensitive)) {
        dictionary.append(term);
        m_settings.setPersonalDictionary(dictionary);
    }
    dismissDictionarySuggestion(suggestion);
}

void SayvoCoordinator::startFeedback(
    const QString &utteranceId, const QString &text, qint64 editDelayMs)
{
    QMetaObject::invokeMethod(
        this,
        [this, utteranceId, text, editDelayMs] {
            m_engineClient.sendFeedback(utteranceId, text, editDelayMs, QStringLiteral("edit"));
        },
        Qt::QueuedConnection);
}

void SayvoCoordinator::setState(AppState state)
{
    m_state = std::move(state);
    emit stateChanged(m_state);
}

void SayvoCoordinator::setConnectionHealth(EngineConnectionHealth health)
{
    m_connectionHealth = health;
    emit connectionHealthChanged(m_connectionHealth);
}

void SayvoCoordinator::setPinnedDomain(std::optional<QString> domain)
{
    m_pinnedDomain = std::move(domain);
    emit pinnedDomainChanged(m_pinnedDomain);
}

void SayvoCoordinator::setResolvedDomain(std::optional<QString> domain)
{
    m_resolvedDomain = std::move(domain);
    emit resolvedDomainChanged(m_resolvedDomain);
}

void SayvoCoordinator::setSuggestions(std::optional<SuggestionsMessage> suggestions)
{
    m_suggestions = std::move(suggestions);
    emit suggestionsChanged();
}

void SayvoCoordinator::setInputDevices(AudioInputDeviceList devices)
{
    m_inputDevices = std::move(devices);
    emit inputDevicesChanged(m_inputDevices);
}

void SayvoCoordinator::setIsCaptureLive(bool live)
{
    m_isCaptureLive = live;
    emit isCaptureLiveChanged(m_isCaptureLive);
}

} // namespace sayvo
