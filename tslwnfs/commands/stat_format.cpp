// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/stat_format.h"

#include "tslwnfs/commands/attribute_block.h"

namespace {

// What the directives stand for; the two kinds of objects differ in their texts only.
struct Values {
    std::string permissions;
    const char *type;
    std::string gid;
    std::string uid;
    std::string size;
    std::string_view path;
    std::string access;
    std::string modification;
    std::string change;
};

std::string_view value_of(char directive, const Values &values) {
    switch (directive) {
        case 'A':
            return values.permissions;
        case 'F':
            return values.type;
        case 'g':
            return values.gid;
        case 'u':
            return values.uid;
        case 's':
            return values.size;
        case 'n':
            return values.path;
        case 'x':
            return values.access;
        case 'y':
            return values.modification;
        case 'z':
            return values.change;
        default:
            return {};
    }
}

std::string substitute(std::string_view format, const Values &values) {
    std::string line;
    while (!format.empty()) {
        const std::size_t percent = format.find('%');
        line += format.substr(0, percent);
        if (percent == std::string_view::npos || percent + 1 == format.size()) break;
        line += value_of(format[percent + 1], values);
        format.remove_prefix(percent + 2);
    }
    return line;
}

// The owner numbers of a local file are shown as signed 16-bit values.
std::string short_number(uint32_t number) {
    return std::to_string(static_cast<short>(number));
}

const char *type_letter(bool is_directory, bool is_regular) {
    return is_directory ? "d" : is_regular ? "f" : "-";
}

}  // namespace

std::string format_remote(std::string_view format, std::string_view path, const TdmAttributes &attributes) {
    return substitute(format,
                      {.permissions = all_permissions(attributes.permissions),
                       .type = type_letter(attributes.type == TDM_TYPE_DIRECTORY, attributes.type == TDM_TYPE_REGULAR),
                       .gid = std::to_string(attributes.gid),
                       .uid = std::to_string(attributes.uid),
                       .size = std::to_string(attributes.size),
                       .path = path,
                       .access = time_text(attributes.access_seconds),
                       .modification = time_text(attributes.modification_seconds),
                       .change = time_text(attributes.change_seconds)});
}

std::string format_local(std::string_view format, std::string_view path, const struct stat &status) {
    return substitute(format, {.permissions = owner_permissions(status.st_mode),
                               .type = type_letter(S_ISDIR(status.st_mode), S_ISREG(status.st_mode)),
                               .gid = short_number(status.st_gid),
                               .uid = short_number(status.st_uid),
                               .size = format_I64d(status.st_size),
                               .path = path,
                               .access = time_text(static_cast<uint64_t>(status.st_atime)),
                               .modification = time_text(static_cast<uint64_t>(status.st_mtime)),
                               .change = time_text(static_cast<uint64_t>(status.st_ctime))});
}
