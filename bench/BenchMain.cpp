// Runs a group's Google Benchmark cases quietly, then lets the group print its figures.
#include "BenchMain.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>

namespace quillet::bench {
namespace {

std::map<std::string, double>& medians() {
    static std::map<std::string, double> values;
    return values;
}

class MedianCollector : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                medians()[run.run_name.str()] = run.GetAdjustedRealTime();
            } else if (run.run_type == Run::RT_Iteration && !medians().count(run.run_name.str())) {
                medians()[run.run_name.str()] = run.GetAdjustedRealTime();
            }
        }
    }
};

} // namespace

double median(const std::string& name) {
    auto it = medians().find(name);
    return it == medians().end() ? 0.0 : it->second;
}

void figure(const std::string& name, double value, const std::string& unit) {
    std::printf("%s: %.3g %s\n", name.c_str(), value, unit.c_str());
    std::fflush(stdout);
}

} // namespace quillet::bench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    quillet::bench::MedianCollector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    benchmark::Shutdown();
    quillet::bench::report();
    return 0;
}
