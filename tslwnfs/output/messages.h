// SPDX-License-Identifier: Apache-2.0
// The numbered messages: their numbers, and how one is fetched, printed and traced.
//
// A text of the catalogue is used as a format only after its conversions were checked against the arguments given, so a
// damaged catalogue can neither crash the program nor read stray memory; a text that does not fit is shown as it
// stands.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "tslwnfs/output/message_reasons.h"

// A message. Its arguments are in its type, so that a call with others does not compile.
template <class... Arguments>
struct MessageOf {
    uint32_t number;
    ReasonSource reason;
};

// All of them by their names: Message::home_unknown.
struct Message {
#define MESSAGE(name, number, reason, ...) static constexpr MessageOf<__VA_ARGS__> name{number, ReasonSource::reason};
#include "tslwnfs/output/messages.def"
#undef MESSAGE
};

constexpr std::size_t kMessageBufferSize = 512;

// Fills a zeroed buffer of kMessageBufferSize bytes with "TWNFS-%.5u: ", the catalogue's text and a line feed; the
// usage lines come bare. Without a catalogue it says so on standard output and leaves the buffer alone. The text is a
// format.
void get_message(uint32_t number, char *buffer);

// One argument of a message. Only these types exist, so that a text's conversions can be checked against them.
using MessageArgument = std::variant<const char *, uint32_t, int32_t, unsigned long>;
using MessageArguments = std::span<const MessageArgument>;

// What a message's callers supply, a letter an argument: s text, u unsigned, d signed, l byte count.
struct MessageShape {
    uint32_t number;
    std::string_view arguments;
};
std::span<const MessageShape> message_shapes();

// True when a text may be used as a format with arguments of these letters: its conversions are "%s", "%u", "%d" and
// "%lu" only, of the letters' types, from the first one on; the last ones may be left out.
bool text_fits(std::string_view text, std::string_view arguments);

// Numbers are given as what they are: a conversion would show another one than was meant.
template <class Given, class Wanted>
concept ArgumentFor = std::same_as<Given, Wanted> ||(std::same_as<Given, char *> &&std::same_as<Wanted, const char *>);

// The same for any message, by its number.
namespace any_message {

std::string text(uint32_t number, MessageArguments arguments);
void print(uint32_t number, MessageArguments arguments);
void trace(const char *function, uint32_t number, ReasonSource reason, MessageArguments arguments);

// The arguments of one message, while it is put together.
template <class... Arguments>
using List = std::array<MessageArgument, sizeof...(Arguments)>;

}  // namespace any_message

// Fetches a message and puts its arguments in place. Empty when there is no catalogue.
template <class... Wanted, class... Given>
requires(sizeof...(Wanted) == sizeof...(Given)) && (ArgumentFor<Given, Wanted> && ...) std::string
    message_text(MessageOf<Wanted...> message, Given... arguments) {
    return any_message::text(message.number, any_message::List<Wanted...>{Wanted(arguments)...});
}

// Prints a message to the command's output (output.h).
template <class... Wanted, class... Given>
requires(sizeof...(Wanted) == sizeof...(Given)) &&
    (ArgumentFor<Given, Wanted> && ...) void print_message(MessageOf<Wanted...> message, Given... arguments) {
    any_message::print(message.number, any_message::List<Wanted...>{Wanted(arguments)...});
}

// Writes a message to the trace as a level-3 record of a function. The message is fetched whatever the trace level is.
template <class... Wanted, class... Given>
requires(sizeof...(Wanted) == sizeof...(Given)) &&
    (ArgumentFor<Given, Wanted> && ...) void trace_message(const char *function, MessageOf<Wanted...> message,
                                                           Given... arguments) {
    any_message::trace(function, message.number, message.reason, any_message::List<Wanted...>{Wanted(arguments)...});
}

// Message 65061 about a file that was opened well, as it is used for a write or a read that failed too: the trace has
// the message, and the terminal tells what happened. errno is that of the call that failed, or 0.
void trace_unwritten(const char *function, const char *path);
void trace_unread(const char *function, const char *path);
