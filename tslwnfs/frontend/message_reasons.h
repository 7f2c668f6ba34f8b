// SPDX-License-Identifier: Apache-2.0
// What a traced message tells about the reason of a failure.
#pragma once

#include <string_view>

#include "tslwnfs/frontend/messages.h"

// Takes note of a message that is traced, for the person at the terminal. text: with its number in front. error: errno
// as it stood.
void note_message(Message message, std::string_view text, int error);
