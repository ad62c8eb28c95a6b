#pragma once

#include <QObject>

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace sayvo {

// Subscribes `handler` to an observable property: it is called at once with the current value
// and then with every value the property's change signal carries, synchronously, until
// `context` or `object` is destroyed (or the returned connection is disconnected). The
// connection is made before the current value is delivered, so a change made from inside the
// first call is not missed. Every call goes to the same handler object, so a handler may keep
// state of its own.
//
//     subscribe(&settings, &SettingsStore::endpointURL, &SettingsStore::endpointURLChanged,
//         client, [client](const QUrl &url) { client->updateEndpoint(url); });
template <typename Object, typename Getter, typename Signal, typename Handler>
QMetaObject::Connection subscribe(
    Object *object, Getter getter, Signal changed, const QObject *context, Handler handler)
{
    using Value = std::decay_t<std::invoke_result_t<Getter, Object *>>;
    auto shared = std::make_shared<Handler>(std::move(handler));
    QMetaObject::Connection connection = QObject::connect(
        object, changed, context, [shared](const Value &value) { std::invoke(*shared, value); });
    std::invoke(*shared, std::invoke(getter, object));
    return connection;
}

} // namespace sayvo
