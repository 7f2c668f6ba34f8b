// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>

#include "tests/unit/commands/command_fixture.h"
#include "tslwnfs/commands/executor.h"
#include "tslwnfs/commands/files.h"

namespace fs = std::filesystem;

namespace {

class FindTest : public CommandTest {
  protected:
    FindTest() { commandtype = kFind; }

    Outcome find(const std::string &directory, const std::string &pattern = "*") {
        return run([&] { return findfile(directory.c_str(), pattern.c_str(), 0); });
    }

    // The paths found under a local directory, in alphabetical order and relative to it.
    std::vector<std::string> found(const std::string &pattern = "*") {
        std::istringstream lines(find(directory_.path(), pattern).output);
        std::vector<std::string> paths;
        for (std::string line; std::getline(lines, line);) {
            EXPECT_TRUE(line.ends_with(' ')) << line;
            EXPECT_TRUE(line.starts_with(directory_.path() + "/")) << line;
            const std::size_t start = directory_.path().size() + 1;
            paths.push_back(line.substr(start, line.size() - start - 1));
        }
        std::ranges::sort(paths);
        return paths;
    }

    void exec(std::vector<std::string> words) {
        words_ = std::move(words);
        pointers_.clear();
        for (std::string &word : words_) {
            pointers_.push_back(word.data());
        }
        find_exec_cmdptr = pointers_.data();
        find_exec_cmdsize = static_cast<int32_t>(pointers_.size());
        COMMAND_OPTION |= kFindExec;
    }

  private:
    std::vector<std::string> words_;
    std::vector<char *> pointers_;
};

TEST_F(FindTest, EveryEntryBelowTheStartIsALineOfItsOwn) {
    directory_.directory("a/b");
    directory_.file("a/b/c", "");
    directory_.file(".dot", "");
    EXPECT_EQ(find(directory_.path()).status, 0u);
    EXPECT_THAT(found(), ElementsAre(".dot", "a", "a/b", "a/b/c"));
}

TEST_F(FindTest, MatchesStayOnStandardOutputWhenTheLogIsOn) {
    directory_.file("f", "");
    turn_log_on();
    const Outcome outcome = find(directory_.path());
    EXPECT_EQ(outcome.output, directory_.path("f") + " \n");
    EXPECT_EQ(outcome.log, "");
}

TEST_F(FindTest, WhatACommandPrintsStaysOnStandardOutputWhenTheLogIsOn) {
    directory_.file("f", "");
    turn_log_on();
    exec({"echo", "{}"});
    COMMAND_OPTION |= kFindPrint;
    const Outcome outcome = find(directory_.path());
    EXPECT_EQ(outcome.output, directory_.path("f") + " \n" + directory_.path("f") + "\n");
    EXPECT_EQ(outcome.log, "");
}

TEST_F(FindTest, ARemoteTreeIsWalkedDepthFirstInTheServersOrder) {
    fake_.volume.add_file("/m/d/z", "");
    fake_.volume.add_file("/m/d/sub/f", "");
    fake_.volume.add_file("/m/d/a", "");
    EXPECT_EQ(find("/m/d").output,
              "/m/d/z not a directory/m/d/z \n/m/d/sub \n/m/d/sub/f not a directory/m/d/sub/f \n"
              "/m/d/a not a directory/m/d/a \n");
}

TEST_F(FindTest, AListedNameIsUsedAsItIs) {
    fake_.volume.add_file("/m/d/sub..\\x/..\\f", "");
    EXPECT_EQ(find("/m/d").output, "/m/d/sub..\\x \n/m/d/sub..\\x/..\\f not a directory/m/d/sub..\\x/..\\f \n");
    directory_.directory("sub..\\x");
    directory_.file("sub..\\x/..\\f", "");
    EXPECT_THAT(found(), ElementsAre("sub..\\x", "sub..\\x/..\\f"));
}

TEST_F(FindTest, AListedNameThatLeadsOutOfTheDirectoryIsPassedOver) {
    const FakeNodePointer directory = fake_.volume.add_directory("/m/d");
    for (const char *name : {"..", ".", "", "../d", "sub/f", "sub"}) {
        directory->entries.emplace_back(name, fake_.volume.add_directory("/m/elsewhere"));
    }
    EXPECT_EQ(find("/m/d").output, "/m/d/sub \n");
    EXPECT_EQ(trace_of("findfile").size(), 5u);
}

TEST_F(FindTest, NothingMatchedIsFour) {
    EXPECT_EQ(find(directory_.path()).status, 4u);
    directory_.file("f", "");
    const Outcome outcome = find(directory_.path(), "x*");
    EXPECT_EQ(outcome.status, 4u);
    EXPECT_EQ(outcome.output, "");
}

TEST_F(FindTest, AMatchCountsWhateverComesBehindIt) {
    fake_.volume.add_file("/m/d/match", "");
    fake_.volume.add_file("/m/d/other", "");
    fake_.volume.add_directory("/m/d/sub");
    EXPECT_EQ(find("/m/d", "match").status, 0u);
}

TEST_F(FindTest, MatchesHaveTheResolvedPathOfTheStart) {
    fake_.volume.add_directory("/m/d/sub");
    EXPECT_EQ(find("/m/./x/../d").output, "/m/d/sub \n");
}

TEST_F(FindTest, AMatchDeeperDownCounts) {
    directory_.directory("a/b");
    directory_.file("a/b/deep", "");
    EXPECT_EQ(find(directory_.path(), "deep").status, 0u);
    EXPECT_THAT(found("deep"), ElementsAre("a/b/deep"));
}

TEST_F(FindTest, NamesAreComparedWithoutCaseAndPrintedAsTheyAre) {
    directory_.directory("Sub");
    directory_.file("Sub/File.TXT", "");
    EXPECT_THAT(found("FILE.*"), ElementsAre("Sub/File.TXT"));
    EXPECT_THAT(found("f?le.txt"), ElementsAre("Sub/File.TXT"));
    EXPECT_THAT(found("sub"), ElementsAre("Sub"));
}

TEST_F(FindTest, TheDepthLimitCutsSilently) {
    directory_.directory("a/b");
    maxdepth = 1;
    EXPECT_THAT(found(), ElementsAre("a"));
    EXPECT_EQ(find(directory_.path()).status, 0u);
    maxdepth = 2;
    EXPECT_THAT(found(), ElementsAre("a", "a/b"));
    EXPECT_THAT(trace_of("findfile"), IsEmpty());
    maxdepth = 0;
    EXPECT_EQ(find(directory_.path()).status, 1u);
    EXPECT_THAT(found(), IsEmpty());
}

TEST_F(FindTest, ANegativeDepthLimitIsNone) {
    maxdepth = -1;
    std::string path;
    for (int level = 0; level < 60; ++level) {
        path += (path.empty() ? "d" : "/d");
    }
    directory_.directory(path);
    EXPECT_EQ(found().size(), 60u);
}

TEST_F(FindTest, SizesAreBytesAndBothBoundsAreInclusive) {
    for (const int size : {9, 10, 11, 12}) {
        directory_.file("f" + std::to_string(size), std::string(static_cast<std::size_t>(size), 'x'));
    }
    COMMAND_OPTION = kFindSize;
    find_size_size = 10;
    EXPECT_THAT(found(), ElementsAre("f10"));
    COMMAND_OPTION = kFindSizeAtLeast;
    find_size_gsize = 11;
    EXPECT_THAT(found(), ElementsAre("f11", "f12"));
    COMMAND_OPTION = kFindSizeAtMost;
    find_size_lsize = 10;
    EXPECT_THAT(found(), ElementsAre("f10", "f9"));
    COMMAND_OPTION = kFindSizeAtMost | kFindSizeAtLeast;
    find_size_gsize = 10;
    find_size_lsize = 11;
    EXPECT_THAT(found(), ElementsAre("f10", "f11"));
}

TEST_F(FindTest, SizesAreComparedAsTheirLowThirtyTwoBits) {
    fs::resize_file(directory_.file("six", ""), 6ULL << 30);   // low bits: -2147483648
    fs::resize_file(directory_.file("four", ""), 4ULL << 30);  // low bits: 0
    COMMAND_OPTION = kFindSizeAtMost;
    find_size_lsize = -1;
    EXPECT_THAT(found(), ElementsAre("six"));
    COMMAND_OPTION = kFindSize;
    find_size_size = 0;
    EXPECT_THAT(found(), ElementsAre("four"));
    fake_.volume.add_file("/m/d/f", "12345");
    find_size_size = 5;
    EXPECT_EQ(find("/m/d").output, "/m/d/f not a directory/m/d/f \n");
}

TEST_F(FindTest, ADirectoryThatFailsATestIsEntered) {
    directory_.directory("sub");
    directory_.file("sub/f", "12345");
    COMMAND_OPTION = kFindSize;
    find_size_size = 5;
    EXPECT_THAT(found(), ElementsAre("sub/f"));
    COMMAND_OPTION = kFindType;
    find_type_c = 'f';
    EXPECT_THAT(found(), ElementsAre("sub/f"));
    COMMAND_OPTION = kFindPath;
    find_path_pattern = "*/sub/*";
    EXPECT_THAT(found(), ElementsAre("sub/f"));
}

TEST_F(FindTest, TypesAreDirectoryAndFileOnly) {
    directory_.directory("sub");
    directory_.file("f", "");
    fs::create_symlink("f", directory_.path("link"));
    ASSERT_EQ(mkfifo(directory_.path("pipe").c_str(), 0600), 0);
    COMMAND_OPTION = kFindType;
    find_type_c = 'd';
    EXPECT_THAT(found(), ElementsAre("sub"));
    find_type_c = 'f';
    EXPECT_THAT(found(), ElementsAre("f"));
    for (const char letter : {'l', 'D', 'x', '\0'}) {
        find_type_c = letter;
        EXPECT_EQ(find(directory_.path()).status, 4u) << letter;
    }
    COMMAND_OPTION = 0;
    EXPECT_THAT(found(), ElementsAre("f", "link", "pipe", "sub"));
}

TEST_F(FindTest, TypeAndSizeAreBothRequired) {
    directory_.file("small", "1");
    directory_.file("large", "12345678");
    COMMAND_OPTION = kFindType | kFindSizeAtLeast;
    find_type_c = 'f';
    find_size_gsize = 5;
    EXPECT_THAT(found(), ElementsAre("large"));
}

TEST_F(FindTest, ADirectorysOwnSizeIsTestedLikeAFiles) {
    fake_.volume.add_directory("/m/d/sub");  // 4096 bytes
    find_type_c = 'd';
    struct Case {
        uint32_t bit;
        int32_t size;
        const char *found;
    };
    const char *const directory = "/m/d/sub \n";
    for (const Case &one : {Case{kFindSizeAtLeast, 4096, directory}, Case{kFindSizeAtLeast, 4097, ""},
                            Case{kFindSizeAtMost, 4096, directory}, Case{kFindSizeAtMost, 4095, ""},
                            Case{kFindSize, 4096, directory}, Case{kFindSize, 4095, ""}}) {
        find_size_size = find_size_gsize = find_size_lsize = one.size;
        COMMAND_OPTION = one.bit;
        EXPECT_EQ(find("/m/d").output, one.found) << one.bit << " " << one.size;
        COMMAND_OPTION = one.bit | kFindType;
        EXPECT_EQ(find("/m/d").output, one.found) << one.bit << " " << one.size << " and a type";
    }
}

TEST_F(FindTest, ThePathPatternCoversTheWholePathWithoutCase) {
    directory_.directory("Sub/Deep");
    directory_.file("Sub/Deep/File", "");
    directory_.file("other", "");
    COMMAND_OPTION = kFindPath;
    const std::string pattern = directory_.path() + "/SUB*";
    find_path_pattern = pattern.c_str();
    EXPECT_THAT(found(), ElementsAre("Sub", "Sub/Deep", "Sub/Deep/File"));
    find_path_pattern = "*file";
    EXPECT_THAT(found(), ElementsAre("Sub/Deep/File"));
    find_path_pattern = nullptr;
    EXPECT_THAT(found(), IsEmpty());
}

TEST_F(FindTest, AnEntryWhoseAttributesCannotBeHadIsSkipped) {
    fake_.volume.add_directory("/m/d/a");
    fake_.volume.add_directory("/m/d/b");
    fake_.volume.add_directory("/m/d/c");
    fake_.answer("getattr", 2, {.status = 70, .location = {}});
    fake_.answer("getattr", 3, {.status = 0, .location = 4});
    const Outcome outcome = find("/m/d");
    EXPECT_EQ(outcome.output, "/m/d/c \n");
    EXPECT_EQ(outcome.status, 1u);  // what could not be asked may have matched
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(FindTest, ADirectoryThatCannotBeListedIsTracedAndTheWalkGoesOnToFailAtItsEnd) {
    fake_.volume.add_directory("/m/d/a");
    fake_.volume.add_directory("/m/d/b");
    fake_.answer("fsinfo", 2, {.status = 13, .location = {}});
    const Outcome outcome = find("/m/d");
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "/m/d/a \n/m/d/b \n");
    EXPECT_THAT(trace_of("findfile"), ElementsAre("findfile TWNFS-65031: The directory /m/d/a could not be listed."));
}

TEST_F(FindTest, AStartThatCannotBeListedFails) {
    EXPECT_EQ(find(directory_.path("missing")).status, 1u);
    EXPECT_EQ(find("..").status, 1u);
    EXPECT_EQ(run([] { return findfile(nullptr, "*", 0); }).status, 1u);
    EXPECT_THAT(trace_of("findfile"), ElementsAre("findfile TWNFS-65031: The directory " + directory_.path("missing") +
                                                      " could not be listed.",
                                                  "findfile TWNFS-65031: The directory .. could not be listed.",
                                                  "findfile TWNFS-65016: The first operand is missing."));
}

TEST_F(FindTest, AFileAsTheStartGivesNothing) {
    EXPECT_EQ(find(directory_.file("f", "")).status, 4u);
    fake_.volume.add_file("/m/f", "");
    EXPECT_EQ(find("/m/f").status, 4u);
    fs::create_symlink("f", directory_.path("link"));
    EXPECT_NE(find(directory_.path("link")).status, 0u);
}

TEST_F(FindTest, ALinkAsTheStartLeadsToItsDirectory) {
    directory_.directory("real/sub");
    fs::create_symlink("real", directory_.path("link"));
    EXPECT_EQ(find(directory_.path("link")).output, directory_.path("link") + "/sub \n");
}

TEST_F(FindTest, LinksThatLeadThroughEachOtherEnd) {
    directory_.directory("d");
    fs::create_symlink(".", directory_.path("d/here"));
    fs::create_symlink("here/here", directory_.path("d/twice"));
    fs::create_symlink("here/../d", directory_.path("d/round"));
    directory_.file("d/f", "");
    COMMAND_OPTION = kFindFollow;
    EXPECT_EQ(find(directory_.path("d")).output, directory_.path("d") + "/f \n");
    fake_.volume.add_link("/m/d/here", ".");
    fake_.volume.add_link("/m/d/round", "../d");
    fake_.volume.add_link("/m/d/self", "self");
    EXPECT_EQ(find("/m/d").status, 4u);
    EXPECT_THAT(trace_of("findfile"), testing::Contains("findfile /m/d/round leads back to /m/d and is not followed"));
}

TEST_F(FindTest, ALinkOnAServerLeadsToNoFileOfThisHost) {
    directory_.file("f", "");
    fake_.volume.add_link("/m/d/out", directory_.path());
    COMMAND_OPTION = kFindFollow;
    EXPECT_EQ(find("/m/d").output, "/m/d/out not a directory");
    EXPECT_EQ(trace_of("findfile").back(),
              "findfile /m/d/out leads to " + directory_.path() + ", which is on no mount: Invalid cross-device link");
}

TEST_F(FindTest, ALinkIsReportedUnlessItIsFollowed) {
    directory_.directory("tree");
    directory_.directory("tree/sub");
    const std::string target = directory_.directory("target");
    directory_.file("target/f", "");
    fs::create_symlink("../target", directory_.path("tree/dir"));
    fs::create_symlink("../target/f", directory_.path("tree/file"));
    fs::create_symlink("nowhere", directory_.path("tree/dangling"));
    const Outcome listed = find(directory_.path("tree"), "d*");
    EXPECT_THAT(listed.output, testing::HasSubstr(directory_.path("tree/dir") + " \n"));
    EXPECT_THAT(listed.output, testing::HasSubstr(directory_.path("tree/dangling") + " \n"));
    COMMAND_OPTION = kFindFollow;
    const Outcome followed = find(directory_.path("tree"));
    std::vector<std::string> lines;
    std::istringstream text(followed.output);
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    EXPECT_THAT(lines, testing::UnorderedElementsAre(target + "/f ", directory_.path("tree/sub") + " "));
}

TEST_F(FindTest, AFollowedLinkThatCannotBeReadIsPassedOver) {
    COMMAND_OPTION = kFindFollow;
    fake_.volume.add_link("/m/d/broken", "/m/target");
    fake_.volume.add_link("/m/d/whole", "/m/target");
    fake_.volume.add_directory("/m/target/sub");
    fake_.answer("readlink", 1, {.status = 5, .location = {}});
    EXPECT_THAT(find("/m/d").output, testing::EndsWith("/m/d/whole not a directory/m/target/sub \n"));
    EXPECT_THAT(trace_of("findfile"), IsEmpty());
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(FindTest, ATargetIsWalkedAtTheLinksDepthAndDoesNotCountAsAMatch) {
    directory_.directory("tree");
    directory_.directory("target/below/deeper");
    fs::create_symlink(directory_.path("target"), directory_.path("tree/link"));
    COMMAND_OPTION = kFindFollow;
    maxdepth = 2;
    const Outcome outcome = find(directory_.path("tree"));
    EXPECT_EQ(outcome.output, directory_.path("target/below") + " \n" + directory_.path("target/below/deeper") + " \n");
    EXPECT_EQ(outcome.status, 4u);
}

TEST_F(FindTest, ALinkThatLeadsBackIsNotFollowedAgain) {
    directory_.directory("a/b");
    fs::create_symlink("..", directory_.path("a/up"));
    fs::create_symlink(".", directory_.path("a/here"));
    fs::create_symlink(directory_.path("a"), directory_.path("a/b/back"));
    COMMAND_OPTION = kFindFollow;
    EXPECT_THAT(found(), ElementsAre("a", "a/b"));
    EXPECT_EQ(trace_of("findfile").size(), 3u);
    EXPECT_THAT(trace_of("findfile"), testing::Contains("findfile " + directory_.path("a/up") + " leads back to " +
                                                        directory_.path() + " and is not followed"));
}

TEST_F(FindTest, ATreeBelowALinkThatLedAboveItIsNotWalkedAgain) {
    directory_.directory("top/a/b");
    fs::create_symlink("..", directory_.path("top/a/up"));
    fs::create_symlink("../..", directory_.path("top/a/b/upper"));
    COMMAND_OPTION = kFindFollow;
    const std::string top = directory_.path("top");
    EXPECT_EQ(find(top + "/a/b").output, top + "/a \n");
    EXPECT_THAT(trace_of("findfile"),
                testing::Contains("findfile " + top + "/a/b leads back to " + top + "/a/b and is not followed"));
    fake_.volume.add_directory("/m/top/a");
    fake_.volume.add_directory("/m/top/beside");
    fake_.volume.add_link("/m/top/a/up", "..");
    EXPECT_EQ(find("/m/top/a").output, "/m/top/a/up not a directory/m/top/beside \n");
}

TEST_F(FindTest, AChainOfAThousandLinksIsFollowed) {
    COMMAND_OPTION = kFindFollow;
    for (int link = 0; link < 1000; ++link) {
        fake_.volume.add_link("/m/d" + std::to_string(link) + "/next", "/m/d" + std::to_string(link + 1));
    }
    fake_.volume.add_file("/m/d1000/found", "");
    EXPECT_THAT(find("/m/d0").output, testing::HasSubstr("/m/d1000/found \n"));
}

TEST_F(FindTest, AnEndlessChainEndsBeforeTheStackDoes) {
    COMMAND_OPTION = kFindFollow;
    for (int link = 0; link < 3000; ++link) {
        fake_.volume.add_link("/m/d" + std::to_string(link) + "/next", "/m/d" + std::to_string(link + 1));
    }
    EXPECT_EQ(find("/m/d0").status, 4u);
    EXPECT_THAT(trace_of("findfile"), ElementsAre("findfile /m/d1024 is nested too deeply"));
}

TEST_F(FindTest, APathThatIsTooLongIsSkipped) {
    const std::string name(200, 'd');
    fake_.volume.add_directory("/m/" + name + "/" + name + "/" + name);
    EXPECT_EQ(find("/m").output, "/m/" + name + " \n/m/" + name + "/" + name + " \n");
}

TEST_F(FindTest, ACommandRunsForEachMatchWithoutALineOfItsOwn) {
    directory_.file("f", "");
    exec({"echo", "found", "{}", "x{}"});
    EXPECT_EQ(find(directory_.path()).output, "found " + directory_.path("f") + " x{}\n");
    COMMAND_OPTION |= kFindPrint;
    EXPECT_EQ(find(directory_.path()).output, directory_.path("f") + " \nfound " + directory_.path("f") + " x{}\n");
}

TEST_F(FindTest, ACommandsWordsAreEachFollowedByOneBlank) {
    directory_.file("f", "");
    exec({"printf", "'<%s>'", "'a", "{}", "b'"});
    EXPECT_EQ(find(directory_.path()).output, "<a " + directory_.path("f") + " b>");
}

TEST_F(FindTest, ACommandsResultIsIgnored) {
    directory_.file("f", "");
    exec({"exit", "3"});
    EXPECT_EQ(find(directory_.path()).status, 0u);
}

TEST_F(FindTest, ACommandRunsForMatchesOnly) {
    directory_.file("match", "");
    directory_.file("other", "");
    directory_.directory("sub");
    exec({"echo", "{}"});
    EXPECT_EQ(find(directory_.path(), "ma*").output, directory_.path("match") + "\n");
    EXPECT_EQ(find(directory_.path(), "none").output, "");
}

TEST_F(FindTest, NoCommandRunsForWhatFailsAnotherTestThanTheName) {
    directory_.file("f", "12345");
    fs::create_symlink("f", directory_.path("link"));
    find_type_c = 'd';
    find_size_size = find_size_lsize = 3;
    find_size_gsize = 300;
    find_path_pattern = "*/elsewhere/*";
    // The name lets the link pass to the one option that leaves links out.
    for (const auto &[bits, name] : {std::pair<uint32_t, const char *>{kFindType, "*"},
                                     {kFindSize, "*"},
                                     {kFindSizeAtMost, "f"},
                                     {kFindSizeAtLeast, "*"},
                                     {kFindPath, "*"},
                                     {kFindFollow, "l*"}}) {
        COMMAND_OPTION = bits;
        exec({"echo", "{}"});
        EXPECT_EQ(find(directory_.path(), name).output, "") << bits;
    }
}

TEST_F(FindTest, NamesThatTheShellWouldTakeApartReachTheCommandWhole) {
    for (const char *name : {"two words", "semi;touch ran", "$(touch ran)", "quo'te", "back`tick`", "new\nline", "a&b",
                             "star*", "\"double\"", "\\back", "#hash", "<in>"}) {
        const LocalDirectory folder;
        folder.file(name, "");
        exec({"printf", "'[%s]'", "{}"});
        EXPECT_EQ(find(folder.path()).output, "[" + folder.path(name) + "]") << name;
        EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1) << name;
    }
    EXPECT_FALSE(fs::exists("ran"));
}

TEST_F(FindTest, AnEmptyCommandRunsNothingAndTheMatchCounts) {
    directory_.file("f", "");
    exec({});
    const Outcome outcome = find(directory_.path());
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, "");
}

TEST_F(FindTest, ACommandThatIsTooLongIsNotRun) {
    directory_.file("f", "");
    // "echo " and the word with its blank make exactly 512 characters.
    exec({"echo", std::string(506, 'x')});
    EXPECT_EQ(find(directory_.path()).output, std::string(506, 'x') + "\n");
    exec({"echo", std::string(507, 'x')});
    const Outcome outcome = find(directory_.path());
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(trace_of("findfile").back(),
              "findfile the command for " + directory_.path("f") + " is too long and was not run");
}

TEST_F(FindTest, ThroughTheExecutorNothingFoundIsReportedTwice) {
    const std::string path = directory_.path();
    const Outcome outcome = run([&] { return exec_command(path.c_str(), "x*"); });
    EXPECT_EQ(outcome.status, 4u);
    EXPECT_EQ(outcome.output, "FIND PATH:" + path + " FILE:x* :\n" +
                                  "TWNFS-65022: The command failed with status 4.\n"
                                  "TWNFS-65024: The operands could not be used; nothing was processed.\n");
}

}  // namespace
