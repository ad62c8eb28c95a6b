#pragma once

#include "protocol/InboundMessages.h"
#include "store/UsageTotals.h"

#include <QObject>

namespace sayvo {

class PreferenceStore;

// Usage counters over every utterance the engine finished since the last reset, persisted
// under "sayvo.usageStats.*" so they survive restarts. Created once at start-up; the session
// coordinator records each final transcript, the Settings window shows and resets the totals.
// Main thread only.
//
// A change announces aboutToChange(), updates the counters and the preference keys, then
// emits every counter's signal and finally changed(); subscribe() (Subscribe.h) gives a counter's
// current value first. A counter that would overflow its 64-bit range is a fatal error: wrapping
// would silently corrupt the totals.
class UsageStatsStore : public QObject
{
    Q_OBJECT
    Q_PROPERTY(qint64 utterances READ utterances NOTIFY utterancesChanged)
    Q_PROPERTY(qint64 totalWords READ totalWords NOTIFY totalWordsChanged)
    Q_PROPERTY(qint64 totalFillers READ totalFillers NOTIFY totalFillersChanged)
    Q_PROPERTY(double totalAudioSeconds READ totalAudioSeconds NOTIFY totalAudioSecondsChanged)
    Q_PROPERTY(double totalProcessingSeconds READ totalProcessingSeconds NOTIFY
            totalProcessingSecondsChanged)
    Q_PROPERTY(double totalAsrProcessingSeconds READ totalAsrProcessingSeconds NOTIFY
            totalAsrProcessingSecondsChanged)
    Q_PROPERTY(double avgSpokenWpm READ avgSpokenWpm NOTIFY changed)
    Q_PROPERTY(double avgFillerRate READ avgFillerRate NOTIFY changed)
    Q_PROPERTY(double avgRtf READ avgRtf NOTIFY changed)
    Q_PROPERTY(double avgAsrRtf READ avgAsrRtf NOTIFY changed)
    Q_PROPERTY(double totalSpeakingMinutes READ totalSpeakingMinutes NOTIFY changed)

public:
    static constexpr const char *kUtterancesKey = "sayvo.usageStats.utterances";
    static constexpr const char *kTotalWordsKey = "sayvo.usageStats.totalWords";
    static constexpr const char *kTotalFillersKey = "sayvo.usageStats.totalFillers";
    static constexpr const char *kTotalAudioSecondsKey = "sayvo.usageStats.totalAudioSeconds";
    static constexpr const char *kTotalProcessingSecondsKey
        = "sayvo.usageStats.totalProcessingSeconds";
    static constexpr const char *kTotalAsrProcessingSecondsKey
        = "sayvo.usageStats.totalAsrProcessingSeconds";

    // Reads the six keys; absent or non-numeric values read as 0. `preferences` must outlive
    // the store.
    explicit UsageStatsStore(PreferenceStore &preferences, QObject *parent = nullptr);

    // Adds one finished utterance and writes all six keys. Values are taken as they come (a
    // record with no audio adds an utterance and its words, and nothing time-based).
    void record(const Stats &stats);
    // Zeroes every counter and removes the six keys.
    void reset();

    const UsageTotals &totals() const { return m_totals; }
    qint64 utterances() const { return m_totals.utterances; }
    qint64 totalWords() const { return m_totals.totalWords; }
    qint64 totalFillers() const { return m_totals.totalFillers; }
    double totalAudioSeconds() const { return m_totals.totalAudioSeconds; }
    double totalProcessingSeconds() const { return m_totals.totalProcessingSeconds; }
    double totalAsrProcessingSeconds() const { return m_totals.totalAsrProcessingSeconds; }

    double avgSpokenWpm() const { return m_totals.avgSpokenWpm(); }
    double avgFillerRate() const { return m_totals.avgFillerRate(); }
    double avgRtf() const { return m_totals.avgRtf(); }
    double avgAsrRtf() const { return m_totals.avgAsrRtf(); }
    double totalSpeakingMinutes() const { return m_totals.totalSpeakingMinutes(); }

signals:
    void aboutToChange();
    void utterancesChanged(qint64 utterances);
    void totalWordsChanged(qint64 totalWords);
    void totalFillersChanged(qint64 totalFillers);
    void totalAudioSecondsChanged(double totalAudioSeconds);
    void totalProcessingSecondsChanged(double totalProcessingSeconds);
    void totalAsrProcessingSecondsChanged(double totalAsrProcessingSeconds);
    // After every record() and reset(), once all counters hold their new values.
    void changed();

private:
    void emitChanged();

    PreferenceStore &m_preferences;
    UsageTotals m_totals;
};

} // namespace sayvo
