#include "store/UsageTotals.h"

namespace sayvo {

double UsageTotals::avgSpokenWpm() const
{
    if (!(totalAudioSeconds > 0.0)) {
        return 0.0;
    }
    return static_cast<double>(totalWords) / totalAudioSeconds * 60.0;
}

double UsageTotals::avgFillerRate() const
{
    if (totalWords < 1) {
        return 0.0;
    }
    return static_cast<double>(totalFillers) / static_cast<double>(totalWords);
}

double UsageTotals::avgRtf() const
{
    if (!(totalAudioSeconds > 0.0)) {
        return 0.0;
    }
    return totalProcessingSeconds / totalAudioSeconds;
}

double UsageTotals::avgAsrRtf() const
{
    if (!(totalAudioSeconds > 0.0)) {
        return 0.0;
    }
    return totalAsrProcessingSeconds / totalAudioSeconds;
}

double UsageTotals::totalSpeakingMinutes() const
{
    return totalAudioSeconds / 60.0;
}

} // namespace sayvo
