#pragma once

#include "engine/Matcher.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillet {

/// The matcher's rules written as plainly as possible: every stage is one linear pass over its
/// table. The indexed Matcher must answer exactly as this does: the matcher fuzz target compares
/// the two on random libraries and key streams, and the benchmarks measure how much faster the
/// indexed one is.
class ReferenceMatcher {
public:
    using Mode = Matcher::Mode;
    using Match = Matcher::Match;

    ReferenceMatcher();
    ~ReferenceMatcher();

    Matcher::Table snippets;
    Matcher::Modes modes;
    std::map<std::string, std::string> patterns;
    Matcher::Table corrections;
    Matcher::Extras extras;
    Mode mode = Mode::instant;
    int limit = Matcher::defaultLimit;

    /// Compiles patterns.
    void compile();
    std::string buffer() const;
    void clear() { buffer_.clear(); }
    /// As Matcher::feed, fire and correct.
    std::optional<Match> feed(std::string_view text);
    std::optional<Match> fire(Mode trigger, std::string_view trailer);
    std::optional<Match> correct(std::string_view trailer);

private:
    struct Compiled;
    bool endsWith(const std::string& key, std::size_t* start = nullptr) const;
    std::optional<Match> take(const std::string& key, const std::string& expansion,
                              std::string_view trailer);

    std::vector<std::string> buffer_; // one grapheme cluster each
    std::vector<std::unique_ptr<Compiled>> compiled_;
};

} // namespace quillet
