#pragma once

#include <sys/types.h>

namespace sayvo {

// Run in a child between fork and exec: the child ends (SIGTERM) when `parent` does, however
// the parent ends (killed, or exited by Qt when the display connection broke), so an engine
// never outlives the app that started it. Async-signal-safe. Defined once per platform; a
// no-op where the system has no such tie.
void endWithParent(pid_t parent);

} // namespace sayvo
