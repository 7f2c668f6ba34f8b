// SPDX-License-Identifier: Apache-2.0
// wnfsenable and wnfsdisable.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/path_buffer.h"
#include "platform/stream.h"
#include "tslwnfs/client/client.h"
#include "tslwnfs/client/library_copy.h"
#include "tslwnfs/client/library_files.h"
#include "tslwnfs/client/question.h"
#include "tslwnfs/config/private_directory.h"
#include "tslwnfs/config/tslnfstab_file.h"
#include "tslwnfs/config/whole_file.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

constexpr char kEnableFunction[] = "wnfsenable";
constexpr char kDisableFunction[] = "wnfsdisable";

// The enabled client starts with an empty configuration, unless one is there and the answer is not to touch it.
bool empty_configuration(const PathBuffer &path) {
    const std::string question =
        "File " + std::string(path.view()) + " already exist do you want to overwrite ? :( y/n)\n";
    if (may_exist(path.c_str()) && pass_flag == 0 && !ask_once(question)) return true;
    ConfigurationLock lock;
    if (!lock.take(kEnableFunction, path) || is_left_in_backup(kEnableFunction, path)) return false;
    Stream configuration = open_for_writing(path.c_str(), Writing::anew, kOrdinaryFile);
    if (configuration && close_stream(configuration)) return true;
    trace_message(kEnableFunction, Message::file_unopenable, path.c_str());
    return false;
}

bool have_library_directory() {
    PathBuffer directory;
    return translate_file_name(kEnableFunction, std::string(tsl_ohome) + kLibraryDirectory, directory) &&
           have_private_directory(kEnableFunction, directory.c_str());
}

// The shell command that copies the library, and the name of the copy.
struct LibraryCopy {
    std::optional<std::string> command;  // nothing for names that the shell would not take as they stand
    std::string name;
};

std::optional<LibraryCopy> library_copy() {
    PathBuffer source, destination;
    // The blanks are those of the shell command that the names are made for.
    if (!translate_file_name(kEnableFunction, std::string(tsl_ohome) + kLibraryCopy + " ", destination)) return {};
    if (!translate_file_name(kEnableFunction, std::string(tsl_ohome) + kLibrarySource + " ", source)) return {};
    return LibraryCopy{library_copy_command(source.view(), destination.view()),
                       std::string(destination.view().substr(0, destination.size() - 1))};
}

// cp writes where a link leads.
bool is_foreign_link(const std::string &path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode) && !may_follow(path.c_str());
}

uint32_t copy_library(const LibraryCopy &copy) {
    flush_output();
    const bool is_foreign = is_foreign_link(copy.name);
    if (copy.command && !is_foreign && std::system(copy.command->c_str()) == 0) return 0;
    if (!copy.command)
        terminal::note_failure(copy.name + ": the name holds a blank, or what else means something to the shell");
    if (is_foreign) terminal::note_failure(copy.name + ": a link that somebody else made");
    trace_message(kEnableFunction, Message::library_not_copied, copy.name.c_str());
    return 1;
}

// Deletes a file that may be gone already.
bool delete_file(const PathBuffer &path) {
    if (unlink(path.c_str()) == 0 || errno == ENOENT) return true;
    trace_message(kDisableFunction, Message::file_not_deleted, path.c_str());
    return false;
}

bool delete_library() {
    PathBuffer path;
    return translate_file_name(kDisableFunction, std::string(tsl_ohome) + kLibraryCopy, path, kShortNameBuffer) &&
           delete_file(path);
}

bool delete_configuration() {
    PathBuffer path;
    ConfigurationLock lock;
    return find_and_lock_tslnfstab(kDisableFunction, path, lock) && delete_file(path);
}

// The directory is that of tsl_home, while the library is that of tsl_ohome.
bool remove_library_directory() {
    PathBuffer directory;
    if (!translate_file_name(kDisableFunction, std::string(tsl_home) + kLibraryDirectory, directory)) return false;
    struct stat status;
    if (stat(directory.c_str(), &status) != 0) return errno == ENOENT;
    if (!S_ISDIR(status.st_mode)) {
        trace_message(kDisableFunction, Message::not_a_directory, directory.c_str());
        return false;
    }
    if (rmdir(directory.c_str()) == 0) return true;
    trace_message(kDisableFunction, Message::directory_not_removed, directory.c_str());
    return false;
}

}  // namespace

std::optional<std::string> library_copy_command(std::string_view source, std::string_view destination) {
    const std::string arguments = std::string(source).append(destination);
    // What the shell would take for something else than a part of a name, and the "-" that cp would.
    constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+,:@%=~^";
    const auto is_plain = [&](std::string_view word) {
        return word.ends_with(' ') && word.find_first_of("-~") != 0 &&
               word.find_first_not_of(kPlain) == word.size() - 1;
    };
    if (!is_plain(source) || !is_plain(destination)) return std::nullopt;
    return "cp -f " + arguments;
}

uint32_t wnfsenable() {
    PathBuffer configuration;
    if (!find_tslnfstab(kEnableFunction, configuration)) return 1;
    const auto copy = library_copy();
    if (!copy) return 1;
    // A copy that is bound to fail is no reason to empty the configuration.
    if (copy->command && (!empty_configuration(configuration) || !have_library_directory())) return 1;
    return copy_library(*copy);
}

uint32_t wnfsdisable() {
    if (!delete_library()) return 1;
    if (deletetslnfstab != 0 && !delete_configuration()) return 1;
    if (deletetdmdir != 0 && !remove_library_directory()) return 1;
    return 0;
}
