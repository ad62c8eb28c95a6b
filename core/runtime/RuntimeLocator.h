#pragma once

#include "runtime/AppBundle.h"

#include <QString>

#include <optional>

namespace sayvo {

// Where the engine lives: the read-only payload shipped with the app, the per-user install
// root that provisioning fills, and optionally a complete runtime adopted from elsewhere (a
// developer checkout, or the directory named by SAYVO_RUNTIME_ROOT). An immutable value that
// may be read from any thread; every status property asks the file system afresh, so the
// answers follow the disk as provisioning and uninstall change it. Paths are absolute and
// carry no trailing slash.
class RuntimeLocator
{
public:
    // `bundledEngine` is the engine program when the application ships it outside the payload.
    RuntimeLocator(const QString &payloadDir, const QString &installRoot, QString appVersion,
        std::optional<QString> adoptedAppDir = std::nullopt,
        std::optional<QString> bundledEngine = std::nullopt);

    // The locator the application uses. The overrides replace the payload directory and
    // the install root (tests, special set-ups); absent in normal runs.
    static RuntimeLocator standard(const AppBundle &bundle,
        const std::optional<QString> &payloadOverride = std::nullopt,
        const std::optional<QString> &installOverride = std::nullopt);

    // A complete runtime outside the install root: SAYVO_RUNTIME_ROOT when it names one, else
    // the nearest of the bundle's first kMaxAncestors ancestors that holds one with models.
    static std::optional<QString> resolveAdoptedAppDir(const std::optional<QString> &bundlePath);

    const QString &payloadDir() const { return m_payloadDir; }
    const QString &installRoot() const { return m_installRoot; }
    const QString &appVersion() const { return m_appVersion; }
    const std::optional<QString> &adoptedAppDir() const { return m_adoptedAppDir; }
    // The engine program provisioning installs instead of the payload's own.
    const std::optional<QString> &bundledEngine() const { return m_bundledEngine; }

    QString bootstrapScript() const;
    QString runScript() const;
    QString uninstallScript() const;
    QString effectiveAppDir() const;

    bool hasPayload() const;
    bool isAdopted() const { return m_adoptedAppDir.has_value(); }
    bool isProvisioned() const;
    std::optional<QString> provisionedVersion() const;
    bool needsProvisioning() const;
    bool needsUpdate() const;

    static constexpr int kMaxAncestors = 8;
    static constexpr const char *kPayloadDirVariable = "SAYVO_PAYLOAD_DIR";
    static constexpr const char *kRuntimeRootVariable = "SAYVO_RUNTIME_ROOT";
    static constexpr const char *kDevVersion = "dev";
    static constexpr const char *kEngineProgram = "sayvo-engine";

private:
    bool hasInstalledRuntime() const;

    QString m_payloadDir;
    QString m_installRoot;
    QString m_appVersion;
    std::optional<QString> m_adoptedAppDir;
    std::optional<QString> m_bundledEngine;
};

} // namespace sayvo
