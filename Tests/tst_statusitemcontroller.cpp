// The controller against the simulated daemon over a real socket, with the exchange watched as the
// daemon client receives it: the rows of each state, the notice of each command's outcome, one
// command at a time, the time limits and quitting. The whole-app tests read the same from the
// running app, through a panel's eyes.
#include "SimulatedDaemon.h"
#include "SimulatorServer.h"
#include "StatusItemController.h"

#include "Notify.h"

#include <QApplication>
#include <QMenu>
#include <QMutex>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>
#include <QWidgetAction>

using namespace Qt::StringLiterals;
using namespace Veltrane;

namespace {

// A status item that keeps the menu it was given and its tooltip, which names the state applied
// last; like a menu bar's, the desktop always shows it.
class RecordingStatusItem : public StatusItem
{
public:
    explicit RecordingStatusItem(QString *toolTip, QMenu **menu = nullptr) : m_toolTip(toolTip), m_menu(menu) {}
    void setMenu(QMenu *menu) override
    {
        if (m_menu)
            *m_menu = menu;
    }
    void setIcon(const QIcon &) override {}
    void setToolTip(const QString &toolTip) override { *m_toolTip = toolTip; }

private:
    QString *m_toolTip;
    QMenu **m_menu;
};

// An item no panel shows.
class UnseenStatusItem : public RecordingStatusItem
{
public:
    using RecordingStatusItem::RecordingStatusItem;
    void onShownChanged(std::function<void(bool)> changed) override { changed(false); }
};

// A menu bar's item, whose native menu shows the rows' own widgets.
class WidgetRowsStatusItem : public RecordingStatusItem
{
public:
    using RecordingStatusItem::RecordingStatusItem;
    bool showsWidgetRows() const override { return true; }
};

// The notification service, reduced to the notices it was handed: "title | body".
class RecordingCenter : public NotificationCenter
{
public:
    void requestAuthorization() override {}
    void add(const NotificationRequest &request, DeliveryHandler delivered) override
    {
        notices.append(request.title + u" | "_s + request.body);
        delivered(std::nullopt);
    }
    QStringList notices;
};

bool menuWindowShown()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    return std::any_of(windows.cbegin(), windows.cend(),
                       [](QWidget *w) { return w->isVisible() && w->windowTitle() == u"Veltrane"_s; });
}

// The menu's rows between its two rules as a panel shows them: visible ones only, "(off) " before
// a disabled one.
QStringList middleRows(const QMenu *menu)
{
    QStringList rows;
    int rules = 0;
    for (const QAction *action : menu->actions()) {
        rules += action->isSeparator();
        if (rules == 1 && !action->isSeparator() && action->isVisible())
            rows.append((action->isEnabled() ? QString() : u"(off) "_s) + action->text());
    }
    return rows;
}

constexpr int noTicks = 60 * 60 * 1000; // only the first poll and those after commands

} // namespace

class TestStatusItemController : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QString m_path;
    std::unique_ptr<Simulator::SimulatedDaemon> m_daemon;
    std::unique_ptr<Simulator::SimulatorServer> m_server;
    std::shared_ptr<RecordingCenter> m_center;
    QString m_toolTip;
    QMenu *m_menu = nullptr;
    QList<QUrl> m_opened;

    void startDaemon(bool wantRunning = true, bool signedIn = true)
    {
        Simulator::SimulatedDaemon::Options options;
        options.connectDelaySeconds = 0;
        options.loginDelaySeconds = -1;
        options.wantRunning = wantRunning;
        options.session = signedIn ? Simulator::SimulatedDaemon::Session::Active
                                   : Simulator::SimulatedDaemon::Session::SignedOut;
        m_server.reset();
        m_daemon = std::make_unique<Simulator::SimulatedDaemon>(options);
        m_server = std::make_unique<Simulator::SimulatorServer>(*m_daemon);
        QCOMPARE(m_server->listen(m_path), std::nullopt);
    }

    std::unique_ptr<StatusItemController> controller(const DaemonClient &client)
    {
        return std::make_unique<StatusItemController>(std::make_unique<RecordingStatusItem>(&m_toolTip, &m_menu),
                                                      client, [this](const QUrl &url) { m_opened.append(url); },
                                                      noTicks);
    }

private Q_SLOTS:
    void init()
    {
        m_path = m_dir.filePath(u"daemon.sock"_s);
        m_center = std::make_shared<RecordingCenter>();
        Notify::install(u"net.veltrane.tray"_s, m_center);
        m_toolTip.clear();
        m_opened.clear();
        startDaemon();
    }

    void cleanup() { m_server.reset(); }

    // Each command goes out with its own time limit, and a status request with five seconds: a
    // browser sign-in must outlast the daemon's wait for the link, a sign-out its clean-up. A click
    // while a command runs is dropped, not queued.
    void sendsOneCommandAtATimeWithItsTimeLimit()
    {
        QMutex mutex;
        QMultiMap<QString, double> limits; // written on the client's worker thread
        const auto watched = [&](const QByteArray &socketPath, const DaemonControlRequest &request, double timeout,
                                 DaemonProtocol::DeviceRecords devices) {
            {
                QMutexLocker locker(&mutex);
                limits.insert(request.command, timeout);
            }
            return DaemonClient::exchangeNow(socketPath, request, timeout, devices);
        };
        const auto sent = [&](const QString &command) {
            QMutexLocker locker(&mutex);
            return limits.values(command);
        };
        const auto tray = controller(DaemonClient(m_path, watched));

        QTRY_COMPARE(m_toolTip, u"Veltrane \u2014 Connected"_s);
        tray->onToggleConnect();
        tray->onToggleConnect();
        tray->onLogout();
        QTRY_COMPARE(m_toolTip, u"Veltrane \u2014 Disconnected"_s);
        tray->onToggleConnect();
        QTRY_COMPARE(m_toolTip, u"Veltrane \u2014 Connected"_s);
        tray->onLogout();
        QTRY_COMPARE(m_toolTip, u"Veltrane \u2014 Connected, needs auth"_s);
        tray->onLogin();
        QTRY_COMPARE(m_opened.size(), 1);
        QTRY_COMPARE(sent(u"get_status"_s).size(), 5); // at start and after each command

        QCOMPARE(sent(u"stop"_s), QList<double>{15});
        QCOMPARE(sent(u"start"_s), QList<double>{15});
        QCOMPARE(sent(u"logout"_s), QList<double>{35});
        QCOMPARE(sent(u"login_via_link"_s), QList<double>{70});
        QCOMPARE(sent(u"get_status"_s), QList<double>(5, 5));
        QCOMPARE(limits.size(), 9);
    }

    // Which rows show, and which take a click, for each status the daemon may report.
    void showsTheRowsOfEachState_data();

    void showsTheRowsOfEachState()
    {
        QFETCH(QByteArray, reply);
        QFETCH(QString, header);
        QFETCH(QStringList, rows);
        m_server->setFault(Simulator::Fault::Scripted, u"get_status"_s);
        m_server->setScriptedReply(reply + '\n');
        const auto tray = controller(DaemonClient(m_path));
        // Each differs from the rows shown before the first answer, those of an unreachable daemon.
        QTRY_COMPARE(middleRows(m_menu), rows);
        QCOMPARE(m_toolTip, u"Veltrane \u2014 "_s + header);
    }

    // Each outcome of each command is told by exactly one notice.
    void tellsEachOutcome_data();

    void tellsEachOutcome()
    {
        QFETCH(QString, command);
        QFETCH(QByteArray, reply);
        QFETCH(QString, notice);
        // Signed out for a sign-in, so that none completes behind the reply.
        startDaemon(command != u"start"_s, command != u"login_via_link"_s);
        const auto tray = controller(DaemonClient(m_path));
        QTRY_VERIFY(!middleRows(m_menu).constFirst().startsWith(u"(off)"_s)); // the daemon's first answer is in
        m_server->setFault(Simulator::Fault::Scripted, command);
        m_server->setScriptedReply(reply.isEmpty() ? reply : reply + '\n');
        const QHash<QString, void (StatusItemController::*)()> rows{{u"stop"_s, &StatusItemController::onToggleConnect},
            {u"start"_s, &StatusItemController::onToggleConnect}, {u"login_via_link"_s, &StatusItemController::onLogin},
            {u"logout"_s, &StatusItemController::onLogout}};
        (tray.get()->*rows.value(command))();
        QTRY_COMPARE(m_center->notices.size(), 1);
        QTest::qWait(100); // and no second notice follows
        QCOMPARE(m_center->notices, QStringList{notice});
        QCOMPARE(m_opened.size(), notice.contains(u"browser"_s) ? 1 : 0);
    }

    void tellsThatTheDaemonIsNotRunning()
    {
        const auto tray = controller(DaemonClient(m_path + u".missing"_s));
        tray->onToggleConnect();
        QCOMPARE(m_center->notices, QStringList{u"Veltrane | The Veltrane daemon is not running."_s});
    }

    // A native menu shows no tooltip of a row's widget: the device row itself carries its whole text.
    void widgetRowsCarryTheirWholeText()
    {
        m_server->setFault(Simulator::Fault::Scripted, u"get_status"_s);
        m_server->setScriptedReply(R"({"success":true,"status":{"membershipState":"membership_active",)"
                                   R"("selfFqdn":"a-very-long-name.example.net","assignedIp":"100.64.0.7"}})"
                                   "\n");
        StatusItemController tray(std::make_unique<WidgetRowsStatusItem>(&m_toolTip, &m_menu), DaemonClient(m_path),
                                  [](const QUrl &) {}, noTicks);
        const auto row = [this] { return qobject_cast<QWidgetAction *>(m_menu->actions().value(3)); };
        QVERIFY(row());
        QTRY_COMPARE(row()->toolTip(), u"a-very-long-name.example.net\n100.64.0.7"_s);
    }

    // "Quit Veltrane" chosen in an open menu waits for the panel to say the menu closed, so the
    // panel's last word finds the app; a panel that never says so is waited for briefly.
    void quitsOnceTheMenuHasClosed()
    {
        for (const bool closed : {true, false}) {
            const auto tray = controller(DaemonClient(m_path));
            QSignalSpy quit(tray.get(), &StatusItemController::quitRequested);
            Q_EMIT m_menu->aboutToShow();
            tray->onQuit();
            QTest::qWait(100);
            QCOMPARE(quit.count(), 0);
            if (closed) {
                Q_EMIT m_menu->aboutToHide();
                QCOMPARE(quit.count(), 1);
            }
            QTest::qWait(StatusItemController::quitMenuBoundMilliseconds);
            QCOMPARE(quit.count(), 1);
        }
        const auto tray = controller(DaemonClient(m_path));
        QSignalSpy quit(tray.get(), &StatusItemController::quitRequested);
        tray->onQuit();
        QCOMPARE(quit.count(), 1);
    }

    // The menu comes as a window after the bound only where the desktop cannot show the item: a
    // menu bar always can.
    void showsTheMenuWindowOnlyWithoutAnItem()
    {
        for (const bool itemShown : {true, false}) {
            std::unique_ptr<StatusItem> item = itemShown ? std::make_unique<RecordingStatusItem>(&m_toolTip)
                                                         : std::make_unique<UnseenStatusItem>(&m_toolTip);
            StatusItemController controller(std::move(item), DaemonClient(m_path + u".missing"_s), [](const QUrl &) {},
                                            noTicks);
            controller.showMenuWindowUnlessItemShownWithin(std::chrono::milliseconds(50));
            QTest::qWait(200);
            QCOMPARE(menuWindowShown(), !itemShown);
        }
    }
};

// moc misreads raw strings that hold quotes, so it does not see the tables.
#ifndef Q_MOC_RUN
void TestStatusItemController::showsTheRowsOfEachState_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("header");
    QTest::addColumn<QStringList>("rows");
    const auto in = [](const QByteArray &membership, const QByteArray &more = {}) {
        return R"({"success":true,"status":{"membershipState":")" + membership + '"' + more + "}}";
    };
    const QString disconnect = u"Disconnect"_s, logOut = u"Log out"_s;
    QTest::newRow("stopped") << in("membership_active", R"(,"wantRunning":false)") << u"Disconnected"_s
                             << QStringList{u"Connect"_s};
    QTest::newRow("signed out") << in("awaiting_login") << u"Connected, needs auth"_s
                                << QStringList{disconnect, u"Log in\u2026"_s};
    QTest::newRow("connecting") << in("nodemap_stream_opening") << u"Connecting\u2026"_s
                                << QStringList{disconnect, logOut};
    QTest::newRow("no network") << in("no_active_memberships") << u"Connected, no network"_s
                                << QStringList{disconnect, logOut};
    QTest::newRow("connected") << in("membership_active", R"(,"selfFqdn":"box.example.net","assignedIp":"100.64.0.7",)"
                                                          R"("userEmail":"m@x")")
                               << u"Connected"_s
                               << QStringList{disconnect, u"(off) box.example.net"_s, u"(off) 100.64.0.7 \u00b7 m@x"_s,
                                              u"Peers\u2026"_s, logOut};
}

void TestStatusItemController::tellsEachOutcome_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("notice");
    const auto row = [](const char *name, const QString &command, const QByteArray &reply, const QString &notice) {
        QTest::newRow(name) << command << reply << notice;
    };
    row("stop refused with a reason", u"stop"_s, R"({"error":"Busy."})", u"Disconnect failed | Busy."_s);
    row("start refused", u"start"_s, R"({"success":false})", u"Connect failed | The daemon rejected the request."_s);
    row("sign-in refused", u"login_via_link"_s, R"({"success":false})", u"Sign-in failed | Login failed."_s);
    row("sign-in without a link", u"login_via_link"_s, R"({"success":true,"message":"Mail.","login":{}})",
        u"Sign-in | Mail."_s);
    row("sign-in with a malformed link", u"login_via_link"_s, R"({"success":true,"login":{"loginUrl":"http://a b/%"}})",
        u"Sign-in | Login link issued."_s);
    row("sign-in through the browser", u"login_via_link"_s, R"({"success":true,"login":{"loginUrl":"https://l.ex"}})",
        u"Sign-in | Complete the sign-in in your browser. Veltrane will pick up the session automatically."_s);
    row("signed out with a message", u"logout"_s, R"({"success":true,"message":"Bye."})", u"Signed out | Bye."_s);
    row("signed out", u"logout"_s, R"({"success":true})", u"Signed out | Your session has been ended."_s);
    row("sign-out refused", u"logout"_s, R"({"success":false})", u"Sign-out failed | Logout failed."_s);
    row("no answer", u"logout"_s, "",
        u"Veltrane | Unable to reach the daemon: The daemon returned an empty response."_s);
}
#endif

QTEST_MAIN(TestStatusItemController)
#include "tst_statusitemcontroller.moc"
