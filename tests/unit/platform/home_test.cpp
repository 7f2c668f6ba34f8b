// SPDX-License-Identifier: Apache-2.0
#include "platform/home.h"

#include <gmock/gmock.h>

#include "platform/environment.h"
#include "platform/paths.h"
#include "tests/support/scoped_environment.h"

using testing::Optional;

namespace {

TEST(Home, IsTesselHomeForEveryMarker) {
    const ScopedEnvironment home("TESSEL_HOME", "/opt/home/");
    for (const char *marker : {"?", "?#", "?="})
        EXPECT_THAT(platform_home(marker), Optional(std::string("/opt/home/")));
}

TEST(Home, IsNothingForOtherMarkers) {
    const ScopedEnvironment home("TESSEL_HOME", "/opt/home");
    for (const char *marker : {"", "#", "??", "?#x", "?/"})
        EXPECT_EQ(platform_home(marker), std::nullopt) << marker;
}

TEST(Home, IsNothingWhenUnsetEmptyOrTooLong) {
    const ScopedEnvironment unset("TESSEL_HOME", nullptr);
    EXPECT_EQ(platform_home("?"), std::nullopt);
    const ScopedEnvironment empty("TESSEL_HOME", "");
    EXPECT_EQ(platform_home("?"), std::nullopt);
    const ScopedEnvironment fits("TESSEL_HOME", std::string(259, 'h').c_str());
    EXPECT_THAT(platform_home("?"), Optional(std::string(259, 'h')));
    const ScopedEnvironment too_long("TESSEL_HOME", std::string(260, 'h').c_str());
    EXPECT_EQ(platform_home("?"), std::nullopt);
}

TEST(Home, OfTheProgramIsTwoStepsAboveIt) {
    const auto home = platform_program_home();
    ASSERT_TRUE(home.has_value());
    EXPECT_EQ(home->find("platform_test"), std::string::npos);
    EXPECT_TRUE(home->starts_with('/') || home->empty());
}

TEST(Environment, GivesAValueUpToItsMaximum) {
    const ScopedEnvironment variable("TSLWNFS_TEST_VALUE", "12345");
    EXPECT_THAT(platform_environment("TSLWNFS_TEST_VALUE", 5), Optional(std::string("12345")));
    EXPECT_EQ(platform_environment("TSLWNFS_TEST_VALUE", 4), std::nullopt);
}

TEST(TranslateName, ReplacesALeadingMarker) {
    const ScopedEnvironment home("TESSEL_HOME", "/opt/home");
    PathBuffer translated;
    ASSERT_TRUE(platform_translate_name("?/dbs/tslnfstab", translated));
    EXPECT_EQ(translated.view(), "/opt/home/dbs/tslnfstab");
    ASSERT_TRUE(platform_translate_name("?#/dbs", translated));
    EXPECT_EQ(translated.view(), "/opt/home/dbs");
    ASSERT_TRUE(platform_translate_name("?=", translated));
    EXPECT_EQ(translated.view(), "/opt/home");
}

TEST(TranslateName, CopiesAnythingElse) {
    PathBuffer translated;
    ASSERT_TRUE(platform_translate_name("/a/?b", translated));
    EXPECT_EQ(translated.view(), "/a/?b");
}

TEST(TranslateName, FailsWithoutAHomeAndForWhatDoesNotFit) {
    PathBuffer translated;
    const ScopedEnvironment unset("TESSEL_HOME", nullptr);
    EXPECT_FALSE(platform_translate_name("?/dbs", translated));
    EXPECT_TRUE(platform_translate_name(std::string(512, 'x'), translated));
    EXPECT_FALSE(platform_translate_name(std::string(513, 'x'), translated));
    const ScopedEnvironment home("TESSEL_HOME", std::string(259, 'h').c_str());
    EXPECT_TRUE(platform_translate_name("?" + std::string(253, 'x'), translated));
    EXPECT_FALSE(platform_translate_name("?" + std::string(254, 'x'), translated));
}

}  // namespace
