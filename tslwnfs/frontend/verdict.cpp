// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/verdict.h"

#include "tslwnfs/output/messages.h"
#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"

uint32_t unusable() {
    print_message(Message::operands_unusable);
    terminal::tell_reason();
    return kUnusable;
}

uint32_t give_verdict(uint32_t result) {
    if (result == 0) {
        print_message(Message::command_succeeded);
        terminal::tell_warning();
    } else {
        print_message(Message::command_failed, result);
        terminal::tell_reason();
    }
    return result;
}

uint32_t nothing_inside() {
    print_message(Message::operands_unusable);
    terminal::tell_warning();
    return kUnusable;
}
