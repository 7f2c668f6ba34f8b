// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/reasons.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "tests/unit/terminal/open_screen.h"

namespace terminal {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class Reasons : public OpenScreen {};

TEST_F(Reasons, TellsNothingWhenNothingWasNoted) {
    EXPECT_EQ(told(), "");
}

TEST_F(Reasons, TellsTheLibrarysReasonInsteadOfTheMessage) {
    note_library_reason(EIO, "/m/f: server s: READ: the disk is broken");
    note_library_failure("A storage request did not complete (code 5).\n");
    EXPECT_EQ(told(), "tslwnfs: /m/f: server s: READ: the disk is broken\n");
    EXPECT_EQ(told(), "");  // once
}

TEST_F(Reasons, TellsTheMessageWhenTheLibraryGaveNoReason) {
    note_library_failure("A storage request did not complete (code 5).\n");
    EXPECT_EQ(told(), "tslwnfs: A storage request did not complete (code 5)\n");
}

TEST_F(Reasons, TakesWhatACallReturnedWhereTheLibrarySaidNoMore) {
    note_library_text(EIO, "/m/f: the disk is broken");
    note_library_failure("A message");
    EXPECT_EQ(told(), "tslwnfs: /m/f: the disk is broken\n");
    note_library_reason(EIO, "/m/f: a long reason");
    note_library_text(EIO, "/m/f: a lo");
    note_library_text(EIO, "");
    note_library_failure("A message");
    EXPECT_EQ(told(), "tslwnfs: /m/f: a long reason\n");
    note_library_reason(EIO, "of an earlier call");
    note_library_text(EIO, "/m/f: of this one");
    note_library_failure("A message");
    EXPECT_EQ(told(), "tslwnfs: /m/f: of this one\n");
}

TEST_F(Reasons, TellsTheFirstFailure) {
    note_failure("the first");
    note_failure("the second");
    note_library_reason(EIO, "the third");
    EXPECT_EQ(told(), "tslwnfs: the first\n");
}

TEST_F(Reasons, TellsTheLastRemarkOnlyWhenNothingElseFailed) {
    note_remark("a remark");
    note_remark("of no use", ENOENT);
    EXPECT_EQ(told(), "tslwnfs: of no use: No such file or directory\n");
    note_remark("a remark");
    note_system_failure("The file /x could not be opened.\n", EACCES);
    EXPECT_EQ(told(), "tslwnfs: The file /x could not be opened: Permission denied\n");
    note_library_reason(ENOENT, "/m/new: no such file");  // as of every file that is about to be created
    note_remark("");
    EXPECT_EQ(told(), "tslwnfs: /m/new: no such file\n");
}

TEST_F(Reasons, LeavesOutAnErrorNumberThatIsNone) {
    note_system_failure("The file /x could not be opened.", 0);
    EXPECT_EQ(told(), "tslwnfs: The file /x could not be opened\n");
}

TEST_F(Reasons, TakesAPathOnNoMountForNoFailure) {
    note_library_reason(ENODEV, "/tmp/x: on no mount");
    note_library_failure("/tmp/x could not be created on the server (status 19).");
    note_system_failure("The file /tmp/x could not be opened.", ENOENT);
    EXPECT_EQ(told(), "tslwnfs: The file /tmp/x could not be opened: No such file or directory\n");
}

TEST_F(Reasons, AddsWhatToTry) {
    struct Case {
        uint32_t status;
        const char *reason;
        const char *advice;
    };
    for (const Case &one : {
             Case{ECONNREFUSED, "/m: server s: MNT: 10.0.0.1:2049: connect: refused", "; is the server up"},
             {ETIMEDOUT, "/m: server s: READ: no answer", "; is the server up"},
             {ENOENT, "/m: server s: MNT of /e: no such", "; does the server export that?"},
             {EACCES, "/m: server s: MNT of /e: not allowed", "; does the server admit this host?"},
             {EACCES, "/m: server s: export /e is not offered with security sys, only with krb5", ""},
             {EACCES, "/home/dbs/tslnfstab: Permission denied", ""},
             {EACCES, "/m/f: server s: CREATE: not allowed", "; the user and group that count are the caller's"},
             {ENOSPC, "/m/f: server s: WRITE: full", "; tslwnfs stat -f"},
             {70, "/m/f: server s: READ: stale", "; it was removed or replaced"},
         }) {
        note_library_reason(one.status, one.reason);
        EXPECT_THAT(told(), HasSubstr(std::string(one.reason) + one.advice));
    }
    note_library_reason(ENOENT, "/m/f: server s: no such file");
    EXPECT_EQ(told(), "tslwnfs: /m/f: server s: no such file\n");
}

TEST_F(Reasons, AddsNothingToWhatAServerSaysOfSecurity) {
    for (const std::string reason : {"/m: server s: export /e is not offered with security sys, only with krb5",
                                     "/m: server s: FSINFO: not allowed: it may want another transport_security"}) {
        note_library_reason(EACCES, reason);
        EXPECT_EQ(told(), "tslwnfs: " + reason + "\n");
    }
}

TEST_F(Reasons, WarnsOfWhatFailedUnderASuccess) {
    note_library_reason(EIO, "/m/f: server s: WRITE: broken");
    note_library_failure("");
    EXPECT_EQ(written([] { tell_warning(); }), "tslwnfs: warning: /m/f: server s: WRITE: broken\n");
    note_remark("a remark");
    note_library_reason(EIO, "of no consequence");
    EXPECT_EQ(written([] { tell_warning(); }), "");
    EXPECT_EQ(told(), "");
}

TEST_F(Reasons, WarnsAtOnceOfWhatTheCommandPassesOver) {
    note_library_reason(EIO, "COMMIT: broken");
    EXPECT_EQ(written([] { warn_of_library_failure("The new file could not be committed (status 5).\n"); }),
              "tslwnfs: warning: The new file could not be committed (status 5) (COMMIT: broken)\n");
    EXPECT_EQ(told(), "");
}

TEST_F(Reasons, TellsWhatComesOfAFailure) {
    note_library_reason(EROFS, "/m/f: server s: CREATE: read-only");
    note_library_failure("");
    EXPECT_EQ(written([] { tell_consequence("it goes elsewhere"); }),
              "tslwnfs: warning: /m/f: server s: CREATE: read-only; it goes elsewhere\n");
    EXPECT_EQ(told(), "");
}

TEST_F(Reasons, TellsTroubleWithTheConfigurationOnceAndOnlyAfterAFailure) {
    note_configuration_trouble("tslnfstab, line 3: unknown key \"bogus\"");
    EXPECT_EQ(written([] { tell_warning(); }), "");
    note_failure("it failed");
    EXPECT_EQ(told(), "tslwnfs: it failed\ntslwnfs: warning: tslnfstab, line 3: unknown key \"bogus\"\n");
    note_failure("it failed again");
    EXPECT_EQ(told(), "tslwnfs: it failed again\n");
}

}  // namespace
}  // namespace terminal
