// SPDX-License-Identifier: Apache-2.0
// A front end at rest: an empty recorder and a home of its own.
#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "recorder.h"
#include "tests/support/redirected_stream.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/utility_fixture.h"
#include "tslwnfs/frontend/command_line.h"
#include "tslwnfs/frontend/startup.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/streams.h"
#include "tslwnfs/terminal/reasons.h"

constexpr auto kAccepted = ParseOutcome::accepted;
constexpr auto kUsage = ParseOutcome::usage;

// An argument vector that owns its words.
class ArgumentVector {
  public:
    explicit ArgumentVector(std::vector<std::string> words) : words_(std::move(words)) {
        for (auto &word : words_)
            pointers_.push_back(word.data());
    }
    std::span<char *> span() { return pointers_; }

  private:
    std::vector<std::string> words_;
    std::vector<char *> pointers_;
};

class FrontEnd : public UtilityTest {
  protected:
    FrontEnd() {
        recorder() = {};
        terminal::tell_reason();  // nothing that was noted before
    }

    // Parses words as they stand behind the program's own name. The words live as long as the test.
    ParseOutcome parse_words(std::vector<std::string> words) {
        reset_options();
        return get_options(keep(std::move(words)));
    }

    // The same for words written with blanks between them.
    ParseOutcome parse(const std::string &line) { return parse_words(split(line)); }

    // Runs a command line; printed_ holds what came out on standard output.
    int run(const std::string &line) {
        CapturedOutput captured;
        const int status = run_utility(keep(split(line)));
        static_cast<void>(finish_output(0));
        printed_ = captured.text();
        return status;
    }

    std::string trace() const { return trace_written(); }

    static std::vector<std::string> split(const std::string &line) {
        std::istringstream stream(line);
        return {std::istream_iterator<std::string>(stream), {}};
    }

    ScopedEnvironment home_{"TESSEL_HOME", directory_.path().c_str()};
    std::string printed_;

    std::span<char *> keep(std::vector<std::string> words) {
        words.insert(words.begin(), "tslwnfs");
        vectors_.push_back(std::make_unique<ArgumentVector>(std::move(words)));
        return vectors_.back()->span();
    }

  private:
    std::vector<std::unique_ptr<ArgumentVector>> vectors_;
};
