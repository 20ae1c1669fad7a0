#include "engine/ReverseIndex.h"

#include <algorithm>
#include <numeric>

namespace quillet {

void ReverseIndex::build(const std::vector<std::string>& keys, const std::vector<Flags>& flags) {
    // Keys sorted by their reversed bytes: every node of the trie is then a run of that order
    // whose keys share the node's depth in bytes, and its children are runs too, in byte order.
    // So the trie is laid out breadth first straight away, with no draft of linked nodes (for a
    // large library such a draft took several times the finished index's memory).
    std::vector<std::uint32_t> sorted(keys.size());
    std::iota(sorted.begin(), sorted.end(), 0u);
    std::stable_sort(sorted.begin(), sorted.end(), [&](std::uint32_t a, std::uint32_t b) {
        return std::lexicographical_compare(
            keys[a].rbegin(), keys[a].rend(), keys[b].rbegin(), keys[b].rend(), [](char x, char y) {
                return static_cast<unsigned char>(x) < static_cast<unsigned char>(y);
            });
    });
    auto byteAt = [&](std::uint32_t k, std::size_t depth) {
        return static_cast<unsigned char>(keys[k][keys[k].size() - 1 - depth]);
    };

    struct Run {
        std::uint32_t from, to; // in sorted
        std::uint32_t depth;
    };
    std::vector<Run> runs{{0, static_cast<std::uint32_t>(keys.size()), 0}}; // node i is runs[i]
    nodes_.clear();
    subtree_.clear();
    labels_.assign(1, 0);
    entries_.clear();
    flags_.clear();
    for (std::size_t i = 0; i < runs.size(); ++i) {
        const Run run = runs[i];
        Node n;
        n.firstChild = static_cast<std::uint32_t>(runs.size());
        n.firstEntry = static_cast<std::uint32_t>(entries_.size());
        Flags subtree = 0;
        std::uint32_t at = run.from;
        // Keys that end here sort first in their run, equal ones in their given order.
        for (; at < run.to && keys[sorted[at]].size() == run.depth; ++at) {
            entries_.push_back(sorted[at]);
            flags_.push_back(flags[sorted[at]]);
            subtree |= flags[sorted[at]];
        }
        while (at < run.to) {
            const unsigned char byte = byteAt(sorted[at], run.depth);
            std::uint32_t end = at + 1;
            while (end < run.to && byteAt(sorted[end], run.depth) == byte) {
                ++end;
            }
            runs.push_back(Run{at, end, run.depth + 1});
            labels_.push_back(byte);
            at = end;
        }
        nodes_.push_back(n);
        subtree_.push_back(subtree);
    }
    nodes_.push_back(
        Node{static_cast<std::uint32_t>(runs.size()), static_cast<std::uint32_t>(entries_.size())});
    // The index lives as long as the library; the slack of its growth would too.
    nodes_.shrink_to_fit();
    subtree_.shrink_to_fit();
    labels_.shrink_to_fit();
    entries_.shrink_to_fit();
    flags_.shrink_to_fit();
    // Children come after their parents, so one backward pass gathers every subtree's flags.
    for (std::size_t i = subtree_.size(); i-- > 0;) {
        for (std::uint32_t c = nodes_[i].firstChild; c < nodes_[i + 1].firstChild; ++c) {
            subtree_[i] |= subtree_[c];
        }
    }
    rootTable_.assign(256, none);
    for (std::uint32_t c = nodes_[0].firstChild; c < nodes_[1].firstChild; ++c) {
        rootTable_[labels_[c]] = c;
    }
}

std::uint32_t ReverseIndex::child(std::uint32_t node, unsigned char byte) const {
    if (node == 0) {
        return rootTable_[byte];
    }
    auto first = labels_.begin() + nodes_[node].firstChild;
    auto last = labels_.begin() + nodes_[node + 1].firstChild;
    auto it = std::lower_bound(first, last, byte);
    if (it == last || *it != byte) {
        return none;
    }
    return static_cast<std::uint32_t>(it - labels_.begin());
}

} // namespace quillet
