// SPDX-License-Identifier: Apache-2.0
// A command run as a function: an empty home of its own, and the trace at the level of errors in a file.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>

#include "tests/support/redirected_stream.h"
#include "tests/support/utility_fixture.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/streams.h"

class CommandTest : public UtilityTest {
  protected:
    CommandTest() {
        std::filesystem::create_directories(home() + "/dbs");
        use_home(home());
        start_trace();
    }

    // What a command printed on standard output, and its result. The input is what it may read.
    struct Outcome {
        uint32_t result;
        std::string printed;
        bool operator==(const Outcome &) const = default;
    };
    static Outcome run(const std::function<uint32_t()> &command, const std::string &input = "") {
        const ScopedInput scoped(input);
        CapturedOutput captured;
        const uint32_t result = command();
        return {result, captured.text()};
    }

    // The records traced since the start or the last call, the clock of each replaced by "n".
    std::string trace() {
        static_cast<void>(finish_output(0));
        const std::string text = trace_written();
        start_trace();
        return text;
    }

    // A numbered message in a record of a function.
    static std::string record(const std::string &function, int number, const std::string &text) {
        return "[n]," + function + " TWNFS-" + std::to_string(number) + ": " + text + "\n";
    }
    static std::string message(int number, const std::string &text) {
        return "TWNFS-" + std::to_string(number) + ": " + text + "\n";
    }

    static void use_home(const std::string &home) {
        std::snprintf(tsl_home, sizeof tsl_home, "%s", home.c_str());
        std::snprintf(tsl_ohome, sizeof tsl_ohome, "%s", home.c_str());
    }

    const std::string &directory() const { return directory_.path(); }
    std::string home() const { return directory_ / "home"; }
    std::string tslnfstab() const { return home() + "/dbs/tslnfstab"; }
    std::string backup() const { return tslnfstab() + ".bak"; }

    static bool exists(const std::string &path) {
        return std::filesystem::exists(std::filesystem::symlink_status(path));
    }

    // Permission bits.
    static unsigned mode_of(const std::string &path) {
        return static_cast<unsigned>(std::filesystem::status(path).permissions());
    }
    static void set_mode(const std::string &path, unsigned mode) {
        std::filesystem::permissions(path, std::filesystem::perms(mode));
    }

  private:
    void start_trace() {
        EXPECT_TRUE(open_trace_file((directory_ / "trace").c_str()));
        tslwnfs_trace = 3;
    }
};
