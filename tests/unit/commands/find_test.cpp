// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/find.h"

#include <filesystem>

#include "tests/unit/commands/command_fixture.h"
#include "tslwnfs/commands/find_exec.h"

namespace {

using ::testing::HasSubstr;

class FindTest : public CommandTest {
  protected:
    FindTest() {
        commandtype = kFind;
        fake_.volume.add_file("/m/d/A.TXT", "12345");
        fake_.volume.add_file("/m/d/sub/b.txt", std::string(2000, 'x'));
        fake_.volume.add_directory("/m/d/empty");
        fake_.volume.add_link("/m/d/link", "/m/d/sub");
    }

    // The matches, in the order of the walk; remarks on non-directories in front of them are left out.
    Outcome find(const char *directory, const char *pattern = "*") {
        Outcome outcome = run([&] { return findfile(directory, pattern, 0); });
        const std::string remark = " not a directory";
        for (auto at = outcome.output.find(remark); at != std::string::npos; at = outcome.output.find(remark)) {
            const auto start = outcome.output.rfind('\n', at);
            const auto from = start == std::string::npos ? 0 : start + 1;
            outcome.output.erase(from, at + remark.size() - from);
        }
        return outcome;
    }

    void set_exec(std::vector<std::string> words) {
        words_ = std::move(words);
        for (std::string &word : words_)
            pointers_.push_back(word.data());
        find_exec_cmdptr = pointers_.data();
        find_exec_cmdsize = static_cast<int32_t>(pointers_.size());
    }

  private:
    std::vector<std::string> words_;
    std::vector<char *> pointers_;
};

TEST_F(FindTest, EverythingBelowTheStartMatchesAndTheStartItselfDoesNot) {
    const Outcome outcome = find("/m/d");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, "/m/d/A.TXT \n/m/d/sub \n/m/d/sub/b.txt \n/m/d/empty \n/m/d/link \n");
}

TEST_F(FindTest, TheRemarkOnARemoteFilePrecedesItsMatchOnTheSameLine) {
    const Outcome outcome = run([] { return findfile("/m/d/sub", "*", 0); });
    EXPECT_EQ(outcome.output, "/m/d/sub/b.txt not a directory/m/d/sub/b.txt \n");
}

TEST_F(FindTest, NamesMatchWithoutRegardToCaseAndKeepTheirs) {
    EXPECT_EQ(find("/m/d", "*.TxT").output, "/m/d/A.TXT \n/m/d/sub/b.txt \n");
    EXPECT_EQ(find("/m/d", "sub").output, "/m/d/sub \n");
}

TEST_F(FindTest, NothingMatchedIs4AndSoIsAnEmptyDirectory) {
    EXPECT_EQ(find("/m/d", "zzz").status, 4u);
    EXPECT_EQ(find("/m/d/empty").status, 4u);
}

TEST_F(FindTest, AFileAsTheStartMatchesNothing) {
    EXPECT_EQ(find("/m/d/A.TXT").status, 4u);
}

TEST_F(FindTest, TheDepthIsLimited) {
    maxdepth = 1;
    EXPECT_EQ(find("/m/d", "*b*").output, "/m/d/sub \n");
    maxdepth = 0;
    EXPECT_EQ(find("/m/d").status, 1u);
}

TEST_F(FindTest, SizeBoundsAreInclusive) {
    COMMAND_OPTION = kFindSizeAtLeast;
    find_size_gsize = 2000;
    EXPECT_THAT(find("/m/d").output, HasSubstr("b.txt"));
    find_size_gsize = 2001;
    EXPECT_EQ(find("/m/d").output.find("b.txt"), std::string::npos);
    COMMAND_OPTION = kFindSizeAtMost | kFindType;
    find_type_c = 'f';
    find_size_lsize = 5;
    EXPECT_EQ(find("/m/d").output, "/m/d/A.TXT \n");
    find_size_lsize = 4;
    EXPECT_EQ(find("/m/d").status, 4u);
    COMMAND_OPTION = kFindSize;
    find_size_size = 2000;
    EXPECT_EQ(find("/m/d").output, "/m/d/sub/b.txt \n");
}

TEST_F(FindTest, SizesAreComparedAsSigned32BitNumbers) {
    const std::string path = directory_.file("big", "");
    std::filesystem::resize_file(path, (uint64_t{1} << 32) + 7);
    COMMAND_OPTION = kFindSize;
    find_size_size = 7;
    EXPECT_EQ(find(directory_.path().c_str()).output, path + " \n");
    std::filesystem::resize_file(path, uint64_t{3} << 30);
    find_size_size = -1073741824;
    EXPECT_EQ(find(directory_.path().c_str()).output, path + " \n");
}

TEST_F(FindTest, TypesAreDirectoriesAndFilesOnly) {
    COMMAND_OPTION = kFindType;
    find_type_c = 'd';
    EXPECT_EQ(find("/m/d").output, "/m/d/sub \n/m/d/empty \n");
    find_type_c = 'f';
    EXPECT_EQ(find("/m/d").output, "/m/d/A.TXT \n/m/d/sub/b.txt \n");
    find_type_c = 'l';
    EXPECT_EQ(find("/m/d").status, 4u);
}

TEST_F(FindTest, ThePathPatternCoversTheWholePathWithoutRegardToCase) {
    COMMAND_OPTION = kFindPath;
    find_path_pattern = "/M/*/B.*";
    EXPECT_EQ(find("/m/d").output, "/m/d/sub/b.txt \n");
    find_path_pattern = "b.*";
    EXPECT_EQ(find("/m/d").status, 4u);
}

TEST_F(FindTest, FollowedLinksLeadToTheirTargetAtTheSameDepthAndAreNotReported) {
    COMMAND_OPTION = kFindFollow;
    fake_.volume.add_file("/m/other/c.txt", "");
    fake_.volume.add_link("/m/d/empty/up", "../../other");
    fake_.volume.add_link("/m/d/empty/file", "../A.TXT");
    EXPECT_EQ(find("/m/d/empty").output, "/m/other/c.txt \n");
    maxdepth = 1;
    EXPECT_EQ(find("/m/d/empty").output, "/m/other/c.txt \n");
}

TEST_F(FindTest, ALinkThatLeadsBackIsNotFollowedAgain) {
    COMMAND_OPTION = kFindFollow;
    fake_.volume.add_link("/m/d/empty/back", "/m/d/empty");
    EXPECT_EQ(find("/m/d/empty").status, 4u);
    EXPECT_THAT(trace_of("findfile"), ElementsAre("findfile /m/d/empty/back leads back to /m/d/empty"));
}

TEST_F(FindTest, AnUnreadableLinkIsPassedOver) {
    COMMAND_OPTION = kFindFollow;
    fake_.answer("readlink", 1, {.status = 5, .location = 0});
    EXPECT_EQ(find("/m/d", "a.txt").output, "/m/d/A.TXT \n");
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(FindTest, ADirectoryThatCannotBeListedFailsItsLevelOnly) {
    EXPECT_EQ(find("/m/missing").status, 1u);
    EXPECT_THAT(trace_of("findfile"),
                ElementsAre("findfile TWNFS-65031: The directory /m/missing could not be listed."));
    fake_.answer("fsinfo", 3, {.status = 13, .location = 2});
    EXPECT_EQ(find("/m/d", "*").output, "/m/d/A.TXT \n/m/d/sub \n/m/d/empty \n/m/d/link \n");
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(FindTest, APathThatIsTooLongIsPassedOver) {
    std::string deep = "/m/long";
    while (deep.size() < 480)
        deep += "/" + std::string(30, 'n');
    fake_.volume.add_file(deep + "/" + std::string(60, 'x'), "");
    fake_.volume.add_file(deep + "/ok", "");
    EXPECT_EQ(find(deep.c_str()).output, deep + "/ok \n");
}

TEST_F(FindTest, ExecAlonePrintsNoPaths) {
    COMMAND_OPTION = kFindExec;
    set_exec({"true", "{}"});
    EXPECT_EQ(find("/m/d", "a*").output, "");
    COMMAND_OPTION = kFindExec | kFindPrint;
    EXPECT_EQ(find("/m/d", "a*").output, "/m/d/A.TXT \n");
}

TEST_F(FindTest, TheCommandIsTheWordsEachFollowedByABlank) {
    set_exec({"echo", "{}", "x{}", "-y"});
    EXPECT_EQ(command_for_match("/m/d/f"), "echo /m/d/f x{} -y ");
}

TEST_F(FindTest, APathWithShellCharactersIsQuoted) {
    set_exec({"{}"});
    EXPECT_EQ(command_for_match("/d/-+,:@%=~^_.Z9"), "/d/-+,:@%=~^_.Z9 ");
    EXPECT_EQ(command_for_match("/d/a b"), "'/d/a b' ");
    EXPECT_EQ(command_for_match("/d/x;rm"), "'/d/x;rm' ");
    EXPECT_EQ(command_for_match("/d/it's"), "'/d/it'\\''s' ");
}

TEST_F(FindTest, ACommandThatDoesNotFitIsNotRun) {
    set_exec({std::string(500, 'e'), "{}"});
    EXPECT_EQ(command_for_match("/123456789"), std::string(500, 'e') + " /123456789 ");
    EXPECT_EQ(command_for_match("/1234567890"), std::nullopt);
    EXPECT_THAT(trace_of("findfile"), ElementsAre("findfile The command for /1234567890 is too long and is not run"));
}

TEST_F(FindTest, NoWordsRunNothing) {
    EXPECT_EQ(command_for_match("/f"), std::nullopt);
    set_exec({});
    EXPECT_EQ(command_for_match("/f"), std::nullopt);
    EXPECT_THAT(trace(), IsEmpty());
}

}  // namespace
