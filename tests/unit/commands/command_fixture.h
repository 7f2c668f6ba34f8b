// SPDX-License-Identifier: Apache-2.0
// What every test of a command needs: option state as after start-up, the fake storage library, a directory of its own,
// and what the command printed and traced.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/fake_tdm/fake_tdm.h"
#include "tests/support/redirected_stream.h"
#include "tests/support/scratch_stream.h"
#include "tests/support/temporary_directory.h"
#include "tslwnfs/options/options.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Outcome {
    uint32_t status;
    std::string output;  // standard output
    std::string log;     // the log file, when the log is on
};

// The local files of a test.
class LocalDirectory : public TemporaryDirectory {
  public:
    using TemporaryDirectory::path;
    std::string path(const std::string &name) const { return *this / name; }
    // Make a file, or a directory with those above it, and return its path.
    std::string file(const std::string &name, const std::string &content) const;
    std::string directory(const std::string &name) const;
};

class CommandTest : public ::testing::Test {
  protected:
    CommandTest();
    ~CommandTest() override;

    void turn_log_on();

    // Runs a command; input is what the user types.
    template <class Command>
    Outcome run(Command command, const std::string &input = "") {
        const ScopedInput typed(input);
        CapturedOutput output;
        const uint32_t status = command();
        return {status, output.text(), log_.text()};
    }

    // The trace's lines without their clocks, "catfile TWNFS-65016: The first operand is missing." The level filter is
    // open; records of level 1 disappear with trace_level(3).
    std::vector<std::string> trace() const;
    static void trace_level(uint32_t level) { tslwnfs_trace = level; }

    // Lines of the trace that a function wrote.
    std::vector<std::string> trace_of(std::string_view function) const;

    FakeTdm &fake_ = FakeTdm::instance();
    LocalDirectory directory_;

  private:
    ScratchStream trace_;
    ScratchStream log_;
};

// A number in a field of 64 columns: the blanks in front, then its digits.
std::string in_64_columns(const std::string &number);

// A text without a pattern that a misplaced block could repeat.
std::string sample_text(std::size_t size);
