// The controller against the simulated daemon over a real socket, with the exchange watched as the
// daemon client receives it. What the app shows and sends is read from the running app by the
// whole-app tests; this checks what they cannot see without waiting for real time limits.
#include "SimulatedDaemon.h"
#include "SimulatorServer.h"
#include "StatusItemController.h"

#include <QApplication>
#include <QMenu>
#include <QMutex>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

using namespace Qt::StringLiterals;
using namespace Veltrane;

namespace {

// A status item that keeps only its tooltip, which names the state applied last; like a menu bar's,
// the desktop always shows it.
class RecordingStatusItem : public StatusItem
{
public:
    explicit RecordingStatusItem(QString *toolTip) : m_toolTip(toolTip) {}
    void setMenu(QMenu *) override {}
    void setIcon(const QIcon &) override {}
    void setToolTip(const QString &toolTip) override { *m_toolTip = toolTip; }

private:
    QString *m_toolTip;
};

// An item no panel shows.
class UnseenStatusItem : public RecordingStatusItem
{
public:
    using RecordingStatusItem::RecordingStatusItem;
    void onShownChanged(std::function<void(bool)> changed) override { changed(false); }
};

bool menuWindowShown()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    return std::any_of(windows.cbegin(), windows.cend(),
                       [](QWidget *w) { return w->isVisible() && w->windowTitle() == u"Veltrane"_s; });
}

} // namespace

class TestStatusItemController : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Each command goes out with its own time limit, and a status request with five seconds: a
    // browser sign-in must outlast the daemon's wait for the link, a sign-out its clean-up.
    void sendsEachCommandWithItsTimeLimit()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(u"daemon.sock"_s);
        Simulator::SimulatedDaemon::Options options;
        options.connectDelaySeconds = 0;
        options.loginDelaySeconds = -1;
        Simulator::SimulatedDaemon daemon(options);
        Simulator::SimulatorServer server(daemon);
        QCOMPARE(server.listen(path), std::nullopt);

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
        QString toolTip;
        QList<QUrl> opened;
        StatusItemController controller(std::make_unique<RecordingStatusItem>(&toolTip), DaemonClient(path, watched),
                                        [&](const QUrl &url) { opened.append(url); }, 60 * 60 * 1000);

        QTRY_COMPARE(toolTip, u"Veltrane \u2014 Connected"_s);
        controller.onToggleConnect();
        QTRY_COMPARE(toolTip, u"Veltrane \u2014 Disconnected"_s);
        controller.onToggleConnect();
        QTRY_COMPARE(toolTip, u"Veltrane \u2014 Connected"_s);
        controller.onLogout();
        QTRY_COMPARE(toolTip, u"Veltrane \u2014 Connected, needs auth"_s);
        controller.onLogin();
        QTRY_COMPARE(opened.size(), 1);
        QTRY_COMPARE(sent(u"get_status"_s).size(), 5); // at start and after each command

        QCOMPARE(sent(u"stop"_s), QList<double>{15});
        QCOMPARE(sent(u"start"_s), QList<double>{15});
        QCOMPARE(sent(u"logout"_s), QList<double>{35});
        QCOMPARE(sent(u"login_via_link"_s), QList<double>{70});
        QCOMPARE(sent(u"get_status"_s), QList<double>(5, 5));
        QCOMPARE(limits.size(), 9);
    }

    // The menu comes as a window after the bound only where the desktop cannot show the item: a
    // menu bar always can.
    void showsTheMenuWindowOnlyWithoutAnItem()
    {
        for (const bool itemShown : {true, false}) {
            QString toolTip;
            std::unique_ptr<StatusItem> item = itemShown ? std::make_unique<RecordingStatusItem>(&toolTip)
                                                         : std::make_unique<UnseenStatusItem>(&toolTip);
            StatusItemController controller(std::move(item),
                                            DaemonClient(u"/nonexistent/daemon.sock"_s), [](const QUrl &) {},
                                            60 * 60 * 1000);
            controller.showMenuWindowUnlessItemShownWithin(std::chrono::milliseconds(50));
            QTest::qWait(200);
            QCOMPARE(menuWindowShown(), !itemShown);
        }
    }
};

QTEST_MAIN(TestStatusItemController)
#include "tst_statusitemcontroller.moc"
