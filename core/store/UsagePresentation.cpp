#include "store/UsagePresentation.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace sayvo {

namespace {

// Caps a minute count so that absurd totals (a damaged file, a runaway engine) still print as
// a number instead of overflowing the integer conversion.
std::int64_t wholeMinutes(double minutes)
{
    constexpr double kLargest = 9.2e18;
    return static_cast<std::int64_t>(std::min(std::trunc(minutes), kLargest));
}

} // namespace

QString UsagePresentation::emptyStateText()
{
    return QStringLiteral(
        "No dictation recorded yet. Statistics appear here after your first utterance.");
}

UsagePresentation UsagePresentation::of(const UsageTotals &totals)
{
    UsagePresentation presentation;
    presentation.showsEmptyState = totals.utterances == 0;
    presentation.rows = {
        {QStringLiteral("Utterances transcribed"), QString::number(totals.utterances)},
        {QStringLiteral("Total words spoken"), QString::number(totals.totalWords)},
        {QStringLiteral("Total speaking time"), formatSpeakingTime(totals.totalSpeakingMinutes())},
        {QStringLiteral("Average speaking rate"), formatSpeakingRate(totals.avgSpokenWpm())},
        {QStringLiteral("Filler word rate"), formatFillerRate(totals.avgFillerRate())},
        {QStringLiteral("ASR speed"), formatSpeed(totals.avgAsrRtf())},
        {QStringLiteral("Pipeline speed"), formatSpeed(totals.avgRtf())},
    };
    return presentation;
}

QString formatSpeakingTime(double minutes)
{
    // Written so that NaN, which compares false with everything, falls into the first case.
    if (!(minutes >= 1.0)) {
        return QStringLiteral("<1 min");
    }
    if (minutes < 60.0) {
        return QStringLiteral("%1 min").arg(std::lround(minutes));
    }
    const std::int64_t whole = wholeMinutes(minutes);
    return QStringLiteral("%1h %2m").arg(whole / 60).arg(whole % 60);
}

QString formatSpeakingRate(double wordsPerMinute)
{
    return QString::number(std::round(wordsPerMinute), 'f', 0) + QStringLiteral(" wpm");
}

QString formatFillerRate(double fraction)
{
    return QString::asprintf("%.0f%%", fraction * 100.0);
}

QString formatSpeed(double realTimeFactor)
{
    if (!(realTimeFactor > 0.0)) {
        return QStringLiteral("—");
    }
    return QString::asprintf("%.1fx realtime", 1.0 / realTimeFactor);
}

} // namespace sayvo
