#pragma once

#include <QDBusContext>
#include <QDBusVariant>
#include <QMutex>
#include <QObject>
#include <QStringList>

// What a desktop offers a tray app over the session bus, for the end-to-end test: a panel's
// StatusNotifierWatcher with a host registered, and a notification server that records every
// notice. Both live on a thread and bus connection of their own, so the test's own blocking calls
// never keep them from answering.

class FakeStatusNotifierWatcher : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ registeredItems)
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ isHostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)

public:
    QStringList registeredItems() const;
    bool isHostRegistered() const { return true; }
    int protocolVersion() const { return 0; }

    /// Each registration as "<bus name of the caller> <argument>".
    QStringList registrations() const;

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString &service);
    void RegisterStatusNotifierHost(const QString &service);

Q_SIGNALS:
    void StatusNotifierItemRegistered(const QString &service);
    void StatusNotifierItemUnregistered(const QString &service);
    void StatusNotifierHostRegistered();

private:
    mutable QMutex m_mutex;
    QStringList m_registrations;
};

class FakeNotificationServer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    /// Each notice as "summary — body".
    QStringList notices() const;

public Q_SLOTS:
    QStringList GetCapabilities();
    uint Notify(const QString &appName, uint replacesId, const QString &appIcon, const QString &summary,
                const QString &body, const QStringList &actions, const QVariantMap &hints, int expireTimeout);
    QString GetServerInformation(QString &vendor, QString &version, QString &specVersion);

private:
    mutable QMutex m_mutex;
    QStringList m_notices;
};
