#pragma once

#include "protocol/ContextPack.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace sayvo {

// Messages the client sends to the engine. Field order is the order they are written in.

struct HelloMessage
{
    std::string type = "hello";
    int sampleRate = 16000;
    std::string client = "macos";
    std::string version;
    std::optional<std::string> language;
    std::optional<bool> feedbackEnabled;

    bool operator==(const HelloMessage &) const = default;
};

struct ContextUpdateMessage
{
    std::string type = "context.update";
    ContextPack context;

    bool operator==(const ContextUpdateMessage &) const = default;
};

struct UtteranceStartMessage
{
    std::string type = "utterance.start";
    std::string utteranceId;

    bool operator==(const UtteranceStartMessage &) const = default;
};

struct UtteranceEndMessage
{
    std::string type = "utterance.end";
    std::string utteranceId;

    bool operator==(const UtteranceEndMessage &) const = default;
};

struct DomainPinMessage
{
    std::string type = "domain.pin";
    std::string domain;

    bool operator==(const DomainPinMessage &) const = default;
};

struct DomainUnpinMessage
{
    std::string type = "domain.unpin";

    bool operator==(const DomainUnpinMessage &) const = default;
};

struct SuggestionsRequestMessage
{
    std::string type = "suggestions.request";

    bool operator==(const SuggestionsRequestMessage &) const = default;
};

struct UtteranceFeedbackMessage
{
    std::string type = "utterance.feedback";
    std::string utteranceId;
    std::string finalTextAfterEdit;
    std::int64_t editDelayMs = 0;
    std::optional<std::string> source;

    bool operator==(const UtteranceFeedbackMessage &) const = default;
};

// A message type the reader does not know; carries the "type" string it had.
struct UnknownMessage
{
    std::string type;

    bool operator==(const UnknownMessage &) const = default;
};

// What the engine reads off a text frame.
using OutboundMessage = std::variant<HelloMessage, ContextUpdateMessage, UtteranceStartMessage,
    UtteranceEndMessage, DomainPinMessage, DomainUnpinMessage, SuggestionsRequestMessage,
    UtteranceFeedbackMessage, UnknownMessage>;

} // namespace sayvo
