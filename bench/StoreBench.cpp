// Cost of starting the store over a large library (read and decode) and of saving one (encode,
// write, flush, rename), with snippets shaped like a heavy user's.
#include "BenchMain.h"
#include "library/LibraryFile.h"
#include "library/RunLoop.h"
#include "library/Store.h"

#include <benchmark/benchmark.h>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <unistd.h>

namespace quillet::bench {
namespace {

namespace fs = std::filesystem;

// Starting the store also starts watching; that is not what is measured here.
class NoWatcher final : public FileWatcher {
public:
    void setCallback(Callback) override {}
    void watch(std::vector<fs::path>) override {}
};

std::string word(std::mt19937& rng) {
    static const std::string consonants = "bcdfghklmnprstvw";
    static const std::string vowels = "aeiou";
    std::string w;
    for (unsigned s = 0, n = 1 + rng() % 3; s < n; ++s) {
        w += consonants[rng() % consonants.size()];
        w += vowels[rng() % vowels.size()];
    }
    return w;
}

std::string sentence(std::mt19937& rng, unsigned words) {
    std::string text;
    for (unsigned i = 0; i < words; ++i) {
        text += (i == 0 ? "" : " ") + word(rng);
    }
    return text + ".";
}

// Mostly short phrases and signatures, some letters of several paragraphs with fields, a few
// scoped to sites or applications, with their own trigger, archived, or scripts.
std::vector<Snippet> library(std::size_t size) {
    std::mt19937 rng(static_cast<unsigned>(size));
    std::vector<Snippet> snippets;
    snippets.reserve(size);
    for (std::size_t i = 0; i < size; ++i) {
        Snippet s = Snippet::make();
        s.abbreviation = ";" + word(rng) + std::to_string(i);
        switch (rng() % 10) {
        case 0:
        case 1:
            s.content = "Hi {field:Name},\n\n" + sentence(rng, 40) + "\n\n" + sentence(rng, 30) +
                        "\n\n{cursor}\n\nBest regards,\nAnn Example";
            break;
        case 2:
            s.content = "#!/bin/sh\ndate +%F | tr -d '\\n'";
            s.kind = Snippet::Kind::shell;
            break;
        case 3:
            s.content = sentence(rng, 12) + " {date:yyyy-MM-dd} \u2014 \u00e9t\u00e9 \U0001F600";
            s.scope = Snippet::Scope::only;
            s.sites = {"mail.example.com", "support.example.org"};
            s.apps = {"thunderbird"};
            break;
        default:
            s.content = sentence(rng, 3 + rng() % 8);
            break;
        }
        s.archived = rng() % 50 == 0;
        if (rng() % 20 == 0) {
            s.trigger = TriggerMode::delimiter;
        }
        snippets.push_back(std::move(s));
    }
    return snippets;
}

// A private data folder holding a library of the given size, kept for the whole run.
struct Fixture {
    explicit Fixture(std::size_t size) {
        std::string pattern = (fs::temp_directory_path() / "quillet-bench-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        root = pattern;
        folders = Folders::forHome(root, "", "");
        snippets = library(size);
        std::string error;
        if (!writeLibrary(folders.data / "snippets.json", snippets, error)) {
            throw std::runtime_error(error);
        }
    }
    ~Fixture() {
        std::error_code ec;
        fs::remove_all(root, ec);
    }

    fs::path root;
    Folders folders;
    std::vector<Snippet> snippets;
    MemoryPreferences preferences;
    NoWatcher watcher;
    RunLoop loop;
};

Fixture& fixture(std::size_t size) {
    static std::map<std::size_t, std::unique_ptr<Fixture>> fixtures;
    auto& f = fixtures[size];
    if (!f) {
        f = std::make_unique<Fixture>(size);
    }
    return *f;
}

void load(benchmark::State& state) {
    Fixture& f = fixture(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        SnippetStore store(f.preferences, f.watcher, f.loop, f.folders);
        if (store.snippets().size() != f.snippets.size()) {
            state.SkipWithError("the library did not load");
        }
    }
}

void save(benchmark::State& state) {
    Fixture& f = fixture(static_cast<std::size_t>(state.range(0)));
    SnippetStore store(f.preferences, f.watcher, f.loop, f.folders);
    for (auto _ : state) {
        if (!store.save()) {
            state.SkipWithError("the library was not saved");
        }
    }
}

BENCHMARK(load)->Arg(10000)->Arg(100000)->Repetitions(5)->ReportAggregatesOnly(true)->Unit(
    benchmark::kMillisecond);
BENCHMARK(save)->Arg(10000)->Repetitions(5)->ReportAggregatesOnly(true)->Unit(
    benchmark::kMillisecond);

} // namespace

void report() {
    figure("store.load_ms.10k", median("load/10000/repeats:5"), "ms");
    figure("store.load_ms.100k", median("load/100000/repeats:5"), "ms");
    figure("store.save_ms.10k", median("save/10000/repeats:5"), "ms");
}

} // namespace quillet::bench
