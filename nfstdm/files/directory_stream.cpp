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

DirectoryStream::DirectoryStream(MountedVolume &mount, const FoundObject &directory)
    : mount_(mount), directory_(directory.handle) {
    entries_.push_back({directory.attributes.fileid, FileType::directory, "."});
    entries_.push_back({0, FileType::directory, ".."});
}

Result<DirectoryStream::Batch> DirectoryStream::batch(uint64_t position, std::size_t most) {
    // ".." gets its file id from the first reply, so not even the first two entries are given ahead of it.
    while (!at_end_ && (entries_read_ == 0 || entries_.size() < position || entries_.size() - position < most)) {
        if (Status failure = read_more(); !failure.ok()) return failure;
    }
    const std::size_t first = std::min<uint64_t>(position, entries_.size());
    const std::size_t count = std::min(most, entries_.size() - first);
    return Batch{std::span(entries_).subspan(first, count), at_end_ && first + count == entries_.size()};
}

// While what came is taken in and given to the caller the server works on what follows.
Status DirectoryStream::read_more() {
    if (!question_) question_ = mount_.ask_directory(directory_, cookie_, verifier_);
    const auto reply = mount_.answer(std::exchange(question_, nullptr));
    if (!reply.ok()) return start_again(reply.status());
    if (Status failure = move_behind(reply.value()); !failure.ok()) return failure;
    if (!at_end_) question_ = mount_.ask_directory(directory_, cookie_, verifier_);
    for (const auto &entry : reply.value().entries)
        take_entry(entry);
    return bytes_ > kBytesMaximum ? endless() : Status{};
}

// A server that changed the directory may refuse to go on from a cookie (RFC 1813 section 3.3.16). The listing then
// starts again, and the names that were given stay given.
Status DirectoryStream::start_again(const Status &failure) {
    if (!failure.is(Condition::bad_cookie) || cookie_ == 0 || restarts_ == kRestartsMaximum) return failure;
    ++restarts_;
    cookie_ = 0;
    verifier_ = 0;
    cookies_used_.clear();
    return {};
}

// Moves the position behind the entries of a reply.
Status DirectoryStream::move_behind(const DirectoryReply &reply) {
    cookies_used_.insert(cookie_);
    entries_read_ += reply.entries.size();
    if (entries_read_ > kEntriesMaximum) return endless();
    at_end_ = reply.eof;
    verifier_ = reply.verifier;
    if (at_end_) return {};
    if (reply.entries.empty()) return mount_.named({EIO, "READDIR: no entries, although the directory does not end"});
    cookie_ = reply.entries.back().cookie;
    if (cookies_used_.contains(cookie_))
        return mount_.named({EIO, "READDIR: the server leads back to an earlier position"});
    return {};
}

Status DirectoryStream::endless() const {
    return mount_.named({EOVERFLOW, "READDIR: the directory does not end"});
}

void DirectoryStream::take_entry(const DirectoryEntry &entry) {
    if (entry.name == ".." && entries_[1].fileid == 0) entries_[1].fileid = entry.fileid;
    if (entry.name == "." || entry.name == "..") return;
    if (!is_safe_name(entry.name)) {
        ++names_refused_;
        return;
    }
    const auto [name, is_new] = names_.insert(entry.name);
    if (!is_new) return;
    entries_.push_back({entry.fileid, entry.attributes ? entry.attributes->type : FileType::none, *name});
    bytes_ += sizeof(Entry) + name->size();
    if (!entry.handle) return;
    mount_.cache().put_name(directory_, entry.name, *entry.handle);
    mount_.cache().put_attributes(*entry.handle, entry.attributes);
}

}  // namespace nfstdm
