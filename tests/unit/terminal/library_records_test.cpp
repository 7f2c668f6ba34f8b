// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/library_records.h"

#include "include/tdm.h"
#include "tests/unit/terminal/open_screen.h"

namespace terminal {
namespace {

class LibraryRecords : public OpenScreen {};

TEST_F(LibraryRecords, TakesTheReasonOfAFailedCall) {
    take_library_record("[123],tdm_create status 13: /m/f: server s: CREATE: not allowed: really");
    note_library_failure("");
    EXPECT_TRUE(told().starts_with("tslwnfs: /m/f: server s: CREATE: not allowed: really; "));
}

TEST_F(LibraryRecords, PassesOverEverythingElse) {
    for (const char *record :
         {"", "x", "[1],", "[1],tdm_create", "[1],tdm_create begins: /m/f", "[1],tdm_create status 0",
          "[1],tdm_init begins: ", "[1],tdm_init status 13", "[1],tdm_create status 13", "[1],tdm_create status x: y",
          "[1],tdm_create status 99999999999: y", "[1],nfs server s ok again", "no record at all"})
        EXPECT_EQ(written([&] { take_library_record(record); }), "") << record;
    EXPECT_EQ(told(), "");
}

TEST_F(LibraryRecords, TellsAtOnceThatAServerIsSilentAndThatItIsBack) {
    EXPECT_EQ(written([] { take_library_record("[1],rpc server s not responding, still trying"); }),
              "tslwnfs: server s not responding, still trying\n");
    EXPECT_EQ(written([] { take_library_record("[1],rpc server s ok again"); }), "tslwnfs: server s ok again\n");
}

TEST_F(LibraryRecords, TellsAtOnceWhatIsWaitedForWithAServerThatAnswers) {
    EXPECT_EQ(written([] { take_library_record("[1],rpc server s is in its grace period after a start, waiting"); }),
              "tslwnfs: server s is in its grace period after a start, waiting\n");
    EXPECT_EQ(written([] {
                  take_library_record("[1],rpc server s is not ready (just started, or fetching the file), waiting");
              }),
              "tslwnfs: server s is not ready (just started, or fetching the file), waiting\n");
}

TEST_F(LibraryRecords, KeepsWhatIsWrongWithTheConfiguration) {
    take_library_record("[1],tdm_init tslnfstab, line 3: unknown key \"bogus\"");
    note_failure("it failed");
    EXPECT_EQ(told(), "tslwnfs: it failed\ntslwnfs: warning: tslnfstab, line 3: unknown key \"bogus\"\n");
}

TEST_F(LibraryRecords, ListensOnlyWhereSomebodyLooks) {
    listen_to_library();
    ASSERT_NE(tdm_failure_listener, nullptr);
    tdm_failure_listener("[7],tdm_create status 5: why");
    EXPECT_EQ(told(), "tslwnfs: why\n");
    terminal::close();
    listen_to_library();
    EXPECT_EQ(tdm_failure_listener, nullptr);
}

}  // namespace
}  // namespace terminal
