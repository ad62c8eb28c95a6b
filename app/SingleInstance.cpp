#include "app/SingleInstance.h"

#include "app/AppDelegate.h"
#include "base/Logging.h"
#include "desktop/HotkeyManager.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

#include <algorithm>
#include <cstdio>

namespace sayvo {

SingleInstance::SingleInstance() = default;

std::optional<int> SingleInstance::handOffIfRunning()
{
    // The running instance may be starting (not listening yet) or ending (lock not yet
    // released): ask again until one of the two settles it.
    const QDeadlineTimer deadline(kHandOffTimeoutMs);
    for (;;) {
        switch (m_channel.claim()) {
        case InstanceChannel::Claim::first:
            m_first = true;
            return std::nullopt;
        case InstanceChannel::Claim::unavailable:
            Logging::shared().error(
                QStringLiteral("single instance not ensured: ") + m_channel.failure());
            return std::nullopt;
        case InstanceChannel::Claim::taken:
            break;
        }
        const ControlDelivery delivery
            = sendControlRequest(ControlRequest::showSettings, m_channel.directory().toStdString(),
                int(std::max<qint64>(deadline.remainingTime(), 1)));
        if (delivery == ControlDelivery::delivered) {
            std::fputs("Sayvo is already running; its settings window is in front.\n", stdout);
            return 0;
        }
        if (delivery != ControlDelivery::notRunning || deadline.hasExpired()) {
            std::fputs("sayvo: Sayvo is already running but does not answer.\n", stderr);
            return 1;
        }
        QThread::msleep(50);
    }
}

void SingleInstance::serve(AppDelegate &delegate)
{
    if (!m_first) {
        return;
    }
    // Requests stop with the event loop; the lock stays until the process ends.
    QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, &m_channel,
        &InstanceChannel::stopListening);
    if (!m_channel.listen()) {
        Logging::shared().error(
            QStringLiteral("sayvo trigger cannot reach this instance: ") + m_channel.failure());
        return;
    }
    m_channel.setHandler([&delegate](ControlRequest request) {
        Logging::shared().debug(
            QStringLiteral("control: ") + QString::fromStdString(encode(request)).trimmed());
        HotkeyManager *hotkey = delegate.hotkeyManager();
        switch (request) {
        case ControlRequest::triggerPress:
            hotkey->press();
            break;
        case ControlRequest::triggerRelease:
            hotkey->release();
            break;
        case ControlRequest::triggerToggle:
            hotkey->pressAndRelease();
            break;
        case ControlRequest::showSettings:
            delegate.showSettings();
            break;
        }
    });
}

} // namespace sayvo
