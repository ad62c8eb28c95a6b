#include "calibration/CalibrationController.h"

#include "calibration/WordErrorRate.h"
#include "engineclient/EngineClient.h"
#include "session/SayvoCoordinator.h"
#include "store/SettingsStore.h"

#include <QPointer>

#include <algorithm>

namespace sayvo {

QString CalibrationController::emptyTranscriptMessage()
{
    return QStringLiteral("Nothing was transcribed \u2014 check the mic and try this line again.");
}

CalibrationController::CalibrationController(SayvoCoordinator &coordinator, EngineClient &client,
    SettingsStore &settings, QList<CalibrationPrompt> prompts, QObject *parent)
    : QObject(parent),
      m_coordinator(coordinator),
      m_client(client),
      m_settings(settings),
      m_prompts(std::move(prompts)),
      m_pendingQueue(allPromptIds())
{
    connect(&m_coordinator, &SayvoCoordinator::stateChanged, this,
        &CalibrationController::canStartRecordingChanged);
    connect(&m_settings, &SettingsStore::feedbackEnabledChanged, this, [this](bool enabled) {
        if (enabled) {
            setAwaitingSharing(false);
        }
    });
}

CalibrationController::~CalibrationController()
{
    // A line still being read would otherwise end up in whatever application has the focus.
    abandonReading();
}

std::optional<CalibrationPrompt> CalibrationController::currentPrompt() const
{
    if (m_pendingQueue.isEmpty()) {
        return std::nullopt;
    }
    for (const CalibrationPrompt &prompt : m_prompts) {
        if (prompt.id == m_pendingQueue.front()) {
            return prompt;
        }
    }
    return std::nullopt;
}

double CalibrationController::meanWER() const
{
    if (m_results.isEmpty()) {
        return 0.0;
    }
    double sum = 0.0;
    for (const Result &result : m_results) {
        sum += result.wer;
    }
    return sum / static_cast<double>(m_results.size());
}

double CalibrationController::exactMatchRate() const
{
    if (m_results.isEmpty()) {
        return 0.0;
    }
    const auto exact = std::count_if(
        m_results.begin(), m_results.end(), [](const Result &r) { return r.isExact(); });
    return static_cast<double>(exact) / static_cast<double>(m_results.size());
}

bool CalibrationController::canStartOver() const
{
    const bool between
        = m_phase == Phase::ready || m_phase == Phase::reviewing || m_phase == Phase::finished;
    return between && !m_isSubmitting && !m_results.isEmpty();
}

bool CalibrationController::canStartRecording() const
{
    return m_phase == Phase::ready && currentPrompt().has_value()
        && m_coordinator.state().is<AppState::Idle>();
}

bool CalibrationController::canSubmit() const
{
    return m_phase == Phase::reviewing && !m_isSubmitting && !m_results.isEmpty();
}

void CalibrationController::startRecording()
{
    if (!canStartRecording()) {
        return;
    }
    setLastError(std::nullopt);
    const quint64 reading = ++m_reading;
    QPointer<CalibrationController> self(this);
    // Outcomes are handled from the event loop, never inside the coordinator's delivery.
    const auto later = [self, reading](std::function<void(CalibrationController &)> handle) {
        QMetaObject::invokeMethod(
            self.data(),
            [self, reading, handle = std::move(handle)] {
                if (self && self->m_reading == reading && self->isReading()) {
                    handle(*self);
                }
            },
            Qt::QueuedConnection);
    };
    SayvoCoordinator::CalibrationSink sink;
    sink.onFinal = [later](const FinalMessage &final) {
        later([final](CalibrationController &c) { c.handleFinal(final); });
    };
    sink.onFailure = [later](const QString &message) {
        later([message](CalibrationController &c) { c.handleFailure(message); });
    };
    const auto began = m_coordinator.beginCalibrationUtterance(std::move(sink));
    if (!began) {
        // The coordinator shows why on its own state; the line says it too.
        const auto *error = m_coordinator.state().as<AppState::Error>();
        setLastError(error != nullptr
                ? error->message
                : QStringLiteral("Dictation is busy \u2014 try this line again in a moment."));
        return;
    }
    setPhase(Phase::recording);
}

void CalibrationController::stopRecording()
{
    if (m_phase != Phase::recording) {
        return;
    }
    m_coordinator.endCalibrationUtterance();
    setPhase(Phase::scoring);
}

void CalibrationController::cancel()
{
    abandonReading();
    setPhase(m_pendingQueue.isEmpty() ? Phase::reviewing : Phase::ready);
}

void CalibrationController::abandonReading()
{
    if (isReading()) {
        ++m_reading;
        m_coordinator.cancelCalibrationUtterance();
    }
}

void CalibrationController::restart()
{
    if (m_isSubmitting) {
        return;
    }
    abandonReading();
    setAwaitingSharing(false);
    setResults({});
    setPendingQueue(allPromptIds());
    setLastError(std::nullopt);
    setPhase(Phase::ready);
}

void CalibrationController::redo(const QUuid &resultId)
{
    requeue(resultId, QueuePosition::next);
}

void CalibrationController::remove(const QUuid &resultId)
{
    requeue(resultId, QueuePosition::last);
}

void CalibrationController::requeue(const QUuid &resultId, QueuePosition position)
{
    if ((m_phase != Phase::ready && m_phase != Phase::reviewing) || m_isSubmitting) {
        return;
    }
    const std::optional<int> promptId = takeResult(resultId);
    if (!promptId) {
        return;
    }
    QList<int> queue = m_pendingQueue;
    if (position == QueuePosition::next) {
        queue.prepend(*promptId);
    } else {
        queue.append(*promptId);
    }
    setPendingQueue(std::move(queue));
    setAwaitingSharing(false);
    setPhase(Phase::ready);
}

void CalibrationController::submit()
{
    if (!canSubmit()) {
        return;
    }
    if (!m_settings.feedbackEnabled()) {
        setAwaitingSharing(true);
        return;
    }
    setAwaitingSharing(false);
    setIsSubmitting(true);
    sendNext(m_results);
}

void CalibrationController::enableSharingAndSubmit()
{
    if (!canSubmit()) {
        return;
    }
    m_settings.setFeedbackEnabled(true);
    submit();
}

void CalibrationController::sendNext(QList<Result> remaining)
{
    if (remaining.isEmpty()) {
        setPhase(Phase::finished);
        setIsSubmitting(false);
        return;
    }
    const Result result = remaining.takeFirst();
    UtteranceFeedbackMessage message;
    message.utteranceId = result.utteranceId.toStdString();
    message.finalTextAfterEdit = result.reference.toStdString();
    message.editDelayMs = 0;
    message.source = "calibration";
    QPointer<CalibrationController> self(this);
    m_client.send(message,
        [self, remaining = std::move(remaining)](const std::optional<SendFailure> &) mutable {
            if (self) {
                self->sendNext(std::move(remaining));
            }
        });
}

void CalibrationController::handleFinal(const FinalMessage &final)
{
    const std::optional<CalibrationPrompt> prompt = currentPrompt();
    if (!prompt) {
        return;
    }
    const QString transcript = QString::fromStdString(final.formattedText);
    if (transcript.isEmpty()) {
        setLastError(emptyTranscriptMessage());
        setPhase(Phase::ready);
        return;
    }
    QList<Result> results = m_results;
    results.removeIf([&](const Result &r) { return r.promptId == prompt->id; });
    results.append(
        Result {QUuid::createUuid(), prompt->id, QString::fromStdString(final.utteranceId),
            prompt->text, transcript, wordErrorRate(prompt->text, transcript)});
    setResults(std::move(results));
    QList<int> queue = m_pendingQueue;
    queue.removeFirst();
    setPendingQueue(std::move(queue));
    setPhase(m_pendingQueue.isEmpty() ? Phase::reviewing : Phase::ready);
}

void CalibrationController::handleFailure(const QString &message)
{
    setLastError(message);
    setPhase(Phase::ready);
}

std::optional<int> CalibrationController::takeResult(const QUuid &resultId)
{
    for (qsizetype i = 0; i < m_results.size(); ++i) {
        if (m_results[i].id == resultId) {
            QList<Result> results = m_results;
            const int promptId = results.takeAt(i).promptId;
            setResults(std::move(results));
            return promptId;
        }
    }
    return std::nullopt;
}

QList<int> CalibrationController::allPromptIds() const
{
    QList<int> ids;
    for (const CalibrationPrompt &prompt : m_prompts) {
        ids.append(prompt.id);
    }
    return ids;
}

void CalibrationController::setPhase(Phase phase)
{
    if (m_phase == phase) {
        return;
    }
    m_phase = phase;
    emit phaseChanged(phase);
}

void CalibrationController::setPendingQueue(QList<int> queue)
{
    if (m_pendingQueue == queue) {
        return;
    }
    m_pendingQueue = std::move(queue);
    emit pendingQueueChanged(m_pendingQueue);
}

void CalibrationController::setResults(QList<Result> results)
{
    if (m_results == results) {
        return;
    }
    m_results = std::move(results);
    emit resultsChanged();
}

void CalibrationController::setLastError(std::optional<QString> error)
{
    if (m_lastError == error) {
        return;
    }
    m_lastError = std::move(error);
    emit lastErrorChanged(m_lastError);
}

void CalibrationController::setIsSubmitting(bool submitting)
{
    if (m_isSubmitting == submitting) {
        return;
    }
    m_isSubmitting = submitting;
    emit isSubmittingChanged(submitting);
}

void CalibrationController::setAwaitingSharing(bool awaiting)
{
    if (m_awaitingSharing == awaiting) {
        return;
    }
    m_awaitingSharing = awaiting;
    emit isAwaitingSharingChanged(awaiting);
}

} // namespace sayvo
