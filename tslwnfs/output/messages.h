// SPDX-License-Identifier: Apache-2.0
// The numbered messages: their numbers, and how one is fetched, printed and traced.
//
// A text of the catalogue is used as a format only after its conversions were checked against the arguments given, so a
// damaged catalogue can neither crash the program nor read stray memory; a text that does not fit is shown as it
// stands.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

#include "tslwnfs/output/message_reasons.h"

enum class Message : uint32_t {
    not_administrator = 65000,
    discovery_result = 65001,
    session_failed = 65002,
    thread_registration_failed = 65004,
    count_not_digits = 65005,  // %s
    usage_header = 65006,
    library_missing = 65007,        // %s path
    configuration_missing = 65008,  // %s path
    client_enabled = 65009,
    client_not_enabled = 65010,
    configuration_empty = 65011,    // %s path
    discover_failed = 65012,        // %u status
    status_unreadable = 65013,      // %s path
    permissions_unchanged = 65015,  // %s path
    first_operand_missing = 65016,
    second_operand_missing = 65017,
    file_exists = 65018,  // %s path
    bad_if = 65019,
    count_below_block = 65020,  // %d IBS
    skip_beyond_input = 65021,  // %d SKIP
    command_failed = 65022,     // %u status
    command_succeeded = 65023,
    operands_unusable = 65024,
    positioning_failed = 65025,          // %s path, %d offset
    log_unopenable = 65026,              // %s path, %d error number
    write_completed_with = 65027,        // %u status
    not_a_directory = 65028,             // %s path
    create_failed = 65029,               // %s path, %u status
    remote_delete_failed = 65030,        // %s path, %u status
    directory_unlisted = 65031,          // %s path
    local_directory_unopenable = 65032,  // %s path
    bad_of = 65033,
    directory_not_removed = 65034,  // %s path
    reidentify_failed = 65035,      // %u status
    identify_returned = 65036,      // %s path, %u code
    home_unknown = 65037,
    file_not_deleted = 65038,          // %s path
    value_begins_with_hyphen = 65039,  // %s option
    bad_parallel = 65041,
    readlink_location = 65042,         // %s path, %u location
    readdir_location = 65043,          // %s path, %u location
    trace_level_out_of_range = 65044,  // %s component
    resize_failed = 65045,             // %u status
    commit_failed = 65046,             // %u status
    unknown_suffix = 65047,
    fsstat_location = 65048,    // %s path, %u location
    file_unreadable = 65049,    // %s path
    unidentify_failed = 65050,  // %s path, %u status
    usage_general = 65051,      // 65051 to 65058: the usage lines, bare
    usage_files = 65052,
    usage_directories = 65053,
    usage_attributes = 65054,
    usage_configuration = 65055,
    usage_mounts = 65056,
    usage_client = 65057,
    usage_network = 65058,
    path_unresolvable = 65059,      // %s the text before resolution
    out_of_memory = 65060,          // %lu bytes
    file_unopenable = 65061,        // %s path
    directory_not_created = 65062,  // %s path, %d error number
    mkdir_location = 65063,         // %s path, %u location
    library_not_copied = 65064,     // %s destination
    request_incomplete = 65065,     // %u code
    fsinfo_location = 65066,        // %s path, %u location
    getattr_location = 65067,       // %s path, %u location
    setattr_location = 65068,       // %s path, %u location
    rmdir_location = 65069,         // %s path, %u location
    request_not_submitted = 65070,  // %u status
    path_on_mount = 65071,
    path_not_on_mount = 65072,
};

constexpr std::size_t kMessageBufferSize = 512;

// Fills a zeroed buffer of kMessageBufferSize bytes with "TWNFS-%.5u: ", the catalogue's text and a line feed; the
// usage lines come bare. Without a catalogue it says so on standard output and leaves the buffer alone. The text is a
// format.
void get_message(uint32_t number, char *buffer);

// One argument of a message. Only these types exist, so that a text's conversions can be checked against them.
struct MessageArgument {
    enum class Kind : uint8_t { text, unsigned_word, signed_word, byte_count } kind;
    union {
        const char *text;
        uint32_t unsigned_word;
        int32_t signed_word;
        unsigned long byte_count;
    };

    MessageArgument(const char *value) : kind(Kind::text), text(value) {}                 // NOLINT: %s
    MessageArgument(uint32_t value) : kind(Kind::unsigned_word), unsigned_word(value) {}  // NOLINT: %u
    MessageArgument(int32_t value) : kind(Kind::signed_word), signed_word(value) {}       // NOLINT: %d
    MessageArgument(unsigned long value) : kind(Kind::byte_count), byte_count(value) {}   // NOLINT: %lu
};

using MessageArguments = std::span<const MessageArgument>;

// What a message's callers supply, a letter an argument: s text, u unsigned, d signed, l byte count; and who knows the
// reason for what it reports.
struct MessageShape {
    Message message;
    std::string_view arguments;
    ReasonSource reason = ReasonSource::own;
};
std::span<const MessageShape> message_shapes();

// True when a text may be used as a format with arguments of these letters: its conversions are "%s", "%u", "%d" and
// "%lu" only, of the letters' types, from the first one on; the last ones may be left out.
bool text_fits(std::string_view text, std::string_view arguments);

// Fetches a message and puts its arguments in place. Empty when there is no catalogue.
std::string message_text(Message message, MessageArguments arguments = {});

// Prints a message to the command's output (output.h) with at most two arguments, in the order the enumeration tells.
void print_message(Message message);
void print_message(Message message, MessageArgument first);
void print_message(Message message, MessageArgument first, MessageArgument second);

// Writes a message to the trace as a level-3 record of a function. The message is fetched whatever the trace level is.
void trace_message(const char *function, Message message);
void trace_message(const char *function, Message message, MessageArgument first);
void trace_message(const char *function, Message message, MessageArgument first, MessageArgument second);

// Message 65061 about a file that was opened well, as it is used for a write or a read that failed too: the trace has
// the message, and the terminal tells what happened. errno is that of the call that failed, or 0.
void trace_unwritten(const char *function, const char *path);
void trace_unread(const char *function, const char *path);
