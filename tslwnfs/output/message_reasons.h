// SPDX-License-Identifier: Apache-2.0
// What a traced message tells about the reason of a failure.
#pragma once

#include <cstdint>
#include <string_view>

// Who knows why what a message reports came about.
enum class ReasonSource : uint8_t {
    own,                  // the message itself says it
    system,               // errno
    library,              // the storage library, in what it told last
    library_and_goes_on,  // the same, of a failure that does not end the command
    library_perhaps,      // the storage library, when it told anything
    remark,               // nobody yet: something else fails for it, or nothing does
};

// Takes note of a message that is traced, for the person at the terminal. text: with its number in front. error: errno
// as it stood. path: what it is about; empty when that is no path.
void note_message(ReasonSource source, std::string_view text, int error, std::string_view path);
