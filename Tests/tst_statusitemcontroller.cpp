#include "ElidedLabel.h"
#include "IconFactory.h"
#include "MenuViews.h"
#include "Notify.h"
#include "SimulatedDaemon.h"
#include "SimulatorServer.h"
#include "StatusItemController.h"

#include <QApplication>
#include <QLineEdit>
#include <QMenu>
#include <QSignalSpy>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>
#include <QWidgetAction>

using namespace Veltrane;
using Simulator::Fault;
using Simulator::SimulatedDaemon;
using Simulator::SimulatorServer;

namespace {

// JSON is written in plain literals here: moc misreads raw strings that hold quotes.

// The platform's status item, reduced to what the controller gives it.
class RecordingStatusItem : public StatusItem
{
public:
    explicit RecordingStatusItem(bool widgets) : m_widgets(widgets) {}

    bool menuShowsWidgets() const override { return m_widgets; }
    void setMenu(QMenu *menu) override { this->menu = menu; }
    void setIcon(const QIcon &icon) override { this->icon = icon; }
    void setToolTip(const QString &toolTip) override { this->toolTip = toolTip; }

    QMenu *menu = nullptr;
    QIcon icon;
    QString toolTip;

private:
    bool m_widgets;
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
        else if (qobject_cast<const QWidgetAction *>(action))
            rows.append(u"(widget) "_qs + action->objectName());
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

    void startController(bool widgets = false)
    {
        auto item = std::make_unique<RecordingStatusItem>(widgets);
        m_item = item.get();
        m_controller = std::make_unique<StatusItemController>(std::move(item), DaemonClient(m_socket),
                                                              [this](const QUrl &url) { m_opened.append(url); });
    }

    qsizetype requestsOf(const QByteArray &command) const
    {
        const QByteArray line = "{\"command\":\"" + command + "\"}";
        return m_server->requestsReceived().count(line);
    }

    QStringList rows() const { return visibleRows(*m_item->menu); }

    QAction *row(const QString &text) const
    {
        for (QAction *action : m_item->menu->actions()) {
            if (action->text() == text)
                return action;
        }
        qFatal("no row %s", qPrintable(text));
    }

    // Waits until the controller has applied a reply whose header reads `header`.
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
        IconFactory::clearStatusIconCache();
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
        const QString quit = u"Quit Veltrane"_qs;
        const QString rule = u"\u2014"_qs;
        const QString title = u"(off) Veltrane"_qs;
        QTest::newRow("no daemon") << QByteArray() << u"Disconnected"_qs << TrayState::DaemonUnreachable
                                   << QStringList{title, u"(off) Disconnected"_qs, rule, u"(off) Connect"_qs, rule, quit};
        QTest::newRow("refused status") << QByteArray("{\"success\":false,\"status\":{\"wantRunning\":true}}" "\n")
                                        << u"Disconnected"_qs << TrayState::DaemonUnreachable
                                        << QStringList{title, u"(off) Disconnected"_qs, rule, u"(off) Connect"_qs, rule, quit};
        QTest::newRow("stopped") << statusReply("{\"wantRunning\":false,\"membershipState\":\"membership_active\"}")
                                 << u"Disconnected"_qs << TrayState::Stopped
                                 << QStringList{title, u"(off) Disconnected"_qs, rule, u"Connect"_qs, rule, quit};
        QTest::newRow("signed out") << statusReply("{\"wantRunning\":true,\"membershipState\":\"awaiting_login\"}")
                                    << u"Connected, needs auth"_qs << TrayState::LoggedOut
                                    << QStringList{title, u"(off) Connected, needs auth"_qs, rule, u"Disconnect"_qs,
                                                   u"Log in\u2026"_qs, rule, quit};
        QTest::newRow("connecting, want running absent") << statusReply("{\"membershipState\":\"nodemap_stream_opening\"}")
                                    << u"Connecting\u2026"_qs << TrayState::Connecting
                                    << QStringList{title, u"(off) Connecting\u2026"_qs, rule, u"Disconnect"_qs, u"Log out"_qs, rule, quit};
        QTest::newRow("no network") << statusReply("{\"wantRunning\":true,\"membershipState\":\"no_active_memberships\"}")
                                    << u"Connected, no network"_qs << TrayState::NoNetwork
                                    << QStringList{title, u"(off) Connected, no network"_qs, rule, u"Disconnect"_qs,
                                                   u"Log out"_qs, rule, quit};
        // Tagged without a tag name: no owner, not the e-mail; the "_" escaped for DBusMenu.
        QTest::newRow("connected") << statusReply(connectedStatus) << u"Connected"_qs << TrayState::Connected
                                   << QStringList{title, u"(off) Connected"_qs, rule, u"Disconnect"_qs,
                                                  u"(off) lab__box.example.ts.net"_qs, u"(off) 100.64.0.7"_qs,
                                                  u"Peers\u2026"_qs, u"Log out"_qs, rule, quit};
        QTest::newRow("error") << statusReply("{\"wantRunning\":true,\"membershipState\":\"invalid_snapshot\"}")
                               << u"Error"_qs << TrayState::Error
                               << QStringList{title, u"(off) Error"_qs, rule, u"Disconnect"_qs, u"Log out"_qs, rule, quit};
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
        // Before any reply, and after the first: the unreachable menu, then the state's own.
        if (state != TrayState::DaemonUnreachable)
            waitForHeader(header);
        QTRY_COMPARE(rows(), expected);
        QCOMPARE(m_item->toolTip, u"Veltrane \u2014 "_qs + header);
        QCOMPARE(m_item->icon.cacheKey(), IconFactory::statusIcon(state).cacheKey());
        QVERIFY(m_center->notices.isEmpty());
    }

    // Where Qt draws the menu, the header and device rows are the widgets themselves.
    void showsWidgetRowsWhereQtDrawsTheMenu()
    {
        startDaemon();
        m_server->setScriptedReply(statusReply(connectedStatus));
        m_server->setFault(Fault::Scripted);
        startController(true);
        waitForHeader(u"Connected"_qs);
        QList<QWidgetAction *> widgetRows;
        for (QAction *action : m_item->menu->actions()) {
            if (auto *widgetRow = qobject_cast<QWidgetAction *>(action))
                widgetRows.append(widgetRow);
        }
        QCOMPARE(widgetRows.size(), 2);
        QVERIFY(qobject_cast<MenuHeaderView *>(widgetRows[0]->defaultWidget()));
        auto *device = qobject_cast<MenuDeviceView *>(widgetRows[1]->defaultWidget());
        QVERIFY(device && widgetRows[1]->isVisible());
        QCOMPARE(device->findChild<ElidedLabel *>(u"nameLabel"_qs)->text(), u"lab_box.example.ts.net"_qs);
        QCOMPARE(device->findChild<ElidedLabel *>(u"detailLabel"_qs)->text(), u"100.64.0.7"_qs);
        QCOMPARE(rows().size(), 8);

        m_server->setFault(Fault::RefuseWithoutError);
        waitForHeader(u"Disconnected"_qs);
        QVERIFY(!widgetRows[1]->isVisible());
    }

    void pollsEveryFewSecondsButNeverTwiceAtOnce()
    {
        startDaemon();
        m_server->setFault(Fault::Silent, u"get_status"_qs);
        startController();
        QTRY_COMPARE(requestsOf("get_status"), 1);
        QTest::qWait(StatusItemController::pollIntervalMilliseconds + 800); // a tick found it outstanding
        QCOMPARE(requestsOf("get_status"), 1);
        m_server->setFault(Fault::None);
        QTRY_COMPARE_WITH_TIMEOUT(requestsOf("get_status"), 2, 6000); // after the 5 s limit, the next tick
        waitForHeader(u"Connected"_qs);
    }

    void togglesFromTheLastStatus()
    {
        startDaemon();
        m_server->setFault(Fault::RefuseWithoutError, u"get_status"_qs);
        startController();
        QTRY_COMPARE(requestsOf("get_status"), 1);
        QTest::qWait(50);
        m_controller->onToggleConnect();
        QCOMPARE(m_center->notices, (QList<Notice>{{u"Veltrane"_qs, u"The Veltrane daemon is not running."_qs}}));
        QCOMPARE(requestsOf("start") + requestsOf("stop"), 0);

        // Wanting to run is assumed when the status does not say: "Disconnect" sends "stop".
        m_server->setScriptedReply(statusReply("{\"membershipState\":\"membership_active\"}"));
        m_server->setFault(Fault::Scripted, u"get_status"_qs);
        waitForHeader(u"Connected"_qs);
        QCOMPARE(row(u"Disconnect"_qs)->isEnabled(), true);
        m_server->setFault(Fault::RefuseWithoutError, u"stop"_qs);
        m_center->notices.clear();
        m_controller->onToggleConnect();
        QTRY_COMPARE(m_center->notices, (QList<Notice>{{u"Disconnect failed"_qs, u"The daemon rejected the request."_qs}}));
        QCOMPARE(requestsOf("stop"), 1);

        // A successful command says nothing; the title follows the status asked for at once.
        m_server->setFault(Fault::None);
        waitForHeader(u"Connected"_qs);
        m_center->notices.clear();
        const qsizetype polls = requestsOf("get_status");
        m_controller->onToggleConnect();
        QTRY_COMPARE(requestsOf("get_status"), polls + 1);
        QTRY_COMPARE(rows()[3], u"Connect"_qs);
        QCOMPARE(m_center->notices, QList<Notice>{});

        m_server->setFault(Fault::Refuse, u"start"_qs);
        m_controller->onToggleConnect();
        QTRY_COMPARE(m_center->notices, (QList<Notice>{{u"Connect failed"_qs, u"The daemon is busy; try again."_qs}}));
    }

    void reportsTransportErrors()
    {
        startDaemon();
        startController();
        waitForHeader(u"Connected"_qs);
        m_server->setFault(Fault::Empty, u"logout"_qs);
        m_controller->onLogout();
        const QString expected = u"Unable to reach the daemon: "_qs + ClientError::emptyResponse().errorDescription();
        QTRY_COMPARE(m_center->notices, (QList<Notice>{{u"Veltrane"_qs, expected}}));
    }

    void signsOut()
    {
        startDaemon();
        startController();
        waitForHeader(u"Connected"_qs);
        m_controller->onLogout();
        QTRY_COMPARE(m_center->notices, (QList<Notice>{{u"Signed out"_qs, u"Signed out of maria.lopez@acme.example."_qs}}));
        waitForHeader(u"Connected, needs auth"_qs);

        m_center->notices.clear();
        m_server->setFault(Fault::RefuseWithoutError, u"logout"_qs);
        m_controller->onLogout();
        QTRY_COMPARE(m_center->notices, (QList<Notice>{{u"Sign-out failed"_qs, u"Logout failed."_qs}}));

        m_center->notices.clear();
        m_server->setScriptedReply("{\"success\":true}" "\n");
        m_server->setFault(Fault::Scripted, u"logout"_qs);
        m_controller->onLogout();
        QTRY_COMPARE(m_center->notices, (QList<Notice>{{u"Signed out"_qs, u"Your session has been ended."_qs}}));
    }

    // From "Log in…" to "Signed in": the link opened, one notice each way.
    void signsInThroughTheBrowser()
    {
        SimulatedDaemon::Options options;
        options.session = SimulatedDaemon::Session::SignedOut;
        options.loginDelaySeconds = -1;
        startDaemon(options);
        startController();
        waitForHeader(u"Connected, needs auth"_qs);
        m_controller->onLogin();
        m_controller->onLogin(); // a second click while the first is outstanding is dropped
        QTRY_COMPARE(m_center->notices.size(), 1);
        QCOMPARE(m_center->notices[0], (Notice{u"Sign-in"_qs, u"Complete the sign-in in your browser. Veltrane will pick up the session automatically."_qs}));
        QCOMPARE(requestsOf("login_via_link"), 1);
        QCOMPARE(m_opened.size(), 1);
        QVERIFY(m_opened[0].toString().startsWith(u"https://login.veltrane.example/a/VLT-"_qs));

        // Still signed out at the next status: no notice yet.
        QTRY_VERIFY_WITH_TIMEOUT(requestsOf("get_status") >= 3, 5000);
        QCOMPARE(m_center->notices.size(), 1);

        m_daemon->approveLogin();
        waitForHeader(u"Connected"_qs);
        QCOMPARE(m_center->notices.size(), 2);
        QCOMPARE(m_center->notices[1], (Notice{u"Signed in"_qs, u"The daemon picked up your session."_qs}));
        const qsizetype polls = requestsOf("get_status");
        QTRY_VERIFY_WITH_TIMEOUT(requestsOf("get_status") > polls, 5000);
        QTest::qWait(100);
        QCOMPARE(m_center->notices.size(), 2);
    }

    void signInOutcomes_data()
    {
        QTest::addColumn<Fault>("fault");
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<Notice>("expected");
        QTest::addColumn<int>("opened");
        QTest::newRow("already signed in") << Fault::None << QByteArray()
                                           << Notice{u"Sign-in failed"_qs, u"Already signed in as maria.lopez@acme.example."_qs} << 0;
        QTest::newRow("refused without error") << Fault::RefuseWithoutError << QByteArray()
                                               << Notice{u"Sign-in failed"_qs, u"Login failed."_qs} << 0;
        QTest::newRow("empty link, a message")
            << Fault::Scripted << QByteArray("{\"success\":true,\"message\":\"Check your e-mail.\",\"login\":{\"loginUrl\":\"\"}}" "\n")
            << Notice{u"Sign-in"_qs, u"Check your e-mail."_qs} << 0;
        QTest::newRow("not a link, no message")
            << Fault::Scripted << QByteArray("{\"success\":true,\"login\":{\"loginUrl\":\"http://exa mple.com/%zz\"}}" "\n")
            << Notice{u"Sign-in"_qs, u"Login link issued."_qs} << 0;
        QTest::newRow("no login record") << Fault::Scripted << QByteArray("{\"success\":true}" "\n")
                                         << Notice{u"Sign-in"_qs, u"Login link issued."_qs} << 0;
        QTest::newRow("any scheme is opened")
            << Fault::Scripted << QByteArray("{\"success\":true,\"login\":{\"loginUrl\":\"veltrane-auth:code/42\"}}" "\n")
            << Notice{u"Sign-in"_qs, u"Complete the sign-in in your browser. Veltrane will pick up the session automatically."_qs} << 1;
    }

    void signInOutcomes()
    {
        QFETCH(Fault, fault);
        QFETCH(QByteArray, reply);
        QFETCH(Notice, expected);
        QFETCH(int, opened);
        startDaemon();
        m_server->setScriptedReply(reply);
        m_server->setFault(fault, u"login_via_link"_qs);
        startController();
        waitForHeader(u"Connected"_qs);
        m_controller->onLogin();
        QTRY_VERIFY(!m_center->notices.isEmpty());
        QCOMPARE(m_center->notices.first(), expected);
        QCOMPARE(m_opened.size(), opened);
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
        QTRY_COMPARE(rows().contains(u"(off) Disconnect"_qs), true);
        QVERIFY(rows().contains(u"(off) Log out"_qs) || rows().contains(u"(off) Log in\u2026"_qs));
        QTRY_COMPARE_WITH_TIMEOUT(rows().contains(u"Disconnect"_qs), true, 3000); // enabled after it ended
    }

    void peersWindowFollowsEveryReply()
    {
        startDaemon();
        startController();
        waitForHeader(u"Connected"_qs);
        m_controller->onShowPeers();
        m_controller->onShowPeers();
        QWidgetList windows;
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (widget->windowTitle() == u"Veltrane \u2014 Peers"_qs)
                windows.append(widget);
        }
        QCOMPARE(windows.size(), 1);
        QWidget *window = windows[0];
        QVERIFY(window->isVisible());
        auto *table = window->findChild<QTableView *>();
        QCOMPARE(table->model()->rowCount(), 24);

        m_server->setFault(Fault::Refuse, u"get_status"_qs);
        waitForHeader(u"Disconnected"_qs);
        QCOMPARE(table->model()->rowCount(), 0);
        QCOMPARE(window->findChild<ElidedLabel *>(u"footerLabel"_qs)->text(),
                 u"Control plane: unreachable (daemon not running)"_qs);

        // Closed, it is still fed, and comes back as it was.
        window->findChild<QLineEdit *>()->setText(u"macbook"_qs);
        window->close();
        m_server->setFault(Fault::None);
        waitForHeader(u"Connected"_qs);
        QVERIFY(table->model()->rowCount() > 0);
        QVERIFY(table->model()->rowCount() < 24);
        m_controller->onShowPeers();
        QVERIFY(window->isVisible());
    }

    void quitStopsPollingAndClosesThePeersWindow()
    {
        startDaemon();
        startController();
        waitForHeader(u"Connected"_qs);
        m_controller->onShowPeers();
        QSignalSpy quit(m_controller.get(), &StatusItemController::quitRequested);
        QWidget *window = QApplication::activePopupWidget();
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (widget->windowTitle() == u"Veltrane \u2014 Peers"_qs)
                window = widget;
        }
        QVERIFY(window && window->isVisible());
        row(u"Quit Veltrane"_qs)->trigger();
        QCOMPARE(quit.size(), 1);
        QVERIFY(!window->isVisible());
        const qsizetype polls = requestsOf("get_status");
        QTest::qWait(StatusItemController::pollIntervalMilliseconds + 500);
        QCOMPARE(requestsOf("get_status"), polls);
    }
};

QTEST_MAIN(TestStatusItemController)
#include "tst_statusitemcontroller.moc"
