// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>

#include "tools/loopnfsd/files/shared_files.h"

namespace loopnfsd {

namespace {

using namespace std::string_view_literals;

constexpr uint64_t kDotCookie = 1;
constexpr uint64_t kDotDotCookie = 2;

constexpr std::array kHostileNames{""sv,  "/"sv,  "a/b"sv,       "../up"sv,     "/etc/passwd"sv,
                                   "."sv, ".."sv, "nul\0here"sv, "line\nend"sv, "\xff\xfe"sv};
constexpr uint64_t kLongNameCookie = kDotDotCookie + kHostileNames.size() + 1;
constexpr std::size_t kLongName = 5000;  // bytes

bool list_hostile_names(uint64_t after, const SharedFiles::EntrySink &sink) {
    uint64_t cookie = kDotDotCookie;
    return std::ranges::all_of(kHostileNames, [&](std::string_view name) {
        const ListedEntry entry{++cookie, cookie, std::string(name)};
        return entry.cookie <= after || sink(entry, false);
    });
}

bool list_without_end(uint64_t after, const SharedFiles::EntrySink &sink) {
    for (uint64_t cookie = std::max(after, kNameCookiesEnd) + 1;; ++cookie)
        if (!sink({cookie, cookie, "endless-" + std::to_string(cookie - kNameCookiesEnd)}, false)) return false;
}

}  // namespace

// What faults add in front.
bool SharedFiles::list_extra(const Call &call, uint64_t after, const EntrySink &sink) {
    const unsigned path = call.arrival.path;
    if (after < kFirstNameCookie && faults_.hit(FaultKind::bad_names, path) && !list_hostile_names(after, sink))
        return false;
    return after >= kLongNameCookie || !faults_.hit(FaultKind::long_name, path) ||
           sink({kLongNameCookie, kLongNameCookie, std::string(kLongName, 'x')}, false);
}

Outcome<bool> SharedFiles::list(const Call &call, const Folder &folder, uint64_t after, bool dots,
                                const EntrySink &sink) {
    const auto listed = listings_.of(folder.object);
    if (!listed.ok()) return listed.status();
    const std::vector<ListedEntry> &names = **listed;
    const FileKey &key = folder.object.key;
    const FileKey parent = tree_.names().parent_of(key).value_or(key);
    if (dots && after < kDotCookie && !sink({kDotCookie, key.inode, "."}, true)) return false;
    if (dots && after < kDotDotCookie && !sink({kDotDotCookie, parent.inode, ".."}, true)) return false;
    if (!list_extra(call, after, sink)) return false;
    const bool loop = faults_.on(FaultKind::cookie_loop, call.arrival.path);
    auto entry = std::ranges::upper_bound(names, after, {}, &ListedEntry::cookie);
    for (; entry != names.end(); ++entry) {
        const bool backwards = loop && entry + 1 == names.end();
        if (backwards) faults_.note(FaultKind::cookie_loop);
        if (!sink(backwards ? ListedEntry{kDotDotCookie, entry->inode, entry->name} : *entry, true)) return false;
    }
    if (faults_.hit(FaultKind::endless_readdir, call.arrival.path)) return list_without_end(after, sink);
    return !loop || names.empty();
}

}  // namespace loopnfsd
