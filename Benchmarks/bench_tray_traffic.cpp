// D-Bus traffic of the status item in a panel: messages and bytes per poll that changes nothing and
// per change of state, counted in both directions on the item's connection (its signals and the
// host's calls they prompt, with their replies). The same controller runs against the simulated
// daemon twice, once behind Qt's own D-Bus tray icon (the baseline) and once behind our
// StatusNotifierItem.
//
// Run under Xvfb and a session bus with a StatusNotifierItem host up (Benchmarks/tray-traffic.sh
// starts xfce4-panel); prints one table and the ratio ours / Qt's.
#include "SimulatedDaemon.h"
#include "SimulatorServer.h"
#include "StatusItemController.h"
#include "StatusNotifierItem.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTimer>
#include <QtEndian>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace Veltrane;
using Simulator::Fault;
using Simulator::SimulatedDaemon;
using Simulator::SimulatorServer;

namespace {

// The baseline: Qt's own tray icon, which on Linux is a StatusNotifierItem of Qt's.
class QtTrayItem : public StatusItem
{
public:
    QtTrayItem() { m_trayIcon.show(); }
    void setMenu(QMenu *menu) override { m_trayIcon.setContextMenu(menu); }
    void setIcon(const QIcon &icon) override { m_trayIcon.setIcon(icon); }
    void setToolTip(const QString &toolTip) override { m_trayIcon.setToolTip(toolTip); }

private:
    QSystemTrayIcon m_trayIcon;
};

constexpr int unchangedPolls = 4;
constexpr int stateChanges = 4;

const QByteArray connectedReply = "{\"success\":true,\"status\":{\"wantRunning\":true,"
                                  "\"membershipState\":\"membership_active\",\"selfFqdn\":\"lab.example.net\","
                                  "\"assignedIp\":\"100.64.0.7\",\"userEmail\":\"mia@example.com\"}}\n";
const QByteArray noNetworkReply = "{\"success\":true,\"status\":{\"wantRunning\":true,"
                                  "\"membershipState\":\"no_active_memberships\"}}\n";

void wait(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

bool waitUntil(const std::function<bool()> &condition, int milliseconds)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.hasExpired(milliseconds))
            return false;
        wait(20);
    }
    return true;
}

// The unique bus name of the one item registered with the panel's watcher.
QString registeredItemOwner()
{
    QDBusMessage get = QDBusMessage::createMethodCall(u"org.kde.StatusNotifierWatcher"_s, u"/StatusNotifierWatcher"_s,
                                                      u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
    get << u"org.kde.StatusNotifierWatcher"_s << u"RegisteredStatusNotifierItems"_s;
    const QDBusMessage reply = QDBusConnection::sessionBus().call(get, QDBus::BlockWithGui);
    const QStringList items = qvariant_cast<QDBusVariant>(reply.arguments().value(0)).variant().toStringList();
    if (items.size() != 1)
        return {};
    const QString service = items.first().section(u'/', 0, 0);
    return QDBusConnection::sessionBus().interface()->serviceOwner(service).value();
}

struct Traffic {
    double messages = 0;
    double bytes = 0;
};

struct Window {
    qint64 fromMicroseconds;
    qint64 toMicroseconds;
};

// Sums the captured messages (pcap records) whose time falls in `window`.
Traffic trafficIn(const QByteArray &pcap, const Window &window)
{
    Traffic traffic;
    for (qsizetype at = 24; at + 16 <= pcap.size();) {
        const char *record = pcap.constData() + at;
        const qint64 time = qint64(qFromLittleEndian<quint32>(record)) * 1000000 + qFromLittleEndian<quint32>(record + 4);
        const quint32 length = qFromLittleEndian<quint32>(record + 8);
        if (time >= window.fromMicroseconds && time < window.toMicroseconds) {
            traffic.messages += 1;
            traffic.bytes += length;
        }
        at += 16 + length;
    }
    return traffic;
}

qint64 nowMicroseconds() { return QDateTime::currentMSecsSinceEpoch() * 1000; }

struct Measurement {
    Traffic perUnchangedPoll;
    Traffic perStateChange;
};

std::optional<Measurement> measure(bool ownItem)
{
    QTemporaryDir dir;
    SimulatedDaemon daemon({});
    SimulatorServer server(daemon);
    if (server.listen(dir.filePath(u"daemon.sock"_s)))
        return std::nullopt;
    server.setScriptedReply(connectedReply);
    server.setFault(Fault::Scripted, u"get_status"_s);
    const auto polls = [&] { return server.requestsReceived().size(); };

    std::unique_ptr<StatusItem> item;
    if (ownItem)
        item = std::make_unique<StatusNotifierItem>(QDBusConnection::sessionBus(), u"net.veltrane.tray"_s);
    else
        item = std::make_unique<QtTrayItem>();
    StatusItemController controller(std::move(item), DaemonClient(dir.filePath(u"daemon.sock"_s)), [](const QUrl &) {});

    // Settled: registered, and the panel has read the item and its menu.
    QString owner;
    if (!waitUntil([&] { return !(owner = registeredItemOwner()).isEmpty(); }, 15000))
        return std::nullopt;
    waitUntil([&] { return polls() >= 2; }, 10000);

    QProcess monitor;
    monitor.setStandardOutputFile(dir.filePath(u"capture.pcap"_s));
    monitor.start(u"dbus-monitor"_s, {u"--session"_s, u"--pcap"_s, u"sender='%1'"_s.arg(owner),
                                       u"destination='%1'"_s.arg(owner)});
    monitor.waitForStarted();

    // Each window runs from the middle of one poll interval to the middle of a later one.
    const auto middleAfterPoll = [&](qsizetype served) {
        waitUntil([&] { return polls() > served; }, 10000);
        wait(StatusItemController::pollIntervalMilliseconds / 2);
        return nowMicroseconds();
    };
    const qint64 quietFrom = middleAfterPoll(polls());
    const qint64 quietTo = middleAfterPoll(polls() + unchangedPolls - 1);
    QList<Window> changes;
    for (int change = 0; change < stateChanges; ++change) {
        const qint64 from = nowMicroseconds();
        server.setScriptedReply(change % 2 == 0 ? noNetworkReply : connectedReply);
        changes.append({from, middleAfterPoll(polls())});
    }
    wait(300);
    monitor.terminate();
    monitor.waitForFinished();

    QFile capture(dir.filePath(u"capture.pcap"_s));
    capture.open(QIODevice::ReadOnly);
    const QByteArray pcap = capture.readAll();
    Measurement measurement;
    const Traffic quiet = trafficIn(pcap, {quietFrom, quietTo});
    measurement.perUnchangedPoll = {quiet.messages / unchangedPolls, quiet.bytes / unchangedPolls};
    for (const Window &window : changes) {
        const Traffic traffic = trafficIn(pcap, window);
        measurement.perStateChange.messages += traffic.messages / stateChanges;
        measurement.perStateChange.bytes += traffic.bytes / stateChanges;
    }
    return measurement;
}

void printRow(const char *what, const Traffic &qt, const Traffic &ours)
{
    const auto ratio = [](double ours, double qt) { return qt > 0 ? ours / qt : 0.0; };
    std::printf("%-22s %12.1f %12.0f %12.1f %12.0f   %6.3f %6.3f\n", what, qt.messages, qt.bytes, ours.messages,
                ours.bytes, ratio(ours.messages, qt.messages), ratio(ours.bytes, qt.bytes));
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QApplication::setApplicationName(u"veltrane-tray"_s);
    // Qt's tray and ours would both claim /StatusNotifierItem: the baseline runs in a child.
    if (argc > 1 && argv[1] == QByteArray("--qt-tray")) {
        const auto measured = measure(false);
        if (!measured)
            return 1;
        std::printf("%f %f %f %f\n", measured->perUnchangedPoll.messages, measured->perUnchangedPoll.bytes,
                    measured->perStateChange.messages, measured->perStateChange.bytes);
        return 0;
    }
    QProcess baseline;
    baseline.start(QCoreApplication::applicationFilePath(), {u"--qt-tray"_s});
    baseline.waitForFinished(120000);
    const QList<QByteArray> figures = baseline.readAllStandardOutput().simplified().split(' ');
    if (baseline.exitCode() != 0 || figures.size() != 4) {
        std::fprintf(stderr, "the baseline with Qt's tray icon did not run (is a tray host up?)\n");
        return 1;
    }
    const Traffic qtQuiet{figures[0].toDouble(), figures[1].toDouble()};
    const Traffic qtChange{figures[2].toDouble(), figures[3].toDouble()};

    const auto ours = measure(true);
    if (!ours) {
        std::fprintf(stderr, "our status item did not register with the panel\n");
        return 1;
    }
    std::printf("%-22s %25s %25s   %13s\n", "", "Qt's D-Bus tray", "our StatusNotifierItem", "ratio ours/Qt");
    std::printf("%-22s %12s %12s %12s %12s   %6s %6s\n", "", "messages", "bytes", "messages", "bytes", "msgs", "bytes");
    printRow("per unchanged poll", qtQuiet, ours->perUnchangedPoll);
    printRow("per state change", qtChange, ours->perStateChange);
    return 0;
}
