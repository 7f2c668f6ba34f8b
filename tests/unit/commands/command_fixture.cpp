// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/commands/command_fixture.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <sstream>

std::string LocalDirectory::file(const std::string &name, const std::string &content) const {
    write_file(path(name), content);
    return path(name);
}

std::string LocalDirectory::directory(const std::string &name) const {
    std::filesystem::create_directories(path(name));
    return path(name);
}

CommandTest::CommandTest() {
    setenv("TZ", "UTC", 1);
    tzset();
    setenv("NLSPATH", TSLWNFS_TEST_CATALOGUE, 1);
    reset_options();
    fake_.reset();
    ctx = fake_.context();
    pbsz = 1;
    octx.trace_on = 1;
    octx.trace_stream = trace_.stream();
    tslwnfs_trace = 1;
}

CommandTest::~CommandTest() {
    reset_options();
    fake_.reset();
}

void CommandTest::turn_log_on() {
    octx.log_on = 1;
    octx.log_stream = log_.stream();
}

std::vector<std::string> CommandTest::trace() const {
    std::vector<std::string> lines;
    std::istringstream text(trace_.text());
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line.starts_with('[') ? line.substr(line.find("],") + 2) : line);
    }
    return lines;
}

std::vector<std::string> CommandTest::trace_of(std::string_view function) const {
    std::vector<std::string> lines;
    for (const std::string &line : trace()) {
        if (line.starts_with(std::string(function) + " ")) lines.push_back(line);
    }
    return lines;
}

std::string in_64_columns(const std::string &number) {
    return std::string(64 - number.size(), ' ') + number;
}

std::string sample_text(std::size_t size) {
    std::string text(size, '\0');
    uint32_t state = 12345;
    for (char &character : text) {
        state = state * 1664525 + 1013904223;
        character = static_cast<char>(state >> 24);
    }
    return text;
}
