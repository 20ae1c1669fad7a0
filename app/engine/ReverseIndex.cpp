#include "engine/ReverseIndex.h"

#include <algorithm>
#include <map>

namespace quillet {

void ReverseIndex::build(const std::vector<std::string>& keys, const std::vector<Flags>& flags) {
    // Build a trie with maps first, then lay it out breadth first in flat arrays.
    struct Draft {
        std::map<unsigned char, std::uint32_t> children;
        std::vector<std::uint32_t> entries;
    };
    std::vector<Draft> drafts(1);
    for (std::uint32_t k = 0; k < keys.size(); ++k) {
        std::uint32_t node = 0;
        const std::string& key = keys[k];
        for (auto it = key.rbegin(); it != key.rend(); ++it) {
            auto byte = static_cast<unsigned char>(*it);
            auto found = drafts[node].children.find(byte);
            if (found == drafts[node].children.end()) {
                drafts.emplace_back();
                auto next = static_cast<std::uint32_t>(drafts.size() - 1);
                drafts[node].children.emplace(byte, next);
                node = next;
            } else {
                node = found->second;
            }
        }
        drafts[node].entries.push_back(k);
    }

    std::vector<std::uint32_t> order{0};
    for (std::size_t i = 0; i < order.size(); ++i) {
        for (auto& [byte, next] : drafts[order[i]].children) {
            order.push_back(next);
        }
    }
    nodes_.assign(order.size(), Node{});
    labels_.assign(order.size(), 0);
    entries_.clear();
    flags_.clear();
    std::uint32_t nextChild = 1;
    for (std::size_t i = 0; i < order.size(); ++i) {
        const Draft& d = drafts[order[i]];
        Node& n = nodes_[i];
        n.firstChild = nextChild;
        n.childCount = static_cast<std::uint16_t>(d.children.size());
        for (auto& [byte, next] : d.children) {
            labels_[nextChild++] = byte;
        }
        n.firstEntry = static_cast<std::uint32_t>(entries_.size());
        n.entryCount = static_cast<std::uint32_t>(d.entries.size());
        for (std::uint32_t e : d.entries) {
            entries_.push_back(e);
            flags_.push_back(flags[e]);
            n.subtree |= flags[e];
        }
    }
    // Children come after their parents, so one backward pass gathers every subtree's flags.
    for (std::size_t i = nodes_.size(); i-- > 0;) {
        const Node& n = nodes_[i];
        for (std::uint32_t c = n.firstChild; c < n.firstChild + n.childCount; ++c) {
            nodes_[i].subtree |= nodes_[c].subtree;
        }
    }
    rootTable_.assign(256, none);
    const Node& root = nodes_[0];
    for (std::uint32_t c = root.firstChild; c < root.firstChild + root.childCount; ++c) {
        rootTable_[labels_[c]] = c;
    }
}

std::uint32_t ReverseIndex::child(std::uint32_t node, unsigned char byte) const {
    if (node == 0) {
        return rootTable_[byte];
    }
    const Node& n = nodes_[node];
    auto first = labels_.begin() + n.firstChild;
    auto last = first + n.childCount;
    auto it = std::lower_bound(first, last, byte);
    if (it == last || *it != byte) {
        return none;
    }
    return static_cast<std::uint32_t>(it - labels_.begin());
}

} // namespace quillet
