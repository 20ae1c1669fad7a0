// Importing a 10,000-row CSV file into a library of 10,000 snippets (read, trust check, merge),
// and exporting a library of 10,000 snippets.
#include "BenchMain.h"
#include "transfer/Transfer.h"

#include <benchmark/benchmark.h>

namespace quillet::bench {
namespace {

constexpr int size = 10000;

// Short phrases, some letters of several lines with fields and quotes, a few scoped ones.
std::vector<Snippet> library() {
    std::vector<Snippet> snippets;
    snippets.reserve(size);
    for (int i = 0; i < size; ++i) {
        Snippet s = Snippet::make();
        s.abbreviation = ";lib" + std::to_string(i);
        s.content = i % 5 == 0 ? "Hi {field:Name},\n\nthe \"order\" " + std::to_string(i) +
                                     " ships today.\n\nBest regards,\nAnn"
                               : "On my way, " + std::to_string(i) + "!";
        if (i % 20 == 0) {
            s.scope = Snippet::Scope::only;
            s.sites = {"mail.example.com"};
        }
        snippets.push_back(std::move(s));
    }
    return snippets;
}

// A spreadsheet's export: a header, quoted cells where they need it, one in ten already there.
std::string csvFile() {
    std::string text = "Shortcut,Phrase\r\n";
    for (int i = 0; i < size; ++i) {
        const std::string name = i % 10 == 0 ? "lib" + std::to_string(i) : "s" + std::to_string(i);
        text +=
            i % 4 == 0
                ? name + ",\"Dear \"\"customer\"\",\nthanks, " + std::to_string(i) + "\nBest\"\r\n"
                : name + ",Thanks for the note about item " + std::to_string(i) + ".\r\n";
    }
    return text;
}

void csvImport(benchmark::State& state) {
    const std::vector<Snippet> existing = library();
    const std::string file = csvFile();
    for (auto _ : state) {
        Transfer::Incoming incoming = Transfer::read(file);
        if (Transfer::trustWarning(incoming.snippets)) {
            state.SkipWithError("a plain file was taken for a risky one");
        }
        Transfer::Report report = Transfer::merge(std::move(incoming), existing);
        benchmark::DoNotOptimize(report);
    }
}

void exportFile(benchmark::State& state) {
    const std::vector<Snippet> existing = library();
    for (auto _ : state) {
        std::string text = Transfer::exportFile(existing);
        benchmark::DoNotOptimize(text);
    }
}

BENCHMARK(csvImport)->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMillisecond);
BENCHMARK(exportFile)->Repetitions(5)->ReportAggregatesOnly(true)->Unit(benchmark::kMillisecond);

} // namespace

void report() {
    figure("transfer.csv_import_ms.10k", median("csvImport/repeats:5"), "ms");
    figure("transfer.export_ms.10k", median("exportFile/repeats:5"), "ms");
}

} // namespace quillet::bench
