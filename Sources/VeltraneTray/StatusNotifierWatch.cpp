#include "StatusNotifierWatch.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>

namespace Veltrane {

namespace {
const QString watcherService = u"org.kde.StatusNotifierWatcher"_qs;
const QString watcherPath = u"/StatusNotifierWatcher"_qs;
} // namespace

StatusNotifierWatch::StatusNotifierWatch(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
{
    // A watcher that starts later (the panel comes up after the app), or a host that registers
    // with a watcher already there: either is a reason to ask again.
    auto *services = new QDBusServiceWatcher(watcherService, m_bus, QDBusServiceWatcher::WatchForRegistration, this);
    connect(services, &QDBusServiceWatcher::serviceRegistered, this, &StatusNotifierWatch::askWhetherHostRegistered);
    m_bus.connect(watcherService, watcherPath, watcherService, u"StatusNotifierHostRegistered"_qs, this,
                  SLOT(askWhetherHostRegistered()));
    askWhetherHostRegistered();
}

void StatusNotifierWatch::askWhetherHostRegistered()
{
    if (m_hostAvailable)
        return;
    QDBusMessage get = QDBusMessage::createMethodCall(watcherService, watcherPath, u"org.freedesktop.DBus.Properties"_qs,
                                                      u"Get"_qs);
    get << watcherService << u"IsStatusNotifierHostRegistered"_qs;
    auto *call = new QDBusPendingCallWatcher(m_bus.asyncCall(get), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *finished) {
        finished->deleteLater();
        const QDBusPendingReply<QDBusVariant> reply = *finished;
        // No watcher yet is an error reply: the service watcher asks again when one appears.
        if (m_hostAvailable || reply.isError() || !reply.value().variant().toBool())
            return;
        m_hostAvailable = true;
        Q_EMIT hostAvailable();
    });
}

} // namespace Veltrane
