// SPDX-License-Identifier: Apache-2.0
// copy: a file from anywhere to anywhere, and with -r a tree.
#include <optional>
#include <string>

#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/executor.h"
#include "tslwnfs/commands/file_transfer.h"
#include "tslwnfs/commands/files.h"
#include "tslwnfs/commands/listing.h"
#include "tslwnfs/commands/modes.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/options/strict.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/held_directory.h"
#include "tslwnfs/storage/identity.h"
#include "tslwnfs/storage/resolve.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

constexpr TransferRecords kCopyRecords = {.function = "copyfile",
                                          .source_resized_level = 1,
                                          .source_resized_wide = true,
                                          .source_reidentified_level = 3,
                                          .created_level = 3,
                                          .committed_level = 1};

bool is_local(const PathBuffer &path) {
    AttrResult attributes;
    getattrdir(path, attributes, kUnprinted);
    return attributes.local != nullptr;
}

// Copies what the directory holds, through the executor, and gives its status; nothing when the paths do not fit.
std::optional<uint32_t> copy_content(const PathBuffer &source, const PathBuffer &destination,
                                     const AttrResult &source_attributes) {
    PathBuffer content = source;
    PathBuffer copies = destination;
    if (!extend_path(kCopyRecords.function, content, "/*") || !extend_path(kCopyRecords.function, copies, "/*"))
        return {};
    std::optional<HeldDirectory> held_source;
    std::optional<HeldDirectory> held_destination;
    if (source_attributes.local) held_source.emplace(source);
    if (is_local(destination)) held_destination.emplace(destination, HeldDirectory::LastLink::followed);
    return exec_command(content, copies);
}

// Copies a tree. What it holds reports for itself, so a failure there does not fail the directory, unless the status is
// to tell of it. What cannot be named reports nothing, so the directory does.
uint32_t copy_directory(const PathBuffer &source, const PathBuffer &destination, const AttrResult &source_attributes) {
    if (commandtype != kCopy || !has_option(kFileRecursive)) {
        terminal::note_failure(std::string(source.view()) + " is a directory; with -r it is copied, too");
        return 1;
    }
    if (is_worker()) return kIsForFront;
    if (lies_inside(std::string(destination.view()), std::string(source.view()))) {
        trace_failure(kCopyRecords.function, "%s lies inside %s", destination.c_str(), source.c_str());
        return 1;
    }
    const bool is_new = !is_directory_destination(destination);
    if (is_new && makedir(destination) != 0) return 1;
    const bool is_empty = is_empty_directory(source);
    const auto inside = copy_content(source, destination, source_attributes);
    if (!inside) return 1;
    // Last, since the mode may forbid what was made in it.
    const auto mode = is_new ? mode_for_copy(source_attributes) : std::nullopt;
    if (mode && !set_mode(kCopyRecords.function, destination, *mode)) return 1;
    if (*inside == kNamesLeftOut) {
        trace_failure(kCopyRecords.function, "%s has names that no path can hold; those are not copied",
                      source.c_str());
        return 1;
    }
    return is_strict(Strict::status) && !is_empty ? *inside : 0;
}

// Only in a typed path is a backslash a separator.
std::string_view copied_name(std::string_view path, const Operand &operand) {
    return operand.is_typed() ? base_name(path) : path.substr(path.rfind('/') + 1);
}

// Inside a directory the copy keeps the source's name. A special file takes what was named by itself, on this host.
bool name_destination(const SourceFile &source, const Operand &operand, DestinationFile &destination) {
    AttrResult attributes;
    const Kind kind = destination_kind(destination.path, attributes);
    if (kind == Kind::special) return is_stream_allowed(destination.path, kind, attributes, operand, kCopyRecords);
    if (kind != Kind::directory) return true;
    const PathBuffer directory = destination.path;
    return join_path(kCopyRecords.function, directory, copied_name(source.path.view(), operand), destination.path);
}

uint32_t copy_file(SourceFile &source, const Operand &operand, DestinationFile &destination, RequestSlots &requests) {
    if (!open_source(source, kCopyRecords) || !name_destination(source, operand, destination)) return 1;
    if (!is_ready(open_destination(destination, source, WhenRefused::write_local_file, kCopyRecords), source)) return 1;
    const auto mode = mode_for_copy(kCopyRecords.function, source);
    if (mode && !prepare_mode(kCopyRecords.function, destination, *mode)) return 1;
    UnfinishedDestination unfinished(destination, source.size);
    if (!transfer_data(source, destination, unfinished, requests, kCopyRecords)) return 1;
    if (!close_streams(source, destination, kCopyRecords)) return 1;
    if (!finish_transfer(source, destination, source.size, kCopyRecords)) return 1;
    unfinished.end();
    return !mode || finish_mode(kCopyRecords.function, destination, *mode) ? 0 : 1;
}

}  // namespace

uint32_t copyfile(const Operand &source, const Operand &destination) {
    RequestSlots requests;
    SourceFile from;
    DestinationFile to;
    if (!begin_transfer(source, destination, from.path, to.path, requests, kCopyRecords)) return 1;

    AttrResult attributes;
    const Kind kind = kind_of(from.path, attributes);
    if (kind == Kind::directory) return copy_directory(from.path, to.path, attributes);
    if (!is_stream_allowed(from.path, kind, attributes, source, kCopyRecords)) return 1;
    return copy_file(from, source, to, requests);
}
