#include "AccessibilityProviderAtSpi.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>

#include <atspi/atspi.h>

namespace sayvo {

namespace {

// Owns one reference to an AT-SPI object.
class AccessibleElementAtSpi : public AccessibleElement
{
public:
    enum class Kind {
        systemWide,
        application,
        object,
    };

    AccessibleElementAtSpi(Kind kind, AtspiAccessible *object) : m_kind(kind), m_object(object) { }
    ~AccessibleElementAtSpi() override
    {
        if (m_object) {
            g_object_unref(m_object);
        }
    }
    AccessibleElementAtSpi(const AccessibleElementAtSpi &) = delete;
    AccessibleElementAtSpi &operator=(const AccessibleElementAtSpi &) = delete;

    Kind kind() const { return m_kind; }
    AtspiAccessible *object() const { return m_object; }

private:
    Kind m_kind;
    AtspiAccessible *m_object;
};

template <typename T> struct GObjectRef
{
    explicit GObjectRef(T *object) : object(object) { }
    ~GObjectRef()
    {
        if (object) {
            g_object_unref(object);
        }
    }
    GObjectRef(const GObjectRef &) = delete;
    GObjectRef &operator=(const GObjectRef &) = delete;
    T *object;
};

// Clears a GError and says whether there was one.
bool failed(GError *&error)
{
    if (!error) {
        return false;
    }
    g_clear_error(&error);
    return true;
}

bool hasState(AtspiAccessible *object, AtspiStateType state)
{
    GObjectRef<AtspiStateSet> states(atspi_accessible_get_state_set(object));
    return states.object && atspi_state_set_contains(states.object, state);
}

// The children of an object, each with its own reference.
std::vector<AtspiAccessible *> children(AtspiAccessible *object)
{
    std::vector<AtspiAccessible *> result;
    GError *error = nullptr;
    const int count = atspi_accessible_get_child_count(object, &error);
    if (failed(error)) {
        return result;
    }
    for (int i = 0; i < count; ++i) {
        AtspiAccessible *child = atspi_accessible_get_child_at_index(object, i, &error);
        if (failed(error) || !child) {
            continue;
        }
        result.push_back(child);
    }
    return result;
}

void release(std::vector<AtspiAccessible *> &objects)
{
    for (AtspiAccessible *object : objects) {
        g_object_unref(object);
    }
    objects.clear();
}

// The application's window in state ACTIVE, with a new reference; null when none is.
AtspiAccessible *activeWindow(AtspiAccessible *application)
{
    std::vector<AtspiAccessible *> windows = children(application);
    AtspiAccessible *active = nullptr;
    for (AtspiAccessible *window : windows) {
        if (!active && hasState(window, ATSPI_STATE_ACTIVE)) {
            active = static_cast<AtspiAccessible *>(g_object_ref(window));
        }
    }
    release(windows);
    return active;
}

// The first object in state FOCUSED at or below root, with a new reference. The toolkit
// searches its own tree through the Collection interface in one call; toolkits without it are
// walked, up to a bound that keeps a huge document from stalling the caller.
AtspiAccessible *focusedBelow(AtspiAccessible *root)
{
    if (GObjectRef<AtspiCollection> collection(atspi_accessible_get_collection_iface(root));
        collection.object) {
        GArray *wanted = g_array_new(FALSE, FALSE, sizeof(AtspiStateType));
        const AtspiStateType focused = ATSPI_STATE_FOCUSED;
        g_array_append_val(wanted, focused);
        GObjectRef<AtspiStateSet> states(atspi_state_set_new(wanted));
        g_array_free(wanted, TRUE);
        GObjectRef<AtspiMatchRule> rule(atspi_match_rule_new(states.object,
            ATSPI_Collection_MATCH_ALL, nullptr, ATSPI_Collection_MATCH_ALL, nullptr,
            ATSPI_Collection_MATCH_ALL, nullptr, ATSPI_Collection_MATCH_ALL, FALSE));
        GError *error = nullptr;
        GArray *matches = atspi_collection_get_matches(
            collection.object, rule.object, ATSPI_Collection_SORT_ORDER_CANONICAL, 1, TRUE, &error);
        if (!failed(error) && matches) {
            AtspiAccessible *found = nullptr;
            for (guint i = 0; i < matches->len; ++i) {
                AtspiAccessible *match = g_array_index(matches, AtspiAccessible *, i);
                if (!found) {
                    found = static_cast<AtspiAccessible *>(g_object_ref(match));
                }
                g_object_unref(match);
            }
            g_array_free(matches, TRUE);
            return found;
        }
        if (matches) {
            g_array_free(matches, TRUE);
        }
    }
    constexpr int kMaxVisited = 2000;
    std::vector<AtspiAccessible *> pending {static_cast<AtspiAccessible *>(g_object_ref(root))};
    AtspiAccessible *found = nullptr;
    for (int visited = 0; !pending.empty() && !found && visited < kMaxVisited; ++visited) {
        AtspiAccessible *object = pending.back();
        pending.pop_back();
        if (hasState(object, ATSPI_STATE_FOCUSED)) {
            found = object;
            break;
        }
        if (hasState(object, ATSPI_STATE_SHOWING) || object == root) {
            std::vector<AtspiAccessible *> below = children(object);
            pending.insert(pending.end(), below.rbegin(), below.rend());
        }
        g_object_unref(object);
    }
    release(pending);
    return found;
}

AccessibleElementPtr wrap(AtspiAccessible *object)
{
    if (!object) {
        return nullptr;
    }
    return std::make_shared<AccessibleElementAtSpi>(AccessibleElementAtSpi::Kind::object, object);
}

const AccessibleElementAtSpi *unwrap(const AccessibleElementPtr &element)
{
    return dynamic_cast<const AccessibleElementAtSpi *>(element.get());
}

std::optional<QString> takeString(gchar *text, GError *&error)
{
    if (failed(error) || !text) {
        g_free(text);
        return std::nullopt;
    }
    QString result = QString::fromUtf8(text);
    g_free(text);
    return result;
}

// The first selection as offsets, or the caret as an empty range.
std::optional<std::pair<int, int>> selectionRange(AtspiText *text)
{
    GError *error = nullptr;
    const int selections = atspi_text_get_n_selections(text, &error);
    if (failed(error)) {
        return std::nullopt;
    }
    if (selections > 0) {
        AtspiRange *range = atspi_text_get_selection(text, 0, &error);
        if (failed(error) || !range) {
            g_free(range);
            return std::nullopt;
        }
        const std::pair<int, int> result {qMin(range->start_offset, range->end_offset),
            qMax(range->start_offset, range->end_offset)};
        g_free(range);
        return result;
    }
    const int caret = atspi_text_get_caret_offset(text, &error);
    if (failed(error)) {
        return std::nullopt;
    }
    return std::pair {caret, caret};
}

std::optional<AttributeValue> readObjectAttribute(AtspiAccessible *object, const QString &name)
{
    GError *error = nullptr;
    if (name == QLatin1String("AXTitle")) {
        if (auto title = takeString(atspi_accessible_get_name(object, &error), error)) {
            return AttributeValue(*title);
        }
        return std::nullopt;
    }
    if (name != QLatin1String("AXSelectedText") && name != QLatin1String("AXValue")) {
        return std::nullopt;
    }
    GObjectRef<AtspiText> text(atspi_accessible_get_text_iface(object));
    if (!text.object) {
        return std::nullopt;
    }
    int start = 0;
    int end = atspi_text_get_character_count(text.object, &error);
    if (failed(error)) {
        return std::nullopt;
    }
    if (name == QLatin1String("AXSelectedText")) {
        const int selections = atspi_text_get_n_selections(text.object, &error);
        if (failed(error)) {
            return std::nullopt;
        }
        if (selections == 0) {
            return AttributeValue(QString());
        }
        const auto range = selectionRange(text.object);
        if (!range) {
            return std::nullopt;
        }
        std::tie(start, end) = *range;
    }
    if (auto value = takeString(atspi_text_get_text(text.object, start, end, &error), error)) {
        return AttributeValue(*value);
    }
    return std::nullopt;
}

} // namespace

bool AccessibilityProviderAtSpi::isAvailable()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return false;
    }
    QDBusMessage query = QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"),
        QStringLiteral("/org/a11y/bus"), QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    query << QStringLiteral("org.a11y.Status") << QStringLiteral("IsEnabled");
    const QDBusMessage reply = bus.call(query, QDBus::Block, kTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()
        || !reply.arguments().constFirst().value<QDBusVariant>().variant().toBool()) {
        return false;
    }
    if (!m_initialised) {
        // Only called once the bus is known to answer: libatspi gives up hard on a bus it
        // cannot reach.
        if (atspi_init() > 1) {
            return false;
        }
        atspi_set_timeout(kTimeoutMs, kTimeoutMs);
        // Cached states and children are refreshed by events this process may not have
        // handled yet; a harvest must see the focus as it is now.
        GObjectRef<AtspiAccessible> desktop(atspi_get_desktop(0));
        if (desktop.object) {
            atspi_accessible_set_cache_mask(desktop.object, ATSPI_CACHE_NONE);
        }
        m_initialised = true;
    }
    return true;
}

AccessibleElementPtr AccessibilityProviderAtSpi::systemWideElement()
{
    if (!isAvailable()) {
        return nullptr;
    }
    return std::make_shared<AccessibleElementAtSpi>(
        AccessibleElementAtSpi::Kind::systemWide, nullptr);
}

AccessibleElementPtr AccessibilityProviderAtSpi::applicationElement(qint64 pid)
{
    // Asking ourselves would wait on our own main thread until the time-out.
    if (pid <= 0 || pid == QCoreApplication::applicationPid() || !isAvailable()) {
        return nullptr;
    }
    GObjectRef<AtspiAccessible> desktop(atspi_get_desktop(0));
    if (!desktop.object) {
        return nullptr;
    }
    std::vector<AtspiAccessible *> applications = children(desktop.object);
    AtspiAccessible *found = nullptr;
    for (AtspiAccessible *application : applications) {
        GError *error = nullptr;
        const guint applicationPid = atspi_accessible_get_process_id(application, &error);
        if (!failed(error) && qint64(applicationPid) == pid) {
            found = static_cast<AtspiAccessible *>(g_object_ref(application));
            break;
        }
    }
    release(applications);
    if (!found) {
        return nullptr;
    }
    return std::make_shared<AccessibleElementAtSpi>(
        AccessibleElementAtSpi::Kind::application, found);
}

std::optional<AttributeValue> AccessibilityProviderAtSpi::copyAttribute(
    const AccessibleElementPtr &element, const QString &name)
{
    const AccessibleElementAtSpi *target = unwrap(element);
    if (!target || !isAvailable()) {
        return std::nullopt;
    }
    switch (target->kind()) {
    case AccessibleElementAtSpi::Kind::systemWide: {
        if (name != QLatin1String("AXFocusedUIElement")) {
            return std::nullopt;
        }
        GObjectRef<AtspiAccessible> desktop(atspi_get_desktop(0));
        if (!desktop.object) {
            return std::nullopt;
        }
        std::vector<AtspiAccessible *> applications = children(desktop.object);
        AtspiAccessible *focused = nullptr;
        for (AtspiAccessible *application : applications) {
            GError *error = nullptr;
            const guint pid = atspi_accessible_get_process_id(application, &error);
            if (failed(error) || qint64(pid) == QCoreApplication::applicationPid()) {
                continue;
            }
            if (AtspiAccessible *window = activeWindow(application)) {
                focused = focusedBelow(window);
                g_object_unref(window);
                break;
            }
        }
        release(applications);
        if (!focused) {
            return std::nullopt;
        }
        return AttributeValue(wrap(focused));
    }
    case AccessibleElementAtSpi::Kind::application: {
        AtspiAccessible *window = activeWindow(target->object());
        if (name == QLatin1String("AXFocusedWindow")) {
            return window ? std::optional(AttributeValue(wrap(window))) : std::nullopt;
        }
        if (name != QLatin1String("AXFocusedUIElement")) {
            if (window) {
                g_object_unref(window);
            }
            return std::nullopt;
        }
        AtspiAccessible *focused = focusedBelow(window ? window : target->object());
        if (window) {
            g_object_unref(window);
        }
        return focused ? std::optional(AttributeValue(wrap(focused))) : std::nullopt;
    }
    case AccessibleElementAtSpi::Kind::object:
        return readObjectAttribute(target->object(), name);
    }
    return std::nullopt;
}

bool AccessibilityProviderAtSpi::setAttribute(
    const AccessibleElementPtr &element, const QString &name, const QString &value)
{
    const AccessibleElementAtSpi *target = unwrap(element);
    if (!target || target->kind() != AccessibleElementAtSpi::Kind::object || !isAvailable()) {
        return false;
    }
    GObjectRef<AtspiEditableText> editable(
        atspi_accessible_get_editable_text_iface(target->object()));
    if (!editable.object) {
        return false;
    }
    const QByteArray utf8 = value.toUtf8();
    GError *error = nullptr;
    if (name == QLatin1String("AXValue")) {
        const gboolean done
            = atspi_editable_text_set_text_contents(editable.object, utf8.constData(), &error);
        return !failed(error) && done;
    }
    if (name != QLatin1String("AXSelectedText")) {
        return false;
    }
    GObjectRef<AtspiText> text(atspi_accessible_get_text_iface(target->object()));
    if (!text.object) {
        return false;
    }
    const auto range = selectionRange(text.object);
    if (!range) {
        return false;
    }
    const auto [start, end] = *range;
    if (end > start) {
        const gboolean deleted
            = atspi_editable_text_delete_text(editable.object, start, end, &error);
        if (failed(error) || !deleted) {
            return false;
        }
    }
    // The length is in bytes, as the toolkit's own insert takes it.
    const gboolean inserted = atspi_editable_text_insert_text(
        editable.object, start, utf8.constData(), int(utf8.size()), &error);
    return !failed(error) && inserted;
}

} // namespace sayvo
