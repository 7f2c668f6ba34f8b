// SPDX-License-Identifier: Apache-2.0
// move: a copy, then the deletion of the source. Nothing is ever renamed.
//
// The source is deleted before the destination gets its size and is committed. So nothing may be deleted before the
// destination's bytes are safe, and found again under its name; nor when something else than what was copied has the
// source's name by now.
#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <string>

#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/deletion.h"
#include "tslwnfs/commands/file_transfer.h"
#include "tslwnfs/commands/files.h"
#include "tslwnfs/commands/modes.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/identity.h"
#include "tslwnfs/storage/resolve.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

constexpr TransferRecords kMoveRecords = {.function = "movefile",
                                          .source_resized_level = 1,
                                          .source_resized_wide = false,
                                          .source_reidentified_level = 1,
                                          .created_level = 1,
                                          .committed_level = 1};

// Both ends of a move, and what was opened there.
struct Move {
    SourceFile source;
    DestinationFile destination;
    std::optional<FileIdentity> has_source_name;  // a link itself, where that has it
    std::optional<FileIdentity> written;          // the file, in whatever state
};

std::optional<FileIdentity> identity_of(FILE *stream) {
    struct stat status;
    return fstat(fileno(stream), &status) == 0 ? std::optional(identity_of(status)) : std::nullopt;
}

bool open_source_to_move(Move &move) {
    const std::string path(move.source.path.view());
    move.has_source_name = look_at(path, LastLink::keep);
    if (!open_source(move.source, kMoveRecords)) return false;
    const bool link = move.has_source_name && move.has_source_name->link;
    if (move.source.local && !link) move.has_source_name = identity_of(move.source.stream.get());
    // Growing it changed it.
    if (move.source.extended) move.has_source_name = look_at(path, LastLink::keep);
    return true;
}

Opened open_destination_to_move(Move &move) {
    DestinationFile &destination = move.destination;
    const Opened opened = open_destination(destination, move.source, WhenRefused::fail, kMoveRecords);
    if (opened != Opened::ready) return opened;
    move.written = destination.local ? identity_of(destination.stream.get())
                                     : look_at(std::string(destination.path.view()), LastLink::follow);
    return opened;
}

bool keep(const SourceFile &source, const std::string &why) {
    trace_failure(kMoveRecords.function, "%s is kept: %s", source.path.c_str(), why.c_str());
    return false;
}

// Brings the destination to stable storage. What is looked at afterwards is as it is now.
bool settle(const SourceFile &source, const DestinationFile &destination) {
    if (destination.local && !synchronize_stream(destination.stream.get(), destination.path.c_str())) {
        trace_unwritten(kMoveRecords.function, destination.path.c_str());
        return false;
    }
    if (destination.local && source.local) return true;
    const uint32_t status = storage_barrier();
    if (status != 0) trace_message(kMoveRecords.function, Message::request_incomplete, status);
    return status == 0;
}

uint64_t size_written(const SourceFile &source, const DestinationFile &destination) {
    if (destination.local) return source.size;
    return destination.created ? source.total() : std::max(destination.info.size, source.total());
}

bool is_destination_in_place(const Move &move) {
    const std::string path(move.destination.path.view());
    const auto now = look_at(path, LastLink::follow);
    const bool in_place =
        now && move.written && now->is_still(*move.written) && now->size == size_written(move.source, move.destination);
    return in_place || keep(move.source, path + " is not the file that was written");
}

bool is_source_unchanged(const Move &move) {
    const auto now = look_at(std::string(move.source.path.view()), LastLink::keep);
    return (now && now == move.has_source_name) || keep(move.source, "it was changed or replaced while it was moved");
}

// Returns false when the destination may lack something of the source.
bool is_destination_safe(Move &move, const RequestSlots &requests) {
    if (requests.failures() != 0) return keep(move.source, std::to_string(requests.failures()) + " requests failed");
    return settle(move.source, move.destination) && close_destination(move.destination, kMoveRecords) &&
           is_destination_in_place(move) &&
           !is_source_itself(move.source, move.destination, !move.destination.local, kMoveRecords);
}

bool delete_local(const Move &move) {
    const PathBuffer &path = move.source.path;
    return check_deletable(kMoveRecords.function, path) && is_source_unchanged(move) &&
           delete_local_file(kMoveRecords.function, path);
}

bool delete_remote(const Move &move) {
    if (!is_source_unchanged(move)) return false;
    const PathBuffer &path = move.source.path;
    uint32_t location = 0;
    const uint32_t status = tdm_delete(ctx, path.c_str(), &location);
    if (status == 0 && location == TDM_LOCATION_REMOTE) return true;
    trace_message(kMoveRecords.function, Message::remote_delete_failed, path.c_str(), status != 0 ? status : location);
    return false;
}

// What a special file gives is no content that could be moved, and what it takes is gone.
bool refuse_special(const PathBuffer &path) {
    trace_failure(kMoveRecords.function, "%s is a special file; nothing is moved", path.c_str());
    return false;
}

bool is_movable(const PathBuffer &path) {
    AttrResult attributes;
    const Kind kind = kind_of(path, attributes);
    if (leads_to_special(path, kind, attributes)) return refuse_special(path);
    if (kind == Kind::directory) terminal::note_failure(std::string(path.view()) + " is a directory, not a file");
    return kind != Kind::directory;
}

bool takes_file(const PathBuffer &path) {
    AttrResult attributes;
    const Kind kind = destination_kind(path, attributes);
    if (kind == Kind::special) return refuse_special(path);
    if (kind == Kind::directory) terminal::note_failure(std::string(path.view()) + " is a directory");
    return kind != Kind::directory;
}

uint32_t finish(const SourceFile &source, const DestinationFile &destination) {
    if (destination.local) return 0;
    if (!resize_destination(destination, source.size, kMoveRecords)) return 1;
    if (destination.created) {
        commit_destination(destination, kMoveRecords);
    } else {
        release_file(destination.path, destination.info, kMoveRecords);
    }
    return 0;
}

uint32_t move_file(Move &move, RequestSlots &requests) {
    SourceFile &source = move.source;
    const DestinationFile &destination = move.destination;
    if (!open_source_to_move(move)) return 1;
    if (!takes_file(destination.path)) return 1;
    if (!is_ready(open_destination_to_move(move), source)) return 1;
    const auto mode = mode_for_copy(kMoveRecords.function, source);
    if (mode && !prepare_mode(kMoveRecords.function, destination, *mode)) return 1;
    UnfinishedDestination unfinished(destination, source.size);
    if (!transfer_data(source, destination, unfinished, requests, kMoveRecords)) return 1;
    if (!is_destination_safe(move, requests)) return 1;
    unfinished.end();
    if (!(source.local ? delete_local(move) : delete_remote(move))) return 1;
    // Deleted as it was: there is nothing left to cut back.
    source.extended = false;
    if (finish(source, destination) != 0) return 1;
    return !mode || finish_mode(kMoveRecords.function, destination, *mode) ? 0 : 1;
}

}  // namespace

uint32_t movefile(const Operand &source, const Operand &destination) {
    RequestSlots requests;
    Move move;
    if (!begin_transfer(source, destination, move.source.path, move.destination.path, requests, kMoveRecords)) return 1;

    if (!is_movable(move.source.path)) return 1;
    return move_file(move, requests);
}
