// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/store/held_writes.h"

#include <algorithm>
#include <ctime>
#include <iterator>
#include <limits>
#include <utility>

namespace loopnfsd {

namespace {

uint64_t end_of(const std::pair<const uint64_t, std::vector<std::byte>> &piece) {
    return piece.first + piece.second.size();
}

// The clock that file systems stamp with.
statx_timestamp file_time() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    statx_timestamp time{};
    time.tv_sec = now.tv_sec;
    time.tv_nsec = static_cast<uint32_t>(now.tv_nsec);
    return time;
}

}  // namespace

void HeldWrites::write(const FileKey &file, uint64_t offset, std::span<const std::byte> data) {
    if (data.empty()) return;
    File &held = files_[file];
    carve(held.pieces, offset, offset + data.size());
    held.pieces.emplace(offset, std::vector<std::byte>(data.begin(), data.end()));
    held.changed = file_time();
    bytes_ += data.size();
}

void HeldWrites::overlay(const FileKey &file, uint64_t offset, std::span<std::byte> bytes) const {
    const auto held = files_.find(file);
    if (held == files_.end()) return;
    const Pieces &pieces = held->second.pieces;
    const uint64_t end = offset + bytes.size();
    auto piece = pieces.upper_bound(offset);
    if (piece != pieces.begin()) --piece;
    for (; piece != pieces.end() && piece->first < end; ++piece) {
        const uint64_t from = std::max(offset, piece->first);
        const uint64_t to = std::min(end, end_of(*piece));
        if (from >= to) continue;
        std::copy_n(piece->second.data() + (from - piece->first), to - from, bytes.data() + (from - offset));
    }
}

void HeldWrites::adjust(const FileKey &file, struct statx &status) const {
    const auto held = files_.find(file);
    if (held == files_.end() || held->second.pieces.empty()) return;
    status.stx_size = std::max<uint64_t>(status.stx_size, end_of(*held->second.pieces.rbegin()));
    status.stx_mtime = status.stx_ctime = held->second.changed;
}

void HeldWrites::drop(const FileKey &file, uint64_t begin, uint64_t end) {
    const auto held = files_.find(file);
    if (held != files_.end()) carve(held->second.pieces, begin, end);
}

void HeldWrites::drop(const FileKey &file) {
    drop(file, 0, std::numeric_limits<uint64_t>::max());
    files_.erase(file);
}

void HeldWrites::drop_all() {
    files_.clear();
    bytes_ = 0;
}

bool HeldWrites::drain(const FileKey &file, const Store &store) {
    const auto held = files_.find(file);
    if (held == files_.end()) return true;
    Pieces &pieces = held->second.pieces;
    while (!pieces.empty()) {
        const auto first = pieces.begin();
        if (!store(first->first, first->second)) return false;
        bytes_ -= first->second.size();
        pieces.erase(first);
    }
    files_.erase(held);
    return true;
}

std::vector<FileKey> HeldWrites::files() const {
    std::vector<FileKey> keys;
    for (const auto &[key, file] : files_)
        keys.push_back(key);
    return keys;
}

// Makes the range free of pieces; one that reaches over an edge of it keeps its part outside.
void HeldWrites::carve(Pieces &pieces, uint64_t begin, uint64_t end) {
    auto piece = pieces.upper_bound(begin);
    if (piece != pieces.begin()) --piece;
    while (piece != pieces.end() && piece->first < end) {
        const uint64_t piece_end = end_of(*piece);
        if (piece_end <= begin) {
            ++piece;
            continue;
        }
        auto node = pieces.extract(piece++);
        std::vector<std::byte> &data = node.mapped();
        const uint64_t start = node.key();
        bytes_ -= std::min(end, piece_end) - std::max(begin, start);
        if (piece_end > end)
            pieces.emplace(
                end, std::vector<std::byte>(data.end() - static_cast<std::ptrdiff_t>(piece_end - end), data.end()));
        if (start < begin) {
            data.resize(begin - start);
            pieces.insert(std::move(node));
        }
    }
}

}  // namespace loopnfsd
