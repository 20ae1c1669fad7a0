#pragma once

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <stdexcept>
#include <utility>
#include <vector>

namespace quillet {

/// A map kept as one sorted vector of pairs: for records with an entry per snippet, where a
/// tree's node would take twice the entry's own size. Lookups are binary searches; an insertion
/// in the middle moves what follows, so many new keys at once go through insertMissing.
template <typename Key, typename Value> class FlatMap {
public:
    using value_type = std::pair<Key, Value>;
    using iterator = typename std::vector<value_type>::iterator;
    using const_iterator = typename std::vector<value_type>::const_iterator;

    FlatMap() = default;
    FlatMap(std::initializer_list<value_type> entries) {
        for (const value_type& entry : entries) {
            (*this)[entry.first] = entry.second;
        }
    }

    iterator begin() { return entries_.begin(); }
    iterator end() { return entries_.end(); }
    const_iterator begin() const { return entries_.begin(); }
    const_iterator end() const { return entries_.end(); }
    std::size_t size() const { return entries_.size(); }
    bool empty() const { return entries_.empty(); }

    /// The entry for key, or end().
    iterator find(const Key& key) { return entries_.begin() + (found(key) - entries_.cbegin()); }
    const_iterator find(const Key& key) const { return found(key); }

    /// The value for key; throws std::out_of_range when there is none.
    const Value& at(const Key& key) const {
        auto entry = found(key);
        if (entry == entries_.end()) {
            throw std::out_of_range("FlatMap::at");
        }
        return entry->second;
    }

    /// Inserts key with value unless it is there; the entry and whether it was inserted.
    std::pair<iterator, bool> try_emplace(const Key& key, const Value& value) {
        auto at = entries_.begin() + (lowerBound(key) - entries_.cbegin());
        if (at != entries_.end() && at->first == key) {
            return {at, false};
        }
        return {entries_.insert(at, value_type(key, value)), true};
    }

    /// The value for key, inserted default-constructed when missing.
    Value& operator[](const Key& key) { return try_emplace(key, Value{}).first->second; }

    /// Inserts every key that is missing with value, in one pass however many there are.
    void insertMissing(std::vector<Key> keys, const Value& value) {
        std::sort(keys.begin(), keys.end());
        keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
        const std::size_t old = entries_.size();
        for (const Key& key : keys) {
            auto at = std::lower_bound(entries_.begin(), entries_.begin() + old, key, before);
            if (at == entries_.begin() + old || at->first != key) {
                entries_.emplace_back(key, value);
            }
        }
        std::inplace_merge(
            entries_.begin(), entries_.begin() + old, entries_.end(),
            [](const value_type& a, const value_type& b) { return a.first < b.first; });
    }

    friend bool operator==(const FlatMap&, const FlatMap&) = default;

private:
    static bool before(const value_type& entry, const Key& key) { return entry.first < key; }

    const_iterator found(const Key& key) const {
        auto at = lowerBound(key);
        return at != entries_.end() && at->first == key ? at : entries_.end();
    }

    const_iterator lowerBound(const Key& key) const {
        // Keys often arrive in order (a file written sorted): the end is the place then.
        if (entries_.empty() || entries_.back().first < key) {
            return entries_.end();
        }
        return std::lower_bound(entries_.begin(), entries_.end(), key, before);
    }

    std::vector<value_type> entries_;
};

} // namespace quillet
