// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/permissions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/support/scoped_environment.h"
#include "tests/support/temporary_directory.h"

namespace terminal {
namespace {

namespace files = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class WhoMay : public testing::Test {
  protected:
    WhoMay() { files::create_directories(dbs_); }

    static std::string make(const std::string &path, mode_t mode) {
        std::ofstream(path) << "x";
        chmod(path.c_str(), mode);
        return path;
    }

    TemporaryDirectory place_;
    std::string dbs_ = place_ / "dbs";
    std::string tslnfstab_ = dbs_ + "/tslnfstab";
    ScopedEnvironment home_{"TESSEL_HOME", place_.path().c_str()};
};

TEST_F(WhoMay, TellsWhomAFileBelongsToAndItsMode) {
    const std::string file = make(place_ / "f", 0640);
    EXPECT_THAT(who_may(file), StartsWith(file + " belongs to user "));
    EXPECT_THAT(who_may(file), MatchesRegex(".* user [^ ]+ and group [^ ]+, mode 640"));
}

TEST_F(WhoMay, TellsOfTheDirectoryOfAFileThatIsNotThere) {
    EXPECT_THAT(who_may(dbs_ + "/x/y"), StartsWith(dbs_ + " belongs to user "));
    EXPECT_THAT(who_may(dbs_ + "//x"), StartsWith(dbs_ + " belongs to user "));
    EXPECT_THAT(who_may(dbs_ + "/"), StartsWith(dbs_ + " belongs to user "));
}

TEST_F(WhoMay, KnowsNothingOfARelativePath) {
    EXPECT_EQ(who_may("x"), "");
    EXPECT_EQ(who_may(""), "");
}

TEST_F(WhoMay, NamesTheGroupThatMayChangeTheConfiguration) {
    make(tslnfstab_, 0664);
    EXPECT_THAT(who_may(tslnfstab_), MatchesRegex("user [^ ]+ and the members of group [^ ]+ may change .*"));
    chmod(tslnfstab_.c_str(), 0644);
    EXPECT_THAT(who_may(tslnfstab_), MatchesRegex("user [^ ]+ alone may change the configuration"));
}

TEST_F(WhoMay, GoesByTheDirectoryForAConfigurationThatIsNotThere) {
    chmod(dbs_.c_str(), 0775);
    EXPECT_THAT(who_may(tslnfstab_ + ".bak"), HasSubstr(" and the members of group "));
    chmod(dbs_.c_str(), 0755);
    EXPECT_THAT(who_may(tslnfstab_ + ".bak"), EndsWith(" alone may change the configuration"));
}

}  // namespace
}  // namespace terminal
