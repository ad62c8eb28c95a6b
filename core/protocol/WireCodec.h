#pragma once

#include "base/Expected.h"
#include "protocol/InboundMessages.h"
#include "protocol/OutboundMessages.h"

#include <string>
#include <string_view>

namespace sayvo {

// JSON form of every message that crosses the engine connection, in both directions: the
// client encodes outbound and decodes inbound messages, the reference engine the reverse.
// Encoding is compact, keys in their documented order, absent optional fields left out.
// Decoding never throws: a frame that is not JSON, has no string "type", or whose body
// misses a required key (or has it null or of the wrong JSON type) fails as a whole;
// unknown keys are ignored and an unknown type decodes as `UnknownMessage`.

enum class DecodeError {
    notJson, // not UTF-8 JSON text
    notAnObject, // JSON, but not an object
    missingType, // no string "type"
    invalidBody, // a required key missing, null or of the wrong type
};

std::string_view describe(DecodeError error);

std::string encode(const ContextPack &pack);
std::string encode(const HelloMessage &message);
std::string encode(const ContextUpdateMessage &message);
std::string encode(const UtteranceStartMessage &message);
std::string encode(const UtteranceEndMessage &message);
std::string encode(const DomainPinMessage &message);
std::string encode(const DomainUnpinMessage &message);
std::string encode(const SuggestionsRequestMessage &message);
std::string encode(const UtteranceFeedbackMessage &message);

std::string encode(const HelloAckMessage &message);
std::string encode(const PartialMessage &message);
std::string encode(const FinalMessage &message);
std::string encode(const DomainChangedMessage &message);
std::string encode(const SuggestionsMessage &message);
std::string encode(const ErrorMessage &message);
std::string encode(const UnknownMessage &message);

std::string encode(const OutboundMessage &message);
std::string encode(const InboundMessage &message);

// What the client reads off an engine frame (text, or binary holding JSON).
Expected<InboundMessage, DecodeError> decodeInbound(std::string_view bytes);

// What the engine reads off a client text frame.
Expected<OutboundMessage, DecodeError> decodeOutbound(std::string_view bytes);

} // namespace sayvo
