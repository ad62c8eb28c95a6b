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
class SettingsStore;

// The read-aloud accuracy test: the user records one utterance per prompt, each final
// transcript is scored by word error rate against the prompt, and the reviewed set is sent to
// the engine as calibration feedback. Main thread only. The coordinator, the client and the
// settings must outlive the controller. Only the line being read is routed away from the
// focused application: from Start Reading until that line's final, failure or cancel; any
// dictation in between is the user's own. Results are sent only with sharing turned on.
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
        SettingsStore &settings, QList<CalibrationPrompt> prompts, QObject *parent = nullptr);
    ~CalibrationController() override;

    Phase phase() const { return m_phase; }
    // Prompt ids still to read; the head is the current line.
    const QList<int> &pendingQueue() const { return m_pendingQueue; }
    const QList<Result> &results() const { return m_results; }
    const std::optional<QString> &lastError() const { return m_lastError; }
    const QList<CalibrationPrompt> &prompts() const { return m_prompts; }
    bool isSubmitting() const { return m_isSubmitting; }
    // Submit was asked for while sharing is off: nothing was sent, and the user is offered
    // to turn sharing on. Cleared once sharing is on or the set changes.
    bool isAwaitingSharing() const { return m_awaitingSharing; }

    std::optional<CalibrationPrompt> currentPrompt() const;
    double meanWER() const;
    double exactMatchRate() const;
    // Starting afresh is offered only between recordings, never while sending, and once
    // something was read.
    bool canStartOver() const;
    // A line can be read when one is current, none is being read, and dictation is idle.
    bool canStartRecording() const;
    // Only a reviewed set is sent, and only once at a time.
    bool canSubmit() const;

    // Each is ignored outside the phases it belongs to.
    void startRecording();
    void stopRecording();
    void cancel();
    void restart();
    void redo(const QUuid &resultId);
    void remove(const QUuid &resultId);
    // Sends every result as "utterance.feedback" with source "calibration", each send awaited
    // before the next; a failed send is skipped. Then the phase becomes finished. Only from
    // reviewing; with sharing off nothing is sent and isAwaitingSharing() becomes true.
    void submit();
    // Turns sharing on in the settings, then submits.
    void enableSharingAndSubmit();

    // A final message routed to calibration; ignored when no line is current.
    void handleFinal(const FinalMessage &final);

signals:
    void phaseChanged(sayvo::CalibrationController::Phase phase);
    void pendingQueueChanged(const QList<int> &queue);
    void resultsChanged();
    void lastErrorChanged(const std::optional<QString> &error);
    void isSubmittingChanged(bool submitting);
    void isAwaitingSharingChanged(bool awaiting);
    // Whether a line can be started may have changed (dictation went busy or idle).
    void canStartRecordingChanged();

private:
    void setPhase(Phase phase);
    void setPendingQueue(QList<int> queue);
    void setResults(QList<Result> results);
    void setLastError(std::optional<QString> error);
    void setIsSubmitting(bool submitting);
    void setAwaitingSharing(bool awaiting);
    void handleFailure(const QString &message);
    // Ends the line being read, if any, so its result is dropped.
    void abandonReading();
    bool isReading() const { return m_phase == Phase::recording || m_phase == Phase::scoring; }
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
    SettingsStore &m_settings;
    QList<CalibrationPrompt> m_prompts;
    Phase m_phase = Phase::ready;
    QList<int> m_pendingQueue;
    QList<Result> m_results;
    std::optional<QString> m_lastError;
    bool m_isSubmitting = false;
    bool m_awaitingSharing = false;
    // Counts readings, so an outcome queued for a reading that was cancelled is dropped.
    quint64 m_reading = 0;
};

} // namespace sayvo
