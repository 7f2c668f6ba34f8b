// SPDX-License-Identifier: Apache-2.0
// The utility at rest: default options, the English catalogue and a directory of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "tests/support/redirected_stream.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/temporary_directory.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/catalogue_access.h"
#include "tslwnfs/output/streams.h"

class UtilityTest : public testing::Test {
  protected:
    UtilityTest() {
        reset_options();
        messages_catalogue().forget();
    }
    ~UtilityTest() override {
        static_cast<void>(finish_output(0));
        reset_options();
    }

    // The trace's file as it stands, the clock of each record replaced by "n".
    std::string trace_written() const {
        return std::regex_replace(read_file(directory_ / "trace"), std::regex(R"(\[\d+\])"), "[n]");
    }

    TemporaryDirectory directory_;

  private:
    ScopedEnvironment catalogue_{"NLSPATH", BUILT_CATALOGUE};
};
