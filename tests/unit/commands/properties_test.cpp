// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/properties.h"

#include <sys/stat.h>

#include "tests/unit/commands/command_fixture.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

class PropertiesTest : public CommandTest {
  protected:
    PropertiesTest() {
        fake_.volume.add_file("/m/f", "12345");
        fake_.file_properties = {.file = 0,
                                 .size = 0,
                                 .preferred_io_size = 1048576,
                                 .preferred_io_alignment = 4096,
                                 .permitted = TDM_PERMITTED_READ | TDM_PERMITTED_WRITE,
                                 .mirror_sides = 3,
                                 .reserved = 0};
    }

    Outcome properties(const std::string &path) {
        return run([&] { return statfile(path.c_str()); });
    }
};

const std::string kBlock =
    "\n \t file size                      5  bytes"
    "\n \t prefered i/o size              1048576    bytes"
    "\n \t prefered i/o alignment         4096    bytes"
    "\n \t permitted tdm operations:"
    "\n \t CREATE:                        NO"
    "\n \t READ  :                        YES"
    "\n \t WRITE :                        YES"
    "\n \t RESIZE:                        NO"
    "\n \t MIRROR SIDE I/O:               NO"
    "\n \t WRITE ONCE FILE:               NO"
    "\n \t RESILVER:                      NO"
    "\n \t SCATTER GATHER SUPPORTED:      NO"
    "\n \t RAW VOLUME:                    NO";

TEST_F(PropertiesTest, ARemoteFileIsPrintedAndStaysIdentified) {
    const Outcome outcome = properties("/m/f");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, "/m/f not a directory\n \t file identifier                1  " + kBlock);
    EXPECT_THAT(fake_.calls_of({"unidentify"}), IsEmpty());
}

TEST_F(PropertiesTest, TheLogHasNoBlanksBehindTheIdentifier) {
    turn_log_on();
    EXPECT_EQ(properties("/m/f").log, "/m/f not a directory\n \t file identifier                1" + kBlock);
}

TEST_F(PropertiesTest, TheMirrorSidesFollowTheResilverBitAlone) {
    fake_.file_properties.permitted = TDM_PERMITTED_MIRROR_SIDE_IO;
    EXPECT_THAT(properties("/m/f").output, Not(HasSubstr("no.of mirror sides")));
    fake_.file_properties.permitted = TDM_PERMITTED_RESILVER;
    EXPECT_THAT(properties("/m/f").output, EndsWith("\n\n \tno.of mirror sides\t\t\t3"));
}

TEST_F(PropertiesTest, ALocalFilesPermissionLinesAreNarrowerInTheLog) {
    const std::string path = directory_.file("f", "x");
    chmod(path.c_str(), 0600);
    EXPECT_THAT(properties(path).output, EndsWith("\n \tfile type:                        Regular file"
                                                  "\n \tfile permissions:                 "
                                                  "\n \tREAD:                             YES"
                                                  "\n \tWRITE:                            YES"
                                                  "\n \tEXEC:                             NO"));
    turn_log_on();
    const Outcome logged = properties(path);
    EXPECT_THAT(logged.log, HasSubstr("\n \tserial number of file:            "));
    EXPECT_THAT(logged.log, EndsWith("\n \tfile permissions:             "
                                     "\n \tREAD:                         YES"
                                     "\n \tWRITE:                        YES"
                                     "\n \tEXEC:                         NO"));
}

TEST_F(PropertiesTest, ADirectoryIsRefusedWithoutAWord) {
    const Outcome outcome = properties(directory_.path());
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(trace_of("statfile"), IsEmpty());
}

TEST_F(PropertiesTest, FailuresAreTraced) {
    EXPECT_EQ(run([] { return statfile(nullptr); }).status, 1u);
    EXPECT_EQ(properties("").status, 1u);
    fake_.answer("identify", 1, {.status = 5, .location = 3});
    EXPECT_EQ(properties("/m/f").status, 1u);
    fake_.answer("identify", 2, {.status = 0, .location = 3});
    EXPECT_EQ(properties("/m/f").status, 1u);
    const std::string missing = directory_.path("missing");
    EXPECT_EQ(properties(missing).status, 1u);
    EXPECT_THAT(trace_of("statfile"),
                ElementsAre("statfile TWNFS-65016: The first operand is missing.",
                            "statfile TWNFS-65059: The path  could not be resolved.",
                            "statfile TWNFS-65036: Identification of /m/f returned code 3.",
                            "statfile TWNFS-65036: Identification of /m/f returned code 3.",
                            "statfile TWNFS-65036: Identification of " + missing + " returned code 2.",
                            "statfile TWNFS-65049: The file " + missing + " could not be opened for reading."));
    EXPECT_TRUE(fake_.every_answer_was_given());
}

}  // namespace
