#pragma once

#include "engineclient/ConnectionState.h"
#include "protocol/InboundMessages.h"

namespace sayvo {

class EngineClient;

// Receives everything the engine client learns, always on the main thread. Suggestions
// have an empty default so a delegate that never asks for them need not implement it.
class EngineClientDelegate
{
public:
    virtual ~EngineClientDelegate() = default;

    virtual void engineClientDidChangeConnection(EngineClient &client, const ConnectionState &state)
        = 0;
    virtual void engineClientDidReceiveHelloAck(
        EngineClient &client, const HelloAckMessage &message)
        = 0;
    virtual void engineClientDidReceivePartial(EngineClient &client, const PartialMessage &message)
        = 0;
    virtual void engineClientDidReceiveFinal(EngineClient &client, const FinalMessage &message) = 0;
    virtual void engineClientDidReceiveDomainChanged(
        EngineClient &client, const DomainChangedMessage &message)
        = 0;
    virtual void engineClientDidReceiveError(EngineClient &client, const ErrorMessage &message) = 0;
    virtual void engineClientDidReceiveSuggestions(EngineClient &, const SuggestionsMessage &) { }
};

} // namespace sayvo
