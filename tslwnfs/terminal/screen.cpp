// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/screen.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <string>

#include "platform/environment.h"
#include "platform/write_errors.h"
#include "tslwnfs/terminal/text.h"
#include "tslwnfs/terminal/translation.h"

namespace terminal {
namespace {

constexpr std::size_t kUsualColumns = 80;

bool opened = false;
bool shows = true;  // what the next line replaces
std::atomic<std::size_t> shown_columns = 0;
Diversion diverted = nullptr;

void write(const std::string &text) {
    static_cast<void>(std::fputs(text.c_str(), stderr));
    static_cast<void>(std::fflush(stderr));
}

// A program in the background leaves the terminal to the one in front.
bool is_in_front() {
    return isatty(STDERR_FILENO) == 0 || tcgetpgrp(STDERR_FILENO) == getpgrp();
}

}  // namespace

void open() {
    constexpr std::size_t kLongest = 16;  // characters of the variable that can mean anything
    const auto wanted = platform_environment("TSLWNFS_TERMINAL", kLongest);
    shows = wanted != "reasons";
    opened = isatty(STDERR_FILENO) != 0 || wanted == "always" || wanted == "reasons";
}

void close() {
    opened = false;
}

bool is_open() {
    return opened;
}

void say(std::string_view line, When when) {
    if (!opened) return;
    if (diverted != nullptr && when != When::at_the_end) return diverted(line, when);
    erase();
    // An unfinished line stays in the buffer of a standard output that is a terminal, so this gets a line of its own.
    if (isatty(STDOUT_FILENO) == 0) flush_stream(stdout);
    write("tslwnfs: " + printable(translated(line)) + "\n");
}

void divert(Diversion diversion) {
    diverted = diversion;
    shows = false;
    shown_columns = 0;
}

void show(std::string_view line) {
    if (!opened || !shows || !is_in_front()) return;
    // Spaces and a carriage return are all that every terminal understands.
    const std::size_t width = columns_of(line);
    const std::size_t before = std::min<std::size_t>(shown_columns, columns());
    const std::size_t rest = before > width ? before - width : 0;
    write("\r" + std::string(line) + std::string(rest, ' '));
    shown_columns = width;
}

void erase() {
    if (shown_columns == 0) return;
    // A terminal that was made narrower meanwhile would break more blanks into lines of their own.
    write("\r" + std::string(std::min<std::size_t>(shown_columns, columns()), ' ') + "\r");
    shown_columns = 0;
}

void erase_in_handler() {
    constexpr std::string_view kBlanks = "                                ";
    const auto put = [](std::string_view text) {
        [[maybe_unused]] const ssize_t ignored = ::write(STDERR_FILENO, text.data(), text.size());
    };
    if (shown_columns == 0) return;
    put("\r");
    for (std::size_t left = shown_columns; left > 0; left -= std::min(left, kBlanks.size()))
        put(kBlanks.substr(0, left));
    put("\r");
    shown_columns = 0;
}

std::size_t columns() {
    winsize size = {};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    // The last column stays free: a cursor behind it would be on the next line.
    return (known ? size.ws_col : kUsualColumns) - 1;
}

bool leads_to_file(FILE *stream) {
    struct stat status;
    return fstat(fileno(stream), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace terminal
