#include "audio/AudioCaptureError.h"

#include <gtest/gtest.h>

#include <limits>

using namespace sayvo;

TEST(AudioCaptureErrorTest, RatesAlwaysShowAFraction)
{
    EXPECT_EQ(formatSampleRate(48000.0), "48000.0");
    EXPECT_EQ(formatSampleRate(0.0), "0.0");
    EXPECT_EQ(formatSampleRate(44100.5), "44100.5");
    EXPECT_EQ(formatSampleRate(16000.25), "16000.25");
    EXPECT_EQ(formatSampleRate(0.1), "0.1");
    EXPECT_EQ(formatSampleRate(-1.0), "-1.0");
}

TEST(AudioCaptureErrorTest, UnusableFormatDescription)
{
    EXPECT_EQ(AudioCaptureError::invalidInputFormat(0.0, 0).describe(),
        QString::fromUtf8("input node reported an unusable format (0.0 Hz, 0 ch) \u2014 mic "
                          "permission not granted, or no input device"));
    EXPECT_EQ(AudioCaptureError::invalidInputFormat(48000.0, 0).describe(),
        QString::fromUtf8("input node reported an unusable format (48000.0 Hz, 0 ch) "
                          "\u2014 mic permission not granted, or no input device"));
}

TEST(AudioCaptureErrorTest, NoConverterDescription)
{
    EXPECT_EQ(AudioCaptureError::converterUnavailable(44100.0, 2).describe(),
        "no converter from 44100.0 Hz/2 ch to 16 kHz mono s16le");
}

TEST(AudioCaptureErrorTest, UnreachableServerDescriptionCarriesTheReason)
{
    EXPECT_EQ(AudioCaptureError::soundServerUnavailable("Connection refused").describe(),
        "could not reach the sound server: Connection refused");
}

TEST(AudioCaptureErrorTest, AMicrophoneThatWouldNotOpenSaysWhy)
{
    EXPECT_EQ(AudioCaptureError::microphoneStartFailed("Device or resource busy").describe(),
        "could not start the microphone: Device or resource busy");
}

TEST(AudioCaptureErrorTest, EmDashIsTheUnicodeCharacter)
{
    const QString text = AudioCaptureError::invalidInputFormat(0.0, 0).describe();
    EXPECT_TRUE(text.contains(QChar(0x2014)));
    EXPECT_FALSE(text.contains("--"));
}
