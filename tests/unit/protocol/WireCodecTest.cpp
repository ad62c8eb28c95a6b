#include "protocol/WireCodec.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

using namespace sayvo;

namespace {

InboundMessage decodeOk(const std::string &text)
{
    auto decoded = decodeInbound(text);
    EXPECT_TRUE(decoded.hasValue()) << "undecodable: " << text;
    return decoded ? decoded.value() : InboundMessage {UnknownMessage {"<failed>"}};
}

template <typename T> T decodeAs(const std::string &text)
{
    const InboundMessage message = decodeOk(text);
    EXPECT_TRUE(std::holds_alternative<T>(message)) << text;
    return std::holds_alternative<T>(message) ? std::get<T>(message) : T {};
}

const std::string kFullFinal
    = R"({"type":"final","utterance_id":"A1","raw_text":"hello world",)"
      R"("formatted_text":"Hello world.","domain":"email","domain_source":"context",)"
      R"("guardrail":{"applied":true,"edit_ratio":0.25,"policy":"p","reason":"r"},)"
      R"("timings_ms":{"stream_final":12.5,"final_pass":30,"gec":4,"total":46.5},)"
      R"("stats":{"audio_duration_s":2.5,"word_count":2,"spoken_wpm":48.0,)"
      R"("transcription_rtf":0.3,"asr_rtf":0.2,"filler_count":0,"filler_rate":0.0}})";

} // namespace

// ---- Inbound decoding ---------------------------------------------------------------------

TEST(WireCodecInbound, HelloAckWithEmptyBackendsDecodesAndIsNotMock)
{
    const auto ack
        = decodeAs<HelloAckMessage>(R"({"type":"hello.ack","server_version":"1.2","backends":{}})");
    EXPECT_EQ(ack.serverVersion, "1.2");
    EXPECT_FALSE(ack.backends.streaming);
    EXPECT_FALSE(ack.backends.finalPass);
    EXPECT_FALSE(ack.backends.gec);
    EXPECT_FALSE(ack.backends.isMock());
}

TEST(WireCodecInbound, UpperCaseMockFinalPassWithNullGecIsMock)
{
    const auto ack = decodeAs<HelloAckMessage>(
        R"({"type":"hello.ack","server_version":"1","backends":{"streaming":"pocketsphinx","final_pass":"MOCK","gec":null}})");
    EXPECT_EQ(ack.backends.streaming, "pocketsphinx");
    EXPECT_EQ(ack.backends.finalPass, "MOCK");
    EXPECT_FALSE(ack.backends.gec);
    EXPECT_TRUE(ack.backends.isMock());
}

TEST(WireCodecInbound, MockTestIsASubstringTestOnEveryBackend)
{
    EXPECT_TRUE((Backends {"mock", std::nullopt, std::nullopt}.isMock()));
    EXPECT_TRUE((Backends {std::nullopt, "MockASR", std::nullopt}.isMock()));
    EXPECT_TRUE((Backends {std::nullopt, std::nullopt, "whisper-mock"}.isMock()));
    EXPECT_FALSE((Backends {"pocketsphinx", "rules", "none"}.isMock()));
    EXPECT_FALSE((Backends {}.isMock()));
    EXPECT_FALSE((Backends {"moc", "k", ""}.isMock()));
}

TEST(WireCodecInbound, HelloAckWithoutBackendsOrWrongTypeFails)
{
    EXPECT_FALSE(decodeInbound(R"({"type":"hello.ack","server_version":"1"})"));
    EXPECT_FALSE(decodeInbound(R"({"type":"hello.ack","server_version":"1","backends":[]})"));
    EXPECT_FALSE(decodeInbound(R"({"type":"hello.ack","server_version":1,"backends":{}})"));
    EXPECT_FALSE(
        decodeInbound(R"({"type":"hello.ack","server_version":"1","backends":{"gec":7}})"));
}

TEST(WireCodecInbound, FullFinalDecodesEveryField)
{
    const auto final = decodeAs<FinalMessage>(kFullFinal);
    EXPECT_EQ(final.utteranceId, "A1");
    EXPECT_EQ(final.rawText, "hello world");
    EXPECT_EQ(final.formattedText, "Hello world.");
    EXPECT_EQ(final.domain, "email");
    EXPECT_EQ(final.domainSource, "context");
    EXPECT_TRUE(final.guardrail.applied);
    EXPECT_EQ(final.guardrail.editRatio, 0.25);
    EXPECT_EQ(final.guardrail.policy, "p");
    EXPECT_EQ(final.guardrail.reason, "r");
    ASSERT_TRUE(final.timingsMs);
    EXPECT_EQ(final.timingsMs->streamFinal, 12.5);
    EXPECT_EQ(final.timingsMs->finalPass, 30.0);
    EXPECT_EQ(final.timingsMs->gec, 4.0);
    EXPECT_EQ(final.timingsMs->total, 46.5);
    ASSERT_TRUE(final.stats);
    EXPECT_EQ(final.stats->audioDurationS, 2.5);
    EXPECT_EQ(final.stats->wordCount, 2);
    EXPECT_EQ(final.stats->spokenWpm, 48.0);
    EXPECT_EQ(final.stats->transcriptionRtf, 0.3);
    EXPECT_EQ(final.stats->asrRtf, 0.2);
    EXPECT_EQ(final.stats->fillerCount, 0);
    EXPECT_EQ(final.stats->fillerRate, 0.0);
}

TEST(WireCodecInbound, FinalWithoutGuardrailFails)
{
    auto json = nlohmann::json::parse(kFullFinal);
    json.erase("guardrail");
    const auto decoded = decodeInbound(json.dump());
    ASSERT_FALSE(decoded);
    EXPECT_EQ(decoded.error(), DecodeError::invalidBody);
}

TEST(WireCodecInbound, FinalWithoutStatsAndTimingsHasBothAbsent)
{
    auto json = nlohmann::json::parse(kFullFinal);
    json.erase("stats");
    json.erase("timings_ms");
    const auto final = decodeAs<FinalMessage>(json.dump());
    EXPECT_FALSE(final.stats);
    EXPECT_FALSE(final.timingsMs);
    EXPECT_EQ(final.formattedText, "Hello world.");
}

TEST(WireCodecInbound, StatsWithoutAsrRtfReadsZero)
{
    auto json = nlohmann::json::parse(kFullFinal);
    json["stats"].erase("asr_rtf");
    EXPECT_EQ(decodeAs<FinalMessage>(json.dump()).stats->asrRtf, 0.0);
    json["stats"]["asr_rtf"] = nullptr;
    const auto final = decodeAs<FinalMessage>(json.dump());
    ASSERT_TRUE(final.stats);
    EXPECT_EQ(final.stats->asrRtf, 0.0);
}

TEST(WireCodecInbound, StatsWithoutWordCountMakesTheFinalUndecodable)
{
    auto json = nlohmann::json::parse(kFullFinal);
    json["stats"].erase("word_count");
    EXPECT_FALSE(decodeInbound(json.dump()));
}

TEST(WireCodecInbound, FractionalIntegerFieldIsUndecodableButIntegralFloatIsAccepted)
{
    auto json = nlohmann::json::parse(kFullFinal);
    json["stats"]["word_count"] = 2.5;
    EXPECT_FALSE(decodeInbound(json.dump()));
    json["stats"]["word_count"] = 3.0;
    EXPECT_EQ(decodeAs<FinalMessage>(json.dump()).stats->wordCount, 3);
}

TEST(WireCodecInbound, RequiredKeyNullOrWrongTypeFails)
{
    for (const char *key :
        {"utterance_id", "raw_text", "formatted_text", "domain", "domain_source"}) {
        auto json = nlohmann::json::parse(kFullFinal);
        json[key] = nullptr;
        EXPECT_FALSE(decodeInbound(json.dump())) << key << " null";
        json[key] = 42;
        EXPECT_FALSE(decodeInbound(json.dump())) << key << " number";
        json.erase(key);
        EXPECT_FALSE(decodeInbound(json.dump())) << key << " missing";
    }
    auto json = nlohmann::json::parse(kFullFinal);
    json["guardrail"]["applied"] = "yes";
    EXPECT_FALSE(decodeInbound(json.dump()));
    json = nlohmann::json::parse(kFullFinal);
    json["guardrail"]["edit_ratio"] = "high";
    EXPECT_FALSE(decodeInbound(json.dump()));
}

TEST(WireCodecInbound, UnknownKeysAreIgnored)
{
    const auto partial = decodeAs<PartialMessage>(
        R"({"type":"partial","utterance_id":"U","text":"hel","confidence":0.4,"extra":{"a":[1,2]}})");
    EXPECT_EQ(partial.utteranceId, "U");
    EXPECT_EQ(partial.text, "hel");
}

TEST(WireCodecInbound, UnknownTypeCarriesItsName)
{
    const auto unknown = decodeAs<UnknownMessage>(R"({"type":"engine.stats","whatever":1})");
    EXPECT_EQ(unknown.type, "engine.stats");
}

TEST(WireCodecInbound, TypeMatchingIsCaseSensitive)
{
    auto json = nlohmann::json::parse(kFullFinal);
    json["type"] = "Final";
    const auto unknown = decodeAs<UnknownMessage>(json.dump());
    EXPECT_EQ(unknown.type, "Final");
}

TEST(WireCodecInbound, EnvelopeFailures)
{
    EXPECT_EQ(decodeInbound("not json").error(), DecodeError::notJson);
    EXPECT_EQ(decodeInbound("").error(), DecodeError::notJson);
    EXPECT_EQ(decodeInbound("[1,2]").error(), DecodeError::notAnObject);
    EXPECT_EQ(decodeInbound(R"({"text":"x"})").error(), DecodeError::missingType);
    EXPECT_EQ(decodeInbound(R"({"type":5})").error(), DecodeError::missingType);
    EXPECT_EQ(decodeInbound(R"({"type":null})").error(), DecodeError::missingType);
    EXPECT_EQ(
        decodeInbound("{\"type\":\"partial\",\"text\":\"\xff\"}").error(), DecodeError::notJson);
    EXPECT_FALSE(describe(DecodeError::invalidBody).empty());
}

TEST(WireCodecInbound, DomainChangedAndError)
{
    const auto changed = decodeAs<DomainChangedMessage>(
        R"({"type":"domain.changed","domain":"legal","source":"pinned"})");
    EXPECT_EQ(changed.domain, "legal");
    EXPECT_EQ(changed.source, "pinned");
    EXPECT_FALSE(decodeInbound(R"({"type":"domain.changed","domain":"legal"})"));

    const auto error
        = decodeAs<ErrorMessage>(R"({"type":"error","code":"bad_audio","message":"odd length"})");
    EXPECT_EQ(error.code, "bad_audio");
    EXPECT_EQ(error.message, "odd length");
    EXPECT_FALSE(decodeInbound(R"({"type":"error","code":"x"})"));
}

TEST(WireCodecInbound, SuggestionsAndTheirIdentities)
{
    const auto suggestions = decodeAs<SuggestionsMessage>(
        R"({"type":"suggestions","dictionary":[{"misrecognized":"kuber netes","suggested_term":"Kubernetes","occurrences":3}],)"
        R"("exemplars":[{"domain":"email","spoken":"best regards","written":"Best regards,","occurrences":2}]})");
    ASSERT_EQ(suggestions.dictionary.size(), 1u);
    ASSERT_EQ(suggestions.exemplars.size(), 1u);
    EXPECT_EQ(suggestions.dictionary[0].id(), "kuber netes->Kubernetes");
    EXPECT_EQ(suggestions.dictionary[0].occurrences, 3);
    EXPECT_EQ(suggestions.exemplars[0].id(), "email|best regards");
    EXPECT_EQ(suggestions.exemplars[0].written, "Best regards,");

    EXPECT_FALSE(decodeInbound(R"({"type":"suggestions","dictionary":[]})"));
    EXPECT_FALSE(decodeInbound(
        R"({"type":"suggestions","dictionary":[{"misrecognized":"a","suggested_term":"b"}],"exemplars":[]})"));
    EXPECT_FALSE(decodeInbound(R"({"type":"suggestions","dictionary":[1],"exemplars":[]})"));
    EXPECT_TRUE(decodeInbound(R"({"type":"suggestions","dictionary":[],"exemplars":[]})"));
}

// ---- Outbound encoding --------------------------------------------------------------------

TEST(WireCodecOutbound, HelloWithoutLanguageHasNoLanguageKeyAndFeedbackFalse)
{
    HelloMessage hello;
    hello.version = "0.1.0";
    hello.feedbackEnabled = false;
    EXPECT_EQ(encode(hello),
        R"({"type":"hello","client":"macos","version":"0.1.0","sample_rate":16000,"feedback_enabled":false})");
}

TEST(WireCodecOutbound, HelloWithLanguageWritesItBeforeTheSampleRate)
{
    HelloMessage hello;
    hello.version = "0.1.0";
    hello.language = "hi";
    hello.feedbackEnabled = true;
    EXPECT_EQ(encode(hello),
        R"({"type":"hello","client":"macos","version":"0.1.0","language":"hi","sample_rate":16000,"feedback_enabled":true})");
}

TEST(WireCodecOutbound, EmptyContextIsAnEmptyObject)
{
    EXPECT_EQ(encode(ContextUpdateMessage {}), R"({"type":"context.update","context":{}})");
}

TEST(WireCodecOutbound, EmptyPersonalDictionaryIsNeverSentAsAnEmptyArray)
{
    ContextUpdateMessage message;
    message.context.appName = "Mail";
    message.context.personalDictionary = std::vector<std::string> {};
    EXPECT_EQ(encode(message), R"({"type":"context.update","context":{"app_name":"Mail"}})");
}

TEST(WireCodecOutbound, FullContextKeepsKeyOrder)
{
    ContextUpdateMessage message;
    message.context = {"org.gnome.Evolution", "Evolution", "Re: budget", "Thanks for", "clip",
        std::vector<std::string> {"Sayvo", "Kubernetes"}};
    EXPECT_EQ(encode(message),
        R"({"type":"context.update","context":{"app_bundle_id":"org.gnome.Evolution","app_name":"Evolution",)"
        R"("window_title":"Re: budget","screen_text":"Thanks for","clipboard":"clip",)"
        R"("personal_dictionary":["Sayvo","Kubernetes"]}})");
}

TEST(WireCodecOutbound, EveryOtherOutboundMessage)
{
    EXPECT_EQ(encode(UtteranceStartMessage {"utterance.start", "ID-1"}),
        R"({"type":"utterance.start","utterance_id":"ID-1"})");
    EXPECT_EQ(encode(UtteranceEndMessage {"utterance.end", "ID-1"}),
        R"({"type":"utterance.end","utterance_id":"ID-1"})");
    EXPECT_EQ(encode(DomainPinMessage {"domain.pin", "legal"}),
        R"({"type":"domain.pin","domain":"legal"})");
    EXPECT_EQ(encode(DomainUnpinMessage {}), R"({"type":"domain.unpin"})");
    EXPECT_EQ(encode(SuggestionsRequestMessage {}), R"({"type":"suggestions.request"})");
    UtteranceFeedbackMessage feedback;
    feedback.utteranceId = "ID-1";
    feedback.finalTextAfterEdit = "Hi there.";
    feedback.editDelayMs = 1500;
    feedback.source = "calibration";
    EXPECT_EQ(encode(feedback),
        R"({"type":"utterance.feedback","utterance_id":"ID-1","final_text_after_edit":"Hi there.",)"
        R"("edit_delay_ms":1500,"source":"calibration"})");
    feedback.source.reset();
    EXPECT_EQ(encode(feedback),
        R"({"type":"utterance.feedback","utterance_id":"ID-1","final_text_after_edit":"Hi there.","edit_delay_ms":1500})");
}

TEST(WireCodecOutbound, InvalidUtf8FromTheDesktopStillEncodesAsValidJson)
{
    ContextUpdateMessage message;
    message.context.windowTitle = std::string("bad \xff title");
    const std::string text = encode(message);
    EXPECT_TRUE(nlohmann::json::accept(text)) << text;
}

// ---- Both directions round-trip (the engine decodes outbound, encodes inbound) ------------

TEST(WireCodecRoundTrip, OutboundMessagesDecodeBackToThemselves)
{
    HelloMessage hello;
    hello.version = "0.1.0";
    hello.feedbackEnabled = true;
    ContextUpdateMessage context;
    context.context.appName = "Editor";
    context.context.personalDictionary = std::vector<std::string> {"Sayvo"};
    UtteranceFeedbackMessage feedback {"utterance.feedback", "U", "text", 12, std::string("user")};
    const std::vector<OutboundMessage> messages {hello, context,
        UtteranceStartMessage {"utterance.start", "U"}, UtteranceEndMessage {"utterance.end", "U"},
        DomainPinMessage {"domain.pin", "casual"}, DomainUnpinMessage {},
        SuggestionsRequestMessage {}, feedback, UnknownMessage {"future.thing"}};
    for (const OutboundMessage &message : messages) {
        const auto decoded = decodeOutbound(encode(message));
        ASSERT_TRUE(decoded) << encode(message);
        EXPECT_EQ(decoded.value(), message) << encode(message);
    }
}

TEST(WireCodecRoundTrip, InboundMessagesDecodeBackToThemselves)
{
    const auto final = decodeAs<FinalMessage>(kFullFinal);
    const std::vector<InboundMessage> messages {
        HelloAckMessage {"1.0", Backends {"pocketsphinx", std::nullopt, "rules"}},
        PartialMessage {"U", "hello"}, final, DomainChangedMessage {"email", "context"},
        SuggestionsMessage {
            {DictionarySuggestion {"a", "b", 2}}, {ExemplarSuggestion {"d", "s", "w", 2}}},
        ErrorMessage {"code", "message"}, UnknownMessage {"later"}};
    for (const InboundMessage &message : messages) {
        const auto decoded = decodeInbound(encode(message));
        ASSERT_TRUE(decoded) << encode(message);
        EXPECT_EQ(decoded.value(), message) << encode(message);
    }
}

TEST(WireCodecOutboundDecode, EngineSideRejectsBadClientFrames)
{
    EXPECT_FALSE(
        decodeOutbound(R"({"type":"hello","client":"macos","version":"1"})")); // no sample_rate
    EXPECT_FALSE(decodeOutbound(R"({"type":"utterance.start"})"));
    EXPECT_FALSE(
        decodeOutbound(R"({"type":"context.update","context":{"personal_dictionary":[1]}})"));
    EXPECT_FALSE(decodeOutbound(
        R"({"type":"utterance.feedback","utterance_id":"U","final_text_after_edit":"t","edit_delay_ms":1.5})"));
    EXPECT_EQ(
        std::get<UnknownMessage>(decodeOutbound(R"({"type":"Hello"})").value()).type, "Hello");
}
