// End-to-end figures on a real X server (run under with-xvfb.sh with openbox): how long an
// expansion takes from the last key the editor saw to the final text, how often one fails, and
// what the running engine costs while nothing is typed.
#include "support/DesktopHarness.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace quillet {
namespace {

using namespace std::chrono_literals;
using testing::QuilletProcess;
using testing::TextWindow;
using testing::Typist;

using testing::snippet;

double percentile(std::vector<double> values, double p) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const auto index = static_cast<std::size_t>(p * static_cast<double>(values.size() - 1) + 0.5);
    return values[std::min(index, values.size() - 1)];
}

// Resident memory in MiB and CPU seconds used so far by a process.
std::pair<double, double> usage(int pid) {
    double rss = 0;
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) {
            rss = std::stod(line.substr(6)) / 1024.0;
        }
    }
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string all((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    std::istringstream fields(all.substr(all.rfind(')') + 2));
    std::string field;
    double ticks = 0;
    for (int i = 3; fields >> field; ++i) {
        if (i == 14 || i == 15) {
            ticks += std::stod(field);
        }
    }
    return {rss, ticks / static_cast<double>(sysconf(_SC_CLK_TCK))};
}

int run(int latencyRuns, int reliabilityRuns, std::chrono::seconds idle) {
    Typist typist;
    QuilletProcess quillet({snippet(";hi", "Hello there"), snippet(";sig", "Best regards, Ann")});
    if (!quillet.listening()) {
        std::cerr << "Quillet did not start:\n" << quillet.log();
        return 1;
    }
    TextWindow editor;
    if (!editor.ready()) {
        std::cerr << "The test window did not start\n";
        return 1;
    }

    // Idle first, before any expansion warmed anything up.
    const auto [rss0, cpu0] = usage(quillet.pid());
    std::this_thread::sleep_for(idle);
    const auto [rss1, cpu1] = usage(quillet.pid());
    (void)rss0;

    std::vector<double> latencies;
    int failures = 0;
    for (int i = 0; i < std::max(latencyRuns, reliabilityRuns); ++i) {
        editor.clear();
        std::this_thread::sleep_for(40ms); // each expansion starts with the engine at rest
        typist.type(";hi");
        if (editor.waitFor("Hello there", 3s) != "Hello there") {
            ++failures;
            continue;
        }
        if (i >= latencyRuns) {
            continue;
        }
        // From the last key the editor saw (the last change showing part of the abbreviation)
        // to the final text.
        const auto& changes = editor.changes();
        auto typed = std::find_if(changes.rbegin(), changes.rend(), [](const auto& c) {
            return !c.second.empty() && std::string_view(";hi").starts_with(c.second);
        });
        if (typed != changes.rend()) {
            latencies.push_back(
                std::chrono::duration<double, std::milli>(changes.back().first - typed->first)
                    .count());
        }
    }
    std::printf("e2e.latency_ms.p50: %.2f ms\n", percentile(latencies, 0.50));
    std::printf("e2e.latency_ms.p95: %.2f ms\n", percentile(latencies, 0.95));
    std::printf("e2e.failures: %d of %d\n", failures, std::max(latencyRuns, reliabilityRuns));
    std::printf("idle.rss_mb: %.1f MB\n", rss1);
    std::printf("idle.cpu_pct: %.2f %%\n",
                100.0 * (cpu1 - cpu0) / static_cast<double>(idle.count()));
    return 0;
}

} // namespace
} // namespace quillet

int main(int argc, char** argv) {
    // Arguments: latency runs, reliability runs, idle seconds (200, 500, 30 by default).
    const int latency = argc > 1 ? std::atoi(argv[1]) : 200;
    const int reliability = argc > 2 ? std::atoi(argv[2]) : 500;
    const int idle = argc > 3 ? std::atoi(argv[3]) : 30;
    return quillet::run(latency, reliability, std::chrono::seconds(idle));
}
