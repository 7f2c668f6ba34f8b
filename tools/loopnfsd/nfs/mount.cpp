// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/nfs/mount.h"

#include <algorithm>
#include <array>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/rpc/message/constants.h"

namespace loopnfsd {

namespace {

using nfstdm::mount3::Procedure;

constexpr std::array kFlavours{nfstdm::rpc::kAuthSys, nfstdm::rpc::kAuthNone};

std::string client_of(const Call &call) {
    return call.who.machine.empty() ? call.arrival.client : call.who.machine;
}

bool get_path(Call &call, std::string_view &path) {
    return call.arguments.get_string(path, nfstdm::mount3::kPathMaximum) && call.arguments.finished();
}

}  // namespace

uint32_t MountService::number() const {
    return nfstdm::mount3::kProgram;
}

uint32_t MountService::version() const {
    return nfstdm::mount3::kVersion;
}

bool MountService::run(uint32_t procedure, Call &call) {
    switch (static_cast<Procedure>(procedure)) {
        case Procedure::null:
            return call.arguments.finished();
        case Procedure::mnt:
            return mnt(call);
        case Procedure::dump:
            return dump(call);
        case Procedure::umnt:
            return umnt(call);
        case Procedure::umntall:
            return umntall(call);
        case Procedure::export_list:
            return export_list(call);
    }
    return false;
}

// An export, or a directory anywhere below one.
Outcome<Object> MountService::find(std::string_view path) {
    std::string_view below;
    const Export *home = exports_.containing(path, below);
    if (home == nullptr) return NfsStatus::noent;
    auto object = tree_.walk(*home, below);
    if (object.ok() && !object->is_directory()) return NfsStatus::notdir;
    return object;
}

bool MountService::mnt(Call &call) {
    std::string_view path;
    if (!get_path(call, path)) return false;
    const auto object = find(path);
    call.results.put_u32(static_cast<uint32_t>(object.status()));
    if (!object.ok()) return true;
    const auto size = faults_.number(FaultKind::handle_size, call.arrival.path);
    call.results.put_opaque(encode_handle(object->key, size.value_or(kHandleSize)));
    call.results.put_u32(kFlavours.size());
    for (const uint32_t flavour : kFlavours)
        call.results.put_u32(flavour);
    const Mounted entry{client_of(call), std::string(path)};
    if (std::ranges::find(mounted_, entry) == mounted_.end()) mounted_.push_back(entry);
    return true;
}

bool MountService::dump(Call &call) const {
    for (const Mounted &entry : mounted_) {
        call.results.put_bool(true);
        call.results.put_string(entry.client);
        call.results.put_string(entry.path);
    }
    call.results.put_bool(false);
    return call.arguments.finished();
}

bool MountService::umnt(Call &call) {
    std::string_view path;
    if (!get_path(call, path)) return false;
    std::erase(mounted_, Mounted{client_of(call), std::string(path)});
    return true;
}

bool MountService::umntall(Call &call) {
    if (!call.arguments.finished()) return false;
    std::erase_if(mounted_, [&](const Mounted &entry) { return entry.client == client_of(call); });
    return true;
}

bool MountService::export_list(Call &call) const {
    for (const Export &home : exports_.all()) {
        call.results.put_bool(true);
        call.results.put_string(home.name);
        for (const std::string &group : groups_) {
            call.results.put_bool(true);
            call.results.put_string(group);
        }
        call.results.put_bool(false);
    }
    call.results.put_bool(false);
    return call.arguments.finished();
}

}  // namespace loopnfsd
