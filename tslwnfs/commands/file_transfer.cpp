// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/file_transfer.h"

#include "platform/stream.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/storage/resolve.h"

namespace {

// The message about the second one is printed, that about the first one traced.
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

}  // namespace

bool begin_transfer(const Operand &source, const Operand &destination, PathBuffer &from, PathBuffer &to,
                    RequestSlots &requests, const TransferRecords &records) {
    return check_operands(source, destination, records) && requests.allocate(records.function) &&
           resolve_operand(records.function, source, from) && resolve_operand(records.function, destination, to);
}

bool is_ready(Opened opened, SourceFile &source) {
    if (opened == Opened::refused) source.extended = false;
    return opened == Opened::ready;
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
