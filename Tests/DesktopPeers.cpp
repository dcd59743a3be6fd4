#include "DesktopPeers.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QMutexLocker>

QStringList FakeStatusNotifierWatcher::registeredItems() const
{
    QMutexLocker lock(&m_mutex);
    QStringList items;
    for (const QString &registration : m_registrations)
        items.append(registration.section(u' ', 1));
    return items;
}

bool FakeStatusNotifierWatcher::isHostRegistered() const
{
    QMutexLocker lock(&m_mutex);
    return m_hostRegistered;
}

void FakeStatusNotifierWatcher::setHostRegistered(bool registered)
{
    {
        QMutexLocker lock(&m_mutex);
        m_hostRegistered = registered;
    }
    if (registered)
        Q_EMIT StatusNotifierHostRegistered();
}

QStringList FakeStatusNotifierWatcher::registrations() const
{
    QMutexLocker lock(&m_mutex);
    return m_registrations;
}

void FakeStatusNotifierWatcher::RegisterStatusNotifierItem(const QString &service)
{
    {
        QMutexLocker lock(&m_mutex);
        m_registrations.append(message().service() + u' ' + service);
    }
    Q_EMIT StatusNotifierItemRegistered(service);
}

void FakeStatusNotifierWatcher::RegisterStatusNotifierHost(const QString &) { Q_EMIT StatusNotifierHostRegistered(); }

QStringList FakeNotificationServer::notices() const
{
    QMutexLocker lock(&m_mutex);
    return m_notices;
}

QStringList FakeNotificationServer::GetCapabilities() { return {u"body"_qs}; }

uint FakeNotificationServer::Notify(const QString &, uint, const QString &, const QString &summary, const QString &body,
                                    const QStringList &, const QVariantMap &, int)
{
    QMutexLocker lock(&m_mutex);
    m_notices.append(summary + u" \u2014 "_qs + body);
    return uint(m_notices.size());
}


namespace {

const QString connectionName = u"desktop-peers"_qs;
const QString watcherService = u"org.kde.StatusNotifierWatcher"_qs;
const QString watcherPath = u"/StatusNotifierWatcher"_qs;
const QString notificationsService = u"org.freedesktop.Notifications"_qs;
const QString notificationsPath = u"/org/freedesktop/Notifications"_qs;

void publish(const QString &service, const QString &path, QObject *object)
{
    QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName);
    bus.registerObject(path, object, QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals
                                         | QDBusConnection::ExportAllProperties);
    if (!bus.registerService(service))
        qFatal("cannot own %s", qPrintable(service));
}

} // namespace

DesktopPeers::DesktopPeers(bool withPanel)
    : m_withPanel(withPanel)
{
}

DesktopPeers::~DesktopPeers()
{
    quit();
    wait();
}

void DesktopPeers::startAndWait()
{
    start();
    m_ready.acquire();
}

void DesktopPeers::startPanel()
{
    onPeersThread([this] { publish(watcherService, watcherPath, watcher); });
}

void DesktopPeers::onPeersThread(const std::function<void()> &change)
{
    QMetaObject::invokeMethod(watcher, change, Qt::BlockingQueuedConnection);
}

void DesktopPeers::run()
{
    FakeStatusNotifierWatcher panelWatcher;
    FakeNotificationServer notificationServer;
    watcher = &panelWatcher;
    notifications = &notificationServer;
    publish(notificationsService, notificationsPath, notifications);
    if (m_withPanel)
        publish(watcherService, watcherPath, watcher);
    m_ready.release();
    exec();
    QDBusConnection bus(connectionName);
    bus.unregisterObject(watcherPath);
    bus.unregisterObject(notificationsPath);
    QDBusConnection::disconnectFromBus(connectionName);
}
