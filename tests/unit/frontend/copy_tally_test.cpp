// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/copy_tally.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/redirected_stream.h"
#include "tests/support/scoped_environment.h"
#include "tslwnfs/options/strict.h"
#include "tslwnfs/terminal/screen.h"

namespace {

class CopyTallyTest : public testing::Test {
  protected:
    CopyTallyTest() {
        terminal::open();
        tally_.begin("/top");
    }
    ~CopyTallyTest() override { terminal::close(); }

    std::string told() const {
        CapturedOutput errors(STDERR_FILENO);
        tally_.tell();
        return errors.text();
    }

    CopyTally tally_;

  private:
    ScopedEnvironment always_{"TSLWNFS_TERMINAL", "always"};
};

TEST_F(CopyTallyTest, SaysNothingOfACopyThatIsWhole) {
    tally_.count("/top/a", true);
    EXPECT_EQ(told(), "");
}

TEST_F(CopyTallyTest, NamesWhatIsMissing) {
    tally_.count("/top/a", true);
    tally_.count("/top/sub/b", false);
    tally_.count("/elsewhere/c", false);
    EXPECT_EQ(told(), "tslwnfs: warning: 2 of 3 files were not copied: sub/b, /elsewhere/c\n");
    EXPECT_EQ(tally_.missing(), 2u);
}

TEST_F(CopyTallyTest, NamesFiveAndCountsTheRest) {
    for (const char *name : {"/top/a", "/top/b", "/top/c", "/top/d", "/top/e", "/top/f", "/top/g"})
        tally_.count(name, false);
    EXPECT_EQ(told(), "tslwnfs: warning: 7 of 7 files were not copied: a, b, c, d, e, and 2 more\n");
}

TEST_F(CopyTallyTest, SuggestsToKeepNamesWhereCapitalsAreTheReason) {
    tally_.count("/top/README", false);
    const std::string without = "tslwnfs: warning: 1 of 1 file was not copied: README";
    EXPECT_EQ(told(), without + "; names are put in lower case: TSLWNFS_STRICT=names keeps them\n");
    {
        const ScopedEnvironment names("TSLWNFS_STRICT", "names");
        read_strictness();
        EXPECT_EQ(told(), without + "\n");
    }
    read_strictness();
}

TEST_F(CopyTallyTest, BeginsAnew) {
    tally_.count("/top/a", false);
    tally_.begin("/other");
    tally_.count("/other/b", true);
    EXPECT_EQ(told(), "");
}

}  // namespace
