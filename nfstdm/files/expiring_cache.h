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
        const auto [slot, is_new] = slots_.try_emplace(key);
        if (is_new) slot->second.place = order_.insert(order_.begin(), &slot->first);
        slot->second.value = std::move(value);
        slot->second.expires = expires;
        touch(slot->second);
        if (slots_.size() > limit_) erase(*order_.back());
    }

    // Null when there is none, or none any more. Valid until the next change.
    const Value *find(const Key &key, TimePoint now) {
        const auto slot = slots_.find(key);
        if (slot == slots_.end()) return nullptr;
        if (slot->second.expires <= now) {
            erase(slot);
            return nullptr;
        }
        touch(slot->second);
        return &slot->second.value;
    }

    void erase(const Key &key) {
        if (const auto slot = slots_.find(key); slot != slots_.end()) erase(slot);
    }

    void clear() {
        slots_.clear();
        order_.clear();
    }

    std::size_t size() const { return slots_.size(); }

  private:
    using Order = std::list<const Key *>;
    struct Slot {
        Value value{};
        TimePoint expires;
        typename Order::iterator place;
    };
    using Slots = std::unordered_map<Key, Slot, Hash>;

    void touch(Slot &slot) { order_.splice(order_.begin(), order_, slot.place); }
    void erase(typename Slots::iterator slot) {
        order_.erase(slot->second.place);
        slots_.erase(slot);
    }

    Order order_;  // the keys in slots_, the latest used first
    Slots slots_;
    std::size_t limit_;
};

}  // namespace nfstdm
