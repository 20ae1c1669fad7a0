#include "engine/PatternFilter.h"

#include <algorithm>
#include <map>
#include <optional>

namespace quillet {
namespace {

// A conservative reader of the regular-expression syntax. It only has to be right when it
// claims a literal; whenever it meets something it does not fully understand it gives up, and
// the pattern is then simply run on every key.
class LiteralReader {
public:
    explicit LiteralReader(std::string_view pattern) : p_(pattern) {}

    std::optional<std::string> read() { return sequence(0, p_.size()); }

private:
    struct Quantity {
        bool present = false;
        bool optional = false; // may match zero times
    };

    static bool isAsciiAlnum(char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    }

    static std::size_t codePointSize(unsigned char lead) {
        if (lead < 0x80) {
            return 1;
        }
        if ((lead & 0xE0) == 0xC0) {
            return 2;
        }
        if ((lead & 0xF0) == 0xE0) {
            return 3;
        }
        if ((lead & 0xF8) == 0xF0) {
            return 4;
        }
        return 1;
    }

    // Index just past the set that starts at i, or nothing when it looks unusual.
    std::optional<std::size_t> skipSet(std::size_t i, std::size_t end) const {
        std::size_t j = i + 1;
        if (j < end && p_[j] == '^') {
            ++j;
        }
        if (j < end && p_[j] == ']') {
            return std::nullopt;
        }
        int depth = 1;
        while (j < end) {
            char c = p_[j];
            if (c == '\\') {
                j += 2;
                continue;
            }
            if (c == '[') {
                ++depth;
            } else if (c == ']' && --depth == 0) {
                return j + 1;
            }
            ++j;
        }
        return std::nullopt;
    }

    // Index just past \Q...\E starting at i (which points at the backslash).
    std::size_t skipQuote(std::size_t i, std::size_t end) const {
        auto close = p_.find("\\E", i + 2);
        return close == std::string_view::npos || close >= end ? end : close + 2;
    }

    // Index of the ')' closing the group opened at i, or nothing.
    std::optional<std::size_t> groupClose(std::size_t i, std::size_t end) const {
        int depth = 0;
        std::size_t j = i;
        while (j < end) {
            char c = p_[j];
            if (c == '\\') {
                j = (j + 1 < end && p_[j + 1] == 'Q') ? skipQuote(j, end) : j + 2;
                continue;
            }
            if (c == '[') {
                auto after = skipSet(j, end);
                if (!after) {
                    return std::nullopt;
                }
                j = *after;
                continue;
            }
            if (c == '(') {
                ++depth;
            } else if (c == ')' && --depth == 0) {
                return j;
            }
            ++j;
        }
        return std::nullopt;
    }

    // True when the range has a '|' outside every group and set; nothing when unreadable.
    std::optional<bool> hasAlternative(std::size_t i, std::size_t end) const {
        while (i < end) {
            char c = p_[i];
            if (c == '\\') {
                i = (i + 1 < end && p_[i + 1] == 'Q') ? skipQuote(i, end) : i + 2;
            } else if (c == '[') {
                auto after = skipSet(i, end);
                if (!after) {
                    return std::nullopt;
                }
                i = *after;
            } else if (c == '(') {
                auto close = groupClose(i, end);
                if (!close) {
                    return std::nullopt;
                }
                i = *close + 1;
            } else if (c == '|') {
                return true;
            } else {
                ++i;
            }
        }
        return false;
    }

    // Reads a quantifier at i, moving i past it; nothing when it is malformed.
    std::optional<Quantity> quantifier(std::size_t& i, std::size_t end) const {
        Quantity q;
        if (i >= end) {
            return q;
        }
        char c = p_[i];
        if (c == '*' || c == '?') {
            q = {true, true};
            ++i;
        } else if (c == '+') {
            q = {true, false};
            ++i;
        } else if (c == '{') {
            std::size_t j = i + 1;
            std::size_t digits = 0;
            bool zero = true;
            while (j < end && p_[j] >= '0' && p_[j] <= '9') {
                zero = zero && p_[j] == '0';
                ++j;
                ++digits;
            }
            if (digits == 0) {
                return std::nullopt;
            }
            if (j < end && p_[j] == ',') {
                ++j;
                while (j < end && p_[j] >= '0' && p_[j] <= '9') {
                    ++j;
                }
            }
            if (j >= end || p_[j] != '}') {
                return std::nullopt;
            }
            q = {true, zero};
            i = j + 1;
        } else {
            return q;
        }
        if (i < end && (p_[i] == '?' || p_[i] == '+')) {
            ++i;
        }
        if (i < end && (p_[i] == '*' || p_[i] == '+' || p_[i] == '?' || p_[i] == '{')) {
            return std::nullopt; // stacked quantifiers: leave them to the engine
        }
        return q;
    }

    // The longest literal that every match of p_[begin, end) contains ("" when none), or nothing
    // when the syntax is beyond this reader.
    std::optional<std::string> sequence(std::size_t begin, std::size_t end) {
        auto alternative = hasAlternative(begin, end);
        if (!alternative) {
            return std::nullopt;
        }
        if (*alternative) {
            // Each branch could need its own literal; none is common to all without more work.
            return std::string();
        }
        std::string best;
        std::vector<std::string> run;
        auto flush = [&] {
            std::string joined;
            for (auto& piece : run) {
                joined += piece;
            }
            if (joined.size() > best.size()) {
                best = std::move(joined);
            }
            run.clear();
        };
        auto consider = [&](const std::string& s) {
            if (s.size() > best.size()) {
                best = s;
            }
        };

        std::size_t i = begin;
        while (i < end) {
            enum class Atom { literal, opaque, group, zeroWidth } atom = Atom::opaque;
            std::string literal;
            std::string inner;
            char c = p_[i];
            if (c == '\\') {
                if (i + 1 >= end) {
                    return std::nullopt;
                }
                char d = p_[i + 1];
                if (d == 'Q') {
                    std::size_t after = skipQuote(i, end);
                    auto close = p_.find("\\E", i + 2);
                    std::size_t textEnd =
                        close == std::string_view::npos || close >= end ? end : close;
                    std::size_t k = i + 2;
                    i = after;
                    if (k >= textEnd) {
                        continue;
                    }
                    // A quantifier after \E applies to the last quoted character only.
                    while (true) {
                        std::size_t size = codePointSize(static_cast<unsigned char>(p_[k]));
                        if (k + size >= textEnd) {
                            literal = std::string(p_.substr(k, textEnd - k));
                            break;
                        }
                        run.emplace_back(p_.substr(k, size));
                        k += size;
                    }
                    atom = Atom::literal;
                } else if (d >= '1' && d <= '9') {
                    return std::nullopt; // back references
                } else if (isAsciiAlnum(d)) {
                    std::size_t j = i + 2;
                    if (d == 'b' || d == 'B' || d == 'A' || d == 'Z' || d == 'z' || d == 'G') {
                        atom = Atom::zeroWidth;
                    } else if ((d == 'p' || d == 'P' || d == 'N' || d == 'x' || d == 'k') &&
                               j < end && (p_[j] == '{' || p_[j] == '<')) {
                        char close = p_[j] == '{' ? '}' : '>';
                        auto found = p_.find(close, j);
                        if (found == std::string_view::npos || found >= end) {
                            return std::nullopt;
                        }
                        j = found + 1;
                    } else if (d == 'p' || d == 'P' || d == 'c') {
                        j += 1;
                    } else if (d == 'x') {
                        j += 2;
                    } else if (d == 'u') {
                        j += 4;
                    } else if (d == 'U') {
                        j += 8;
                    } else if (d == '0') {
                        while (j < end && j < i + 5 && p_[j] >= '0' && p_[j] <= '7') {
                            ++j;
                        }
                    }
                    if (j > end) {
                        return std::nullopt;
                    }
                    i = j;
                } else {
                    std::size_t size = codePointSize(static_cast<unsigned char>(d));
                    literal = std::string(p_.substr(i + 1, size));
                    atom = Atom::literal;
                    i += 1 + size;
                }
            } else if (c == '[') {
                auto after = skipSet(i, end);
                if (!after) {
                    return std::nullopt;
                }
                i = *after;
            } else if (c == '(') {
                auto close = groupClose(i, end);
                if (!close) {
                    return std::nullopt;
                }
                std::size_t innerBegin = i + 1;
                std::string_view head =
                    p_.substr(innerBegin, std::min<std::size_t>(3, *close - innerBegin));
                if (!head.empty() && head[0] == '?') {
                    if (head.starts_with("?:") || head.starts_with("?>")) {
                        innerBegin += 2;
                        atom = Atom::group;
                    } else if (head.starts_with("?=") || head.starts_with("?!") ||
                               head.starts_with("?<=") || head.starts_with("?<!")) {
                        atom = Atom::zeroWidth;
                    } else if (head.starts_with("?<")) {
                        auto name = p_.find('>', innerBegin);
                        if (name == std::string_view::npos || name >= *close) {
                            return std::nullopt;
                        }
                        innerBegin = name + 1;
                        atom = Atom::group;
                    } else {
                        return std::nullopt; // flags and comments change what a literal means
                    }
                } else {
                    atom = Atom::group;
                }
                if (atom == Atom::group) {
                    auto found = sequence(innerBegin, *close);
                    if (!found) {
                        return std::nullopt;
                    }
                    inner = std::move(*found);
                }
                i = *close + 1;
            } else if (c == '.') {
                ++i;
            } else if (c == '^' || c == '$') {
                atom = Atom::zeroWidth;
                ++i;
            } else if (c == '*' || c == '+' || c == '?' || c == '{' || c == ')' || c == '|') {
                return std::nullopt;
            } else {
                std::size_t size = codePointSize(static_cast<unsigned char>(c));
                literal = std::string(p_.substr(i, size));
                atom = Atom::literal;
                i += size;
            }

            auto q = quantifier(i, end);
            if (!q) {
                return std::nullopt;
            }
            switch (atom) {
            case Atom::literal:
                if (q->present && q->optional) {
                    flush();
                } else if (q->present) {
                    run.push_back(std::move(literal));
                    flush();
                } else {
                    run.push_back(std::move(literal));
                }
                break;
            case Atom::group:
                flush();
                if (!(q->present && q->optional)) {
                    consider(inner);
                }
                break;
            case Atom::opaque:
            case Atom::zeroWidth:
                flush();
                break;
            }
        }
        flush();
        return best;
    }

    std::string_view p_;
};

} // namespace

std::string PatternFilter::requiredLiteral(std::string_view pattern) {
    return LiteralReader(pattern).read().value_or(std::string());
}

void PatternFilter::build(const std::vector<std::string>& patterns) {
    literals_.clear();
    patternsOf_.clear();
    unfiltered_.clear();
    std::map<std::string, std::uint32_t> ids;
    for (std::uint32_t p = 0; p < patterns.size(); ++p) {
        std::string literal = requiredLiteral(patterns[p]);
        if (literal.empty()) {
            unfiltered_.push_back(p);
            continue;
        }
        auto [it, added] = ids.emplace(literal, static_cast<std::uint32_t>(literals_.size()));
        if (added) {
            literals_.push_back(literal);
            patternsOf_.emplace_back();
        }
        patternsOf_[it->second].push_back(p);
    }

    // The goto trie, drafted with maps and then flattened breadth first.
    struct Draft {
        std::map<unsigned char, std::uint32_t> children;
        std::int32_t literal = -1;
    };
    std::vector<Draft> drafts(1);
    for (std::uint32_t l = 0; l < literals_.size(); ++l) {
        std::uint32_t node = 0;
        for (char ch : literals_[l]) {
            auto byte = static_cast<unsigned char>(ch);
            auto found = drafts[node].children.find(byte);
            if (found == drafts[node].children.end()) {
                drafts.emplace_back();
                auto created = static_cast<std::uint32_t>(drafts.size() - 1);
                drafts[node].children.emplace(byte, created);
                node = created;
            } else {
                node = found->second;
            }
        }
        drafts[node].literal = static_cast<std::int32_t>(l);
    }
    std::vector<std::uint32_t> order{0};
    std::vector<std::uint32_t> position(drafts.size(), 0);
    for (std::size_t i = 0; i < order.size(); ++i) {
        for (auto& [byte, child] : drafts[order[i]].children) {
            position[child] = static_cast<std::uint32_t>(order.size());
            order.push_back(child);
        }
    }
    states_.assign(drafts.size(), State{});
    edgeBytes_.clear();
    edgeTargets_.clear();
    for (std::size_t i = 0; i < order.size(); ++i) {
        const Draft& d = drafts[order[i]];
        State& s = states_[i];
        s.firstEdge = static_cast<std::uint32_t>(edgeBytes_.size());
        s.edgeCount = static_cast<std::uint32_t>(d.children.size());
        s.literal = d.literal;
        for (auto& [byte, child] : d.children) {
            edgeBytes_.push_back(byte);
            edgeTargets_.push_back(position[child]);
        }
    }
    rootNext_.assign(256, 0);
    for (std::uint32_t e = states_[0].firstEdge; e < states_[0].firstEdge + states_[0].edgeCount;
         ++e) {
        rootNext_[edgeBytes_[e]] = edgeTargets_[e];
    }
    // Failure links in breadth-first order: a state's link is known before its children's.
    for (std::uint32_t s = 0; s < states_.size(); ++s) {
        for (std::uint32_t e = states_[s].firstEdge;
             e < states_[s].firstEdge + states_[s].edgeCount; ++e) {
            std::uint32_t child = edgeTargets_[e];
            std::uint32_t fail = 0;
            if (s != 0) {
                fail = next(states_[s].fail, edgeBytes_[e]);
            }
            states_[child].fail = fail;
            states_[child].output = states_[fail].literal >= 0 ? fail : states_[fail].output;
        }
    }

    lastEnd_.assign(literals_.size(), 0);
    isSeen_.assign(literals_.size(), 0);
    seen_.clear();
    position_ = 0;
    start_ = 0;
    state_ = 0;
}

std::uint32_t PatternFilter::next(std::uint32_t state, unsigned char byte) const {
    while (state != 0) {
        const State& s = states_[state];
        auto first = edgeBytes_.begin() + s.firstEdge;
        auto last = first + s.edgeCount;
        auto it = std::lower_bound(first, last, byte);
        if (it != last && *it == byte) {
            return edgeTargets_[static_cast<std::size_t>(it - edgeBytes_.begin())];
        }
        state = s.fail;
    }
    return rootNext_[byte];
}

void PatternFilter::reset() {
    for (auto literal : seen_) {
        isSeen_[literal] = 0;
        lastEnd_[literal] = 0;
    }
    seen_.clear();
    position_ = 0;
    start_ = 0;
    state_ = 0;
}

void PatternFilter::append(std::string_view bytes) {
    if (literals_.empty()) {
        position_ += bytes.size();
        return;
    }
    for (char ch : bytes) {
        state_ = next(state_, static_cast<unsigned char>(ch));
        ++position_;
        for (std::uint32_t s = states_[state_].literal >= 0 ? state_ : states_[state_].output;
             s != 0; s = states_[s].output) {
            auto literal = static_cast<std::uint32_t>(states_[s].literal);
            lastEnd_[literal] = position_;
            if (!isSeen_[literal]) {
                isSeen_[literal] = 1;
                seen_.push_back(literal);
            }
        }
    }
}

void PatternFilter::candidates(std::vector<std::uint32_t>& out) const {
    out.assign(unfiltered_.begin(), unfiltered_.end());
    for (std::size_t i = 0; i < seen_.size();) {
        std::uint32_t literal = seen_[i];
        if (lastEnd_[literal] >= start_ + literals_[literal].size()) {
            out.insert(out.end(), patternsOf_[literal].begin(), patternsOf_[literal].end());
            ++i;
        } else {
            // Scrolled out of the buffer; it comes back only if typed again.
            isSeen_[literal] = 0;
            seen_[i] = seen_.back();
            seen_.pop_back();
        }
    }
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
}

} // namespace quillet
