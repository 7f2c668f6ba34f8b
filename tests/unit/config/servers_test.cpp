// SPDX-License-Identifier: Apache-2.0
#include <cerrno>

#include "tests/support/command_fixture.h"
#include "tests/support/strictness.h"
#include "tslwnfs/config/config.h"
#include "tslwnfs/config/server_deletion.h"
#include "tslwnfs/options/server_block.h"
#include "tslwnfs/terminal/screen.h"

namespace {

class Servers : public CommandTest {
  protected:
    static std::string block(const std::string &server, const std::string &before = "") {
        return "#<server block begin>\n" + before + "server: " + server + "\n#<server block end>\n";
    }
    static std::string unknown(const std::string &server) {
        return "Requested server:" + server + " is not present in tslnfstab\n";
    }
    std::string unopened(int error) const {
        return "could not open " + tslnfstab() + " errno " + std::to_string(error) + "\n";
    }

    std::string old() const { return tslnfstab() + ".old"; }

    static Outcome list() { return run(getserverlist); }
    static Outcome display(const char *server) {
        return run([=] { return display_server(server); });
    }
    static Outcome remove(const char *server, int32_t verbose = 1) {
        return run([=] { return delete_server(server, verbose); });
    }
};

TEST_F(Servers, AreListedInTheOrderOfTheFileInsideBlocksAndOutside) {
    write_file(tslnfstab(), block("b") + "server: loose\n" + "  serverx:a#note\n" + "#server: not\n" + "SERVER: not\n");
    EXPECT_EQ(list(), (Outcome{0, "b\nloose\na\n"}));
}

TEST_F(Servers, WithoutANameRepeatTheOneBefore) {
    write_file(tslnfstab(), "server:\nserver: a\nserver foo\nserver: # note\n");
    EXPECT_EQ(list(), (Outcome{0, "\na\na\na\n"}));
}

TEST_F(Servers, OfAnEmptyFileAreNone) {
    write_file(tslnfstab(), "");
    EXPECT_EQ(list(), (Outcome{0, ""}));
}

TEST_F(Servers, CannotBeListedWithoutTheFile) {
    EXPECT_EQ(list(), (Outcome{1, unopened(ENOENT)}));
    std::filesystem::create_directory(tslnfstab());
    EXPECT_EQ(list(), (Outcome{1, unopened(EISDIR)}));
}

TEST_F(Servers, AreListedIntoTheLog) {
    write_file(tslnfstab(), block("a"));
    ASSERT_TRUE(open_log_file((directory() + "/log").c_str()));
    EXPECT_EQ(list(), (Outcome{0, ""}));
    ASSERT_TRUE(close_log());
    EXPECT_EQ(read_file(directory() + "/log"), "a\n");
}

TEST_F(Servers, AreShownWithTheLinesAheadOfTheServerLine) {
    write_file(tslnfstab(), block("other") +
                                "#<server block begin>\nuid: 5\n\n# note\n \t gid: 6 \nserver: a\n"
                                "\texport: /e \t mount: /m\n#<server block end>\nserver: after\n");
    EXPECT_EQ(display("a"), (Outcome{0, "uid: 5\ngid: 6 \nserver: a\nexport: /e \t mount: /m\n"}));
}

TEST_F(Servers, ThatAreUnknownAreNotShownAndThatIsNoFailure) {
    write_file(tslnfstab(), block("a"));
    for (const char *server : {"b", "A", "a ", ""}) {
        EXPECT_EQ(display(server), (Outcome{0, unknown(server)})) << server;
    }
}

TEST_F(Servers, CannotBeShownWithoutTheFile) {
    EXPECT_EQ(display("a"), (Outcome{1, "fopen failed for " + tslnfstab() + "\n"}));
}

TEST_F(Servers, OutsideABlockAreShownFromTheLastMarkerToTheNextEnd) {
    write_file(tslnfstab(), "uid: 1\nserver: a\n" + block("b") + "server: c\n" + block("d"));
    EXPECT_EQ(display("a"), (Outcome{0, "uid: 1\nserver: a\nserver: b\n"}));
    // The block of b ended, yet its marker is the last one ahead of c.
    EXPECT_EQ(display("c"), (Outcome{0, "server: b\n"}));
}

TEST_F(Servers, InABlockWithoutAnEndAreShownToTheEndOfTheFile) {
    write_file(tslnfstab(), "#<server block begin>\nserver: a\n #<server block end>\nversion: 3");
    EXPECT_EQ(display("a"), (Outcome{0, "server: a\nversion: 3\n"}));
}

TEST_F(Servers, WithALineOfMoreThan1023CharactersAreShownInPieces) {
    const std::string piece = "community: " + std::string(1012, 'c');
    write_file(tslnfstab(), "#<server block begin>\nserver: a\n" + piece + "  rest\n#<server block end>\n");
    EXPECT_EQ(display("a"), (Outcome{0, "server: a\n" + piece + "\nrest\n"}));
}

TEST_F(Servers, AreDeletedWithTheirBlockAndNothingElse) {
    const std::string before = "# note\n\n  odd : line\n" + block("a"), after = "\t# end\n" + block("c") + "no feed";
    write_file(tslnfstab(), before + block("b", "uid: 1\n") + after);
    EXPECT_EQ(remove("b"), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), before + after);
    EXPECT_FALSE(exists(backup()));
    EXPECT_EQ(trace(), "");
}

TEST_F(Servers, AreFoundForDeletionByTheNameBeforeAComment) {
    write_file(tslnfstab(), block("a#note") + block("b"));
    EXPECT_EQ(remove("a"), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), block("b"));
}

TEST_F(Servers, ThatAreUnknownLeaveTheFileAndAnEmptyBackup) {
    write_file(tslnfstab(), block("a"));
    write_file(backup(), "old");
    EXPECT_EQ(remove("b"), (Outcome{0, unknown("b")}));
    EXPECT_EQ(read_file(tslnfstab()), block("a"));
    EXPECT_EQ(read_file(backup()), "");
    EXPECT_EQ(remove("b", 0), (Outcome{0, ""}));
}

TEST_F(Servers, ThatAreThereTwiceAreDeletedOneByOne) {
    write_file(tslnfstab(), block("a", "uid: 1\n") + block("b") + block("a", "uid: 2\n"));
    EXPECT_EQ(remove("a"), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), block("b") + block("a", "uid: 2\n"));
    EXPECT_EQ(remove("a"), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), block("b"));
}

TEST_F(Servers, InALastBlockWithoutAnEndAreDeletedToTheEndOfTheFile) {
    write_file(tslnfstab(), block("a") + "#<server block begin>\nserver: b\nversion: 3\n# note\n");
    EXPECT_EQ(remove("b"), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), block("a"));
}

TEST_F(Servers, OutsideABlockShiftTheBlockThatIsDeletedAndTheOldFileIsKept) {
    const std::string before = "server: loose\n" + block("a") + block("b");
    write_file(tslnfstab(), before);
    set_mode(tslnfstab(), 0640);
    EXPECT_EQ(remove("a"), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), "server: loose\n" + block("a"));
    EXPECT_EQ(trace(), "[n],delete_server the line of server a does not stand in the block of its number\n");
    EXPECT_EQ(read_file(old()), before);
    EXPECT_EQ(mode_of(old()), 0640u);
}

TEST_F(Servers, BehindAMarkerThatIsNoneCostAnotherServerItsBlockAndTheOldFileIsKept) {
    const std::string odd[] = {"\xEF\xBB\xBF" + block("a") + block("b"),
                               "#<server block begin> \nserver: a\n#<server block end>\n" + block("b"),
                               "#<server block begin>\r\nserver: a\n#<server block end>\n" + block("b"),
                               "#<server block begin>\nserver: a\n#<server block end> \n" + block("b")};
    for (const auto &file : odd) {
        std::filesystem::remove(old());
        write_file(tslnfstab(), file);
        EXPECT_EQ(remove("a"), (Outcome{0, ""}));
        EXPECT_EQ(read_file(tslnfstab()).find("server: b"), std::string::npos);
        EXPECT_EQ(read_file(old()), file);
    }
    write_file(tslnfstab(), odd[0]);
    tab_info = {};
    tab_info.server = "a";
    EXPECT_EQ(run(createtslnfstab), (Outcome{0, ""}));
    EXPECT_EQ(read_file(old()), odd[0]);
}

TEST_F(Servers, WithACarriageReturnBehindTheirNameAreFoundUnderThatNameOnlyWhichIsTold) {
    const std::string told =
        "[n],delete_server the line of server a ends in a carriage return, which is part of its "
        "name: save tslnfstab with plain line ends";
    const std::string before = "#<server block begin>\r\nserver: a\r\n#<server block end>\r\n";
    write_file(tslnfstab(), before);
    EXPECT_EQ(remove("a"), (Outcome{0, "Requested server:a is not present in tslnfstab\n"}));
    EXPECT_EQ(trace(), told + "\n");
    tab_info = {};
    tab_info.server = "a";
    {
        const Strictness strict("options");
        EXPECT_EQ(run(createtslnfstab), (Outcome{1, ""}));
        EXPECT_EQ(trace(), told + "\n");
        EXPECT_EQ(read_file(tslnfstab()), before);
        EXPECT_FALSE(exists(backup()));
    }
    EXPECT_EQ(run(createtslnfstab), (Outcome{0, ""}));
    EXPECT_EQ(trace(), told + "; there are two blocks for it now\n");
    EXPECT_EQ(read_file(tslnfstab()), before + block("a"));
}

TEST_F(Servers, StayWhenTheOldFileCannotBeKept) {
    const std::string before = "server: loose\n" + block("a") + block("b");
    write_file(tslnfstab(), before);
    std::filesystem::create_directory(old());
    EXPECT_EQ(remove("a"), (Outcome{1, ""}));
    EXPECT_EQ(read_file(tslnfstab()), before);
    EXPECT_FALSE(exists(backup()));
    tab_info = {};
    tab_info.server = "a";
    EXPECT_EQ(run(createtslnfstab), (Outcome{1, ""}));
    EXPECT_EQ(read_file(tslnfstab()), before);
}

TEST_F(Servers, OfOthersStayWhereOptionsAreStrict) {
    const std::string before = "server: loose\n" + block("a") + block("b");
    for (const char *words : {"options", "names,options", "all"}) {
        const Strictness strict(words);
        write_file(tslnfstab(), before);
        EXPECT_EQ(remove("a"), (Outcome{1, ""}));
        EXPECT_EQ(trace(),
                  "[n],delete_server the line of server a does not stand in the block of its number, so that "
                  "nothing is changed\n");
        tab_info = {};
        tab_info.server = "a";
        EXPECT_EQ(run(createtslnfstab), (Outcome{1, ""}));
        EXPECT_NE(trace(), "");
        EXPECT_EQ(read_file(tslnfstab()), before);
        EXPECT_FALSE(exists(old()));
        EXPECT_FALSE(exists(backup()));
    }
    const Strictness strict("names");
    EXPECT_EQ(remove("a"), (Outcome{0, ""}));
}

TEST_F(Servers, ThatGoAsMeantLeaveNoOldFile) {
    write_file(tslnfstab(), block("a", "uid: 1\n") + block("b"));
    EXPECT_EQ(remove("a"), (Outcome{0, ""}));
    EXPECT_FALSE(exists(old()));
}

TEST_F(Servers, WhoseBlockWentForAnotherAreNamedAtTheTerminal) {
    const ScopedEnvironment always("TSLWNFS_TERMINAL", "always");
    write_file(tslnfstab(), "server: loose\n" + block("a") + block("b"));
    CapturedOutput said(STDERR_FILENO);
    terminal::open();
    EXPECT_EQ(remove("a").result, 0u);
    terminal::close();
    EXPECT_EQ(said.text(),
              "tslwnfs: warning: the line of server a does not stand in the block of its number: the block of server b "
              "is removed; tslnfstab.old is the file as it was\n");
}

TEST_F(Servers, BehindTheLastBlockDeleteNothing) {
    write_file(tslnfstab(), block("a") + "server: b\n");
    EXPECT_EQ(remove("b"), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), block("a") + "server: b\n");
    EXPECT_FALSE(exists(backup()));
}

TEST_F(Servers, KeepAMarkerWithABlankAsAComment) {
    const std::string odd = "#<server block begin> \nserver: a\n#<server block end>\n";
    write_file(tslnfstab(), odd + block("b"));
    EXPECT_EQ(remove("a"), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), odd);
}

TEST_F(Servers, CannotBeDeletedWithoutTheFile) {
    EXPECT_EQ(remove("a"), (Outcome{1, unopened(ENOENT)}));
    EXPECT_EQ(remove("a", 0), (Outcome{1, ""}));
    EXPECT_FALSE(exists(backup()));
}

TEST_F(Servers, InAHomeTooLongForTheirBuffersAreNotFound) {
    // "/dbs/tslnfstab" has 14 characters, and a buffer of 260 holds 259.
    const std::string fits = directory() + "/" + std::string(245 - directory().size() - 1, 'h');
    for (const auto &home : {fits, fits + "h"}) {
        std::filesystem::create_directories(home + "/dbs");
        write_file(home + "/dbs/tslnfstab", block("a"));
    }
    use_home(fits);
    EXPECT_EQ(list(), (Outcome{0, "a\n"}));
    EXPECT_EQ(remove("none"), (Outcome{0, unknown("none")}));
    EXPECT_EQ(trace(), "");

    use_home(fits + "h");
    const std::string refusal = "The path " + fits + "h/dbs/tslnfstab could not be resolved.";
    EXPECT_EQ(list(), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("getserverlist", 65059, refusal));
    EXPECT_EQ(remove("a"), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("delete_server", 65059, refusal));
    EXPECT_EQ(display("a"), (Outcome{0, "server: a\n"}));
}

TEST(ServerDeletion, KeepsEveryByteOfWhatItDoesNotLeaveOut) {
    const std::string odd("\0\xFF\r\n", 4);
    const std::string kept = odd + std::string(3000, 'x') + "\n \t\n";
    const std::string block = "#<server block begin>\nserver: a\n" + odd + "#<server block end>\n";
    const auto deletion = without_server(kept + block + kept, "a");
    ASSERT_TRUE(deletion);
    EXPECT_EQ(deletion->file, kept + kept);
    EXPECT_TRUE(deletion->is_as_meant());
}

TEST(ServerDeletion, CutsAtAMarkerThatContinuesAnOverlongLine) {
    const std::string piece(1023, '#');
    const auto deletion = without_server("server: a\n" + piece + "#<server block begin>\nx\n", "a");
    ASSERT_TRUE(deletion);
    EXPECT_EQ(deletion->file, "server: a\n" + piece);
}

}  // namespace
