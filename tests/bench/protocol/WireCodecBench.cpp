// Messages per second through the codec. The baseline is a plain copy of the same frame's
// bytes into a string, measured in the same run, so the figures read as "times the cost of
// touching the bytes once".
#include "protocol/WireCodec.h"

#include <benchmark/benchmark.h>

using namespace sayvo;

namespace {

const std::string kFinal
    = R"({"type":"final","utterance_id":"6F1C2B0A-9D7E-4C11-8B3A-2E5D4F6A7B8C","raw_text":"please send me the report before the meeting",)"
      R"("formatted_text":"Please send me the report before the meeting.","domain":"email","domain_source":"context",)"
      R"("guardrail":{"applied":true,"edit_ratio":0.12,"policy":"default"},"timings_ms":{"stream_final":40,"final_pass":0,"gec":1,"total":41},)"
      R"("stats":{"audio_duration_s":2.9,"word_count":8,"spoken_wpm":165.5,"transcription_rtf":0.39,"asr_rtf":0.38,"filler_count":0,"filler_rate":0}})";
const std::string kPartial
    = R"({"type":"partial","utterance_id":"6F1C2B0A-9D7E-4C11-8B3A-2E5D4F6A7B8C","text":"please send me the"})";

ContextUpdateMessage context()
{
    ContextUpdateMessage message;
    message.context = {"org.gnome.TextEditor", "Text Editor", "notes.txt - Text Editor",
        std::string(200, 'x'), "clipboard text", std::vector<std::string> {"Sayvo", "Kubernetes"}};
    return message;
}

void BM_CopyBaseline(benchmark::State &state)
{
    for (auto _ : state) {
        std::string copy(kFinal);
        benchmark::DoNotOptimize(copy);
    }
    state.SetItemsProcessed(state.iterations());
}

template <typename Message> void encodeBench(benchmark::State &state, const Message &message)
{
    for (auto _ : state) {
        std::string text = encode(message);
        benchmark::DoNotOptimize(text);
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_EncodeHello(benchmark::State &state)
{
    HelloMessage hello;
    hello.version = "0.1.0";
    hello.feedbackEnabled = false;
    encodeBench(state, hello);
}
void BM_EncodeContextUpdate(benchmark::State &state)
{
    encodeBench(state, context());
}
void BM_EncodeUtteranceStart(benchmark::State &state)
{
    encodeBench(
        state, UtteranceStartMessage {"utterance.start", "6F1C2B0A-9D7E-4C11-8B3A-2E5D4F6A7B8C"});
}
void BM_EncodeUtteranceEnd(benchmark::State &state)
{
    encodeBench(
        state, UtteranceEndMessage {"utterance.end", "6F1C2B0A-9D7E-4C11-8B3A-2E5D4F6A7B8C"});
}
void BM_EncodeDomainPin(benchmark::State &state)
{
    encodeBench(state, DomainPinMessage {"domain.pin", "legal"});
}
void BM_EncodeDomainUnpin(benchmark::State &state)
{
    encodeBench(state, DomainUnpinMessage {});
}
void BM_EncodeSuggestionsRequest(benchmark::State &state)
{
    encodeBench(state, SuggestionsRequestMessage {});
}
void BM_EncodeFeedback(benchmark::State &state)
{
    encodeBench(state,
        UtteranceFeedbackMessage {"utterance.feedback", "6F1C2B0A-9D7E-4C11-8B3A-2E5D4F6A7B8C",
            "Please send me the report before the meeting.", 2300, std::string("user")});
}

void decodeBench(benchmark::State &state, const std::string &text)
{
    for (auto _ : state) {
        auto decoded = decodeInbound(text);
        benchmark::DoNotOptimize(decoded);
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_DecodeFinal(benchmark::State &state)
{
    decodeBench(state, kFinal);
}
void BM_DecodePartial(benchmark::State &state)
{
    decodeBench(state, kPartial);
}

} // namespace

BENCHMARK(BM_CopyBaseline);
BENCHMARK(BM_EncodeHello);
BENCHMARK(BM_EncodeContextUpdate);
BENCHMARK(BM_EncodeUtteranceStart);
BENCHMARK(BM_EncodeUtteranceEnd);
BENCHMARK(BM_EncodeDomainPin);
BENCHMARK(BM_EncodeDomainUnpin);
BENCHMARK(BM_EncodeSuggestionsRequest);
BENCHMARK(BM_EncodeFeedback);
BENCHMARK(BM_DecodeFinal);
BENCHMARK(BM_DecodePartial);
BENCHMARK_MAIN();
