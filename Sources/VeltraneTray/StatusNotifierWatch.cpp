#include "StatusNotifierWatch.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>

namespace Veltrane {

StatusNotifierWatch::StatusNotifierWatch(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
{
    auto *owners = new QDBusServiceWatcher(watcherService, bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(owners, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &, const QString &newOwner) { ownerSeen(newOwner); });

    // A watcher already there sent its owner change before we listened: ask once who owns it.
    QDBusMessage ask = QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_qs, u"/org/freedesktop/DBus"_qs,
                                                      u"org.freedesktop.DBus"_qs, u"GetNameOwner"_qs);
    ask << watcherService;
    auto *call = new QDBusPendingCallWatcher(bus.asyncCall(ask), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *finished) {
        finished->deleteLater();
        const QDBusPendingReply<QString> reply = *finished;
        // No owner is an error reply: the owner watch reports the watcher when it comes.
        if (!reply.isError())
            ownerSeen(reply.value());
    });
}

void StatusNotifierWatch::ownerSeen(const QString &owner)
{
    if (owner.isEmpty() || owner == m_owner)
        return;
    m_owner = owner;
    Q_EMIT watcherAppeared(owner);
}

} // namespace Veltrane
