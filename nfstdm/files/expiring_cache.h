// SPDX-License-Identifier: Apache-2.0
// A bounded map whose entries last for a time; when full, the entry unused for longest goes.
#pragma once

#include <cstddef>
#include <list>
#include <unordered_map>
#include <utility>

#include "nfstdm/protocol/event_loop.h"

namespace nfstdm {

template <class Key, class Value, class Hash = std::hash<Key>>
class ExpiringCache {
  public:
    using TimePoint = EventLoop::Clock::time_point;

    explicit ExpiringCache(std::size_t limit) : limit_(limit) {}

    void put(const Key &key, Value value, TimePoint expires) {
        const auto [found, is_new] = index_.try_emplace(key);
        if (!is_new) entries_.erase(found->second);
        entries_.push_front({key, std::move(value), expires});
        found->second = entries_.begin();
        if (entries_.size() <= limit_) return;
        index_.erase(entries_.back().key);
        entries_.pop_back();
    }

    // Null when there is none, or none any more. Valid until the next change.
    const Value *find(const Key &key, TimePoint now) {
        const auto found = index_.find(key);
        if (found == index_.end()) return nullptr;
        if (found->second->expires <= now) {
            erase(key);
            return nullptr;
        }
        entries_.splice(entries_.begin(), entries_, found->second);
        return &entries_.front().value;
    }

    void erase(const Key &key) {
        const auto found = index_.find(key);
        if (found == index_.end()) return;
        entries_.erase(found->second);
        index_.erase(found);
    }

    void clear() {
        index_.clear();
        entries_.clear();
    }

    std::size_t size() const { return entries_.size(); }

  private:
    struct Entry {
        Key key;
        Value value;
        TimePoint expires;
    };
    std::list<Entry> entries_;  // the latest used first
    std::unordered_map<Key, typename std::list<Entry>::iterator, Hash> index_;
    std::size_t limit_;
};

}  // namespace nfstdm
