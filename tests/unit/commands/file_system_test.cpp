// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/unit/commands/command_fixture.h"
#include "tslwnfs/commands/files.h"
#include "tslwnfs/commands/stat_format.h"

namespace fs = std::filesystem;

namespace {

const std::string kRemoteBlock =
    "\n \t uid                               10"
    "\n \t gid                               20"
    "\n \t size                              5"
    "\n \tTime of last access:               Thu Jan  1 00:00:00 1970\n "
    "\n \tTime of last data modification:    Fri Jan  2 00:00:00 1970\n"
    "\n \tTime of last file status change:   Sat Jan  3 00:00:00 1970\n "
    "\n \t permitted operations:"
    "\n \t Read permission for owner:        YES"
    "\n \t Write permission for owner:       NO"
    "\n \t lookup permission for owner:      YES"
    "\n \t Read permission for group:        NO"
    "\n \t Write permission for group:       YES"
    "\n \t lookup permission for group:      NO"
    "\n \t Read permission for others:       NO"
    "\n \t Write permission for others:      NO"
    "\n \t lookup permission for others      YES";

const std::string kFigures =
    "\n \t total size of the file system     18446744073709551615  bytes"
    "\n \t free space in the file system     5000000000  bytes"
    "\n \t free space available to the user  3  bytes"
    "\n \t total file slots in file system   4 "
    "\n \t free file slots in  file system   5 "
    "\n \t free file slots available to user 6 "
    "\n \t file system volatility            4294967295  sec";

void describe(const FakeNodePointer &node) {
    TdmAttributes &attributes = node->attributes;
    attributes.uid = 10;
    attributes.gid = 20;
    attributes.permissions = 0x100 | 0x40 | 0x10 | 0x1;
    attributes.access_seconds = 0;
    attributes.modification_seconds = 86400;
    attributes.change_seconds = 2 * 86400;
}

class FileSystemTest : public CommandTest {
  protected:
    FileSystemTest() {
        commandtype = kFsStat;
        describe(fake_.volume.add_file("/m/f", "12345"));
        TdmFsStat &figures = fake_.file_system_figures;
        figures.total_bytes = UINT64_MAX;
        figures.free_bytes = 5000000000;
        figures.available_bytes = 3;
        figures.total_files = 4;
        figures.free_files = 5;
        figures.available_files = 6;
        figures.volatility_seconds = UINT32_MAX;
    }

    Outcome fsinfo(const std::string &path) {
        return run([&] { return fsinfodir(path.c_str()); });
    }
    Outcome fsstat(const std::string &path) {
        return run([&] { return fsstatdir(path.c_str()); });
    }
    Outcome formatted(const std::string &path, const char *format) {
        COMMAND_OPTION |= kStatFormat;
        stat_fmtptr = format;
        return fsstat(path);
    }

    // A file whose status is known, and its block.
    std::string known_file() {
        const std::string path = directory_.file("known", "1234567");
        chmod(path.c_str(), 0527);
        const timespec times[2] = {{.tv_sec = 0, .tv_nsec = 0}, {.tv_sec = 86400, .tv_nsec = 0}};
        utimensat(AT_FDCWD, path.c_str(), times, 0);
        stat(path.c_str(), &status_);
        return path;
    }
    std::string known_block(bool with_serial_number) const {
        const auto number = [](auto value) { return std::to_string(value); };
        const std::string serial = "\n \tserial number of file:            " + number(status_.st_ino) + " ";
        return "\n \tsize of file:                     " + in_64_columns("7") + " bytes" +
               "\n \tuser id of file owner:            " + number(static_cast<short>(status_.st_uid)) + " " +
               "\n \tgroup id of group owner:          " + number(static_cast<short>(status_.st_gid)) + " " +
               (with_serial_number ? serial : "") +
               "\n \tnumber of links for  file:        1 "
               "\n \tID of device containing the file: 0 "
               "\n \tTime of last access:              Thu Jan  1 00:00:00 1970\n "
               "\n \tTime of last data modification:   Fri Jan  2 00:00:00 1970\n"
               "\n \tTime of last file status change:  " +
               ctime(&status_.st_ctime) +
               " "
               "\n \tfile type:                        Regular file"
               "\n \tfile permissions:                 "
               "\n \tREAD:                             YES"
               "\n \tWRITE:                            NO"
               "\n \tEXEC:                             YES";
    }

    struct stat status_ = {};
};

TEST_F(FileSystemTest, FsinfoPrintsTheServersLimitsAndTheDirectory) {
    describe(fake_.volume.add_directory("/m/d"));
    TdmFsInfo &limits = fake_.file_system_limits;
    limits.read_maximum = 5000000000;
    limits.read_preferred = 2;
    limits.read_multiple = 4294967295;
    limits.write_maximum = 6000000000;
    limits.write_preferred = 5;
    limits.write_multiple = 6;
    limits.readdir_preferred = 7000000000;
    std::string block = kRemoteBlock;
    block.replace(block.find("5\n"), 1, "4096");
    const std::string expected =
        "\n \t max. size of a READ request supported by the server    5000000000  bytes"
        "\n \t The preferred size of a READ request                   2  bytes"
        "\n \t The suggested multiple for the size of a READ request  4294967295  "
        "\n \t max. size of a WRITE request supported by the server   6000000000  bytes"
        "\n \t The preferred size of a WRITE request                  5  bytes"
        "\n \t The suggested multiple for the size of a WRITE request 6 "
        "\n \t he preferred size of a READDIR request                 7000000000  bytes" +
        block;
    Outcome outcome = fsinfo("/m/d");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, expected);
    EXPECT_THAT(trace(), IsEmpty());
    turn_log_on();
    outcome = fsinfo("/m/d");
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.log, expected);
}

TEST_F(FileSystemTest, FsinfoOfARemoteFileSaysWhatItIsNot) {
    const Outcome outcome = fsinfo("/m/f");
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "not a directory\n");
    EXPECT_THAT(trace(), IsEmpty());
    turn_log_on();
    EXPECT_EQ(fsinfo("/m/f").log, "not a directory\n");
}

TEST_F(FileSystemTest, FsinfoOfALocalObjectIsItsStatus) {
    const std::string path = known_file();
    const Outcome outcome = fsinfo(path);
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, known_block(true));
    EXPECT_THAT(trace(),
                ElementsAre("fsinfodir TWNFS-65066: File system information of " + path + ": location code 1."));
    turn_log_on();
    EXPECT_EQ(fsinfo(path).log, known_block(false));
}

TEST_F(FileSystemTest, FsinfoFollowsALocalLinkAndNamesADirectory) {
    const std::string path = known_file();
    fs::create_symlink(path, directory_.path("link"));
    EXPECT_EQ(fsinfo(directory_.path("link")).output, known_block(true));
    EXPECT_THAT(fsinfo(directory_.path()).output, testing::HasSubstr("file type:                        Directory\n"));
}

TEST_F(FileSystemTest, LocalFilesOfOtherTypesHaveTheirWords) {
    ASSERT_EQ(mkfifo(directory_.path("pipe").c_str(), 0600), 0);
    fs::create_symlink("nowhere", directory_.path("link"));
    const auto type = [](const std::string &word) {
        return testing::HasSubstr("\n \tfile type:                        " + word + "\n");
    };
    for (const Outcome &outcome : {fsinfo("/dev/null"), fsstat("/dev/null")}) {
        EXPECT_THAT(outcome.output, type("Character Device"));
        // The device it stands for, not the one it lies on.
        EXPECT_THAT(outcome.output, testing::HasSubstr("\n \tID of device containing the file: 259 \n"));
    }
    EXPECT_THAT(fsstat(directory_.path("pipe")).output, type("Fifo"));
    EXPECT_THAT(fsstat(directory_.path()).output, type("Directory"));
    EXPECT_THAT(fsstat(directory_.path("link")).output, type(""));
}

TEST_F(FileSystemTest, FsinfoFailures) {
    fake_.answer("fsinfo", 1, {.status = 5, .location = 0});
    fake_.answer("fsinfo", 2, {.status = 0, .location = 2});
    fake_.answer("fsinfo", 3, {.status = 0, .location = 3});
    for (int call = 0; call < 3; ++call) {
        EXPECT_EQ(fsinfo("/m/f").status, 1u);
    }
    EXPECT_EQ(fsinfo("/missing/f").status, 1u);
    EXPECT_EQ(fsinfo("..").status, 1u);
    EXPECT_EQ(run([] { return fsinfodir(nullptr); }).status, 1u);
    EXPECT_THAT(trace(), ElementsAre("fsinfodir TWNFS-65066: File system information of /m/f: location code 0.",
                                     "fsinfodir TWNFS-65066: File system information of /m/f: location code 2.",
                                     "fsinfodir TWNFS-65066: File system information of /m/f: location code 3.",
                                     "fsinfodir TWNFS-65066: File system information of /missing/f: location code 1.",
                                     "fsinfodir TWNFS-65013: The status of /missing/f could not be read.",
                                     "fsinfodir TWNFS-65059: The path .. could not be resolved.",
                                     "fsinfodir TWNFS-65016: The first operand is missing."));
}

TEST_F(FileSystemTest, FsstatDescribesARemoteFileAndRemarksThatItIsNoDirectory) {
    const Outcome outcome = fsstat("/m/f");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, kRemoteBlock);
    EXPECT_THAT(trace(), ElementsAre("fsstatdir TWNFS-65028: /m/f is not a directory."));
    turn_log_on();
    EXPECT_EQ(fsstat("/m/f").log, kRemoteBlock);
}

TEST_F(FileSystemTest, TheFiguresStandAlone) {
    fake_.volume.add_directory("/m/d");
    COMMAND_OPTION = kStatFigures;
    const Outcome outcome = fsstat("/m/d");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, kFigures);
    EXPECT_THAT(trace(), IsEmpty());
    turn_log_on();
    EXPECT_EQ(fsstat("/m/d").log, kFigures);
}

TEST_F(FileSystemTest, TheFiguresPrecedeAFormattedLine) {
    EXPECT_EQ(formatted("/m/f", "%s").output, "5");
    COMMAND_OPTION = kStatFigures;
    EXPECT_EQ(formatted("/m/f", "%s").output, kFigures + "5");
}

TEST_F(FileSystemTest, TheFiguresAreThoseOfRemoteObjectsOnly) {
    COMMAND_OPTION = kStatFigures;
    const std::string path = known_file();
    const Outcome outcome = fsstat(path);
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, known_block(true));
    EXPECT_THAT(trace(),
                ElementsAre("fsstatdir TWNFS-65048: File system statistics of " + path + ": location code 1."));
    EXPECT_EQ(formatted(path, "%F").output, "f");
    turn_log_on();
    COMMAND_OPTION = kStatFigures;
    EXPECT_EQ(fsstat(path).log, known_block(false));
}

TEST_F(FileSystemTest, AFormattedLineGoesToTheLogWhenThereIsOne) {
    turn_log_on();
    const Outcome outcome = formatted("/m/f", "%A %n");
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.log, "r-x-w---x /m/f");
}

TEST_F(FileSystemTest, RemoteDirectives) {
    EXPECT_EQ(formatted("/m/./f", "%A %n").output, "r-x-w---x /m/f");
    EXPECT_EQ(formatted("/m/f", "%F|%g|%u|%s").output, "f|20|10|5");
    EXPECT_EQ(formatted("/m/f", "%x%y%z").output,
              "Thu Jan  1 00:00:00 1970\nFri Jan  2 00:00:00 1970\nSat Jan  3 00:00:00 1970\n");
    EXPECT_EQ(formatted("/m", "%F").output, "d");
    fake_.volume.add_link("/m/l", "f");
    EXPECT_EQ(formatted("/m/l", "%F").output, "-");
}

TEST_F(FileSystemTest, LocalDirectives) {
    const std::string path = known_file();
    const std::string owner =
        std::to_string(static_cast<short>(status_.st_gid)) + "|" + std::to_string(static_cast<short>(status_.st_uid));
    EXPECT_EQ(formatted(path, "%A %n").output, "r-x " + path);
    EXPECT_EQ(formatted(path, "%F|%g|%u|%s").output, "f|" + owner + "|" + in_64_columns("7"));
    EXPECT_EQ(formatted(path, "%x%y").output, "Thu Jan  1 00:00:00 1970\nFri Jan  2 00:00:00 1970\n");
    EXPECT_EQ(formatted(path, "%z").output, ctime(&status_.st_ctime));
    EXPECT_EQ(formatted(directory_.path(), "%F").output, "d");
    EXPECT_EQ(formatted("/dev/null", "%F").output, "-");
}

TEST_F(FileSystemTest, WhatIsNoDirectiveVanishesWithItsPercentSign) {
    EXPECT_EQ(formatted("/m/f", "a%%b%5c%qd%Ne%of%").output, "abcdef");
    EXPECT_EQ(formatted("/m/f", "%").output, "");
    EXPECT_EQ(formatted("/m/f", "").output, "");
    EXPECT_EQ(formatted("/m/f", "plain").output, "plain");
    EXPECT_EQ(formatted("/m/f", "%%s").output, "s");
    EXPECT_EQ(formatted("/m/f", nullptr).output, "");
    const std::string wide(3000, 'x');
    EXPECT_EQ(formatted("/m/f", (wide + "%s").c_str()).output, wide + "5");
}

TEST_F(FileSystemTest, OwnerNumbersOfLocalFilesAreSignedSixteenBitValues) {
    struct stat status = {};
    status.st_uid = 65534;
    status.st_gid = 40000;
    EXPECT_EQ(format_local("%u %g", "", status), "-2 -25536");
}

TEST_F(FileSystemTest, ALinkIsDescribedItselfUnlessFollowed) {
    const std::string path = known_file();
    fs::create_symlink("known", directory_.path("link"));
    EXPECT_EQ(formatted(directory_.path("link"), "%F%n").output, "-" + directory_.path("link"));
    fake_.volume.add_link("/m/l", "f");
    EXPECT_EQ(formatted("/m/l", "%F%n").output, "-/m/l");
    COMMAND_OPTION = kStatFollow;
    EXPECT_EQ(formatted(directory_.path("link"), "%F%n").output, "f" + path);
    EXPECT_EQ(formatted("/m/l", "%F%n").output, "f/m/f");
    EXPECT_EQ(formatted("/m/f", "%F%n").output, "f/m/f");
}

TEST_F(FileSystemTest, ALinkOnAServerLeadsToNoFileOfThisHost) {
    fake_.volume.add_link("/m/out", directory_.file("f", ""));
    COMMAND_OPTION = kStatFollow;
    const Outcome outcome = fsstat("/m/out");
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(trace_of("fsstatdir").back(), "fsstatdir /m/out leads to " + directory_.path("f") +
                                                ", which is on no mount: Invalid cross-device link");
}

TEST_F(FileSystemTest, AFollowedLinkThatLeadsNowhereFails) {
    COMMAND_OPTION = kStatFollow;
    fs::create_symlink("nowhere", directory_.path("link"));
    EXPECT_EQ(fsstat(directory_.path("link")).status, 1u);
    EXPECT_EQ(trace().back(),
              "fsstatdir TWNFS-65013: The status of " + directory_.path("nowhere") + " could not be read.");
    fake_.volume.add_link("/m/l", "f");
    fake_.answer("readlink", 2, {.status = 5, .location = {}});
    EXPECT_EQ(fsstat("/m/l").status, 1u);
    fake_.answer("readlink", 3, {.status = 0, .location = 4});  // no target at all
    EXPECT_EQ(fsstat("/m/l").status, 1u);
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(FileSystemTest, AThousandLinksInARowAreFollowedAndARingEnds) {
    COMMAND_OPTION = kStatFollow;
    for (int link = 0; link < 1000; ++link) {
        fake_.volume.add_link("/m/l" + std::to_string(link), "l" + std::to_string(link + 1));
    }
    describe(fake_.volume.add_file("/m/l1000", "12345"));
    EXPECT_EQ(formatted("/m/l0", "%n").output, "/m/l1000");

    fs::create_symlink("b", directory_.path("a"));
    fs::create_symlink("a", directory_.path("b"));
    EXPECT_EQ(fsstat(directory_.path("a")).status, 1u);
    EXPECT_THAT(trace().back(), testing::EndsWith(": more than 1000 links in a row"));
}

TEST_F(FileSystemTest, AFailedCallDescribesNothingWhateverTheLocation) {
    const std::string path = known_file();
    fake_.answer("fsinfo", 1, {.status = 5, .location = 1});
    fake_.answer("fsstat", 1, {.status = 5, .location = 1});
    for (const Outcome &outcome : {fsinfo(path), fsstat(path)}) {
        EXPECT_EQ(outcome.status, 1u);
        EXPECT_EQ(outcome.output, "");
    }
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(FileSystemTest, TheOptionBitsOfOtherCommandsMeanNothingHere) {
    commandtype = kList;
    COMMAND_OPTION = kStatFigures | kStatFormat;
    EXPECT_EQ(fsstat("/m/f").output, kRemoteBlock);
}

TEST_F(FileSystemTest, FsstatFailures) {
    fake_.answer("fsstat", 1, {.status = 5, .location = 0});
    fake_.answer("fsstat", 2, {.status = 0, .location = 2});
    fake_.answer("fsstat", 3, {.status = 0, .location = 3});
    for (int call = 0; call < 3; ++call) {
        EXPECT_EQ(fsstat("/m/f").status, 1u);
    }
    EXPECT_EQ(fsstat("/missing/f").status, 1u);
    EXPECT_EQ(fsstat("..").status, 1u);
    EXPECT_EQ(run([] { return fsstatdir(nullptr); }).status, 1u);
    EXPECT_THAT(trace(), ElementsAre("fsstatdir TWNFS-65048: File system statistics of /m/f: location code 0.",
                                     "fsstatdir TWNFS-65048: File system statistics of /m/f: location code 2.",
                                     "fsstatdir TWNFS-65048: File system statistics of /m/f: location code 3.",
                                     "fsstatdir TWNFS-65048: File system statistics of /missing/f: location code 1.",
                                     "fsstatdir TWNFS-65013: The status of /missing/f could not be read.",
                                     "fsstatdir TWNFS-65059: The path .. could not be resolved.",
                                     "fsstatdir TWNFS-65016: The first operand is missing."));
}

}  // namespace
