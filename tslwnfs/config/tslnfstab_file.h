// SPDX-License-Identifier: Apache-2.0
// Where tslnfstab stands, and how it is changed: added to at its end, or rewritten through a backup beside it.
//
// There are no locks: two runs that rewrite the file at one time share the backup.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/path_buffer.h"
#include "platform/stream.h"

constexpr std::size_t kShortNameBuffer = 260;  // bytes of a translated name, the terminator included

// Translates a name of an installation's file. False when the result does not fit buffer_size bytes or a PathBuffer;
// that is traced as a record of function.
[[nodiscard]] bool translate_file_name(const char *function, const std::string &name, PathBuffer &translated,
                                       std::size_t buffer_size = PathBuffer::kSize);

// The same for the configuration file in tsl_home.
[[nodiscard]] bool find_tslnfstab(const char *function, PathBuffer &path, std::size_t buffer_size = PathBuffer::kSize);

// Adds a text to the file, which is created when missing. Returns 0, or 1 after a trace record of function.
uint32_t append_to_tslnfstab(const char *function, const PathBuffer &path, std::string_view text);

// Print, and trace, that a file could not be opened or written; both tell errno.
void print_not_opened(const char *path);
void trace_not_written(const char *function, const char *path);

// One rewrite of the file. The whole new file is on stable storage under the backup's name before the old one goes, so
// that at every moment one of the two names leads to a complete configuration.
class TslnfstabRewrite {
  public:
    explicit TslnfstabRewrite(const char *function) : function_(function) {}

    // Reads the file and opens its backup, which empties it. False when one of them is impossible: that is traced or
    // printed, the latter for the file itself only when asked for.
    enum class UnreadableFile { is_printed, is_silent };
    [[nodiscard]] bool begin(UnreadableFile unreadable);

    // The file as it was read.
    const std::string &contents() const { return contents_; }

    // Puts new contents into the file's place. Returns 0, also when the old file could not be deleted or the backup not
    // renamed: the new contents are then under the backup's name. Returns 1 when they could not be written whole; the
    // old file is as it was.
    enum class VanishedFile { is_traced, is_silent };
    uint32_t replace_with(std::string_view contents, VanishedFile vanished);

    // Leave the old file as it is: the backup stays behind empty, or is deleted.
    [[nodiscard]] bool keep_empty_backup() { return close_stream(backup_); }
    void delete_backup();

  private:
    bool open_backup();
    void trace_not_deleted(const std::string &path) const;

    const char *function_;
    PathBuffer path_;
    std::string backup_path_;
    std::string contents_;
    Stream backup_;
};
