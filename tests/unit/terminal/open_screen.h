// SPDX-License-Identifier: Apache-2.0
// A test whose standard error counts as a terminal.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/support/redirected_stream.h"
#include "tests/support/scoped_environment.h"
#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"

class OpenScreen : public testing::Test {
  protected:
    OpenScreen() { terminal::open(); }
    ~OpenScreen() override {
        {
            const CapturedOutput left_over(STDERR_FILENO);
            terminal::tell_reason();
            terminal::erase();
        }
        terminal::close();
    }

    // What an action writes to standard error.
    template <class Action>
    static std::string written(Action &&action) {
        CapturedOutput captured(STDERR_FILENO);
        action();
        return captured.text();
    }

    static std::string told() {
        return written([] { terminal::tell_reason(); });
    }

  private:
    ScopedEnvironment always_{"TSLWNFS_TERMINAL", "always"};
};
