// SPDX-License-Identifier: Apache-2.0
#include <filesystem>

#include "tests/unit/commands/command_fixture.h"
#include "tslwnfs/commands/listing.h"

namespace {

class LinksTest : public CommandTest {
  protected:
    std::string local_link(const std::string &name, const std::string &target) {
        std::filesystem::create_symlink(target, directory_.path(name));
        return directory_.path(name);
    }

    PathBuffer target_;
};

TEST_F(LinksTest, ALocalTargetIsNormalised) {
    const std::string link = local_link("link", "/a/b/../c");
    EXPECT_EQ(read_link(link.c_str(), target_), 0u);
    EXPECT_EQ(target_.view(), "/a/c");
    EXPECT_THAT(trace(), ElementsAre("read_link TWNFS-65042: Reading the link " + link + ": location code 1."));
}

TEST_F(LinksTest, ARelativeTargetStartsAtTheLinksOwnDirectory) {
    directory_.directory("sub");
    const std::string link = local_link("sub/link", "../file");
    EXPECT_EQ(read_link(link.c_str(), target_), 0u);
    EXPECT_EQ(target_.view(), directory_.path("file"));
}

TEST_F(LinksTest, ATargetThatGoesUpStartsWhereTheLinkReallyIs) {
    directory_.directory("elsewhere/deep");
    directory_.file("elsewhere/target", "");
    std::filesystem::create_symlink("elsewhere/deep", directory_.path("through"));
    std::filesystem::create_symlink("../target", directory_.path("elsewhere/deep/link"));
    EXPECT_EQ(read_link(directory_.path("through/link").c_str(), target_), 0u);
    EXPECT_EQ(target_.view(), directory_.path("elsewhere/target"));
}

TEST_F(LinksTest, ARemoteTargetIsNormalisedToo) {
    fake_.volume.add_link("/m/d/link", "../other");
    EXPECT_EQ(read_link("/m/d/link", target_), 0u);
    EXPECT_EQ(target_.view(), "/m/other");
    EXPECT_THAT(trace(), IsEmpty());
}

TEST_F(LinksTest, WhatIsNoLocalLinkFailsWithoutAMessage) {
    const std::string file = directory_.file("file", "");
    EXPECT_EQ(read_link(file.c_str(), target_), 1u);
    EXPECT_EQ(trace().size(), 1u);  // the remark alone
}

TEST_F(LinksTest, RemoteFailuresAreTracedWithTheirLocation) {
    fake_.volume.add_link("/m/link", "x");
    fake_.answer("readlink", 1, {.status = 5, .location = 0});
    fake_.answer("readlink", 2, {.status = 0, .location = 2});
    fake_.answer("readlink", 3, {.status = 0, .location = 3});
    for (int call = 0; call < 3; ++call) {
        EXPECT_EQ(read_link("/m/link", target_), 1u);
    }
    EXPECT_THAT(trace(), ElementsAre("read_link TWNFS-65042: Reading the link /m/link: location code 0.",
                                     "read_link TWNFS-65042: Reading the link /m/link: location code 2.",
                                     "read_link TWNFS-65042: Reading the link /m/link: location code 3."));
}

TEST_F(LinksTest, AnUndocumentedLocationLeavesTheTargetEmpty) {
    ASSERT_TRUE(target_.assign("left over"));
    fake_.answer("readlink", 1, {.status = 0, .location = 4});
    EXPECT_EQ(read_link("/m/link", target_), 0u);
    EXPECT_TRUE(target_.empty());
    EXPECT_THAT(trace(), IsEmpty());
}

TEST_F(LinksTest, AMissingOrUnresolvablePathFails) {
    EXPECT_EQ(read_link(nullptr, target_), 1u);
    EXPECT_EQ(read_link("..", target_), 1u);
    EXPECT_THAT(trace(), ElementsAre("read_link TWNFS-65016: The first operand is missing.",
                                     "read_link TWNFS-65059: The path .. could not be resolved."));
}

TEST_F(LinksTest, ATargetThatDoesNotFitIsRefused) {
    const std::string link = local_link("long", "/" + std::string(600, 'x'));
    EXPECT_EQ(read_link(link.c_str(), target_), 1u);
    EXPECT_TRUE(target_.empty());
    EXPECT_EQ(trace_of("read_link").back(), "read_link TWNFS-65059: The path " + link + " could not be resolved.");

    const std::string text(510, 'x');
    fake_.volume.add_link("/m/long", text);
    EXPECT_EQ(read_link("/m/long", target_), 1u);
    EXPECT_TRUE(target_.empty());
}

TEST_F(LinksTest, AnEmptyTargetIsRefused) {
    fake_.volume.add_link("/m/link", "");
    EXPECT_EQ(read_link("/m/link", target_), 1u);
    EXPECT_THAT(trace_of("read_link"), ElementsAre("read_link TWNFS-65059: The path  could not be resolved."));
}

}  // namespace
