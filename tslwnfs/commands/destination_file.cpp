// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/destination_file.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <span>
#include <string>

#include "tslwnfs/options/options.h"
#include "tslwnfs/options/strict.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/identify.h"
#include "tslwnfs/storage/identity.h"
#include "tslwnfs/storage/optional_operations.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

// dd knows no question: its bits mean other things.
bool asks_before_overwriting() {
    return (commandtype == kCopy || commandtype == kMove) && has_option(kFileInteractive);
}

bool is_stream_of(FILE *stream, const struct stat &file) {
    struct stat status;
    return fstat(fileno(stream), &status) == 0 && status.st_dev == file.st_dev && status.st_ino == file.st_ino;
}

bool is_same_file(const SourceFile &source, const DestinationFile &destination, bool exists_remotely) {
    if (source.path.view() == destination.path.view()) return true;
    if (!exists_remotely) {
        struct stat there;
        if (stat(destination.path.c_str(), &there) != 0) return false;
        if (source.local) return is_stream_of(source.stream.get(), there);
    } else if (!source.local && source.info.file == destination.info.file) {
        return true;
    }
    return is_one_object(std::string(source.path.view()), std::string(destination.path.view()));
}

// A copy that gets its source's permissions has them before it holds anything.
bool may_be_made_with_content() {
    return can_create_with_content() && !is_strict(Strict::modes);
}

// With its content, where there is some to begin with and the library can; without it, otherwise.
uint32_t make_file(DestinationFile &destination, uint64_t size, std::span<char> name) {
    const char *const path = destination.path.c_str();
    if (!destination.content.empty()) {
        const uint32_t status = create_with_content(path, destination.content, name, destination.info);
        if (status != 0) destination.content.clear();
        if (status != ENOTSUP) return status;
    }
    return tdm_create(ctx, path, size, 2, 2, name.data(), static_cast<uint32_t>(name.size()), &destination.info);
}

}  // namespace

bool is_source_itself(const SourceFile &source, const DestinationFile &destination, bool exists_remotely,
                      const TransferRecords &records) {
    if (!is_same_file(source, destination, exists_remotely)) return false;
    trace_failure(records.function, "%s and %s are the same file", source.path.c_str(), destination.path.c_str());
    return true;
}

bool create_destination(DestinationFile &destination, uint64_t size, const TransferRecords &records) {
    std::array<char, TDM_TEXT_SIZE> name = {};
    const uint32_t status = make_file(destination, size, name);
    name.back() = '\0';
    if (status != 0) {
        terminal::note_library_text(status, name.data());
        trace_message(records.function, Message::create_failed, destination.path.c_str(), status);
        destination.refused = status != ENODEV;
        return false;
    }
    tslwnfswrf(records.created_level, records.function, "tdm_create of file %s successful \n", name.data());
    destination.created = true;
    return true;
}

Opened open_local_destination(DestinationFile &destination, const TransferRecords &records) {
    if (destination.refused && is_strict(Strict::location)) return Opened::failed;
    destination.local = true;
    const bool exists = is_readable(destination.path.c_str());
    if (exists && !confirm_overwrite(destination.path)) return Opened::refused;
    destination.stream = create_local_file(destination.path.c_str());
    if (destination.stream == nullptr) {
        trace_message(records.function, Message::file_unopenable, destination.path.c_str());
        return Opened::failed;
    }
    if (destination.refused) {
        terminal::tell_consequence(
            "TSLWNFS_STRICT=location would keep it from the local disk; it goes to the local disk instead, under the "
            "mount point");
    }
    return Opened::ready;
}

bool confirm_overwrite(const PathBuffer &path) {
    print_message(Message::file_exists, path.c_str());
    if (asks_before_overwriting() && ask_yes_no("overwrite %s? y/n : ", path.c_str()) != Answer::yes) return false;
    print("will overwrite...\n");
    return true;
}

Opened open_destination(DestinationFile &destination, const SourceFile &source, WhenRefused when_refused,
                        const TransferRecords &records) {
    const Identification found = identify(destination.path, destination.info);
    const bool exists = found.status == 0 && found.code == TDM_IDENTIFIED_REMOTE;
    if (!exists) {
        trace_message(records.function, Message::identify_returned, destination.path.c_str(), found.code);
    }
    if (is_source_itself(source, destination, exists, records)) return Opened::failed;
    if (exists) return confirm_overwrite(destination.path) ? Opened::ready : Opened::refused;
    if (may_be_made_with_content()) destination.content = content_at_once(source);
    if (create_destination(destination, source.total(), records)) return Opened::ready;
    const bool is_local_path = !found.failed() && found.code == TDM_IDENTIFIED_LOCAL;
    if (when_refused == WhenRefused::fail && !is_local_path) return Opened::failed;
    return open_local_destination(destination, records);
}

bool close_destination(DestinationFile &destination, const TransferRecords &records) {
    if (close_stream(destination.stream)) return true;
    trace_unwritten(records.function, destination.path.c_str());
    return false;
}

bool resize_destination(const DestinationFile &destination, uint64_t size, const TransferRecords &records) {
    const uint32_t status = tdm_resize(ctx, destination.info.file, size);
    if (status != 0) {
        trace_message(records.function, Message::resize_failed, status);
        return false;
    }
    tslwnfswrf(1, records.function, "%s", "tdm_resize successful:dest \n");
    return true;
}

void commit_destination(const DestinationFile &destination, const TransferRecords &records) {
    const uint32_t status = tdm_commit(ctx, destination.info.file);
    if (status != 0) {
        trace_message(records.function, Message::commit_failed, status);
        return;
    }
    tslwnfswrf(records.committed_level, records.function, "%s", "tdm_commit successful \n");
}
