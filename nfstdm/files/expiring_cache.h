// SPDX-License-Identifier: Apache-2.0
// A bounded map whose entries last for a time; when full, the entry unused for longest goes.
#pragma once

#include <cstddef>
#include <unordered_map>
#include <utility>

#include "nfstdm/base/event_loop.h"

namespace nfstdm {

template <class Key, class Value, class Hash = std::hash<Key>>
class ExpiringCache {
  public:
    using TimePoint = EventLoop::Clock::time_point;

    explicit ExpiringCache(std::size_t limit) : limit_(limit) {}

    void put(const Key &key, Value value, TimePoint expires) {
        const auto [node, is_new] = slots_.try_emplace(key);
        Slot &slot = node->second;
        if (is_new)
            slot.key = &node->first;
        else
            unlink(slot);
        link_as_latest(slot);
        slot.value = std::move(value);
        slot.expires = expires;
        if (slots_.size() > limit_) erase(*oldest_->key);
    }

    // Null when there is none, or none any more. Valid until the next change.
    // expires: filled, too, when it is given.
    const Value *find(const Key &key, TimePoint now, TimePoint *expires = nullptr) {
        const auto node = slots_.find(key);
        if (node == slots_.end()) return nullptr;
        Slot &slot = node->second;
        unlink(slot);
        if (slot.expires <= now) {
            slots_.erase(node);
            return nullptr;
        }
        link_as_latest(slot);
        if (expires != nullptr) *expires = slot.expires;
        return &slot.value;
    }

    void erase(const Key &key) {
        const auto node = slots_.find(key);
        if (node == slots_.end()) return;
        unlink(node->second);
        slots_.erase(node);
    }

    void clear() {
        slots_.clear();
        latest_ = oldest_ = nullptr;
    }

    std::size_t size() const { return slots_.size(); }

  private:
    // The order of use runs through the slots themselves, which stay where they are.
    struct Slot {
        Value value{};
        TimePoint expires;
        const Key *key = nullptr;
        Slot *later = nullptr;
        Slot *earlier = nullptr;
    };

    void link_as_latest(Slot &slot) {
        slot.later = nullptr;
        slot.earlier = std::exchange(latest_, &slot);
        (slot.earlier == nullptr ? oldest_ : slot.earlier->later) = &slot;
    }
    void unlink(Slot &slot) {
        (slot.later == nullptr ? latest_ : slot.later->earlier) = slot.earlier;
        (slot.earlier == nullptr ? oldest_ : slot.earlier->later) = slot.later;
    }

    std::unordered_map<Key, Slot, Hash> slots_;
    Slot *latest_ = nullptr;
    Slot *oldest_ = nullptr;
    std::size_t limit_;
};

}  // namespace nfstdm
