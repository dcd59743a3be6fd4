#pragma once

#include <QObject>

#include <memory>
#include <optional>

namespace Veltrane {

class StatusItemController;

/// Starts the tray once the event loop runs: stops at once when another instance with the same
/// application identity runs, else makes the one status menu controller and keeps it for the run.
class AppDelegate : public QObject
{
    Q_OBJECT

public:
    /// How the app was started: by the user, or by the session at login (its autostart entry).
    enum class Launch { ByUser, AtLogin };

    /// `identity` is the application's identity, none for a bare executable, which skips the
    /// single-instance rule.
    AppDelegate(const std::optional<QString> &identity, Launch launch);
    ~AppDelegate() override;

    /// Makes the controller, once no other instance turns out to run; returns at once.
    void applicationDidFinishLaunching();

    /// Whether this instance runs the tray.
    bool isRunning() const { return m_statusItemController != nullptr; }

Q_SIGNALS:
    /// The application should end: another instance runs, or the user chose to quit.
    void terminateRequested();

private:
    void startTray();

    std::optional<QString> m_identity;
    Launch m_launch;
    std::unique_ptr<StatusItemController> m_statusItemController;
};

} // namespace Veltrane
