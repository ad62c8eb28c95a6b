#include "app/ControlCommand.h"

#include "runtime/ControlClient.h"

namespace sayvo {

namespace {

// Well inside the two seconds a key binding may wait for the command.
constexpr int kAnswerTimeoutMs = 1500;

} // namespace

int runTriggerCommand(ControlRequest request, std::FILE *err)
{
    switch (sendControlRequest(request, instanceDirectory(), kAnswerTimeoutMs)) {
    case ControlDelivery::delivered:
        return 0;
    case ControlDelivery::notRunning:
        std::fputs("sayvo trigger: Sayvo is not running.\n", err);
        return 1;
    case ControlDelivery::notAnswering:
        std::fputs("sayvo trigger: Sayvo is running but does not answer.\n", err);
        return 1;
    case ControlDelivery::refused:
        std::fputs("sayvo trigger: the running Sayvo refused the request.\n", err);
        return 1;
    }
    return 1;
}

} // namespace sayvo
