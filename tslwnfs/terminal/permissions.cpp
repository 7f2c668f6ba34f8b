// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/permissions.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <vector>

#include "platform/home.h"

namespace terminal {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kPermissions = 07777;

// What getpwuid_r() and getgrgid_r() find, by its name; the number where there is no name.
template <class Entry, class Id>
std::string name_of(Id id, int (*find)(Id, Entry *, char *, std::size_t, Entry **), char *Entry::*name) {
    std::vector<char> room(4096);
    Entry entry = {};
    Entry *found = nullptr;
    const bool known = find(id, &entry, room.data(), room.size(), &found) == 0 && found != nullptr;
    return known ? found->*name : std::to_string(id);
}

std::string user(const struct stat &status) {
    return name_of(status.st_uid, getpwuid_r, &passwd::pw_name);
}

std::string group(const struct stat &status) {
    return name_of(status.st_gid, getgrgid_r, &group::gr_name);
}

bool may(const fs::path &path, int how) {
    return faccessat(AT_FDCWD, path.c_str(), how, AT_EACCESS) == 0;
}

// The topmost directory on the way that keeps the caller out; else the path, or what there is of it.
std::optional<fs::path> obstacle(const fs::path &path) {
    fs::path way;
    std::optional<fs::path> last;
    for (const auto &component : path) {
        struct stat status;
        if (component.empty()) continue;  // behind a last slash
        way /= component;
        if (stat(way.c_str(), &status) != 0) return last;
        last = way;
        if (S_ISDIR(status.st_mode) && !may(way, X_OK)) return last;
    }
    return last;
}

// The configuration, or one of the files that a command makes beside it.
bool is_configuration(const fs::path &path) {
    const auto home = platform_home("?");
    return home && path.parent_path() == fs::path(*home) / "dbs" && path.filename().string().starts_with("tslnfstab");
}

std::string who_may_configure(const fs::path &path, const struct stat &status) {
    const bool reads = may(path, R_OK);
    const bool by_group = (status.st_mode & (reads ? S_IWGRP : S_IRGRP)) != 0;
    const std::string verb = reads ? " may change the configuration" : " may read the configuration";
    return by_group ? "user " + user(status) + " and the members of group " + group(status) + verb
                    : "user " + user(status) + " alone" + verb;
}

}  // namespace

std::string who_may(std::string_view path) {
    const fs::path wanted = fs::path(path).lexically_normal();
    const auto place = wanted.is_absolute() ? obstacle(wanted) : std::nullopt;
    struct stat status;
    if (!place || stat(place->c_str(), &status) != 0) return {};
    if (is_configuration(wanted)) return who_may_configure(*place, status);
    std::array<char, 8> mode = {};
    std::snprintf(mode.data(), mode.size(), "%o", static_cast<unsigned>(status.st_mode & kPermissions));
    return place->string() + " belongs to user " + user(status) + " and group " + group(status) + ", mode " +
           mode.data();
}

}  // namespace terminal
