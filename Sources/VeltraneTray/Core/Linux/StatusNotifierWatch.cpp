#include "StatusNotifierWatch.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>

using namespace Qt::StringLiterals;

namespace Veltrane {

StatusNotifierWatch::StatusNotifierWatch(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
{
    m_hostBound.setSingleShot(true);
    m_hostBound.setInterval(hostBoundMilliseconds);
    connect(&m_hostBound, &QTimer::timeout, this, &StatusNotifierWatch::tellOnce);
    m_bus.connect(watcherService, watcherPath, watcherService, u"StatusNotifierHostRegistered"_s, this,
                  SLOT(tellOnce()));

    auto *owners = new QDBusServiceWatcher(watcherService, bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(owners, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &, const QString &newOwner) { ownerSeen(newOwner); });

    // A watcher already there sent its owner change before we listened: ask once who owns it.
    QDBusMessage ask = QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s,
                                                      u"org.freedesktop.DBus"_s, u"GetNameOwner"_s);
    ask << watcherService;
    auto *call = new QDBusPendingCallWatcher(bus.asyncCall(ask), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *finished) {
        finished->deleteLater();
        const QDBusPendingReply<QString> reply = *finished;
        // No owner is an error reply: the owner watch reports the watcher when it comes.
        if (reply.isError())
            Q_EMIT presenceChanged(false);
        else
            ownerSeen(reply.value());
    });
}

void StatusNotifierWatch::ownerSeen(const QString &owner)
{
    if (owner == m_owner)
        return;
    m_owner = owner;
    Q_EMIT presenceChanged(!owner.isEmpty());
    if (owner.isEmpty()) {
        m_hostBound.stop();
        return;
    }
    m_told = false;
    m_hostBound.start();
    QDBusMessage ask = QDBusMessage::createMethodCall(owner, watcherPath, u"org.freedesktop.DBus.Properties"_s,
                                                      u"Get"_s);
    ask << watcherService << u"IsStatusNotifierHostRegistered"_s;
    auto *call = new QDBusPendingCallWatcher(m_bus.asyncCall(ask), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, [this, owner](QDBusPendingCallWatcher *finished) {
        finished->deleteLater();
        const QDBusPendingReply<QDBusVariant> reply = *finished;
        if (owner == m_owner && !reply.isError() && reply.value().variant().toBool())
            tellOnce();
    });
}

void StatusNotifierWatch::tellOnce()
{
    if (m_owner.isEmpty() || std::exchange(m_told, true))
        return;
    m_hostBound.stop();
    Q_EMIT watcherAppeared(m_owner);
}

} // namespace Veltrane
