// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/output/messages.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <vector>

#include "platform/catalogue.h"
#include "tslwnfs/output/catalogue_access.h"
#include "tslwnfs/output/message_reasons.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

constexpr std::array kShapes = {
    MessageShape{Message::not_administrator, ""},
    MessageShape{Message::discovery_result, ""},
    MessageShape{Message::session_failed, "u", ReasonSource::library},
    MessageShape{Message::thread_registration_failed, "u", ReasonSource::library},
    MessageShape{Message::count_not_digits, "s"},
    MessageShape{Message::usage_header, ""},
    MessageShape{Message::library_missing, "s"},
    MessageShape{Message::configuration_missing, "s"},
    MessageShape{Message::client_enabled, ""},
    MessageShape{Message::client_not_enabled, ""},
    MessageShape{Message::configuration_empty, "s"},
    MessageShape{Message::discover_failed, "u", ReasonSource::library},
    MessageShape{Message::status_unreadable, "s", ReasonSource::remark},
    MessageShape{Message::permissions_unchanged, "s"},
    MessageShape{Message::first_operand_missing, ""},
    MessageShape{Message::second_operand_missing, ""},
    MessageShape{Message::file_exists, "s"},
    MessageShape{Message::bad_if, ""},
    MessageShape{Message::count_below_block, "d"},
    MessageShape{Message::skip_beyond_input, "d"},
    MessageShape{Message::command_failed, "u"},
    MessageShape{Message::command_succeeded, ""},
    MessageShape{Message::operands_unusable, ""},
    MessageShape{Message::positioning_failed, "sd", ReasonSource::remark},
    MessageShape{Message::log_unopenable, "sd", ReasonSource::system},
    MessageShape{Message::write_completed_with, "u", ReasonSource::library},
    MessageShape{Message::not_a_directory, "s", ReasonSource::remark},
    MessageShape{Message::create_failed, "su", ReasonSource::library},
    MessageShape{Message::remote_delete_failed, "su", ReasonSource::library},
    MessageShape{Message::directory_unlisted, "s", ReasonSource::library},
    MessageShape{Message::local_directory_unopenable, "s", ReasonSource::system},
    MessageShape{Message::bad_of, ""},
    MessageShape{Message::directory_not_removed, "s", ReasonSource::system},
    MessageShape{Message::reidentify_failed, "u", ReasonSource::library},
    MessageShape{Message::identify_returned, "su", ReasonSource::library_perhaps},
    MessageShape{Message::home_unknown, ""},
    MessageShape{Message::file_not_deleted, "s", ReasonSource::system},
    MessageShape{Message::value_begins_with_hyphen, "s"},
    MessageShape{Message::bad_parallel, ""},
    MessageShape{Message::readlink_location, "su", ReasonSource::library},
    MessageShape{Message::readdir_location, "su", ReasonSource::library},
    MessageShape{Message::trace_level_out_of_range, "s"},
    MessageShape{Message::resize_failed, "u", ReasonSource::library},
    MessageShape{Message::commit_failed, "u", ReasonSource::library_and_goes_on},
    MessageShape{Message::unknown_suffix, ""},
    MessageShape{Message::fsstat_location, "su", ReasonSource::library},
    MessageShape{Message::file_unreadable, "s", ReasonSource::system},
    MessageShape{Message::unidentify_failed, "su", ReasonSource::library_and_goes_on},
    MessageShape{Message::usage_general, ""},
    MessageShape{Message::usage_files, ""},
    MessageShape{Message::usage_directories, ""},
    MessageShape{Message::usage_attributes, ""},
    MessageShape{Message::usage_configuration, ""},
    MessageShape{Message::usage_mounts, ""},
    MessageShape{Message::usage_client, ""},
    MessageShape{Message::usage_network, ""},
    MessageShape{Message::path_unresolvable, "s"},
    MessageShape{Message::out_of_memory, "l"},
    MessageShape{Message::file_unopenable, "s", ReasonSource::system},
    MessageShape{Message::directory_not_created, "sd", ReasonSource::system},
    MessageShape{Message::mkdir_location, "su", ReasonSource::library},
    MessageShape{Message::library_not_copied, "s", ReasonSource::system},
    MessageShape{Message::request_incomplete, "u", ReasonSource::library},
    MessageShape{Message::fsinfo_location, "su", ReasonSource::library},
    MessageShape{Message::getattr_location, "su", ReasonSource::library_perhaps},
    MessageShape{Message::setattr_location, "su", ReasonSource::library},
    MessageShape{Message::rmdir_location, "su", ReasonSource::library},
    MessageShape{Message::request_not_submitted, "u", ReasonSource::library},
    MessageShape{Message::path_on_mount, ""},
    MessageShape{Message::path_not_on_mount, ""},
};

const MessageShape &shape_of(Message message) {
    const auto *const shape =
        std::find_if(kShapes.begin(), kShapes.end(), [&](const auto &one) { return one.message == message; });
    assert(shape != kShapes.end());
    return *shape;
}

char letter_of(const MessageArgument &argument) {
    switch (argument.kind) {
        case MessageArgument::Kind::text:
            return 's';
        case MessageArgument::Kind::unsigned_word:
            return 'u';
        case MessageArgument::Kind::signed_word:
            return 'd';
        case MessageArgument::Kind::byte_count:
            return 'l';
    }
    return '?';
}

std::string letters_of(MessageArguments arguments) {
    std::string letters;
    for (const auto &argument : arguments)
        letters += letter_of(argument);
    return letters;
}

std::string shown(const MessageArgument &argument) {
    switch (argument.kind) {
        case MessageArgument::Kind::text:
            return argument.text != nullptr ? argument.text : "";
        case MessageArgument::Kind::unsigned_word:
            return std::to_string(argument.unsigned_word);
        case MessageArgument::Kind::signed_word:
            return std::to_string(argument.signed_word);
        case MessageArgument::Kind::byte_count:
            return std::to_string(argument.byte_count);
    }
    return {};
}

// A piece of a text: literal characters, or one conversion with the letter of the argument it shows. A percent sign
// that begins neither "%%" nor a known conversion gives the letter '?'.
struct Piece {
    std::string_view literal;
    char letter = '\0';
};

Piece take_piece(std::string_view &text) {
    constexpr std::pair<std::string_view, char> kConversions[] = {{"%s", 's'}, {"%u", 'u'}, {"%d", 'd'}, {"%lu", 'l'}};
    Piece piece;
    std::size_t length = text.find('%');
    if (length != 0) {
        piece.literal = text.substr(0, length);
        length = piece.literal.size();
    } else if (text.starts_with("%%")) {
        piece.literal = text.substr(0, 1);
        length = 2;
    } else {
        const auto known = std::find_if(std::begin(kConversions), std::end(kConversions),
                                        [&](const auto &one) { return text.starts_with(one.first); });
        piece.letter = known != std::end(kConversions) ? known->second : '?';
        length = known != std::end(kConversions) ? known->first.size() : 1;
    }
    text.remove_prefix(length);
    return piece;
}

// The text with its conversions replaced; it fits the arguments.
std::string put_in_place(std::string_view text, MessageArguments arguments) {
    std::string result;
    std::size_t used = 0;
    while (!text.empty()) {
        const Piece piece = take_piece(text);
        if (piece.letter == '\0') {
            result += piece.literal;
        } else {
            result += shown(arguments[used++]);
        }
    }
    return result;
}

constexpr bool is_usage_line(uint32_t number) {
    return number >= static_cast<uint32_t>(Message::usage_general) &&
           number <= static_cast<uint32_t>(Message::usage_network);
}

// Prints a message with its names as the output shows them.
void print_text(Message message, MessageArguments given) {
    std::vector<std::string> names;
    names.reserve(given.size());
    std::vector<MessageArgument> arguments(given.begin(), given.end());
    for (auto &argument : arguments) {
        if (argument.kind == MessageArgument::Kind::text) {
            argument = names.emplace_back(shown_name(shown(argument))).c_str();
        }
    }
    print("%s", message_text(message, arguments).c_str());
}

// The record's level is that of every error; a remark beside an error has the same.
void trace_text(const char *function, Message message, MessageArguments arguments) {
    const int error = errno;
    const std::string text = message_text(message, arguments);
    tslwnfswrf(3, function, "%s", text.c_str());
    note_message(shape_of(message).reason, text, error);
}

}  // namespace

MessageCatalogue &messages_catalogue() {
    static MessageCatalogue catalogue("tslwnfs");
    return catalogue;
}

std::span<const MessageShape> message_shapes() {
    return kShapes;
}

bool text_fits(std::string_view text, std::string_view arguments) {
    std::size_t used = 0;
    while (!text.empty()) {
        const Piece piece = take_piece(text);
        if (piece.letter == '\0') continue;
        if (used == arguments.size() || arguments[used] != piece.letter) return false;
        ++used;
    }
    return true;
}

void get_message(uint32_t number, char *buffer) {
    const std::string *text = messages_catalogue().text(static_cast<int>(number));
    if (text == nullptr) {
        lwrf("error in getting message from message file\n");
        return;
    }
    if (is_usage_line(number)) {
        std::snprintf(buffer, kMessageBufferSize, "%s", text->c_str());
        return;
    }
    // A text that does not fit loses its end, never the line feed.
    const int head = std::snprintf(buffer, kMessageBufferSize, "TWNFS-%.5u: ", number);
    const int room = static_cast<int>(kMessageBufferSize) - head - 2;
    std::snprintf(buffer + head, kMessageBufferSize - static_cast<std::size_t>(head), "%.*s\n", room, text->c_str());
}

std::string message_text(Message message, MessageArguments arguments) {
    assert(shape_of(message).arguments == letters_of(arguments));
    char buffer[kMessageBufferSize] = {};
    get_message(static_cast<uint32_t>(message), buffer);
    return text_fits(buffer, letters_of(arguments)) ? put_in_place(buffer, arguments) : buffer;
}

void print_message(Message message) {
    print_text(message, {});
}

void print_message(Message message, MessageArgument first) {
    print_text(message, {&first, 1});
}

void print_message(Message message, MessageArgument first, MessageArgument second) {
    const MessageArgument arguments[] = {first, second};
    print_text(message, arguments);
}

void trace_message(const char *function, Message message) {
    trace_text(function, message, {});
}

void trace_message(const char *function, Message message, MessageArgument first) {
    trace_text(function, message, {&first, 1});
}

void trace_message(const char *function, Message message, MessageArgument first, MessageArgument second) {
    const MessageArgument arguments[] = {first, second};
    trace_text(function, message, arguments);
}

void trace_unwritten(const char *function, const char *path) {
    terminal::note_system_failure("The file " + std::string(path) + " could not be written", errno);
    trace_message(function, Message::file_unopenable, path);
}

void trace_unread(const char *function, const char *path) {
    const char *what = errno == 0 ? " ended while it was read" : " could not be read";
    terminal::note_system_failure("The file " + std::string(path) + what, errno);
    trace_message(function, Message::file_unopenable, path);
}
