#pragma once

#include "Pasteboard.h"
#include "X11Connection.h"

#include <memory>

namespace sayvo {

// The CLIPBOARD selection. Written content is served from this process by its own hidden
// window, which stays the owner until someone else takes the selection, and answers every
// target it advertises. The change count follows XFixes selection-owner notifications. An X11
// selection is a single item; writing several items offers the types of all of them, the
// first item's data winning. Main thread only.
class PasteboardX11 : public Pasteboard
{
public:
    // How long a read waits for the clipboard's owner to answer one request.
    static constexpr int kOwnerTimeoutMs = 500;

    PasteboardX11();
    ~PasteboardX11() override;

    std::vector<PasteboardItem> items() override;
    std::optional<QString> string() override;
    void clearContents() override;
    bool setConcealedString(const QString &text) override;
    bool writeItems(const std::vector<PasteboardItem> &items) override;
    qint64 changeCount() override;

private:
    bool ensureConnection();
    void handleEvent(XEvent &event);
    void answerRequest(const XSelectionRequestEvent &request);
    bool takeOwnership(PasteboardItem offered);
    Time serverTime();
    std::optional<QByteArray> convert(Atom target);
    std::optional<QByteArray> readIncrementally();
    bool isMetaTarget(Atom target) const;
    void syncOwnerNotifications();

    std::unique_ptr<X11Connection> m_connection;
    Window m_window = None;
    int m_xfixesEventBase = 0;
    Atom m_clipboard = None;
    Atom m_targets = None;
    Atom m_transfer = None;
    Atom m_incr = None;
    qint64 m_changeCount = 0;
    bool m_owned = false;
    Time m_ownedSince = CurrentTime;
    PasteboardItem m_offered;
};

} // namespace sayvo
