// Replays the frames of one recorded utterance, in order, through the codec on both sides:
// what the client writes, the engine can read, and what the engine answers, the client can.
#include "protocol/WireCodec.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace sayvo;

namespace {

struct RecordedFrame
{
    enum Direction {
        clientToEngine,
        engineToClient,
        audio
    } direction;
    std::string text; // JSON, or for audio the number of PCM bytes as text
};

// Recorded from a session of the client against the reference engine.
const std::vector<RecordedFrame> kRecording {
    {RecordedFrame::clientToEngine,
        R"({"type":"hello","client":"macos","version":"0.1.0","sample_rate":16000,"feedback_enabled":false})"},
    {RecordedFrame::engineToClient,
        R"({"type":"hello.ack","server_version":"sayvo-engine 0.1.0","backends":{"streaming":"pocketsphinx","final_pass":"pocketsphinx","gec":"rules"}})"},
    {RecordedFrame::clientToEngine,
        R"({"type":"context.update","context":{"app_bundle_id":"gedit","app_name":"Text Editor","window_title":"notes.txt"}})"},
    {RecordedFrame::clientToEngine,
        R"({"type":"context.update","context":{"app_bundle_id":"gedit","app_name":"Text Editor","window_title":"notes.txt","screen_text":"Dear Sam,"}})"},
    {RecordedFrame::clientToEngine,
        R"({"type":"utterance.start","utterance_id":"6F1C2B0A-9D7E-4C11-8B3A-2E5D4F6A7B8C"})"},
    {RecordedFrame::audio, "3200"},
    {RecordedFrame::audio, "3200"},
    {RecordedFrame::engineToClient,
        R"({"type":"partial","utterance_id":"6F1C2B0A-9D7E-4C11-8B3A-2E5D4F6A7B8C","text":"please send"})"},
    {RecordedFrame::audio, "3200"},
    {RecordedFrame::audio, "1280"},
    {RecordedFrame::clientToEngine,
        R"({"type":"utterance.end","utterance_id":"6F1C2B0A-9D7E-4C11-8B3A-2E5D4F6A7B8C"})"},
    {RecordedFrame::engineToClient,
        R"({"type":"final","utterance_id":"6F1C2B0A-9D7E-4C11-8B3A-2E5D4F6A7B8C","raw_text":"please send me the report",)"
        R"("formatted_text":"Please send me the report.","domain":"email","domain_source":"context",)"
        R"("guardrail":{"applied":true,"edit_ratio":0.2},"timings_ms":{"stream_final":40,"final_pass":0,"gec":1,"total":41},)"
        R"("stats":{"audio_duration_s":1.04,"word_count":5,"spoken_wpm":288.5,"transcription_rtf":0.39,"asr_rtf":0.38,)"
        R"("filler_count":0,"filler_rate":0}})"},
};

} // namespace

TEST(ExchangeReplay, OneUtteranceDecodesFrameByFrameInOrder)
{
    std::vector<std::string> seen;
    std::string utteranceId;
    size_t audioBytes = 0;
    for (const RecordedFrame &frame : kRecording) {
        switch (frame.direction) {
        case RecordedFrame::clientToEngine: {
            const auto decoded = decodeOutbound(frame.text);
            ASSERT_TRUE(decoded) << frame.text;
            // Encoding what was decoded writes the very same frame: key order and omissions hold.
            EXPECT_EQ(encode(decoded.value()), frame.text);
            const OutboundMessage &message = decoded.value();
            seen.push_back(std::visit([](const auto &m) { return std::string(m.type); }, message));
            if (const auto *start = std::get_if<UtteranceStartMessage>(&message)) {
                utteranceId = start->utteranceId;
            }
            if (const auto *end = std::get_if<UtteranceEndMessage>(&message)) {
                EXPECT_EQ(end->utteranceId, utteranceId);
            }
            break;
        }
        case RecordedFrame::engineToClient: {
            const auto decoded = decodeInbound(frame.text);
            ASSERT_TRUE(decoded) << frame.text;
            const InboundMessage &message = decoded.value();
            if (const auto *ack = std::get_if<HelloAckMessage>(&message)) {
                EXPECT_FALSE(ack->backends.isMock());
                seen.emplace_back("hello.ack");
            } else if (const auto *partial = std::get_if<PartialMessage>(&message)) {
                EXPECT_EQ(partial->utteranceId, utteranceId);
                seen.emplace_back("partial");
            } else if (const auto *final = std::get_if<FinalMessage>(&message)) {
                EXPECT_EQ(final->utteranceId, utteranceId);
                EXPECT_EQ(final->formattedText, "Please send me the report.");
                ASSERT_TRUE(final->stats);
                EXPECT_EQ(final->stats->wordCount, 5);
                seen.emplace_back("final");
            } else {
                ADD_FAILURE() << "unexpected " << frame.text;
            }
            break;
        }
        case RecordedFrame::audio:
            audioBytes += std::stoul(frame.text);
            seen.emplace_back("audio");
            break;
        }
    }
    EXPECT_EQ(seen,
        (std::vector<std::string> {"hello", "hello.ack", "context.update", "context.update",
            "utterance.start", "audio", "audio", "partial", "audio", "audio", "utterance.end",
            "final"}));
    EXPECT_EQ(audioBytes, 3u * 3200u + 1280u);
}
