#include "audio/AudioCaptureError.h"

#include <QLocale>

#include <cmath>

namespace sayvo {

QString formatSampleRate(double sampleRate)
{
    // The shortest text that reads back as the same double. Qt's rather than std::to_chars,
    // which Apple's C++ library offers for doubles only from macOS 13.3 on.
    QString formatted = QString::number(sampleRate, 'g', QLocale::FloatingPointShortest);
    if (std::isfinite(sampleRate) && !formatted.contains(QLatin1Char('.'))
        && !formatted.contains(QLatin1Char('e'))) {
        formatted += QStringLiteral(".0");
    }
    return formatted;
}

QString AudioCaptureError::describe() const
{
    switch (kind) {
    case Kind::invalidInputFormat:
        return QStringLiteral("input node reported an unusable format (%1 Hz, %2 ch) \u2014 mic "
                              "permission not granted, or no input device")
            .arg(formatSampleRate(sampleRate))
            .arg(channels);
    case Kind::converterUnavailable:
        return QStringLiteral("no converter from %1 Hz/%2 ch to 16 kHz mono s16le")
            .arg(formatSampleRate(sampleRate))
            .arg(channels);
    case Kind::soundServerUnavailable:
        return QStringLiteral("could not reach the sound server: %1").arg(reason);
    case Kind::tapRefused:
        return QStringLiteral("the sound system refused the capture tap: %1").arg(reason);
    }
    return {};
}

} // namespace sayvo
