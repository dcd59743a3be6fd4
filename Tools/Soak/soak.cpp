// A day of the tray in a minute: the status menu controller against the simulated daemon, polling
// every few milliseconds instead of every three seconds, with the peers window open, until 10,000
// polls and 100 commands (connect and disconnect, alternately) are done, or as many as asked. Built with ASan and LSan
// twice by scripts/soak.sh: with ASan and LSan, where a leak fails the run at exit, and plain, where
// resident memory is judged. Memory and open descriptors are printed after a warm-up and at the
// end, and must not grow.
#include "Notify.h"
#include "SimulatedDaemon.h"
#include "SimulatorServer.h"
#include "StatusItemController.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace Veltrane;

namespace {

constexpr int pollInterval = 2; // milliseconds

class SilentStatusItem : public StatusItem
{
public:
    void setMenu(QMenu *) override {}
    void setIcon(const QIcon &) override {}
    void setToolTip(const QString &) override {}
};

long residentKilobytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.value(1).toLong() * (sysconf(_SC_PAGESIZE) / 1024);
}

QStringList openDescriptors()
{
    QStringList targets;
    const QDir descriptors(QStringLiteral("/proc/self/fd"));
    for (const QString &entry : descriptors.entryList(QDir::NoDotAndDotDot | QDir::System))
        targets.append(entry + u" "_s + QFile::symLinkTarget(descriptors.filePath(entry)));
    return targets;
}

} // namespace

int main(int argc, char *argv[])
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    // soak [polls]: 10,000 by default, and a command every hundred polls.
    const int polls = argc > 1 ? std::max(std::atoi(argv[1]), 1000) : 10000;
    const int commands = polls / 100;
    const int warmUpPolls = polls / 10;
    QTemporaryDir directory;
    Simulator::SimulatedDaemon::Options options;
    options.peerCount = 200;
    options.connectDelaySeconds = 0;
    Simulator::SimulatedDaemon daemon(options);
    Simulator::SimulatorServer server(daemon);
    if (const auto error = server.listen(directory.filePath(QStringLiteral("daemon.sock")))) {
        std::fprintf(stderr, "soak: %s\n", qPrintable(*error));
        return 1;
    }
    Notify::install(std::nullopt, nullptr);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {}); // the notices

    StatusItemController controller(std::make_unique<SilentStatusItem>(),
                                    DaemonClient(directory.filePath(QStringLiteral("daemon.sock"))),
                                    [](const QUrl &) {}, pollInterval);
    controller.onShowPeers();

    const auto served = [&](const QByteArray &command) {
        return server.requestCount("{\"command\":\"" + command + "\"}");
    };
    long warmMemory = 0;
    QStringList warmDescriptors;
    qsizetype reported = 0;
    QTimer check;
    QObject::connect(&check, &QTimer::timeout, &application, [&] {
        const qsizetype done = served("get_status");
        if (done > 0 && done % 1000 == 0 && done != reported) {
            reported = done;
            std::fprintf(stderr, "soak: %lld polls, %ld KiB resident\n", qint64(done), residentKilobytes());
        }
        if (warmMemory == 0 && done >= warmUpPolls) {
            warmMemory = residentKilobytes();
            warmDescriptors = openDescriptors();
        }
        // A command every hundred polls, counted as the daemon served them: a click while one
        // runs is dropped by the controller, and made again at the next check.
        const qsizetype commanded = served("start") + served("stop");
        if (commanded < commands && done >= (commanded + 1) * polls / commands)
            controller.onToggleConnect();
        if (done >= polls && commanded >= commands)
            application.quit();
    });
    check.start(1);
    application.exec();
    // Polling stops, and the exchange still under way finishes, before the descriptors are counted.
    controller.onQuit();
    QTimer::singleShot(500, &application, &QCoreApplication::quit);
    application.exec();

    const long memory = residentKilobytes();
    const QStringList descriptors = openDescriptors();
    std::printf("soak: %lld polls, %lld commands\n", qint64(served("get_status")), qint64(served("start") + served("stop")));
    std::printf("soak: resident memory %ld KiB after %d polls, %ld KiB at the end (%+ld KiB)\n", warmMemory, warmUpPolls,
                memory, memory - warmMemory);
    std::printf("soak: open descriptors %lld after %d polls, %lld at the end\n", qint64(warmDescriptors.size()),
                warmUpPolls, qint64(descriptors.size()));
    for (const QString &descriptor : descriptors) {
        if (!warmDescriptors.contains(descriptor))
            std::printf("soak: new descriptor %s\n", qPrintable(descriptor));
    }
    // Memory held but not lost is a leak LSan cannot see, so resident memory must stay flat too;
    // but under ASan it also counts the sanitizer's own records of finished threads (the simulator
    // starts one per connection), so it is judged in the plain build only.
#if defined(__SANITIZE_ADDRESS__)
    const bool memoryFlat = true;
#else
    const bool memoryFlat = memory - warmMemory < 1024;
#endif
    // One exchange may be open at either count, both its ends in this process; a leak would be
    // one per poll.
    const bool flat = descriptors.size() <= warmDescriptors.size() + 2 && memoryFlat;
    std::printf("soak: %s\n", flat ? "flat" : "GROWING");
    return flat ? 0 : 1;
}
