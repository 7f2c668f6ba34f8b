// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/output/messages.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <type_traits>
#include <vector>

#include "platform/catalogue.h"
#include "tslwnfs/output/catalogue_access.h"
#include "tslwnfs/output/message_reasons.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

template <class Argument>
constexpr char kLetter = '?';
template <>
constexpr char kLetter<const char *> = 's';
template <>
constexpr char kLetter<uint32_t> = 'u';
template <>
constexpr char kLetter<int32_t> = 'd';
template <>
constexpr char kLetter<unsigned long> = 'l';

template <class... Arguments>
constexpr std::array<char, sizeof...(Arguments)> kLetters = {kLetter<Arguments>...};

template <class... Arguments>
constexpr MessageShape shape_of(MessageOf<Arguments...> message) {
    return {message.number, {kLetters<Arguments...>.data(), kLetters<Arguments...>.size()}};
}

constexpr std::array kShapes = {
#define MESSAGE(name, ...) shape_of(Message::name),
#include "tslwnfs/output/messages.def"
#undef MESSAGE
};

std::string letters_of(MessageArguments arguments) {
    std::string letters;
    for (const auto &argument : arguments)
        letters += std::visit([](const auto &value) { return kLetter<std::decay_t<decltype(value)>>; }, argument);
    return letters;
}

std::string shown(const MessageArgument &argument) {
    if (const auto *const text = std::get_if<const char *>(&argument)) return *text != nullptr ? *text : "";
    return std::visit(
        [](const auto &value) -> std::string {
            if constexpr (std::is_arithmetic_v<std::decay_t<decltype(value)>>) return std::to_string(value);
            return {};
        },
        argument);
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

// The path that a message is about: its first text. What could not be removed is an entry of the directory above.
std::string_view path_of(uint32_t number, MessageArguments arguments) {
    const auto *const text = arguments.empty() ? nullptr : std::get_if<const char *>(&arguments[0]);
    const std::string_view path = text != nullptr && *text != nullptr ? *text : "";
    const bool is_removal =
        number == Message::file_not_deleted.number || number == Message::directory_not_removed.number;
    return is_removal ? path.substr(0, path.find_last_of('/') + 1) : path;
}

constexpr bool is_usage_line(uint32_t number) {
    return number >= Message::usage_general.number && number <= Message::usage_network.number;
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

namespace any_message {

std::string text(uint32_t number, MessageArguments arguments) {
    char buffer[kMessageBufferSize] = {};
    get_message(number, buffer);
    return text_fits(buffer, letters_of(arguments)) ? put_in_place(buffer, arguments) : buffer;
}

// Names are printed as the output shows them.
void print(uint32_t number, MessageArguments given) {
    std::vector<std::string> names;
    names.reserve(given.size());
    std::vector<MessageArgument> arguments(given.begin(), given.end());
    for (auto &argument : arguments) {
        if (std::holds_alternative<const char *>(argument))
            argument = names.emplace_back(shown_name(shown(argument))).c_str();
    }
    ::print("%s", text(number, arguments).c_str());
}

// The record's level is that of every error; a remark beside an error has the same.
void trace(const char *function, uint32_t number, ReasonSource reason, MessageArguments arguments) {
    const int error = errno;
    const std::string record = text(number, arguments);
    tslwnfswrf(3, function, "%s", record.c_str());
    note_message(reason, record, error, path_of(number, arguments));
}

}  // namespace any_message

void trace_unwritten(const char *function, const char *path) {
    terminal::note_system_failure("The file " + std::string(path) + " could not be written", errno, path);
    trace_message(function, Message::file_unopenable, path);
}

void trace_unread(const char *function, const char *path) {
    const char *what = errno == 0 ? " ended while it was read" : " could not be read";
    terminal::note_system_failure("The file " + std::string(path) + what, errno, path);
    trace_message(function, Message::file_unopenable, path);
}
