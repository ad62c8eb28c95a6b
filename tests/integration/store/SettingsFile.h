#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace sayvo {

// A preference file in a fresh temporary directory. Qt keeps a parsed copy of every settings
// file it has opened in this process, so a "relaunch" opens a byte-for-byte copy under a new
// name: that copy is parsed from disk, exactly as the next run of the app would parse it.
class SettingsFile
{
public:
    SettingsFile() { EXPECT_TRUE(m_dir.isValid()); }

    QString path() const { return m_dir.filePath(QStringLiteral("Sayvo.conf")); }

    void write(const QByteArray &contents) const
    {
        QFile file(path());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(contents);
    }

    QByteArray contents() const
    {
        QFile file(path());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    // A copy of the file as it is on disk now, under a name Qt has not seen.
    QString freshCopy()
    {
        QString copy = m_dir.filePath(QStringLiteral("Sayvo-%1.conf").arg(++m_copies));
        EXPECT_TRUE(QFile::copy(path(), copy));
        return copy;
    }

private:
    QTemporaryDir m_dir;
    int m_copies = 0;
};

} // namespace sayvo
