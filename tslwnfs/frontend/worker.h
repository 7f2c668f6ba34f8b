// SPDX-License-Identifier: Apache-2.0
// One worker of the pool, from the fork to its end, and the messages between it and the process in front.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/descriptor.h"
#include "tslwnfs/frontend/command_table.h"

// Runs a command on one file. One that wants more memory than there is has failed like any other.
uint32_t run_command(const Command &command, const Operand &first, const Operand &second);

// One message with descriptors. Gives false when it could not be sent, with nothing sent.
[[nodiscard]] bool send_message(int socket, std::string_view message, const std::vector<int> &descriptors = {});

// Waits for one message. Gives false when there will be none.
[[nodiscard]] bool receive_message(int socket, std::string &message, std::vector<Descriptor> &descriptors);

// What a worker's message is: the first character tells.
constexpr char kOutcomeMessage = 'o';
constexpr char kWrittenMessage = 'w';  // more of what the command writes than goes with its outcome
constexpr char kLineMessage = 'l';     // to be said at once

// Runs jobs until the socket's other end is closed, and ends the process.
[[noreturn]] void work(int socket, const Command &command);
