// SPDX-License-Identifier: Apache-2.0
// What copy, move and dd do alike.
#pragma once

#include <string_view>

#include "platform/path_buffer.h"
#include "tslwnfs/commands/destination_file.h"
#include "tslwnfs/commands/source_file.h"
#include "tslwnfs/commands/unfinished_destination.h"
#include "tslwnfs/storage/operand.h"
#include "tslwnfs/storage/transfer.h"

// Copies the whole source into the destination; the size of one that was read until its end is known then. Traces and
// returns false for a short read or write of a local file and when there is no memory; failing remote requests end the
// process. Between two files of one server the server copies, where it does; holes stay holes.
[[nodiscard]] bool transfer_data(SourceFile &source, const DestinationFile &destination,
                                 UnfinishedDestination &unfinished, RequestSlots &requests,
                                 const TransferRecords &records);

// Closes the local streams. Returns false when written data was lost.
[[nodiscard]] bool close_streams(SourceFile &source, DestinationFile &destination, const TransferRecords &records);

// What follows the last byte: a grown source gets its size back, a remote destination the given one (bytes); a created
// destination is committed and stays open, other remote files are released. Returns false when a size could not be set.
[[nodiscard]] bool finish_transfer(SourceFile &source, const DestinationFile &destination, uint64_t size,
                                   const TransferRecords &records);

// What copy and move begin with: both operands are there and lead to paths, and there is memory to transfer with.
[[nodiscard]] bool begin_transfer(const Operand &source, const Operand &destination, PathBuffer &from, PathBuffer &to,
                                  RequestSlots &requests, const TransferRecords &records);

// Whether a destination that was opened can be written. Whoever declined gets no clean-up: a source that grew stays as
// long as it was made.
[[nodiscard]] bool is_ready(Opened opened, SourceFile &source);

// The last component of a path, with "\" and "/" as separators.
std::string_view base_name(std::string_view path);
