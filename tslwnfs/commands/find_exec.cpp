// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/find_exec.h"

#include <cstdio>
#include <cstdlib>

#include "tslwnfs/frontend/options.h"
#include "tslwnfs/frontend/trace.h"

namespace {

constexpr std::size_t kCommandMaximum = 512;

// Characters that mean nothing to the shell, wherever they stand in an absolute path.
constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+,:@%=~^";

std::string shell_word(std::string_view path) {
    if (path.find_first_not_of(kPlain) == std::string_view::npos) return std::string(path);
    std::string quoted = "'";
    for (const char character : path) {
        if (character == '\'') {
            quoted += "'\\''";
        } else {
            quoted += character;
        }
    }
    return quoted + "'";
}

}  // namespace

std::optional<std::string> command_for_match(std::string_view path) {
    if (find_exec_cmdptr == nullptr || find_exec_cmdsize <= 0) return std::nullopt;
    std::string command;
    for (int32_t i = 0; i < find_exec_cmdsize; ++i) {
        const std::string_view word = find_exec_cmdptr[i];
        command += word == "{}" ? shell_word(path) : std::string(word);
        command += ' ';
        if (command.size() > kCommandMaximum) {
            tslwnfswrf(3, "findfile", "The command for %.*s is too long and is not run\n",
                       static_cast<int>(path.size()), path.data());
            return std::nullopt;
        }
    }
    return command;
}

void run_for_match(std::string_view path) {
    const std::optional<std::string> command = command_for_match(path);
    if (!command) return;
    std::fflush(nullptr);
    // The user's own command line: a shell is what it was written for.
    if (std::system(command->c_str()) == -1) {
        tslwnfswrf(3, "findfile", "No shell could be started for %.*s\n", static_cast<int>(path.size()), path.data());
    }
}
