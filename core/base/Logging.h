#pragma once

#include <QLoggingCategory>
#include <QString>

namespace sayvo {

Q_DECLARE_LOGGING_CATEGORY(lcApp)

// The one process-wide logger (subsystem "com.sayvoapp.shell", category "app"). Each call
// writes the whole message as one line at its level; on Linux the lines go to stderr, which
// systemd and desktop session managers route into the journal, on macOS to os_log under the
// subsystem and category below (installSystemLog). Safe to call from any thread.
class Logging
{
public:
    static Logging &shared();

    void info(const QString &message) const;
    void error(const QString &message) const;
    void debug(const QString &message) const;

    static constexpr const char *kSubsystem = "com.sayvoapp.shell";
    static constexpr const char *kCategory = "app";

private:
    Logging() = default;
};

} // namespace sayvo
