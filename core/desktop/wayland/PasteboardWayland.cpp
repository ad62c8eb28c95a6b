#include "desktop/wayland/PasteboardWayland.h"

#include "desktop/linux/PipeReader.h"
#include "desktop/linux/PipeWriter.h"
#include "desktop/wayland/WaylandConnection.h"

#include "ext-data-control-v1-client-protocol.h"
#include "wlr-data-control-unstable-v1-client-protocol.h"

#include <QDeadlineTimer>

#include <wayland-client.h>

#include <algorithm>
#include <fcntl.h>
#include <functional>
#include <unistd.h>

namespace sayvo {

namespace {

// Offered for plain text, in the order readers look for them. STRING carries Latin-1.
const char *const kTextTypes[]
    = {"text/plain;charset=utf-8", "text/plain", "UTF8_STRING", "TEXT", "STRING"};

// Clipboard managers that honour this type leave the entry out of their history.
const char *const kConcealedType = "x-kde-passwordManagerHint";

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
    std::vector<std::pair<QString, int>> pipes;
    for (const QString &type : types) {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) {
            continue;
        }
        // libwayland sends a duplicate of the write end; the owner's copy must be the last one
        // open, so that its close ends the transfer.
        m_protocol->receive(m_selection, type, fds[1]);
        ::close(fds[1]);
        pipes.emplace_back(type, fds[0]);
    }
    m_connection->flush();
    return readPipes(pipes, QDeadlineTimer(kReadTimeoutMs), kMaxTypeBytes);
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
