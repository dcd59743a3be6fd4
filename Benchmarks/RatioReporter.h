#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>

/// Prints the usual table, then how one benchmark compares with its baseline from the same run,
/// so figures from different machines stay comparable.
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    RatioReporter() : ConsoleReporter(OO_None) {}

    void ReportRuns(const std::vector<Run> &runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                m_realTimes[nameOf(run)] = run.real_accumulated_time / double(run.iterations);
        }
    }

    /// Prints numerator time / denominator time with the goal, e.g. "at least 0.5". Benchmarks are
    /// named as Google Benchmark names them, with their argument: "applySnapshot/1000".
    void printRatio(const std::string &label, const std::string &numerator,
                    const std::string &denominator, const char *goal) const
    {
        const auto top = m_realTimes.find(numerator);
        const auto bottom = m_realTimes.find(denominator);
        if (top == m_realTimes.end() || bottom == m_realTimes.end())
            return;
        std::printf("%s: %.3f (%s; %.3f ms / %.3f ms)\n", label.c_str(), top->second / bottom->second,
                    goal, top->second * 1e3, bottom->second * 1e3);
    }

private:
    // The function and its argument, without the run's settings (such as "/min_time:0.500").
    static std::string nameOf(const Run &run)
    {
        return run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args);
    }

    std::map<std::string, double> m_realTimes; // seconds per iteration
};
