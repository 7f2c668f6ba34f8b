// SPDX-License-Identifier: Apache-2.0
// The destination side of copy, move and dd: an existing remote file written in place, a new remote file, or a local
// one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "include/tdm.h"
#include "platform/path_buffer.h"
#include "tslwnfs/commands/source_file.h"
#include "tslwnfs/storage/local_file.h"

struct DestinationFile {
    PathBuffer path;
    bool local = false;
    Stream stream;          // of a local file, while it is open
    TdmFileInfo info = {};  // of a remote file
    bool created = false;   // a remote file made by this command, hence to be committed
    bool refused = false;   // by the server that would have had to create it
    // What a new remote file was made with, from its start on.
    std::vector<std::byte> content;
};

enum class Opened : uint8_t { ready, failed, refused };

// What becomes of a path that a server is to have when the server does not take it.
enum class WhenRefused : uint8_t { write_local_file, fail };

// Opens destination.path, resolved: an existing remote file as it is, else a new one of source.total() bytes, else,
// when it cannot be created on a server, a local file, if that may be. Existing files are announced and, with -i, asked
// about. A destination that is the source itself is refused before anything is opened for writing.
[[nodiscard]] Opened open_destination(DestinationFile &destination, const SourceFile &source, WhenRefused when_refused,
                                      const TransferRecords &records);

// The steps of open_destination():

// Writing a file onto itself would empty it first. Returns true, with a record, when both are one file; exists_remotely
// tells that the destination was identified.
[[nodiscard]] bool is_source_itself(const SourceFile &source, const DestinationFile &destination, bool exists_remotely,
                                    const TransferRecords &records);

// Makes the remote file, of size bytes. A failure is traced and means that the destination is a local file, if it may
// be one.
[[nodiscard]] bool create_destination(DestinationFile &destination, uint64_t size, const TransferRecords &records);

[[nodiscard]] Opened open_local_destination(DestinationFile &destination, const TransferRecords &records);

// The announcement of an existing file and the question. Returns false when the user declined.
[[nodiscard]] bool confirm_overwrite(const PathBuffer &path);

// Closes the stream of a local destination. Traces and returns false when written data was lost.
[[nodiscard]] bool close_destination(DestinationFile &destination, const TransferRecords &records);

// Gives a remote destination its size, with a level-1 record.
[[nodiscard]] bool resize_destination(const DestinationFile &destination, uint64_t size,
                                      const TransferRecords &records);

// Makes a created remote destination permanent; a failure is traced and changes nothing else.
void commit_destination(const DestinationFile &destination, const TransferRecords &records);
