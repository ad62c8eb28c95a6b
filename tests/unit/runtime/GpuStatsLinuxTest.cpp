#include "runtime/linux/GpuStatsLinux.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using sayvo::GpuStatsLinux;

namespace {

class GpuStatsLinuxTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        QDir().mkpath(drmRoot());
        QDir().mkpath(emptyBin());
        qunsetenv("SAYVO_FAKE_SMI_OUTPUT");
        qunsetenv("SAYVO_FAKE_SMI_FAIL");
    }
    void TearDown() override
    {
        qunsetenv("SAYVO_FAKE_SMI_OUTPUT");
        qunsetenv("SAYVO_FAKE_SMI_FAIL");
    }

    QString drmRoot() const { return m_dir.path() + QStringLiteral("/drm"); }
    QString emptyBin() const { return m_dir.path() + QStringLiteral("/bin"); }
    static QString smiBin() { return QStringLiteral(SAYVO_RUNTIME_FIXTURE_BIN_DIR); }

    // A DRM entry as the kernel lays it out: <entry>/device/gpu_busy_percent.
    void addCard(const QString &entry, const QByteArray &busy) const
    {
        const QString device = drmRoot() + QLatin1Char('/') + entry + QStringLiteral("/device");
        ASSERT_TRUE(QDir().mkpath(device));
        if (!busy.isNull()) {
            QFile file(device + QStringLiteral("/gpu_busy_percent"));
            ASSERT_TRUE(file.open(QIODevice::WriteOnly));
            file.write(busy);
        }
    }

    QTemporaryDir m_dir;
};

TEST_F(GpuStatsLinuxTest, NothingAnswersGivesNothing)
{
    addCard(QStringLiteral("card0-DP-1"), QByteArray());
    EXPECT_EQ(GpuStatsLinux(drmRoot(), {emptyBin()}).utilisationPercent(), std::nullopt);
    EXPECT_EQ(
        GpuStatsLinux(m_dir.path() + QStringLiteral("/absent"), {emptyBin()}).utilisationPercent(),
        std::nullopt);
}

TEST_F(GpuStatsLinuxTest, HighestDrmBusyPercentWins)
{
    addCard(QStringLiteral("card0"), "17\n");
    addCard(QStringLiteral("card1"), "64\n");
    addCard(QStringLiteral("card1-HDMI-A-1"), QByteArray());
    addCard(QStringLiteral("card2"), "garbage\n");
    EXPECT_EQ(GpuStatsLinux(drmRoot(), {emptyBin()}).utilisationPercent(), 64.0);
}

TEST_F(GpuStatsLinuxTest, NvidiaSmiAloneAnswers)
{
    EXPECT_EQ(GpuStatsLinux(drmRoot(), {smiBin()}).utilisationPercent(), 55.0);
}

TEST_F(GpuStatsLinuxTest, LargerOfDrmAndNvidiaSmi)
{
    addCard(QStringLiteral("card0"), "70\n");
    EXPECT_EQ(GpuStatsLinux(drmRoot(), {smiBin()}).utilisationPercent(), 70.0);
    qputenv("SAYVO_FAKE_SMI_OUTPUT", "3\\n91\\n");
    EXPECT_EQ(GpuStatsLinux(drmRoot(), {smiBin()}).utilisationPercent(), 91.0);
}

TEST_F(GpuStatsLinuxTest, FailingNvidiaSmiIsIgnored)
{
    qputenv("SAYVO_FAKE_SMI_FAIL", "1");
    EXPECT_EQ(GpuStatsLinux(drmRoot(), {smiBin()}).utilisationPercent(), std::nullopt);
    addCard(QStringLiteral("card0"), "8");
    EXPECT_EQ(GpuStatsLinux(drmRoot(), {smiBin()}).utilisationPercent(), 8.0);
}

TEST(NvidiaSmiOutput, HighestFigureOfTheParsableLines)
{
    EXPECT_EQ(GpuStatsLinux::parseNvidiaSmi("45\n[N/A]\n7\n"), 45.0);
    EXPECT_EQ(GpuStatsLinux::parseNvidiaSmi(" 5 \r\n"), 5.0);
    EXPECT_EQ(GpuStatsLinux::parseNvidiaSmi("[N/A]\n"), std::nullopt);
    EXPECT_EQ(GpuStatsLinux::parseNvidiaSmi(""), std::nullopt);
}

} // namespace
