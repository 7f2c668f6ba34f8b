// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/config/tslnfstab_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/paths.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

std::string backup_of(const PathBuffer &path) {
    return std::string(path.view()) + ".bak";
}

// Whether something of its own is mounted at a name, which then can neither be deleted nor renamed.
bool is_mount_point(const std::string &path) {
    struct statx status;
    return statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, 0, &status) == 0 &&
           (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

// Brings a change to stable storage, or traces why there was none.
uint32_t settled(const char *function, const PathBuffer &path, Written written, const ConfigurationLock &lock) {
    switch (written) {
        case Written::done:
            lock.settle();
            return 0;
        case Written::not_opened:
            trace_message(function, Message::file_unopenable, path.c_str());
            return 1;
        case Written::not_written:
            trace_not_written(function, path.c_str());
            return 1;
    }
    return 1;
}

}  // namespace

bool translate_file_name(const char *function, const std::string &name, PathBuffer &translated,
                         std::size_t buffer_size) {
    if (platform_translate_name(name, translated) && translated.size() < buffer_size) return true;
    trace_message(function, Message::path_unresolvable, name.c_str());
    return false;
}

bool find_tslnfstab(const char *function, PathBuffer &path, std::size_t buffer_size) {
    return translate_file_name(function, std::string(tsl_home) + "/dbs/tslnfstab", path, buffer_size);
}

bool find_and_lock_tslnfstab(const char *function, PathBuffer &path, ConfigurationLock &lock, std::size_t buffer_size) {
    return find_tslnfstab(function, path, buffer_size) && lock.take(function, path);
}

bool is_left_in_backup(const char *function, const PathBuffer &path) {
    const std::string backup = backup_of(path);
    struct stat status;
    if (may_exist(path.c_str()) || stat(backup.c_str(), &status) != 0 || status.st_size == 0) return false;
    trace_failure(function, "the configuration was left in %s; look at it and rename it to %s, or delete it",
                  backup.c_str(), path.c_str());
    return true;
}

uint32_t append_to_tslnfstab(const char *function, const PathBuffer &path, std::string_view text,
                             const ConfigurationLock &lock, mode_t mode) {
    return settled(function, path, append_to_file(path.c_str(), text, mode), lock);
}

uint32_t replace_tslnfstab(const char *function, const PathBuffer &path, std::string_view contents,
                           const ConfigurationLock &lock, const char *like) {
    return settled(function, path, replace_file(path.c_str(), contents, like), lock);
}

uint32_t write_copy(const char *function, const std::string &from, const std::string &to, std::string_view contents) {
    const bool is_new = !may_exist(to.c_str());
    Stream copy = open_for_writing(to.c_str(), Writing::anew);
    if (!copy || !(is_new ? take_permissions(copy, from.c_str()) : limit_permissions(copy, from.c_str()))) {
        trace_message(function, Message::file_unopenable, to.c_str());
        return 1;
    }
    if (write_and_close(copy, contents)) return 0;
    trace_not_written(function, to.c_str());
    return 1;
}

void print_not_opened(const char *path) {
    const int error = errno;
    print("could not open %s errno %u\n", path, static_cast<unsigned>(error));
    terminal::note_system_failure("The file " + std::string(path) + " could not be opened", error, path);
}

void trace_not_written(const char *function, const char *path) {
    trace_failure(function, "%s could not be written whole (error %d)", path, errno);
}

bool TslnfstabRewrite::begin(UnreadableFile unreadable) {
    if (!find_and_lock_tslnfstab(function_, path_, lock_, kShortNameBuffer)) return false;
    if (!read_whole_file(path_.c_str(), contents_)) {
        if (unreadable == UnreadableFile::is_printed) print_not_opened(path_.c_str());
        return false;
    }
    backup_path_ = backup_of(path_);
    if (open_backup()) return true;
    print_not_opened(backup_path_.c_str());
    return false;
}

bool TslnfstabRewrite::open_backup() {
    if (is_same_file(path_.c_str(), backup_path_.c_str())) {
        errno = EEXIST;
        return false;
    }
    backup_ = open_for_writing(backup_path_.c_str(), Writing::anew);
    // While it is empty: what the file keeps from other users, its backup keeps too.
    return backup_ && take_permissions(backup_, path_.c_str());
}

bool TslnfstabRewrite::keep_old() const {
    const std::string path(path_.view());
    return write_copy(function_, path, path + ".old", contents_) == 0;
}

TslnfstabRewrite::Outcome TslnfstabRewrite::replace_with(std::string_view contents) {
    if (!write_and_close(backup_, contents)) {
        trace_not_written(function_, backup_path_.c_str());
        print_not_opened(backup_path_.c_str());
        return Outcome::not_written;
    }
    if (std::rename(backup_path_.c_str(), path_.c_str()) != 0) {
        tell_not_renamed(errno);
        return Outcome::kept;
    }
    lock_.settle();
    return Outcome::replaced;
}

// What stands in the way is one of the two: the old file, which the system does not let go, or the backup.
void TslnfstabRewrite::tell_not_renamed(int error) const {
    const bool is_guarded = error == EBUSY || error == EPERM || error == EACCES;
    if (is_guarded && !is_mount_point(backup_path_)) return trace_not_deleted(std::string(path_.view()));
    print("Error: unable to rename %s to %s", backup_path_.c_str(), path_.c_str());
}

void TslnfstabRewrite::delete_backup() {
    backup_.reset();
    if (unlink(backup_path_.c_str()) != 0 && errno != ENOENT) trace_not_deleted(backup_path_);
}

void TslnfstabRewrite::trace_not_deleted(const std::string &path) const {
    trace_message(function_, Message::file_not_deleted, path.c_str());
}
