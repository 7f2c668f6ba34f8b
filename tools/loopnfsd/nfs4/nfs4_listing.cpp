// SPDX-License-Identifier: Apache-2.0
// READDIR.
#include <algorithm>

#include "tools/loopnfsd/nfs4/nfs4.h"

namespace loopnfsd::nfs4 {

namespace {

// Cookies stay good for ever, so one verifier does; it is not zero, so that a client that forgets to send it is told.
constexpr uint64_t kCookieVerifier = 0x6C6F6F706E667364;
constexpr std::size_t kAroundEntries = 8 + 4 + 4;  // verifier, end of the list, eof
constexpr std::size_t kAroundResults = 512;        // of the operations in front and behind

}  // namespace

struct Nfs4Service::ListArguments {
    uint64_t cookie = 0;
    uint64_t verifier = 0;
    uint32_t names_maximum = 0;  // advice
    uint32_t maximum = 0;        // bytes of everything
    Bitmap wanted;
};

// The entries of one reply, in their order, as long as they fit.
class Nfs4Service::Page {
  public:
    explicit Page(std::size_t maximum) : left_(maximum - std::min(maximum, kAroundEntries)) {}

    bool put(uint64_t cookie, std::string_view name, const Bitmap &wanted, const Described &object) {
        Writer entry;
        entry.put_bool(true);
        entry.put_u64(cookie);
        entry.put_string(name);
        put_attributes(entry, wanted, object);
        if (entry.size() > left_) return false;
        left_ -= entry.size();
        ++entries;
        out.put_fixed(entry.bytes());
        return true;
    }

    Writer out;
    std::size_t entries = 0;
    bool eof = false;

  private:
    std::size_t left_;
};

Status Nfs4Service::list_path(const ListArguments &arguments, const std::string &path, Page &page) {
    uint64_t cookie = kFirstNameCookie;
    for (const std::string &name : root_.names_in(path)) {
        if (++cookie <= arguments.cookie) continue;
        Described object = describe_path(PseudoRoot::child(path, name));
        const Export *home = root_.export_at(PseudoRoot::child(path, name));
        if (home != nullptr) {
            const auto below = files_.tree().root(*home);
            if (!below.ok()) continue;
            object.status = below->status;
            object.handle = encode_handle(below->key);
            object.export_id = home->id;
        }
        if (!page.put(cookie, name, arguments.wanted, object)) return Status::ok;
    }
    page.eof = true;
    return Status::ok;
}

Status Nfs4Service::list_folder(Compound &compound, const ListArguments &arguments, Page &page) {
    auto in = folder(compound, compound.current);
    if (!in.ok()) return in.status;
    const Call &call = compound.call;
    const NfsStatus allowed = files_.allow(call, *in->object.home, in->object.status, kWantRead);
    if (allowed != NfsStatus::ok) return from(allowed);
    const auto add = [&](const ListedEntry &entry, bool real) {
        if (!real) return page.put(entry.cookie, entry.name, Bitmap{}, {});
        const auto object = files_.tree().child(in->object, in->descriptor.get(), entry.name);
        if (!object.ok()) return true;  // gone since the directory was read
        return page.put(entry.cookie, entry.name, arguments.wanted, describe(call, *object, arguments.wanted));
    };
    const auto all = files_.list(call, *in, arguments.cookie, false, add);
    if (!all.ok()) return from(all.status());
    page.eof = *all;
    return Status::ok;
}

Status Nfs4Service::readdir(Compound &compound) {
    ListArguments arguments;
    Reader &in = compound.in;
    if (!in.get_u64(arguments.cookie) || !in.get_u64(arguments.verifier) || !in.get_u32(arguments.names_maximum) ||
        !in.get_u32(arguments.maximum) || !arguments.wanted.get(in))
        return Status::badxdr;
    auto where = place(compound, compound.current);
    if (!where.ok()) return where.status;
    if (where->object && !where->object->is_directory()) return Status::notdir;
    if (arguments.cookie != 0 && arguments.verifier != kCookieVerifier) return Status::not_same;
    const std::size_t sent = compound.out.size() + kAroundResults;
    const std::size_t room = compound.session->fore.response_maximum;
    Page page(std::min<std::size_t>(arguments.maximum, room - std::min(room, sent)));
    const Status status =
        where->object ? list_folder(compound, arguments, page) : list_path(arguments, where->path, page);
    if (status != Status::ok) return status;
    if (!page.eof && page.entries == 0) return Status::toosmall;
    compound.out.put_u64(kCookieVerifier);
    compound.out.put_fixed(page.out.bytes());
    compound.out.put_bool(false);  // no more entries
    compound.out.put_bool(page.eof);
    return Status::ok;
}

}  // namespace loopnfsd::nfs4
