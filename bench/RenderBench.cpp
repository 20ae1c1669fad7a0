// Cost of expanding one snippet through every stage, from includes to the rendered steps: a
// typical template, and one that includes snippets as deep as the include path allows.
#include "BenchMain.h"
#include "render/Expansion.h"

#include <benchmark/benchmark.h>

namespace quillet::bench {
namespace {

Snippet snippet(std::string abbreviation, std::string content) {
    Snippet s;
    s.abbreviation = std::move(abbreviation);
    s.content = std::move(content);
    return s;
}

RenderContext context() {
    return {Date::now(), "en_US", "America/New_York", "gregorian", {"latest copy", "older copy"}};
}

// A library of a thousand snippets, the included ones at its end so that lookups walk it whole.
std::vector<Snippet> library() {
    std::vector<Snippet> out;
    for (int i = 0; i < 1000; ++i) {
        out.push_back(snippet(";s" + std::to_string(i), "Snippet number " + std::to_string(i)));
    }
    for (int level = 1; level <= 4; ++level) {
        out.push_back(snippet(";level" + std::to_string(level),
                              "Level " + std::to_string(level) + " text, then {snippet:;level" +
                                  std::to_string(level + 1) + "}"));
    }
    return out;
}

void typical(benchmark::State& state) {
    const auto lib = library();
    const auto ctx = context();
    const std::string content = "Hi {field:Name},\n\nthanks for your order of {date}. As agreed, "
                                "{choice:Plan=Basic|Pro|Team} starts now: {clipboard}\n\n"
                                "{cursor}\n\nBest, Ann";
    const Expansion::AskValues ask = [](const std::vector<Tokens::Field>&) {
        return Expansion::Values{{"Name", "Bob"}, {"Plan", "Pro"}};
    };
    for (auto _ : state) {
        benchmark::DoNotOptimize(Expansion::plan(content, ";thanks", lib, ask, ctx));
    }
}

void includeDepth5(benchmark::State& state) {
    const auto lib = library();
    const auto ctx = context();
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            Expansion::plan("Top {snippet:;level1}", ";top", lib, Expansion::defaults, ctx));
    }
}

BENCHMARK(typical)->Repetitions(7)->ReportAggregatesOnly(true)->Unit(benchmark::kMicrosecond);
BENCHMARK(includeDepth5)->Repetitions(7)->ReportAggregatesOnly(true)->Unit(benchmark::kMicrosecond);

} // namespace

void report() {
    figure("render.typical_us", median("typical/repeats:7"), "us");
    figure("render.include_depth5_us", median("includeDepth5/repeats:7"), "us");
}

} // namespace quillet::bench
