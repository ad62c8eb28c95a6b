#include "runtime/RuntimeLocator.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

namespace sayvo {

namespace {

QString absoluteDir(const QString &path)
{
    return QDir::cleanPath(QDir::current().absoluteFilePath(path));
}

QString join(const QString &dir, const QString &relative)
{
    return QDir::cleanPath(dir + QLatin1Char('/') + relative);
}

// Files and directories count alike: the scripts only need something to be there.
bool exists(const QString &path)
{
    return QFileInfo::exists(path);
}

bool isRuntime(const QString &dir, bool requireModels)
{
    return exists(join(dir, QStringLiteral(".venv"))) && exists(join(dir, QStringLiteral("engine")))
        && (!requireModels || exists(join(dir, QStringLiteral("models/streaming"))));
}

} // namespace

RuntimeLocator::RuntimeLocator(const QString &payloadDir, const QString &installRoot,
    QString appVersion, std::optional<QString> adoptedAppDir, std::optional<QString> bundledEngine)
    : m_payloadDir(absoluteDir(payloadDir)),
      m_installRoot(absoluteDir(installRoot)),
      m_appVersion(std::move(appVersion)),
      m_adoptedAppDir(
          adoptedAppDir ? std::optional<QString>(absoluteDir(*adoptedAppDir)) : std::nullopt),
      m_bundledEngine(std::move(bundledEngine))
{ }

RuntimeLocator RuntimeLocator::standard(const AppBundle &bundle,
    const std::optional<QString> &payloadOverride, const std::optional<QString> &installOverride)
{
    QString payload;
    // A payload named from outside brings its own engine; the bundle's helper goes with the
    // bundle's payload.
    std::optional<QString> bundledEngine;
    if (payloadOverride) {
        payload = *payloadOverride;
    } else if (qEnvironmentVariableIsSet(kPayloadDirVariable)) {
        payload = qEnvironmentVariable(kPayloadDirVariable);
    } else {
        if (bundle.resourceDir.isEmpty()) {
            qFatal("the application has no resource directory");
        }
        payload = join(bundle.resourceDir, QStringLiteral("engine-payload"));
        if (bundle.helperDir) {
            bundledEngine = join(*bundle.helperDir, QString::fromLatin1(kEngineProgram));
        }
    }

    QString install;
    if (installOverride) {
        install = *installOverride;
    } else {
        const QString dataDir = userDataDirectory();
        if (dataDir.isEmpty()) {
            qFatal("there is no per-user data directory");
        }
        install = join(dataDir, QStringLiteral("SayvoApp/runtime"));
    }

    return RuntimeLocator(payload, install,
        bundle.shortVersion.value_or(QString::fromLatin1(kDevVersion)),
        resolveAdoptedAppDir(bundle.bundlePath), std::move(bundledEngine));
}

std::optional<QString> RuntimeLocator::resolveAdoptedAppDir(
    const std::optional<QString> &bundlePath)
{
    const QString named = qEnvironmentVariable(kRuntimeRootVariable);
    if (!named.isEmpty()) {
        const QString dir = absoluteDir(named);
        if (isRuntime(dir, false)) {
            return dir;
        }
    }
    if (!bundlePath) {
        return std::nullopt;
    }

    QString dir = absoluteDir(*bundlePath);
    for (int examined = 0; examined < kMaxAncestors; ++examined) {
        dir = QFileInfo(dir).path();
        if (dir == QLatin1String("/")) {
            return std::nullopt;
        }
        if (isRuntime(dir, true)) {
            return dir;
        }
    }
    return std::nullopt;
}

QString RuntimeLocator::bootstrapScript() const
{
    return join(m_payloadDir, QStringLiteral("scripts/bootstrap_runtime.sh"));
}

QString RuntimeLocator::runScript() const
{
    return join(m_payloadDir, QStringLiteral("scripts/run_engine.sh"));
}

QString RuntimeLocator::uninstallScript() const
{
    return join(m_payloadDir, QStringLiteral("scripts/uninstall.sh"));
}

QString RuntimeLocator::effectiveAppDir() const
{
    return m_adoptedAppDir.value_or(join(m_installRoot, QStringLiteral("app")));
}

bool RuntimeLocator::hasPayload() const
{
    const bool engine = exists(join(m_payloadDir, QStringLiteral("engine")))
        || (m_bundledEngine && exists(*m_bundledEngine));
    return engine && exists(bootstrapScript());
}

bool RuntimeLocator::hasInstalledRuntime() const
{
    return exists(join(m_installRoot, QStringLiteral("app/.venv")))
        && exists(join(m_installRoot, QStringLiteral("VERSION")));
}

bool RuntimeLocator::isProvisioned() const
{
    return isAdopted() || hasInstalledRuntime();
}

std::optional<QString> RuntimeLocator::provisionedVersion() const
{
    QFile file(join(m_installRoot, QStringLiteral("VERSION")));
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(file.readAll());
    if (decoder.hasError()) {
        return std::nullopt;
    }
    return text.trimmed();
}

bool RuntimeLocator::needsUpdate() const
{
    if (isAdopted() || !hasInstalledRuntime()) {
        return false;
    }
    const std::optional<QString> stamped = provisionedVersion();
    return !stamped || *stamped != m_appVersion;
}

bool RuntimeLocator::needsProvisioning() const
{
    if (isAdopted()) {
        return false;
    }
    return !hasInstalledRuntime() || needsUpdate();
}

} // namespace sayvo
