// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/config/mount_table.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/path_buffer.h"
#include "tslwnfs/config/block_values.h"
#include "tslwnfs/config/reading.h"
#include "tslwnfs/config/tslnfstab_file.h"
#include "tslwnfs/config/warning.h"
#include "tslwnfs/config/whole_file.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/storage/resolve.h"
#include "tslwnfs/storage/wildcard.h"
#include "tslwnfs/terminal/screen.h"

namespace {

constexpr char kMountFunction[] = "tslwnfs_mount_otab";
constexpr char kUmountFunction[] = "tslwnfs_umount_otab";

// tslnfstab as a stream of words.
class FileWords {
  public:
    explicit FileWords(std::string_view text) : left_(text) {}

    // The next word; a long one is given in pieces.
    std::optional<std::string_view> word() {
        constexpr std::string_view kSpace = " \t\n\v\f\r";
        constexpr std::size_t kWordMaximum = 512;
        left_.remove_prefix(std::min(left_.find_first_not_of(kSpace), left_.size()));
        if (left_.empty()) return std::nullopt;
        return take(std::min(left_.find_first_of(kSpace), kWordMaximum));
    }

    // What is left of the line, its line feed included, or the first kPiece characters of that.
    std::string_view rest_of_line() {
        const std::size_t feed = left_.find('\n');
        return take(std::min(feed == std::string_view::npos ? left_.size() : feed + 1, kPiece));
    }

    static constexpr std::size_t kPiece = 1023;  // characters

  private:
    std::string_view take(std::size_t length) {
        const std::string_view taken = left_.substr(0, length);
        left_.remove_prefix(taken.size());
        return taken;
    }

    std::string_view left_;
};

// Copies a comment from its first word on. Where the line is longer than a piece the word is repeated.
void copy_comment(std::string &out, std::string_view first_word, FileWords &words) {
    std::string_view piece;
    do {
        piece = words.rest_of_line();
        out.append(" ").append(first_word).append(piece);
    } while (piece.size() == FileWords::kPiece && !piece.ends_with('\n'));
}

void put_pair(std::string &out, std::string_view key, std::string_view value) {
    out.append("\n").append(key).append(" ").append(value).append(" ");
}

// What the storage library will make of what was added, where that is not what was meant.
void warn_of_problems(std::string_view before, const PathBuffer &path) {
    std::string file;
    if (!read_whole_file(path.c_str(), file)) return;
    const auto known = problems_of(before);
    for (const auto &problem : problems_of(file)) {
        if (std::ranges::find(known, problem) == known.end()) terminal::say("warning: tslnfstab, " + problem);
    }
}

// Whether a server has network paths of its own in the file: what tells where it is.
bool has_network_path(std::string_view file, std::string_view server) {
    std::string_view current;
    FileWords words(file);
    while (const auto key = words.word()) {
        if (key->starts_with('#')) {
            static_cast<void>(words.rest_of_line());
            continue;
        }
        const auto value = words.word();
        if (!value) break;
        if (*key == "server:") current = *value;
        if (*key == "path:" && current == server) return true;
    }
    return false;
}

// A block of its own has settings of its own, though it names a server that is known.
void warn_of_other_settings(std::string_view before, const ServerBlock &server, std::string_view mount_point) {
    if (!server.server || server.pairs || !has_network_path(before, *server.server)) return;
    terminal::say("warning: the path lines that " + *server.server + " has do not count for " +
                  std::string(mount_point) +
                  "; give -p PATH, or name all exports of the server in one createtslnfstab");
}

}  // namespace

std::string without_mount(std::string_view file, std::string_view mount_point) {
    const std::string unwanted = lowered(mount_point);
    std::string out, export_path;
    FileWords words(file);
    while (const auto key = words.word()) {
        if (key->starts_with('#')) {
            copy_comment(out, *key, words);
            continue;
        }
        const auto value = words.word();
        if (!value) break;
        // The first word of a comment is taken for the value it stands in place of.
        if (value->starts_with('#')) copy_comment(out, *value, words);
        if (*key == "export:") {
            export_path = *value;
        } else if (*key != "mount:") {
            put_pair(out, *key, *value);
        } else if (lowered(*value) != unwanted) {
            out.append("\nexport: ").append(export_path);
            put_pair(out, *key, *value);
        }
    }
    return out;
}

uint32_t mount_otab(const char *export_path, const char *mount_point) {
    return tslwnfs_mount_otab(export_path, mount_point, new_sinfo);
}

uint32_t tslwnfs_mount_otab(const char *export_path, const char *mount_point, const ServerBlock &server) {
    const auto settings = mount_settings_of(server, export_path, mount_point);
    if (!are_writable(kMountFunction, settings)) return 1;
    for (const auto &misreading : misreadings_of(settings))
        warn(kMountFunction, misreading);
    for (const auto &doubt : doubts_about(settings))
        warn(kMountFunction, doubt);
    PathBuffer path;
    ConfigurationLock lock;
    if (!find_and_lock_tslnfstab(kMountFunction, path, lock) || is_left_in_backup(kMountFunction, path)) return 1;
    const std::string block = mount_text(settings);
    std::string before;
    if (server.replace || !read_whole_file(path.c_str(), before)) before.clear();
    const uint32_t status = server.replace ? replace_tslnfstab(kMountFunction, path, block, lock)
                                           : append_to_tslnfstab(kMountFunction, path, "\n" + block, lock);
    if (status == 0) {
        warn_of_other_settings(before, server, mount_point);
        warn_of_problems(before, path);
    }
    return status;
}

uint32_t umount_otab(const char *mount_point) {
    uint32_t status = 1;
    PathBuffer resolved;
    sslnrmc(&status, mount_point, resolved);
    if (status != 0) {
        trace_message("umount_otab", Message::path_unresolvable, mount_point);
        return 1;
    }
    return tslwnfs_umount_otab(resolved.c_str());
}

uint32_t tslwnfs_umount_otab(const char *mount_point) {
    PathBuffer path;
    std::string file;
    ConfigurationLock lock;
    if (!find_and_lock_tslnfstab(kUmountFunction, path, lock)) return 1;
    if (!read_whole_file(path.c_str(), file)) {
        trace_message(kUmountFunction, Message::file_unopenable, path.c_str());
        return 1;
    }
    const std::string filtered = std::string(path.view()) + ".bakfile";
    if (is_same_file(path.c_str(), filtered.c_str())) {
        trace_message(kUmountFunction, Message::file_unopenable, filtered.c_str());
        return 1;
    }
    const uint32_t status =
        write_copy(kUmountFunction, std::string(path.view()), filtered, without_mount(file, mount_point));
    if (status == 0) {
        terminal::say("tslnfstab is unchanged: what it is without " + std::string(mount_point) + " stands in " +
                      filtered + ", to be put in its place");
    }
    return status;
}
