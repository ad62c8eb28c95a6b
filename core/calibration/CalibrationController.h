#pragma once

#include "calibration/CalibrationPrompt.h"
#include "protocol/InboundMessages.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QUuid>

#include <optional>

namespace sayvo {

class EngineClient;
class SayvoCoordinator;

// The read-aloud accuracy test: the user records one utterance per prompt, each final
// transcript is scored by word error rate against the prompt, and the reviewed set is sent to
// the engine as calibration feedback. Main thread only. The coordinator and the client must
// outlive the controller; while a line is being read, the controller's sink on the
// coordinator receives the finals instead of the focused application.
class CalibrationController : public QObject
{
    Q_OBJECT

public:
    enum class Phase {
        ready,
        recording,
        scoring,
        reviewing,
        finished,
    };
    Q_ENUM(Phase)

    // One scored line, in the order it was read.
    struct Result
    {
        QUuid id;
        int promptId = 0;
        QString utteranceId;
        QString reference;
        QString transcript;
        double wer = 0.0;

        bool isExact() const { return wer == 0.0; }
        bool operator==(const Result &) const = default;
    };

    static QString emptyTranscriptMessage();

    CalibrationController(SayvoCoordinator &coordinator, EngineClient &client,
        QList<CalibrationPrompt> prompts, QObject *parent = nullptr);
    ~CalibrationController() override;

    Phase phase() const { return m_phase; }
    // Prompt ids still to read; the head is the current line.
    const QList<int> &pendingQueue() const { return m_pendingQueue; }
    const QList<Result> &results() const { return m_results; }
    const std::optional<QString> &lastError() const { return m_lastError; }
    const QList<CalibrationPrompt> &prompts() const { return m_prompts; }
    bool isSubmitting() const { return m_isSubmitting; }

    std::optional<CalibrationPrompt> currentPrompt() const;
    double meanWER() const;
    double exactMatchRate() const;
    // Starting afresh is offered only between recordings and once something was read.
    bool canStartOver() const;

    // Each is ignored outside the phases it belongs to.
    void startRecording();
    void stopRecording();
    void cancel();
    void restart();
    void redo(const QUuid &resultId);
    void remove(const QUuid &resultId);
    // Sends every result as "utterance.feedback" with source "calibration", each send awaited
    // before the next; a failed send is skipped. Then the phase becomes finished. Nothing is
    // sent without results or while an earlier submit is still sending.
    void submit();

    // A final message routed to calibration; ignored when no line is current.
    void handleFinal(const FinalMessage &final);

signals:
    void phaseChanged(sayvo::CalibrationController::Phase phase);
    void pendingQueueChanged(const QList<int> &queue);
    void resultsChanged();
    void lastErrorChanged(const std::optional<QString> &error);
    void isSubmittingChanged(bool submitting);

private:
    void setPhase(Phase phase);
    void setPendingQueue(QList<int> queue);
    void setResults(QList<Result> results);
    void setLastError(std::optional<QString> error);
    void setIsSubmitting(bool submitting);
    void clearSink();
    QList<int> allPromptIds() const;
    void sendNext(QList<Result> remaining);
    // Removes the result and returns its prompt id; nullopt when no result has that id.
    std::optional<int> takeResult(const QUuid &resultId);
    // A redone line is read next; a removed one goes to the back of the queue.
    enum class QueuePosition {
        next,
        last,
    };
    void requeue(const QUuid &resultId, QueuePosition position);

    SayvoCoordinator &m_coordinator;
    EngineClient &m_client;
    QList<CalibrationPrompt> m_prompts;
    Phase m_phase = Phase::ready;
    QList<int> m_pendingQueue;
    QList<Result> m_results;
    std::optional<QString> m_lastError;
    bool m_isSubmitting = false;
    bool m_sinkInstalled = false;
};

} // namespace sayvo
