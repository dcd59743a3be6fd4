// The controller's own rules, with the simulated daemon on a real socket: what it asks and when.
// What the menu shows for each status and the notice for each command's outcome are checked on
// the installed app, through the bus, by tst_session.py.
#include "ElidedLabel.h"
#include "Notify.h"
#include "SimulatedDaemon.h"
#include "SimulatorServer.h"
#include "StatusItemController.h"

#include <QApplication>
#include <QMenu>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>

using namespace Veltrane;
using Simulator::Fault;
using Simulator::SimulatedDaemon;
using Simulator::SimulatorServer;

namespace {

class RecordingStatusItem : public StatusItem
{
public:
    void setMenu(QMenu *menu) override { this->menu = menu; }
    void setIcon(const QIcon &) override {}
    void setToolTip(const QString &toolTip) override { this->toolTip = toolTip; }

    QMenu *menu = nullptr;
    QString toolTip;
};

class RecordingCenter : public NotificationCenter
{
public:
    void requestAuthorization() override {}
    void add(const NotificationRequest &request, DeliveryHandler delivered) override
    {
        notices.append(request.body);
        delivered(std::nullopt);
    }
    QStringList notices;
};

} // namespace

class TestStatusItemController : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QString m_socket = m_dir.filePath(u"daemon.sock"_qs);
    std::unique_ptr<SimulatedDaemon> m_daemon;
    std::unique_ptr<SimulatorServer> m_server;
    std::shared_ptr<RecordingCenter> m_center;
    RecordingStatusItem *m_item = nullptr;
    std::unique_ptr<StatusItemController> m_controller;

    void startController(int pollInterval = StatusItemController::pollIntervalMilliseconds)
    {
        auto item = std::make_unique<RecordingStatusItem>();
        m_item = item.get();
        m_controller = std::make_unique<StatusItemController>(std::move(item), DaemonClient(m_socket),
                                                              [](const QUrl &) {}, pollInterval);
    }

    QList<QByteArray> requests() const
    {
        QList<QByteArray> commands;
        for (const QByteArray &line : m_server->requestsReceived())
            commands.append(line.mid(12, line.size() - 14)); // {"command":"…"}
        return commands;
    }

    QAction *row(const QString &text) const
    {
        const QList<QAction *> actions = m_item->menu->actions();
        const auto found = std::find_if(actions.cbegin(), actions.cend(), [&](QAction *a) { return a->text() == text; });
        return found == actions.cend() ? nullptr : *found;
    }

    void waitForHeader(const QString &header)
    {
        QTRY_COMPARE_WITH_TIMEOUT(m_item->toolTip, u"Veltrane \u2014 "_qs + header, 8000);
    }

private Q_SLOTS:
    void init()
    {
        SimulatedDaemon::Options options;
        options.connectDelaySeconds = 0;
        m_daemon = std::make_unique<SimulatedDaemon>(options);
        m_server = std::make_unique<SimulatorServer>(*m_daemon);
        QCOMPARE(m_server->listen(m_socket), std::nullopt);
        m_center = std::make_shared<RecordingCenter>();
        Notify::install(u"net.veltrane.tray.test"_qs, m_center);
    }

    void cleanup()
    {
        m_controller.reset();
        m_server.reset();
        Notify::install(std::nullopt, nullptr);
    }

    // A command is answered, then the status is asked for at once, not at the next tick.
    void asksForTheStatusRightAfterACommand()
    {
        startController(3600 * 1000);
        waitForHeader(u"Connected"_qs);
        m_controller->onLogout();
        waitForHeader(u"Connected, needs auth"_qs);
        QCOMPARE(requests(), (QList<QByteArray>{"get_status", "logout", "get_status"}));
        QCOMPARE(m_center->notices.size(), 1);
    }

    // A tick while a status request is outstanding sends nothing; a click while a command is.
    void keepsOneRequestOfEachKindOutstanding()
    {
        m_server->setFault(Fault::Silent, u"get_status"_qs);
        startController();
        m_controller->onLogout();
        m_controller->onLogout();
        QTest::qWait(StatusItemController::pollIntervalMilliseconds + 800);
        QCOMPARE(requests(), QList<QByteArray>{"get_status"});
        m_server->setFault(Fault::None);
        QTRY_COMPARE_WITH_TIMEOUT(m_center->notices.size(), 1, 8000); // after the 5 s limit
        waitForHeader(u"Connected, needs auth"_qs);
        QCOMPARE(requests().count("logout"), 1);
        QCOMPARE(m_center->notices.size(), 1); // the dropped click told nothing either
    }

    // A status applied while a command is outstanding disables the command rows.
    void disablesCommandRowsWhileACommandRuns()
    {
        startController();
        waitForHeader(u"Connected"_qs);
        m_server->setFault(Fault::SlowReply, u"get_status"_qs);
        QTRY_VERIFY_WITH_TIMEOUT(requests().size() >= 2, 5000); // a slow poll is outstanding
        m_controller->onLogout();                               // queued behind it
        QTRY_VERIFY(!row(u"Disconnect"_qs)->isEnabled() && !row(u"Log out"_qs)->isEnabled());
        QTRY_VERIFY_WITH_TIMEOUT(row(u"Disconnect"_qs)->isEnabled(), 3000);
    }

    void peersWindowFollowsEveryReply()
    {
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
