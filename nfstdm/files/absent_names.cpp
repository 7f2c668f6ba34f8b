// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/absent_names.h"

#include <algorithm>
#include <limits>

#include "nfstdm/base/keyed_hash.h"

namespace nfstdm {
namespace {

constexpr auto kLifetime = ObjectCache::kAbsentLifetime;

bool is_ascii(std::string_view name) {
    return std::ranges::all_of(name, [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

char folded(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool is_usual(char letter) {
    const char small = folded(letter);
    return (small >= 'a' && small <= 'z') || (letter >= '0' && letter <= '9') ||
           std::string_view(" *+,-.=@_").find(letter) != std::string_view::npos;
}

// Servers find some names that they do not list, or not like that: hidden ones (.snapshot), short ones (NAME~1), names
// with a dot or a space too many at their end, too long ones that they cut, and what their file system maps. Beyond
// ASCII there may be several ways to write a name (RFC 8881 section 14).
bool is_plain(std::string_view name) {
    return !name.empty() && name.size() <= AbsentNames::kNameMaximum && name.front() != '.' && name.back() != '.' &&
           name.back() != ' ' && std::ranges::all_of(name, is_usual);
}

}  // namespace

AbsentNames::Directory *AbsentNames::find(const FileHandle &directory) {
    const auto known = std::ranges::find(directories_, directory, &Directory::handle);
    if (known == directories_.end()) return nullptr;
    directories_.splice(directories_.begin(), directories_, known);
    return &directories_.front();
}

AbsentNames::Directory &AbsentNames::at(const FileHandle &directory) {
    if (Directory *known = find(directory)) return *known;
    if (directories_.size() == kDirectoriesMaximum) directories_.pop_back();
    directories_.emplace_front().handle = directory;
    return directories_.front();
}

// Whether a server tells large letters from small ones is not asked: names that differ in nothing else count as one.
uint64_t AbsentNames::hash_of(std::string_view name) {
    folded_.resize(name.size());
    std::ranges::transform(name, folded_.begin(), folded);
    return keyed_hash(process_hash_key(), folded_).low;
}

bool AbsentNames::lacks(const FileHandle &directory, std::string_view name) {
    const Directory *known = find(directory);
    return known != nullptr && now_() < known->until && is_plain(name) && !known->names.contains(hash_of(name));
}

void AbsentNames::making(const FileHandle &directory, std::string_view name) {
    if (!is_plain(name)) return;
    Directory &known = at(directory);
    const TimePoint now = now_();
    if (now - known.made_last > kLifetime) known.made = 0;
    known.made_last = now;
    ++known.made;
}

void AbsentNames::may_have(const FileHandle &directory, std::string_view name) {
    Directory *known = find(directory);
    if (known == nullptr) return;
    known->names.insert(hash_of(name));
    if (!is_ascii(name)) known->until = {};
}

bool AbsentNames::wants_names(const FileHandle &directory, std::string_view name) {
    const Directory *known = find(directory);
    if (known == nullptr || known->made < known->wanted || !is_plain(name)) return false;
    const TimePoint now = now_();
    return now >= known->until && now - known->made_last <= kLifetime;
}

// To list a name costs a server about a thirtieth of what it costs to look one up, so the next listing waits until as
// many names were made as make up for it. What has more names than come in one answer, or some that could be written
// otherwise, tells nothing and is hardly ever asked again; what cannot be listed, never.
void AbsentNames::learn(const FileHandle &directory, TimePoint asked, const Result<DirectoryReply> &names) {
    Directory &known = at(directory);
    known.names.clear();
    known.until = {};
    known.made = 0;
    known.wanted = std::numeric_limits<std::size_t>::max();
    if (!names.ok()) return;
    const auto &[entries, is_whole, verifier, attributes] = names.value();
    for (const DirectoryEntry &entry : entries)
        known.names.insert(hash_of(entry.name));
    const bool tells = is_whole && std::ranges::all_of(entries, is_ascii, &DirectoryEntry::name);
    known.wanted = std::max(kMadeMinimum, tells ? entries.size() / kNamesForOne : entries.size());
    if (tells) known.until = asked + kLifetime;
}

void AbsentNames::learn_empty(const FileHandle &directory, TimePoint asked) {
    DirectoryReply nothing;
    nothing.eof = true;
    learn(directory, asked, nothing);
}

void AbsentNames::forget(const FileHandle &directory) {
    Directory *known = find(directory);
    if (known == nullptr) return;
    known->until = {};
    known->made = 0;
}

}  // namespace nfstdm
