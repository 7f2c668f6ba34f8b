// SPDX-License-Identifier: Apache-2.0
// The commands: one row each, read by the parser, by start-up and by the executor.
//
// To add a command: a code in options.h; its grammar in grammar.h, unless one there fits; its row in command_table.cpp;
// its word in a usage line of every catalogue. CommandTable.* and Catalogue.* of the unit tests fail for a forgotten
// step; CONTRIBUTING.md tells the rest.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "tslwnfs/options/grammar.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/storage/operand.h"

// How the executor treats a command.
enum class Execution : uint8_t {
    on_files,    // operands are prepared, a wildcard is expanded, every call has its banner and verdict
    once,        // one call with the operands as they are, and a verdict
    no_verdict,  // one call whose result says everything
};

// What start-up insists on before the storage session is opened.
enum class Required : uint8_t { nothing, first, second, both };

struct Command {
    const char *words[3];  // null where there are fewer; none for what the command line never says itself
    Grammar grammar = nullptr;
    const char *banner = nullptr;  // a format for the first operand, or for both
    uint32_t (*run)(const Operand &first, const Operand &second) = nullptr;  // null for help only
    CommandCode code;
    Execution execution = Execution::once;
    Required required = Required::nothing;
    bool banner_on_terminal = false;  // to standard output even when there is a log
    bool names_destination = false;   // the second operand gives each file its destination
    bool words_ignore_case = false;
    bool prints_result = false;  // what it prints is all that it does
};

std::span<const Command> command_table();

// The row that the command line's word names; null for none.
const Command *find_command(std::string_view word);

// True when what the run prints is all that it does, as the option state says: it failed when that is lost.
bool prints_result();

// The row that runs a code; null for codes that nothing runs.
const Command *command_of(int32_t code);
