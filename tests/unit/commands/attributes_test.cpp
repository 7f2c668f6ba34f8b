// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/attributes.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/support/allocation_faults.h"
#include "tests/unit/commands/command_fixture.h"
#include "tslwnfs/commands/attribute_block.h"

namespace {

constexpr const char *kEpoch = "Thu Jan  1 00:00:00 1970\n";

class AttributesTest : public CommandTest {
  protected:
    Outcome getattr(const std::string &path, int32_t print_block = 1) {
        return run([&] { return getattrdir(path.c_str(), result_, print_block); });
    }

    Outcome setattr(const std::string &path, const std::string &answers) {
        return run([&] { return setattrdir(path.c_str()); }, answers);
    }

    // A directory whose status is known.
    std::string known_directory() {
        const std::string path = directory_.directory("known");
        chmod(path.c_str(), 0500);
        const timespec times[2] = {{.tv_sec = 0, .tv_nsec = 0}, {.tv_sec = 86400, .tv_nsec = 0}};
        utimensat(AT_FDCWD, path.c_str(), times, 0);
        stat(path.c_str(), &status_);
        return path;
    }

    // The block of known_directory(), with what stands behind the lines that differ between the two streams.
    std::string known_block(const std::string &end) const {
        const auto number = [](auto value) { return std::to_string(value); };
        return "\n \tsize of file:                     " + in_64_columns(number(status_.st_size)) + " bytes" +
               "\n \tuser id of file owner:            " + number(static_cast<short>(status_.st_uid)) + end +
               "\n \tgroup id of group owner:          " + number(static_cast<short>(status_.st_gid)) + end +
               "\n \tserial number of file:            " + number(status_.st_ino) + end +
               "\n \tnumber of links for  file:        " + number(status_.st_nlink) + end +
               "\n \tID of device containing the file: 0" + end + "\n \tTime of last access:              " + kEpoch +
               end + "\n \tTime of last data modification:   Fri Jan  2 00:00:00 1970\n" +
               "\n \tTime of last file status change:  " + ctime(&status_.st_ctime) + end +
               "\n \tfile type:                        directory" +
               "\n \tfile permissions:                 " + "\n \tREAD:                             YES" +
               "\n \tWRITE:                            NO" + "\n \tEXEC:                             YES";
    }

    AttrResult result_;
    struct stat status_ = {};
};

TEST_F(AttributesTest, SizesStandAtTheRightOf64Columns) {
    EXPECT_EQ(format_I64d(0), in_64_columns("0"));
    EXPECT_EQ(format_I64d(3000000000), in_64_columns("3000000000"));
    EXPECT_EQ(format_I64d(INT64_MAX), in_64_columns("9223372036854775807"));
}

TEST_F(AttributesTest, ATimeWithoutATextIsAnEmptyLine) {
    EXPECT_EQ(time_text(0), kEpoch);
    EXPECT_EQ(time_text(uint64_t{1} << 62), "\n");
}

TEST_F(AttributesTest, ALocalDirectoryIsPrinted) {
    const std::string path = known_directory();
    const Outcome outcome = getattr(path);
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, known_block(""));
    EXPECT_EQ(result_.is_local, 1);
    ASSERT_TRUE(result_.local);
    EXPECT_EQ(result_.local->st_ino, status_.st_ino);
    EXPECT_FALSE(result_.remote);
    EXPECT_THAT(trace(), ElementsAre("getattrdir TWNFS-65067: Attributes of " + path + ": location code 1."));
}

TEST_F(AttributesTest, TheLogHasABlankBehindSomeLines) {
    turn_log_on();
    const Outcome outcome = getattr(known_directory());
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.log, known_block(" "));
}

TEST_F(AttributesTest, OwnerNumbersAreSignedSixteenBitValues) {
    struct stat status = {};
    status.st_uid = 65534;
    status.st_gid = 40000;
    const Outcome outcome = run([&] {
        print_local_block(status,
                          {.line_end = "", .directory = "", .serial_number = true, .wide_permission_labels = true});
        return 0U;
    });
    EXPECT_THAT(outcome.output, testing::HasSubstr("\n \tuser id of file owner:            -2\n"));
    EXPECT_THAT(outcome.output, testing::HasSubstr("\n \tgroup id of group owner:          -25536\n"));
}

TEST_F(AttributesTest, FileTypesHaveTheirWords) {
    const auto word = [&](mode_t mode) {
        struct stat status = {};
        status.st_mode = mode;
        const std::string text = run([&] {
                                     print_local_block(status, {.line_end = "",
                                                                .directory = "Directory",
                                                                .serial_number = false,
                                                                .wide_permission_labels = false});
                                     return 0U;
                                 }).output;
        const std::string label = "\n \tfile type:                        ";
        const std::size_t start = text.find(label) + label.size();
        return text.substr(start, text.find('\n', start) - start);
    };
    EXPECT_EQ(word(S_IFREG), "Regular file");
    EXPECT_EQ(word(S_IFDIR), "Directory");
    EXPECT_EQ(word(S_IFCHR), "Character Device");
    EXPECT_EQ(word(S_IFIFO), "Fifo");
    // Types whose bits contain those of another one.
    EXPECT_EQ(word(S_IFBLK), "");
    EXPECT_EQ(word(S_IFLNK), "");
    EXPECT_EQ(word(S_IFSOCK), "");
}

TEST_F(AttributesTest, LocalFilesAndLinksAreToldApartAndNotPrinted) {
    const std::string file = directory_.file("file", "text");
    std::filesystem::create_symlink(directory_.path(), directory_.path("link"));
    std::filesystem::create_symlink("nowhere", directory_.path("dangling"));
    for (const auto &[name, type] :
         {std::pair{"file", kTypeRegular}, std::pair{"link", kTypeLink}, std::pair{"dangling", kTypeLink}}) {
        const Outcome outcome = getattr(directory_.path(name));
        EXPECT_EQ(outcome.status, type) << name;
        EXPECT_EQ(outcome.output, "") << name;
    }
}

TEST_F(AttributesTest, ALocalPipeIsPrintedLikeADirectory) {
    ASSERT_EQ(mkfifo(directory_.path("pipe").c_str(), 0600), 0);
    const Outcome outcome = getattr(directory_.path("pipe"));
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_THAT(outcome.output, testing::HasSubstr("file type:                        Fifo\n"));
}

TEST_F(AttributesTest, AMissingLocalPathIsAFailure) {
    const std::string path = directory_.path("missing");
    EXPECT_EQ(getattr(path).status, 1u);
    EXPECT_TRUE(result_.empty());
    EXPECT_THAT(trace(), ElementsAre("getattrdir TWNFS-65067: Attributes of " + path + ": location code 1.",
                                     "getattrdir TWNFS-65013: The status of " + path + " could not be read."));
}

TEST_F(AttributesTest, ARemoteDirectoryIsPrinted) {
    TdmAttributes &attributes = fake_.volume.add_directory("/m/d")->attributes;
    attributes.uid = 4294967294;
    attributes.gid = 7;
    attributes.access_seconds = 0;
    attributes.modification_seconds = 86400;
    attributes.change_seconds = 2 * 86400;
    attributes.permissions = 0x100 | 0x40 | 0x10 | 0x1;
    const std::string block =
        "\n \t uid                               4294967294"
        "\n \t gid                               7"
        "\n \t size                              4096"
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
    Outcome outcome = getattr("/m/d");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, block);
    EXPECT_EQ(result_.is_local, 0);
    ASSERT_TRUE(result_.remote);
    EXPECT_EQ(result_.remote->gid, 7u);
    EXPECT_THAT(trace(), IsEmpty());

    turn_log_on();
    outcome = getattr("/m/d");
    EXPECT_EQ(outcome.log, block);
    EXPECT_EQ(getattr("/m/d", 0).output, "");
}

TEST_F(AttributesTest, WhatIsNoRemoteDirectoryIsRemarkedUponWithoutALineFeed) {
    fake_.volume.add_file("/m/f", "x");
    fake_.volume.add_link("/m/l", "f");
    fake_.volume.add_file("/m/device", "")->attributes.type = 4;
    for (const int32_t print_block : {0, 1}) {
        const Outcome file = getattr("/m/f", print_block);
        EXPECT_EQ(file.status, 2u);
        EXPECT_EQ(file.output, "/m/f not a directory");
        const Outcome link = getattr("/m/l", print_block);
        EXPECT_EQ(link.status, 3u);
        EXPECT_EQ(link.output, "/m/l not a directory");
    }
    const Outcome device = getattr("/m/device", 0);
    EXPECT_EQ(device.status, 0u);
    EXPECT_EQ(device.output, "/m/device not a directory");
}

TEST_F(AttributesTest, RemoteFailuresAreTracedWithTheirLocation) {
    fake_.answer("getattr", 1, {.status = 70, .location = 0});
    fake_.answer("getattr", 2, {.status = 0, .location = 2});
    fake_.answer("getattr", 3, {.status = 0, .location = 3});
    for (int call = 0; call < 3; ++call) {
        EXPECT_EQ(getattr("/m/x").status, 1u);
    }
    EXPECT_THAT(trace(), ElementsAre("getattrdir TWNFS-65067: Attributes of /m/x: location code 0.",
                                     "getattrdir TWNFS-65067: Attributes of /m/x: location code 2.",
                                     "getattrdir TWNFS-65067: Attributes of /m/x: location code 3."));
}

TEST_F(AttributesTest, AnUndocumentedLocationGivesNoRecord) {
    fake_.answer("getattr", 0, {.status = 0, .location = 4});
    EXPECT_EQ(getattr("/m/x").status, 0u);
    EXPECT_TRUE(result_.empty());
    EXPECT_EQ(setattr("/m/x", "y\n").status, 1u);
    EXPECT_THAT(trace(), IsEmpty());
}

TEST_F(AttributesTest, MissingMemoryIsTraced) {
    {
        const AllocationFault fault(152);
        EXPECT_EQ(getattr("/m/x").status, 1u);
        EXPECT_TRUE(AllocationFault::fired());
    }
    {
        const AllocationFault fault(sizeof(struct stat));
        EXPECT_EQ(getattr("/tmp").status, 1u);
        EXPECT_TRUE(AllocationFault::fired());
    }
    EXPECT_THAT(trace(), ElementsAre("getattrdir TWNFS-65060: 152 bytes of memory could not be allocated.",
                                     "getattrdir TWNFS-65067: Attributes of /tmp: location code 1.",
                                     "getattrdir TWNFS-65060: 128 bytes of memory could not be allocated."));
}

TEST_F(AttributesTest, AMissingOrUnresolvablePathFails) {
    EXPECT_EQ(run([&] { return getattrdir(nullptr, result_, kPrinted); }).status, 1u);
    EXPECT_EQ(getattr("..").status, 1u);
    EXPECT_EQ(run([&] { return setattrdir(nullptr); }).status, 1u);
    EXPECT_EQ(setattr("..", "").status, 1u);
    EXPECT_THAT(trace(), ElementsAre("getattrdir TWNFS-65016: The first operand is missing.",
                                     "getattrdir TWNFS-65059: The path .. could not be resolved.",
                                     "setattrdir TWNFS-65016: The first operand is missing.",
                                     "setattrdir TWNFS-65059: The path .. could not be resolved."));
}

TEST_F(AttributesTest, ALinkToADirectoryIsADirectoryAsADestination) {
    directory_.file("file", "");
    std::filesystem::create_symlink(directory_.path(), directory_.path("link"));
    std::filesystem::create_symlink(directory_.path("file"), directory_.path("filelink"));
    fake_.volume.add_directory("/m/d");
    fake_.volume.add_link("/m/l", "d");
    run([&] {
        EXPECT_TRUE(is_directory_destination(directory_.path().c_str()));
        EXPECT_TRUE(is_directory_destination(directory_.path("link").c_str()));
        EXPECT_FALSE(is_directory_destination(directory_.path("filelink").c_str()));
        EXPECT_FALSE(is_directory_destination(directory_.path("file").c_str()));
        EXPECT_FALSE(is_directory_destination(directory_.path("missing").c_str()));
        EXPECT_TRUE(is_directory_destination("/m/d"));
        EXPECT_FALSE(is_directory_destination("/m/l"));
        return 0U;
    });
}

TEST_F(AttributesTest, LocalPermissionsAreTheOwnersAnswers) {
    const std::string path = directory_.directory("d");
    chmod(path.c_str(), 0777);
    const Outcome outcome = setattr(path, "y\nn\nn\n");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output,
              "assign read permission y/n : assign write permission y/n : assign exec permission y/n : ");
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0400u);
    EXPECT_EQ(setattr(path, "y\ny\nyes\n").status, 0u);
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
}

TEST_F(AttributesTest, QuestionsStayOnStandardOutputWhenTheLogIsOn) {
    turn_log_on();
    const Outcome outcome = setattr(directory_.directory("d"), "y\ny\ny\n");
    EXPECT_EQ(outcome.output,
              "assign read permission y/n : assign write permission y/n : assign exec permission y/n : ");
    EXPECT_EQ(outcome.log, "");
}

TEST_F(AttributesTest, OnlyALowerCaseFirstLetterAnswers) {
    const std::string path = directory_.directory("d");
    const Outcome outcome = setattr(path, "Y\nmaybe\nyup\nnay\nyesterdayfoo\nn\n");
    EXPECT_EQ(outcome.status, 0u);
    // "yesterdayfoo" is two words of nine characters at most: the second one asks nothing more, the questions are over.
    EXPECT_EQ(outcome.output,
              "assign read permission y/n : assign read permission y/n : assign read permission y/n : "
              "assign write permission y/n : assign exec permission y/n : ");
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0500u);
    chmod(path.c_str(), 0700);
}

TEST_F(AttributesTest, TheEndOfTheInputChangesNothing) {
    const std::string path = directory_.directory("d");
    chmod(path.c_str(), 0755);
    EXPECT_EQ(setattr(path, "n\nn\n").status, 1u);
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0755u);
    fake_.volume.add_directory("/m/d");
    EXPECT_EQ(setattr("/m/d", "y\n").status, 1u);
    EXPECT_THAT(fake_.calls_of({"setattr"}), IsEmpty());
}

TEST_F(AttributesTest, OnlyADirectoryGetsPermissions) {
    const std::string file = directory_.file("f", "");
    EXPECT_EQ(setattr(file, "y\ny\ny\n").output, "");
    EXPECT_EQ(setattr(file, "y\ny\ny\n").status, 1u);
    fake_.volume.add_file("/m/f", "");
    const Outcome outcome = setattr("/m/f", "y\n");
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "/m/f not a directory");
}

TEST_F(AttributesTest, RemotePermissionsAreNineAnswers) {
    fake_.volume.add_directory("/m/d");
    const Outcome outcome = setattr("/m/d", "y y y y n n n n y");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output,
              "assign read permission for owner y/n : assign read permission for group y/n : "
              "assign read permission for other y/n : assign write permission for owner y/n : "
              "assign write permission for group y/n : assign write permission for other y/n : "
              "assign exec permission for owner y/n : assign exec permission for group y/n : "
              "assign exec permission for other y/n : ");
    EXPECT_THAT(fake_.calls_of({"setattr"}), ElementsAre("setattr /m/d mask=1 permissions=0645"));
    EXPECT_THAT(trace(), IsEmpty());
}

TEST_F(AttributesTest, EachRemoteQuestionHasItsBit) {
    fake_.volume.add_directory("/m/d");
    const char *const octal[] = {"0400", "040", "04", "0200", "020", "02", "0100", "010", "01"};
    for (int question = 0; question < 9; ++question) {
        std::string answers = "n n n n n n n n n ";
        answers[static_cast<std::size_t>(2 * question)] = 'y';
        fake_.forget_calls();
        EXPECT_EQ(setattr("/m/d", answers).status, 0u);
        EXPECT_THAT(fake_.calls_of({"setattr"}),
                    ElementsAre("setattr /m/d mask=1 permissions=" + std::string(octal[question])));
    }
}

TEST_F(AttributesTest, RemoteAnswersOfSetattr) {
    fake_.volume.add_directory("/m/d");
    const auto status_of = [&](uint32_t status, uint32_t location) {
        fake_.answer("setattr", 0, {status, location});
        return setattr("/m/d", "n n n n n n n n n").status;
    };
    EXPECT_EQ(status_of(0, 0), 0u);
    EXPECT_EQ(status_of(0, 5), 0u);
    EXPECT_THAT(trace(), IsEmpty());
    EXPECT_EQ(status_of(0, 1), 0u);
    EXPECT_EQ(status_of(0, 2), 1u);
    EXPECT_EQ(status_of(0, 3), 1u);
    EXPECT_EQ(status_of(30, 0), 1u);
    EXPECT_THAT(trace(), ElementsAre("setattrdir TWNFS-65068: Setting the attributes of /m/d: location code 1.",
                                     "setattrdir TWNFS-65068: Setting the attributes of /m/d: location code 2.",
                                     "setattrdir TWNFS-65068: Setting the attributes of /m/d: location code 3.",
                                     "setattrdir TWNFS-65068: Setting the attributes of /m/d: location code 0."));
}

TEST_F(AttributesTest, ARefusedChangeIsPrinted) {
    // Read-only to everyone, root included; printed even though other failures are only traced.
    const Outcome outcome = setattr("/proc/self", "y\ny\ny\n");
    ASSERT_EQ(getattr("/proc/self").status, 3u);
    EXPECT_EQ(outcome.status, 1u);

    const Outcome refused = setattr("/proc/sys", "y\ny\ny\n");
    EXPECT_EQ(refused.status, 1u);
    EXPECT_TRUE(refused.output.ends_with("TWNFS-65015: The permissions of /proc/sys could not be changed.\n"));
    turn_log_on();
    EXPECT_EQ(setattr("/proc/sys", "y\ny\ny\n").log,
              "TWNFS-65015: The permissions of /proc/sys could not be changed.\n");
    EXPECT_THAT(trace_of("setattrdir"), IsEmpty());
}

}  // namespace
