#include "desktop/x11/PasteboardX11.h"

#include "base/LatencyTrace.h"

#include "desktop/x11/X11Connection.h"

#include <X11/Xatom.h>
#include <X11/extensions/Xfixes.h>

#include <QDeadlineTimer>
#include <QMetaObject>
#include <QSet>

#include <algorithm>

namespace sayvo {

namespace {

const char *const kTextTargets[]
    = {"UTF8_STRING", "text/plain;charset=utf-8", "STRING", "TEXT", "text/plain"};

// Clipboard managers that honour this type leave the entry out of their history.
const char *const kConcealedType = "x-kde-passwordManagerHint";

} // namespace

// Connected now: the first dictation reads the clipboard as its key goes down, and the
// connection handshake there would hold the microphone up.
PasteboardX11::PasteboardX11(Selection selection) : m_selectionKind(selection)
{
    ensureConnection();
}

PasteboardX11::~PasteboardX11()
{
    if (m_connection && m_window != None) {
        XDestroyWindow(m_connection->display(), m_window);
    }
}

bool PasteboardX11::ensureConnection()
{
    // What this client still holds of a lost display is no clipboard any more.
    if (m_connection) {
        return !m_connection->isLost();
    }
    auto connection = X11Connection::open();
    if (!connection) {
        return false;
    }
    Display *display = connection->display();
    int errorBase = 0;
    if (!XFixesQueryExtension(display, &m_xfixesEventBase, &errorBase)) {
        return false;
    }
    m_window = XCreateSimpleWindow(display, connection->root(), -10, -10, 1, 1, 0, 0, 0);
    XSelectInput(display, m_window, PropertyChangeMask);
    m_clipboard
        = m_selectionKind == Selection::primary ? XA_PRIMARY : connection->atom("CLIPBOARD");
    m_targets = connection->atom("TARGETS");
    m_transfer = connection->atom("SAYVO_CLIPBOARD_TRANSFER");
    m_incr = connection->atom("INCR");
    XFixesSelectSelectionInput(display, m_window, m_clipboard,
        XFixesSetSelectionOwnerNotifyMask | XFixesSelectionWindowDestroyNotifyMask
            | XFixesSelectionClientCloseNotifyMask);
    m_connection = std::move(connection);
    m_connection->setEventHandler([this](XEvent &event) {
        if (event.type == m_xfixesEventBase + XFixesSelectionNotify) {
            ++m_changeCount;
        } else if (event.type == SelectionRequest) {
            const XSelectionRequestEvent &request = event.xselectionrequest;
            answerRequest({request.requestor, request.selection, request.target, request.property,
                request.time});
        } else if (event.type == SelectionClear && event.xselectionclear.selection == m_clipboard) {
            m_owned = false;
            m_offered.clear();
        } else if (event.type == PropertyNotify && event.xproperty.state == PropertyDelete
            && event.xproperty.window != m_window) {
            continueTransfer(event.xproperty.window, event.xproperty.atom);
        }
    });
    XSync(display, False);
    return true;
}

void PasteboardX11::answerRequest(const ConversionRequest &request)
{
    Display *display = m_connection->display();
    XSelectionEvent reply {};
    reply.type = SelectionNotify;
    reply.display = display;
    reply.requestor = request.requestor;
    reply.selection = request.selection;
    reply.target = request.target;
    reply.time = request.time;
    reply.property = None;
    // Clients from before ICCCM 2 send no property; the target's name serves instead.
    const Atom property = request.property != None ? request.property : request.target;

    m_connection->clearError();
    if (m_owned && request.selection == m_clipboard) {
        if (request.target == m_targets) {
            std::vector<Atom> targets {m_targets, m_connection->atom("TIMESTAMP")};
            for (const auto &[type, data] : m_offered) {
                targets.push_back(m_connection->atom(type.toUtf8().constData()));
            }
            XChangeProperty(display, request.requestor, property, XA_ATOM, 32, PropModeReplace,
                reinterpret_cast<const unsigned char *>(targets.data()), int(targets.size()));
            reply.property = property;
        } else if (request.target == m_connection->atom("TIMESTAMP")) {
            const long time = long(m_ownedSince);
            XChangeProperty(display, request.requestor, property, XA_INTEGER, 32, PropModeReplace,
                reinterpret_cast<const unsigned char *>(&time), 1);
            reply.property = property;
        } else {
            char *name = XGetAtomName(display, request.target);
            const QString type = name ? QString::fromUtf8(name) : QString();
            if (name) {
                XFree(name);
            }
            for (const auto &[offeredType, data] : m_offered) {
                if (offeredType == type) {
                    // TEXT asks for "some text encoding"; the answer names the one given.
                    const Atom replyType = request.target == m_connection->atom("TEXT")
                        ? m_connection->atom("UTF8_STRING")
                        : request.target;
                    sendData(request, property, replyType, data);
                    reply.property = property;
                    break;
                }
            }
        }
    }
    XSendEvent(display, request.requestor, False, NoEventMask, reinterpret_cast<XEvent *>(&reply));
    XFlush(display);
}

namespace {

// The most one property write may carry: the server's request limit, and no more than 256 KiB
// so a reader is never handed one huge block.
long maxPieceBytes(Display *display)
{
    const long requestUnits = XExtendedMaxRequestSize(display) > 0
        ? XExtendedMaxRequestSize(display)
        : XMaxRequestSize(display);
    return std::min(requestUnits * 4 - 1024, 256L * 1024);
}

qint64 nowMs()
{
    return QDeadlineTimer::current().deadline();
}

} // namespace

void PasteboardX11::sendData(const ConversionRequest &request, unsigned long property,
    unsigned long replyType, const QByteArray &data)
{
    Display *display = m_connection->display();
    if (data.size() <= maxPieceBytes(display)) {
        XChangeProperty(display, request.requestor, property, replyType, 8, PropModeReplace,
            reinterpret_cast<const unsigned char *>(data.constData()), int(data.size()));
        markLatency("clipboard-served");
        served();
        return;
    }
    // Too large for one request: announce the size with INCR, then send a piece each time
    // the requestor deletes the property.
    std::erase_if(m_transfers, [&](const OutgoingTransfer &transfer) {
        return (transfer.requestor == request.requestor && transfer.property == property)
            || nowMs() - transfer.lastActivityMs > kIncrementalTimeoutMs;
    });
    XSelectInput(display, request.requestor, PropertyChangeMask);
    const long size = long(data.size());
    XChangeProperty(display, request.requestor, property, m_incr, 32, PropModeReplace,
        reinterpret_cast<const unsigned char *>(&size), 1);
    m_transfers.push_back({request.requestor, property, replyType, data, 0, nowMs()});
}

void PasteboardX11::continueTransfer(unsigned long requestor, unsigned long property)
{
    const auto transfer
        = std::find_if(m_transfers.begin(), m_transfers.end(), [&](const OutgoingTransfer &t) {
              return t.requestor == requestor && t.property == property;
          });
    if (transfer == m_transfers.end()) {
        return;
    }
    Display *display = m_connection->display();
    const qsizetype length
        = std::min<qsizetype>(maxPieceBytes(display), transfer->data.size() - transfer->offset);
    m_connection->clearError();
    XChangeProperty(display, requestor, property, transfer->type, 8, PropModeReplace,
        reinterpret_cast<const unsigned char *>(transfer->data.constData() + transfer->offset),
        int(length));
    XFlush(display);
    transfer->offset += length;
    transfer->lastActivityMs = nowMs();
    if (length == 0) {
        // The empty piece was the end.
        XSelectInput(display, requestor, NoEventMask);
        m_transfers.erase(transfer);
        served();
    }
}

void PasteboardX11::served()
{
    // Queued: a request can be answered inside one of this object's own waits, and the
    // report may well lead to a write.
    QMetaObject::invokeMethod(
        m_connection.get(), [this] { reportServed(); }, Qt::QueuedConnection);
}

unsigned long PasteboardX11::serverTime()
{
    // A zero-length append to our own property makes the server report the current time.
    Display *display = m_connection->display();
    XChangeProperty(display, m_window, m_transfer, XA_STRING, 8, PropModeAppend, nullptr, 0);
    XEvent event;
    const Window window = m_window;
    const Atom transfer = m_transfer;
    if (m_connection->waitForEvent(
            [window, transfer](const XEvent &candidate) {
                return candidate.type == PropertyNotify && candidate.xproperty.window == window
                    && candidate.xproperty.atom == transfer;
            },
            event, kOwnerTimeoutMs)) {
        return event.xproperty.time;
    }
    return CurrentTime;
}

void PasteboardX11::syncOwnerNotifications()
{
    // Owner-change notifications caused by our own requests arrive before the reply to a
    // round trip; counting them now keeps the change count read right after a write stable.
    XSync(m_connection->display(), False);
    m_connection->dispatchPending();
}

bool PasteboardX11::takeOwnership(PasteboardItem offered)
{
    if (!ensureConnection()) {
        return false;
    }
    Display *display = m_connection->display();
    const Time time = serverTime();
    m_offered = std::move(offered);
    XSetSelectionOwner(display, m_clipboard, m_window, time);
    // The reply comes after the owner-change notification our write caused, so counting what
    // Xlib has read by then keeps the change count right without another round trip.
    m_owned = XGetSelectionOwner(display, m_clipboard) == m_window;
    m_ownedSince = time;
    if (!m_owned) {
        m_offered.clear();
    }
    m_connection->dispatchPending();
    return m_owned;
}

void PasteboardX11::clearContents()
{
    if (!ensureConnection()) {
        return;
    }
    m_owned = false;
    m_offered.clear();
    Display *display = m_connection->display();
    if (XGetSelectionOwner(display, m_clipboard) != None) {
        XSetSelectionOwner(display, m_clipboard, None, serverTime());
    }
    syncOwnerNotifications();
}

bool PasteboardX11::setConcealedString(const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    PasteboardItem offered;
    for (const char *target : kTextTargets) {
        offered.emplace_back(
            QString::fromLatin1(target), qstrcmp(target, "STRING") == 0 ? text.toLatin1() : utf8);
    }
    offered.emplace_back(QString::fromLatin1(kConcealedType), QByteArrayLiteral("secret"));
    return takeOwnership(std::move(offered));
}

bool PasteboardX11::writeItems(const std::vector<PasteboardItem> &items)
{
    PasteboardItem offered;
    QSet<QString> seen;
    for (const PasteboardItem &item : items) {
        for (const auto &[type, data] : item) {
            if (!seen.contains(type)) {
                seen.insert(type);
                offered.emplace_back(type, data);
            }
        }
    }
    if (offered.empty()) {
        if (!ensureConnection()) {
            return false;
        }
        clearContents();
        return true;
    }
    return takeOwnership(std::move(offered));
}

qint64 PasteboardX11::changeCount()
{
    if (!ensureConnection()) {
        return 0;
    }
    syncOwnerNotifications();
    return m_changeCount;
}

bool PasteboardX11::isMetaTarget(unsigned long target) const
{
    static const char *const kMetaTargets[] = {"TARGETS", "MULTIPLE", "TIMESTAMP", "SAVE_TARGETS",
        "DELETE", "INSERT_SELECTION", "INSERT_PROPERTY"};
    for (const char *name : kMetaTargets) {
        if (target == m_connection->atom(name)) {
            return true;
        }
    }
    return false;
}

std::optional<QByteArray> PasteboardX11::convert(unsigned long target)
{
    if (m_ownerTimedOut) {
        return std::nullopt;
    }
    Display *display = m_connection->display();
    XDeleteProperty(display, m_window, m_transfer);
    XConvertSelection(display, m_clipboard, target, m_transfer, m_window, CurrentTime);
    XEvent event;
    const Window window = m_window;
    if (!m_connection->waitForEvent(
            [window](const XEvent &candidate) {
                return candidate.type == SelectionNotify
                    && candidate.xselection.requestor == window;
            },
            event, kOwnerTimeoutMs)) {
        m_ownerTimedOut = true;
        return std::nullopt;
    }
    if (event.xselection.property == None) {
        return std::nullopt;
    }
    const auto property = m_connection->property(m_window, m_transfer, true);
    if (!property) {
        return std::nullopt;
    }
    if (property->type == m_incr) {
        return readIncrementally();
    }
    if (target == m_targets) {
        return property->format == 32 ? std::optional(property->data) : std::nullopt;
    }
    // Only byte data round-trips through a snapshot unchanged.
    if (property->format != 8) {
        return std::nullopt;
    }
    return property->data;
}

std::optional<QByteArray> PasteboardX11::readIncrementally()
{
    // The owner sends the data in pieces, each announced by a new value of our property;
    // deleting the property asks for the next piece, and an empty one ends the transfer.
    QByteArray data;
    const Window window = m_window;
    const Atom transfer = m_transfer;
    for (;;) {
        XEvent event;
        if (!m_connection->waitForEvent(
                [window, transfer](const XEvent &candidate) {
                    return candidate.type == PropertyNotify && candidate.xproperty.window == window
                        && candidate.xproperty.atom == transfer
                        && candidate.xproperty.state == PropertyNewValue;
                },
                event, kOwnerTimeoutMs)) {
            m_ownerTimedOut = true;
            return std::nullopt;
        }
        const auto piece = m_connection->property(m_window, m_transfer, true);
        if (!piece || piece->format != 8) {
            return std::nullopt;
        }
        if (piece->data.isEmpty()) {
            return data;
        }
        data += piece->data;
    }
}

std::vector<PasteboardItem> PasteboardX11::items()
{
    if (!ensureConnection()) {
        return {};
    }
    m_ownerTimedOut = false;
    syncOwnerNotifications();
    if (m_owned) {
        return {m_offered};
    }
    Display *display = m_connection->display();
    if (XGetSelectionOwner(display, m_clipboard) == None) {
        return {};
    }
    const auto targets = convert(m_targets);
    if (!targets) {
        return {};
    }
    PasteboardItem item;
    const auto *atoms = reinterpret_cast<const unsigned long *>(targets->constData());
    const qsizetype count = targets->size() / qsizetype(sizeof(unsigned long));
    QSet<Atom> seen;
    for (qsizetype i = 0; i < count; ++i) {
        const Atom target = Atom(atoms[i]);
        if (target == None || isMetaTarget(target) || seen.contains(target)) {
            continue;
        }
        seen.insert(target);
        char *name = XGetAtomName(display, target);
        if (!name) {
            continue;
        }
        const QString type = QString::fromUtf8(name);
        XFree(name);
        if (const auto data = convert(target)) {
            item.emplace_back(type, *data);
        }
    }
    if (item.empty()) {
        return {};
    }
    return {item};
}

std::optional<QString> PasteboardX11::string()
{
    if (!ensureConnection()) {
        return std::nullopt;
    }
    m_ownerTimedOut = false;
    syncOwnerNotifications();
    if (m_owned) {
        for (const char *target : kTextTargets) {
            for (const auto &[type, data] : m_offered) {
                if (type == QLatin1String(target)) {
                    return qstrcmp(target, "STRING") == 0 ? QString::fromLatin1(data)
                                                          : QString::fromUtf8(data);
                }
            }
        }
        return std::nullopt;
    }
    if (XGetSelectionOwner(m_connection->display(), m_clipboard) == None) {
        return std::nullopt;
    }
    if (const auto utf8 = convert(m_connection->atom("UTF8_STRING"))) {
        return QString::fromUtf8(*utf8);
    }
    if (const auto latin1 = convert(XA_STRING)) {
        return QString::fromLatin1(*latin1);
    }
    return std::nullopt;
}

} // namespace sayvo
