#pragma once

#include "store/UsageTotals.h"

#include <QString>

#include <vector>

namespace sayvo {

// One labelled figure of the Usage tab's statistics card.
struct UsageRow
{
    QString label;
    QString value;

    bool operator==(const UsageRow &) const = default;
};

// What the Usage tab shows for a set of totals: before the first utterance only the
// empty-state text, afterwards the rows in card order ("Utterances transcribed", "Total words
// spoken", "Total speaking time", "Average speaking rate", "Filler word rate", "ASR speed",
// "Pipeline speed").
struct UsagePresentation
{
    bool showsEmptyState = true;
    std::vector<UsageRow> rows;

    static QString emptyStateText();
    static UsagePresentation of(const UsageTotals &totals);
};

// "<1 min" below one minute, whole minutes rounded to nearest (" min") below sixty, and from
// sixty on the whole minutes truncated and split as "2h 5m".
QString formatSpeakingTime(double minutes);
// The rate rounded to a whole number, "150 wpm".
QString formatSpeakingRate(double wordsPerMinute);
// A fraction shown as a whole percentage, "8%".
QString formatFillerRate(double fraction);
// How many times faster than real time, "3.3x realtime"; an em dash while there is no factor.
QString formatSpeed(double realTimeFactor);

} // namespace sayvo
