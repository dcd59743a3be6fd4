// Main-thread cost of the peers window at 100, 1,000 and 10,000 peers: a poll with the window on
// screen (the status applied and the window repainted), a poll with the window hidden, and one
// keystroke in the search field (filtered and repainted), each against sorting the same names by
// precomputed collation keys, the least any sorted list can cost.
#include "PeerGenerator.h"
#include "PeersWindowController.h"
#include "RatioReporter.h"

#include <QApplication>
#include <QCollator>
#include <QLineEdit>

#include <algorithm>
#include <map>
#include <numeric>
#include <tuple>
#include <vector>

using namespace Qt::StringLiterals;
using namespace Veltrane;

namespace {

constexpr int sizes[] = {100, 1000, 10000};

// `copy`: each reply decodes into records of its own, so two polls that say the same thing hand
// the window equal lists, not one list twice.
const DaemonStatusSnapshot &network(int peers, quint32 seed = 1, int copy = 0)
{
    static std::map<std::tuple<int, quint32, int>, DaemonStatusSnapshot> networks;
    auto found = networks.find({peers, seed, copy});
    if (found == networks.end()) {
        DaemonStatusSnapshot status;
        status.connectableDevices = Simulator::generatePeers(peers, seed, u"net-1"_s, u"Example"_s);
        found = networks.emplace(std::tuple(peers, seed, copy), std::move(status)).first;
    }
    return found->second;
}

void sortPrecomputedKeys(benchmark::State &state)
{
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::vector<QCollatorSortKey> keys;
    for (const ConnectableDeviceSnapshot &device : network(int(state.range(0))).connectableDevices->devices())
        keys.push_back(collator.sortKey(device.displayName()));
    std::vector<int> order(keys.size());
    for (auto _ : state) {
        std::iota(order.begin(), order.end(), 0);
        std::stable_sort(order.begin(), order.end(), [&](int a, int b) { return keys[size_t(a)].compare(keys[size_t(b)]) < 0; });
        benchmark::DoNotOptimize(order.data());
    }
}

struct Window {
    PeersWindowController controller;
    explicit Window(int peers, bool shown = true)
    {
        controller.applySnapshot(network(peers), TrayState::Connected);
        if (shown) {
            controller.showWindow();
            QCoreApplication::processEvents();
        }
    }
};

// A status every few seconds, names as before, the window on screen and repainted at once rather
// than at the next turn of the event loop: the steady state of a tray whose window is open.
void pollShown(benchmark::State &state)
{
    Window window(int(state.range(0)));
    network(int(state.range(0)), 1, 1);
    int copy = 0;
    for (auto _ : state) {
        copy = 1 - copy;
        window.controller.applySnapshot(network(int(state.range(0)), 1, copy), TrayState::Connected);
        window.controller.window()->repaint();
    }
}

// The same with every name new, so that no collation key can be reused.
void pollShownAllNamesNew(benchmark::State &state)
{
    Window window(int(state.range(0)));
    network(int(state.range(0)), 2);
    quint32 seed = 1;
    for (auto _ : state) {
        seed = 3 - seed;
        window.controller.applySnapshot(network(int(state.range(0)), seed), TrayState::Connected);
        window.controller.window()->repaint();
    }
}

// The window closed, as it is most of the day.
void pollHidden(benchmark::State &state)
{
    Window window(int(state.range(0)), false);
    for (auto _ : state)
        window.controller.applySnapshot(network(int(state.range(0))), TrayState::Connected);
}

// Typing one more letter, then taking it back: each is one keystroke over every peer.
void keystroke(benchmark::State &state)
{
    Window window(int(state.range(0)));
    auto *field = window.controller.window()->findChild<QLineEdit *>();
    bool longer = false;
    for (auto _ : state) {
        longer = !longer;
        field->setText(longer ? u"ma"_s : u"m"_s);
        window.controller.window()->repaint();
    }
}

void bySize(benchmark::internal::Benchmark *benchmark)
{
    for (const int size : sizes)
        benchmark->Arg(size);
    benchmark->Unit(benchmark::kMillisecond)->MinTime(0.5);
}

BENCHMARK(sortPrecomputedKeys)->Apply(bySize);
BENCHMARK(pollShown)->Apply(bySize);
BENCHMARK(pollHidden)->Apply(bySize);
BENCHMARK(keystroke)->Apply(bySize);

BENCHMARK(pollShownAllNamesNew)->Arg(10000)->Unit(benchmark::kMillisecond)->MinTime(0.5);

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (const int size : sizes) {
        const std::string baseline = "sortPrecomputedKeys/" + std::to_string(size);
        const std::string peers = " at " + std::to_string(size) + " peers, to the keyed sort";
        reporter.printRatio("poll, window shown and repainted" + peers, "pollShown/" + std::to_string(size), baseline,
                            "goal at 10,000: under 8 ms");
        reporter.printRatio("poll, window hidden" + peers, "pollHidden/" + std::to_string(size), baseline,
                            "goal: under 0.1 ms");
        reporter.printRatio("one keystroke, repainted" + peers, "keystroke/" + std::to_string(size), baseline,
                            "goal: under 16 ms, one frame");
    }
    reporter.printRatio("poll shown, every name new, at 10000 peers, to the keyed sort", "pollShownAllNamesNew/10000",
                        "sortPrecomputedKeys/10000", "worst case");
    return 0;
}
