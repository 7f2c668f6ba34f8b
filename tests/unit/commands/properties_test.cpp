// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "tests/unit/commands/command_fixture.h"
#include "tslwnfs/commands/executor.h"
#include "tslwnfs/commands/files.h"

namespace fs = std::filesystem;

namespace {

class PropertiesTest : public CommandTest {
  protected:
    PropertiesTest() { commandtype = kStorageProperties; }

    Outcome properties(const std::string &path) {
        return run([&] { return statfile(path.c_str()); });
    }

    static std::string block(const std::string &identifier_end, const std::string &operations) {
        return "/m/f not a directory"
               "\n \t file identifier                1" +
               identifier_end +
               "\n \t file size                      5  bytes"
               "\n \t prefered i/o size              1048576    bytes"
               "\n \t prefered i/o alignment         4096    bytes"
               "\n \t permitted tdm operations:" +
               operations;
    }

    // The nine lines with "YES" for the operations whose positions are listed.
    static std::string lines(const std::vector<std::size_t> &permitted) {
        const char *const labels[] = {"\n \t CREATE:                        ", "\n \t READ  :                        ",
                                      "\n \t WRITE :                        ", "\n \t RESIZE:                        ",
                                      "\n \t MIRROR SIDE I/O:               ", "\n \t WRITE ONCE FILE:               ",
                                      "\n \t RESILVER:                      ", "\n \t SCATTER GATHER SUPPORTED:      ",
                                      "\n \t RAW VOLUME:                    "};
        std::string text;
        for (std::size_t line = 0; line < 9; ++line) {
            const bool yes = std::find(permitted.begin(), permitted.end(), line) != permitted.end();
            text += std::string(labels[line]) + (yes ? "YES" : "NO");
        }
        return text;
    }

    void add_file(uint16_t permitted) {
        fake_.reset();
        fake_.volume.add_file("/m/f", "12345");
        fake_.file_properties.preferred_io_size = 1048576;
        fake_.file_properties.preferred_io_alignment = 4096;
        fake_.file_properties.permitted = permitted;
        fake_.file_properties.mirror_sides = 40000;
    }
};

TEST_F(PropertiesTest, ARemoteFileIsPrintedAndStaysOpen) {
    add_file(0x3);
    const Outcome outcome = properties("/m/f");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, block("  ", lines({1, 2})));
    EXPECT_THAT(fake_.calls_of({"unidentify"}), IsEmpty());
    EXPECT_THAT(trace(), IsEmpty());
}

TEST_F(PropertiesTest, TheLogHasNoBlanksBehindTheIdentifier) {
    add_file(0x3);
    turn_log_on();
    const Outcome outcome = properties("/m/f");
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.log, block("", lines({1, 2})));
}

TEST_F(PropertiesTest, EachOperationHasItsBit) {
    const std::pair<uint16_t, std::size_t> bits[] = {{0x10, 0}, {0x1, 1},  {0x2, 2},   {0x8, 3},
                                                     {0x4, 4},  {0x40, 5}, {0x100, 7}, {0x200, 8}};
    for (const auto &[bit, line] : bits) {
        add_file(bit);
        EXPECT_EQ(properties("/m/f").output, block("  ", lines({line}))) << bit;
    }
}

TEST_F(PropertiesTest, MirrorSidesBelongToTheResilverBit) {
    add_file(0x80);
    EXPECT_EQ(properties("/m/f").output, block("  ", lines({6})) + "\n\n \tno.of mirror sides\t\t\t40000");
}

TEST_F(PropertiesTest, ALocalFileIsItsStatus) {
    const std::string path = directory_.file("known", "1234567");
    chmod(path.c_str(), 0500);
    const timespec times[2] = {{.tv_sec = 0, .tv_nsec = 0}, {.tv_sec = 86400, .tv_nsec = 0}};
    utimensat(AT_FDCWD, path.c_str(), times, 0);
    fs::create_symlink(path, directory_.path("link"));
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    const std::string common =
        "\n \tsize of file:                     " + std::string(63, ' ') + "7 bytes" +
        "\n \tuser id of file owner:            " + std::to_string(static_cast<short>(status.st_uid)) + " " +
        "\n \tgroup id of group owner:          " + std::to_string(static_cast<short>(status.st_gid)) + " " +
        "\n \tserial number of file:            " + std::to_string(status.st_ino) + " " +
        "\n \tnumber of links for  file:        1 "
        "\n \tID of device containing the file: 0 "
        "\n \tTime of last access:              Thu Jan  1 00:00:00 1970\n "
        "\n \tTime of last data modification:   Fri Jan  2 00:00:00 1970\n"
        "\n \tTime of last file status change:  " +
        ctime(&status.st_ctime) +
        " "
        "\n \tfile type:                        Regular file";
    const std::string wide =
        "\n \tfile permissions:                 "
        "\n \tREAD:                             YES"
        "\n \tWRITE:                            NO"
        "\n \tEXEC:                             YES";
    const std::string narrow =
        "\n \tfile permissions:             "
        "\n \tREAD:                         YES"
        "\n \tWRITE:                        NO"
        "\n \tEXEC:                         YES";
    EXPECT_EQ(properties(path).output, common + wide);
    EXPECT_THAT(trace_of("statfile"),
                ElementsAre("statfile TWNFS-65036: Identification of " + path + " returned code 2."));
    EXPECT_EQ(properties(directory_.path("link")).output, common + wide);
    turn_log_on();
    const Outcome outcome = properties(path);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.log, common + narrow);
}

TEST_F(PropertiesTest, WhatALinkLeadsToHasTheWordOfItsTypeAndItsOwnDevice) {
    fs::create_symlink("/dev/null", directory_.path("device"));
    ASSERT_EQ(mkfifo(directory_.path("pipe").c_str(), 0600), 0);
    fs::create_symlink("pipe", directory_.path("link"));
    const std::string device = properties(directory_.path("device")).output;
    EXPECT_THAT(device, testing::HasSubstr("\n \tID of device containing the file: 259 \n"));
    EXPECT_THAT(device, testing::HasSubstr("\n \tfile type:                        Character Device\n"));
    EXPECT_THAT(properties(directory_.path("link")).output,
                testing::HasSubstr("\n \tfile type:                        Fifo\n"));
}

TEST_F(PropertiesTest, ALinkToADirectoryNamesItWithACapital) {
    fs::create_symlink(directory_.path(), directory_.path("link"));
    EXPECT_THAT(properties(directory_.path("link")).output,
                testing::HasSubstr("\n \tfile type:                        Directory\n"));
}

TEST_F(PropertiesTest, ADirectoryFailsSilently) {
    fake_.volume.add_directory("/m/d");
    for (const std::string &path : {std::string("/m/d"), directory_.path()}) {
        const Outcome outcome = properties(path);
        EXPECT_EQ(outcome.status, 1u);
        EXPECT_EQ(outcome.output, "");
    }
    EXPECT_THAT(trace_of("statfile"), IsEmpty());
}

TEST_F(PropertiesTest, Failures) {
    const std::string missing = directory_.path("missing");
    EXPECT_EQ(properties(missing).status, 1u);
    EXPECT_EQ(properties("/m/missing").status, 1u);
    EXPECT_EQ(properties("..").status, 1u);
    EXPECT_EQ(run([] { return statfile(nullptr); }).status, 1u);
    EXPECT_THAT(trace_of("statfile"),
                ElementsAre("statfile TWNFS-65036: Identification of " + missing + " returned code 2.",
                            "statfile TWNFS-65049: The file " + missing + " could not be opened for reading.",
                            "statfile TWNFS-65036: Identification of /m/missing returned code 3.",
                            "statfile TWNFS-65059: The path .. could not be resolved.",
                            "statfile TWNFS-65016: The first operand is missing."));
}

TEST_F(PropertiesTest, ARemoteFileThatCannotBeIdentifiedFails) {
    add_file(0x3);
    fake_.answer("identify", 1, {.status = 0, .location = 3});
    fake_.answer("identify", 2, {.status = 5, .location = 1});
    for (const char *code : {"3", "1"}) {
        const Outcome outcome = properties("/m/f");
        EXPECT_EQ(outcome.status, 1u);
        EXPECT_EQ(outcome.output, "/m/f not a directory");
        EXPECT_EQ(trace().back(),
                  std::string("statfile TWNFS-65036: Identification of /m/f returned code ") + code + ".");
    }
}

TEST_F(PropertiesTest, TheExecutorLeadsHere) {
    add_file(0x3);
    const Outcome outcome = run([] { return exec_command("/m/f", nullptr); });
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output,
              "STAT /m/f : \n" + block("  ", lines({1, 2})) + "TWNFS-65023: The command completed successfully.\n");
}

}  // namespace
