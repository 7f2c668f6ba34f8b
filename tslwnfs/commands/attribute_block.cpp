// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/attribute_block.h"

#include <array>
#include <cstdio>
#include <ctime>

#include "tslwnfs/output/output.h"

namespace {

struct PermissionLine {
    const char *label;
    uint32_t bit;
};

// The last label has no colon: scripts compare these lines as they stand.
constexpr std::array<PermissionLine, 9> kRemotePermissions = {{
    {"Read permission for owner:        ", TDM_PERMISSION_OWNER_READ},
    {"Write permission for owner:       ", TDM_PERMISSION_OWNER_WRITE},
    {"lookup permission for owner:      ", TDM_PERMISSION_OWNER_LOOKUP},
    {"Read permission for group:        ", TDM_PERMISSION_GROUP_READ},
    {"Write permission for group:       ", TDM_PERMISSION_GROUP_WRITE},
    {"lookup permission for group:      ", TDM_PERMISSION_GROUP_LOOKUP},
    {"Read permission for others:       ", TDM_PERMISSION_OTHERS_READ},
    {"Write permission for others:      ", TDM_PERMISSION_OTHERS_WRITE},
    {"lookup permission for others      ", TDM_PERMISSION_OTHERS_LOOKUP},
}};

constexpr std::array<PermissionLine, 3> kWideLabels = {{
    {"READ:                             ", S_IRUSR},
    {"WRITE:                            ", S_IWUSR},
    {"EXEC:                             ", S_IXUSR},
}};
constexpr std::array<PermissionLine, 3> kNarrowLabels = {{
    {"READ:                         ", S_IRUSR},
    {"WRITE:                        ", S_IWUSR},
    {"EXEC:                         ", S_IXUSR},
}};

const char *file_type_word(mode_t mode, const char *directory) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return "Regular file";
        case S_IFDIR:
            return directory;
        case S_IFCHR:
            return "Character Device";
        case S_IFIFO:
            return "Fifo";
        default:
            return "";
    }
}

void print_local_identity(const struct stat &status, const LocalBlockStyle &style) {
    print("\n \tuser id of file owner:            %hd%s", static_cast<short>(status.st_uid), style.line_end);
    print("\n \tgroup id of group owner:          %hd%s", static_cast<short>(status.st_gid), style.line_end);
    if (style.serial_number) {
        print("\n \tserial number of file:            %lu%s", static_cast<unsigned long>(status.st_ino),
              style.line_end);
    }
    print("\n \tnumber of links for  file:        %lu%s", static_cast<unsigned long>(status.st_nlink), style.line_end);
    // The number of the device the file stands for, not of the one it lies on.
    print("\n \tID of device containing the file: %lu%s", static_cast<unsigned long>(status.st_rdev), style.line_end);
}

void print_local_times(const struct stat &status, const LocalBlockStyle &style) {
    const auto text = [](time_t seconds) { return time_text(static_cast<uint64_t>(seconds)); };
    print("\n \tTime of last access:              %s%s", text(status.st_atime).c_str(), style.line_end);
    print("\n \tTime of last data modification:   %s", text(status.st_mtime).c_str());
    print("\n \tTime of last file status change:  %s%s", text(status.st_ctime).c_str(), style.line_end);
}

void print_local_permissions(mode_t mode, bool wide_labels) {
    print("\n \tfile permissions:             %s", wide_labels ? "    " : "");
    for (const PermissionLine &line : wide_labels ? kWideLabels : kNarrowLabels) {
        print("\n \t%s%s", line.label, yes_or_no((mode & line.bit) != 0));
    }
}

void append_permissions(std::string &text, uint32_t mode, unsigned shift) {
    const uint32_t bits = mode >> shift;
    text += (bits & 4) != 0 ? 'r' : '-';
    text += (bits & 2) != 0 ? 'w' : '-';
    text += (bits & 1) != 0 ? 'x' : '-';
}

}  // namespace

std::string format_I64d(int64_t value) {
    std::array<char, 65> text = {};
    std::snprintf(text.data(), text.size(), "%64lld", static_cast<long long>(value));
    return text.data();
}

std::string time_text(uint64_t seconds) {
    const auto time = static_cast<time_t>(seconds);
    std::array<char, 64> text = {};
    return ctime_r(&time, text.data()) == nullptr ? "\n" : text.data();
}

const char *yes_or_no(bool permitted) {
    return permitted ? "YES" : "NO";
}

std::string owner_permissions(uint32_t mode) {
    std::string text;
    append_permissions(text, mode, 6);
    return text;
}

std::string all_permissions(uint32_t mode) {
    std::string text;
    for (const unsigned shift : {6U, 3U, 0U}) {
        append_permissions(text, mode, shift);
    }
    return text;
}

void print_remote_block(const TdmAttributes &attributes) {
    print("\n \t uid                               %u", attributes.uid);
    print("\n \t gid                               %u", attributes.gid);
    print("\n \t size                              %llu", static_cast<unsigned long long>(attributes.size));
    print("\n \tTime of last access:               %s ", time_text(attributes.access_seconds).c_str());
    print("\n \tTime of last data modification:    %s", time_text(attributes.modification_seconds).c_str());
    print("\n \tTime of last file status change:   %s ", time_text(attributes.change_seconds).c_str());
    print("\n \t permitted operations:");
    for (const PermissionLine &line : kRemotePermissions) {
        print("\n \t %s%s", line.label, yes_or_no((attributes.permissions & line.bit) != 0));
    }
}

void print_local_block(const struct stat &status, const LocalBlockStyle &style) {
    print("\n \tsize of file:                     %s bytes", format_I64d(status.st_size).c_str());
    print_local_identity(status, style);
    print_local_times(status, style);
    print("\n \tfile type:                        %s", file_type_word(status.st_mode, style.directory));
    print_local_permissions(status.st_mode, style.wide_permission_labels);
}
