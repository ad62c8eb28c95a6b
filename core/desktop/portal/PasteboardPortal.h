#pragma once

#include "desktop/Pasteboard.h"

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <map>
#include <memory>
#include <optional>

namespace sayvo {

// The clipboard through the desktop portal's Clipboard interface (xdg-desktop-portal 1.18 and
// later), shared with the remote-desktop session that posts Sayvo's keys: that session asks
// for it before it starts and attaches it once the desktop granted it. Until then, and after
// the session ends, the clipboard is unavailable and pasting is not tried.
//
// Written content is served from this process, on the desktop's request for one type, until
// someone else takes the selection; each request served whole is reported as served. The
// change count follows the desktop's owner-changed signals, this process's own writes
// counted once. A read asks the desktop for every type the current selection offers and
// waits for all of them together, at most kReadTimeoutMs; a type larger than kMaxTypeBytes is
// left out. Signals for another session are ignored. Main thread only.
class PasteboardPortal : public QObject, public Pasteboard
{
    Q_OBJECT

public:
    static constexpr int kReadTimeoutMs = 500;
    static constexpr qsizetype kMaxTypeBytes = qsizetype(64) * 1024 * 1024;

    explicit PasteboardPortal(QDBusConnection bus = QDBusConnection::sessionBus());
    ~PasteboardPortal() override;

    // The remote-desktop session started with clipboard access.
    void attach(const QString &sessionPath);
    // The session ended, or started without clipboard access.
    void detach();

    bool isAvailable() const override { return !m_sessionPath.isEmpty(); }
    std::vector<PasteboardItem> items() override;
    std::optional<QString> string() override;
    void clearContents() override;
    bool setConcealedString(const QString &text) override;
    bool writeItems(const std::vector<PasteboardItem> &items) override;
    qint64 changeCount() override { return m_changeCount; }
    bool reportsServed() const override { return true; }

private Q_SLOTS:
    void onOwnerChanged(const QDBusObjectPath &session, const QVariantMap &options);
    void onTransfer(const QDBusObjectPath &session, const QString &mimeType, uint serial);

private:
    bool setSelection(PasteboardItem offered);
    std::map<QString, QByteArray> read(const QStringList &types);
    void finishTransfer(uint serial, bool success);

    QDBusConnection m_bus;
    QString m_sessionPath;
    // Parent of the transfers under way, which end with the adapter.
    std::unique_ptr<QObject> m_writers;
    // What this process put on the clipboard, while it owns it.
    std::optional<PasteboardItem> m_own;
    // The types of another owner's selection.
    QStringList m_offered;
    qint64 m_changeCount = 0;
};

} // namespace sayvo
