#pragma once

#include <QLoggingCategory>

namespace sayvo {

Q_DECLARE_LOGGING_CATEGORY(lcLatency)

// Marks one moment of a dictation ("trigger-down", "microphone-open", "trigger-up",
// "end-sent", "final-received", "text-inserted", "clipboard-served") as a line
// "latency: <mark> <steady_clock nanoseconds> cpu <ns> waited <ns>", for measuring the path
// from key to text against clocks outside this process (CLOCK_MONOTONIC on Linux). cpu is the
// calling thread's CPU time so far and waited the time it spent runnable but not running
// (the kernel's run delay, where the system reports it): between two marks of one thread,
// wall time minus both is time spent blocked.
// Silent unless the category is switched on:
//   QT_LOGGING_RULES="com.sayvoapp.shell.latency.debug=true"
// Costs one atomic load when off. Safe to call from any thread.
void markLatency(const char *mark);

} // namespace sayvo
