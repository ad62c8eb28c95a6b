#include "runtime/RuntimeLocator.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using sayvo::AppBundle;
using sayvo::RuntimeLocator;

namespace {

// Each test starts without the two variables and leaves them as it found them.
class RuntimeLocatorTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        save("SAYVO_RUNTIME_ROOT", m_savedRoot);
        save("SAYVO_PAYLOAD_DIR", m_savedPayload);
        ASSERT_TRUE(m_dir.isValid());
    }
    void TearDown() override
    {
        restore("SAYVO_RUNTIME_ROOT", m_savedRoot);
        restore("SAYVO_PAYLOAD_DIR", m_savedPayload);
    }

    QString path(const QString &relative) const
    {
        return m_dir.path() + QLatin1Char('/') + relative;
    }
    void mkdir(const QString &relative) const { ASSERT_TRUE(QDir().mkpath(path(relative))); }
    void write(const QString &relative, const QByteArray &content) const
    {
        QDir().mkpath(QFileInfo(path(relative)).path());
        QFile file(path(relative));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(content);
    }
    // A runtime at `relative`: .venv and engine, with models/streaming when asked.
    void makeRuntime(const QString &relative, bool withModels) const
    {
        mkdir(relative + QStringLiteral("/.venv"));
        mkdir(relative + QStringLiteral("/engine"));
        if (withModels) {
            mkdir(relative + QStringLiteral("/models/streaming"));
        }
    }
    // A bundle `depth` directories below the runtime: its parent is the first ancestor.
    QString bundleBelow(const QString &relative, int depth) const
    {
        QString dir = relative;
        for (int i = 1; i < depth; ++i) {
            dir += QStringLiteral("/d%1").arg(i);
        }
        mkdir(dir + QStringLiteral("/Sayvo.app"));
        return path(dir + QStringLiteral("/Sayvo.app"));
    }
    RuntimeLocator installLocator(
        const QString &appVersion, const std::optional<QString> &adopted = std::nullopt) const
    {
        return RuntimeLocator(
            path(QStringLiteral("payload")), path(QStringLiteral("install")), appVersion, adopted);
    }

    QTemporaryDir m_dir;

private:
    static void save(const char *name, std::optional<QByteArray> &slot)
    {
        if (qEnvironmentVariableIsSet(name)) {
            slot = qgetenv(name);
        }
        qunsetenv(name);
    }
    static void restore(const char *name, const std::optional<QByteArray> &slot)
    {
        if (slot) {
            qputenv(name, *slot);
        } else {
            qunsetenv(name);
        }
    }
    std::optional<QByteArray> m_savedRoot;
    std::optional<QByteArray> m_savedPayload;
};

TEST_F(RuntimeLocatorTest, RuntimeRootWithoutModelsIsAdopted)
{
    makeRuntime(QStringLiteral("named"), false);
    qputenv("SAYVO_RUNTIME_ROOT", path(QStringLiteral("named")).toUtf8());
    EXPECT_EQ(RuntimeLocator::resolveAdoptedAppDir(std::nullopt), path(QStringLiteral("named")));
}

TEST_F(RuntimeLocatorTest, WalkAdoptsACheckoutOnlyWithModels)
{
    makeRuntime(QStringLiteral("checkout"), false);
    const QString bundle = bundleBelow(QStringLiteral("checkout"), 3);
    EXPECT_EQ(RuntimeLocator::resolveAdoptedAppDir(bundle), std::nullopt);

    mkdir(QStringLiteral("checkout/models/streaming"));
    EXPECT_EQ(RuntimeLocator::resolveAdoptedAppDir(bundle), path(QStringLiteral("checkout")));
}

TEST_F(RuntimeLocatorTest, EmptyRuntimeRootIsIgnoredAndTheWalkProceeds)
{
    makeRuntime(QStringLiteral("checkout"), true);
    const QString bundle = bundleBelow(QStringLiteral("checkout"), 2);
    qputenv("SAYVO_RUNTIME_ROOT", "");
    EXPECT_EQ(RuntimeLocator::resolveAdoptedAppDir(bundle), path(QStringLiteral("checkout")));
}

TEST_F(RuntimeLocatorTest, RuntimeRootWithoutVenvIsIgnoredAndTheWalkProceeds)
{
    mkdir(QStringLiteral("novenv/engine"));
    makeRuntime(QStringLiteral("checkout"), true);
    const QString bundle = bundleBelow(QStringLiteral("checkout"), 2);
    qputenv("SAYVO_RUNTIME_ROOT", path(QStringLiteral("novenv")).toUtf8());
    EXPECT_EQ(RuntimeLocator::resolveAdoptedAppDir(bundle), path(QStringLiteral("checkout")));
    EXPECT_EQ(RuntimeLocator::resolveAdoptedAppDir(std::nullopt), std::nullopt);
}

TEST_F(RuntimeLocatorTest, RuntimeAtTheEighthAncestorIsFound)
{
    makeRuntime(QStringLiteral("checkout"), true);
    const QString bundle = bundleBelow(QStringLiteral("checkout"), 8);
    EXPECT_EQ(RuntimeLocator::resolveAdoptedAppDir(bundle), path(QStringLiteral("checkout")));
}

TEST_F(RuntimeLocatorTest, RuntimeAtTheNinthAncestorIsNotFound)
{
    makeRuntime(QStringLiteral("checkout"), true);
    const QString bundle = bundleBelow(QStringLiteral("checkout"), 9);
    EXPECT_EQ(RuntimeLocator::resolveAdoptedAppDir(bundle), std::nullopt);
}

TEST_F(RuntimeLocatorTest, NearestRuntimeWins)
{
    makeRuntime(QStringLiteral("outer"), true);
    makeRuntime(QStringLiteral("outer/inner"), true);
    const QString bundle = bundleBelow(QStringLiteral("outer/inner"), 2);
    EXPECT_EQ(RuntimeLocator::resolveAdoptedAppDir(bundle), path(QStringLiteral("outer/inner")));
}

TEST_F(RuntimeLocatorTest, WalkStopsAtTheRootDirectory)
{
    EXPECT_EQ(RuntimeLocator::resolveAdoptedAppDir(QStringLiteral("/Sayvo.app")), std::nullopt);
    EXPECT_EQ(RuntimeLocator::resolveAdoptedAppDir(QStringLiteral("/")), std::nullopt);
}

TEST_F(RuntimeLocatorTest, MatchingVersionStampNeedsNoUpdate)
{
    mkdir(QStringLiteral("install/app/.venv"));
    write(QStringLiteral("install/VERSION"), "1.4.0\n");
    const RuntimeLocator locator = installLocator(QStringLiteral("1.4.0"));
    EXPECT_TRUE(locator.isProvisioned());
    EXPECT_EQ(locator.provisionedVersion(), QStringLiteral("1.4.0"));
    EXPECT_FALSE(locator.needsUpdate());
    EXPECT_FALSE(locator.needsProvisioning());
}

TEST_F(RuntimeLocatorTest, OtherVersionStampNeedsUpdate)
{
    mkdir(QStringLiteral("install/app/.venv"));
    write(QStringLiteral("install/VERSION"), "1.4.0\n");
    const RuntimeLocator locator = installLocator(QStringLiteral("1.4.1"));
    EXPECT_TRUE(locator.isProvisioned());
    EXPECT_TRUE(locator.needsUpdate());
    EXPECT_TRUE(locator.needsProvisioning());
}

TEST_F(RuntimeLocatorTest, MissingVersionStampMeansNotProvisioned)
{
    mkdir(QStringLiteral("install/app/.venv"));
    write(QStringLiteral("install/VERSION"), "1.4.0\n");
    const RuntimeLocator locator = installLocator(QStringLiteral("1.4.0"));
    ASSERT_TRUE(QFile::remove(path(QStringLiteral("install/VERSION"))));
    // The same value answers differently: every property looks at the disk again.
    EXPECT_FALSE(locator.isProvisioned());
    EXPECT_TRUE(locator.needsProvisioning());
    EXPECT_FALSE(locator.needsUpdate());
    EXPECT_EQ(locator.provisionedVersion(), std::nullopt);
}

TEST_F(RuntimeLocatorTest, EmptyInstallRootNeedsProvisioningNotUpdate)
{
    const RuntimeLocator locator = installLocator(QStringLiteral("1.0.0"));
    EXPECT_FALSE(locator.isProvisioned());
    EXPECT_TRUE(locator.needsProvisioning());
    EXPECT_FALSE(locator.needsUpdate());
}

TEST_F(RuntimeLocatorTest, AdoptedRuntimeNeverNeedsProvisioningOrUpdate)
{
    makeRuntime(QStringLiteral("checkout"), true);
    mkdir(QStringLiteral("install/app/.venv"));
    write(QStringLiteral("install/VERSION"), "0.9.0\n");
    const RuntimeLocator stale
        = installLocator(QStringLiteral("1.0.0"), path(QStringLiteral("checkout")));
    EXPECT_TRUE(stale.isAdopted());
    EXPECT_TRUE(stale.isProvisioned());
    EXPECT_FALSE(stale.needsUpdate());
    EXPECT_FALSE(stale.needsProvisioning());
    EXPECT_EQ(stale.effectiveAppDir(), path(QStringLiteral("checkout")));

    const RuntimeLocator empty = RuntimeLocator(path(QStringLiteral("payload")),
        path(QStringLiteral("nothing")), QStringLiteral("1.0.0"), path(QStringLiteral("checkout")));
    EXPECT_TRUE(empty.isProvisioned());
    EXPECT_FALSE(empty.needsProvisioning());
}

TEST_F(RuntimeLocatorTest, BundleWithoutVersionIsDevAndStampedRootNeedsUpdate)
{
    mkdir(QStringLiteral("install/app/.venv"));
    write(QStringLiteral("install/VERSION"), "1.4.0\n");
    const AppBundle bundle {
        std::nullopt, path(QStringLiteral("resources")), std::nullopt, std::nullopt};
    const RuntimeLocator locator
        = RuntimeLocator::standard(bundle, std::nullopt, path(QStringLiteral("install")));
    EXPECT_EQ(locator.appVersion(), QStringLiteral("dev"));
    EXPECT_TRUE(locator.needsUpdate());
}

TEST_F(RuntimeLocatorTest, StandardTakesTheBundleVersion)
{
    const AppBundle bundle {
        std::nullopt, path(QStringLiteral("resources")), QStringLiteral("2.1.0"), std::nullopt};
    EXPECT_EQ(RuntimeLocator::standard(bundle, std::nullopt, path(QStringLiteral("install")))
                  .appVersion(),
        QStringLiteral("2.1.0"));
}

TEST_F(RuntimeLocatorTest, StandardPayloadComesFromOverrideThenVariableThenResources)
{
    const AppBundle bundle {
        std::nullopt, path(QStringLiteral("resources")), std::nullopt, std::nullopt};
    const QString install = path(QStringLiteral("install"));

    EXPECT_EQ(RuntimeLocator::standard(bundle, std::nullopt, install).payloadDir(),
        path(QStringLiteral("resources/engine-payload")));

    qputenv("SAYVO_PAYLOAD_DIR", path(QStringLiteral("from-env")).toUtf8());
    EXPECT_EQ(RuntimeLocator::standard(bundle, std::nullopt, install).payloadDir(),
        path(QStringLiteral("from-env")));

    EXPECT_EQ(
        RuntimeLocator::standard(bundle, path(QStringLiteral("override")), install).payloadDir(),
        path(QStringLiteral("override")));
}

TEST_F(RuntimeLocatorTest, TheBundlesEngineIsItsHelperAndCountsAsPayload)
{
    const AppBundle bundle {path(QStringLiteral("Sayvo.app")), path(QStringLiteral("resources")),
        QStringLiteral("2.1.0"), path(QStringLiteral("helpers"))};
    const QString install = path(QStringLiteral("install"));
    const RuntimeLocator locator = RuntimeLocator::standard(bundle, std::nullopt, install);
    EXPECT_EQ(locator.bundledEngine(), path(QStringLiteral("helpers/sayvo-engine")));

    write(QStringLiteral("resources/engine-payload/scripts/bootstrap_runtime.sh"), "#!/bin/bash\n");
    EXPECT_FALSE(locator.hasPayload());
    write(QStringLiteral("helpers/sayvo-engine"), "the engine");
    EXPECT_TRUE(locator.hasPayload());

    // A payload named from outside brings its own engine.
    EXPECT_EQ(
        RuntimeLocator::standard(bundle, path(QStringLiteral("override")), install).bundledEngine(),
        std::nullopt);
    qputenv("SAYVO_PAYLOAD_DIR", path(QStringLiteral("from-env")).toUtf8());
    EXPECT_EQ(
        RuntimeLocator::standard(bundle, std::nullopt, install).bundledEngine(), std::nullopt);
}

TEST_F(RuntimeLocatorTest, StandardInstallRootIsUnderTheUserDataDirectory)
{
    const QByteArray savedXdg = qgetenv("XDG_DATA_HOME");
    qputenv("XDG_DATA_HOME", path(QStringLiteral("xdg")).toUtf8());
    const AppBundle bundle {
        std::nullopt, path(QStringLiteral("resources")), std::nullopt, std::nullopt};
    const QString installRoot = RuntimeLocator::standard(bundle).installRoot();
    qputenv("XDG_DATA_HOME", savedXdg);
    EXPECT_EQ(installRoot, path(QStringLiteral("xdg/SayvoApp/runtime")));

    EXPECT_EQ(
        RuntimeLocator::standard(bundle, std::nullopt, path(QStringLiteral("mine"))).installRoot(),
        path(QStringLiteral("mine")));
}

TEST_F(RuntimeLocatorTest, StandardAdoptsACheckoutAboveTheBundle)
{
    makeRuntime(QStringLiteral("checkout"), true);
    const AppBundle bundle {bundleBelow(QStringLiteral("checkout"), 3),
        path(QStringLiteral("resources")), std::nullopt, std::nullopt};
    const RuntimeLocator locator
        = RuntimeLocator::standard(bundle, std::nullopt, path(QStringLiteral("install")));
    EXPECT_EQ(locator.adoptedAppDir(), path(QStringLiteral("checkout")));
    EXPECT_EQ(locator.effectiveAppDir(), path(QStringLiteral("checkout")));
}

TEST_F(RuntimeLocatorTest, DerivedPaths)
{
    const RuntimeLocator locator = installLocator(QStringLiteral("1.0.0"));
    EXPECT_EQ(
        locator.bootstrapScript(), path(QStringLiteral("payload/scripts/bootstrap_runtime.sh")));
    EXPECT_EQ(locator.runScript(), path(QStringLiteral("payload/scripts/run_engine.sh")));
    EXPECT_EQ(locator.uninstallScript(), path(QStringLiteral("payload/scripts/uninstall.sh")));
    EXPECT_EQ(locator.effectiveAppDir(), path(QStringLiteral("install/app")));
    EXPECT_FALSE(locator.isAdopted());
}

TEST_F(RuntimeLocatorTest, PayloadNeedsEngineAndBootstrapScript)
{
    const RuntimeLocator locator = installLocator(QStringLiteral("1.0.0"));
    EXPECT_FALSE(locator.hasPayload());
    mkdir(QStringLiteral("payload/engine"));
    EXPECT_FALSE(locator.hasPayload());
    write(QStringLiteral("payload/scripts/bootstrap_runtime.sh"), "#!/bin/bash\n");
    EXPECT_TRUE(locator.hasPayload());
    ASSERT_TRUE(QDir(path(QStringLiteral("payload/engine"))).removeRecursively());
    write(QStringLiteral("payload/engine"), "a file counts too");
    EXPECT_TRUE(locator.hasPayload());
}

TEST_F(RuntimeLocatorTest, VersionStampIsTrimmed)
{
    mkdir(QStringLiteral("install/app/.venv"));
    write(QStringLiteral("install/VERSION"), " \t1.4.0 \r\n\n");
    EXPECT_EQ(
        installLocator(QStringLiteral("1.4.0")).provisionedVersion(), QStringLiteral("1.4.0"));
    EXPECT_FALSE(installLocator(QStringLiteral("1.4.0")).needsUpdate());
}

TEST_F(RuntimeLocatorTest, UnreadableVersionStampNeedsUpdate)
{
    mkdir(QStringLiteral("install/app/.venv"));
    mkdir(QStringLiteral("install/VERSION")); // exists, but cannot be read as a file
    const RuntimeLocator locator = installLocator(QStringLiteral("1.4.0"));
    EXPECT_TRUE(locator.isProvisioned());
    EXPECT_EQ(locator.provisionedVersion(), std::nullopt);
    EXPECT_TRUE(locator.needsUpdate());
}

} // namespace
