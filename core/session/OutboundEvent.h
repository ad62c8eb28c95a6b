#pragma once

#include "protocol/ContextPack.h"

#include <QByteArray>
#include <QString>

#include <variant>

namespace sayvo {

// One item of the coordinator's outbound queue: what the engine must receive, in order.
struct OutboundEvent
{
    struct Start
    {
        QString id;
        ContextPack context; // sent as "context.update" just before "utterance.start"
    };
    struct Audio
    {
        QByteArray bytes; // 16 kHz mono s16le
    };
    struct End
    {
        QString id;
    };

    std::variant<Start, Audio, End> value;
};

} // namespace sayvo
