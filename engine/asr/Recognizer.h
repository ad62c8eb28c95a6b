#pragma once

#include "protocol/InboundMessages.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace sayvo {

// One utterance's speech recogniser: fed 16 kHz mono PCM as it arrives, asked for the
// running text now and then, and finished once. Used from one thread at a time.
class Recognizer
{
public:
    virtual ~Recognizer() = default;

    virtual void feed(std::span<const std::int16_t> samples) = 0;
    // The streaming hypothesis so far, lower-case words.
    virtual std::string partialText() = 0;
    // Ends the utterance and returns the final hypothesis.
    virtual std::string finish() = 0;
};

// Makes recognisers for new utterances and names the backends it runs. Lives as long as
// the engine; `create` is called on the recognition workers, several at a time.
class RecognizerFactory
{
public:
    virtual ~RecognizerFactory() = default;

    virtual Backends backends() const = 0;
    // Null when no recogniser can be made (the reason is logged by the factory).
    virtual std::unique_ptr<Recognizer> create() = 0;
};

} // namespace sayvo
