#include "store/UsageStatsStore.h"

#include "store/PreferenceStore.h"
#include "store/PreferenceValues.h"

#include <QtGlobal>

namespace sayvo {

namespace {

QString keyString(const char *key)
{
    return QString::fromLatin1(key);
}

std::int64_t checkedAdd(std::int64_t total, std::int64_t amount, const char *counter)
{
    std::int64_t sum = 0;
    if (__builtin_add_overflow(total, amount, &sum)) {
        qFatal("usage counter overflow: %s=%lld + %lld", counter, static_cast<long long>(total),
            static_cast<long long>(amount));
    }
    return sum;
}

} // namespace

UsageStatsStore::UsageStatsStore(PreferenceStore &preferences, QObject *parent)
    : QObject(parent), m_preferences(preferences)
{
    m_totals.utterances = readInt64(m_preferences, keyString(kUtterancesKey));
    m_totals.totalWords = readInt64(m_preferences, keyString(kTotalWordsKey));
    m_totals.totalFillers = readInt64(m_preferences, keyString(kTotalFillersKey));
    m_totals.totalAudioSeconds = readDouble(m_preferences, keyString(kTotalAudioSecondsKey));
    m_totals.totalProcessingSeconds
        = readDouble(m_preferences, keyString(kTotalProcessingSecondsKey));
    m_totals.totalAsrProcessingSeconds
        = readDouble(m_preferences, keyString(kTotalAsrProcessingSecondsKey));
}

void UsageStatsStore::record(const Stats &stats)
{
    UsageTotals next = m_totals;
    next.utterances = checkedAdd(next.utterances, 1, "utterances");
    next.totalWords = checkedAdd(next.totalWords, stats.wordCount, "totalWords");
    next.totalFillers = checkedAdd(next.totalFillers, stats.fillerCount, "totalFillers");
    next.totalAudioSeconds += stats.audioDurationS;
    next.totalProcessingSeconds += stats.audioDurationS * stats.transcriptionRtf;
    next.totalAsrProcessingSeconds += stats.audioDurationS * stats.asrRtf;

    emit aboutToChange();
    m_totals = next;
    m_preferences.setValue(keyString(kUtterancesKey), static_cast<qint64>(next.utterances));
    m_preferences.setValue(keyString(kTotalWordsKey), static_cast<qint64>(next.totalWords));
    m_preferences.setValue(keyString(kTotalFillersKey), static_cast<qint64>(next.totalFillers));
    m_preferences.setValue(keyString(kTotalAudioSecondsKey), next.totalAudioSeconds);
    m_preferences.setValue(keyString(kTotalProcessingSecondsKey), next.totalProcessingSeconds);
    m_preferences.setValue(
        keyString(kTotalAsrProcessingSecondsKey), next.totalAsrProcessingSeconds);
    emitChanged();
}

void UsageStatsStore::reset()
{
    emit aboutToChange();
    m_totals = UsageTotals {};
    for (const char *key : {kUtterancesKey, kTotalWordsKey, kTotalFillersKey, kTotalAudioSecondsKey,
             kTotalProcessingSecondsKey, kTotalAsrProcessingSecondsKey}) {
        m_preferences.remove(keyString(key));
    }
    emitChanged();
}

void UsageStatsStore::emitChanged()
{
    emit utterancesChanged(m_totals.utterances);
    emit totalWordsChanged(m_totals.totalWords);
    emit totalFillersChanged(m_totals.totalFillers);
    emit totalAudioSecondsChanged(m_totals.totalAudioSeconds);
    emit totalProcessingSecondsChanged(m_totals.totalProcessingSeconds);
    emit totalAsrProcessingSecondsChanged(m_totals.totalAsrProcessingSeconds);
    emit changed();
}

} // namespace sayvo
