#pragma once

#include "DaemonClient.h"
#include "StatusItem.h"
#include "TrayState.h"

#include <QObject>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class QAction;
class QMenu;
class QUrl;

namespace Veltrane {

class MenuDeviceView;
class MenuHeaderView;
class MenuWindow;
class PeersWindowController;

/// The tray's main loop: it owns the status item and its menu, asks the daemon for its status every
/// three seconds, and redraws everything it shows from each reply alone: the icon and tooltip, the
/// menu's header and device rows, which rows are shown and enabled, and the peers window once it
/// was opened. The menu's actions send the daemon its commands, one at a time, and tell the user
/// the outcome as a notice.
///
/// At most one status request and one command are outstanding; a tick or a click that finds its
/// request outstanding is dropped. Replies that arrive after the controller is gone are dropped.
class StatusItemController : public QObject
{
    Q_OBJECT

public:
    /// Opens a sign-in link in the user's browser.
    using UrlOpener = std::function<void(const QUrl &url)>;

    static constexpr int pollIntervalMilliseconds = 3000;
    /// How long "Quit Veltrane" waits for a panel to say that its menu closed.
    static constexpr int quitMenuBoundMilliseconds = 500;

    /// Builds the menu into `statusItem`, shows the unreachable daemon, sends the first status
    /// request at once and starts polling every `pollInterval` milliseconds. The app passes the
    /// default client and opener and polls every three seconds; tests pass a simulated daemon's
    /// socket and a recorder, and the soak a shorter interval.
    StatusItemController(std::unique_ptr<StatusItem> statusItem, const DaemonClient &client, UrlOpener openUrl,
                         int pollInterval = pollIntervalMilliseconds);
    ~StatusItemController() override;

    /// Shows the menu as a small window, in front, with the desktop's `activationToken` for the
    /// launch that asked for it (empty where there is none). For a desktop without status items,
    /// or a user who cannot find the icon.
    void showMenuWindow(const QString &activationToken = {});

    /// Shows the menu window once `bound` has passed, unless by then the desktop has been seen
    /// able to show the status item.
    void showMenuWindowUnlessItemShownWithin(std::chrono::milliseconds bound);

public Q_SLOTS:
    void onToggleConnect();
    void onLogin();
    void onLogout();
    void onShowPeers();
    void onQuit();

Q_SIGNALS:
    /// "Quit Veltrane" was chosen: polling has stopped, the peers window is closed, and the status
    /// menu has closed (or was given quitMenuBoundMilliseconds to).
    void quitRequested();

private:
    void buildMenu();
    QAction *addCommandRow(const QString &title, void (StatusItemController::*action)());
    QList<QAction *> addViewRows(QWidget *view, const QList<QAction *> &textForm);
    void poll();
    void applyState(const std::optional<DaemonStatusSnapshot> &snapshot, TrayState state);
    void runCommand(const QString &command, double timeoutSeconds,
                    std::function<void(const DaemonControlResponse &)> outcome);
    void finishQuit();

    DaemonClient m_client;
    UrlOpener m_openUrl;
    std::unique_ptr<QMenu> m_menu;
    // Declared after the menu, so destroyed before it: a widget row's action lets go of a view
    // that is gone.
    std::unique_ptr<MenuHeaderView> m_headerView;
    std::unique_ptr<MenuDeviceView> m_deviceView;
    std::unique_ptr<StatusItem> m_statusItem;
    QList<QAction *> m_deviceItem; // the device row: its widget, or its two lines of text
    QAction *m_toggleItem = nullptr;
    QAction *m_peersItem = nullptr;
    QAction *m_loginItem = nullptr;
    QAction *m_logoutItem = nullptr;
    QTimer m_pollTimer;
    bool m_pollInFlight = false;
    bool m_commandInFlight = false;
    bool m_loginPending = false;
    bool m_menuShown = false;  // the status menu is open, so ticks are held
    bool m_tickMissed = false; // a tick came while it was open
    bool m_quitPending = false; // "Quit Veltrane" waits for the menu to close
    std::optional<DaemonStatusSnapshot> m_lastSnapshot;
    TrayState m_lastState = TrayState::DaemonUnreachable;
    std::unique_ptr<PeersWindowController> m_peersWindow;
    std::unique_ptr<MenuWindow> m_menuWindow; // made when first shown
    std::optional<bool> m_itemShown; // whether the desktop can show the status item, once known
    QTimer m_menuWindowBound;
};

} // namespace Veltrane
