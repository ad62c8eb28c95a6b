#pragma once

#include "desktop/Pasteboard.h"

#include <QByteArray>

#include <memory>
#include <vector>

namespace sayvo {

class X11Connection;

// The CLIPBOARD selection, or the PRIMARY one. Written content is served from this process by
// its own hidden window, which stays the owner until someone else takes the selection, and
// answers every target it advertises; data larger than one request is sent incrementally
// (INCR), and read that way from owners that send it so. Every answer that hands data over
// is reported as served. The change count follows XFixes selection-owner notifications. An
// X11 selection is a single item; writing several items offers the types of all of them, the
// first item's data winning. Main thread only.
class PasteboardX11 : public Pasteboard
{
public:
    enum class Selection {
        clipboard,
        primary,
    };

    // How long a read waits for the clipboard's owner to answer one request. After one
    // unanswered request the rest of that read is given up, so a hung owner costs one wait.
    static constexpr int kOwnerTimeoutMs = 500;
    // An incremental transfer whose reader stops asking for the next piece is dropped after
    // this long.
    static constexpr int kIncrementalTimeoutMs = 5000;

    explicit PasteboardX11(Selection selection = Selection::clipboard);
    ~PasteboardX11() override;

    std::vector<PasteboardItem> items() override;
    std::optional<QString> string() override;
    void clearContents() override;
    bool setConcealedString(const QString &text) override;
    bool writeItems(const std::vector<PasteboardItem> &items) override;
    qint64 changeCount() override;
    bool reportsServed() const override { return true; }

private:
    bool ensureConnection();
    // What a selection request asks for, in X resource ids (Window, Atom, Time): Xlib's own
    // event types stay out of this header with the rest of Xlib.
    struct ConversionRequest
    {
        unsigned long requestor = 0;
        unsigned long selection = 0;
        unsigned long target = 0;
        unsigned long property = 0;
        unsigned long time = 0;
    };
    void answerRequest(const ConversionRequest &request);
    // Puts the data on the requestor's property whole, or starts an incremental transfer.
    void sendData(const ConversionRequest &request, unsigned long property, unsigned long replyType,
        const QByteArray &data);
    void continueTransfer(unsigned long requestor, unsigned long property);
    void served();
    bool takeOwnership(PasteboardItem offered);
    unsigned long serverTime();
    std::optional<QByteArray> convert(unsigned long target);
    std::optional<QByteArray> readIncrementally();
    bool isMetaTarget(unsigned long target) const;
    void syncOwnerNotifications();

    // An incremental transfer to one requestor: the next piece goes out each time it deletes
    // the property; an empty piece ends it.
    struct OutgoingTransfer
    {
        unsigned long requestor = 0;
        unsigned long property = 0;
        unsigned long type = 0;
        QByteArray data;
        qsizetype offset = 0;
        qint64 lastActivityMs = 0;
    };

    Selection m_selectionKind;
    std::unique_ptr<X11Connection> m_connection;
    // X resource ids (Window, Atom, Time), kept out of this header with the rest of Xlib.
    unsigned long m_window = 0;
    int m_xfixesEventBase = 0;
    unsigned long m_clipboard = 0;
    unsigned long m_targets = 0;
    unsigned long m_transfer = 0;
    unsigned long m_incr = 0;
    qint64 m_changeCount = 0;
    bool m_ownerTimedOut = false;
    bool m_owned = false;
    unsigned long m_ownedSince = 0;
    PasteboardItem m_offered;
    std::vector<OutgoingTransfer> m_transfers;
};

} // namespace sayvo
