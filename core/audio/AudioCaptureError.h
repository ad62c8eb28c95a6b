#pragma once

#include <QString>
#include <QtGlobal>

namespace sayvo {

// Why the capture could not be prepared.
struct AudioCaptureError
{
    enum class Kind {
        // The input reports 0 Hz or no channels: no permission or no input device.
        invalidInputFormat,
        // No conversion from the input format to the wire format exists.
        converterUnavailable,
        // The sound server cannot be reached (not running, or gone); `reason` says why.
        soundServerUnavailable,
        // The sound system refused the tap on the input (a format it no longer has, or a
        // device that vanished meanwhile); `reason` says why.
        tapRefused,
    };

    Kind kind = Kind::invalidInputFormat;
    double sampleRate = 0.0;
    quint32 channels = 0;
    QString reason;

    static AudioCaptureError invalidInputFormat(double sampleRate, quint32 channels)
    {
        return {Kind::invalidInputFormat, sampleRate, channels, {}};
    }
    static AudioCaptureError converterUnavailable(double sampleRate, quint32 channels)
    {
        return {Kind::converterUnavailable, sampleRate, channels, {}};
    }
    static AudioCaptureError soundServerUnavailable(const QString &reason)
    {
        return {Kind::soundServerUnavailable, 0.0, 0, reason};
    }

    static AudioCaptureError tapRefused(const QString &reason)
    {
        return {Kind::tapRefused, 0.0, 0, reason};
    }

    QString describe() const;

    friend bool operator==(const AudioCaptureError &, const AudioCaptureError &) = default;
};

// A rate as the capture's messages print it: the shortest text that reads back as the same
// double, always with a fraction ("48000.0", "0.0", "44100.5").
QString formatSampleRate(double sampleRate);

} // namespace sayvo
