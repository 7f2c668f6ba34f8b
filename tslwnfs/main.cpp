// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <cstdlib>
#include <new>
#include <span>

#include "platform/locale.h"
#include "platform/standard_descriptors.h"
#include "tslwnfs/frontend/command_table.h"
#include "tslwnfs/frontend/startup.h"
#include "tslwnfs/output/streams.h"
#include "tslwnfs/terminal/interruption.h"
#include "tslwnfs/terminal/screen.h"

namespace {

// What is left when nobody nearer could say what the memory was wanted for.
int run(std::span<char *> arguments) {
    try {
        return run_utility(arguments);
    } catch (const std::bad_alloc &) {
        std::fputs("tslwnfs: out of memory\n", stderr);
        return 1;
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (!take_standard_descriptors()) return EXIT_FAILURE;
    take_locale();
    terminal::open();
    terminal::watch_interruptions();
    if (std::atexit(finish_output_at_exit) != 0) return 1;
    const int status = run({argv, static_cast<std::size_t>(argc)});
    return finish_output(status, prints_result() ? LostOutput::fails : LostOutput::keeps_status);
}
