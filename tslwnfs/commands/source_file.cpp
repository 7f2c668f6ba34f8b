// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/source_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/identify.h"
#include "tslwnfs/storage/optional_operations.h"
#include "tslwnfs/storage/sparse_file.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

// Bytes: large enough that asking for them costs nothing, small enough that the progress that is shown keeps up.
constexpr uint64_t kLargestLoan = uint64_t{1} << 20;

constexpr const char *kResized = "tdm_resize successful:source \n";
constexpr const wchar_t *kResizedWide = L"tdm_resize successful:source \n";
constexpr const char *kReidentified = "tdm_reidentify successful:source \n";

// A pipe has no size, and the files of /proc say 0 whatever they hold.
bool is_regular(FILE *stream) {
    struct stat status;
    return fstat(fileno(stream), &status) == 0 && S_ISREG(status.st_mode);
}

bool open_local(SourceFile &source, const TransferRecords &records) {
    source.local = true;
    source.stream = open_local_source(source.path.c_str(), source.size);
    if (source.stream != nullptr) {
        source.until_end = source.size == 0 || !is_regular(source.stream.get());
        return true;
    }
    trace_message(records.function, Message::file_unopenable, source.path.c_str());
    return false;
}

bool extend_source(SourceFile &source, const TransferRecords &records) {
    uint32_t status = tdm_resize(ctx, source.info.file, source.total());
    if (status != 0) {
        trace_message(records.function, Message::resize_failed, status);
        return false;
    }
    source.extended = true;
    if (records.source_resized_wide) {
        tslwnfswrf_wide(records.source_resized_level, records.function, kResizedWide);
    } else {
        tslwnfswrf(records.source_resized_level, records.function, "%s", kResized);
    }
    status = tdm_reidentify(ctx, source.info.file, 0, &source.info);
    if (status != 0) {
        trace_message(records.function, Message::reidentify_failed, status);
        return false;
    }
    tslwnfswrf(records.source_reidentified_level, records.function, "%s", kReidentified);
    return true;
}

}  // namespace

uint64_t padding_for(uint64_t size) {
    if (pbsz == 0) return 0;
    const uint64_t beyond = size % static_cast<uint64_t>(std::max(bsize, 1)) % pbsz;
    const uint64_t padding = beyond == 0 ? 0 : pbsz - beyond;
    return padding > UINT64_MAX - size ? 0 : padding;
}

bool is_stream_allowed(const PathBuffer &path, Kind kind, const AttrResult &attributes, const Operand &operand,
                       const TransferRecords &records) {
    if (!leads_to_special(path, kind, attributes)) return true;
    if (attributes.local && operand.is_typed()) return true;
    trace_failure(records.function, "%s is a special file and is passed over", path.c_str());
    return false;
}

bool is_readable_source(const PathBuffer &path, const Operand &operand, const TransferRecords &records) {
    AttrResult attributes;
    const Kind kind = kind_of(path, attributes);
    if (kind != Kind::directory) return is_stream_allowed(path, kind, attributes, operand, records);
    terminal::note_failure(std::string(path.view()) + " is a directory, not a file");
    return false;
}

SourceFile::~SourceFile() {
    if (extended) tdm_resize(ctx, info.file, size);
}

bool open_source(SourceFile &source, const TransferRecords &records) {
    switch (identify_existing(records.function, source.path, source.info)) {
        case FileKind::failed:
            return false;
        case FileKind::local:
            if (!open_local(source, records)) return false;
            break;
        case FileKind::remote:
            source.size = source.info.size;
            break;
    }
    source.padding = padding_for(source.size);
    return source.local || source.padding == 0 || extend_source(source, records);
}

bool shrink_source(SourceFile &source, const TransferRecords &records) {
    if (!source.extended) return true;
    source.extended = false;
    const uint32_t status = tdm_resize(ctx, source.info.file, source.size);
    if (status != 0) {
        trace_message(records.function, Message::resize_failed, status);
        return false;
    }
    tslwnfswrf(1, records.function, "%s", kResized);
    return true;
}

std::vector<std::byte> content_at_once(const SourceFile &source) {
    constexpr uint64_t kMost = uint64_t{64} << 10;  // bytes: what the library puts into one question
    if (!source.local || source.until_end || source.size > kMost || source.padding != 0) return {};
    FILE *const stream = source.stream.get();
    if (takes_less_than_its_size(stream)) return {};
    std::vector<std::byte> content(source.size);
    const ssize_t length = pread(fileno(stream), content.data(), content.size(), 0);
    if (length != static_cast<ssize_t>(content.size())) content.clear();
    return content;
}

void release_file(const PathBuffer &path, const TdmFileInfo &info, const TransferRecords &records) {
    const uint32_t status = tdm_unidentify(ctx, info.file);
    if (status != 0) trace_message(records.function, Message::unidentify_failed, path.c_str(), status);
}

bool read_piece(const SourceFile &source, Pieces &pieces, RequestSlots &requests, const TransferBuffer &buffer,
                const TransferRecords &records) {
    const std::size_t slot = pieces.slot();
    requests.fill(slot, IoOperation::read, source.info.file, pieces.offset(), buffer.data(), pieces.count());
    if (!source.local) {
        readnfsfile(requests, slot, kNoneCompleted);
        return true;
    }
    const std::size_t length = readlocfile(requests, slot, source.stream.get(), pieces.count());
    const bool ended = !pieces.end_is_known() && length < pieces.count() && std::ferror(source.stream.get()) == 0;
    if (ended) pieces.end_at(pieces.offset() + length);
    if (length < pieces.payload()) {
        trace_unread(records.function, source.path.c_str());
        return false;
    }
    // What lies behind the file's end goes to the server with the padded piece: it must not be stale memory.
    const auto unused = buffer.bytes().first(pieces.count()).subspan(length);
    std::fill(unused.begin(), unused.end(), std::byte{0});
    return true;
}

bool get_piece(const SourceFile &source, Pieces &pieces, RequestSlots &requests, const TransferBuffer &buffer,
               const TransferRecords &records, std::span<const std::byte> &piece) {
    const uint32_t most = source.local ? 0 : pieces.lendable();
    piece = most == 0 ? std::span<const std::byte>{} : lend_bytes(source.info.file, pieces.offset(), most);
    pieces.lend(piece.size());
    if (!piece.empty()) return true;
    piece = buffer.bytes();
    return read_piece(source, pieces, requests, buffer, records);
}

uint32_t Pieces::count() const {
    if (lent_ != 0) return lent_;
    if (until_end_) return static_cast<uint32_t>(bsize);
    return static_cast<uint32_t>(
        std::min<uint64_t>(static_cast<uint64_t>(bsize), std::min(total_, content_end_) - offset_));
}

uint32_t Pieces::payload() const {
    if (until_end_) return count();
    return static_cast<uint32_t>(std::min<uint64_t>(count(), size_ - std::min(size_, offset_)));
}

// What is padded is read with its padding, a whole piece.
uint32_t Pieces::lendable() const {
    const uint64_t unpadded = size_ == total_ ? size_ : size_ - size_ % static_cast<uint64_t>(bsize);
    const uint64_t end = std::min(unpadded, content_end_);
    return until_end_ || end <= offset_ ? 0 : static_cast<uint32_t>(std::min(kLargestLoan, end - offset_));
}

bool Pieces::advance() {
    offset_ += count();
    lent_ = 0;
    slot_ = (slot_ + 1) % RequestSlots::kRound;
    return until_end_ || offset_ < total_;
}

void Pieces::end_at(uint64_t size) {
    size_ = size;
    total_ = size + padding_for(size);
    until_end_ = false;
}
