// Decoding a ~4 MiB status of 10,000 peers into records, against simdjson parsing the same bytes.
#include "DaemonProtocol.h"
#include "RatioReporter.h"
#include "SimulatedDaemon.h"

#include <QJsonDocument>

#include <simdjson.h>

using namespace Veltrane;

namespace {

const QByteArray &statusReply()
{
    static const QByteArray reply = [] {
        Simulator::SimulatedDaemon::Options options;
        options.peerCount = 10000;
        options.connectDelaySeconds = 0;
        Simulator::SimulatedDaemon daemon(options);
        QByteArray bytes = daemon.reply(R"({"command":"get_status"})");
        bytes.reserve(bytes.size() + DaemonProtocol::paddingBytes); // as the client reads it
        return bytes;
    }();
    return reply;
}

void simdjsonParse(benchmark::State &state)
{
    const QByteArray &bytes = statusReply();
    simdjson::dom::parser parser;
    for (auto _ : state) {
        auto document = parser.parse(bytes.constData(), size_t(bytes.size()), false);
        if (document.error())
            state.SkipWithError("simdjson rejected the status");
        benchmark::DoNotOptimize(document);
    }
    state.SetBytesProcessed(state.iterations() * bytes.size());
}

// Qt's own parser, for the choice of library: parsing alone, without building any record.
void qtJsonParse(benchmark::State &state)
{
    const QByteArray &bytes = statusReply();
    for (auto _ : state) {
        const QJsonDocument document = QJsonDocument::fromJson(bytes);
        if (!document.isObject())
            state.SkipWithError("Qt rejected the status");
        benchmark::DoNotOptimize(document);
    }
    state.SetBytesProcessed(state.iterations() * bytes.size());
}

void decodeResponse(benchmark::State &state)
{
    const QByteArray &bytes = statusReply();
    for (auto _ : state) {
        auto result = DaemonProtocol::decodeResponse(bytes);
        if (!std::holds_alternative<DaemonControlResponse>(result))
            state.SkipWithError("the status did not decode");
        benchmark::DoNotOptimize(result);
    }
    state.SetBytesProcessed(state.iterations() * bytes.size());
    state.counters["MiB"] = double(bytes.size()) / (1 << 20);
}

// What the worker does while the peers window is hidden: every device checked, none made.
void decodeCheckingDevices(benchmark::State &state)
{
    const QByteArray &bytes = statusReply();
    for (auto _ : state) {
        auto result = DaemonProtocol::decodeResponse(bytes, DaemonProtocol::DeviceRecords::WhenAsked);
        if (!std::holds_alternative<DaemonControlResponse>(result))
            state.SkipWithError("the status did not decode");
        benchmark::DoNotOptimize(result);
    }
    state.SetBytesProcessed(state.iterations() * bytes.size());
}

BENCHMARK(simdjsonParse)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(qtJsonParse)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(decodeResponse)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(decodeCheckingDevices)->Unit(benchmark::kMillisecond)->MinTime(2);

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("decode speed relative to simdjson's parse", "simdjsonParse", "decodeResponse",
                        "goal: at least 0.5");
    reporter.printRatio("decode checking the devices, making none, relative to simdjson's parse", "simdjsonParse",
                        "decodeCheckingDevices", "what a poll decodes while the peers window is hidden");
    reporter.printRatio("Qt's JSON parse alone relative to simdjson's parse", "simdjsonParse", "qtJsonParse",
                        "for the choice of library");
    return 0;
}
