// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/output/trace.h"

#include "front_end_fixture.h"
#include "tslwnfs/output/messages.h"

namespace {

constexpr char kNote[] = "Above message is truncated since it is greater than SSTMXFNM.\n";

class Trace : public FrontEnd {
  protected:
    void SetUp() override {
        ASSERT_TRUE(open_trace_file((directory_ / "trace").c_str()));
        tslwnfs_trace = 1;
    }

    std::string traced(uint32_t level) {
        tslwnfswrf(level, "f", "level %u;", level);
        return trace();
    }
};

TEST_F(Trace, RecordHasClockFunctionAndText) {
    tslwnfswrf(3, "catfile", "%s %d\n", "text", 7);
    EXPECT_EQ(trace(), "[n],catfile text 7\n");
}

TEST_F(Trace, RecordIsOneLineWhateverNamesBringIn) {
    tslwnfswrf(3, "catfile", "%s\n", "a\n[1],main forged");
    trace_message("catfile", Message::file_unopenable, "a\nb");
    tslwnfswrf(3, "catfile", "%s", "\n\n");
    EXPECT_EQ(trace(),
              "[n],catfile a?[n],main forged\n"
              "[n],catfile TWNFS-65061: The file a?b could not be opened.\n"
              "[n],catfile \n\n");
}

TEST_F(Trace, IsClosedAtLevelZero) {
    tslwnfs_trace = 0;
    EXPECT_EQ(traced(4), "");
}

TEST_F(Trace, AHigherLevelLetsFewerRecordsThrough) {
    tslwnfs_trace = 3;
    traced(1);
    traced(2);
    EXPECT_EQ(trace(), "");
    traced(3);
    EXPECT_EQ(traced(4), "[n],f level 3;[n],f level 4;");
}

TEST_F(Trace, LevelFourHidesErrors) {
    tslwnfs_trace = 4;
    EXPECT_EQ(traced(3), "");
}

TEST_F(Trace, IsSilentWhenTracingIsOff) {
    octx.trace_on = 0;
    EXPECT_EQ(traced(3), "");
}

TEST_F(Trace, A511CharacterTextIsWhole) {
    tslwnfswrf(3, "f", "%s", std::string(511, 'x').c_str());
    EXPECT_EQ(trace(), "[n],f " + std::string(511, 'x'));
}

TEST_F(Trace, A512CharacterTextLosesItsLastWithoutANote) {
    tslwnfswrf(3, "f", "%s", std::string(512, 'x').c_str());
    EXPECT_EQ(trace(), "[n],f " + std::string(511, 'x'));
}

TEST_F(Trace, ALongerTextIsCutAndFollowedByANote) {
    for (const std::size_t length : {513, 600}) {
        ASSERT_TRUE(open_trace_file((directory_ / "trace").c_str()));
        tslwnfswrf(3, "f", "%s", std::string(length, 'x').c_str());
        EXPECT_EQ(trace(), "[n],f " + std::string(511, 'x') + kNote) << length;
    }
}

TEST_F(Trace, TakesAWideText) {
    tslwnfswrf_wide(1, "copyfile", L"tdm_resize successful:source \n");
    EXPECT_EQ(trace(), "[n],copyfile tdm_resize successful:source \n");
}

TEST_F(Trace, WritesPlainTextWithoutHeadAndFilter) {
    tslwnfs_trace = 0;
    EXPECT_EQ(tsltrc_wrf("%d,", 5), 0);
    octx.trace_on = 0;
    EXPECT_EQ(tsltrc_wrf("%d,", 6), 0);
    std::fflush(octx.trace_stream);
    EXPECT_EQ(trace(), "5,");
}

TEST_F(Trace, NamesAMessageWithItsArguments) {
    trace_message("exec_command", Message::path_unresolvable, "/a");
    EXPECT_EQ(trace(), "[n],exec_command TWNFS-65059: The path /a could not be resolved.\n");
}

TEST_F(Trace, SaysThatACatalogueIsMissingEvenForARecordNobodySees) {
    const ScopedEnvironment nowhere("NLSPATH", (directory_ / "none").c_str());
    tslwnfs_trace = 0;
    CapturedOutput captured;
    trace_message("f", Message::home_unknown);
    EXPECT_EQ(captured.text(), "error in getting message from message file\n");
    EXPECT_EQ(trace(), "");
}

}  // namespace
