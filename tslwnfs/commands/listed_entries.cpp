// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/listed_entries.h"

#include <string_view>

// Each block begins anew, so that it can be read by itself.
void ListedEntries::add(const Entry &entry) {
    if (size_ % kBlock == 0) {
        if (!blocks_.empty()) {
            blocks_.back().shrink_to_fit();
            bytes_ += blocks_.back().size();
        }
        blocks_.emplace_back();
        latest_ = {};
    }
    const Fields fields = fields_of(entry);
    nfstdm::append_differences(blocks_.back(), expected_behind(latest_), fields);
    latest_ = fields;
    ++size_;
}

const ListedEntries::Entry &ListedEntries::Reader::at(std::size_t index) {
    if (index - first_ >= block_.size()) {
        block_ = entries_.block(index / kBlock);
        first_ = index / kBlock * kBlock;
    }
    return block_[index - first_];
}

std::vector<ListedEntries::Entry> ListedEntries::block(std::size_t number) const {
    std::vector<Entry> entries;
    entries.reserve(kBlock);
    std::string_view bytes = blocks_[number];
    Fields fields = {};
    while (!bytes.empty()) {
        fields = expected_behind(fields);
        nfstdm::take_differences(bytes, fields);
        entries.push_back(entry_of(fields));
    }
    return entries;
}

// What hardly ever changes comes last: then the mask takes one byte.
ListedEntries::Fields ListedEntries::fields_of(const Entry &entry) {
    const auto &[size, time, mode, links, uid, gid, is_local] = entry.details;
    return {entry.place, size, time, mode, uid, gid, links, uint64_t{is_local}};
}

ListedEntries::Entry ListedEntries::entry_of(const Fields &fields) {
    const auto &[place, size, time, mode, uid, gid, links, is_local] = fields;
    const auto narrow = [](uint64_t number) { return static_cast<uint32_t>(number); };
    return {static_cast<std::size_t>(place),
            {size, time, narrow(mode), narrow(links), narrow(uid), narrow(gid), is_local != 0}};
}

// Most entries stand one place behind the one before.
ListedEntries::Fields ListedEntries::expected_behind(const Fields &fields) {
    Fields expected = fields;
    ++expected[0];
    return expected;
}
