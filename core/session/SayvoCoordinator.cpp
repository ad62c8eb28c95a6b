#include "session/SayvoCoordinator.h"

#include "audio/AudioCapture.h"
#include "audio/AudioDeviceObserver.h"
#include "base/LatencyTrace.h"
#include "base/Logging.h"
#include "desktop/ContextHarvester.h"
#include "desktop/HotkeyManager.h"
#include "desktop/TextInserter.h"
#include "engineclient/EngineClient.h"
#include "store/SettingsStore.h"
#include "store/UsageStatsStore.h"

#include <QPointer>
#include <QScopeGuard>
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
    m_finalDeadlineTimer.setSingleShot(true);
    m_finalDeadlineTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_finalDeadlineTimer, &QTimer::timeout, this, [this] {
        Logging::shared().error(QStringLiteral("no final within %1 ms: audioBytes=%2")
                                    .arg(m_finalDeadlineTimer.interval())
                                    .arg(m_audioCapture.lastUtteranceBytes()));
        failUtterance(kNoAnswerMessage);
    });

    m_engineClient.setDelegate(this, this);
    wireHotkey();
    m_outbound = std::make_shared<OutboundQueue>(
        this, [this](OutboundEvent event, const std::function<void()> &done) {
            consume(std::move(event), done);
        });
    wireAudio();

    // The feedback choice and the language travel in the handshake: a change reconnects.
    connect(&m_settings, &SettingsStore::feedbackEnabledChanged, this, [this](bool enabled) {
        m_engineClient.setFeedbackEnabled(enabled);
        renewHandshake();
    });
    connect(&m_settings, &SettingsStore::languageChanged, this,
        [this](const std::optional<QString> &language) {
            m_engineClient.setLanguage(language);
            renewHandshake();
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
    // The hotkey manager calls from the event loop already, never from inside the key's
    // handling: acting at once saves the key an event-loop turn each way.
    QPointer<SayvoCoordinator> weak(this);
    m_hotkeyManager.setOnStart([weak] {
        if (weak) {
            weak->handleTriggerDown();
        }
    });
    m_hotkeyManager.setOnEnd([weak] {
        if (weak) {
            weak->handleTriggerUp();
        }
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
    m_engineClient.setLanguage(m_settings.language());
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

void SayvoCoordinator::renewHandshake()
{
    // Once stopped, the coordinator opens no connection again.
    if (m_outbound->isFinished()) {
        return;
    }
    m_engineClient.disconnect();
    const ConnectionState &state = m_engineClient.connectionState();
    if (state.is<ConnectionState::Disconnected>() || state.is<ConnectionState::Failed>()) {
        reconnectClient();
    }
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

RightAltRole SayvoCoordinator::rightAltRole() const
{
    return m_hotkeyManager.rightAltRole();
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
    markLatency("trigger-down");
    if (m_settings.triggerMode() == TriggerMode::holdToTalk) {
        beginUtterance();
        return;
    }
    toggleDictation();
}

void SayvoCoordinator::handleTriggerUp()
{
    markLatency("trigger-up");
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
    // carries an identifier nobody waits for any more, and no answer is awaited.
    endUtterance();
    m_cancelledUtteranceId = m_currentUtteranceId;
    closeUtterance();
    m_returnToIdleTimer.stop();
    setState(AppState::idle());
}

void SayvoCoordinator::beginUtterance()
{
    if (!m_state.is<AppState::Idle>() || refuseWithoutEngine()) {
        return;
    }
    m_returnToIdleTimer.stop();
    // The microphone opens before the context is gathered, whose accessibility and clipboard
    // queries may take a while, so the first words are not lost; its audio waits aside until
    // the start is queued, so the engine still gets the context, the start, then the audio.
    m_outbound->holdAudio();
    if (const auto opened = openMicrophone(); !opened) {
        m_outbound->discardAudio();
        m_outbound->releaseAudio();
        const QString message = opened.error().describe();
        Logging::shared().error(QStringLiteral("could not start dictation: ") + message);
        setState(AppState::error(message));
        scheduleReturnToIdle(m_displayDurations.errorSeconds);
        return;
    }
    const QString id = newUtteranceId();
    m_currentUtteranceId = id;
    m_utteranceStartedAt = std::chrono::steady_clock::now();
    setIsCaptureLive(false);
    setState(AppState::listening());
    ContextPack context = m_contextHarvester.harvestCheapContext(m_settings.personalDictionary());
    m_outbound->enqueue(OutboundEvent {OutboundEvent::Start {id, std::move(context)}});
    m_outbound->releaseAudio();
}

bool SayvoCoordinator::refuseWithoutEngine()
{
    const auto *connected = m_connectionHealth.as<EngineConnectionHealth::Connected>();
    if (connected == nullptr) {
        setState(AppState::error(m_hasEverConnected ? QString::fromUtf8("Reconnecting to engine…")
                                                    : QString::fromUtf8("Engine starting up…")));
        scheduleReturnToIdle(m_displayDurations.errorSeconds);
        return true;
    }
    if (connected->mockBackends) {
        Logging::shared().error(QString::fromUtf8(
            "refusing to dictate: engine backends are mock (placeholder) — restart the engine"));
        setState(AppState::error(
            QString::fromUtf8("Engine in mock mode — restart it (no transcription)")));
        scheduleReturnToIdle(m_displayDurations.errorSeconds);
        return true;
    }
    return false;
}

// A microphone that never came up, or will not open now, is reported before anything is sent:
// otherwise the user would speak into nothing and be told the engine heard nothing.
Status<AudioCaptureError> SayvoCoordinator::openMicrophone()
{
    if (!m_audioCapture.isPrepared()) {
        if (auto prepared = m_audioCapture.prepare(); !prepared) {
            return prepared;
        }
    }
    auto started = m_audioCapture.startForwarding();
    if (!started) {
        m_audioCapture.stopForwarding(false);
    }
    return started;
}

void SayvoCoordinator::endUtterance()
{
    if (!m_state.is<AppState::Listening>() || !m_currentUtteranceId) {
        return;
    }
    // Returns only after the last chunks went into the queue, so the end follows them.
    m_audioCapture.stopForwarding(true);
    // On the wire before the state's observers run (the HUD and the tray icon redraw), not in
    // a later turn behind them.
    m_outbound->enqueue(OutboundEvent {OutboundEvent::End {*m_currentUtteranceId}});
    m_outbound->handOutNow();
    setState(AppState::processing());
    m_finalDeadlineTimer.start(m_finalDeadline.forAudioBytes(m_audioCapture.lastUtteranceBytes()));
    // The clipboard is saved while the engine finishes, once the end has gone out (its
    // wake-up is queued first), rather than after the final, on the way to the text.
    if (!m_calibrationSink && m_settings.insertionMethod() == InsertionMethod::paste) {
        QPointer<SayvoCoordinator> weak(this);
        QMetaObject::invokeMethod(
            this,
            [weak] {
                if (weak && weak->m_state.is<AppState::Processing>()) {
                    weak->m_textInserter.prepare();
                }
            },
            Qt::QueuedConnection);
    }
}

std::chrono::milliseconds SayvoCoordinator::FinalDeadline::forAudioBytes(qint64 bytes) const
{
    // 16 kHz mono s16le: 32000 bytes a second.
    const double audioSeconds = static_cast<double>(bytes) / 32000.0;
    return std::chrono::milliseconds(
        std::llround((baseSeconds + perAudioSecond * audioSeconds) * 1000.0));
}

void SayvoCoordinator::consume(OutboundEvent event, const std::function<void()> &done)
{
    QPointer<SayvoCoordinator> weak(this);
    // A start or end the engine did not take ends its utterance, unless that has ended already
    // (a closed or lost connection fails the utterance before the send reports it).
    auto failUnlessSent
        = [weak](const char *what, const QString &id, const std::function<void()> &then) {
              return [weak, then, what, id](const std::optional<SendFailure> &failure) {
                  if (weak && failure) {
                      Logging::shared().error(QString::fromLatin1(what)
                          + QStringLiteral(" failed: ") + failure->description);
                      if (weak->m_currentUtteranceId == id) {
                          weak->failUtterance(kUnreachableMessage);
                      }
                  }
                  then();
              };
          };
    // The start or end of an utterance that failed or lost its connection meanwhile is not
    // sent: it would reach whatever connection is open by then, for an utterance the engine
    // never saw or that is over. A cancelled one still goes out whole.
    const auto *start = std::get_if<OutboundEvent::Start>(&event.value);
    const auto *end = std::get_if<OutboundEvent::End>(&event.value);
    const auto isLive = [this](const QString &id) {
        return m_currentUtteranceId == id || m_cancelledUtteranceId == id;
    };
    if ((start != nullptr && !isLive(start->id)) || (end != nullptr && !isLive(end->id))) {
        done();
        return;
    }
    if (start != nullptr) {
        const QString id = start->id;
        auto sendStart = [weak, id, sent = failUnlessSent("utterance.start", id, done)] {
            if (weak) {
                weak->m_engineClient.startUtterance(id, sent);
            }
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
    // On an open socket a frame is on the wire when the send returns, in order: the next event
    // goes out in the same turn instead of a turn later with this one's completion. While the
    // socket is still opening, the queue waits, so audio gathers here rather than against the
    // client's limit.
    const bool writesAtOnce = m_engineClient.writesAtOnce();
    if (auto *audio = std::get_if<OutboundEvent::Audio>(&event.value)) {
        if (!m_engineClient.hasSocket()) {
            done();
            return;
        }
        if (writesAtOnce) {
            m_engineClient.sendBinary(audio->bytes);
            done();
            return;
        }
        m_engineClient.sendBinary(
            audio->bytes, [done](const std::optional<SendFailure> &) { done(); });
        return;
    }
    if (m_cancelledUtteranceId == end->id) {
        m_cancelledUtteranceId.reset();
    }
    const std::function<void()> noFurther = [] {};
    m_engineClient.endUtterance(end->id,
        [writesAtOnce,
            sent = failUnlessSent("utterance.end", end->id, writesAtOnce ? noFurther : done)](
            const std::optional<SendFailure> &failure) {
            if (!writesAtOnce) {
                markLatency("end-sent");
            }
            sent(failure);
        });
    if (writesAtOnce) {
        markLatency("end-sent");
        done();
    }
}

// However an utterance ends (its final, an error, a lost connection, no answer), the
// microphone closes and audio still waiting for the engine is dropped: a final may come while
// the key is still held, when the engine ends an utterance by itself.
void SayvoCoordinator::closeUtterance()
{
    m_currentUtteranceId.reset();
    m_finalDeadlineTimer.stop();
    if (m_audioCapture.isForwarding()) {
        m_audioCapture.stopForwarding(false);
    }
    m_outbound->discardAudio();
}

void SayvoCoordinator::failUtterance(const QString &message)
{
    m_textInserter.forgetPrepared();
    closeUtterance();
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
    m_hasEverConnected = m_hasEverConnected || state.is<ConnectionState::Connected>();
    setConnectionHealth(EngineConnectionHealth::from(state));
    if (!state.is<ConnectionState::Connected>()) {
        m_cancelledUtteranceId.reset();
    }
    if (!m_currentUtteranceId || state.is<ConnectionState::Connected>()) {
        return;
    }
    // A socket closed on purpose (the feedback choice, the language or the endpoint changed) takes
    // the utterance's final with it just as a lost one does, so the utterance fails now instead of
    // waiting for an answer that cannot come.
    failUtterance(
        state.is<ConnectionState::Failed>() ? kConnectionLostMessage : kConnectionRestartedMessage);
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
    // The engine answers the last frames after the key is up: such a partial must not take
    // processing back to listening.
    if (m_state.is<AppState::Listening>() && m_currentUtteranceId
        && *m_currentUtteranceId == text(message.utteranceId)) {
        setState(AppState::listening(text(message.text)));
    }
}

void SayvoCoordinator::engineClientDidReceiveFinal(EngineClient &, const FinalMessage &message)
{
    const QString id = text(message.utteranceId);
    if (!m_currentUtteranceId || *m_currentUtteranceId != id) {
        return;
    }
    // The clipboard saved for the paste is not kept past it, nor when there is none.
    const auto forgetSavedClipboard = qScopeGuard([this] { m_textInserter.forgetPrepared(); });
    closeUtterance();
    // Booked once the text is on its way: their observers (the settings window, the preference
    // file) are no part of the paste.
    const auto bookkeeping = qScopeGuard([this, &message] {
        setResolvedDomain(text(message.domain));
        if (message.stats) {
            m_usageStats.record(*message.stats);
        }
    });
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
            markLatency("text-inserted");
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
