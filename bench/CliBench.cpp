// Whole-process times of the command-line tool against a library of 10,000 snippets.
#include "BenchMain.h"
#include "library/LibraryFile.h"
#include "support/ChildProcess.h"

#include <benchmark/benchmark.h>
#include <cstdlib>

namespace quillet::bench {
namespace {

struct Home {
    std::filesystem::path folder;

    Home() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "quillet-bench-XXXXXX").string();
        folder = ::mkdtemp(pattern.data());
        std::vector<Snippet> library;
        for (int i = 0; i < 10000; ++i) {
            Snippet s = Snippet::make();
            s.abbreviation = ";s" + std::to_string(i);
            s.content = "Hello {field:Name},\nthanks for the note about item " + std::to_string(i) +
                        ". Due {date+14d}.";
            library.push_back(std::move(s));
        }
        std::string error;
        writeLibrary(folder / ".local/share/quillet/snippets.json", library, error);
    }
    ~Home() {
        std::error_code ec;
        std::filesystem::remove_all(folder, ec);
    }
};

Home& home() {
    static Home h;
    return h;
}

void runTool(benchmark::State& state, std::vector<std::string> args) {
    args.insert(args.begin(), QUILLET_EXECUTABLE);
    const std::map<std::string, std::string> env = {
        {"HOME", home().folder.string()}, {"XDG_DATA_HOME", ""}, {"XDG_CONFIG_HOME", ""}};
    for (auto _ : state) {
        auto result = testing::runProcess(args, {}, env);
        if (result.status != 0) {
            state.SkipWithError(("exit status " + std::to_string(result.status)).c_str());
            break;
        }
    }
}

void list(benchmark::State& state) {
    runTool(state, {"list"});
}
void expand(benchmark::State& state) {
    runTool(state, {"expand", ";s9999", "Name=Ann"});
}
void startup(benchmark::State& state) {
    runTool(state, {"help"});
}

BENCHMARK(list)->Iterations(10)->Repetitions(5)->UseRealTime()->ReportAggregatesOnly(true)->Unit(
    benchmark::kMillisecond);
BENCHMARK(expand)->Iterations(10)->Repetitions(5)->UseRealTime()->ReportAggregatesOnly(true)->Unit(
    benchmark::kMillisecond);
BENCHMARK(startup)->Iterations(20)->Repetitions(5)->UseRealTime()->ReportAggregatesOnly(true)->Unit(
    benchmark::kMillisecond);

} // namespace

void report() {
    figure("cli.list_ms.10k", median("list/iterations:10/repeats:5/real_time"), "ms");
    figure("cli.expand_ms.10k", median("expand/iterations:10/repeats:5/real_time"), "ms");
    figure("cli.startup_ms", median("startup/iterations:20/repeats:5/real_time"), "ms");
}

} // namespace quillet::bench
