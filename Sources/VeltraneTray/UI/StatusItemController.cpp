#include "StatusItemController.h"

#include "ApplicationShell.h"
#include "IconFactory.h"
#include "MenuViews.h"
#include "MenuWindow.h"
#include "Notify.h"
#include "PeersWindowController.h"

#include <QMenu>
#include <QUrl>
#include <QWidgetAction>

using namespace Qt::StringLiterals;

namespace Veltrane {

namespace {

constexpr double startStopTimeoutSeconds = 15;
constexpr double loginTimeoutSeconds = 70;
constexpr double logoutTimeoutSeconds = 35;

// The toggle's one rule, for its title and for the command it sends: "Disconnect" and "stop" unless
// the last status says the daemon should not run, or there is none.
bool wantsRunning(const std::optional<DaemonStatusSnapshot> &snapshot)
{
    return snapshot && snapshot->wantRunning != false;
}

// What a command's refusal says: the daemon's error text, or a fixed sentence without one.
void notifyRefusal(const DaemonControlResponse &response, const QString &title, const QString &fallback)
{
    Notify::show(title, response.error.value_or(fallback));
}

} // namespace

StatusItemController::StatusItemController(std::unique_ptr<StatusItem> statusItem, const DaemonClient &client,
                                           UrlOpener openUrl, int pollInterval)
    : m_client(client)
    , m_openUrl(std::move(openUrl))
    , m_menu(std::make_unique<QMenu>())
    , m_headerView(std::make_unique<MenuHeaderView>())
    , m_deviceView(std::make_unique<MenuDeviceView>())
    , m_statusItem(std::move(statusItem))
{
    buildMenu();
    m_statusItem->setMenu(m_menu.get());
    applyState(std::nullopt, TrayState::DaemonUnreachable);
    poll();
    // A coarse timer lets the system batch wake-ups, as a laptop wants from a program left running
    // all day; a tick a little late does no harm.
    m_pollTimer.setTimerType(Qt::CoarseTimer);
    m_pollTimer.setInterval(pollInterval);
    // No tick polls while the menu is shown, so its rows hold still under the pointer; the tick
    // missed meanwhile polls once when it closes.
    connect(&m_pollTimer, &QTimer::timeout, this, [this] {
        if (m_menuShown)
            m_tickMissed = true;
        else
            poll();
    });
    connect(m_menu.get(), &QMenu::aboutToShow, this, [this] { m_menuShown = true; });
    connect(m_menu.get(), &QMenu::aboutToHide, this, [this] {
        m_menuShown = false;
        if (m_quitPending)
            finishQuit();
        else if (std::exchange(m_tickMissed, false))
            poll();
    });
    m_pollTimer.start();

    m_menuWindowBound.setSingleShot(true);
    connect(&m_menuWindowBound, &QTimer::timeout, this, [this] {
        if (m_itemShown != true)
            showMenuWindow();
    });
    // A window shown stays until the user closes it; only its line about status icons follows.
    m_statusItem->onShownChanged([this](bool shown) {
        m_itemShown = shown;
        if (m_menuWindow)
            m_menuWindow->setNoTrayHintShown(!shown);
    });
}

void StatusItemController::showMenuWindow(const QString &activationToken)
{
    m_menuWindowBound.stop();
    if (!m_menuWindow) {
        m_menuWindow = std::make_unique<MenuWindow>(
            m_menu.get(), QList<MenuWindow::ViewRow>{{m_headerView.get(), m_headerView->textForm()},
                                                      {m_deviceView.get(), m_deviceView->textForm()}});
    }
    m_menuWindow->setNoTrayHintShown(m_itemShown == false);
    ApplicationShell::bringToFront(m_menuWindow.get(), activationToken);
}

void StatusItemController::showMenuWindowUnlessItemShownWithin(std::chrono::milliseconds bound)
{
    m_menuWindowBound.start(bound);
}

StatusItemController::~StatusItemController() = default;

// Every row is made here, once: a tray host may read the menu only when it is first exported, so
// rows are shown and hidden, never added later.
void StatusItemController::buildMenu()
{
    addViewRows(m_headerView.get(), m_headerView->textForm());
    m_menu->addSeparator();
    m_toggleItem = addCommandRow(u"Connect"_s, &StatusItemController::onToggleConnect);
    m_deviceItem = addViewRows(m_deviceView.get(), m_deviceView->textForm());
    m_peersItem = addCommandRow(u"Peers\u2026"_s, &StatusItemController::onShowPeers);
    m_loginItem = addCommandRow(u"Log in\u2026"_s, &StatusItemController::onLogin);
    m_logoutItem = addCommandRow(u"Log out"_s, &StatusItemController::onLogout);
    m_menu->addSeparator();
    addCommandRow(u"Quit Veltrane"_s, &StatusItemController::onQuit)->setShortcut(QKeySequence::Quit);
}

QAction *StatusItemController::addCommandRow(const QString &title, void (StatusItemController::*action)())
{
    return m_menu->addAction(title, this, action);
}

// A view's row as the view itself, disabled, where the menu shows widgets; else as its text form.
QList<QAction *> StatusItemController::addViewRows(QWidget *view, const QList<QAction *> &textForm)
{
    if (!m_statusItem->showsWidgetRows()) {
        m_menu->addActions(textForm);
        return textForm;
    }
    auto *row = new QWidgetAction(m_menu.get());
    row->setDefaultWidget(view);
    row->setEnabled(false);
    m_menu->addAction(row);
    return {row};
}

void StatusItemController::poll()
{
    if (m_pollInFlight)
        return;
    m_pollInFlight = true;
    // Only the peers window shows the devices; while it is hidden the worker checks them and
    // leaves their records to be made if the window opens.
    const bool devicesShown = m_peersWindow && m_peersWindow->window()->isVisible();
    m_client.tryGetStatus(
        this,
        [this](const std::optional<DaemonStatusSnapshot> &snapshot) {
            m_pollInFlight = false;
            applyState(snapshot, trayStateFrom(snapshot));
        },
        devicesShown ? DaemonProtocol::DeviceRecords::Now : DaemonProtocol::DeviceRecords::WhenAsked);
}

void StatusItemController::applyState(const std::optional<DaemonStatusSnapshot> &snapshot, TrayState state)
{
    if (m_loginPending && (state == TrayState::Connected || state == TrayState::Connecting)) {
        m_loginPending = false;
        Notify::show(u"Signed in"_s, u"The daemon picked up your session."_s);
    }
    m_lastSnapshot = snapshot;
    m_lastState = state;

    const HeaderPresentation header = headerPresentation(state);
    m_headerView->setPresentation(header);
    m_statusItem->setIcon(IconFactory::statusIcon(state));
    m_statusItem->setToolTip(u"Veltrane \u2014 "_s + header.text);

    const bool reachable = state != TrayState::DaemonUnreachable;
    m_toggleItem->setText(reachable && wantsRunning(snapshot) ? u"Disconnect"_s : u"Connect"_s);
    m_toggleItem->setEnabled(reachable && !m_commandInFlight);

    const bool connected = state == TrayState::Connected;
    for (QAction *row : std::as_const(m_deviceItem))
        row->setVisible(connected);
    if (connected && snapshot) {
        const std::optional<QString> &owner = snapshot->isTagged == true ? snapshot->ownerTag : snapshot->userEmail;
        m_deviceView->setDevice(snapshot->selfFqdn.value_or(QString()), snapshot->assignedIp.value_or(QString()),
                                owner.value_or(QString()));
        // A native menu tracks no mouse over a row's widget, so the row itself carries the tooltip.
        if (auto *widgetRow = qobject_cast<QWidgetAction *>(m_deviceItem.constFirst()))
            widgetRow->setToolTip(m_deviceView->toolTip());
    }
    m_peersItem->setVisible(connected);
    m_loginItem->setVisible(state == TrayState::LoggedOut);
    m_loginItem->setEnabled(!m_commandInFlight);
    m_logoutItem->setVisible(reachable && state != TrayState::Stopped && state != TrayState::LoggedOut);
    m_logoutItem->setEnabled(!m_commandInFlight);

    if (m_peersWindow)
        m_peersWindow->applySnapshot(snapshot, state);
}

void StatusItemController::runCommand(const QString &command, double timeoutSeconds,
                                      std::function<void(const DaemonControlResponse &)> outcome)
{
    if (m_commandInFlight)
        return;
    m_commandInFlight = true;
    m_client.send({command}, timeoutSeconds, this, [this, outcome](const DaemonResult &result) {
        if (const auto *error = std::get_if<ClientError>(&result))
            Notify::show(u"Veltrane"_s, u"Unable to reach the daemon: "_s + error->errorDescription());
        else
            outcome(std::get<DaemonControlResponse>(result));
        m_commandInFlight = false;
        poll(); // the menu catches up at once rather than at the next tick
    });
}

void StatusItemController::onToggleConnect()
{
    if (m_lastState == TrayState::DaemonUnreachable) {
        Notify::show(u"Veltrane"_s, u"The Veltrane daemon is not running."_s);
        return;
    }
    const bool stop = wantsRunning(m_lastSnapshot);
    const QString failureTitle = stop ? u"Disconnect failed"_s : u"Connect failed"_s;
    runCommand(stop ? u"stop"_s : u"start"_s, startStopTimeoutSeconds, [failureTitle](const DaemonControlResponse &response) {
        if (!response.succeeded())
            notifyRefusal(response, failureTitle, u"The daemon rejected the request."_s);
    });
}

void StatusItemController::onLogin()
{
    runCommand(u"login_via_link"_s, loginTimeoutSeconds, [this](const DaemonControlResponse &response) {
        if (!response.succeeded()) {
            notifyRefusal(response, u"Sign-in failed"_s, u"Login failed."_s);
            return;
        }
        const QString link = response.login ? response.login->loginUrl.value_or(QString()) : QString();
        const QUrl url(link, QUrl::StrictMode);
        if (link.isEmpty() || !url.isValid()) {
            Notify::show(u"Sign-in"_s, response.message.value_or(u"Login link issued."_s));
            return;
        }
        m_openUrl(url);
        m_loginPending = true;
        Notify::show(u"Sign-in"_s,
                     u"Complete the sign-in in your browser. Veltrane will pick up the session automatically."_s);
    });
}

void StatusItemController::onLogout()
{
    runCommand(u"logout"_s, logoutTimeoutSeconds, [](const DaemonControlResponse &response) {
        if (!response.succeeded()) {
            notifyRefusal(response, u"Sign-out failed"_s, u"Logout failed."_s);
            return;
        }
        Notify::show(u"Signed out"_s, response.message.value_or(u"Your session has been ended."_s));
    });
}

void StatusItemController::onShowPeers()
{
    if (!m_peersWindow)
        m_peersWindow = std::make_unique<PeersWindowController>();
    m_peersWindow->applySnapshot(m_lastSnapshot, m_lastState);
    m_peersWindow->showWindow(m_statusItem->takeActivationToken());
}

void StatusItemController::onQuit()
{
    m_pollTimer.stop();
    if (m_peersWindow)
        m_peersWindow->window()->close();
    if (m_menuWindow)
        m_menuWindow->close();
    // A panel says its menu closed after the row that ends the app was chosen (GNOME Shell does):
    // the app stays until then, or it meets a panel that asks after a menu that is gone.
    if (!m_menuShown) {
        Q_EMIT quitRequested();
        return;
    }
    m_quitPending = true;
    QTimer::singleShot(quitMenuBoundMilliseconds, this, &StatusItemController::finishQuit);
}

void StatusItemController::finishQuit()
{
    if (std::exchange(m_quitPending, false))
        Q_EMIT quitRequested();
}

} // namespace Veltrane
