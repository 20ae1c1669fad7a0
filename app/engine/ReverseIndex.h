#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// A trie over keys spelt backwards, byte by byte, so that every key that ends a text is found by
/// one walk from the text's end: the cost depends on how far the text's tail agrees with some
/// key, never on how many keys there are.
///
/// Each key carries a small set of flags (for the matcher, the trigger modes it fires in); a walk
/// asks for some flags and skips every branch that holds no key with any of them.
class ReverseIndex {
public:
    using Flags = std::uint8_t;

    /// Rebuilds the index; key i is reported as entry i with flags[i]. Equal keys are all
    /// reported, in order.
    void build(const std::vector<std::string>& keys, const std::vector<Flags>& flags);

    /// Calls visit(entry, length) for each key that is a byte suffix of text and has one of the
    /// wanted flags, shortest first; length is the key's byte length.
    template <typename Visit>
    void suffixes(std::string_view text, Flags wanted, Visit&& visit) const {
        if (nodes_.empty()) {
            return;
        }
        std::uint32_t node = 0;
        for (std::size_t depth = 0;; ++depth) {
            if ((subtree_[node] & wanted) == 0) {
                return;
            }
            for (std::uint32_t i = nodes_[node].firstEntry; i < nodes_[node + 1].firstEntry; ++i) {
                if (flags_[i] & wanted) {
                    visit(entries_[i], depth);
                }
            }
            if (depth == text.size()) {
                return;
            }
            node = child(node, static_cast<unsigned char>(text[text.size() - 1 - depth]));
            if (node == none) {
                return;
            }
        }
    }

private:
    static constexpr std::uint32_t none = 0xFFFFFFFFu;

    // Nodes are laid out breadth first, so a node's children are contiguous: the edge into node
    // i is labels_[i], and a lookup scans the children's labels, which share a cache line. A
    // node's children and entries end where the next node's begin (a last node closes the
    // list), so counts take no room: a large library has several nodes per abbreviation.
    struct Node {
        std::uint32_t firstChild = 0;
        std::uint32_t firstEntry = 0;
    };

    std::uint32_t child(std::uint32_t node, unsigned char byte) const;

    std::vector<Node> nodes_;
    std::vector<Flags> subtree_; // per node: every flag of the keys at or below it
    std::vector<unsigned char> labels_;
    std::vector<std::uint32_t> entries_;
    std::vector<Flags> flags_; // parallel to entries_
    std::vector<std::uint32_t> rootTable_;
};

} // namespace quillet
