// SPDX-License-Identifier: Apache-2.0
// Where tslnfstab stands, and how it is changed: added to at its end, or rewritten through a backup beside it. Whoever
// changes it holds a ConfigurationLock from reading to the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/path_buffer.h"
#include "platform/stream.h"
#include "tslwnfs/config/configuration_lock.h"
#include "tslwnfs/config/whole_file.h"

constexpr std::size_t kShortNameBuffer = 260;  // bytes of a translated name, the terminator included

// Translates a name of an installation's file. False when the result does not fit buffer_size bytes or a PathBuffer;
// that is traced as a record of function.
[[nodiscard]] bool translate_file_name(const char *function, const std::string &name, PathBuffer &translated,
                                       std::size_t buffer_size = PathBuffer::kSize);

// The same for the configuration file in tsl_home.
[[nodiscard]] bool find_tslnfstab(const char *function, PathBuffer &path, std::size_t buffer_size = PathBuffer::kSize);

// Finds the configuration file and takes the lock on it.
[[nodiscard]] bool find_and_lock_tslnfstab(const char *function, PathBuffer &path, ConfigurationLock &lock,
                                           std::size_t buffer_size = PathBuffer::kSize);

// True when the file is missing and a backup holds what it was to become: a change was cut off in the middle. A new
// file would hide that, and the next change would empty the backup. Traced as a record of function.
[[nodiscard]] bool is_left_in_backup(const char *function, const PathBuffer &path);

// Adds a text to the file, which is created with a mode when missing. Returns 0, or 1 after a trace record of function.
uint32_t append_to_tslnfstab(const char *function, const PathBuffer &path, std::string_view text,
                             const ConfigurationLock &lock, mode_t mode = kOrdinaryFile);

// Puts a whole new configuration into the file's place (see replace_file), under the permissions of the file like when
// there was none. Returns 0, or 1 after a trace record of function.
uint32_t replace_tslnfstab(const char *function, const PathBuffer &path, std::string_view contents,
                           const ConfigurationLock &lock, const char *like = nullptr);

// Writes a copy of the configuration beside it, which is open to nobody to whom the file from is not. Returns 0, or 1
// after a trace record of function.
uint32_t write_copy(const char *function, const std::string &from, const std::string &to, std::string_view contents);

// Print, and trace, that a file could not be opened or written; both tell errno.
void print_not_opened(const char *path);
void trace_not_written(const char *function, const char *path);

// One rewrite of the file. The whole new file is on stable storage under the backup's name before it takes the place of
// the old one, in one step: whoever looks finds a complete configuration at every moment.
class TslnfstabRewrite {
  public:
    // The lock is taken by begin(), or was before; it must outlive this.
    TslnfstabRewrite(const char *function, ConfigurationLock &lock) : function_(function), lock_(lock) {}

    // Reads the file and opens its backup, which empties it. False when one of them is impossible: that is traced or
    // printed, the latter for the file itself only when asked for.
    enum class UnreadableFile { is_printed, is_silent };
    [[nodiscard]] bool begin(UnreadableFile unreadable);

    // The file as it was read.
    const std::string &contents() const { return contents_; }

    // Keeps what was read beside the file, as tslnfstab.old. False after a trace record.
    [[nodiscard]] bool keep_old() const;

    // Puts new contents into the file's place; otherwise the old file is as it was. kept: the new contents are whole,
    // but only under the backup's name, because the old file could not be removed or the backup not be renamed.
    enum class Outcome { replaced, kept, not_written };  // the reason was told
    Outcome replace_with(std::string_view contents);

    // Leave the old file as it is: the backup stays behind empty, or is deleted.
    [[nodiscard]] bool keep_empty_backup() { return close_stream(backup_); }
    void delete_backup();

  private:
    bool open_backup();
    void tell_not_renamed(int error) const;
    void trace_not_deleted(const std::string &path) const;

    const char *function_;
    ConfigurationLock &lock_;
    PathBuffer path_;
    std::string backup_path_;
    std::string contents_;
    Stream backup_;
};
