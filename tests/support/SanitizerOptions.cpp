// Built into the sanitized test executables only: the sanitizers' settings live in the binary,
// so CTest's discovery run and a developer's direct run behave as the test run does.
// The runtimes look these hooks up by their reserved names.
extern "C" {

// Every finding ends the run; leaks count too.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
const char *__asan_default_options()
{
    return "detect_leaks=1:abort_on_error=0:halt_on_error=1:strict_string_checks=1";
}

// NOLINTNEXTLINE(bugprone-reserved-identifier)
const char *__ubsan_default_options()
{
    return "print_stacktrace=1:halt_on_error=1";
}

// Allocations that Qt and the system libraries keep for the life of the process on purpose
// (plugin and font caches, the D-Bus and GLib singletons). Sayvo's own code is not listed.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
const char *__lsan_default_suppressions()
{
    return "leak:libQt6Core.so\n"
           "leak:libQt6Gui.so\n"
           "leak:libQt6Network.so\n"
           "leak:libQt6DBus.so\n"
           "leak:libdbus-1.so\n"
           "leak:libglib-2.0.so\n"
           "leak:libfontconfig.so\n";
}
}
