// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/file_transfer.h"

#include "platform/stream.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/storage/resolve.h"
#include "tslwnfs/terminal/progress.h"

namespace {

bool write_piece(const DestinationFile &destination, const Pieces &pieces, RequestSlots &requests,
                 const TransferBuffer &buffer, const TransferRecords &records) {
    const std::size_t slot = pieces.slot();
    requests.fill(slot, IoOperation::write, destination.info.file, pieces.offset(), buffer.data(), pieces.count());
    if (!destination.local) {
        writenfsfile(requests, slot, 0);
        return true;
    }
    if (writelocfile(requests, slot, destination.stream.get(), pieces.payload()) == pieces.payload()) return true;
    trace_unwritten(records.function, destination.path.c_str());
    return false;
}

}  // namespace

bool check_operands(const Operand &source, const Operand &destination, const TransferRecords &records) {
    if (source.text() == nullptr) {
        trace_message(records.function, Message::first_operand_missing);
        return false;
    }
    if (destination.text() == nullptr) {
        print_message(Message::second_operand_missing);
        return false;
    }
    return true;
}

bool transfer_data(SourceFile &source, const DestinationFile &destination, UnfinishedDestination &unfinished,
                   RequestSlots &requests, const TransferRecords &records) {
    TransferBuffer buffer;
    if (!buffer.allocate(records.function, TransferBuffer::size_for(static_cast<std::size_t>(bsize)))) return false;
    Pieces pieces(source);
    if (destination.local) write_through(destination.stream.get());
    terminal::Progress progress(source.path.view(), source.size);
    do {
        progress.at(pieces.offset());
        unfinished.at(pieces.offset());
        if (!read_piece(source, pieces, requests, buffer, records)) return false;
        if (pieces.is_beyond_end()) break;
        if (!write_piece(destination, pieces, requests, buffer, records)) return false;
    } while (pieces.advance());
    source.size = pieces.size();
    return true;
}

bool close_streams(SourceFile &source, DestinationFile &destination, const TransferRecords &records) {
    const bool read = close_stream(source.stream);
    return close_destination(destination, records) && read;
}

bool finish_transfer(SourceFile &source, const DestinationFile &destination, uint64_t size,
                     const TransferRecords &records) {
    if (!shrink_source(source, records)) return false;
    if (!destination.local) {
        if (!resize_destination(destination, size, records)) return false;
        if (destination.created) commit_destination(destination, records);
    }
    if (!source.local) release_file(source.path, source.info, records);
    if (!destination.local && !destination.created) release_file(destination.path, destination.info, records);
    return true;
}

std::string_view base_name(std::string_view path) {
    const std::size_t separator = last_separator(path);
    return separator == std::string_view::npos ? path : path.substr(separator + 1);
}
