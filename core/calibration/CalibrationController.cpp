#include "calibration/CalibrationController.h"

#include "calibration/WordErrorRate.h"
#include "engineclient/EngineClient.h"
#include "session/SayvoCoordinator.h"

#include <QPointer>

#include <algorithm>

namespace sayvo {

QString CalibrationController::emptyTranscriptMessage()
{
    return QStringLiteral("Nothing was transcribed \u2014 check the mic and try this line again.");
}

CalibrationController::CalibrationController(SayvoCoordinator &coordinator, EngineClient &client,
    QList<CalibrationPrompt> prompts, QObject *parent)
    : QObject(parent),
      m_coordinator(coordinator),
      m_client(client),
      m_prompts(std::move(prompts)),
      m_pendingQueue(allPromptIds())
{ }

CalibrationController::~CalibrationController()
{
    // A sink left behind would keep swallowing finals that belong in the focused application.
    clearSink();
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
    return between && !m_results.isEmpty();
}

void CalibrationController::startRecording()
{
    if (m_phase != Phase::ready || !currentPrompt()) {
        return;
    }
    setLastError(std::nullopt);
    QPointer<CalibrationController> self(this);
    m_coordinator.setCalibrationSink([self](const FinalMessage &final) {
        if (!self) {
            return;
        }
        QMetaObject::invokeMethod(
            self.data(),
            [self, final] {
                if (self) {
                    self->handleFinal(final);
                }
            },
            Qt::QueuedConnection);
    });
    m_sinkInstalled = true;
    m_coordinator.beginCalibrationUtterance();
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
    clearSink();
    setPhase(m_pendingQueue.isEmpty() ? Phase::reviewing : Phase::ready);
}

void CalibrationController::restart()
{
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
    if (m_phase != Phase::ready && m_phase != Phase::reviewing) {
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
    setPhase(Phase::ready);
}

void CalibrationController::submit()
{
    if (m_results.isEmpty() || m_isSubmitting) {
        return;
    }
    setIsSubmitting(true);
    sendNext(m_results);
}

void CalibrationController::sendNext(QList<Result> remaining)
{
    if (remaining.isEmpty()) {
        setIsSubmitting(false);
        clearSink();
        setPhase(Phase::finished);
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
    if (m_pendingQueue.isEmpty()) {
        clearSink();
        setPhase(Phase::reviewing);
    } else {
        setPhase(Phase::ready);
    }
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

void CalibrationController::clearSink()
{
    if (m_sinkInstalled) {
        m_coordinator.setCalibrationSink({});
        m_sinkInstalled = false;
    }
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

} // namespace sayvo
