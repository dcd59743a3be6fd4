// One tryGetStatus round trip (worker hop, exchange, decode, delivery on the event loop) against a
// bare blocking connect-write-read-close to the same simulated daemon.
#include "DaemonClient.h"
#include "RatioReporter.h"
#include "SimulatedDaemon.h"
#include "SimulatorServer.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTemporaryDir>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace Veltrane;

namespace {

QString g_socketPath;

void bareExchange(benchmark::State &state)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, g_socketPath.toUtf8().constData(), sizeof address.sun_path);
    const char request[] = "{\"command\":\"get_status\"}\n";
    char buffer[8192];
    for (auto _ : state) {
        const int descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0);
        if (::connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0
            || ::write(descriptor, request, sizeof request - 1) <= 0)
            state.SkipWithError("the daemon is not there");
        ssize_t count = 0;
        while ((count = ::read(descriptor, buffer, sizeof buffer)) > 0 && !memchr(buffer, '\n', size_t(count))) {
        }
        ::close(descriptor);
    }
}

void tryGetStatus(benchmark::State &state)
{
    const DaemonClient client(g_socketPath);
    QObject context;
    for (auto _ : state) {
        QEventLoop loop;
        bool gotStatus = false;
        client.tryGetStatus(&context, [&](const std::optional<DaemonStatusSnapshot> &status) {
            gotStatus = status.has_value();
            loop.quit();
        });
        loop.exec();
        if (!gotStatus)
            state.SkipWithError("no status");
    }
}

BENCHMARK(bareExchange)->Unit(benchmark::kMicrosecond)->UseRealTime()->MinTime(2);
BENCHMARK(tryGetStatus)->Unit(benchmark::kMicrosecond)->UseRealTime()->MinTime(2);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);

    Simulator::SimulatedDaemon::Options options;
    options.peerCount = 20;
    options.connectDelaySeconds = 0;
    Simulator::SimulatedDaemon daemon(options);
    Simulator::SimulatorServer server(daemon);
    QTemporaryDir directory;
    g_socketPath = directory.filePath(u"daemon.sock"_s);
    if (const auto error = server.listen(g_socketPath)) {
        std::fprintf(stderr, "cannot listen: %s\n", qPrintable(*error));
        return 1;
    }

    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("tryGetStatus round trip relative to a bare exchange", "tryGetStatus", "bareExchange",
                        "goal: at most 3");
    return 0;
}
