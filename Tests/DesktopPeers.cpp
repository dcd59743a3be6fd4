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

QString FakeNotificationServer::GetServerInformation(QString &vendor, QString &version, QString &specVersion)
{
    vendor = u"Veltrane tests"_qs;
    version = u"1"_qs;
    specVersion = u"1.2"_qs;
    return u"fake-notifications"_qs;
}
