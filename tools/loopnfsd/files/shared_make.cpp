// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "nfstdm/xdr/reader.h"
#include "tools/loopnfsd/files/shared_files.h"

namespace loopnfsd {

namespace {

using nfstdm::nfs3::TimeHow;
using nfstdm::xdr::Reader;

constexpr uint32_t kFileMode = 0644;
constexpr uint32_t kDirectoryMode = 0755;

NfsStatus status_of_call(int result) {
    return result < 0 ? status_of_errno(errno) : NfsStatus::ok;
}

}  // namespace

// Where the verifier of an exclusive CREATE is kept, so that a repeat after a restart is recognised: in the times, as
// RFC 1813 section 3.3.8 proposes. The top bits are lost, since not every file system keeps times beyond 2038.
ChangedAttributes times_of_verifier(std::span<const std::byte> verifier) {
    constexpr uint32_t kSeconds = 0x7FFFFFFF;
    Reader in(verifier);
    ChangedAttributes changed;
    for (ChangedTime *time : {&changed.access, &changed.modification}) {
        uint32_t seconds = 0;
        in.get_u32(seconds);
        time->seconds = seconds & kSeconds;
        time->how = TimeHow::client_time;
    }
    return changed;
}

SharedFiles::MadeObject SharedFiles::make_object(const Call &call, const Folder &folder, std::string_view name,
                                                 ChangedAttributes changed, const Maker &maker) {
    const NfsStatus status = maker(folder, std::string(name).c_str());
    if (status != NfsStatus::ok) return {status, {}};
    listings_.forget(folder.object.key);
    auto object = tree_.child(folder.object, folder.descriptor.get(), name);
    if (!object.ok()) return {object.status(), {}};
    if (settings_.check_ids && geteuid() == 0) {  // what a caller makes belongs to the caller
        if (!changed.uid) changed.uid = call.who.uid;
        if (!changed.gid) changed.gid = call.who.gid;
    }
    changed.mode.reset();  // was given to the maker
    const NfsStatus changes = set_attributes(*object, changed);
    return {changes, std::move(*object)};
}

// Only a file that was not there.
SharedFiles::MadeObject SharedFiles::create_file(const Call &call, const Folder &folder, std::string_view name,
                                                 const ChangedAttributes &changed) {
    return make_object(call, folder, name, changed, [&](const Folder &in, const char *entry) {
        const mode_t mode = changed.mode.value_or(kFileMode) & kModeBits;
        UniqueFd file(openat(in.descriptor.get(), entry, O_CREAT | O_EXCL | O_RDWR | O_NOFOLLOW | O_CLOEXEC, mode));
        if (!file) return status_of_errno(errno);
        struct statx status {};
        const NfsStatus known = status_of(file.get(), status);
        if (known == NfsStatus::ok) files_.keep(key_of(in.object.key.export_id, status), std::move(file));
        return known;
    });
}

// UNCHECKED over a file that is there: it stays as it is, but for the size that was asked for.
SharedFiles::MadeObject SharedFiles::reuse_file(const Call &call, const Folder &folder, std::string_view name,
                                                const ChangedAttributes &changed) {
    auto object = tree_.child(folder.object, folder.descriptor.get(), name);
    if (!object.ok()) return {object.status(), {}};
    if (!object->is_regular()) return {NfsStatus::exist, {}};
    NfsStatus status = NfsStatus::ok;
    if (changed.size) {
        status = allow(call, *object->home, object->status, kWantWrite);
        if (status == NfsStatus::ok) status = set_size(object->key, *changed.size);
    }
    return {status, std::move(*object)};
}

// EXCLUSIVE over a file that is there: the same request once more if the file still bears its verifier.
SharedFiles::MadeObject SharedFiles::repeat_exclusive(const Folder &folder, std::string_view name,
                                                      const ChangedAttributes &times) {
    auto object = tree_.child(folder.object, folder.descriptor.get(), name);
    if (!object.ok()) return {object.status(), {}};
    const struct statx &status = object->status;
    const bool same = object->is_regular() && status.stx_atime.tv_sec == times.access.seconds &&
                      status.stx_mtime.tv_sec == times.modification.seconds && status.stx_mtime.tv_nsec == 0;
    if (!same) return {NfsStatus::exist, {}};
    return {NfsStatus::ok, std::move(*object)};
}

SharedFiles::MadeObject SharedFiles::make_directory(const Call &call, const Folder &folder, std::string_view name,
                                                    const ChangedAttributes &changed) {
    return make_object(call, folder, name, changed, [&](const Folder &in, const char *entry) {
        return status_of_call(mkdirat(in.descriptor.get(), entry, changed.mode.value_or(kDirectoryMode) & kModeBits));
    });
}

SharedFiles::MadeObject SharedFiles::make_link(const Call &call, const Folder &folder, std::string_view name,
                                               const ChangedAttributes &changed, std::string_view target) {
    if (target.size() >= PATH_MAX) return {NfsStatus::nametoolong, {}};
    if (target.empty() || target.find('\0') != std::string_view::npos) return {NfsStatus::inval, {}};
    return make_object(call, folder, name, changed, [&](const Folder &in, const char *entry) {
        return status_of_call(symlinkat(std::string(target).c_str(), in.descriptor.get(), entry));
    });
}

// type: S_IFIFO or S_IFSOCK.
SharedFiles::MadeObject SharedFiles::make_node(const Call &call, const Folder &folder, std::string_view name,
                                               const ChangedAttributes &changed, mode_t type) {
    return make_object(call, folder, name, changed, [&](const Folder &in, const char *entry) {
        const mode_t mode = changed.mode.value_or(kFileMode) & kModeBits;
        return status_of_call(mknodat(in.descriptor.get(), entry, type | mode, 0));
    });
}

}  // namespace loopnfsd
