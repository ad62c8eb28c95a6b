#include "audio/PCMConverter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

using namespace sayvo;

namespace {

// What the resampler's filter may still hold at any moment: 45 ms of output.
constexpr qint64 kMaxHeldBackBytes = 16000 * 2 * 45 / 1000;

std::vector<qint16> samplesOf(const QByteArray &bytes)
{
    std::vector<qint16> samples(std::size_t(bytes.size() / 2));
    const auto *data = reinterpret_cast<const uchar *>(bytes.constData());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = qint16(quint16(data[2 * i]) | quint16(data[2 * i + 1]) << 8);
    }
    return samples;
}

std::vector<float> sine(double frequencyHz, double sampleRate, std::size_t frames,
    quint32 channels = 1, float amplitude = 0.5f)
{
    std::vector<float> samples(frames * channels);
    for (std::size_t frame = 0; frame < frames; ++frame) {
        const float value = amplitude
            * float(std::sin(2.0 * std::numbers::pi * frequencyHz * double(frame) / sampleRate));
        for (quint32 channel = 0; channel < channels; ++channel) {
            samples[frame * channels + channel] = channel == 0 ? value : 0.0f;
        }
    }
    return samples;
}

QByteArray convertInPieces(PCMConverter &converter, const std::vector<float> &interleaved,
    quint32 channels, const std::vector<quint32> &pieceFrames)
{
    QByteArray out;
    std::size_t frame = 0;
    std::size_t piece = 0;
    const std::size_t total = interleaved.size() / channels;
    while (frame < total) {
        const auto frames = quint32(
            std::min<std::size_t>(pieceFrames[piece++ % pieceFrames.size()], total - frame));
        if (auto bytes
            = converter.convert({interleaved.data() + frame * channels, frames, channels})) {
            out += *bytes;
        }
        frame += frames;
    }
    return out;
}

// Frequency estimate from upward zero crossings, skipping the resampler's lead-in.
double estimatedFrequency(const std::vector<qint16> &samples, double sampleRate)
{
    std::vector<std::size_t> crossings;
    for (std::size_t i = 200; i < samples.size(); ++i) {
        if (samples[i - 1] < 0 && samples[i] >= 0) {
            crossings.push_back(i);
        }
    }
    if (crossings.size() < 2) {
        return 0.0;
    }
    const double periods = double(crossings.size() - 1);
    return periods * sampleRate / double(crossings.back() - crossings.front());
}

} // namespace

TEST(PCMConverterTest, EveryRateAndBufferSizeGivesItsWholeDurationOnceDrained)
{
    // Up- and downsampling, in pieces from one frame to several seconds: the output keeps
    // pace with the input, and the drain lets out exactly what the filter held.
    for (const double rate : {8000.0, 11025.0, 22050.0, 44100.0, 48000.0, 96000.0}) {
        auto converter = PCMConverter::create({rate, 1});
        ASSERT_TRUE(converter);
        const auto frames = std::size_t(rate * 3);
        const auto input = sine(440.0, rate, frames);
        QByteArray out
            = convertInPieces(*converter, input, 1, {1, 7, 1600, 9600, quint32(rate * 2)});
        const qint64 expectedBytes = 3 * 16000 * 2;
        // The filter's delay is longest for the lowest rates: under 100 ms even at 8 kHz.
        EXPECT_LE(out.size(), expectedBytes + 2) << rate;
        EXPECT_GE(out.size(), expectedBytes - 16000 * 2 / 10) << rate;
        out += converter->drain().value_or(QByteArray());
        EXPECT_NEAR(double(out.size()), double(expectedBytes), 2.0 * 2) << rate;
    }
}

TEST(PCMConverterTest, DrainEndsTheStreamAndTheNextOneStartsClean)
{
    auto converter = PCMConverter::create({48000.0, 1});
    ASSERT_TRUE(converter);
    // Loud to the very end, as when the key is let go mid-word.
    const auto loud = sine(300.0, 48000.0, 4800, 1, 0.9f);
    const QByteArray first = convertInPieces(*converter, loud, 1, {960});
    const auto tail = converter->drain();
    ASSERT_TRUE(tail);
    EXPECT_NEAR(double(first.size() + tail->size()), 3200.0, 4.0);
    int loudestTailSample = 0;
    for (const qint16 sample : samplesOf(*tail)) {
        loudestTailSample = std::max(loudestTailSample, std::abs(int(sample)));
    }
    EXPECT_GT(loudestTailSample, 10000) << "the tail holds the end of the speech";

    const std::vector<float> silence(4800, 0.0f);
    const QByteArray second = convertInPieces(*converter, silence, 1, {960});
    for (const qint16 sample : samplesOf(second)) {
        ASSERT_EQ(sample, 0) << "the first utterance leaked into the second";
    }
}

TEST(PCMConverterTest, ResetDropsWhatTheFilterHeld)
{
    auto converter = PCMConverter::create({44100.0, 1});
    ASSERT_TRUE(converter);
    convertInPieces(*converter, sine(300.0, 44100.0, 4410, 1, 0.9f), 1, {441});
    converter->reset();
    const QByteArray after = convertInPieces(*converter, std::vector<float>(4410, 0.0f), 1, {441});
    for (const qint16 sample : samplesOf(after)) {
        ASSERT_EQ(sample, 0);
    }
}

TEST(PCMConverterTest, NaNIsSilenceAndClippingIsSymmetricWithoutResampling)
{
    auto converter = PCMConverter::create({16000.0, 1});
    ASSERT_TRUE(converter);
    const std::vector<float> input {std::nanf(""), -std::nanf(""), 1.0f, -1.0f, 3.0f, -3.0f,
        std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity()};
    const auto bytes = converter->convert({input.data(), quint32(input.size()), 1});
    ASSERT_TRUE(bytes);
    EXPECT_EQ(samplesOf(*bytes),
        (std::vector<qint16> {0, 0, 32767, -32767, 32767, -32767, 32767, -32767}));
}

TEST(PCMConverterTest, NaNIsSilenceAndClippingIsSymmetricWhenResampling)
{
    auto converter = PCMConverter::create({48000.0, 1});
    ASSERT_TRUE(converter);
    auto input = sine(440.0, 48000.0, 4800, 1, 0.5f);
    for (std::size_t i = 1000; i < 1010; ++i) {
        input[i] = std::nanf("");
    }
    QByteArray out = convertInPieces(*converter, input, 1, {960});
    out += converter->drain().value_or(QByteArray());
    ASSERT_FALSE(out.isEmpty());
    for (const qint16 sample : samplesOf(out)) {
        // A NaN that reached the output would be a full-scale click.
        ASSERT_LE(std::abs(int(sample)), int(0.6 * 32768)) << "a click where the NaNs were";
    }

    // A square wave far beyond full scale clips to the same level on both sides.
    std::vector<float> square(9600);
    for (std::size_t i = 0; i < square.size(); ++i) {
        square[i] = (i / 240) % 2 == 0 ? 4.0f : -4.0f;
    }
    const auto clipped = samplesOf(convertInPieces(*converter, square, 1, {960}));
    ASSERT_FALSE(clipped.empty());
    const auto [lowest, highest] = std::minmax_element(clipped.begin(), clipped.end());
    EXPECT_EQ(*highest, 32767);
    EXPECT_EQ(*lowest, -32767);
}

TEST(PCMConverterTest, FortyEightKilohertzBuffersGiveAboutAThirdAsManySamples)
{
    auto converter = PCMConverter::create({48000.0, 1});
    ASSERT_TRUE(converter);
    const auto input = sine(440.0, 48000.0, 1600 * 30);
    qint64 total = 0;
    for (int buffer = 1; buffer <= 30; ++buffer) {
        if (const auto bytes = converter->convert({input.data() + (buffer - 1) * 1600, 1600, 1})) {
            total += bytes->size();
        }
        // The output follows the input at a third of its length (533.3 samples a buffer):
        // never ahead of it, and behind only by what the filter holds.
        const qint64 inputEquivalent = qint64(buffer) * 1600 / 3 * 2;
        EXPECT_LE(total, inputEquivalent) << "after buffer " << buffer;
        EXPECT_GE(total, inputEquivalent - kMaxHeldBackBytes) << "after buffer " << buffer;
    }
}

TEST(PCMConverterTest, SixteenKilohertzMonoPassesThroughSampleExact)
{
    auto converter = PCMConverter::create({16000.0, 1});
    ASSERT_TRUE(converter);
    std::vector<float> input;
    for (int value : {0, 1, -1, 32767, -32768, 1234, -4321}) {
        input.push_back(float(value) / 32768.0f);
    }
    input.push_back(1.5f);
    input.push_back(-1.5f);

    const auto bytes = converter->convert({input.data(), quint32(input.size()), 1});

    // Every sample of a 16-bit source but the one without a positive mirror comes through.
    ASSERT_TRUE(bytes);
    EXPECT_EQ(samplesOf(*bytes),
        (std::vector<qint16> {0, 1, -1, 32767, -32767, 1234, -4321, 32767, -32767}));
    const auto *raw = reinterpret_cast<const uchar *>(bytes->constData());
    EXPECT_EQ(raw[2 * 5], 0xd2); // 1234 = 0x04d2, little-endian
    EXPECT_EQ(raw[2 * 5 + 1], 0x04);
}

TEST(PCMConverterTest, AudioComesFromChannelZero)
{
    auto converter = PCMConverter::create({16000.0, 2});
    ASSERT_TRUE(converter);
    const std::vector<float> stereo {0.25f, -0.75f, 0.5f, 0.9f, -0.25f, 0.0f};

    const auto bytes = converter->convert({stereo.data(), 3, 2});

    ASSERT_TRUE(bytes);
    EXPECT_EQ(samplesOf(*bytes), (std::vector<qint16> {8192, 16384, -8192}));
}

TEST(PCMConverterTest, StreamingOutputEqualsOneBlockOutput)
{
    const auto input = sine(1000.0, 48000.0, 48000, 2);
    auto whole = PCMConverter::create({48000.0, 2});
    auto pieces = PCMConverter::create({48000.0, 2});
    ASSERT_TRUE(whole && pieces);

    const QByteArray reference = convertInPieces(*whole, input, 2, {48000});
    const QByteArray streamed = convertInPieces(*pieces, input, 2, {1, 7, 1601, 480, 3});

    ASSERT_EQ(streamed.size(), reference.size());
    const auto a = samplesOf(reference);
    const auto b = samplesOf(streamed);
    int maxDifference = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        maxDifference = std::max(maxDifference, std::abs(int(a[i]) - int(b[i])));
    }
    EXPECT_LE(maxDifference, 1);
}

TEST(PCMConverterTest, ResampledSineKeepsItsFrequencyAndDuration)
{
    auto converter = PCMConverter::create({44100.0, 1});
    ASSERT_TRUE(converter);
    const auto input = sine(440.0, 44100.0, 44100 * 2);

    const QByteArray out = convertInPieces(*converter, input, 1, {1600});

    const auto samples = samplesOf(out);
    EXPECT_LE(qint64(samples.size()) * 2, 64000);
    EXPECT_GE(qint64(samples.size()) * 2, 64000 - kMaxHeldBackBytes);
    EXPECT_NEAR(estimatedFrequency(samples, 16000.0), 440.0, 1.0);
}

TEST(PCMConverterTest, MismatchedOrEmptyBufferYieldsNothing)
{
    auto converter = PCMConverter::create({48000.0, 2});
    ASSERT_TRUE(converter);
    const std::vector<float> samples(3200, 0.1f);
    EXPECT_FALSE(converter->convert({samples.data(), 1600, 1}));
    EXPECT_FALSE(converter->convert({samples.data(), 0, 2}));
    EXPECT_FALSE(converter->convert({nullptr, 1600, 2}));
}

TEST(PCMConverterTest, NoConverterForUnusableFormats)
{
    EXPECT_FALSE(PCMConverter::create({0.0, 1}));
    EXPECT_FALSE(PCMConverter::create({48000.0, 0}));
    EXPECT_FALSE(PCMConverter::create({-44100.0, 1}));
    EXPECT_FALSE(PCMConverter::create({std::numeric_limits<double>::infinity(), 1}));
    EXPECT_FALSE(PCMConverter::create({std::nan(""), 1}));
    EXPECT_TRUE(PCMConverter::create({8000.0, 1}));
    EXPECT_TRUE(PCMConverter::create({192000.0, 8}));
}

TEST(PCMConverterTest, SilenceHasLevelZero)
{
    const std::vector<float> silence(1600, 0.0f);
    EXPECT_EQ(PCMConverter::rms({silence.data(), 1600, 1}), 0.0f);
}

TEST(PCMConverterTest, ConstantHalfHasLevelHalf)
{
    const std::vector<float> half(1600, 0.5f);
    EXPECT_FLOAT_EQ(PCMConverter::rms({half.data(), 1600, 1}), 0.5f);
}

TEST(PCMConverterTest, LevelReadsChannelZeroOnly)
{
    std::vector<float> stereo;
    for (int frame = 0; frame < 100; ++frame) {
        stereo.push_back(-0.25f);
        stereo.push_back(1.0f);
    }
    EXPECT_FLOAT_EQ(PCMConverter::rms({stereo.data(), 100, 2}), 0.25f);
}

TEST(PCMConverterTest, EmptyBufferHasLevelZero)
{
    const std::vector<float> samples(4, 0.5f);
    EXPECT_EQ(PCMConverter::rms({samples.data(), 0, 1}), 0.0f);
    EXPECT_EQ(PCMConverter::rms({nullptr, 4, 1}), 0.0f);
}
