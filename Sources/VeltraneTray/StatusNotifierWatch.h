#pragma once

#include <QDBusConnection>
#include <QObject>

namespace Veltrane {

/// Tells whenever a panel's StatusNotifierWatcher is there to register with: once at start when
/// one already runs, then every time the watcher's name gets a new owner (a panel that starts
/// late, restarts, or is replaced), since a new watcher knows none of the items the old one had.
/// Nothing here blocks: the one question to the bus is asynchronous.
class StatusNotifierWatch : public QObject
{
    Q_OBJECT

public:
    static inline const QString watcherService = u"org.kde.StatusNotifierWatcher"_qs;
    static inline const QString watcherPath = u"/StatusNotifierWatcher"_qs;

    explicit StatusNotifierWatch(const QDBusConnection &bus, QObject *parent = nullptr);

Q_SIGNALS:
    /// A watcher is on the bus under `owner`, its unique connection name.
    void watcherAppeared(const QString &owner);

private:
    void ownerSeen(const QString &owner);

    QString m_owner; // the last owner told of: the start-up question and the watch may both see it
};

} // namespace Veltrane
