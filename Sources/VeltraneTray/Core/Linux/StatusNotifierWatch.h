#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QTimer>

namespace Veltrane {

/// Tells whenever a panel's StatusNotifierWatcher is there to register with: once at start when
/// one already runs, then every time the watcher's name gets a new owner (a panel that starts
/// late, restarts, or is replaced), since a new watcher knows none of the items the old one had.
///
/// A panel may take its watcher's name before its host reads new items (waybar lists the items
/// it has, and only then listens for more): an item registered in between is lost. So a watcher
/// is told of once it reports a host (`IsStatusNotifierHostRegistered`, or the
/// `StatusNotifierHostRegistered` signal), or hostBoundMilliseconds after its name appeared, for a
/// watcher that never says. Nothing here blocks: every question to the bus is asynchronous.
class StatusNotifierWatch : public QObject
{
    Q_OBJECT

public:
    static inline const QString watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
    static inline const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");

    /// How long a new watcher may take to report a host before it is told of anyway.
    static constexpr int hostBoundMilliseconds = 3000;

    explicit StatusNotifierWatch(const QDBusConnection &bus, QObject *parent = nullptr);

Q_SIGNALS:
    /// A watcher with a host is on the bus under `owner`, its unique connection name.
    void watcherAppeared(const QString &owner);
    /// Whether a watcher owns its name: told once the bus has answered at start, then at every
    /// change. A watcher is a panel's, so without one the desktop shows no status items.
    void presenceChanged(bool present);

private Q_SLOTS:
    void tellOnce();

private:
    void ownerSeen(const QString &owner);

    QDBusConnection m_bus;
    QString m_owner; // the last owner seen: the start-up question and the watch may both see it
    bool m_told = false; // watcherAppeared was emitted for m_owner
    QTimer m_hostBound;
};

} // namespace Veltrane
