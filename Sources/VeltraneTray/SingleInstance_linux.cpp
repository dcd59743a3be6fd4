#include "SingleInstance.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QTimer>

namespace Veltrane::SingleInstance {

namespace {
// RequestName's flag and answers, from the D-Bus specification.
constexpr uint doNotQueue = 4;
constexpr uint primaryOwner = 1;
constexpr uint alreadyOwner = 4;
} // namespace

void claim(const QString &identity, QObject *context, std::function<void(bool ours)> decided)
{
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        QTimer::singleShot(0, context, [decided] { decided(true); });
        return;
    }
    QDBusMessage request = QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_qs, u"/org/freedesktop/DBus"_qs,
                                                          u"org.freedesktop.DBus"_qs, u"RequestName"_qs);
    request << identity << doNotQueue;
    auto *call = new QDBusPendingCallWatcher(bus.asyncCall(request), context);
    QObject::connect(call, &QDBusPendingCallWatcher::finished, context, [decided](QDBusPendingCallWatcher *finished) {
        finished->deleteLater();
        const QDBusPendingReply<uint> reply = *finished;
        // A bus that cannot answer cannot tell of another instance either.
        decided(reply.isError() || reply.value() == primaryOwner || reply.value() == alreadyOwner);
    });
}

} // namespace Veltrane::SingleInstance
