#include "desktop/portal/KeySynthesizerPortal.h"

#include "base/Logging.h"
#include "desktop/portal/PasteboardPortal.h"
#include "desktop/portal/PortalRequest.h"

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QPointer>

#include <optional>

namespace sayvo {

namespace {

const QString kInterface = QStringLiteral("org.freedesktop.portal.RemoteDesktop");
const QString kSessionInterface = QStringLiteral("org.freedesktop.portal.Session");
const QString kClipboardInterface = QStringLiteral("org.freedesktop.portal.Clipboard");

// The device types of SelectDevices: the keyboard alone.
constexpr uint kKeyboardDevice = 1;
// Kept until the user revokes it in the desktop's settings.
constexpr uint kPersistUntilRevoked = 2;

constexpr quint32 kKeysymReturn = 0xff0d;
constexpr quint32 kKeysymTab = 0xff09;
// Characters beyond Latin-1 have keysyms of their own: 0x01000000 plus the code point.
constexpr quint32 kUnicodeKeysym = 0x01000000;

std::optional<quint32> keysymFor(char32_t character)
{
    if (character == U'\n') {
        return kKeysymReturn;
    }
    if (character == U'\t') {
        return kKeysymTab;
    }
    if (character < 0x20 || (character >= 0x7f && character < 0xa0)) {
        return std::nullopt;
    }
    if (character <= 0xff) {
        return quint32(character);
    }
    return kUnicodeKeysym | quint32(character);
}

} // namespace

KeySynthesizerPortal::KeySynthesizerPortal(KeystrokeUse use, int requestTimeoutMs)
    : m_use(use), m_requestTimeoutMs(requestTimeoutMs), m_bus(QDBusConnection::sessionBus())
{ }

KeySynthesizerPortal::~KeySynthesizerPortal()
{
    closeSession();
}

void KeySynthesizerPortal::shareClipboard(std::shared_ptr<PasteboardPortal> clipboard)
{
    m_clipboard = std::move(clipboard);
}

void KeySynthesizerPortal::request(const QString &restoreToken, Handlers handlers)
{
    m_handlers = std::move(handlers);
    m_restoreToken = restoreToken;
    createSession();
}

void KeySynthesizerPortal::askAgain()
{
    if (m_state == State::refused || m_state == State::idle) {
        createSession();
    }
}

void KeySynthesizerPortal::ask(const QString &method, QVariantList arguments,
    std::function<void(const QVariantMap &results)> onGranted)
{
    QPointer<KeySynthesizerPortal> weak(this);
    PortalRequest::call(m_bus, kInterface, method, std::move(arguments), m_requestTimeoutMs,
        [weak, onGranted = std::move(onGranted)](
            const PortalRequest::Result &result, const QString &detail) {
            if (!weak) {
                return;
            }
            if (const auto *error = std::get_if<PortalError>(&result)) {
                weak->fail(describe(*error), detail);
                return;
            }
            onGranted(std::get<QVariantMap>(result));
        });
}

void KeySynthesizerPortal::createSession()
{
    m_state = State::asking;
    report(PortalState::asking, {});
    if (!m_bus.isConnected()) {
        fail(QStringLiteral("no session bus"), {});
        return;
    }
    const QVariantMap options {{QStringLiteral("session_handle_token"), portalToken()}};
    ask(QStringLiteral("CreateSession"), {options}, [this](const QVariantMap &results) {
        m_sessionPath = results.value(QStringLiteral("session_handle")).toString();
        if (m_sessionPath.isEmpty()) {
            fail(QStringLiteral("the portal named no session"), {});
            return;
        }
        m_bus.connect(kPortalService, m_sessionPath, kSessionInterface, QStringLiteral("Closed"),
            this, SLOT(onSessionClosed()));
        selectDevices();
    });
}

void KeySynthesizerPortal::selectDevices()
{
    QVariantMap options {{QStringLiteral("types"), kKeyboardDevice},
        {QStringLiteral("persist_mode"), kPersistUntilRevoked}};
    if (!m_restoreToken.isEmpty()) {
        options.insert(QStringLiteral("restore_token"), m_restoreToken);
    }
    ask(QStringLiteral("SelectDevices"),
        {QVariant::fromValue(QDBusObjectPath(m_sessionPath)), options},
        [this](const QVariantMap &) {
            if (m_clipboard) {
                requestClipboard();
            } else {
                startSession();
            }
        });
}

void KeySynthesizerPortal::requestClipboard()
{
    QDBusMessage message = QDBusMessage::createMethodCall(
        kPortalService, kPortalPath, kClipboardInterface, QStringLiteral("RequestClipboard"));
    message.setArguments({QVariant::fromValue(QDBusObjectPath(m_sessionPath)), QVariantMap()});
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(message, m_requestTimeoutMs), this);
    connect(
        watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *call) {
            call->deleteLater();
            // Without the clipboard the keys still type the text: the session goes on.
            if (call->isError()) {
                Logging::shared().info(
                    QStringLiteral("clipboard: the portal refused the request: %1")
                        .arg(call->error().name()));
            }
            if (!m_sessionPath.isEmpty()) {
                startSession();
            }
        });
}

void KeySynthesizerPortal::startSession()
{
    ask(QStringLiteral("Start"),
        {QVariant::fromValue(QDBusObjectPath(m_sessionPath)), QString(), QVariantMap()},
        [this](const QVariantMap &results) {
            if ((results.value(QStringLiteral("devices")).toUInt() & kKeyboardDevice) == 0) {
                fail(QStringLiteral("the keyboard was not granted"), {});
                return;
            }
            m_state = State::started;
            if (m_clipboard) {
                const bool shared = results.value(QStringLiteral("clipboard_enabled")).toBool();
                m_use = shared ? KeystrokeUse::pasting : KeystrokeUse::typing;
                if (shared) {
                    m_clipboard->attach(m_sessionPath);
                }
                if (m_handlers.onStatus) {
                    m_handlers.onStatus(
                        portalClipboardStatus(shared ? PortalState::granted : PortalState::refused,
                            shared ? QString() : QStringLiteral("not granted")));
                }
            }
            const QString token = results.value(QStringLiteral("restore_token")).toString();
            if (!token.isEmpty() && token != m_restoreToken) {
                m_restoreToken = token;
                if (m_handlers.onRestoreToken) {
                    m_handlers.onRestoreToken(token);
                }
            }
            Logging::shared().info(QStringLiteral("keystrokes: the desktop allowed them"));
            report(PortalState::granted, {});
        });
}

void KeySynthesizerPortal::fail(const QString &reason, const QString &detail)
{
    closeSession();
    Logging::shared().info(
        QStringLiteral("keystrokes: the desktop did not allow them: %1 %2").arg(reason, detail));
    if (!m_restoreToken.isEmpty() && !m_askedWithoutToken) {
        // The desktop no longer honours the kept permission: forget it and ask the user.
        m_askedWithoutToken = true;
        m_restoreToken.clear();
        if (m_handlers.onRestoreToken) {
            m_handlers.onRestoreToken({});
        }
        createSession();
        return;
    }
    m_state = State::refused;
    report(PortalState::refused, reason);
}

void KeySynthesizerPortal::closeSession()
{
    if (m_clipboard) {
        m_clipboard->detach();
    }
    if (m_sessionPath.isEmpty()) {
        return;
    }
    m_bus.disconnect(kPortalService, m_sessionPath, kSessionInterface, QStringLiteral("Closed"),
        this, SLOT(onSessionClosed()));
    m_bus.asyncCall(QDBusMessage::createMethodCall(
        kPortalService, m_sessionPath, kSessionInterface, QStringLiteral("Close")));
    m_sessionPath.clear();
}

void KeySynthesizerPortal::onSessionClosed()
{
    if (m_clipboard) {
        m_clipboard->detach();
    }
    m_sessionPath.clear();
    m_state = State::refused;
    Logging::shared().info(QStringLiteral("keystrokes: the desktop ended the session"));
    report(PortalState::refused, QStringLiteral("the desktop ended the session"));
}

void KeySynthesizerPortal::report(PortalState state, const QString &reason)
{
    if (!m_handlers.onStatus) {
        return;
    }
    m_handlers.onStatus(portalKeystrokeStatus(state, reason, m_use));
    // The clipboard comes with the session: asked with it, gone with it.
    if (m_clipboard && state != PortalState::granted) {
        m_handlers.onStatus(portalClipboardStatus(state, reason));
    }
}

bool KeySynthesizerPortal::postPaste(PasteShortcut shortcut)
{
    const std::vector<quint32> chord = pasteChordKeysyms(shortcut);
    // Pressed in order, released in reverse: the modifiers are down before the key arrives.
    std::vector<std::pair<quint32, bool>> keys;
    keys.reserve(chord.size() * 2);
    for (const quint32 keysym : chord) {
        keys.emplace_back(keysym, true);
    }
    for (auto keysym = chord.rbegin(); keysym != chord.rend(); ++keysym) {
        keys.emplace_back(*keysym, false);
    }
    return postKeysyms(keys);
}

bool KeySynthesizerPortal::typeText(const QString &text)
{
    if (text.size() > kMaxTypedCharacters) {
        Logging::shared().info(QStringLiteral("keystrokes: a text of %1 characters is too long "
                                              "to type (at most %2)")
                                   .arg(text.size())
                                   .arg(kMaxTypedCharacters));
        return false;
    }
    std::vector<std::pair<quint32, bool>> keys;
    for (const char32_t character : text.toUcs4()) {
        if (const auto keysym = keysymFor(character)) {
            keys.emplace_back(*keysym, true);
            keys.emplace_back(*keysym, false);
        }
    }
    return postKeysyms(keys);
}

bool KeySynthesizerPortal::postKeysyms(const std::vector<std::pair<quint32, bool>> &keys)
{
    if (m_state != State::started || m_sessionPath.isEmpty()) {
        return false;
    }
    m_queue.insert(m_queue.end(), keys.begin(), keys.end());
    sendNext();
    return true;
}

void KeySynthesizerPortal::sendNext()
{
    if (m_sessionPath.isEmpty()) {
        m_queue.clear();
    }
    if (m_sending || m_queue.empty()) {
        return;
    }
    const auto [keysym, pressed] = m_queue.front();
    m_queue.pop_front();
    QDBusMessage message = QDBusMessage::createMethodCall(
        kPortalService, kPortalPath, kInterface, QStringLiteral("NotifyKeyboardKeysym"));
    message.setArguments({QVariant::fromValue(QDBusObjectPath(m_sessionPath)), QVariantMap(),
        static_cast<int>(keysym), static_cast<uint>(pressed ? 1 : 0)});
    m_sending = true;
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(message), this);
    connect(
        watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *call) {
            call->deleteLater();
            m_sending = false;
            if (call->isError()) {
                // The rest of a text whose key was lost would arrive garbled: drop it.
                Logging::shared().info(QStringLiteral("keystrokes: the portal refused a key: %1")
                                           .arg(call->error().name()));
                m_queue.clear();
                return;
            }
            sendNext();
        });
}

} // namespace sayvo
