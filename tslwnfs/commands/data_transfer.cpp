// SPDX-License-Identifier: Apache-2.0
// The content of a file on its way: what the server copies by itself, what is a hole, and the rest piece by piece.
#include <algorithm>
#include <cstddef>
#include <span>

#include "platform/stream.h"
#include "tslwnfs/commands/file_transfer.h"
#include "tslwnfs/commands/source_content.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/storage/optional_operations.h"
#include "tslwnfs/storage/sparse_file.h"

namespace {

class Transfer {
  public:
    Transfer(SourceFile &source, const DestinationFile &destination, UnfinishedDestination &unfinished,
             RequestSlots &requests, const TransferRecords &records)
        : source_(source),
          destination_(destination),
          unfinished_(unfinished),
          requests_(requests),
          records_(records),
          pieces_(source),
          content_(source, destination) {}

    bool run();

  private:
    bool go_on();
    bool find_content();
    void copy_remotely();
    bool next_piece();
    bool write_piece();
    bool is_written() const;
    bool write_local();
    bool unwritten() const;

    SourceFile &source_;
    const DestinationFile &destination_;
    UnfinishedDestination &unfinished_;
    RequestSlots &requests_;
    const TransferRecords &records_;
    Pieces pieces_;
    SourceContent content_;
    TransferBuffer buffer_;
    std::span<const std::byte> piece_;
    bool server_copies_ = !source_.local && !destination_.local;  // as far as is known
    bool sparse_ = false;                                         // a hole was left in a local file
    bool ends_in_hole_ = false;
};

bool Transfer::run() {
    if (!buffer_.allocate(records_.function, TransferBuffer::size_for(static_cast<std::size_t>(bsize)))) return false;
    if (destination_.local) write_through(destination_.stream.get());
    pieces_.follow_content();
    unfinished_.show_progress(source_.path.view(), 0, source_.size);
    if (!go_on()) return false;
    source_.size = pieces_.size();
    unfinished_.wait_for_server(source_.size);
    if (sparse_) return end_sparse_file(destination_.stream.get(), source_.size) || unwritten();
    return !ends_in_hole_ || resize_destination(destination_, source_.size, records_);
}

bool Transfer::go_on() {
    do {
        if (!find_content()) return unwritten();
        if (pieces_.is_between_content()) break;
        unfinished_.at(pieces_.offset());
        if (!next_piece()) return false;
        if (pieces_.is_beyond_end()) break;
        if (!write_piece()) return unwritten();
    } while (pieces_.advance());
    return true;
}

// Goes on to what is to be read and written next; when nothing is, it stays between contents.
bool Transfer::find_content() {
    while (pieces_.is_between_content()) {
        const ContentRange next = content_.next(pieces_.offset());
        const bool is_hole = next.begin != pieces_.offset();
        sparse_ = sparse_ || (is_hole && destination_.local);
        if (is_hole && destination_.local && !leave_hole(destination_.stream.get(), next.begin)) return false;
        pieces_.enter_content(next.begin, next.end);
        ends_in_hole_ = next.begin == next.end && is_hole;
        if (next.begin == next.end) return true;
        copy_remotely();
        if (pieces_.offset() == source_.size) return true;
    }
    return true;
}

// What the server declines to copy is read and written from there on.
void Transfer::copy_remotely() {
    while (server_copies_ && !pieces_.is_between_content()) {
        const ServerCopyRange range{source_.info.file, pieces_.offset(), destination_.info.file, pieces_.offset(),
                                    pieces_.content_end() - pieces_.offset()};
        uint64_t copied = 0;
        server_copies_ = copy_by_server(range, copied) == 0 && copied > 0 && copied <= range.count;
        if (!server_copies_) return;
        pieces_.pass(copied);
        unfinished_.at(pieces_.offset());
    }
}

// What goes to a server begins with a page and ends with a block, which the library's memory need not.
bool Transfer::next_piece() {
    if (destination_.local) return get_piece(source_, pieces_, requests_, buffer_, records_, piece_);
    piece_ = buffer_.bytes();
    return read_piece(source_, pieces_, requests_, buffer_, records_);
}

// What the destination was made with need not be written, if the source still holds it.
bool Transfer::is_written() const {
    const auto bytes = piece_.first(pieces_.payload());
    const auto &content = destination_.content;
    if (bytes.empty() || pieces_.offset() >= content.size()) return false;
    const auto made_with = std::span(content).subspan(pieces_.offset());
    return made_with.size() >= bytes.size() && std::equal(bytes.begin(), bytes.end(), made_with.begin());
}

bool Transfer::write_piece() {
    if (is_written()) return true;
    const std::size_t slot = pieces_.slot();
    requests_.fill(slot, IoOperation::write, destination_.info.file, pieces_.offset(),
                   const_cast<std::byte *>(piece_.data()), pieces_.count());  // only read
    if (destination_.local) return write_local();
    writenfsfile(requests_, slot, kNoneCompleted);
    return true;
}

bool Transfer::write_local() {
    FILE *const stream = destination_.stream.get();
    const std::size_t payload = pieces_.payload();
    if (!content_.zeros_are_holes()) return writelocfile(requests_, pieces_.slot(), stream, payload) == payload;
    sparse_ = true;
    return write_without_zeros(stream, piece_.first(payload));
}

bool Transfer::unwritten() const {
    trace_unwritten(records_.function, destination_.path.c_str());
    return false;
}

}  // namespace

bool transfer_data(SourceFile &source, const DestinationFile &destination, UnfinishedDestination &unfinished,
                   RequestSlots &requests, const TransferRecords &records) {
    return Transfer(source, destination, unfinished, requests, records).run();
}
