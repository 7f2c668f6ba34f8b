// SPDX-License-Identifier: Apache-2.0
// iswnfsenabled and isPathOnWNFS.
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/base_home.h"
#include "platform/path_buffer.h"
#include "tslwnfs/client/client.h"
#include "tslwnfs/client/library_files.h"
#include "tslwnfs/config/tslnfstab_file.h"
#include "tslwnfs/config/tslnfstab_lines.h"
#include "tslwnfs/config/whole_file.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/trace.h"

namespace {

constexpr char kEnabled[] = "iswnfsenabled";
constexpr char kOnMount[] = "isPathOnWNFS";

PathBuffer tslnfstab_loc;  // the configuration file that iswnfsenabled found

// What became of looking for the configuration file in one directory.
enum class Found { usable, missing, refused };  // the reason of a refusal was traced

Found look_for_configuration(const std::string &directory, PathBuffer &path) {
    if (!translate_file_name(kEnabled, directory + "/dbs/tslnfstab", path)) return Found::refused;
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        if (errno == ENOENT) return Found::missing;
        trace_message(kEnabled, Message::status_unreadable, path.c_str());
        return Found::refused;
    }
    if (status.st_size > 0) return Found::usable;
    trace_message(kEnabled, Message::configuration_empty, path.c_str());
    return Found::refused;
}

// Looks in the base home first and then in the base configuration directory.
bool find_configuration(const char *home, PathBuffer &path) {
    Found found = Found::missing;
    if (const auto base = platform_base_home(home)) found = look_for_configuration(*base, path);
    if (found == Found::missing) {
        if (const auto base = platform_base_configuration(home)) found = look_for_configuration(*base, path);
    }
    if (found == Found::missing) trace_message(kEnabled, Message::configuration_missing, home);
    return found == Found::usable;
}

// The library is that of the running installation, whichever home is asked about.
bool has_library() {
    PathBuffer path;
    if (!translate_file_name(kEnabled, std::string(tsl_ohome) + kLibraryCopy, path)) return false;
    struct stat status;
    if (stat(path.c_str(), &status) == 0) return true;
    if (errno == EACCES) {
        trace_failure(kEnabled, "%s is in a directory that is closed to user %u: ask its owner", path.c_str(),
                      static_cast<unsigned>(geteuid()));
    }
    trace_message(kEnabled, Message::library_missing, path.c_str());
    return false;
}

// The form in which paths are compared: case and the direction of slashes do not count.
std::string comparable(std::string_view path) {
    std::string form(path);
    for (char &c : form)
        c = c == '\\' ? '/' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return form;
}

// Cuts the first word off a line: up to a single blank, so that two blanks have an empty word between them.
std::optional<std::string_view> take_word(std::optional<std::string_view> &line) {
    if (!line) return std::nullopt;
    const std::size_t blank = line->find(' ');
    const std::string_view word = line->substr(0, blank);
    line = blank == std::string_view::npos ? std::nullopt : std::optional(line->substr(blank + 1));
    return word;
}

bool is_mount_key(std::string_view word) {
    constexpr std::string_view kKey = "mount:";
    return word.size() == kKey.size() && strncasecmp(word.data(), kKey.data(), kKey.size()) == 0;
}

// The word behind the line's first "mount:" word, empty when the line ends there; nothing without such a word.
std::optional<std::string_view> mount_point_of(std::string_view line) {
    std::optional<std::string_view> left = without_line_feed(line);
    while (const auto word = take_word(left)) {
        if (is_mount_key(*word)) return take_word(left).value_or(std::string_view());
    }
    return std::nullopt;
}

// Whether a path begins with a mount point of the file. The mount point is a plain prefix, whole components or not. A
// line that holds "mount:" inside another word only is measured by the mount point before it.
bool is_on_mount(std::string_view file, const std::string &path) {
    constexpr std::size_t kPiece = 259;  // characters of a line that are looked at together
    std::string mount_point;
    for (const auto line : split_lines(file, kPiece)) {
        if (line.find("mount:") == std::string_view::npos) continue;
        if (const auto named = mount_point_of(line)) mount_point = comparable(*named);
        if (!mount_point.empty() && path.starts_with(mount_point)) return true;
    }
    return false;
}

}  // namespace

uint32_t iswnfsenabled(const char *home) {
    PathBuffer path;
    bool enabled = find_configuration(home, path);
    if (enabled) {
        tslnfstab_loc = path;
        enabled = has_library();
    }
    print_message(enabled ? Message::client_enabled : Message::client_not_enabled);
    return enabled ? 0 : 1;
}

uint32_t isPathOnWNFS(const char *home, const char *path) {
    if (home == nullptr || path == nullptr) {
        trace_message(kOnMount, Message::usage_header);
        return 1;
    }
    bool on_mount = false;
    if (iswnfsenabled(home) == 0) {
        std::string file;
        if (!read_whole_file(tslnfstab_loc.c_str(), file)) {
            trace_message(kOnMount, Message::file_unopenable, tslnfstab_loc.c_str());
            return 1;
        }
        on_mount = is_on_mount(file, comparable(path));
    }
    print_message(on_mount ? Message::path_on_mount : Message::path_not_on_mount);
    return on_mount ? 0 : 1;
}
