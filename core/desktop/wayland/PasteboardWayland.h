#pragma once

#include "desktop/Pasteboard.h"

#include <QObject>
#include <QStringList>

#include <map>
#include <memory>

namespace sayvo {

class WaylandConnection;

// The Wayland selection through the data-control protocol (ext_data_control_manager_v1 where
// the compositor offers it, zwlr_data_control_manager_v1 otherwise), which lets a client read
// and set the clipboard without having the keyboard focus. Written content is served from
// this process until another client takes the selection. The change count follows the
// compositor's selection events, this process's own writes included. A read asks the owner
// for every type at once and waits for all of them together, at most kReadTimeoutMs, so an
// owner that never answers costs one wait; a type larger than kMaxTypeBytes is left out.
// Another client's whole read of this process's own content is reported as served. Main
// thread only.
class PasteboardWayland : public Pasteboard
{
public:
    static constexpr int kReadTimeoutMs = 500;
    static constexpr qsizetype kMaxTypeBytes = qsizetype(64) * 1024 * 1024;

    PasteboardWayland();
    ~PasteboardWayland() override;

    // False when the compositor offers no data-control, or the connection is gone.
    bool isAvailable() const override;

    std::vector<PasteboardItem> items() override;
    std::optional<QString> string() override;
    void clearContents() override;
    bool setConcealedString(const QString &text) override;
    bool writeItems(const std::vector<PasteboardItem> &items) override;
    qint64 changeCount() override;
    bool reportsServed() const override { return true; }

    // The protocol objects, the same for both protocols; the binding (defined with the
    // adapter) calls back below.
    class Protocol;
    void handleOffer(void *offer);
    void handleOfferType(void *offer, const QString &type);
    void handleSelection(void *offer);
    void handleUnwantedOffer(void *offer);
    void handleSend(void *source, const QString &type, int fd);
    void handleCancelled(void *source);
    void handleFinished();

private:
    struct Source
    {
        PasteboardItem offered;
    };

    bool setSelection(PasteboardItem offered);
    std::map<QString, QByteArray> read(const QStringList &types);
    const PasteboardItem *ownItem() const;

    // Parent of the transfers under way, which end with the adapter.
    std::unique_ptr<QObject> m_writers;
    std::unique_ptr<WaylandConnection> m_connection;
    std::unique_ptr<Protocol> m_protocol;
    std::map<void *, QStringList> m_offers;
    void *m_selection = nullptr;
    std::map<void *, Source> m_sources;
    void *m_ownSource = nullptr;
    qint64 m_changeCount = 0;
    bool m_finished = false;
};

} // namespace sayvo
