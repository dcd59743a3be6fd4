// The baselines of the poll benchmark, measured in the same run as the app:
//   bench_poll_baseline idle MILLISECONDS  a Qt app that only wakes for a timer at that interval
//   bench_poll_baseline parse              simdjson's parse of the reply on standard input:
//                                          prints the median CPU milliseconds of one parse
#include <QApplication>
#include <QTimer>

#include <simdjson.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace {

double threadCpuMilliseconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

int parse()
{
    const std::string reply{std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    const simdjson::padded_string bytes(reply);
    simdjson::dom::parser parser;
    std::vector<double> times;
    for (int run = 0; run < 60; ++run) {
        const double start = threadCpuMilliseconds();
        const auto document = parser.parse(bytes);
        times.push_back(threadCpuMilliseconds() - start);
        if (document.error()) {
            std::fprintf(stderr, "simdjson rejected the reply: %s\n", simdjson::error_message(document.error()));
            return 1;
        }
    }
    std::nth_element(times.begin(), times.begin() + qsizetype(times.size() / 2), times.end());
    std::printf("%.4f\n", times[times.size() / 2]);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && std::string(argv[1]) == "parse")
        return parse();
    if (argc != 3 || std::string(argv[1]) != "idle") {
        std::fprintf(stderr, "usage: %s idle MILLISECONDS | parse < REPLY\n", argv[0]);
        return 2;
    }
    QApplication application(argc, argv);
    QTimer tick;
    tick.start(std::stoi(argv[2]));
    return QApplication::exec();
}
