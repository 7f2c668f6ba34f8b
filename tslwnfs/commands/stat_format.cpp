// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/stat_format.h"

#include <string_view>

#include "tslwnfs/commands/attribute_block.h"

namespace {

std::string remote_type(uint32_t type) {
    switch (type) {
        case TDM_TYPE_DIRECTORY:
            return "d";
        case TDM_TYPE_REGULAR:
            return "f";
        default:
            return "-";
    }
}

std::string local_type(mode_t mode) {
    if (S_ISDIR(mode)) return "d";
    return S_ISREG(mode) ? "f" : "-";
}

std::string remote_value(char directive, const TdmAttributes &attributes, const char *path) {
    switch (directive) {
        case 'A':
            return all_permissions(attributes.permissions);
        case 'F':
            return remote_type(attributes.type);
        case 'g':
            return std::to_string(attributes.gid);
        case 'u':
            return std::to_string(attributes.uid);
        case 's':
            return std::to_string(attributes.size);
        case 'n':
            return path;
        case 'x':
            return time_text(attributes.access_seconds);
        case 'y':
            return time_text(attributes.modification_seconds);
        case 'z':
            return time_text(attributes.change_seconds);
        default:
            return {};
    }
}

// The ids of a local object are shown as signed 16-bit numbers, and its permissions are the owner's alone.
std::string local_value(char directive, const struct stat &status, const char *path) {
    switch (directive) {
        case 'A':
            return owner_permissions(status.st_mode);
        case 'F':
            return local_type(status.st_mode);
        case 'g':
            return std::to_string(static_cast<short>(status.st_gid));
        case 'u':
            return std::to_string(static_cast<short>(status.st_uid));
        case 's':
            return format_I64d(status.st_size);
        case 'n':
            return path;
        case 'x':
            return time_text(static_cast<uint64_t>(status.st_atime));
        case 'y':
            return time_text(static_cast<uint64_t>(status.st_mtime));
        case 'z':
            return time_text(static_cast<uint64_t>(status.st_ctime));
        default:
            return {};
    }
}

template <class Value>
std::string expand(const char *format, Value value) {
    std::string line;
    std::string_view rest = format == nullptr ? std::string_view{} : std::string_view{format};
    for (auto percent = rest.find('%'); percent != std::string_view::npos; percent = rest.find('%')) {
        line += rest.substr(0, percent);
        rest.remove_prefix(percent + 1);
        if (rest.empty()) break;
        line += value(rest.front());
        rest.remove_prefix(1);
    }
    line += rest;
    return line;
}

}  // namespace

std::string format_status(const char *format, const TdmAttributes &attributes, const char *path) {
    return expand(format, [&](char directive) { return remote_value(directive, attributes, path); });
}

std::string format_status(const char *format, const struct stat &status, const char *path) {
    return expand(format, [&](char directive) { return local_value(directive, status, path); });
}
