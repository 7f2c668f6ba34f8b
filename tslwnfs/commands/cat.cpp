// SPDX-License-Identifier: Apache-2.0
// cat: the content of one file to the command's output.
#include <cerrno>
#include <cstddef>
#include <optional>
#include <span>

#include "platform/stream.h"
#include "tslwnfs/commands/files.h"
#include "tslwnfs/commands/source_file.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/storage/resolve.h"
#include "tslwnfs/storage/transfer.h"
#include "tslwnfs/terminal/progress.h"
#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"

namespace {

constexpr TransferRecords kCatRecords = {.function = "catfile",
                                         .source_resized_level = 1,
                                         .source_resized_wide = false,
                                         .source_reidentified_level = 1,
                                         .created_level = 0,
                                         .committed_level = 0};

bool print_content(const SourceFile &source, RequestSlots &requests) {
    TransferBuffer buffer;
    if (!buffer.allocate(kCatRecords.function, TransferBuffer::size_for(static_cast<std::size_t>(bsize)))) return false;
    Pieces pieces(source);
    std::optional<terminal::Progress> progress;
    if (terminal::leads_to_file(output_stream())) progress.emplace(source.path.view(), source.size);
    do {
        if (progress) progress->at(pieces.offset());
        std::span<const std::byte> piece;
        if (!get_piece(source, pieces, requests, buffer, kCatRecords, piece)) return false;
        if (pieces.is_beyond_end()) break;
        // Not sooner: a remark without a line feed may still be in the buffer, and the reason of a failure must not end
        // up behind it.
        if (pieces.offset() == 0) write_through(output_stream());
        if (!print_bytes(piece.data(), pieces.payload())) {
            terminal::note_system_failure("The content could not be written", errno);
            trace_message(kCatRecords.function, Message::file_unopenable, source.path.c_str());
            return false;
        }
    } while (pieces.advance());
    return true;
}

}  // namespace

uint32_t catfile(const Operand &path) {
    if (path.text() == nullptr) {
        trace_message(kCatRecords.function, Message::first_operand_missing);
        return 1;
    }
    RequestSlots requests;
    if (!requests.allocate(kCatRecords.function)) return 1;
    SourceFile source;
    if (!resolve_operand(kCatRecords.function, path, source.path)) return 1;
    if (!is_readable_source(source.path, path, kCatRecords)) return 1;

    if (!open_source(source, kCatRecords) || !print_content(source, requests)) return 1;
    if (!shrink_source(source, kCatRecords)) return 1;
    if (!source.local) release_file(source.path, source.info, kCatRecords);
    return 0;
}
