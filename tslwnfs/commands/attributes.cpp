// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/attributes.h"

#include <array>
#include <new>
#include <optional>
#include <string>

#include "tslwnfs/commands/attribute_block.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/storage/held_directory.h"
#include "tslwnfs/storage/resolve.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

// What messages give as the size of a local status record; the record of this system is larger.
constexpr unsigned long kReportedStatusSize = 128;

uint32_t remote_type(const PathBuffer &path, AttrResult &result, std::unique_ptr<TdmAttributes> attributes,
                     int32_t print_block) {
    result.is_local = 0;
    result.remote = std::move(attributes);
    const uint32_t type = result.remote->type;
    if (type != TDM_TYPE_DIRECTORY) print("%s not a directory", shown_name(path.view()).c_str());
    if (type == TDM_TYPE_LINK) return kTypeLink;
    if (type == TDM_TYPE_REGULAR) return kTypeRegular;
    if (print_block != 0) print_remote_block(*result.remote);
    return kTypeDirectory;
}

uint32_t local_type(const PathBuffer &path, AttrResult &result, int32_t print_block) {
    std::unique_ptr<struct stat> status(new (std::nothrow) struct stat());
    if (status == nullptr) {
        trace_message("getattrdir", Message::out_of_memory, kReportedStatusSize);
        return kTypeFailure;
    }
    // A link is a link here, wherever it leads: recursion must not leave the tree it was given.
    const LocalPlace place = local_place(path.c_str());
    if (fstatat(place.directory, place.name, status.get(), AT_SYMLINK_NOFOLLOW) != 0) {
        trace_message("getattrdir", Message::status_unreadable, path.c_str());
        return kTypeFailure;
    }
    result.is_local = 1;
    result.local = std::move(status);
    const mode_t type = result.local->st_mode & S_IFMT;
    if (type == S_IFLNK) return kTypeLink;
    if (type == S_IFREG) return kTypeRegular;
    if (print_block != 0) {
        print_local_block(*result.local, {.line_end = output_is_log() ? " " : "",
                                          .directory = "directory",
                                          .serial_number = true,
                                          .wide_permission_labels = true});
    }
    return kTypeDirectory;
}

bool is_directory(const AttrResult &result) {
    if (result.local) return S_ISDIR(result.local->st_mode);
    return !result.remote || result.remote->type == TDM_TYPE_DIRECTORY;
}

// What a local link leads to; nothing when it dangles.
std::optional<Kind> target_kind(const char *link) {
    const LocalPlace place = local_place(link);
    struct stat target;
    if (fstatat(place.directory, place.name, &target, 0) != 0) return std::nullopt;
    if (S_ISDIR(target.st_mode)) return Kind::directory;
    return S_ISREG(target.st_mode) ? Kind::regular : Kind::special;
}

struct PermissionQuestion {
    const char *text;
    uint32_t bit;
};

constexpr std::array<PermissionQuestion, 3> kLocalQuestions = {{
    {"assign read permission y/n : ", S_IRUSR},
    {"assign write permission y/n : ", S_IWUSR},
    {"assign exec permission y/n : ", S_IXUSR},
}};

constexpr std::array<PermissionQuestion, 9> kRemoteQuestions = {{
    {"assign read permission for owner y/n : ", TDM_PERMISSION_OWNER_READ},
    {"assign read permission for group y/n : ", TDM_PERMISSION_GROUP_READ},
    {"assign read permission for other y/n : ", TDM_PERMISSION_OTHERS_READ},
    {"assign write permission for owner y/n : ", TDM_PERMISSION_OWNER_WRITE},
    {"assign write permission for group y/n : ", TDM_PERMISSION_GROUP_WRITE},
    {"assign write permission for other y/n : ", TDM_PERMISSION_OTHERS_WRITE},
    {"assign exec permission for owner y/n : ", TDM_PERMISSION_OWNER_LOOKUP},
    {"assign exec permission for group y/n : ", TDM_PERMISSION_GROUP_LOOKUP},
    {"assign exec permission for other y/n : ", TDM_PERMISSION_OTHERS_LOOKUP},
}};

// Returns false when the input ended before every question was answered: then nothing may be changed.
template <std::size_t kCount>
bool ask_permissions(const std::array<PermissionQuestion, kCount> &questions, uint32_t &mode) {
    mode = 0;
    for (const PermissionQuestion &question : questions) {
        const Answer answer = ask_yes_no(question.text, "");
        if (answer == Answer::end_of_input) return false;
        if (answer == Answer::yes) mode |= question.bit;
    }
    return true;
}

uint32_t set_local_permissions(const PathBuffer &path) {
    uint32_t mode = 0;
    if (!ask_permissions(kLocalQuestions, mode)) return 1;
    if (chmod(path.c_str(), mode) == 0) return 0;
    print_message(Message::permissions_unchanged, path.c_str());
    return 1;
}

uint32_t set_remote_permissions(const PathBuffer &path) {
    TdmSetAttributes attributes = {};
    if (!ask_permissions(kRemoteQuestions, attributes.permissions)) return 1;
    attributes.mask = TDM_SET_PERMISSIONS;
    uint32_t location = 0;
    const uint32_t status = tdm_setattr(ctx, path.c_str(), &attributes, &location);
    const bool failed = status != 0 || location == TDM_LOCATION_FAILED || location == TDM_LOCATION_LOST;
    if (failed || location == TDM_LOCATION_LOCAL) {
        trace_message("setattrdir", Message::setattr_location, path.c_str(), location);
    }
    return failed ? 1 : 0;
}

}  // namespace

uint32_t getattrdir(const Operand &path, AttrResult &result, int32_t print_block) {
    static constexpr const char *kFunction = "getattrdir";
    result = AttrResult{};
    PathBuffer resolved;
    if (!resolve_operand(kFunction, path, resolved)) return kTypeFailure;

    std::unique_ptr<TdmAttributes> attributes(new (std::nothrow) TdmAttributes());
    if (attributes == nullptr) {
        trace_message(kFunction, Message::out_of_memory, static_cast<unsigned long>(sizeof(TdmAttributes)));
        return kTypeFailure;
    }
    uint32_t location = 0;
    const uint32_t status = tdm_getattr(ctx, resolved.c_str(), attributes.get(), &location);
    if (status == 0 && location == TDM_LOCATION_REMOTE) {
        return remote_type(resolved, result, std::move(attributes), print_block);
    }
    if (status == 0 && location > TDM_LOCATION_LOST) return kTypeDirectory;

    trace_message(kFunction, Message::getattr_location, resolved.c_str(), location);
    if (status != 0 || location != TDM_LOCATION_LOCAL) return kTypeFailure;
    return local_type(resolved, result, print_block);
}

Kind kind_of(const Operand &path, AttrResult &result) {
    switch (getattrdir(path, result, kUnprinted)) {
        case kTypeDirectory:
            return is_directory(result) ? Kind::directory : Kind::special;
        case kTypeRegular:
            return Kind::regular;
        case kTypeLink:
            return Kind::link;
        default:
            return Kind::missing;
    }
}

Kind destination_kind(const Operand &path, AttrResult &result) {
    const Kind kind = kind_of(path, result);
    // A link that was put in the place of a directory of a tree is not one of its directories.
    if (kind != Kind::link || !result.local || local_place(path.text()).held) return kind;
    return target_kind(path.text()).value_or(kind);
}

bool leads_to_special(const PathBuffer &path, Kind kind, const AttrResult &attributes) {
    if (kind != Kind::link || !attributes.local) return kind == Kind::special;
    return target_kind(path.c_str()) == Kind::special;
}

bool is_directory_destination(const Operand &path) {
    AttrResult result;
    return destination_kind(path, result) == Kind::directory;
}

uint32_t setattrdir(const Operand &path) {
    PathBuffer resolved;
    if (!resolve_operand("setattrdir", path, resolved)) return 1;
    AttrResult result;
    const uint32_t type = getattrdir(resolved, result, kUnprinted);
    if (type == kTypeRegular || type == kTypeLink)
        terminal::note_failure(std::string(resolved.view()) + " is no directory");
    if (type != kTypeDirectory || result.empty()) return 1;
    return result.is_local != 0 ? set_local_permissions(resolved) : set_remote_permissions(resolved);
}
