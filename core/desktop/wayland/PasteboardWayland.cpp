#include "desktop/wayland/PasteboardWayland.h"

#include "desktop/wayland/WaylandConnection.h"

#include "ext-data-control-v1-client-protocol.h"
#include "wlr-data-control-unstable-v1-client-protocol.h"

#include <QDeadlineTimer>
#include <QSocketNotifier>
#include <QTimer>

#include <wayland-client.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace sayvo {

namespace {

// Offered for plain text, in the order readers look for them. STRING carries Latin-1.
const char *const kTextTypes[]
    = {"text/plain;charset=utf-8", "text/plain", "UTF8_STRING", "TEXT", "STRING"};

// Clipboard managers that honour this type leave the entry out of their history.
const char *const kConcealedType = "x-kde-passwordManagerHint";

// A reader that closes its end of the pipe early must not end the process with SIGPIPE: the
// signal is held back for this thread during the write and discarded.
ssize_t writeWithoutSigpipe(int fd, const char *data, size_t size)
{
    sigset_t pipeSignal;
    sigset_t previous;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &previous);
    const ssize_t written = ::write(fd, data, size);
    const int error = errno;
    if (written < 0 && error == EPIPE) {
        const timespec now {};
        sigtimedwait(&pipeSignal, nullptr, &now);
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    errno = error;
    return written;
}

// Hands one type's data to the reader through the pipe it sent, without blocking the main
// thread on a slow reader. Closes the pipe and deletes itself when the reader has taken all
// of the data out of the pipe (then runs `written`), the reader went away, or after
// kWriteTimeoutMs. Data merely written into the pipe's buffer is not read yet: a reader that
// was stopped or busy still has it to come.
class PipeWriter : public QObject
{
public:
    static constexpr int kWriteTimeoutMs = 5000;
    static constexpr int kDrainPollMs = 5;

    PipeWriter(int fd, QByteArray data, std::function<void()> written, QObject *parent)
        : QObject(parent), m_fd(fd), m_data(std::move(data)), m_onWritten(std::move(written))
    {
        ::fcntl(m_fd, F_SETFL, ::fcntl(m_fd, F_GETFL) | O_NONBLOCK);
        m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Write, this);
        connect(m_notifier, &QSocketNotifier::activated, this, &PipeWriter::writeSome);
        QTimer::singleShot(kWriteTimeoutMs, this, &PipeWriter::finish);
        writeSome();
    }

    ~PipeWriter() override { closePipe(); }

private:
    void writeSome()
    {
        while (m_written < m_data.size()) {
            const ssize_t written = writeWithoutSigpipe(
                m_fd, m_data.constData() + m_written, size_t(m_data.size() - m_written));
            if (written > 0) {
                m_written += written;
            } else if (written < 0 && errno == EAGAIN) {
                return;
            } else if (!(written < 0 && errno == EINTR)) {
                break;
            }
        }
        if (m_written < m_data.size()) {
            finish();
            return;
        }
        // All of it is in the pipe; the reader sees the end once it has emptied the pipe and
        // this end closes. No event says when a pipe became empty, so it is looked at.
        m_notifier->setEnabled(false);
        if (!m_drainPoll) {
            m_drainPoll = new QTimer(this);
            connect(m_drainPoll, &QTimer::timeout, this, &PipeWriter::closeOnceDrained);
            m_drainPoll->start(kDrainPollMs);
        }
        closeOnceDrained();
    }

    void closeOnceDrained()
    {
        if (m_fd < 0) {
            return;
        }
        // A reader that closed its end without emptying the pipe read nothing.
        pollfd state {m_fd, POLLOUT, 0};
        if (::poll(&state, 1, 0) > 0 && (state.revents & POLLERR) != 0) {
            finish();
            return;
        }
        int unread = 0;
        // Not a pipe (a file the reader passed) counts as taken at once.
        if (::ioctl(m_fd, FIONREAD, &unread) == 0 && unread > 0) {
            return;
        }
        finish();
        if (m_onWritten) {
            m_onWritten();
        }
    }

    // The reader sees the end of the data only when the pipe closes: at once, not when the
    // event loop gets to the deletion.
    void finish()
    {
        m_notifier->setEnabled(false);
        if (m_drainPoll) {
            m_drainPoll->stop();
        }
        closePipe();
        deleteLater();
    }

    void closePipe()
    {
        if (m_fd >= 0) {
            ::close(m_fd);
            m_fd = -1;
        }
    }

    int m_fd;
    QByteArray m_data;
    std::function<void()> m_onWritten;
    qsizetype m_written = 0;
    QSocketNotifier *m_notifier = nullptr;
    QTimer *m_drainPoll = nullptr;
};

// The two protocols have the same requests and events under different names: one traits
// struct each, one binding for both.
struct ExtDataControl
{
    using Manager = ext_data_control_manager_v1;
    using Device = ext_data_control_device_v1;
    using Source = ext_data_control_source_v1;
    using Offer = ext_data_control_offer_v1;
    using DeviceListener = ext_data_control_device_v1_listener;
    using SourceListener = ext_data_control_source_v1_listener;
    using OfferListener = ext_data_control_offer_v1_listener;
    static constexpr const wl_interface *kManager = &ext_data_control_manager_v1_interface;
    static constexpr uint32_t kVersion = 1;
    static constexpr auto getDevice = ext_data_control_manager_v1_get_data_device;
    static constexpr auto createSource = ext_data_control_manager_v1_create_data_source;
    static constexpr auto destroyManager = ext_data_control_manager_v1_destroy;
    static constexpr auto addDeviceListener = ext_data_control_device_v1_add_listener;
    static constexpr auto setSelection = ext_data_control_device_v1_set_selection;
    static constexpr auto destroyDevice = ext_data_control_device_v1_destroy;
    static constexpr auto addSourceListener = ext_data_control_source_v1_add_listener;
    static constexpr auto offer = ext_data_control_source_v1_offer;
    static constexpr auto destroySource = ext_data_control_source_v1_destroy;
    static constexpr auto addOfferListener = ext_data_control_offer_v1_add_listener;
    static constexpr auto receive = ext_data_control_offer_v1_receive;
    static constexpr auto destroyOffer = ext_data_control_offer_v1_destroy;
};

struct WlrDataControl
{
    using Manager = zwlr_data_control_manager_v1;
    using Device = zwlr_data_control_device_v1;
    using Source = zwlr_data_control_source_v1;
    using Offer = zwlr_data_control_offer_v1;
    using DeviceListener = zwlr_data_control_device_v1_listener;
    using SourceListener = zwlr_data_control_source_v1_listener;
    using OfferListener = zwlr_data_control_offer_v1_listener;
    static constexpr const wl_interface *kManager = &zwlr_data_control_manager_v1_interface;
    // Version 1: the primary selection is not wanted.
    static constexpr uint32_t kVersion = 1;
    static constexpr auto getDevice = zwlr_data_control_manager_v1_get_data_device;
    static constexpr auto createSource = zwlr_data_control_manager_v1_create_data_source;
    static constexpr auto destroyManager = zwlr_data_control_manager_v1_destroy;
    static constexpr auto addDeviceListener = zwlr_data_control_device_v1_add_listener;
    static constexpr auto setSelection = zwlr_data_control_device_v1_set_selection;
    static constexpr auto destroyDevice = zwlr_data_control_device_v1_destroy;
    static constexpr auto addSourceListener = zwlr_data_control_source_v1_add_listener;
    static constexpr auto offer = zwlr_data_control_source_v1_offer;
    static constexpr auto destroySource = zwlr_data_control_source_v1_destroy;
    static constexpr auto addOfferListener = zwlr_data_control_offer_v1_add_listener;
    static constexpr auto receive = zwlr_data_control_offer_v1_receive;
    static constexpr auto destroyOffer = zwlr_data_control_offer_v1_destroy;
};

} // namespace

// The requests the adapter makes, with the protocol's objects as opaque handles.
class PasteboardWayland::Protocol
{
public:
    virtual ~Protocol() = default;
    virtual void *createSource(const QStringList &types) = 0;
    virtual void destroySource(void *source) = 0;
    // A null source clears the selection.
    virtual void setSelection(void *source) = 0;
    virtual void receive(void *offer, const QString &type, int fd) = 0;
    virtual void destroyOffer(void *offer) = 0;
};

namespace {

template <typename P> class DataControlBinding final : public PasteboardWayland::Protocol
{
public:
    static std::unique_ptr<PasteboardWayland::Protocol> bind(
        WaylandConnection &connection, PasteboardWayland &pasteboard)
    {
        auto *manager
            = static_cast<typename P::Manager *>(connection.bind(P::kManager, P::kVersion));
        if (!manager) {
            return nullptr;
        }
        return std::make_unique<DataControlBinding>(
            manager, P::getDevice(manager, connection.seat()), pasteboard);
    }

    DataControlBinding(
        typename P::Manager *manager, typename P::Device *device, PasteboardWayland &pasteboard)
        : m_manager(manager), m_device(device), m_pasteboard(pasteboard)
    {
        P::addDeviceListener(m_device, &kDeviceListener, &m_pasteboard);
    }

    ~DataControlBinding() override
    {
        P::destroyDevice(m_device);
        P::destroyManager(m_manager);
    }

    void *createSource(const QStringList &types) override
    {
        typename P::Source *source = P::createSource(m_manager);
        P::addSourceListener(source, &kSourceListener, &m_pasteboard);
        for (const QString &type : types) {
            P::offer(source, type.toUtf8().constData());
        }
        return source;
    }

    void destroySource(void *source) override
    {
        P::destroySource(static_cast<typename P::Source *>(source));
    }

    void setSelection(void *source) override
    {
        P::setSelection(m_device, static_cast<typename P::Source *>(source));
    }

    void receive(void *offer, const QString &type, int fd) override
    {
        P::receive(static_cast<typename P::Offer *>(offer), type.toUtf8().constData(), fd);
    }

    void destroyOffer(void *offer) override
    {
        P::destroyOffer(static_cast<typename P::Offer *>(offer));
    }

private:
    static PasteboardWayland &pasteboard(void *data)
    {
        return *static_cast<PasteboardWayland *>(data);
    }

    static void dataOffer(void *data, typename P::Device *, typename P::Offer *offer)
    {
        P::addOfferListener(offer, &kOfferListener, data);
        pasteboard(data).handleOffer(offer);
    }
    static void selection(void *data, typename P::Device *, typename P::Offer *offer)
    {
        pasteboard(data).handleSelection(offer);
    }
    static void finished(void *data, typename P::Device *) { pasteboard(data).handleFinished(); }
    static void primarySelection(void *data, typename P::Device *, typename P::Offer *offer)
    {
        // Only the clipboard is Sayvo's business.
        if (offer) {
            pasteboard(data).handleUnwantedOffer(offer);
        }
    }
    static void offerType(void *data, typename P::Offer *offer, const char *type)
    {
        pasteboard(data).handleOfferType(offer, QString::fromUtf8(type));
    }
    static void send(void *data, typename P::Source *source, const char *type, int32_t fd)
    {
        pasteboard(data).handleSend(source, QString::fromUtf8(type), fd);
    }
    static void cancelled(void *data, typename P::Source *source)
    {
        pasteboard(data).handleCancelled(source);
    }

    static constexpr typename P::DeviceListener kDeviceListener {
        dataOffer, selection, finished, primarySelection};
    static constexpr typename P::SourceListener kSourceListener {send, cancelled};
    static constexpr typename P::OfferListener kOfferListener {offerType};

    typename P::Manager *m_manager;
    typename P::Device *m_device;
    PasteboardWayland &m_pasteboard;
};

} // namespace

PasteboardWayland::PasteboardWayland() : m_writers(std::make_unique<QObject>())
{
    m_connection = WaylandConnection::open(QStringLiteral("clipboard"));
    if (!m_connection || !m_connection->seat()) {
        m_connection.reset();
        return;
    }
    m_protocol = DataControlBinding<ExtDataControl>::bind(*m_connection, *this);
    if (!m_protocol) {
        m_protocol = DataControlBinding<WlrDataControl>::bind(*m_connection, *this);
    }
    if (m_protocol) {
        // The current selection arrives as the first event.
        m_connection->roundtrip();
    }
}

PasteboardWayland::~PasteboardWayland()
{
    if (!m_protocol) {
        return;
    }
    for (const auto &[offer, types] : m_offers) {
        m_protocol->destroyOffer(offer);
    }
    for (const auto &[source, data] : m_sources) {
        m_protocol->destroySource(source);
    }
    m_protocol.reset();
    m_connection->flush();
}

bool PasteboardWayland::isAvailable() const
{
    return m_protocol && !m_finished && !m_connection->isLost();
}

void PasteboardWayland::handleOffer(void *offer)
{
    m_offers[offer];
}

void PasteboardWayland::handleOfferType(void *offer, const QString &type)
{
    QStringList &types = m_offers[offer];
    if (!types.contains(type)) {
        types.append(type);
    }
}

void PasteboardWayland::handleSelection(void *offer)
{
    if (m_selection && m_selection != offer) {
        handleUnwantedOffer(m_selection);
    }
    m_selection = offer;
    ++m_changeCount;
}

void PasteboardWayland::handleUnwantedOffer(void *offer)
{
    if (offer == m_selection) {
        m_selection = nullptr;
    }
    m_offers.erase(offer);
    m_protocol->destroyOffer(offer);
}

void PasteboardWayland::handleSend(void *source, const QString &type, int fd)
{
    const auto found = m_sources.find(source);
    if (found == m_sources.end()) {
        ::close(fd);
        return;
    }
    const PasteboardItem &offered = found->second.offered;
    const auto data = std::find_if(offered.begin(), offered.end(),
        [&type](const std::pair<QString, QByteArray> &entry) { return entry.first == type; });
    if (data == offered.end()) {
        ::close(fd);
        return;
    }
    // The hint is for clipboard managers; the text is what a paste's target reads.
    std::function<void()> written;
    if (type != QLatin1String(kConcealedType)) {
        written = [this, source] {
            if (source == m_ownSource) {
                reportServed();
            }
        };
    }
    new PipeWriter(fd, data->second, std::move(written), m_writers.get());
}

void PasteboardWayland::handleCancelled(void *source)
{
    if (source == m_ownSource) {
        m_ownSource = nullptr;
    }
    m_sources.erase(source);
    m_protocol->destroySource(source);
}

void PasteboardWayland::handleFinished()
{
    // The seat is gone; nothing more can be read or written through this device.
    m_finished = true;
}

const PasteboardItem *PasteboardWayland::ownItem() const
{
    const auto found = m_sources.find(m_ownSource);
    return found == m_sources.end() ? nullptr : &found->second.offered;
}

std::map<QString, QByteArray> PasteboardWayland::read(const QStringList &types)
{
    struct Pending
    {
        QString type;
        int fd = -1;
        QByteArray data;
    };
    std::vector<Pending> pending;
    for (const QString &type : types) {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) {
            continue;
        }
        // libwayland sends a duplicate of the write end; the owner's copy must be the last one
        // open, so that its close ends the transfer.
        m_protocol->receive(m_selection, type, fds[1]);
        ::close(fds[1]);
        pending.push_back({type, fds[0], {}});
    }
    m_connection->flush();

    std::map<QString, QByteArray> result;
    const QDeadlineTimer deadline(kReadTimeoutMs);
    while (!pending.empty()) {
        const qint64 remaining = deadline.remainingTime();
        if (remaining <= 0) {
            break;
        }
        std::vector<pollfd> descriptors;
        descriptors.reserve(pending.size());
        for (const Pending &read : pending) {
            descriptors.push_back({read.fd, POLLIN, 0});
        }
        if (::poll(descriptors.data(), nfds_t(descriptors.size()), int(remaining)) < 0
            && errno != EINTR) {
            break;
        }
        for (size_t i = descriptors.size(); i-- > 0;) {
            if (descriptors[i].revents == 0) {
                continue;
            }
            Pending &read = pending[i];
            char buffer[65536];
            ssize_t count = 0;
            while ((count = ::read(read.fd, buffer, sizeof buffer)) > 0
                && read.data.size() <= kMaxTypeBytes) {
                read.data.append(buffer, count);
            }
            const bool ended = count == 0;
            const bool failed = (count < 0 && errno != EAGAIN && errno != EINTR)
                || read.data.size() > kMaxTypeBytes;
            if (ended || failed) {
                if (ended && !failed) {
                    result[read.type] = std::move(read.data);
                }
                ::close(read.fd);
                pending.erase(pending.begin() + qsizetype(i));
            }
        }
    }
    // An owner that did not finish in time gives nothing more in this read.
    for (const Pending &read : pending) {
        ::close(read.fd);
    }
    return result;
}

std::vector<PasteboardItem> PasteboardWayland::items()
{
    if (!isAvailable()) {
        return {};
    }
    m_connection->roundtrip();
    if (const PasteboardItem *own = ownItem()) {
        return own->empty() ? std::vector<PasteboardItem> {} : std::vector<PasteboardItem> {*own};
    }
    if (!m_selection) {
        return {};
    }
    const QStringList types = m_offers[m_selection];
    const std::map<QString, QByteArray> data = read(types);
    PasteboardItem item;
    for (const QString &type : types) {
        if (const auto found = data.find(type); found != data.end()) {
            item.emplace_back(type, found->second);
        }
    }
    if (item.empty()) {
        return {};
    }
    return {item};
}

std::optional<QString> PasteboardWayland::string()
{
    if (!isAvailable()) {
        return std::nullopt;
    }
    m_connection->roundtrip();
    const auto decode = [](const char *type, const QByteArray &data) {
        return qstrcmp(type, "STRING") == 0 ? QString::fromLatin1(data) : QString::fromUtf8(data);
    };
    if (const PasteboardItem *own = ownItem()) {
        for (const char *type : kTextTypes) {
            for (const auto &[offeredType, data] : *own) {
                if (offeredType == QLatin1String(type)) {
                    return decode(type, data);
                }
            }
        }
        return std::nullopt;
    }
    if (!m_selection) {
        return std::nullopt;
    }
    const QStringList &offered = m_offers[m_selection];
    for (const char *type : kTextTypes) {
        if (offered.contains(QLatin1String(type))) {
            const auto data = read({QString::fromLatin1(type)});
            if (data.empty()) {
                return std::nullopt;
            }
            return decode(type, data.begin()->second);
        }
    }
    return std::nullopt;
}

void PasteboardWayland::clearContents()
{
    if (!isAvailable()) {
        return;
    }
    // The old source stays until the compositor cancels it: a transfer may still be running.
    m_ownSource = nullptr;
    m_protocol->setSelection(nullptr);
    m_connection->roundtrip();
}

bool PasteboardWayland::setSelection(PasteboardItem offered)
{
    if (!isAvailable()) {
        return false;
    }
    QStringList types;
    for (const auto &[type, data] : offered) {
        types.append(type);
    }
    void *source = m_protocol->createSource(types);
    Source &entry = m_sources[source];
    entry.offered = std::move(offered);
    m_ownSource = source;
    m_protocol->setSelection(source);
    // The compositor's answer to our own write counts as a change: wait for it, so the count
    // read right after the write stays put.
    return m_connection->roundtrip() && m_ownSource == source;
}

bool PasteboardWayland::setConcealedString(const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    PasteboardItem offered;
    for (const char *type : kTextTypes) {
        offered.emplace_back(
            QString::fromLatin1(type), qstrcmp(type, "STRING") == 0 ? text.toLatin1() : utf8);
    }
    offered.emplace_back(QString::fromLatin1(kConcealedType), QByteArrayLiteral("secret"));
    return setSelection(std::move(offered));
}

bool PasteboardWayland::writeItems(const std::vector<PasteboardItem> &items)
{
    PasteboardItem offered;
    QStringList seen;
    for (const PasteboardItem &item : items) {
        for (const auto &[type, data] : item) {
            if (!seen.contains(type)) {
                seen.append(type);
                offered.emplace_back(type, data);
            }
        }
    }
    if (offered.empty()) {
        clearContents();
        return true;
    }
    return setSelection(std::move(offered));
}

qint64 PasteboardWayland::changeCount()
{
    if (!isAvailable()) {
        return 0;
    }
    m_connection->roundtrip();
    return m_changeCount;
}

} // namespace sayvo
