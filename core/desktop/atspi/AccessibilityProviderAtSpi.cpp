#include "desktop/atspi/AccessibilityProviderAtSpi.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QScopeGuard>

namespace sayvo {

namespace {

const QString kRegistryService = QStringLiteral("org.a11y.atspi.Registry");
const QString kRootPath = QStringLiteral("/org/a11y/atspi/accessible/root");
const QString kAccessible = QStringLiteral("org.a11y.atspi.Accessible");
const QString kText = QStringLiteral("org.a11y.atspi.Text");
const QString kEditableText = QStringLiteral("org.a11y.atspi.EditableText");
const QString kCollection = QStringLiteral("org.a11y.atspi.Collection");
const QString kNullPath = QStringLiteral("/org/a11y/atspi/null");
const QString kApplication = QStringLiteral("org.a11y.atspi.Application");

// Bit numbers of the AT-SPI state set.
constexpr int kStateActive = 1;
constexpr int kStateFocused = 12;
constexpr int kStateShowing = 25;

constexpr int kMatchAll = 1;
constexpr uint kSortCanonical = 1;
// Toolkits without the Collection interface are walked, up to this many objects, so that a
// huge document cannot stall the caller.
constexpr int kMaxVisited = 2000;

bool has(quint64 states, int state)
{
    return (states >> state) & 1U;
}

} // namespace

class AccessibilityProviderAtSpi::Element : public AccessibleElement
{
public:
    enum class Kind {
        systemWide,
        application,
        object,
    };

    Element(Kind kind, ObjectRef object) : kind(kind), object(std::move(object)) { }

    Kind kind;
    ObjectRef object;
};

AccessibilityProviderAtSpi::AccessibilityProviderAtSpi() = default;

AccessibilityProviderAtSpi::~AccessibilityProviderAtSpi()
{
    if (m_bus) {
        QDBusConnection::disconnectFromBus(m_bus->name());
    }
}

bool AccessibilityProviderAtSpi::connectIfEnabled()
{
    QDBusConnection session = QDBusConnection::sessionBus();
    if (!session.isConnected()) {
        return false;
    }
    QDBusMessage enabled = QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"),
        QStringLiteral("/org/a11y/bus"), QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    enabled << QStringLiteral("org.a11y.Status") << QStringLiteral("IsEnabled");
    const QDBusMessage isEnabled = session.call(enabled, QDBus::Block, kTimeoutMs);
    if (isEnabled.type() != QDBusMessage::ReplyMessage || isEnabled.arguments().isEmpty()
        || !isEnabled.arguments().constFirst().value<QDBusVariant>().variant().toBool()) {
        return false;
    }
    if (m_bus && m_bus->isConnected()) {
        return true;
    }
    const QDBusMessage address
        = session.call(QDBusMessage::createMethodCall(QStringLiteral("org.a11y.Bus"),
                           QStringLiteral("/org/a11y/bus"), QStringLiteral("org.a11y.Bus"),
                           QStringLiteral("GetAddress")),
            QDBus::Block, kTimeoutMs);
    if (address.type() != QDBusMessage::ReplyMessage || address.arguments().isEmpty()) {
        return false;
    }
    if (m_bus) {
        QDBusConnection::disconnectFromBus(m_bus->name());
    }
    m_busAddress = address.arguments().constFirst().toString();
    const QString name
        = QStringLiteral("sayvo-accessibility-%1").arg(reinterpret_cast<quintptr>(this), 0, 16);
    m_bus = QDBusConnection::connectToBus(m_busAddress, name);
    return m_bus->isConnected();
}

std::optional<QDBusMessage> AccessibilityProviderAtSpi::call(const ObjectRef &object,
    const QString &interface, const QString &method, const QVariantList &arguments)
{
    m_lastCallUnanswered = false;
    if (!m_bus) {
        return std::nullopt;
    }
    if (const auto found = m_unresponsive.constFind(object.service);
        found != m_unresponsive.constEnd()) {
        if (!found->until.hasExpired() && m_waitMs <= found->waitedMs) {
            return std::nullopt;
        }
        if (found->until.hasExpired()) {
            m_unresponsive.remove(object.service);
        }
    }
    QDBusMessage message
        = QDBusMessage::createMethodCall(object.service, object.path, interface, method);
    message.setArguments(arguments);
    QDBusMessage reply = m_bus->call(message, QDBus::Block, m_waitMs);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        if (reply.errorName() == QLatin1String("org.freedesktop.DBus.Error.NoReply")) {
            m_lastCallUnanswered = true;
            m_unresponsive.insert(object.service, {QDeadlineTimer(kUnresponsiveMs), m_waitMs});
        }
        return std::nullopt;
    }
    m_unresponsive.remove(object.service);
    return reply;
}

AccessibilityWrite AccessibilityProviderAtSpi::edit(
    const ObjectRef &object, const QString &method, const QVariantList &arguments)
{
    const auto reply = call(object, kEditableText, method, arguments);
    if (!reply) {
        return m_lastCallUnanswered ? AccessibilityWrite::unanswered : AccessibilityWrite::refused;
    }
    if (reply->arguments().isEmpty() || !reply->arguments().constFirst().toBool()) {
        return AccessibilityWrite::refused;
    }
    return AccessibilityWrite::written;
}

std::optional<QVariant> AccessibilityProviderAtSpi::property(
    const ObjectRef &object, const QString &interface, const QString &name)
{
    const auto reply = call(object, QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"), {interface, name});
    if (!reply || reply->arguments().isEmpty()) {
        return std::nullopt;
    }
    return reply->arguments().constFirst().value<QDBusVariant>().variant();
}

namespace {

std::vector<std::pair<QString, QString>> objectList(const QVariant &value)
{
    std::vector<std::pair<QString, QString>> result;
    const QDBusArgument argument = value.value<QDBusArgument>();
    argument.beginArray();
    while (!argument.atEnd()) {
        QString service;
        QDBusObjectPath path;
        argument.beginStructure();
        argument >> service >> path;
        argument.endStructure();
        result.emplace_back(service, path.path());
    }
    argument.endArray();
    return result;
}

} // namespace

std::optional<std::vector<AccessibilityProviderAtSpi::ObjectRef>>
AccessibilityProviderAtSpi::children(const ObjectRef &object)
{
    const auto reply = call(object, kAccessible, QStringLiteral("GetChildren"));
    if (!reply || reply->arguments().isEmpty()) {
        return std::nullopt;
    }
    std::vector<ObjectRef> result;
    for (auto &[service, path] : objectList(reply->arguments().constFirst())) {
        if (path != kNullPath) {
            result.push_back({service, path});
        }
    }
    return result;
}

std::optional<quint64> AccessibilityProviderAtSpi::states(const ObjectRef &object)
{
    const auto reply = call(object, kAccessible, QStringLiteral("GetState"));
    if (!reply || reply->arguments().isEmpty()) {
        return std::nullopt;
    }
    const QList<uint> words = qdbus_cast<QList<uint>>(reply->arguments().constFirst());
    quint64 bits = 0;
    for (qsizetype i = 0; i < words.size() && i < 2; ++i) {
        bits |= quint64(words[i]) << (32 * i);
    }
    return bits;
}

std::optional<qint64> AccessibilityProviderAtSpi::processId(const ObjectRef &application)
{
    const auto reply
        = call({QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus")},
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetConnectionUnixProcessID"),
            {application.service});
    if (!reply || reply->arguments().isEmpty()) {
        return std::nullopt;
    }
    return qint64(reply->arguments().constFirst().toUInt());
}

std::optional<AccessibilityProviderAtSpi::ObjectRef> AccessibilityProviderAtSpi::activeWindow(
    const ObjectRef &application)
{
    const auto windows = children(application);
    if (!windows) {
        return std::nullopt;
    }
    for (const ObjectRef &window : *windows) {
        if (const auto bits = states(window); bits && has(*bits, kStateActive)) {
            return window;
        }
    }
    return std::nullopt;
}

std::optional<AccessibilityProviderAtSpi::ObjectRef> AccessibilityProviderAtSpi::focusedBelow(
    const ObjectRef &root)
{
    // One request lets the toolkit search its own tree.
    QDBusArgument rule;
    rule.beginStructure();
    rule << QList<int> {1 << kStateFocused, 0} << kMatchAll;
    rule.beginMap(QMetaType::fromType<QString>(), QMetaType::fromType<QString>());
    rule.endMap();
    rule << kMatchAll << QList<int> {} << kMatchAll << QStringList {} << kMatchAll << false;
    rule.endStructure();
    if (const auto reply = call(root, kCollection, QStringLiteral("GetMatches"),
            {QVariant::fromValue(rule), kSortCanonical, 1, true});
        reply && !reply->arguments().isEmpty()) {
        for (auto &[service, path] : objectList(reply->arguments().constFirst())) {
            return ObjectRef {service, path};
        }
    }
    // No Collection, or a search that missed what a walk finds: GTK 4 leaves its focused
    // entry out of SHOWING, and a Qt window that is itself the field is not below itself.
    std::vector<ObjectRef> pending {root};
    for (int visited = 0; !pending.empty() && visited < kMaxVisited; ++visited) {
        const ObjectRef object = pending.back();
        pending.pop_back();
        const auto bits = states(object);
        if (!bits) {
            continue;
        }
        if (has(*bits, kStateFocused)) {
            return object;
        }
        if (has(*bits, kStateShowing) || has(*bits, kStateActive) || visited == 0) {
            if (const auto below = children(object)) {
                pending.insert(pending.end(), below->rbegin(), below->rend());
            }
        }
    }
    return std::nullopt;
}

std::optional<std::pair<int, int>> AccessibilityProviderAtSpi::selectionRange(
    const ObjectRef &object)
{
    const auto count = call(object, kText, QStringLiteral("GetNSelections"));
    if (!count || count->arguments().isEmpty()) {
        return std::nullopt;
    }
    if (count->arguments().constFirst().toInt() > 0) {
        const auto range = call(object, kText, QStringLiteral("GetSelection"), {0});
        if (!range || range->arguments().size() < 2) {
            return std::nullopt;
        }
        const int start = range->arguments().at(0).toInt();
        const int end = range->arguments().at(1).toInt();
        return std::pair {qMin(start, end), qMax(start, end)};
    }
    const auto caret = property(object, kText, QStringLiteral("CaretOffset"));
    if (!caret) {
        return std::nullopt;
    }
    return std::pair {caret->toInt(), caret->toInt()};
}

std::optional<AttributeValue> AccessibilityProviderAtSpi::readObjectAttribute(
    const ObjectRef &object, const QString &name)
{
    if (name == QLatin1String("AXTitle")) {
        if (const auto title = property(object, kAccessible, QStringLiteral("Name"))) {
            return AttributeValue(title->toString());
        }
        return std::nullopt;
    }
    int start = 0;
    int end = 0;
    if (name == QLatin1String("AXValue")) {
        const auto count = property(object, kText, QStringLiteral("CharacterCount"));
        if (!count) {
            return std::nullopt;
        }
        end = count->toInt();
    } else if (name == QLatin1String("AXSelectedText")) {
        const auto selections = call(object, kText, QStringLiteral("GetNSelections"));
        if (!selections || selections->arguments().isEmpty()) {
            return std::nullopt;
        }
        if (selections->arguments().constFirst().toInt() == 0) {
            return AttributeValue(QString());
        }
        const auto range = selectionRange(object);
        if (!range) {
            return std::nullopt;
        }
        std::tie(start, end) = *range;
    } else {
        return std::nullopt;
    }
    const auto text = call(object, kText, QStringLiteral("GetText"), {start, end});
    if (!text || text->arguments().isEmpty()) {
        return std::nullopt;
    }
    return AttributeValue(text->arguments().constFirst().toString());
}

std::optional<FrontApplication> AccessibilityProviderAtSpi::activeApplication()
{
    if (!connectIfEnabled()) {
        return std::nullopt;
    }
    const auto applications = children({kRegistryService, kRootPath});
    if (!applications) {
        return std::nullopt;
    }
    for (const ObjectRef &application : *applications) {
        const std::optional<qint64> pid = processId(application);
        if (pid == QCoreApplication::applicationPid()) {
            continue;
        }
        const auto window = activeWindow(application);
        if (!window) {
            continue;
        }
        FrontApplication front;
        if (const auto name = property(application, kAccessible, QStringLiteral("Name"));
            name && !name->toString().isEmpty()) {
            front.bundleId = name->toString();
            front.name = name->toString();
        }
        front.pid = pid.value_or(0);
        if (const auto title = property(*window, kAccessible, QStringLiteral("Name"))) {
            front.windowTitle = title->toString();
        }
        return front;
    }
    return std::nullopt;
}

std::optional<QDBusConnection> AccessibilityProviderAtSpi::bus()
{
    if (!connectIfEnabled()) {
        return std::nullopt;
    }
    return m_bus;
}

AccessibleElementPtr AccessibilityProviderAtSpi::systemWideElement()
{
    if (!connectIfEnabled()) {
        return nullptr;
    }
    return std::make_shared<Element>(
        Element::Kind::systemWide, ObjectRef {kRegistryService, kRootPath});
}

AccessibleElementPtr AccessibilityProviderAtSpi::applicationElement(qint64 pid)
{
    // Asking ourselves would wait on our own main thread until the time-out.
    if (pid <= 0 || pid == QCoreApplication::applicationPid() || !connectIfEnabled()) {
        return nullptr;
    }
    const auto applications = children({kRegistryService, kRootPath});
    if (!applications) {
        return nullptr;
    }
    for (const ObjectRef &application : *applications) {
        if (processId(application) == pid) {
            return std::make_shared<Element>(Element::Kind::application, application);
        }
    }
    return nullptr;
}

std::optional<AttributeValue> AccessibilityProviderAtSpi::copyAttribute(
    const AccessibleElementPtr &element, const QString &name, std::chrono::milliseconds timeout)
{
    const auto *target = dynamic_cast<const Element *>(element.get());
    if (!target || !connectIfEnabled()) {
        return std::nullopt;
    }
    m_waitMs = int(timeout.count());
    const auto restore = qScopeGuard([this] { m_waitMs = kTimeoutMs; });
    switch (target->kind) {
    case Element::Kind::systemWide: {
        if (name != QLatin1String("AXFocusedUIElement")) {
            return std::nullopt;
        }
        const auto applications = children(target->object);
        if (!applications) {
            return std::nullopt;
        }
        for (const ObjectRef &application : *applications) {
            if (processId(application) == QCoreApplication::applicationPid()) {
                continue;
            }
            if (const auto window = activeWindow(application)) {
                if (const auto focused = focusedBelow(*window)) {
                    return AttributeValue(AccessibleElementPtr(
                        std::make_shared<Element>(Element::Kind::object, *focused)));
                }
                return std::nullopt;
            }
        }
        return std::nullopt;
    }
    case Element::Kind::application: {
        const auto window = activeWindow(target->object);
        if (name == QLatin1String("AXFocusedWindow")) {
            if (!window) {
                return std::nullopt;
            }
            return AttributeValue(
                AccessibleElementPtr(std::make_shared<Element>(Element::Kind::object, *window)));
        }
        if (name != QLatin1String("AXFocusedUIElement")) {
            return std::nullopt;
        }
        if (const auto focused = focusedBelow(window.value_or(target->object))) {
            return AttributeValue(
                AccessibleElementPtr(std::make_shared<Element>(Element::Kind::object, *focused)));
        }
        return std::nullopt;
    }
    case Element::Kind::object:
        return readObjectAttribute(target->object, name);
    }
    return std::nullopt;
}

AccessibilityWrite AccessibilityProviderAtSpi::setAttribute(const AccessibleElementPtr &element,
    const QString &name, const QString &value, std::chrono::milliseconds timeout)
{
    const auto *target = dynamic_cast<const Element *>(element.get());
    if (!target || target->kind != Element::Kind::object || !connectIfEnabled()) {
        return AccessibilityWrite::refused;
    }
    m_waitMs = int(timeout.count());
    const auto restore = qScopeGuard([this] { m_waitMs = kTimeoutMs; });
    return writeObjectAttribute(target->object, name, value);
}

AccessibilityWrite AccessibilityProviderAtSpi::writeObjectAttribute(
    const ObjectRef &object, const QString &name, const QString &value)
{
    // After an edit the toolkit accepted, a read-back that fails does not mean the text is
    // missing: it may well be there, so it is not refused (which would paste it again).
    if (name == QLatin1String("AXValue")) {
        if (const AccessibilityWrite set = edit(object, QStringLiteral("SetTextContents"), {value});
            set != AccessibilityWrite::written) {
            return set;
        }
        const auto count = characterCount(object);
        const auto text = count ? textBetween(object, 0, *count) : std::nullopt;
        if (!text) {
            return AccessibilityWrite::unanswered;
        }
        return *text == value ? AccessibilityWrite::written : AccessibilityWrite::refused;
    }
    if (name != QLatin1String("AXSelectedText")) {
        return AccessibilityWrite::refused;
    }
    const auto range = selectionRange(object);
    if (!range) {
        return AccessibilityWrite::refused;
    }
    const auto [start, end] = *range;
    if (end > start) {
        if (const AccessibilityWrite deleted
            = edit(object, QStringLiteral("DeleteText"), {start, end});
            deleted != AccessibilityWrite::written) {
            return deleted;
        }
    }
    const auto countBefore = characterCount(object);
    if (!countBefore) {
        return end > start ? AccessibilityWrite::unanswered : AccessibilityWrite::refused;
    }
    if (const AccessibilityWrite inserted = edit(object, QStringLiteral("InsertText"),
            {start, value, insertLength(object.service, value)});
        inserted != AccessibilityWrite::written) {
        return inserted;
    }
    // Toolkits report success whatever landed: read back what the insert added, in the
    // toolkit's own offsets, and take back anything that is not exactly the text.
    const auto countAfter = characterCount(object);
    if (!countAfter) {
        return AccessibilityWrite::unanswered;
    }
    const int added = *countAfter - *countBefore;
    if (added <= 0) {
        return AccessibilityWrite::refused;
    }
    const auto landed = textBetween(object, start, start + added);
    if (!landed) {
        return AccessibilityWrite::unanswered;
    }
    if (*landed == value) {
        return AccessibilityWrite::written;
    }
    call(object, kEditableText, QStringLiteral("DeleteText"), {start, start + added});
    return AccessibilityWrite::refused;
}

std::optional<int> AccessibilityProviderAtSpi::characterCount(const ObjectRef &object)
{
    const auto count = property(object, kText, QStringLiteral("CharacterCount"));
    if (!count) {
        return std::nullopt;
    }
    return count->toInt();
}

std::optional<QString> AccessibilityProviderAtSpi::textBetween(
    const ObjectRef &object, int start, int end)
{
    const auto text = call(object, kText, QStringLiteral("GetText"), {start, end});
    if (!text || text->arguments().isEmpty()) {
        return std::nullopt;
    }
    return text->arguments().constFirst().toString();
}

int AccessibilityProviderAtSpi::insertLength(const QString &service, const QString &value)
{
    // InsertText's length is meant in characters, but the toolkits read it their own way:
    // Qt cuts (or pads with garbage) the string to that many UTF-16 units, the ATK bridge
    // (GTK 3, Firefox, LibreOffice) hands it on as a count of UTF-8 bytes, and GTK 4 ignores
    // it. The text read back afterwards is what counts.
    auto toolkit = m_toolkits.constFind(service);
    if (toolkit == m_toolkits.constEnd()) {
        const auto name
            = property({service, kRootPath}, kApplication, QStringLiteral("ToolkitName"));
        toolkit = m_toolkits.insert(service, name ? name->toString() : QString());
    }
    if (toolkit->compare(QLatin1String("Qt"), Qt::CaseInsensitive) == 0) {
        return int(value.size());
    }
    return int(value.toUtf8().size());
}

} // namespace sayvo
