#pragma once

#include <QDBusConnection>
#include <QObject>

namespace Veltrane {

/// Tells when a panel can show a StatusNotifierItem: a StatusNotifierWatcher is on the session
/// bus and a tray host has registered with it.
///
/// Qt looks for such a host once per process, when the first tray icon is made, and without one
/// falls back for good to an XEmbed icon that today's panels never show; so the tray icon must not
/// be made before this says yes. Nothing here blocks: every question to the bus is asynchronous.
class StatusNotifierWatch : public QObject
{
    Q_OBJECT

public:
    explicit StatusNotifierWatch(const QDBusConnection &bus, QObject *parent = nullptr);

    bool isHostAvailable() const { return m_hostAvailable; }

Q_SIGNALS:
    /// Emitted once, when a host is first seen.
    void hostAvailable();

private Q_SLOTS:
    void askWhetherHostRegistered();

private:
    QDBusConnection m_bus;
    bool m_hostAvailable = false;
};

} // namespace Veltrane
