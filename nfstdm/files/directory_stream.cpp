// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/directory_stream.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "include/tdm.h"

namespace nfstdm {
namespace {

constexpr unsigned kRestartsMaximum = 3;  // after cookies that became invalid

}  // namespace

bool is_safe_name(std::string_view name) {
    return !name.empty() && name.size() < TDM_ENTRY_NAME_SIZE && name != "." && name != ".." &&
           name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

DirectoryStream::DirectoryStream(MountedVolume &mount, const FoundObject &directory, std::size_t object_bytes)
    : mount_(mount),
      index_(std::make_shared<ListingIndex>(directory.handle, object_bytes)),
      own_fileid_(directory.attributes.fileid) {
    mount_.know_listing(index_);
    blocks_.push_back(dots());
    next_ = blocks_.back().end();
}

DirectoryStream::Block DirectoryStream::dots() const {
    return {0, {}, {{own_fileid_, FileType::directory, "."}, {parent_fileid_, FileType::directory, ".."}}};
}

Result<DirectoryStream::Batch> DirectoryStream::batch(uint64_t position, std::size_t most) {
    if (position < (blocks_.empty() ? next_ : blocks_.front().first)) go_back(position);
    drop_before(position);
    // ".." gets its file id from the first reply, so not even the first two entries are given ahead of it.
    while (!at_end_ && (!begun_ || next_ < position || next_ - position < most)) {
        if (Status failure = read_more(); !failure.ok()) return failure;
        drop_before(position);
    }
    return gather(position, most);
}

// To where the part of a position began. What came since is forgotten, and read again.
void DirectoryStream::go_back(uint64_t position) {
    question_.reset();
    blocks_.clear();
    at_end_ = false;
    const std::size_t number = index_->part_at(position);
    if (number < index_->parts()) {
        const ListingIndex::Part part = index_->part(number);
        cookie_ = part.cookie;
        verifier_ = part.verifier;
        next_ = part.first;
        bytes_ = part.name_bytes;
        entries_read_ = part.first;
        index_->cut(number);
    }
    cookie_before_ = cookie_;
    replies_since_ = 0;
    if (number == 0) blocks_.push_back(dots());
}

void DirectoryStream::drop_before(uint64_t position) {
    while (!blocks_.empty() && blocks_.front().end() <= position)
        blocks_.pop_front();
}

DirectoryStream::Batch DirectoryStream::gather(uint64_t position, std::size_t most) {
    batch_.clear();
    for (const Block &block : blocks_) {
        const std::size_t skipped = position > block.first ? position - block.first : 0;
        const std::size_t count = std::min(block.entries.size() - skipped, most - batch_.size());
        const auto entries = std::span(block.entries).subspan(skipped, count);
        batch_.insert(batch_.end(), entries.begin(), entries.end());
    }
    return {batch_, at_end_ && (position >= next_ || position + batch_.size() == next_)};
}

// What READDIRPLUS brings beyond what is kept here or in the cache would only push out what it brought before.
void DirectoryStream::ask() {
    using Entries = MountedVolume::Entries;
    const bool is_kept = entries_read_ < ObjectCache::kLimit || !index_->objects().is_full();
    const auto entries = is_kept ? Entries::with_attributes : Entries::names;
    question_ = mount_.ask_directory(directory(), cookie_, verifier_, entries);
}

// While what came is taken in and given to the caller the server works on what follows.
Status DirectoryStream::read_more() {
    if (!question_) ask();
    DirectoryPosition from{cookie_, verifier_};
    const auto reply = mount_.answer(std::exchange(question_, nullptr));
    if (!reply.ok()) return start_again(reply.status());
    begun_ = true;
    if (Status failure = move_behind(reply.value()); !failure.ok()) return failure;
    if (!at_end_) ask();
    take_entries(from, reply.value());
    return bytes_ > kBytesMaximum ? endless() : Status{};
}

// A server that changed the directory may refuse to go on from a cookie (RFC 1813 section 3.3.16). The listing then
// starts again, and the names that were given stay given.
Status DirectoryStream::start_again(const Status &failure) {
    if (!failure.is(Condition::bad_cookie) || cookie_ == 0 || restarts_ == kRestartsMaximum) return failure;
    ++restarts_;
    cookie_ = cookie_before_ = 0;
    verifier_ = 0;
    replies_since_ = 0;
    return {};
}

// Moves the position behind the entries of a reply.
Status DirectoryStream::move_behind(const DirectoryReply &reply) {
    entries_read_ += reply.entries.size();
    if (entries_read_ > kEntriesMaximum) return endless();
    at_end_ = reply.eof;
    verifier_ = reply.verifier;
    if (at_end_) return {};
    if (reply.entries.empty()) return mount_.named({EIO, "READDIR: no entries, although the directory does not end"});
    cookie_ = reply.entries.back().cookie;
    return notice_loop();
}

Status DirectoryStream::notice_loop() {
    if (cookie_ == cookie_before_) return mount_.named({EIO, "READDIR: the server leads back to an earlier position"});
    if (++replies_since_ < replies_until_next_) return {};
    cookie_before_ = cookie_;
    replies_until_next_ *= 2;
    replies_since_ = 0;
    return {};
}

Status DirectoryStream::endless() const {
    return mount_.named({EOVERFLOW, "READDIR: the directory does not end, or holds more names than fit 256 MiB"});
}

void DirectoryStream::take_entries(DirectoryPosition from, const DirectoryReply &reply) {
    Block &block = blocks_.emplace_back();
    block.first = next_;
    block.entries.reserve(reply.entries.size());
    std::size_t size = 0;
    for (const auto &entry : reply.entries)
        size += entry.name.size();
    block.names.reserve(size);  // so that what shows the names stays valid
    for (std::size_t i = 0; i < reply.entries.size(); ++i) {
        const DirectoryEntry &entry = reply.entries[i];
        if (i % ListingIndex::kPartMaximum == 0) index_->go_on({from.cookie, from.verifier, block.end(), bytes_});
        from = {entry.cookie, reply.verifier};
        if (!take_name(entry)) continue;
        const std::size_t at = block.names.size();
        block.names += entry.name;
        const auto name = std::string_view(block.names).substr(at);
        block.entries.push_back({entry.fileid, entry.attributes ? entry.attributes->type : FileType::none, name});
        bytes_ += name.size() + kNameHead;
        if (block.first < ObjectCache::kLimit) mount_.learn_entry(directory(), entry);
        if (entry.handle && entry.attributes) index_->tell({*entry.attributes, digest_of(*entry.handle)});
    }
    next_ = block.end();
}

bool DirectoryStream::take_name(const DirectoryEntry &entry) {
    if (entry.name == ".." && parent_fileid_ == 0) {
        parent_fileid_ = entry.fileid;
        if (!blocks_.empty() && blocks_.front().first == 0) blocks_.front() = dots();
    }
    if (entry.name == "." || entry.name == "..") return false;
    if (is_safe_name(entry.name)) return index_->add(entry.name);
    ++names_refused_;
    return false;
}

}  // namespace nfstdm
