// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/resolve.h"

#include <unistd.h>

#include <filesystem>

#include "tests/unit/commands/command_fixture.h"

namespace {

class ResolveTest : public CommandTest {
  protected:
    ResolveTest() : previous_(std::filesystem::current_path()) {
        std::filesystem::current_path(directory_.directory("work"));
    }
    ~ResolveTest() override { std::filesystem::current_path(previous_); }

    uint32_t resolve(const char *path) {
        uint32_t status = 77;
        sslnrmc(&status, path, resolved_);
        return status;
    }

    PathBuffer resolved_;

  private:
    std::filesystem::path previous_;
};

TEST_F(ResolveTest, DotsGoToTheSystemWhenTheyLeadOrWhenABackslashFollowsThem) {
    EXPECT_EQ(sslnpd("a\\..\\b"), 1);
    EXPECT_EQ(sslnpd("..\\a"), 1);
    EXPECT_EQ(sslnpd("../a"), 1);
    EXPECT_EQ(sslnpd("..x"), 1);
    EXPECT_EQ(sslnpd("/a/../b"), 0);
    EXPECT_EQ(sslnpd("a..b"), 0);
    EXPECT_EQ(sslnpd("x\\a..b"), 0);
    EXPECT_EQ(sslnpd("/plain"), 0);
}

TEST_F(ResolveTest, QuestionMarkIsLookedForInTheFirstOperandOnly) {
    EXPECT_EQ(sslnpd("/d/a?"), 0);
    fname = "/d/a?";
    EXPECT_EQ(sslnpd("/plain"), 1);
    EXPECT_EQ(sslnpd("x\\a..b"), 1);
    fname = "/d/a";
    EXPECT_EQ(sslnpd("/plain"), 0);
}

TEST_F(ResolveTest, OrdinaryPathsAreMadeAbsoluteByText) {
    EXPECT_EQ(resolve("/a//b/./c/../d"), 0u);
    EXPECT_EQ(resolved_.view(), "/a/b/d");
    EXPECT_EQ(resolve("name"), 0u);
    EXPECT_EQ(resolved_.view(), directory_.path("work/name"));
    EXPECT_THAT(trace(), IsEmpty());
}

TEST_F(ResolveTest, AnExistingPathThatBeginsWithDotsIsRefusedWithoutAMessage) {
    directory_.file("there", "x");
    EXPECT_EQ(resolve("../there"), 1u);
    EXPECT_THAT(trace(), IsEmpty());
}

TEST_F(ResolveTest, AMissingPathThatBeginsWithDotsIsPassedOn) {
    EXPECT_EQ(resolve("../missing"), 0u);
    EXPECT_EQ(resolved_.view(), std::filesystem::canonical(directory_.path()).string() + "/missing");
}

TEST_F(ResolveTest, AResolutionThatLeavesNoTextIsRefused) {
    directory_.file("file", "x");
    EXPECT_EQ(resolve("../file/below"), 1u);
}

TEST_F(ResolveTest, AMissingPathTooLongForABufferIsRefused) {
    // The system leaves the text up to the missing component, which alone fills half a buffer.
    std::string deep = directory_.path();
    for (int level = 0; level < 2; ++level) {
        deep += "/" + std::string(230, 'd');
    }
    std::filesystem::create_directories(deep);
    std::filesystem::create_symlink(deep, directory_.path("link"));
    EXPECT_EQ(resolve(("../link/" + std::string(200, 'x')).c_str()), 1u);
}

TEST_F(ResolveTest, APathThatCannotBeNormalisedIsTraced) {
    const std::string path = "/" + std::string(513, 'x');
    EXPECT_EQ(resolve(path.c_str()), 1u);
    EXPECT_EQ(resolve(""), 1u);
    // Cut to a record's 511 characters, as every record is.
    EXPECT_THAT(trace_of("sslnrmc"), ElementsAre("sslnrmc " + ("TWNFS-65059: The path " + path).substr(0, 511) +
                                                     "Above message is truncated since it is greater than SSTMXFNM.",
                                                 "sslnrmc TWNFS-65059: The path  could not be resolved."));
}

TEST_F(ResolveTest, LastSeparatorIsTheLastSlashBehindTheLastBackslash) {
    EXPECT_EQ(last_separator("/a/b"), 2u);
    EXPECT_EQ(last_separator("/a\\b"), 2u);
    EXPECT_EQ(last_separator("a\\b/c"), 3u);
    EXPECT_EQ(last_separator("a/b\\c"), 3u);
    EXPECT_EQ(last_separator("/a"), 0u);
    EXPECT_EQ(last_separator("a"), std::string_view::npos);
    EXPECT_EQ(last_separator(""), std::string_view::npos);
}

TEST_F(ResolveTest, RemoveNewlineCutsOneLineFeed) {
    std::string text = "word\n\n";
    remove_newline(text.data());
    EXPECT_STREQ(text.c_str(), "word\n");
    remove_newline(text.data());
    remove_newline(text.data());
    EXPECT_STREQ(text.c_str(), "word");
    std::string empty;
    remove_newline(empty.data());
    EXPECT_STREQ(empty.c_str(), "");
}

TEST_F(ResolveTest, AnOperandIsRefusedInTheNameOfItsCommand) {
    EXPECT_FALSE(resolve_operand("catfile", nullptr, resolved_));
    EXPECT_FALSE(resolve_operand("catfile", "..", resolved_));
    EXPECT_TRUE(resolve_operand("catfile", "/a", resolved_));
    EXPECT_THAT(trace(), ElementsAre("catfile TWNFS-65016: The first operand is missing.",
                                     "catfile TWNFS-65059: The path .. could not be resolved."));
}

TEST_F(ResolveTest, APathIsExtendedAsLongAsItFits) {
    PathBuffer path;
    ASSERT_TRUE(path.assign("/" + std::string(509, 'x')));
    EXPECT_TRUE(extend_path("copyfile", path, "/*"));
    EXPECT_EQ(path.size(), 512u);
    EXPECT_FALSE(extend_path("copyfile", path, "y"));
    EXPECT_EQ(path.size(), 512u);
    EXPECT_EQ(trace().size(), 1u);
}

}  // namespace
