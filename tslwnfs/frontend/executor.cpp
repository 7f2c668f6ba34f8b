// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/executor.h"

#include <cstddef>
#include <cstring>
#include <string>

#include "tslwnfs/frontend/command_table.h"
#include "tslwnfs/frontend/file_run.h"
#include "tslwnfs/frontend/verdict.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

constexpr std::size_t kOperandLimit = 260;  // characters; every operand is shorter

bool works_for_another = false;

bool is_too_long(const Operand &operand) {
    return std::strlen(operand.shown()) >= kOperandLimit;
}

// The trace has no record of it. Of what was typed the front end has judged every word already.
uint32_t too_long(const Operand &operand) {
    terminal::note_failure(std::string(operand.shown()) + ": paths of " + std::to_string(kOperandLimit) +
                           " characters and more are not taken");
    return unusable();
}

}  // namespace

bool is_worker() {
    return works_for_another;
}

void become_worker() {
    works_for_another = true;
}

uint32_t exec_command(const Operand &first, const Operand &second) {
    if (is_too_long(first) || is_too_long(second)) return too_long(is_too_long(first) ? first : second);
    const Command *command = command_of(commandtype);
    if (command == nullptr) return 0;
    switch (command->execution) {
        case Execution::no_verdict:
            return command->run(first, second);
        case Execution::once:
            return give_verdict(command->run(first, second));
        case Execution::on_files:
            break;
    }
    return run_on_files(*command, first, second);
}
