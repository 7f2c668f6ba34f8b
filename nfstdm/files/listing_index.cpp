// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/listing_index.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace nfstdm {
namespace {

constexpr std::size_t kSlotsAtFirst = 16;

}  // namespace

void ListingIndex::go_on(const Part &part) {
    if (!parts_.empty() && names_ - names_before_part_ < kPartMinimum) return;
    parts_.push_back(part);
    names_before_part_ = names_;
}

bool ListingIndex::add(std::string_view name) {
    assert(!parts_.empty());
    const Hash128 hash = keyed_hash(key_, name);
    Slot slot = slot_of(hash);
    Table &table = tables_[hash.high % kTables];
    // At most seven eighths full, and half as large again when more are wanted.
    if (table.used + table.used / 7 + 1 >= table.slots.size())
        refill(table, std::max(kSlotsAtFirst, table.slots.size() + table.slots.size() / 2));
    const std::size_t at = find(table.slots, slot);
    if (!table.slots[at].is_free()) return false;
    // Parts beyond what the slot can tell count as the last: names there are looked up one by one.
    slot.rest |= static_cast<uint32_t>(std::min<std::size_t>(parts_.size(), kPartMask));
    table.slots[at] = slot;
    ++table.used;
    ++names_;
    latest_tag_ = hash.low;
    return true;
}

std::optional<ListedObject> ListingIndex::told(std::string_view name) {
    const Hash128 hash = keyed_hash(key_, name);
    return objects_.find(hash.low, [&] { return part_of(hash); });
}

std::optional<std::size_t> ListingIndex::part_of(std::string_view name) const {
    return part_of(keyed_hash(key_, name));
}

std::optional<std::size_t> ListingIndex::part_of(const Hash128 &hash) const {
    const auto &slots = tables_[hash.high % kTables].slots;
    if (slots.empty()) return std::nullopt;
    const Slot &slot = slots[find(slots, slot_of(hash))];
    if (slot.is_free() || slot.part() == kPartMask) return std::nullopt;
    return slot.part() - 1;
}

std::size_t ListingIndex::part_at(uint64_t position) const {
    const auto behind = std::upper_bound(parts_.begin(), parts_.end(), position,
                                         [](uint64_t wanted, const Part &part) { return wanted < part.first; });
    return behind == parts_.begin() ? 0 : static_cast<std::size_t>(behind - parts_.begin()) - 1;
}

void ListingIndex::cut(std::size_t part) {
    names_ = 0;
    for (Table &table : tables_) {
        for (Slot &slot : table.slots)
            if (slot.part() > part) slot = {};
        refill(table, table.slots.size());
        names_ += table.used;
    }
    parts_.resize(std::min(part, parts_.size()));
    names_before_part_ = 0;
    objects_.cut(part);
}

std::size_t ListingIndex::bytes() const {
    std::size_t bytes = sizeof *this + parts_.capacity() * sizeof(Part);
    for (const Table &table : tables_)
        bytes += table.slots.capacity() * sizeof(Slot);
    return bytes;
}

ListingIndex::Slot ListingIndex::slot_of(const Hash128 &hash) {
    return {static_cast<uint32_t>(hash.low), static_cast<uint32_t>(hash.low >> 32),
            static_cast<uint32_t>(hash.high >> 32) & ~kPartMask};
}

// Where the name is, or the free slot where it belongs.
std::size_t ListingIndex::find(const std::vector<Slot> &slots, const Slot &wanted) {
    auto at = static_cast<std::size_t>(uint64_t{wanted.place} * slots.size() >> 32);
    while (!slots[at].is_free() && !slots[at].same_name(wanted))
        at = at + 1 == slots.size() ? 0 : at + 1;
    return at;
}

void ListingIndex::refill(Table &table, std::size_t size) {
    std::vector<Slot> slots(size);
    table.used = 0;
    for (const Slot &slot : table.slots) {
        if (slot.is_free()) continue;
        slots[find(slots, slot)] = slot;
        ++table.used;
    }
    table.slots = std::move(slots);
}

}  // namespace nfstdm
