// SPDX-License-Identifier: Apache-2.0
// READDIR and READDIRPLUS.
#include <algorithm>
#include <array>
#include <string>

#include "nfstdm/nfs3/constants.h"
#include "tools/loopnfsd/nfs/nfs.h"
#include "tools/loopnfsd/nfs/permissions.h"

namespace loopnfsd {

namespace {

using nfstdm::xdr::Writer;
using namespace std::string_view_literals;

// Cookies stay good for ever, so one verifier does; it is not zero, so that a client that forgets to send it is told.
constexpr uint64_t kCookieVerifier = 0x6C6F6F706E667364;
constexpr uint64_t kDotCookie = 1;
constexpr uint64_t kDotDotCookie = 2;
constexpr uint32_t kReplyMaximum = 1 << 20;  // bytes of a reply's results
// post_op_attr, cookieverf3, end of the list, eof.
constexpr std::size_t kAroundEntries = kPostOpAttributesSize + 8 + 4 + 4;

constexpr std::array kHostileNames{""sv,  "/"sv,  "a/b"sv,       "../up"sv,     "/etc/passwd"sv,
                                   "."sv, ".."sv, "nul\0here"sv, "line\nend"sv, "\xff\xfe"sv};
constexpr uint64_t kLongNameCookie = kDotDotCookie + kHostileNames.size() + 1;
constexpr std::size_t kLongName = 5000;  // bytes

constexpr std::size_t padded(std::size_t size) {
    return (size + 3) & ~std::size_t{3};
}

}  // namespace

struct NfsService::ListArguments {
    Bytes handle;
    uint64_t cookie = 0;
    uint64_t verifier = 0;
    uint32_t names_maximum = 0;  // bytes of names, cookies and fileids
    uint32_t maximum = 0;        // bytes of everything
    bool plus = false;
};

// The entries of one reply, in their order, as long as they fit.
class NfsService::Page {
  public:
    explicit Page(const ListArguments &arguments)
        : after(arguments.cookie),
          plus(arguments.plus),
          left_(std::min(arguments.maximum, kReplyMaximum)),
          names_left_(arguments.plus ? arguments.names_maximum : kReplyMaximum) {
        left_ -= std::min(left_, kAroundEntries);
    }

    // Adds an entry; READDIRPLUS tells no attributes and no handle when none are given. False when it does not fit. The
    // first entry may be larger than the room for names, since that is advice.
    bool put(const ListedEntry &entry, const struct statx *status = nullptr, Bytes handle = {}) {
        const std::size_t named = 8 + 4 + padded(entry.name.size()) + 8;
        const std::size_t more = plus ? kPostOpAttributesSize + 4 + 4 + padded(handle.size()) : 0;
        const bool fits = 4 + named + more <= left_ && (named <= names_left_ || entries_ == 0);
        if (!fits) return false;
        left_ -= 4 + named + more;
        names_left_ -= std::min(named, names_left_);
        ++entries_;
        out.put_bool(true);
        out.put_u64(entry.inode);
        out.put_string(entry.name);
        out.put_u64(entry.cookie);
        if (!plus) return true;
        put_post_op_attributes(out, status);
        out.put_bool(status != nullptr);
        if (status != nullptr) out.put_opaque(handle);
        return true;
    }

    std::size_t entries() const { return entries_; }

    const uint64_t after;  // the cookie that entries follow
    const bool plus;
    bool eof = false;
    Writer out;

  private:
    std::size_t left_;
    std::size_t names_left_;
    std::size_t entries_ = 0;
};

bool NfsService::get_list_arguments(nfstdm::xdr::Reader &in, bool plus, ListArguments &arguments) {
    arguments.plus = plus;
    return get_handle(in, arguments.handle) && in.get_u64(arguments.cookie) && in.get_u64(arguments.verifier) &&
           (!plus || in.get_u32(arguments.names_maximum)) && in.get_u32(arguments.maximum) && in.finished();
}

bool NfsService::readdir(Call &call) {
    return list(call, false);
}

bool NfsService::readdirplus(Call &call) {
    return list(call, true);
}

bool NfsService::list(Call &call, bool plus) {
    ListArguments arguments;
    if (!get_list_arguments(call.arguments, plus, arguments)) return false;
    const auto folder = find_folder(arguments.handle);
    Page page(arguments);
    NfsStatus status = folder.status();
    if (plus && faults_.hit(FaultKind::no_readdirplus, call.arrival.path)) status = NfsStatus::notsupp;
    if (status == NfsStatus::ok) status = fill(call, *folder, arguments, page);
    put_status(call, status);
    put_post_op(call, folder.ok() ? &folder->object : nullptr);
    if (status != NfsStatus::ok) return true;
    call.results.put_u64(kCookieVerifier);
    call.results.put_fixed(page.out.bytes());
    call.results.put_bool(false);  // no more entries
    call.results.put_bool(page.eof);
    return true;
}

NfsStatus NfsService::fill(Call &call, const Folder &folder, const ListArguments &arguments, Page &page) {
    if (page.after != 0 && arguments.verifier != kCookieVerifier) return NfsStatus::bad_cookie;
    const NfsStatus allowed = allow(call, *folder.object.home, folder.object.status, kWantRead);
    if (allowed != NfsStatus::ok) return allowed;
    const auto names = listings_.of(folder.object);
    if (!names.ok()) return names.status();
    page.eof = add_names(call, folder, **names, page);
    return page.eof || page.entries() > 0 ? NfsStatus::ok : NfsStatus::toosmall;
}

// False when the page was full before the directory's end.
bool NfsService::add_names(Call &call, const Folder &folder, const std::vector<ListedEntry> &names, Page &page) {
    const unsigned path = call.arrival.path;
    if (page.after < kDotCookie && !add_entry(call, folder, {kDotCookie, folder.object.key.inode, "."}, page))
        return false;
    const FileKey parent = tree_.names().parent_of(folder.object.key).value_or(folder.object.key);
    if (page.after < kDotDotCookie && !add_entry(call, folder, {kDotDotCookie, parent.inode, ".."}, page)) return false;
    if (page.after < kFirstNameCookie && faults_.hit(FaultKind::bad_names, path) && !add_hostile_names(page))
        return false;
    if (page.after < kLongNameCookie && faults_.hit(FaultKind::long_name, path) &&
        !page.put({kLongNameCookie, kLongNameCookie, std::string(kLongName, 'x')}))
        return false;
    const bool loop = faults_.on(FaultKind::cookie_loop, path);
    auto entry = std::ranges::upper_bound(names, page.after, {}, &ListedEntry::cookie);
    for (; entry != names.end(); ++entry) {
        const bool backwards = loop && entry + 1 == names.end();
        if (backwards) faults_.note(FaultKind::cookie_loop);
        if (!add_entry(call, folder, backwards ? ListedEntry{kDotDotCookie, entry->inode, entry->name} : *entry, page))
            return false;
    }
    if (faults_.hit(FaultKind::endless_readdir, path)) return add_without_end(page);
    return !loop || names.empty();
}

bool NfsService::add_hostile_names(Page &page) {
    uint64_t cookie = kDotDotCookie;
    const auto add = [&](std::string_view name) {
        const ListedEntry entry{++cookie, cookie, std::string(name)};
        return entry.cookie <= page.after || page.put(entry);
    };
    return std::ranges::all_of(kHostileNames, add);
}

bool NfsService::add_without_end(Page &page) {
    for (uint64_t cookie = std::max(page.after, kNameCookiesEnd) + 1;; ++cookie)
        if (!page.put({cookie, cookie, "endless-" + std::to_string(cookie - kNameCookiesEnd)})) return false;
}

// False when it did not fit. An object that has gone since the directory was read is left out.
bool NfsService::add_entry(Call &call, const Folder &folder, const ListedEntry &entry, Page &page) {
    if (!page.plus) return page.put(entry);
    const auto object = tree_.child(folder.object, folder.descriptor.get(), entry.name);
    if (!object.ok()) return true;
    const auto handle_size = faults_.number(FaultKind::handle_size, call.arrival.path).value_or(kHandleSize);
    const struct statx status = shown(call, object->key, object->status);
    return page.put(entry, &status, encode_handle(object->key, handle_size));
}

}  // namespace loopnfsd
