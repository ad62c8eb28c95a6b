#pragma once

#include <QString>

namespace sayvo {

enum class EngineClientError {
    notConnected, // no socket exists
    sendFailed, // the socket refused or lost the frame
};

QString describe(EngineClientError error);

// Why a send did not reach the socket; `description` is what logs and failure messages show.
struct SendFailure
{
    EngineClientError error = EngineClientError::notConnected;
    QString description;
};

} // namespace sayvo
