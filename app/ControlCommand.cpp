#include "app/ControlCommand.h"

#include "runtime/ControlClient.h"

#include <cstdio>
#include <cstring>

namespace sayvo {

namespace {

// Well inside the two seconds a key binding may wait for the command.
constexpr int kAnswerTimeoutMs = 1500;

const char *const kUsage = "usage: sayvo trigger press|release|toggle\n"
                           "  press    the trigger key went down (bind it to the key's press)\n"
                           "  release  the trigger key came up (bind it to the key's release)\n"
                           "  toggle   one press and release (for a desktop's custom shortcut)\n";

} // namespace

std::optional<int> runControlCommand(int argc, char **argv)
{
    if (argc < 2 || std::strcmp(argv[1], "trigger") != 0) {
        return std::nullopt;
    }
    const std::optional<ControlRequest> request
        = argc == 3 ? triggerRequest(argv[2]) : std::nullopt;
    if (!request) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    switch (sendControlRequest(*request, instanceDirectory(), kAnswerTimeoutMs)) {
    case ControlDelivery::delivered:
        return 0;
    case ControlDelivery::notRunning:
        std::fputs("sayvo trigger: Sayvo is not running.\n", stderr);
        return 1;
    case ControlDelivery::notAnswering:
        std::fputs("sayvo trigger: Sayvo is running but does not answer.\n", stderr);
        return 1;
    case ControlDelivery::refused:
        std::fputs("sayvo trigger: the running Sayvo refused the request.\n", stderr);
        return 1;
    }
    return 1;
}

} // namespace sayvo
