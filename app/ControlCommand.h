#pragma once

#include "protocol/ControlMessages.h"

#include <cstdio>

namespace sayvo {

// `sayvo trigger press|release|toggle`: hands the verb to this user's running Sayvo, so that
// any compositor's key binding can drive dictation. Returns the process's exit code: 0
// delivered, 1 no Sayvo running or answering (said in one line on `err`). Touches no display
// and uses no Qt: the `sayvo` launcher runs it before the application is even loaded.
int runTriggerCommand(ControlRequest request, std::FILE *err);

} // namespace sayvo
