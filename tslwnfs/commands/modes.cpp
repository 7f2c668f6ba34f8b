// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/modes.h"

#include <cerrno>
#include <cstdio>
#include <string>

#include "include/tdm.h"
#include "nfstdm/base/umask.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/options/strict.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

constexpr uint32_t kPermissions = S_IRWXU | S_IRWXG | S_IRWXO;

uint32_t without_masked(uint32_t mode) {
    return mode & kPermissions & ~(nfstdm::process_umask() & S_IRWXO);
}

// Of a remote file: nothing for anybody but its owner, who has to write it.
uint32_t while_written(uint32_t mode) {
    return (mode & S_IRWXU) | S_IRUSR | S_IWUSR;
}

bool fail(const char *function, const PathBuffer &path, int error) {
    terminal::note_system_failure("The permissions of " + std::string(path.view()) + " could not be set", error);
    trace_failure(function, "the permissions of %s could not be set", path.c_str());
    return false;
}

}  // namespace

std::optional<uint32_t> mode_for_copy(const char *function, const SourceFile &source) {
    if (!is_strict(Strict::modes)) return std::nullopt;
    if (source.local) {
        struct stat status;
        if (fstat(fileno(source.stream.get()), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
        return without_masked(status.st_mode);
    }
    TdmAttributes attributes = {};
    uint32_t location = 0;
    if (tdm_getattr(ctx, source.path.c_str(), &attributes, &location) == 0 && location == TDM_LOCATION_REMOTE) {
        return without_masked(attributes.permissions);
    }
    trace_message(function, Message::getattr_location, source.path.c_str(), location);
    return std::nullopt;
}

std::optional<uint32_t> mode_for_copy(const AttrResult &source_directory) {
    if (!is_strict(Strict::modes)) return std::nullopt;
    if (source_directory.local) return without_masked(source_directory.local->st_mode);
    if (source_directory.remote) return without_masked(source_directory.remote->permissions);
    return std::nullopt;
}

bool set_mode(const char *function, const PathBuffer &path, uint32_t mode) {
    TdmSetAttributes attributes = {};
    attributes.mask = TDM_SET_PERMISSIONS;
    attributes.permissions = mode;
    uint32_t location = 0;
    const uint32_t status = tdm_setattr(ctx, path.c_str(), &attributes, &location);
    if (status == 0 && location == TDM_LOCATION_REMOTE) return true;
    if (status == 0 && location == TDM_LOCATION_LOCAL) {
        return chmod(path.c_str(), mode) == 0 || fail(function, path, errno);
    }
    trace_message(function, Message::setattr_location, path.c_str(), location);
    return false;
}

bool prepare_mode(const char *function, const DestinationFile &destination, uint32_t mode) {
    if (!destination.local) return set_mode(function, destination.path, while_written(mode));
    struct stat status;
    FILE *const stream = destination.stream.get();
    // What is no file of its own, such as a device, keeps its mode.
    if (fstat(fileno(stream), &status) != 0 || !S_ISREG(status.st_mode)) return true;
    return fchmod(fileno(stream), mode) == 0 || fail(function, destination.path, errno);
}

bool finish_mode(const char *function, const DestinationFile &destination, uint32_t mode) {
    return destination.local || mode == while_written(mode) || set_mode(function, destination.path, mode);
}
