#include "SingleInstance.h"

#include <QDBusConnectionInterface>

namespace Veltrane::SingleInstance {

bool claim(const QDBusConnection &bus, const QString &identity)
{
    QDBusConnectionInterface *daemon = bus.interface();
    if (!bus.isConnected() || !daemon)
        return true;
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply =
        daemon->registerService(identity, QDBusConnectionInterface::DontQueueService,
                                QDBusConnectionInterface::DontAllowReplacement);
    return !reply.isValid() || reply.value() == QDBusConnectionInterface::ServiceRegistered;
}

} // namespace Veltrane::SingleInstance
