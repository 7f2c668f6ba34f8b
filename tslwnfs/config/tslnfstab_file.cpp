// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/config/tslnfstab_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/paths.h"
#include "tslwnfs/config/whole_file.h"
#include "tslwnfs/frontend/messages.h"
#include "tslwnfs/frontend/options.h"
#include "tslwnfs/frontend/output.h"
#include "tslwnfs/frontend/trace.h"

bool translate_file_name(const char *function, const std::string &name, PathBuffer &translated,
                         std::size_t buffer_size) {
    if (platform_translate_name(name, translated) && translated.size() < buffer_size) return true;
    trace_message(function, Message::path_unresolvable, name.c_str());
    return false;
}

bool find_tslnfstab(const char *function, PathBuffer &path, std::size_t buffer_size) {
    return translate_file_name(function, std::string(tsl_home) + "/dbs/tslnfstab", path, buffer_size);
}

uint32_t append_to_tslnfstab(const char *function, const PathBuffer &path, std::string_view text) {
    switch (append_to_file(path.c_str(), text)) {
        case Append::done:
            return 0;
        case Append::not_opened:
            trace_message(function, Message::file_unopenable, path.c_str());
            return 1;
        case Append::not_written:
            trace_not_written(function, path.c_str());
            return 1;
    }
    return 1;
}

void print_not_opened(const char *path) {
    print("could not open %s errno %u\n", path, static_cast<unsigned>(errno));
}

void trace_not_written(const char *function, const char *path) {
    trace_failure(function, "%s could not be written whole (error %d)", path, errno);
}

bool TslnfstabRewrite::begin(UnreadableFile unreadable) {
    if (!find_tslnfstab(function_, path_, kShortNameBuffer)) return false;
    if (!read_whole_file(path_.c_str(), contents_)) {
        if (unreadable == UnreadableFile::is_printed) print_not_opened(path_.c_str());
        return false;
    }
    backup_path_ = std::string(path_.view()) + ".bak";
    if (open_backup()) return true;
    print_not_opened(backup_path_.c_str());
    return false;
}

bool TslnfstabRewrite::open_backup() {
    if (is_same_file(path_.c_str(), backup_path_.c_str())) {
        errno = EEXIST;
        return false;
    }
    backup_ = open_stream(backup_path_.c_str(), "w");
    if (!backup_) return false;
    // While it is empty: what the file keeps from other users, its backup keeps too.
    take_permissions(backup_, path_.c_str());
    return true;
}

uint32_t TslnfstabRewrite::replace_with(std::string_view contents, VanishedFile vanished) {
    if (!write_and_close(backup_, contents)) {
        trace_not_written(function_, backup_path_.c_str());
        print_not_opened(backup_path_.c_str());
        return 1;
    }
    // From here to the rename only the backup holds the configuration: nothing may come between the two calls.
    if (unlink(path_.c_str()) != 0) {
        const bool is_silent = errno == ENOENT && vanished == VanishedFile::is_silent;
        if (!is_silent) trace_not_deleted(std::string(path_.view()));
        return 0;
    }
    if (std::rename(backup_path_.c_str(), path_.c_str()) != 0) {
        print("Error: unable to rename %s to %s", backup_path_.c_str(), path_.c_str());
    }
    return 0;
}

void TslnfstabRewrite::delete_backup() {
    backup_.reset();
    if (unlink(backup_path_.c_str()) != 0 && errno != ENOENT) trace_not_deleted(backup_path_);
}

void TslnfstabRewrite::trace_not_deleted(const std::string &path) const {
    trace_message(function_, Message::file_not_deleted, path.c_str());
}
