#pragma once

#include <QDir>
#include <QFile>
#include <QString>
#include <QtGlobal>

#include <vector>

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

// One thread's context switches so far, voluntary plus involuntary, as the kernel counts
// them in /proc/PID/task/TID/status: every time the thread went to sleep or was put off
// the processor. A thread that nothing wakes keeps its count.
struct ThreadSwitches
{
    qint64 tid = 0;
    QString name;
    qint64 switches = 0;
};

inline std::vector<ThreadSwitches> threadSwitches(qint64 pid)
{
    std::vector<ThreadSwitches> threads;
    const QString taskDir = QStringLiteral("/proc/%1/task").arg(pid);
    for (const QString &tid : QDir(taskDir).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile status(taskDir + QLatin1Char('/') + tid + QStringLiteral("/status"));
        if (!status.open(QIODevice::ReadOnly)) {
            continue; // the thread ended meanwhile
        }
        ThreadSwitches thread;
        thread.tid = tid.toLongLong();
        for (const QByteArray &line : status.readAll().split('\n')) {
            if (line.startsWith("Name:")) {
                thread.name = QString::fromUtf8(line.mid(5).trimmed());
            } else if (line.startsWith("voluntary_ctxt_switches:")
                || line.startsWith("nonvoluntary_ctxt_switches:")) {
                thread.switches += line.mid(line.indexOf(':') + 1).trimmed().toLongLong();
            }
        }
        threads.push_back(thread);
    }
    return threads;
}

// The wake-ups of each thread of a process between two readings; threads that came or went
// count from zero.
inline std::vector<ThreadSwitches> wakeupsBetween(
    const std::vector<ThreadSwitches> &before, const std::vector<ThreadSwitches> &after)
{
    std::vector<ThreadSwitches> delta;
    for (const ThreadSwitches &thread : after) {
        ThreadSwitches d = thread;
        for (const ThreadSwitches &earlier : before) {
            if (earlier.tid == thread.tid) {
                d.switches -= earlier.switches;
            }
        }
        delta.push_back(d);
    }
    return delta;
}

inline qint64 totalSwitches(const std::vector<ThreadSwitches> &threads)
{
    qint64 total = 0;
    for (const ThreadSwitches &thread : threads) {
        total += thread.switches;
    }
    return total;
}

} // namespace sayvo::test
