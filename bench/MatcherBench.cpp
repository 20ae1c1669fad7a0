// Cost of one key stroke in the matcher, for a small and a very large library, and against the
// plain linear scan on the same keys.
#include "BenchMain.h"
#include "engine/Matcher.h"
#include "reference/ReferenceMatcher.h"

#include <benchmark/benchmark.h>
#include <fstream>
#include <random>
#include <set>

namespace quillet::bench {
namespace {

using Mode = Matcher::Mode;

std::vector<std::string> dictionary() {
    std::vector<std::string> words;
    std::ifstream in("/usr/share/dict/words");
    std::string line;
    while (std::getline(in, line)) {
        bool lower = !line.empty() && line.size() <= 12;
        for (char c : line) {
            lower = lower && c >= 'a' && c <= 'z';
        }
        if (lower) {
            words.push_back(line);
        }
    }
    if (words.size() < 1000) {
        // Without a word list, pronounceable made-up words serve as well.
        std::mt19937 rng(3);
        const std::string consonants = "bcdfghklmnprstvw";
        const std::string vowels = "aeiou";
        for (int i = 0; i < 20000; ++i) {
            std::string w;
            int syllables = 1 + static_cast<int>(rng() % 3);
            for (int s = 0; s < syllables; ++s) {
                w += consonants[rng() % consonants.size()];
                w += vowels[rng() % vowels.size()];
            }
            words.push_back(w);
        }
    }
    return words;
}

struct Library {
    Matcher::Table snippets;
    Matcher::Modes modes;
    std::map<std::string, std::string> patterns;
    std::vector<std::string> typedAbbreviations;
};

// A library shaped like a heavy user's: mostly ";word" abbreviations, some letter-led ones, a
// few per-snippet triggers, and one in a hundred a regular expression.
Library makeLibrary(std::size_t size, const std::vector<std::string>& words) {
    std::mt19937 rng(static_cast<unsigned>(size));
    auto word = [&] { return words[rng() % words.size()]; };
    Library lib;
    std::set<std::string> taken;
    while (lib.snippets.size() + lib.patterns.size() < size) {
        std::size_t n = lib.snippets.size() + lib.patterns.size();
        if (n % 100 == 99) {
            static const char* shapes[] = {";%s(\\d+)", "#%s-(\\w+)\\.", "(\\d+)%s!",
                                           "%s@([a-z]+)"};
            std::string shape = shapes[rng() % 4];
            shape.replace(shape.find("%s"), 2, word().substr(0, 4) + std::to_string(n));
            lib.patterns[shape] = "pattern $1";
            continue;
        }
        std::string key;
        switch (rng() % 10) {
        case 0:
        case 1:
            key = word().substr(0, 5) + std::to_string(rng() % 100);
            break;
        case 2:
            key = "::" + word();
            break;
        default:
            key = ";" + word().substr(0, 3 + rng() % 6);
        }
        if (!taken.insert(key).second) {
            continue;
        }
        lib.snippets[key] = "Expansion of " + key;
        if (rng() % 10 == 0) {
            lib.modes[key] = rng() % 2 ? Mode::delimiter : Mode::tab;
        }
        if (rng() % 50 == 0) {
            lib.typedAbbreviations.push_back(key);
        }
    }
    return lib;
}

// Ordinary prose with punctuation and numbers, and now and then an abbreviation.
std::vector<std::string> makeStream(const Library& lib, const std::vector<std::string>& words) {
    std::mt19937 rng(11);
    std::vector<std::string> keys;
    while (keys.size() < 20000) {
        std::string w;
        int roll = static_cast<int>(rng() % 100);
        if (roll < 3 && !lib.typedAbbreviations.empty()) {
            w = lib.typedAbbreviations[rng() % lib.typedAbbreviations.size()];
        } else if (roll < 6) {
            w = std::to_string(rng() % 2000);
        } else {
            w = words[rng() % words.size()];
            if (roll < 12) {
                w[0] = static_cast<char>(w[0] - 'a' + 'A');
            }
        }
        for (char c : w) {
            keys.emplace_back(1, c);
        }
        int end = static_cast<int>(rng() % 20);
        keys.emplace_back(end == 0 ? "," : end == 1 ? "." : " ");
        if (end == 1) {
            keys.emplace_back(" ");
        }
    }
    return keys;
}

struct Fixture {
    Library library;
    std::vector<std::string> stream;
    Matcher matcher;
    ReferenceMatcher reference;
};

Fixture& fixture(std::size_t size) {
    static std::map<std::size_t, std::unique_ptr<Fixture>> fixtures;
    auto& f = fixtures[size];
    if (!f) {
        static const auto words = dictionary();
        f = std::make_unique<Fixture>();
        f->library = makeLibrary(size, words);
        f->stream = makeStream(f->library, words);
        f->matcher.setSnippets(f->library.snippets, f->library.modes);
        f->matcher.setPatterns(f->library.patterns);
        f->matcher.compile();
        f->reference.snippets = f->library.snippets;
        f->reference.modes = f->library.modes;
        f->reference.patterns = f->library.patterns;
        f->reference.compile();
    }
    return *f;
}

void feed(benchmark::State& state) {
    Fixture& f = fixture(static_cast<std::size_t>(state.range(0)));
    f.matcher.clear();
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(f.matcher.feed(f.stream[i]));
        if (++i == f.stream.size()) {
            i = 0;
        }
    }
}

void referenceFeed(benchmark::State& state) {
    Fixture& f = fixture(static_cast<std::size_t>(state.range(0)));
    f.reference.clear();
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(f.reference.feed(f.stream[i++]));
    }
}

void sameKeysFeed(benchmark::State& state) {
    Fixture& f = fixture(static_cast<std::size_t>(state.range(0)));
    f.matcher.clear();
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(f.matcher.feed(f.stream[i++]));
    }
}

constexpr int referenceKeys = 200;

BENCHMARK(feed)->Arg(1000)->Arg(100000)->Repetitions(7)->ReportAggregatesOnly(true)->Unit(
    benchmark::kNanosecond);
BENCHMARK(referenceFeed)
    ->Arg(100000)
    ->Iterations(referenceKeys)
    ->Repetitions(3)
    ->ReportAggregatesOnly(true)
    ->Unit(benchmark::kNanosecond);
BENCHMARK(sameKeysFeed)
    ->Arg(100000)
    ->Iterations(referenceKeys)
    ->Repetitions(3)
    ->ReportAggregatesOnly(true)
    ->Unit(benchmark::kNanosecond);

} // namespace

void report() {
    double small = median("feed/1000/repeats:7");
    double large = median("feed/100000/repeats:7");
    double reference = median("referenceFeed/100000/iterations:200/repeats:3");
    double same = median("sameKeysFeed/100000/iterations:200/repeats:3");
    figure("matcher.feed_ns.1k", small, "ns");
    figure("matcher.feed_ns.100k", large, "ns");
    figure("matcher.scaling", small > 0 ? large / small : 0, "x");
    figure("matcher.reference_ratio.100k", same > 0 ? reference / same : 0, "x");
}

} // namespace quillet::bench
