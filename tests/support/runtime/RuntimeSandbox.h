#pragma once

#include "runtime/RuntimeLocator.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <optional>

#include <sys/types.h>

namespace sayvo::test {

// A fixture script from tests/support/runtime/scripts.
QString fixtureScript(const QString &name);

// A temporary tree with an engine payload (fixture scripts chosen per test) and an install
// root, removed at the end of the test.
class RuntimeSandbox
{
public:
    RuntimeSandbox();

    QString root() const { return m_dir.path(); }
    QString payloadDir() const { return root() + QStringLiteral("/payload"); }
    QString installRoot() const { return root() + QStringLiteral("/install"); }
    QString appDir() const { return installRoot() + QStringLiteral("/app"); }

    // payload/engine plus the chosen fixtures as payload/scripts/{run_engine,
    // bootstrap_runtime,uninstall}.sh; an empty name leaves that script out.
    void writePayload(const QString &runScript,
        const QString &bootstrapScript = QStringLiteral("bootstrap_success.sh"),
        const QString &uninstallScript = QString());
    // A runtime in the install root stamped with `version`.
    void provision(const QString &version);

    RuntimeLocator locator(const QString &appVersion = QStringLiteral("1.0.0"),
        const std::optional<QString> &bundledEngine = std::nullopt) const;

    // Lines a fixture wrote under the install root (launches, pids, ...); empty when absent.
    QStringList readLines(const QString &relativePath) const;
    // Every process id the fixtures recorded in their "pids" files.
    QList<pid_t> recordedPids() const;

private:
    QTemporaryDir m_dir;
};

// Whether the process exists and is not a zombie.
bool processAlive(pid_t pid);
// Waits (running the event loop) until none of the processes is alive; true when so.
bool waitUntilGone(const QList<pid_t> &pids, int timeoutMs);

} // namespace sayvo::test
