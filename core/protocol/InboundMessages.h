#pragma once

#include "protocol/OutboundMessages.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace sayvo {

// Messages the engine sends to the client.

// The engine's three recognition backends; a name containing "mock" marks a placeholder
// engine that cannot transcribe.
struct Backends
{
    std::optional<std::string> streaming;
    std::optional<std::string> finalPass;
    std::optional<std::string> gec;

    bool isMock() const;
    bool operator==(const Backends &) const = default;
};

struct HelloAckMessage
{
    std::string serverVersion;
    Backends backends;

    bool operator==(const HelloAckMessage &) const = default;
};

struct PartialMessage
{
    std::string utteranceId;
    std::string text;

    bool operator==(const PartialMessage &) const = default;
};

struct Guardrail
{
    bool applied = false;
    std::optional<double> editRatio;
    std::optional<std::string> policy;
    std::optional<std::string> reason;

    bool operator==(const Guardrail &) const = default;
};

struct TimingsMs
{
    std::optional<double> streamFinal;
    std::optional<double> finalPass;
    std::optional<double> gec;
    std::optional<double> total;

    bool operator==(const TimingsMs &) const = default;
};

struct Stats
{
    double audioDurationS = 0.0;
    std::int64_t wordCount = 0;
    double spokenWpm = 0.0;
    double transcriptionRtf = 0.0;
    double asrRtf = 0.0; // the one defaulted field: missing or null reads as 0.0
    std::int64_t fillerCount = 0;
    double fillerRate = 0.0;

    bool operator==(const Stats &) const = default;
};

struct FinalMessage
{
    std::string utteranceId;
    std::string rawText;
    std::string formattedText;
    std::string domain;
    std::string domainSource;
    Guardrail guardrail;
    std::optional<TimingsMs> timingsMs;
    std::optional<Stats> stats;

    bool operator==(const FinalMessage &) const = default;
};

struct DomainChangedMessage
{
    std::string domain;
    std::string source;

    bool operator==(const DomainChangedMessage &) const = default;
};

struct ErrorMessage
{
    std::string code;
    std::string message;

    bool operator==(const ErrorMessage &) const = default;
};

struct DictionarySuggestion
{
    std::string misrecognized;
    std::string suggestedTerm;
    std::int64_t occurrences = 0;

    std::string id() const { return misrecognized + "->" + suggestedTerm; }
    bool operator==(const DictionarySuggestion &) const = default;
};

struct ExemplarSuggestion
{
    std::string domain;
    std::string spoken;
    std::string written;
    std::int64_t occurrences = 0;

    std::string id() const { return domain + "|" + spoken; }
    bool operator==(const ExemplarSuggestion &) const = default;
};

struct SuggestionsMessage
{
    std::vector<DictionarySuggestion> dictionary;
    std::vector<ExemplarSuggestion> exemplars;

    bool operator==(const SuggestionsMessage &) const = default;
};

// Every message the engine can send, in the order the "type" strings are tried; anything
// else is `UnknownMessage` carrying its type.
using InboundMessage = std::variant<HelloAckMessage, PartialMessage, FinalMessage,
    DomainChangedMessage, SuggestionsMessage, ErrorMessage, UnknownMessage>;

} // namespace sayvo
