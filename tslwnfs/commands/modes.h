// SPDX-License-Identifier: Apache-2.0
// The permission bits of copies, where they follow their sources.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>

#include "platform/path_buffer.h"
#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/destination_file.h"
#include "tslwnfs/commands/source_file.h"

// The permission bits that a copy gets: its source's, those of others less the process's mask. Nothing when copies have
// the mode that any new file has; then nobody is asked.
std::optional<uint32_t> mode_for_copy(const char *function, const SourceFile &source);
std::optional<uint32_t> mode_for_copy(const AttrResult &source_directory);

// Sets permission bits, where the file or directory lies. Traces and returns false when they could not be set.
[[nodiscard]] bool set_mode(const char *function, const PathBuffer &path, uint32_t mode);

// Of a destination that was just opened: a local file gets the mode, a remote one what its owner needs to write it, so
// that nobody else reads meanwhile what he may not.
[[nodiscard]] bool prepare_mode(const char *function, const DestinationFile &destination, uint32_t mode);

// Of a destination that was written.
[[nodiscard]] bool finish_mode(const char *function, const DestinationFile &destination, uint32_t mode);
