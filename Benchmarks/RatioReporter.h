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
                m_realTimes[run.run_name.function_name] = run.real_accumulated_time / double(run.iterations);
        }
    }

    /// Prints numerator time / denominator time with the goal, e.g. "at least 0.5".
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
    std::map<std::string, double> m_realTimes; // seconds per iteration
};
