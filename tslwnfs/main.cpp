// SPDX-License-Identifier: Apache-2.0
#include <clocale>
#include <cstdlib>
#include <span>

#include "tslwnfs/frontend/startup.h"
#include "tslwnfs/frontend/streams.h"
#include "tslwnfs/terminal/screen.h"

int main(int argc, char **argv) {
    std::setlocale(LC_ALL, "");
    terminal::open();
    if (std::atexit(finish_output_at_exit) != 0) return 1;
    return finish_output(run_utility({argv, static_cast<std::size_t>(argc)}));
}
