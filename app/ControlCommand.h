#pragma once

#include <optional>

namespace sayvo {

// `sayvo trigger press|release|toggle`: hands the verb to this user's running Sayvo, so that
// any compositor's key binding can drive dictation. The process's exit code when the command
// line is this command (0 delivered, 1 no Sayvo running or answering, 2 a wrong command
// line), nothing otherwise. Touches no display and uses no Qt: the `sayvo` launcher runs it
// before the application is even loaded.
std::optional<int> runControlCommand(int argc, char **argv);

} // namespace sayvo
