// SPDX-License-Identifier: Apache-2.0
// READDIR and READDIRPLUS.
#include <algorithm>

#include "nfstdm/nfs3/constants.h"
#include "tools/loopnfsd/nfs/nfs.h"

namespace loopnfsd {

namespace {

using nfstdm::xdr::Writer;

// Cookies stay good for ever, so one verifier does; it is not zero, so that a client that forgets to send it is told.
constexpr uint64_t kCookieVerifier = 0x6C6F6F706E667364;
constexpr uint32_t kReplyMaximum = 1 << 20;  // bytes of a reply's results
// post_op_attr, cookieverf3, end of the list, eof.
constexpr std::size_t kAroundEntries = kPostOpAttributesSize + 8 + 4 + 4;

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
    const auto folder = files_.find_folder(arguments.handle);
    Page page(arguments);
    NfsStatus status = folder.status();
    if (plus && files_.faults().hit(FaultKind::no_readdirplus, call.arrival.path)) status = NfsStatus::notsupp;
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
    const NfsStatus allowed = files_.allow(call, *folder.object.home, folder.object.status, kWantRead);
    if (allowed != NfsStatus::ok) return allowed;
    const auto all = files_.list(call, folder, page.after, true, [&](const ListedEntry &entry, bool real) {
        return real ? add_entry(call, folder, entry, page) : page.put(entry);
    });
    if (!all.ok()) return all.status();
    page.eof = *all;
    return page.eof || page.entries() > 0 ? NfsStatus::ok : NfsStatus::toosmall;
}

// False when it did not fit. An object that has gone since the directory was read is left out.
bool NfsService::add_entry(Call &call, const Folder &folder, const ListedEntry &entry, Page &page) {
    if (!page.plus) return page.put(entry);
    const auto object = files_.tree().child(folder.object, folder.descriptor.get(), entry.name);
    if (!object.ok()) return true;
    const struct statx status = files_.shown(call, object->key, object->status);
    return page.put(entry, &status, files_.handle_of(call, object->key));
}

}  // namespace loopnfsd
