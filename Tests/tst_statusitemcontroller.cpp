#include "ElidedLabel.h"
#include "IconFactory.h"
#include "Notify.h"
#include "SimulatedDaemon.h"
#include "SimulatorServer.h"
#include "StatusItemController.h"

#include <QApplication>
#include <QMenu>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

using namespace Veltrane;
using Simulator::Fault;
using Simulator::SimulatedDaemon;
using Simulator::SimulatorServer;

// JSON is written in plain literals here: moc misreads raw strings that hold quotes.

namespace {

class RecordingStatusItem : public StatusItem
{
public:
    void setMenu(QMenu *menu) override { this->menu = menu; }
    void setIcon(const QIcon &icon) override { this->icon = icon; }
    void setToolTip(const QString &toolTip) override
    {
        this->toolTip = toolTip;
        ++applied;
    }

    QMenu *menu = nullptr;
    QIcon icon;
    QString toolTip;
    int applied = 0; // states applied: the constructor's, then one per reply
};

using Notice = std::pair<QString, QString>;

class RecordingCenter : public NotificationCenter
{
public:
    void requestAuthorization() override {}
    void add(const NotificationRequest &request, DeliveryHandler delivered) override
    {
        notices.append({request.title, request.body});
        delivered(std::nullopt);
    }
    QList<Notice> notices;
};

// The menu as a person reads it: visible rows, separators as "—", disabled rows marked "(off)".
QStringList visibleRows(const QMenu &menu)
{
    QStringList rows;
    for (const QAction *action : menu.actions()) {
        if (!action->isVisible())
            continue;
        if (action->isSeparator())
            rows.append(u"\u2014"_qs);
        else
            rows.append((action->isEnabled() ? QString() : u"(off) "_qs) + action->text());
    }
    return rows;
}

QByteArray statusReply(const QByteArray &status) { return "{\"success\":true,\"status\":" + status + "}\n"; }

const QByteArray connectedStatus =
    "{\"wantRunning\":true,\"membershipState\":\"membership_active\","
    "\"selfFqdn\":\"lab_box.example.ts.net\",\"assignedIp\":\"100.64.0.7\","
    "\"userEmail\":\"maria@example.com\",\"isTagged\":true,\"connectableDevices\":["
    "{\"computerName\":\"web\",\"clientId\":\"w\"},{\"hostName\":\"db\",\"clientId\":\"d\"}]}";

enum class Command { Toggle, Login, Logout };

const QString signInStarted = u"Complete the sign-in in your browser. Veltrane will pick up the session automatically."_qs;

} // namespace

class TestStatusItemController : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QString m_socket;
    std::unique_ptr<SimulatedDaemon> m_daemon;
    std::unique_ptr<SimulatorServer> m_server;
    std::shared_ptr<RecordingCenter> m_center;
    QList<QUrl> m_opened;
    RecordingStatusItem *m_item = nullptr;
    std::unique_ptr<StatusItemController> m_controller;

    void startDaemon(SimulatedDaemon::Options options = {})
    {
        options.connectDelaySeconds = 0;
        m_daemon = std::make_unique<SimulatedDaemon>(options);
        m_server = std::make_unique<SimulatorServer>(*m_daemon);
        QCOMPARE(m_server->listen(m_socket), std::nullopt);
    }

    void startController()
    {
        auto item = std::make_unique<RecordingStatusItem>();
        m_item = item.get();
        m_controller = std::make_unique<StatusItemController>(std::move(item), DaemonClient(m_socket),
                                                              [this](const QUrl &url) { m_opened.append(url); });
    }

    qsizetype requestsOf(const QByteArray &command) const
    {
        return m_server->requestsReceived().count("{\"command\":\"" + command + "\"}");
    }

    QStringList rows() const { return visibleRows(*m_item->menu); }

    void waitForHeader(const QString &header)
    {
        QTRY_COMPARE_WITH_TIMEOUT(m_item->toolTip, u"Veltrane \u2014 "_qs + header, 8000);
    }

private Q_SLOTS:
    void init()
    {
        m_socket = m_dir.filePath(u"daemon.sock"_qs);
        m_center = std::make_shared<RecordingCenter>();
        Notify::install(u"net.veltrane.tray.test"_qs, m_center);
        m_opened.clear();
    }

    void cleanup()
    {
        m_controller.reset();
        m_server.reset();
        m_daemon.reset();
        Notify::install(std::nullopt, nullptr);
    }

    // Every state's menu, tooltip and icon, as the daemon's status makes them.
    void presentsEachState_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QString>("header");
        QTest::addColumn<TrayState>("state");
        QTest::addColumn<QStringList>("expected");
        const QString rule = u"\u2014"_qs;
        const auto menu = [&](const QString &header, const QStringList &middle) {
            return QStringList{u"(off) Veltrane"_qs, u"(off) "_qs + header, rule} + middle
                + QStringList{rule, u"Quit Veltrane"_qs};
        };
        const QStringList active{u"Disconnect"_qs, u"Log out"_qs};
        QTest::newRow("no daemon") << QByteArray() << u"Disconnected"_qs << TrayState::DaemonUnreachable
                                   << menu(u"Disconnected"_qs, {u"(off) Connect"_qs});
        QTest::newRow("refused status") << QByteArray("{\"success\":false,\"status\":{\"wantRunning\":true}}\n")
                                        << u"Disconnected"_qs << TrayState::DaemonUnreachable
                                        << menu(u"Disconnected"_qs, {u"(off) Connect"_qs});
        QTest::newRow("stopped") << statusReply("{\"wantRunning\":false,\"membershipState\":\"membership_active\"}")
                                 << u"Disconnected"_qs << TrayState::Stopped << menu(u"Disconnected"_qs, {u"Connect"_qs});
        QTest::newRow("signed out") << statusReply("{\"wantRunning\":true,\"membershipState\":\"awaiting_login\"}")
                                    << u"Connected, needs auth"_qs << TrayState::LoggedOut
                                    << menu(u"Connected, needs auth"_qs, {u"Disconnect"_qs, u"Log in\u2026"_qs});
        QTest::newRow("connecting, want running absent")
            << statusReply("{\"membershipState\":\"nodemap_stream_opening\"}") << u"Connecting\u2026"_qs
            << TrayState::Connecting << menu(u"Connecting\u2026"_qs, active);
        QTest::newRow("no network") << statusReply("{\"wantRunning\":true,\"membershipState\":\"no_active_memberships\"}")
                                    << u"Connected, no network"_qs << TrayState::NoNetwork
                                    << menu(u"Connected, no network"_qs, active);
        // Tagged without a tag name: no owner, not the e-mail; the "_" escaped for DBusMenu.
        QTest::newRow("connected") << statusReply(connectedStatus) << u"Connected"_qs << TrayState::Connected
                                   << menu(u"Connected"_qs, {u"Disconnect"_qs, u"(off) lab_box.example.ts.net"_qs,
                                                             u"(off) 100.64.0.7"_qs, u"Peers\u2026"_qs, u"Log out"_qs});
        QTest::newRow("error") << statusReply("{\"wantRunning\":true,\"membershipState\":\"invalid_snapshot\"}")
                               << u"Error"_qs << TrayState::Error << menu(u"Error"_qs, active);
    }

    void presentsEachState()
    {
        QFETCH(QByteArray, reply);
        QFETCH(QString, header);
        QFETCH(TrayState, state);
        QFETCH(QStringList, expected);
        if (!reply.isEmpty()) {
            startDaemon();
            m_server->setScriptedReply(reply);
            m_server->setFault(Fault::Scripted);
        }
        startController();
        QTRY_VERIFY_WITH_TIMEOUT(m_item->applied >= 2, 8000); // the first reply, not the start-up state
        QCOMPARE(rows(), expected);
        QCOMPARE(m_item->toolTip, u"Veltrane \u2014 "_qs + header);
        QCOMPARE(m_item->icon.cacheKey(), IconFactory::statusIcon(state).cacheKey());
        QVERIFY(m_center->notices.isEmpty());
    }

    // Each command's outcome is told in exactly one notice; a usable sign-in link is opened.
    void reportsCommandOutcomes_data()
    {
        QTest::addColumn<Command>("command");
        QTest::addColumn<bool>("stopped");
        QTest::addColumn<Fault>("fault");
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<Notice>("expected");
        QTest::addColumn<int>("opened");
        const QByteArray none;
        QTest::newRow("stop refused") << Command::Toggle << false << Fault::Refuse << none
                                      << Notice{u"Disconnect failed"_qs, u"The daemon is busy; try again."_qs} << 0;
        QTest::newRow("start refused without error")
            << Command::Toggle << true << Fault::RefuseWithoutError << none
            << Notice{u"Connect failed"_qs, u"The daemon rejected the request."_qs} << 0;
        QTest::newRow("already signed in") << Command::Login << false << Fault::None << none
                                           << Notice{u"Sign-in failed"_qs, u"Already signed in as maria.lopez@acme.example."_qs} << 0;
        QTest::newRow("sign-in refused without error") << Command::Login << false << Fault::RefuseWithoutError << none
                                                       << Notice{u"Sign-in failed"_qs, u"Login failed."_qs} << 0;
        QTest::newRow("empty link, a message")
            << Command::Login << false << Fault::Scripted
            << QByteArray("{\"success\":true,\"message\":\"Check your e-mail.\",\"login\":{\"loginUrl\":\"\"}}\n")
            << Notice{u"Sign-in"_qs, u"Check your e-mail."_qs} << 0;
        QTest::newRow("not a link, no message")
            << Command::Login << false << Fault::Scripted
            << QByteArray("{\"success\":true,\"login\":{\"loginUrl\":\"http://exa mple.com/%zz\"}}\n")
            << Notice{u"Sign-in"_qs, u"Login link issued."_qs} << 0;
        QTest::newRow("any scheme is opened")
            << Command::Login << false << Fault::Scripted
            << QByteArray("{\"success\":true,\"login\":{\"loginUrl\":\"veltrane-auth:code/42\"}}\n")
            << Notice{u"Sign-in"_qs, signInStarted} << 1;
        QTest::newRow("signed out") << Command::Logout << false << Fault::None << none
                                    << Notice{u"Signed out"_qs, u"Signed out of maria.lopez@acme.example."_qs} << 0;
        QTest::newRow("signed out, no message") << Command::Logout << false << Fault::Scripted
                                                << QByteArray("{\"success\":true}\n")
                                                << Notice{u"Signed out"_qs, u"Your session has been ended."_qs} << 0;
        QTest::newRow("sign-out refused") << Command::Logout << false << Fault::RefuseWithoutError << none
                                          << Notice{u"Sign-out failed"_qs, u"Logout failed."_qs} << 0;
        QTest::newRow("no reply") << Command::Logout << false << Fault::Empty << none
                                  << Notice{u"Veltrane"_qs, u"Unable to reach the daemon: "_qs
                                                                + ClientError::emptyResponse().errorDescription()} << 0;
    }

    void reportsCommandOutcomes()
    {
        QFETCH(Command, command);
        QFETCH(bool, stopped);
        QFETCH(Fault, fault);
        QFETCH(QByteArray, reply);
        QFETCH(Notice, expected);
        QFETCH(int, opened);
        SimulatedDaemon::Options options;
        options.wantRunning = !stopped;
        startDaemon(options);
        const QByteArray wire[] = {stopped ? "start" : "stop", "login_via_link", "logout"};
        m_server->setScriptedReply(reply);
        m_server->setFault(fault, QString::fromLatin1(wire[int(command)]));
        startController();
        QTRY_VERIFY(rows().contains(stopped ? u"Connect"_qs : u"Disconnect"_qs)); // the first status is in
        const auto action = std::array{&StatusItemController::onToggleConnect, &StatusItemController::onLogin,
                                       &StatusItemController::onLogout}[size_t(command)];
        (m_controller.get()->*action)();
        QTRY_VERIFY(!m_center->notices.isEmpty());
        // The command's own poll is answered and applied, and tells nothing more.
        const int applied = m_item->applied;
        QTRY_VERIFY(m_item->applied > applied);
        QList<Notice> told{expected};
        if (opened) // a link was opened, and this daemon is connected already: its pickup is told next
            told.append({u"Signed in"_qs, u"The daemon picked up your session."_qs});
        QCOMPARE(m_center->notices, told);
        QCOMPARE(requestsOf(wire[int(command)]), 1);
        QCOMPARE(m_opened.size(), opened);
    }

    void toggleNeedsADaemon()
    {
        startDaemon();
        m_server->setFault(Fault::RefuseWithoutError, u"get_status"_qs);
        startController();
        QTRY_COMPARE(requestsOf("get_status"), 1);
        QTest::qWait(50);
        m_controller->onToggleConnect();
        QCOMPARE(m_center->notices, (QList<Notice>{{u"Veltrane"_qs, u"The Veltrane daemon is not running."_qs}}));
        QCOMPARE(requestsOf("start") + requestsOf("stop"), 0);
    }

    // A tick while a status request is outstanding sends nothing; a click while a command is.
    void keepsOneRequestOfEachKindOutstanding()
    {
        startDaemon();
        m_server->setFault(Fault::Silent, u"get_status"_qs);
        startController();
        m_controller->onLogout();
        m_controller->onLogout();
        QTest::qWait(StatusItemController::pollIntervalMilliseconds + 800);
        QCOMPARE(requestsOf("get_status"), 1);
        m_server->setFault(Fault::None);
        QTRY_COMPARE_WITH_TIMEOUT(m_center->notices.size(), 1, 8000); // after the 5 s limit
        QCOMPARE(requestsOf("logout"), 1);
        waitForHeader(u"Connected, needs auth"_qs);
        QCOMPARE(m_center->notices.size(), 1); // the dropped click told nothing either
    }

    // A status applied while a command is outstanding disables the command rows.
    void disablesCommandRowsWhileACommandRuns()
    {
        startDaemon();
        startController();
        waitForHeader(u"Connected"_qs);
        m_server->setFault(Fault::SlowReply, u"get_status"_qs);
        QTRY_VERIFY_WITH_TIMEOUT(requestsOf("get_status") >= 2, 5000); // a slow poll is outstanding
        m_controller->onLogout();                                    // queued behind it
        QTRY_VERIFY(rows().contains(u"(off) Disconnect"_qs));
        QTRY_VERIFY_WITH_TIMEOUT(rows().contains(u"Disconnect"_qs), 3000);
    }

    void peersWindowFollowsEveryReply()
    {
        startDaemon();
        startController();
        waitForHeader(u"Connected"_qs);
        m_controller->onShowPeers();
        m_controller->onShowPeers();
        const QWidgetList windows = QApplication::topLevelWidgets();
        const auto titled = [](const QWidget *w) { return w->windowTitle() == u"Veltrane \u2014 Peers"_qs; };
        QCOMPARE(std::count_if(windows.cbegin(), windows.cend(), titled), 1);
        QWidget *window = *std::find_if(windows.cbegin(), windows.cend(), titled);
        QVERIFY(window->isVisible());
        auto *table = window->findChild<QTableView *>();
        QCOMPARE(table->model()->rowCount(), 24);
        m_server->setFault(Fault::Refuse, u"get_status"_qs);
        waitForHeader(u"Disconnected"_qs);
        QCOMPARE(table->model()->rowCount(), 0);
        QCOMPARE(window->findChild<ElidedLabel *>(u"footerLabel"_qs)->text(),
                 u"Control plane: unreachable (daemon not running)"_qs);
    }
};

QTEST_MAIN(TestStatusItemController)
#include "tst_statusitemcontroller.moc"
