#pragma once

#include <QFile>
#include <QString>
#include <QtGlobal>

namespace sayvo::test {

// The resident set size of a process in KiB (this process without an argument), read from
// /proc/PID/status; -1 when it cannot be read (the process is gone, or no /proc).
inline qint64 residentKiB(qint64 pid = 0)
{
    QFile status(
        pid > 0 ? QStringLiteral("/proc/%1/status").arg(pid) : QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) {
        return -1;
    }
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:")) {
            bool ok = false;
            const qint64 kib = line.mid(6).trimmed().split(' ').first().toLongLong(&ok);
            return ok ? kib : -1;
        }
    }
    return -1;
}

} // namespace sayvo::test
