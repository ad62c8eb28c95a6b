#include "desktop/portal/PasteboardPortal.h"

#include "base/Logging.h"
#include "desktop/linux/PipeReader.h"
#include "desktop/linux/PipeWriter.h"
#include "desktop/portal/PortalRequest.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <QDBusUnixFileDescriptor>
#include <QDeadlineTimer>

#include <algorithm>
#include <fcntl.h>

namespace sayvo {

namespace {

const QString kInterface = QStringLiteral("org.freedesktop.portal.Clipboard");

// Offered for plain text, in the order readers look for them.
const char *const kTextTypes[] = {"text/plain;charset=utf-8", "text/plain"};

// Clipboard managers that honour this type leave the entry out of their history.
const char *const kConcealedType = "x-kde-passwordManagerHint";

// How long a write of the selection may wait for the desktop to take it.
constexpr int kSetSelectionTimeoutMs = 1000;

QStringList typesOf(const PasteboardItem &item)
{
    QStringList types;
    for (const auto &[type, data] : item) {
        types.append(type);
    }
    return types;
}

} // namespace

PasteboardPortal::PasteboardPortal(QDBusConnection bus)
    : m_bus(std::move(bus)), m_writers(std::make_unique<QObject>())
{ }

PasteboardPortal::~PasteboardPortal()
{
    // Transfers still under way are reported as failed while the session is still known.
    m_writers.reset();
    detach();
}

void PasteboardPortal::attach(const QString &sessionPath)
{
    detach();
    m_sessionPath = sessionPath;
    m_bus.connect(kPortalService, kPortalPath, kInterface, QStringLiteral("SelectionOwnerChanged"),
        this, SLOT(onOwnerChanged(QDBusObjectPath, QVariantMap)));
    m_bus.connect(kPortalService, kPortalPath, kInterface, QStringLiteral("SelectionTransfer"),
        this, SLOT(onTransfer(QDBusObjectPath, QString, uint)));
}

void PasteboardPortal::detach()
{
    if (m_sessionPath.isEmpty()) {
        return;
    }
    m_bus.disconnect(kPortalService, kPortalPath, kInterface,
        QStringLiteral("SelectionOwnerChanged"), this,
        SLOT(onOwnerChanged(QDBusObjectPath, QVariantMap)));
    m_bus.disconnect(kPortalService, kPortalPath, kInterface, QStringLiteral("SelectionTransfer"),
        this, SLOT(onTransfer(QDBusObjectPath, QString, uint)));
    m_sessionPath.clear();
    m_own.reset();
    m_offered.clear();
}

void PasteboardPortal::onOwnerChanged(const QDBusObjectPath &session, const QVariantMap &options)
{
    if (session.path() != m_sessionPath) {
        return;
    }
    // Our own write was counted when it was made.
    if (options.value(QStringLiteral("session_is_owner")).toBool()) {
        return;
    }
    m_own.reset();
    m_offered = options.value(QStringLiteral("mime_types")).toStringList();
    ++m_changeCount;
}

void PasteboardPortal::onTransfer(
    const QDBusObjectPath &session, const QString &mimeType, uint serial)
{
    if (session.path() != m_sessionPath) {
        return;
    }
    const auto data = m_own ? std::find_if(m_own->begin(), m_own->end(),
                          [&mimeType](const auto &entry) { return entry.first == mimeType; })
                            : PasteboardItem::iterator();
    if (!m_own || data == m_own->end()) {
        finishTransfer(serial, false);
        return;
    }
    const QByteArray bytes = data->second;
    // Only a read of the transcript itself (not of the marker type) counts as served.
    const bool counts = mimeType != QLatin1String(kConcealedType);
    const qint64 written = m_changeCount;
    QDBusMessage message = QDBusMessage::createMethodCall(
        kPortalService, kPortalPath, kInterface, QStringLiteral("SelectionWrite"));
    message.setArguments({QVariant::fromValue(session), serial});
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
        [this, serial, bytes, counts, written](QDBusPendingCallWatcher *call) {
            call->deleteLater();
            const QDBusPendingReply<QDBusUnixFileDescriptor> reply = *call;
            const int fd = reply.isError() || !reply.value().isValid()
                ? -1
                : ::fcntl(reply.value().fileDescriptor(), F_DUPFD_CLOEXEC, 0);
            if (fd < 0) {
                finishTransfer(serial, false);
                return;
            }
            auto done = std::make_shared<bool>(false);
            auto *writer = new PipeWriter(
                fd, bytes,
                [this, serial, counts, written, done] {
                    *done = true;
                    finishTransfer(serial, true);
                    if (counts && written == m_changeCount) {
                        reportServed();
                    }
                },
                m_writers.get());
            connect(writer, &QObject::destroyed, this, [this, serial, done] {
                if (!*done) {
                    finishTransfer(serial, false);
                }
            });
        });
}

void PasteboardPortal::finishTransfer(uint serial, bool success)
{
    if (m_sessionPath.isEmpty()) {
        return;
    }
    QDBusMessage message = QDBusMessage::createMethodCall(
        kPortalService, kPortalPath, kInterface, QStringLiteral("SelectionWriteDone"));
    message.setArguments({QVariant::fromValue(QDBusObjectPath(m_sessionPath)), serial, success});
    m_bus.asyncCall(message);
}

std::map<QString, QByteArray> PasteboardPortal::read(const QStringList &types)
{
    const QDeadlineTimer deadline(kReadTimeoutMs);
    std::vector<std::pair<QString, int>> pipes;
    for (const QString &type : types) {
        const qint64 remaining = deadline.remainingTime();
        if (remaining <= 0) {
            break;
        }
        QDBusMessage message = QDBusMessage::createMethodCall(
            kPortalService, kPortalPath, kInterface, QStringLiteral("SelectionRead"));
        message.setArguments({QVariant::fromValue(QDBusObjectPath(m_sessionPath)), type});
        const QDBusReply<QDBusUnixFileDescriptor> reply
            = m_bus.call(message, QDBus::Block, int(remaining));
        if (!reply.isValid() || !reply.value().isValid()) {
            Logging::shared().info(QStringLiteral("clipboard: the desktop gave no %1: %2")
                                       .arg(type, reply.error().name()));
            continue;
        }
        const int fd = ::fcntl(reply.value().fileDescriptor(), F_DUPFD_CLOEXEC, 0);
        if (fd < 0) {
            continue;
        }
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
        pipes.emplace_back(type, fd);
    }
    return readPipes(pipes, deadline, kMaxTypeBytes);
}

std::vector<PasteboardItem> PasteboardPortal::items()
{
    if (!isAvailable()) {
        return {};
    }
    if (m_own) {
        return m_own->empty() ? std::vector<PasteboardItem> {}
                              : std::vector<PasteboardItem> {*m_own};
    }
    const std::map<QString, QByteArray> data = read(m_offered);
    PasteboardItem item;
    for (const QString &type : m_offered) {
        if (const auto found = data.find(type); found != data.end()) {
            item.emplace_back(type, found->second);
        }
    }
    if (item.empty()) {
        return {};
    }
    return {item};
}

std::optional<QString> PasteboardPortal::string()
{
    if (!isAvailable()) {
        return std::nullopt;
    }
    for (const char *type : kTextTypes) {
        const QString name = QString::fromLatin1(type);
        if (m_own) {
            for (const auto &[ownType, data] : *m_own) {
                if (ownType == name) {
                    return QString::fromUtf8(data);
                }
            }
        } else if (m_offered.contains(name)) {
            const auto data = read({name});
            if (data.empty()) {
                return std::nullopt;
            }
            return QString::fromUtf8(data.begin()->second);
        }
    }
    return std::nullopt;
}

bool PasteboardPortal::setSelection(PasteboardItem offered)
{
    if (!isAvailable()) {
        return false;
    }
    QDBusMessage message = QDBusMessage::createMethodCall(
        kPortalService, kPortalPath, kInterface, QStringLiteral("SetSelection"));
    message.setArguments({QVariant::fromValue(QDBusObjectPath(m_sessionPath)),
        QVariantMap {{QStringLiteral("mime_types"), typesOf(offered)}}});
    const QDBusMessage reply = m_bus.call(message, QDBus::Block, kSetSelectionTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        Logging::shared().info(QStringLiteral("clipboard: the desktop refused the selection: %1")
                                   .arg(reply.errorName()));
        return false;
    }
    m_own = std::move(offered);
    m_offered.clear();
    ++m_changeCount;
    return true;
}

void PasteboardPortal::clearContents()
{
    setSelection({});
}

bool PasteboardPortal::setConcealedString(const QString &text)
{
    PasteboardItem offered;
    for (const char *type : kTextTypes) {
        offered.emplace_back(QString::fromLatin1(type), text.toUtf8());
    }
    offered.emplace_back(QString::fromLatin1(kConcealedType), QByteArrayLiteral("secret"));
    return setSelection(std::move(offered));
}

bool PasteboardPortal::writeItems(const std::vector<PasteboardItem> &items)
{
    // The portal holds one item; the first is the one applications read.
    return setSelection(items.empty() ? PasteboardItem() : items.front());
}

} // namespace sayvo
