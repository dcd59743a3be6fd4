// Main-thread cost of the peers window with 10,000 peers: applying a status with the window open,
// and one keystroke in the search field, against sorting the same names by precomputed collation
// keys, the least any sorted list can cost.
#include "PeerGenerator.h"
#include "PeersWindowController.h"
#include "RatioReporter.h"

#include <QApplication>
#include <QCollator>
#include <QLineEdit>

#include <algorithm>
#include <numeric>
#include <vector>

using namespace Veltrane;

namespace {

constexpr int peerCount = 10000;

const DaemonStatusSnapshot &network(quint32 seed)
{
    static std::map<quint32, DaemonStatusSnapshot> networks;
    auto found = networks.find(seed);
    if (found == networks.end()) {
        DaemonStatusSnapshot status;
        status.connectableDevices = Simulator::generatePeers(peerCount, seed, u"net-1"_qs, u"Example"_qs);
        found = networks.emplace(seed, std::move(status)).first;
    }
    return found->second;
}

void sortPrecomputedKeys(benchmark::State &state)
{
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::vector<QCollatorSortKey> keys;
    for (const ConnectableDeviceSnapshot &device : *network(1).connectableDevices)
        keys.push_back(collator.sortKey(device.displayName()));
    std::vector<int> order(keys.size());
    for (auto _ : state) {
        std::iota(order.begin(), order.end(), 0);
        std::stable_sort(order.begin(), order.end(), [&](int a, int b) { return keys[size_t(a)].compare(keys[size_t(b)]) < 0; });
        benchmark::DoNotOptimize(order.data());
    }
}

struct OpenWindow {
    PeersWindowController controller;
    OpenWindow()
    {
        controller.applySnapshot(network(1), TrayState::Connected);
        controller.showWindow();
        QCoreApplication::processEvents();
    }
};

// A status every few seconds, names as before: the steady state of a running tray.
void applySnapshot(benchmark::State &state)
{
    OpenWindow window;
    for (auto _ : state)
        window.controller.applySnapshot(network(1), TrayState::Connected);
}

// The same, and the window repainted at once rather than at the next turn of the event loop.
void applySnapshotAndPaint(benchmark::State &state)
{
    OpenWindow window;
    for (auto _ : state) {
        window.controller.applySnapshot(network(1), TrayState::Connected);
        window.controller.window()->repaint();
    }
}

// Every name differs from the last status's: no collation key can be reused.
void applySnapshotAllNamesNew(benchmark::State &state)
{
    OpenWindow window;
    network(2);
    quint32 seed = 1;
    for (auto _ : state) {
        seed = 3 - seed;
        window.controller.applySnapshot(network(seed), TrayState::Connected);
    }
}

// Typing one more letter, then taking it back: each is one keystroke over all 10,000 peers.
void searchKeystroke(benchmark::State &state)
{
    OpenWindow window;
    auto *field = window.controller.window()->findChild<QLineEdit *>();
    bool longer = false;
    for (auto _ : state) {
        longer = !longer;
        field->setText(longer ? u"ma"_qs : u"m"_qs);
    }
}

BENCHMARK(sortPrecomputedKeys)->Unit(benchmark::kMillisecond)->MinTime(1);
BENCHMARK(applySnapshot)->Unit(benchmark::kMillisecond)->MinTime(1);
BENCHMARK(applySnapshotAndPaint)->Unit(benchmark::kMillisecond)->MinTime(1);
BENCHMARK(applySnapshotAllNamesNew)->Unit(benchmark::kMillisecond)->MinTime(1);
BENCHMARK(searchKeystroke)->Unit(benchmark::kMillisecond)->MinTime(1);

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const char *goal = "goal: under 16 ms, one frame";
    reporter.printRatio("applySnapshot, window open, to the keyed sort", "applySnapshot", "sortPrecomputedKeys", goal);
    reporter.printRatio("applySnapshot and repaint, to the keyed sort", "applySnapshotAndPaint", "sortPrecomputedKeys", goal);
    reporter.printRatio("applySnapshot, every name new, to the keyed sort", "applySnapshotAllNamesNew", "sortPrecomputedKeys", goal);
    reporter.printRatio("one search keystroke, to the keyed sort", "searchKeystroke", "sortPrecomputedKeys", goal);
    return 0;
}
