// End-to-end figures on a real X server (run under with-xvfb.sh with openbox): how long an
// expansion takes from the last key the editor saw to the final text, how often one fails, and
// what the running engine costs while nothing is typed.
#include "support/DesktopHarness.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
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

// A library the size of a heavy user's many times over: short phrases under numbered
// abbreviations that share no prefix with ";hi".
std::vector<Snippet> large(std::size_t size) {
    static const char* const words[] = {"thanks", "for",  "your", "message", "see",
                                        "you",    "soon", "best", "regards", "the"};
    std::vector<Snippet> library{snippet(";hi", "Hello there")};
    library.reserve(size);
    for (std::size_t i = 1; i < size; ++i) {
        std::string content;
        for (std::size_t w = 0; w < 4 + i % 8; ++w) {
            content += (w == 0 ? "" : " ") + std::string(words[(i + w * 7) % 10]);
        }
        library.push_back(snippet(";x" + std::to_string(i), content + "."));
    }
    return library;
}

struct Expansions {
    std::vector<double> latencies;
    int failures = 0;
};

// Types ";hi" runs times, each into an emptied editor with the engine at rest; the latency of
// the first measured runs, from the last key the editor saw (the last change showing part of
// the abbreviation) to the final text.
Expansions expand(TextWindow& editor, Typist& typist, int runs, int measured) {
    Expansions out;
    for (int i = 0; i < runs; ++i) {
        editor.clear();
        std::this_thread::sleep_for(40ms);
        typist.type(";hi");
        if (editor.waitFor("Hello there", 3s) != "Hello there") {
            ++out.failures;
            continue;
        }
        if (i >= measured) {
            continue;
        }
        const auto& changes = editor.changes();
        auto typed = std::find_if(changes.rbegin(), changes.rend(), [](const auto& c) {
            return !c.second.empty() && std::string_view(";hi").starts_with(c.second);
        });
        if (typed != changes.rend()) {
            out.latencies.push_back(
                std::chrono::duration<double, std::milli>(changes.back().first - typed->first)
                    .count());
        }
    }
    return out;
}

int run(int latencyRuns, int reliabilityRuns, std::chrono::seconds idle, int largeRuns) {
    Typist typist;
    auto quillet = std::make_unique<QuilletProcess>(
        std::vector<Snippet>{snippet(";hi", "Hello there"), snippet(";sig", "Best regards, Ann")});
    if (!quillet->listening()) {
        std::cerr << "Quillet did not start:\n" << quillet->log();
        return 1;
    }
    TextWindow editor;
    if (!editor.ready()) {
        std::cerr << "The test window did not start\n";
        return 1;
    }

    // Idle first, before any expansion warmed anything up.
    const auto [rss0, cpu0] = usage(quillet->pid());
    std::this_thread::sleep_for(idle);
    const auto [rss1, cpu1] = usage(quillet->pid());
    (void)rss0;

    const int runs = std::max(latencyRuns, reliabilityRuns);
    const Expansions small = expand(editor, typist, runs, latencyRuns);
    std::printf("e2e.latency_ms.p50: %.2f ms\n", percentile(small.latencies, 0.50));
    std::printf("e2e.latency_ms.p95: %.2f ms\n", percentile(small.latencies, 0.95));
    std::printf("e2e.failures: %d of %d\n", small.failures, runs);
    std::printf("idle.rss_mb: %.1f MB\n", rss1);
    std::printf("idle.cpu_pct: %.2f %%\n",
                100.0 * (cpu1 - cpu0) / static_cast<double>(idle.count()));
    quillet.reset();
    if (largeRuns <= 0) {
        return 0;
    }

    // The same expansion with 100,000 snippets: its cost, and memory, must not follow the
    // library's size. The idle figure includes the first save of the usage counts it seeds.
    quillet = std::make_unique<QuilletProcess>(large(100'000));
    if (!quillet->listening()) {
        std::cerr << "Quillet did not start with 100,000 snippets:\n" << quillet->log();
        return 1;
    }
    editor.focus();
    std::this_thread::sleep_for(std::min(idle, std::chrono::seconds(10)));
    const double rssIdle = usage(quillet->pid()).first;
    // Growth is counted after a few expansions: the first ones load what every expansion uses
    // (text segmentation, the clipboard's side), once.
    expand(editor, typist, 20, 0);
    std::this_thread::sleep_for(2s); // their usage save included
    const double rssWarm = usage(quillet->pid()).first;
    const Expansions many = expand(editor, typist, largeRuns, largeRuns);
    std::this_thread::sleep_for(2s);
    const double rssAfter = usage(quillet->pid()).first;
    std::printf("e2e.latency_ms.p50.100k: %.2f ms\n", percentile(many.latencies, 0.50));
    std::printf("e2e.failures.100k: %d of %d\n", many.failures, largeRuns);
    std::printf("idle.rss_mb.100k: %.1f MB\n", rssIdle);
    std::printf("rss_growth_mb.%d: %.1f MB\n", largeRuns, rssAfter - rssWarm);
    return 0;
}

} // namespace
} // namespace quillet

int main(int argc, char** argv) {
    // Arguments: latency runs, reliability runs, idle seconds, runs with 100,000 snippets
    // (200, 500, 30, 1000 by default).
    const int latency = argc > 1 ? std::atoi(argv[1]) : 200;
    const int reliability = argc > 2 ? std::atoi(argv[2]) : 500;
    const int idle = argc > 3 ? std::atoi(argv[3]) : 30;
    const int large = argc > 4 ? std::atoi(argv[4]) : 1000;
    return quillet::run(latency, reliability, std::chrono::seconds(idle), large);
}
