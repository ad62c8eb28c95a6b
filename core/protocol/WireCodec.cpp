#include "protocol/WireCodec.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>

namespace sayvo {

using Json = nlohmann::json;
using OrderedJson = nlohmann::ordered_json;

std::string_view describe(DecodeError error)
{
    switch (error) {
    case DecodeError::notJson:
        return "the frame is not JSON text";
    case DecodeError::notAnObject:
        return "the frame is not a JSON object";
    case DecodeError::missingType:
        return "the message has no string \"type\"";
    case DecodeError::invalidBody:
        return "a required field is missing, null or of the wrong type";
    }
    return "unknown decode error";
}

namespace {

// ---- encoding ----------------------------------------------------------------------

std::string dump(const OrderedJson &object)
{
    // Replace rather than throw on invalid UTF-8 coming from the desktop (a window title
    // can hold anything); the engine still gets a well-formed frame.
    return object.dump(-1, ' ', false, OrderedJson::error_handler_t::replace);
}

template <typename T>
void putOptional(OrderedJson &object, const char *key, const std::optional<T> &value)
{
    if (value) {
        object[key] = *value;
    }
}

OrderedJson contextObject(const ContextPack &pack)
{
    OrderedJson object = OrderedJson::object();
    putOptional(object, "app_bundle_id", pack.appBundleId);
    putOptional(object, "app_name", pack.appName);
    putOptional(object, "window_title", pack.windowTitle);
    putOptional(object, "screen_text", pack.screenText);
    putOptional(object, "clipboard", pack.clipboard);
    // An empty dictionary is the same as none: never sent as [].
    if (pack.personalDictionary && !pack.personalDictionary->empty()) {
        object["personal_dictionary"] = *pack.personalDictionary;
    }
    return object;
}

OrderedJson typed(const std::string &type)
{
    OrderedJson object = OrderedJson::object();
    object["type"] = type;
    return object;
}

// ---- decoding ----------------------------------------------------------------------

// Reads typed fields off one JSON object and remembers whether any required one was
// missing or wrong; optional fields that are null count as absent.
class FieldReader
{
public:
    explicit FieldReader(const Json &object) : m_object(object) { }

    bool ok() const { return m_ok; }

    std::string requiredString(const char *key)
    {
        return required<std::string>(key, [](const Json &v, std::string &out) {
            if (!v.is_string()) {
                return false;
            }
            out = v.get_ref<const std::string &>();
            return true;
        });
    }

    std::optional<std::string> optionalString(const char *key)
    {
        return optional<std::string>(key, [](const Json &v, std::string &out) {
            if (!v.is_string()) {
                return false;
            }
            out = v.get_ref<const std::string &>();
            return true;
        });
    }

    std::int64_t requiredInteger(const char *key)
    {
        return required<std::int64_t>(key, readInteger);
    }
    std::optional<std::int64_t> optionalInteger(const char *key)
    {
        return optional<std::int64_t>(key, readInteger);
    }

    double requiredNumber(const char *key) { return required<double>(key, readNumber); }
    std::optional<double> optionalNumber(const char *key)
    {
        return optional<double>(key, readNumber);
    }

    bool requiredBool(const char *key) { return required<bool>(key, readBool); }
    std::optional<bool> optionalBool(const char *key) { return optional<bool>(key, readBool); }

    // The nested object under key, or null (and the reader failed) when it is not one.
    const Json *requiredObject(const char *key)
    {
        const Json *value = find(key);
        if (value == nullptr || !value->is_object()) {
            m_ok = false;
            return nullptr;
        }
        return value;
    }

    // The nested object, or null when absent or null; a value of another type fails.
    const Json *optionalObject(const char *key)
    {
        const Json *value = find(key);
        if (value == nullptr) {
            return nullptr;
        }
        if (!value->is_object()) {
            m_ok = false;
            return nullptr;
        }
        return value;
    }

    const Json *requiredArray(const char *key)
    {
        const Json *value = find(key);
        if (value == nullptr || !value->is_array()) {
            m_ok = false;
            return nullptr;
        }
        return value;
    }

    std::optional<std::vector<std::string>> optionalStringArray(const char *key)
    {
        return optional<std::vector<std::string>>(
            key, [](const Json &v, std::vector<std::string> &out) {
                if (!v.is_array()) {
                    return false;
                }
                for (const Json &element : v) {
                    if (!element.is_string()) {
                        return false;
                    }
                    out.push_back(element.get_ref<const std::string &>());
                }
                return true;
            });
    }

    void fail() { m_ok = false; }

private:
    // The value under key, or null when the key is missing or holds JSON null.
    const Json *find(const char *key) const
    {
        const auto it = m_object.find(key);
        if (it == m_object.end() || it->is_null()) {
            return nullptr;
        }
        return &*it;
    }

    static bool readInteger(const Json &v, std::int64_t &out)
    {
        if (v.is_number_integer() && !v.is_number_unsigned()) {
            out = v.get<std::int64_t>();
            return true;
        }
        if (v.is_number_unsigned()) {
            const auto u = v.get<std::uint64_t>();
            if (u > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
                return false;
            }
            out = static_cast<std::int64_t>(u);
            return true;
        }
        if (v.is_number_float()) {
            // 3.0 is an integer written with a fraction; 2.5 is not an integer at all.
            const double d = v.get<double>();
            constexpr double kLimit = 9223372036854775808.0; // 2^63
            if (!std::isfinite(d) || std::trunc(d) != d || d >= kLimit || d < -kLimit) {
                return false;
            }
            out = static_cast<std::int64_t>(d);
            return true;
        }
        return false;
    }

    static bool readNumber(const Json &v, double &out)
    {
        if (!v.is_number()) {
            return false;
        }
        out = v.get<double>();
        return true;
    }

    static bool readBool(const Json &v, bool &out)
    {
        if (!v.is_boolean()) {
            return false;
        }
        out = v.get<bool>();
        return true;
    }

    template <typename T, typename Read> T required(const char *key, Read read)
    {
        T out {};
        const Json *value = find(key);
        if (value == nullptr || !read(*value, out)) {
            m_ok = false;
            return T {};
        }
        return out;
    }

    template <typename T, typename Read> std::optional<T> optional(const char *key, Read read)
    {
        const Json *value = find(key);
        if (value == nullptr) {
            return std::nullopt;
        }
        T out {};
        if (!read(*value, out)) {
            m_ok = false;
            return std::nullopt;
        }
        return out;
    }

    const Json &m_object;
    bool m_ok = true;
};

template <typename T> std::optional<T> finish(const FieldReader &reader, T value)
{
    if (!reader.ok()) {
        return std::nullopt;
    }
    return value;
}

std::optional<Backends> readBackends(const Json &object)
{
    FieldReader r(object);
    Backends b;
    b.streaming = r.optionalString("streaming");
    b.finalPass = r.optionalString("final_pass");
    b.gec = r.optionalString("gec");
    return finish(r, b);
}

std::optional<HelloAckMessage> readHelloAck(const Json &object)
{
    FieldReader r(object);
    HelloAckMessage m;
    m.serverVersion = r.requiredString("server_version");
    if (const Json *backends = r.requiredObject("backends")) {
        const auto decoded = readBackends(*backends);
        if (!decoded) {
            return std::nullopt;
        }
        m.backends = *decoded;
    }
    return finish(r, m);
}

std::optional<PartialMessage> readPartial(const Json &object)
{
    FieldReader r(object);
    PartialMessage m;
    m.utteranceId = r.requiredString("utterance_id");
    m.text = r.requiredString("text");
    return finish(r, m);
}

std::optional<Guardrail> readGuardrail(const Json &object)
{
    FieldReader r(object);
    Guardrail g;
    g.applied = r.requiredBool("applied");
    g.editRatio = r.optionalNumber("edit_ratio");
    g.policy = r.optionalString("policy");
    g.reason = r.optionalString("reason");
    return finish(r, g);
}

std::optional<TimingsMs> readTimings(const Json &object)
{
    FieldReader r(object);
    TimingsMs t;
    t.streamFinal = r.optionalNumber("stream_final");
    t.finalPass = r.optionalNumber("final_pass");
    t.gec = r.optionalNumber("gec");
    t.total = r.optionalNumber("total");
    return finish(r, t);
}

std::optional<Stats> readStats(const Json &object)
{
    FieldReader r(object);
    Stats s;
    s.audioDurationS = r.requiredNumber("audio_duration_s");
    s.wordCount = r.requiredInteger("word_count");
    s.spokenWpm = r.requiredNumber("spoken_wpm");
    s.transcriptionRtf = r.requiredNumber("transcription_rtf");
    s.asrRtf = r.optionalNumber("asr_rtf").value_or(0.0);
    s.fillerCount = r.requiredInteger("filler_count");
    s.fillerRate = r.requiredNumber("filler_rate");
    return finish(r, s);
}

std::optional<FinalMessage> readFinal(const Json &object)
{
    FieldReader r(object);
    FinalMessage m;
    m.utteranceId = r.requiredString("utterance_id");
    m.rawText = r.requiredString("raw_text");
    m.formattedText = r.requiredString("formatted_text");
    m.domain = r.requiredString("domain");
    m.domainSource = r.requiredString("domain_source");
    if (const Json *guardrail = r.requiredObject("guardrail")) {
        const auto decoded = readGuardrail(*guardrail);
        if (!decoded) {
            return std::nullopt;
        }
        m.guardrail = *decoded;
    }
    if (const Json *timings = r.optionalObject("timings_ms")) {
        m.timingsMs = readTimings(*timings);
        if (!m.timingsMs) {
            return std::nullopt;
        }
    }
    if (const Json *stats = r.optionalObject("stats")) {
        m.stats = readStats(*stats);
        if (!m.stats) {
            return std::nullopt;
        }
    }
    return finish(r, m);
}

std::optional<DomainChangedMessage> readDomainChanged(const Json &object)
{
    FieldReader r(object);
    DomainChangedMessage m;
    m.domain = r.requiredString("domain");
    m.source = r.requiredString("source");
    return finish(r, m);
}

std::optional<ErrorMessage> readError(const Json &object)
{
    FieldReader r(object);
    ErrorMessage m;
    m.code = r.requiredString("code");
    m.message = r.requiredString("message");
    return finish(r, m);
}

std::optional<SuggestionsMessage> readSuggestions(const Json &object)
{
    FieldReader r(object);
    SuggestionsMessage m;
    const Json *dictionary = r.requiredArray("dictionary");
    const Json *exemplars = r.requiredArray("exemplars");
    if (!r.ok()) {
        return std::nullopt;
    }
    for (const Json &element : *dictionary) {
        if (!element.is_object()) {
            return std::nullopt;
        }
        FieldReader e(element);
        DictionarySuggestion s;
        s.misrecognized = e.requiredString("misrecognized");
        s.suggestedTerm = e.requiredString("suggested_term");
        s.occurrences = e.requiredInteger("occurrences");
        if (!e.ok()) {
            return std::nullopt;
        }
        m.dictionary.push_back(std::move(s));
    }
    for (const Json &element : *exemplars) {
        if (!element.is_object()) {
            return std::nullopt;
        }
        FieldReader e(element);
        ExemplarSuggestion s;
        s.domain = e.requiredString("domain");
        s.spoken = e.requiredString("spoken");
        s.written = e.requiredString("written");
        s.occurrences = e.requiredInteger("occurrences");
        if (!e.ok()) {
            return std::nullopt;
        }
        m.exemplars.push_back(std::move(s));
    }
    return m;
}

std::optional<ContextPack> readContext(const Json &object)
{
    FieldReader r(object);
    ContextPack pack;
    pack.appBundleId = r.optionalString("app_bundle_id");
    pack.appName = r.optionalString("app_name");
    pack.windowTitle = r.optionalString("window_title");
    pack.screenText = r.optionalString("screen_text");
    pack.clipboard = r.optionalString("clipboard");
    pack.personalDictionary = r.optionalStringArray("personal_dictionary");
    return finish(r, pack);
}

std::optional<HelloMessage> readHello(const Json &object)
{
    FieldReader r(object);
    HelloMessage m;
    const std::int64_t rate = r.requiredInteger("sample_rate");
    if (rate < std::numeric_limits<int>::min() || rate > std::numeric_limits<int>::max()) {
        r.fail();
    }
    m.sampleRate = static_cast<int>(rate);
    m.client = r.requiredString("client");
    m.version = r.requiredString("version");
    m.language = r.optionalString("language");
    m.feedbackEnabled = r.optionalBool("feedback_enabled");
    return finish(r, m);
}

std::optional<ContextUpdateMessage> readContextUpdate(const Json &object)
{
    FieldReader r(object);
    ContextUpdateMessage m;
    if (const Json *context = r.requiredObject("context")) {
        const auto pack = readContext(*context);
        if (!pack) {
            return std::nullopt;
        }
        m.context = *pack;
    }
    return finish(r, m);
}

template <typename Message> std::optional<Message> readUtteranceId(const Json &object)
{
    FieldReader r(object);
    Message m;
    m.utteranceId = r.requiredString("utterance_id");
    return finish(r, m);
}

std::optional<DomainPinMessage> readDomainPin(const Json &object)
{
    FieldReader r(object);
    DomainPinMessage m;
    m.domain = r.requiredString("domain");
    return finish(r, m);
}

std::optional<UtteranceFeedbackMessage> readFeedback(const Json &object)
{
    FieldReader r(object);
    UtteranceFeedbackMessage m;
    m.utteranceId = r.requiredString("utterance_id");
    m.finalTextAfterEdit = r.requiredString("final_text_after_edit");
    m.editDelayMs = r.requiredInteger("edit_delay_ms");
    m.source = r.optionalString("source");
    return finish(r, m);
}

// Parses the envelope: a JSON object with a string "type".
struct Envelope
{
    Json object;
    std::string type;
};

Expected<Envelope, DecodeError> readEnvelope(std::string_view bytes)
{
    Json parsed = Json::parse(bytes.begin(), bytes.end(), nullptr, /*allow_exceptions=*/false);
    if (parsed.is_discarded()) {
        return Expected<Envelope, DecodeError>::failure(DecodeError::notJson);
    }
    if (!parsed.is_object()) {
        return Expected<Envelope, DecodeError>::failure(DecodeError::notAnObject);
    }
    const auto type = parsed.find("type");
    if (type == parsed.end() || !type->is_string()) {
        return Expected<Envelope, DecodeError>::failure(DecodeError::missingType);
    }
    std::string name = type->get<std::string>();
    return Envelope {std::move(parsed), std::move(name)};
}

template <typename Variant, typename Message>
Expected<Variant, DecodeError> wrap(const std::optional<Message> &message)
{
    if (!message) {
        return Expected<Variant, DecodeError>::failure(DecodeError::invalidBody);
    }
    return Variant {*message};
}

} // namespace

std::string encode(const ContextPack &pack)
{
    return dump(contextObject(pack));
}

std::string encode(const HelloMessage &message)
{
    OrderedJson object = typed(message.type);
    object["client"] = message.client;
    object["version"] = message.version;
    putOptional(object, "language", message.language);
    object["sample_rate"] = message.sampleRate;
    putOptional(object, "feedback_enabled", message.feedbackEnabled);
    return dump(object);
}

std::string encode(const ContextUpdateMessage &message)
{
    OrderedJson object = typed(message.type);
    object["context"] = contextObject(message.context);
    return dump(object);
}

std::string encode(const UtteranceStartMessage &message)
{
    OrderedJson object = typed(message.type);
    object["utterance_id"] = message.utteranceId;
    return dump(object);
}

std::string encode(const UtteranceEndMessage &message)
{
    OrderedJson object = typed(message.type);
    object["utterance_id"] = message.utteranceId;
    return dump(object);
}

std::string encode(const DomainPinMessage &message)
{
    OrderedJson object = typed(message.type);
    object["domain"] = message.domain;
    return dump(object);
}

std::string encode(const DomainUnpinMessage &message)
{
    return dump(typed(message.type));
}

std::string encode(const SuggestionsRequestMessage &message)
{
    return dump(typed(message.type));
}

std::string encode(const UtteranceFeedbackMessage &message)
{
    OrderedJson object = typed(message.type);
    object["utterance_id"] = message.utteranceId;
    object["final_text_after_edit"] = message.finalTextAfterEdit;
    object["edit_delay_ms"] = message.editDelayMs;
    putOptional(object, "source", message.source);
    return dump(object);
}

std::string encode(const HelloAckMessage &message)
{
    OrderedJson object = typed("hello.ack");
    object["server_version"] = message.serverVersion;
    OrderedJson backends = OrderedJson::object();
    putOptional(backends, "streaming", message.backends.streaming);
    putOptional(backends, "final_pass", message.backends.finalPass);
    putOptional(backends, "gec", message.backends.gec);
    object["backends"] = std::move(backends);
    return dump(object);
}

std::string encode(const PartialMessage &message)
{
    OrderedJson object = typed("partial");
    object["utterance_id"] = message.utteranceId;
    object["text"] = message.text;
    return dump(object);
}

std::string encode(const FinalMessage &message)
{
    OrderedJson object = typed("final");
    object["utterance_id"] = message.utteranceId;
    object["raw_text"] = message.rawText;
    object["formatted_text"] = message.formattedText;
    object["domain"] = message.domain;
    object["domain_source"] = message.domainSource;
    OrderedJson guardrail = OrderedJson::object();
    guardrail["applied"] = message.guardrail.applied;
    putOptional(guardrail, "edit_ratio", message.guardrail.editRatio);
    putOptional(guardrail, "policy", message.guardrail.policy);
    putOptional(guardrail, "reason", message.guardrail.reason);
    object["guardrail"] = std::move(guardrail);
    if (message.timingsMs) {
        OrderedJson timings = OrderedJson::object();
        putOptional(timings, "stream_final", message.timingsMs->streamFinal);
        putOptional(timings, "final_pass", message.timingsMs->finalPass);
        putOptional(timings, "gec", message.timingsMs->gec);
        putOptional(timings, "total", message.timingsMs->total);
        object["timings_ms"] = std::move(timings);
    }
    if (message.stats) {
        const Stats &s = *message.stats;
        OrderedJson stats = OrderedJson::object();
        stats["audio_duration_s"] = s.audioDurationS;
        stats["word_count"] = s.wordCount;
        stats["spoken_wpm"] = s.spokenWpm;
        stats["transcription_rtf"] = s.transcriptionRtf;
        stats["asr_rtf"] = s.asrRtf;
        stats["filler_count"] = s.fillerCount;
        stats["filler_rate"] = s.fillerRate;
        object["stats"] = std::move(stats);
    }
    return dump(object);
}

std::string encode(const DomainChangedMessage &message)
{
    OrderedJson object = typed("domain.changed");
    object["domain"] = message.domain;
    object["source"] = message.source;
    return dump(object);
}

std::string encode(const SuggestionsMessage &message)
{
    OrderedJson object = typed("suggestions");
    OrderedJson dictionary = OrderedJson::array();
    for (const auto &s : message.dictionary) {
        OrderedJson row = OrderedJson::object();
        row["misrecognized"] = s.misrecognized;
        row["suggested_term"] = s.suggestedTerm;
        row["occurrences"] = s.occurrences;
        dictionary.push_back(std::move(row));
    }
    OrderedJson exemplars = OrderedJson::array();
    for (const auto &s : message.exemplars) {
        OrderedJson row = OrderedJson::object();
        row["domain"] = s.domain;
        row["spoken"] = s.spoken;
        row["written"] = s.written;
        row["occurrences"] = s.occurrences;
        exemplars.push_back(std::move(row));
    }
    object["dictionary"] = std::move(dictionary);
    object["exemplars"] = std::move(exemplars);
    return dump(object);
}

std::string encode(const ErrorMessage &message)
{
    OrderedJson object = typed("error");
    object["code"] = message.code;
    object["message"] = message.message;
    return dump(object);
}

std::string encode(const UnknownMessage &message)
{
    return dump(typed(message.type));
}

std::string encode(const OutboundMessage &message)
{
    return std::visit([](const auto &m) { return encode(m); }, message);
}

std::string encode(const InboundMessage &message)
{
    return std::visit([](const auto &m) { return encode(m); }, message);
}

Expected<InboundMessage, DecodeError> decodeInbound(std::string_view bytes)
{
    using Result = Expected<InboundMessage, DecodeError>;
    auto envelope = readEnvelope(bytes);
    if (!envelope) {
        return Result::failure(envelope.error());
    }
    const Json &object = envelope->object;
    const std::string &type = envelope->type;
    if (type == "hello.ack") {
        return wrap<InboundMessage>(readHelloAck(object));
    }
    if (type == "partial") {
        return wrap<InboundMessage>(readPartial(object));
    }
    if (type == "final") {
        return wrap<InboundMessage>(readFinal(object));
    }
    if (type == "domain.changed") {
        return wrap<InboundMessage>(readDomainChanged(object));
    }
    if (type == "suggestions") {
        return wrap<InboundMessage>(readSuggestions(object));
    }
    if (type == "error") {
        return wrap<InboundMessage>(readError(object));
    }
    return InboundMessage {UnknownMessage {type}};
}

Expected<OutboundMessage, DecodeError> decodeOutbound(std::string_view bytes)
{
    using Result = Expected<OutboundMessage, DecodeError>;
    auto envelope = readEnvelope(bytes);
    if (!envelope) {
        return Result::failure(envelope.error());
    }
    const Json &object = envelope->object;
    const std::string &type = envelope->type;
    if (type == "hello") {
        return wrap<OutboundMessage>(readHello(object));
    }
    if (type == "context.update") {
        return wrap<OutboundMessage>(readContextUpdate(object));
    }
    if (type == "utterance.start") {
        return wrap<OutboundMessage>(readUtteranceId<UtteranceStartMessage>(object));
    }
    if (type == "utterance.end") {
        return wrap<OutboundMessage>(readUtteranceId<UtteranceEndMessage>(object));
    }
    if (type == "domain.pin") {
        return wrap<OutboundMessage>(readDomainPin(object));
    }
    if (type == "domain.unpin") {
        return OutboundMessage {DomainUnpinMessage {}};
    }
    if (type == "suggestions.request") {
        return OutboundMessage {SuggestionsRequestMessage {}};
    }
    if (type == "utterance.feedback") {
        return wrap<OutboundMessage>(readFeedback(object));
    }
    return OutboundMessage {UnknownMessage {type}};
}

} // namespace sayvo
