// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/filesystem.h"

#include <sys/stat.h>

#include <filesystem>

#include "tests/unit/commands/command_fixture.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const std::string kFigures =
    "\n \t total size of the file system     1000  bytes"
    "\n \t free space in the file system     600  bytes"
    "\n \t free space available to the user  500  bytes"
    "\n \t total file slots in file system   100 "
    "\n \t free file slots in  file system   60 "
    "\n \t free file slots available to user 50 "
    "\n \t file system volatility            7  sec";

const std::string kLimits =
    "\n \t max. size of a READ request supported by the server    1048576  bytes"
    "\n \t The preferred size of a READ request                   65536  bytes"
    "\n \t The suggested multiple for the size of a READ request  512  "
    "\n \t max. size of a WRITE request supported by the server   524288  bytes"
    "\n \t The preferred size of a WRITE request                  32768  bytes"
    "\n \t The suggested multiple for the size of a WRITE request 256 "
    "\n \t he preferred size of a READDIR request                 8192  bytes";

class FilesystemTest : public CommandTest {
  protected:
    FilesystemTest() {
        fake_.volume.add_directory("/m/d")->attributes.uid = 17;
        fake_.volume.add_file("/m/d/f", "12345");
        fake_.volume.add_link("/m/d/l", "f");
        fake_.file_system_limits.read_maximum = 1048576;
        fake_.file_system_limits.read_preferred = 65536;
        fake_.file_system_limits.read_multiple = 512;
        fake_.file_system_limits.write_maximum = 524288;
        fake_.file_system_limits.write_preferred = 32768;
        fake_.file_system_limits.write_multiple = 256;
        fake_.file_system_limits.readdir_preferred = 8192;
        fake_.file_system_figures.total_bytes = 1000;
        fake_.file_system_figures.free_bytes = 600;
        fake_.file_system_figures.available_bytes = 500;
        fake_.file_system_figures.total_files = 100;
        fake_.file_system_figures.free_files = 60;
        fake_.file_system_figures.available_files = 50;
        fake_.file_system_figures.volatility_seconds = 7;
    }

    Outcome fsinfo(const std::string &path) {
        return run([&] { return fsinfodir(path.c_str()); });
    }
    Outcome fsstat(const std::string &path, uint32_t options = 0, const char *format = nullptr) {
        commandtype = kFsStat;
        COMMAND_OPTION = options;
        stat_fmtptr = format;
        return run([&] { return fsstatdir(path.c_str()); });
    }
};

TEST_F(FilesystemTest, FsinfoPrintsLimitsThenAttributes) {
    const Outcome outcome = fsinfo("/m/d");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_THAT(outcome.output, StartsWith(kLimits + "\n \t uid                               17\n"));
    EXPECT_THAT(outcome.output, HasSubstr("\n \t lookup permission for others      "));
    EXPECT_THAT(trace(), IsEmpty());
}

TEST_F(FilesystemTest, FsinfoOfARemoteFileIsRefused) {
    const Outcome outcome = fsinfo("/m/d/f");
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "not a directory\n");
    turn_log_on();
    EXPECT_EQ(fsinfo("/m/d/f").log, "not a directory\n");
}

TEST_F(FilesystemTest, FsinfoOfALocalPathPrintsItsStatus) {
    const std::string path = directory_.file("f", "x");
    const Outcome outcome = fsinfo(path);
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_THAT(outcome.output, HasSubstr("\n \tfile type:                        Regular file"));
    EXPECT_THAT(trace(),
                ElementsAre("fsinfodir TWNFS-65066: File system information of " + path + ": location code 1."));
}

TEST_F(FilesystemTest, FsinfoFollowsALocalLink) {
    directory_.directory("d");
    std::filesystem::create_directory_symlink("d", directory_.path("l"));
    EXPECT_THAT(fsinfo(directory_.path("l")).output, HasSubstr("\n \tfile type:                        Directory"));
}

TEST_F(FilesystemTest, FsinfoFailuresAreTraced) {
    EXPECT_EQ(run([] { return fsinfodir(nullptr); }).status, 1u);
    EXPECT_EQ(fsinfo("").status, 1u);
    fake_.answer("fsinfo", 1, {.status = 5, .location = 0});
    fake_.answer("fsinfo", 2, {.status = 0, .location = 2});
    fake_.answer("fsinfo", 3, {.status = 0, .location = 3});
    for (int call = 0; call < 3; ++call)
        EXPECT_EQ(fsinfo("/m/d").status, 1u);
    const std::string missing = directory_.path("missing");
    EXPECT_EQ(fsinfo(missing).status, 1u);
    EXPECT_THAT(trace_of("fsinfodir"),
                ElementsAre("fsinfodir TWNFS-65016: The first operand is missing.",
                            "fsinfodir TWNFS-65059: The path  could not be resolved.",
                            "fsinfodir TWNFS-65066: File system information of /m/d: location code 0.",
                            "fsinfodir TWNFS-65066: File system information of /m/d: location code 2.",
                            "fsinfodir TWNFS-65066: File system information of /m/d: location code 3.",
                            "fsinfodir TWNFS-65066: File system information of " + missing + ": location code 1.",
                            "fsinfodir TWNFS-65013: The status of " + missing + " could not be read."));
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(FilesystemTest, FsstatPrintsTheAttributesAlone) {
    const Outcome outcome = fsstat("/m/d");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_THAT(outcome.output, StartsWith("\n \t uid                               17\n"));
    EXPECT_THAT(trace(), IsEmpty());
}

TEST_F(FilesystemTest, FiguresAndFormatAreOptions) {
    EXPECT_EQ(fsstat("/m/d", kStatFigures).output, kFigures);
    EXPECT_EQ(fsstat("/m/d", kStatFormat, "%F").output, "d");
    EXPECT_EQ(fsstat("/m/d", kStatFigures | kStatFormat, "%F").output, kFigures + "d");
    EXPECT_EQ(fsstat("/m/d", kStatFormat).output, "");
}

TEST_F(FilesystemTest, ARemoteFileIsRemarkedUponInTheTraceOnly) {
    const Outcome outcome = fsstat("/m/d/f", kStatFormat, "%s");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, "5");
    EXPECT_THAT(trace(), ElementsAre("fsstatdir TWNFS-65028: /m/d/f is not a directory."));
}

TEST_F(FilesystemTest, TheOptionLFollowsLinks) {
    EXPECT_EQ(fsstat("/m/d/l", kStatFormat | kStatFollow, "%F%s").output, "f5");
    EXPECT_EQ(fsstat("/m/d/l", kStatFormat, "%F").output, "-");
    directory_.file("file", "123");
    std::filesystem::create_symlink("file", directory_.path("link"));
    EXPECT_EQ(fsstat(directory_.path("link"), kStatFormat | kStatFollow, "%F").output, "f");
    EXPECT_EQ(fsstat(directory_.path("link"), kStatFormat, "%F").output, "-");
}

TEST_F(FilesystemTest, AThousandLinksAreFollowedAndACircleEnds) {
    directory_.file("l1000", "");
    for (int i = 999; i >= 0; --i) {
        std::filesystem::create_symlink("l" + std::to_string(i + 1), directory_.path("l" + std::to_string(i)));
    }
    EXPECT_EQ(fsstat(directory_.path("l0"), kStatFormat | kStatFollow, "%F").output, "f");
    std::filesystem::create_symlink("b", directory_.path("a"));
    std::filesystem::create_symlink("a", directory_.path("b"));
    EXPECT_EQ(fsstat(directory_.path("a"), kStatFollow).status, 1u);
    EXPECT_THAT(trace().back(), EndsWith(": more than 1024 links, one after the other"));
}

TEST_F(FilesystemTest, ALinkThatCannotBeReadFails) {
    fake_.answer("readlink", 1, {.status = 5, .location = 0});
    EXPECT_EQ(fsstat("/m/d/l", kStatFollow).status, 1u);
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(FilesystemTest, ALocalPathPrintsItsStatusWhateverTheFiguresOption) {
    const std::string path = directory_.file("f", "x");
    const Outcome outcome = fsstat(path, kStatFigures);
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_THAT(outcome.output, StartsWith("\n \tsize of file:                     "));
    EXPECT_THAT(outcome.output, HasSubstr("\n \tserial number of file:            "));
    EXPECT_THAT(trace(),
                ElementsAre("fsstatdir TWNFS-65048: File system statistics of " + path + ": location code 1."));
    turn_log_on();
    const Outcome logged = fsstat(path);
    EXPECT_THAT(logged.log, Not(HasSubstr("serial number")));
    EXPECT_THAT(logged.log, EndsWith("\n \tEXEC:                             NO"));
}

TEST_F(FilesystemTest, FsstatFailuresAreTraced) {
    EXPECT_EQ(run([] { return fsstatdir(nullptr); }).status, 1u);
    EXPECT_EQ(fsstat("").status, 1u);
    fake_.answer("fsstat", 1, {.status = 5, .location = 0});
    fake_.answer("fsstat", 2, {.status = 0, .location = 2});
    fake_.answer("fsstat", 3, {.status = 0, .location = 3});
    for (int call = 0; call < 3; ++call)
        EXPECT_EQ(fsstat("/m/d").status, 1u);
    const std::string missing = directory_.path("missing");
    EXPECT_EQ(fsstat(missing).status, 1u);
    EXPECT_THAT(trace_of("fsstatdir"),
                ElementsAre("fsstatdir TWNFS-65016: The first operand is missing.",
                            "fsstatdir TWNFS-65059: The path  could not be resolved.",
                            "fsstatdir TWNFS-65048: File system statistics of /m/d: location code 0.",
                            "fsstatdir TWNFS-65048: File system statistics of /m/d: location code 2.",
                            "fsstatdir TWNFS-65048: File system statistics of /m/d: location code 3.",
                            "fsstatdir TWNFS-65048: File system statistics of " + missing + ": location code 1.",
                            "fsstatdir TWNFS-65013: The status of " + missing + " could not be read."));
    EXPECT_TRUE(fake_.every_answer_was_given());
}

}  // namespace
