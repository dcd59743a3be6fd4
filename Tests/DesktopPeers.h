#pragma once

#include <QDBusContext>
#include <QDBusVariant>
#include <QMutex>
#include <QObject>
#include <QSemaphore>
#include <QStringList>
#include <QThread>

#include <functional>

// What a desktop offers a tray app over the session bus, for the tests that need one: a panel's
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
    bool isHostRegistered() const;
    /// A panel's host registers (or, before, none has): announced as a watcher announces it.
    void setHostRegistered(bool registered);
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
    bool m_hostRegistered = true;
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

private:
    mutable QMutex m_mutex;
    QStringList m_notices;
};

/// The desktop's side of the bus: the notification server from the start, and the panel's watcher
/// from the start or only when `startPanel()` is called, as when the panel comes up late.
class DesktopPeers : public QThread
{
public:
    explicit DesktopPeers(bool withPanel);
    ~DesktopPeers() override;

    /// Starts the thread and returns once its services are on the bus.
    void startAndWait();
    void startPanel();
    /// Runs `change` on the peers' thread, where their D-Bus signals must be sent from.
    void onPeersThread(const std::function<void()> &change);

    // Made and destroyed on the peers' thread, as QtDBus wants of objects it exports; there from
    // startAndWait() until the thread ends.
    FakeStatusNotifierWatcher *watcher = nullptr;
    FakeNotificationServer *notifications = nullptr;

protected:
    void run() override;

private:
    bool m_withPanel;
    QSemaphore m_ready;
};
