// SPDX-License-Identifier: Apache-2.0
// move: a copy, then the deletion of the source. Nothing is ever renamed.
//
// The source is deleted before the destination gets its size and is committed. So nothing may be deleted before the
// destination's bytes are safe: tdm_delete brings a remote destination's accepted writes to stable storage by itself,
// everything else is seen to here.
#include <string>

#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/deletion.h"
#include "tslwnfs/commands/file_transfer.h"
#include "tslwnfs/commands/files.h"
#include "tslwnfs/frontend/messages.h"
#include "tslwnfs/frontend/options.h"
#include "tslwnfs/frontend/trace.h"
#include "tslwnfs/storage/resolve.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

constexpr TransferRecords kRecords = {.function = "movefile",
                                      .source_resized_level = 1,
                                      .source_resized_wide = false,
                                      .source_reidentified_level = 1,
                                      .created_level = 1,
                                      .committed_level = 1};

// Waits until every write that the library accepted is on stable storage.
bool wait_for_remote_writes() {
    uint32_t count = 0;
    const uint32_t status = tdm_io(ctx, nullptr, 0, nullptr, 0, nullptr, 0, 0, TDM_WAIT_FOREVER, &count);
    if (status != 0) trace_message(kRecords.function, Message::request_incomplete, status);
    return status == 0;
}

// Returns false when the destination may lack something of the source.
bool is_destination_safe(const SourceFile &source, const DestinationFile &destination, const RequestSlots &requests) {
    if (requests.failures() != 0) {
        trace_failure(kRecords.function, "%s is kept: %llu requests failed", source.path.c_str(),
                      static_cast<unsigned long long>(requests.failures()));
        return false;
    }
    if (!destination.local) return !source.local || wait_for_remote_writes();
    if (synchronize_stream(destination.stream.get(), destination.path.c_str())) return true;
    trace_message(kRecords.function, Message::file_unopenable, destination.path.c_str());
    return false;
}

bool delete_local(const PathBuffer &path) {
    return check_deletable(kRecords.function, path) && delete_local_file(kRecords.function, path);
}

bool delete_remote(const PathBuffer &path) {
    uint32_t location = 0;
    const uint32_t status = tdm_delete(ctx, path.c_str(), &location);
    if (status == 0 && location == TDM_LOCATION_REMOTE) return true;
    trace_message(kRecords.function, Message::remote_delete_failed, path.c_str(), status != 0 ? status : location);
    return false;
}

// What a special file gives is no content that could be moved, and what it takes is gone.
bool refuse_special(const PathBuffer &path) {
    trace_failure(kRecords.function, "%s is a special file; nothing is moved", path.c_str());
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
    if (!resize_destination(destination, source.size, kRecords)) return 1;
    if (destination.created) {
        commit_destination(destination, kRecords);
    } else {
        release_file(destination.path, destination.info, kRecords);
    }
    return 0;
}

uint32_t move_file(SourceFile &source, DestinationFile &destination, RequestSlots &requests) {
    if (!open_source(source, kRecords)) return 1;
    if (!takes_file(destination.path)) return 1;
    switch (open_destination(destination, source, WhenRefused::write_local_file, kRecords)) {
        case Opened::refused:
            // Whoever declines gets no clean-up: the source stays as long as it was made.
            source.extended = false;
            return 1;
        case Opened::failed:
            return 1;
        case Opened::ready:
            break;
    }
    if (!transfer_data(source, destination, requests, kRecords)) return 1;
    if (!is_destination_safe(source, destination, requests)) return 1;
    if (!close_streams(source, destination, kRecords)) return 1;
    if (!(source.local ? delete_local(source.path) : delete_remote(source.path))) return 1;
    // Deleted as it was: there is nothing left to cut back.
    source.extended = false;
    return finish(source, destination);
}

}  // namespace

uint32_t movefile(const Operand &source, const Operand &destination) {
    if (!check_operands(source, destination, kRecords)) return 1;
    RequestSlots requests;
    if (!requests.allocate(kRecords.function)) return 1;
    SourceFile from;
    DestinationFile to;
    if (!resolve_operand(kRecords.function, source, from.path)) return 1;
    if (!resolve_operand(kRecords.function, destination, to.path)) return 1;

    if (!is_movable(from.path)) return 1;
    return move_file(from, to, requests);
}
