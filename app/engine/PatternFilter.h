#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// Tells which regular-expression abbreviations could possibly match the typed buffer, so that
/// only those are run. Each pattern is reduced to a literal that every match of it must contain;
/// an Aho-Corasick automaton follows the buffer's bytes as they are typed and remembers where
/// each literal was last seen. A pattern without such a literal is always a candidate.
class PatternFilter {
public:
    /// Prepares for the patterns; candidates are reported by their index in this list.
    void build(const std::vector<std::string>& patterns);

    /// Forgets the buffer: it was emptied.
    void reset();

    /// Follows bytes appended to the buffer.
    void append(std::string_view bytes);

    /// Notes that the buffer lost its first bytes.
    void dropFront(std::size_t bytes) { start_ += bytes; }

    /// The patterns that could match the current buffer, in ascending index order.
    void candidates(std::vector<std::uint32_t>& out) const;

    /// A literal text that every match of pattern contains; empty when none can be proven.
    static std::string requiredLiteral(std::string_view pattern);

private:
    struct State {
        std::uint32_t firstEdge = 0;
        std::uint32_t edgeCount = 0;
        std::uint32_t fail = 0;
        std::int32_t literal = -1; // literal ending exactly here
        std::uint32_t output = 0;  // nearest state on the fail chain with a literal (0: none)
    };

    std::uint32_t next(std::uint32_t state, unsigned char byte) const;

    std::vector<State> states_;
    std::vector<unsigned char> edgeBytes_;
    std::vector<std::uint32_t> edgeTargets_;
    std::vector<std::uint32_t>
        rootNext_; // the root's transitions as a table: most bytes land there
    std::vector<std::string> literals_;
    std::vector<std::vector<std::uint32_t>> patternsOf_; // literal -> patterns needing it
    std::vector<std::uint32_t> unfiltered_;              // patterns with no literal

    // Positions count bytes since the last reset; a literal is in the buffer when its last
    // occurrence starts at or after start_.
    std::uint64_t position_ = 0;
    std::uint64_t start_ = 0;
    std::uint32_t state_ = 0;
    std::vector<std::uint64_t> lastEnd_;
    mutable std::vector<std::uint32_t> seen_; // literals seen since the reset, maybe stale
    mutable std::vector<char> isSeen_;
};

} // namespace quillet
