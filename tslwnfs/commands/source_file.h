// SPDX-License-Identifier: Apache-2.0
// The source side of cat, copy, move and dd: a file opened wherever it lies, read piece by piece.
//
// The storage layer wants whole blocks. So a remote source whose size is not a multiple of the block size is grown on
// the server while it is read, and cut back afterwards. A local file is never resized.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "include/tdm.h"
#include "platform/path_buffer.h"
#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/storage/local_file.h"
#include "tslwnfs/storage/transfer.h"

// How a command writes the trace records of a source that was grown, and of a destination that was created. The
// differences between the commands are part of what readers of traces rely on.
struct TransferRecords {
    const char *function;  // the name the records carry
    uint32_t source_resized_level;
    bool source_resized_wide;  // through the wide-string conversion
    uint32_t source_reidentified_level;
    uint32_t created_level;
    uint32_t committed_level;
};

// The bytes that round size up to whole blocks; 0 when it is whole already.
uint64_t padding_for(uint64_t size);

struct SourceFile {
    SourceFile() = default;
    SourceFile(const SourceFile &) = delete;
    SourceFile &operator=(const SourceFile &) = delete;
    // Cuts a source that is still grown back to its size: a failed command must not leave it longer than it was.
    ~SourceFile();

    uint64_t total() const { return size + padding; }

    PathBuffer path;
    bool local = false;
    Stream stream;           // of a local file, while it is open
    TdmFileInfo info = {};   // of a remote file
    uint64_t size = 0;       // bytes
    uint64_t padding = 0;    // bytes
    bool until_end = false;  // a local one whose size tells nothing: it is read until its end
    bool extended = false;   // longer on the server than size
};

// Whether a command may read what a path leads to: no directory, and a special file (a pipe, a socket, a device) only
// where it lies on this host and was named by itself. Otherwise says why. path is operand, resolved.
[[nodiscard]] bool is_readable_source(const PathBuffer &path, const Operand &operand, const TransferRecords &records);

// The same where kind and attributes of a path that is no directory are known.
[[nodiscard]] bool is_stream_allowed(const PathBuffer &path, Kind kind, const AttrResult &attributes,
                                     const Operand &operand, const TransferRecords &records);

// Opens source.path, resolved, and grows it when it is remote and needs padding. Traces what failed.
[[nodiscard]] bool open_source(SourceFile &source, const TransferRecords &records);

// Cuts a grown source back, with a level-1 record. Does nothing for another one.
[[nodiscard]] bool shrink_source(SourceFile &source, const TransferRecords &records);

// All that a small local file holds, so that its copy can be made with it: the transfer is still to read it, and writes
// what is different by then. Nothing for a file that has holes or an end that is not known, or that cannot be read.
std::vector<std::byte> content_at_once(const SourceFile &source);

// Closes a remote file; a failure is traced and changes nothing else.
void release_file(const PathBuffer &path, const TdmFileInfo &info, const TransferRecords &records);

// The pieces of a transfer: bsize bytes each, the last one what remains of the padded size. There is always a first
// one, empty for an empty file.
class Pieces {
  public:
    explicit Pieces(const SourceFile &source)
        : size_(source.size), total_(source.total()), until_end_(source.until_end) {}

    std::size_t slot() const { return slot_; }
    uint64_t offset() const { return offset_; }
    uint32_t count() const;    // bytes to ask for
    uint32_t payload() const;  // bytes of these that belong to the file, not to its padding
    [[nodiscard]] bool advance();

    // The library has the bytes of this piece already, so many instead of bsize: below the end of the content, and none
    // of them padding.
    void lend(std::size_t bytes) { lent_ = static_cast<uint32_t>(bytes); }
    uint32_t lendable() const;  // the most that may be lent; 0 for none

    // From now on the pieces are those of what the file holds, told as the transfer comes to it. A padded file, or one
    // whose end is not known, is transferred whole all the same.
    void follow_content() { content_end_ = !until_end_ && total_ > 0 && total_ == size_ ? 0 : UINT64_MAX; }
    // The next content is to be told here.
    bool is_between_content() const { return offset_ == content_end_; }
    // The next piece begins at begin, and none goes beyond end.
    void enter_content(uint64_t begin, uint64_t end) { offset_ = begin, content_end_ = end; }
    // So many bytes were transferred otherwise.
    void pass(uint64_t bytes) { offset_ += bytes; }
    uint64_t content_end() const { return content_end_; }

    // While the end is not known every piece is a whole one. It is found by a read that gives less.
    bool end_is_known() const { return !until_end_; }
    void end_at(uint64_t size);
    uint64_t size() const { return size_; }  // bytes of the file, once the end is known
    // The end was found behind a whole piece: there is nothing more to write.
    bool is_beyond_end() const { return offset_ != 0 && count() == 0; }

  private:
    uint64_t size_;
    uint64_t total_;
    bool until_end_;
    uint64_t content_end_ = UINT64_MAX;
    uint64_t offset_ = 0;
    std::size_t slot_ = 0;
    uint32_t lent_ = 0;  // bytes of this piece; 0 when it is read
};

// Reads one piece into buffer; what a local file does not fill of it is zeroed. Traces and returns false when a local
// file ends too early or cannot be read.
[[nodiscard]] bool read_piece(const SourceFile &source, Pieces &pieces, RequestSlots &requests,
                              const TransferBuffer &buffer, const TransferRecords &records);

// Gives one piece where it lies: in the storage library's memory, until the library is called again and as large as it
// is there, or, what is not to be had so, in buffer, as read_piece() does.
[[nodiscard]] bool get_piece(const SourceFile &source, Pieces &pieces, RequestSlots &requests,
                             const TransferBuffer &buffer, const TransferRecords &records,
                             std::span<const std::byte> &piece);
