// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/path_walk.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "nfstdm/files/path_operations.h"
#include "tests/unit/files/fixture.h"

namespace nfstdm::test {
namespace {

using ::testing::HasSubstr;

class PathWalkTest : public MountedTest {
  protected:
    // The id of what a path leads to; 0 when there is nothing, -1 for a local path.
    int64_t id_at(std::string_view path, LastLink last = LastLink::follow) {
        auto place = walk_path(mounts_, path, last);
        EXPECT_TRUE(place.ok()) << place.status().text();
        if (!place.ok()) return -2;
        if (place.value().mount == nullptr) return -1;
        return place.value().object ? static_cast<int64_t>(place.value().object->attributes.fileid) : 0;
    }
    Status failure_at(std::string_view path) { return walk_path(mounts_, path, LastLink::follow).status(); }
};

TEST_F(PathWalkTest, ComponentsAreLookedUpOneByOne) {
    one_.add_directory("/d");
    const auto id = one_.add_file("/d/f");
    EXPECT_EQ(id_at("/mnt/one/d/f"), static_cast<int64_t>(id));
    EXPECT_EQ(id_at("/mnt/one//d/./f/"), static_cast<int64_t>(id));
    EXPECT_EQ(one_.calls[Op::lookup], 2U) << "the second walk needs none";
    EXPECT_EQ(one_.calls[Op::getattr], 0U) << "nothing is asked about the mount point, which only leads there";
}

TEST_F(PathWalkTest, ComponentsAreLookedUpTogetherWhereTheProtocolCan) {
    one_.path_components = 3;
    one_.add_directory("/a");
    one_.add_directory("/a/b");
    one_.add_directory("/a/b/c");
    const auto id = one_.add_file("/a/b/c/f");
    EXPECT_EQ(id_at("/mnt/one/a/b/c/f"), static_cast<int64_t>(id));
    EXPECT_EQ(one_.calls[Op::lookup_path], 1U);
    EXPECT_EQ(one_.calls[Op::lookup], 1U) << "what did not fit into the question";
    EXPECT_EQ(id_at("/mnt/one/a/b/c/f"), static_cast<int64_t>(id));
    EXPECT_EQ(failure_at("/mnt/one/a/none/f").number(), uint32_t{ENOENT});
    EXPECT_EQ(one_.total_calls() - one_.calls[Op::attach], 3U) << "what is not there is learnt with the rest";
}

TEST_F(PathWalkTest, LinksAreFollowedInAPathThatIsLookedUpTogether) {
    one_.path_components = 8;
    one_.add_directory("/a");
    one_.add_directory("/a/b");
    const auto id = one_.add_file("/a/b/f");
    one_.add_link("/l", "a/b");
    EXPECT_EQ(id_at("/mnt/one/l/f"), static_cast<int64_t>(id));
    EXPECT_EQ(id_at("/mnt/one/a/../l/f"), static_cast<int64_t>(id));
    EXPECT_EQ(one_.calls[Op::lookup], 0U);
}

TEST_F(PathWalkTest, WhatIsKnownGrowsOldHoweverOftenItIsUsed) {
    one_.add_file("/f");
    id_at("/mnt/one/f");
    now_ += ObjectCache::kLifetime - std::chrono::seconds(1);
    id_at("/mnt/one/f");
    EXPECT_EQ(one_.calls[Op::lookup], 1U);
    now_ += std::chrono::seconds(1);
    id_at("/mnt/one/f");
    EXPECT_EQ(one_.calls[Op::lookup], 2U);
}

TEST_F(PathWalkTest, NoServerIsContactedForALocalPathAndOnlyTheNeededOneForAnother) {
    EXPECT_EQ(id_at("/mnt"), -1);
    EXPECT_EQ(id_at("/mnt/oneself"), -1);
    EXPECT_EQ(id_at("relative"), -1);
    EXPECT_TRUE(volumes_.empty());
    EXPECT_EQ(id_at("/mnt/two"), 1);
    EXPECT_EQ(volumes_.size(), 1U);
    EXPECT_EQ(one_.total_calls(), 0U);
}

TEST_F(PathWalkTest, AServerWithoutVersion3IsAskedInVersion4WithinTheSameContact) {
    for (const uint32_t refusal : {EPROTONOSUPPORT, ECONNREFUSED}) {
        versions_.clear();
        mounts_.detach();
        one_.fail_next(Op::attach, refusal);
        EXPECT_EQ(id_at("/mnt/one"), 1);
        EXPECT_THAT(versions_.back(), "nfsv4") << refusal;
    }
}

TEST_F(PathWalkTest, AServerThatRefusesItsIdentityIsNotAskedInAnotherVersion) {
    one_.fail_next(Op::attach, EACCES);
    EXPECT_EQ(failure_at("/mnt/one").number(), uint32_t{EACCES});
    EXPECT_THAT(versions_, ::testing::ElementsAre(""));
}

TEST_F(PathWalkTest, AServerThatAnswersInNoVersionIsToldOfByItsFirstAnswer) {
    one_.fail_next(Op::attach, EPROTONOSUPPORT);
    one_.fail_next(Op::attach, ECONNREFUSED);
    EXPECT_EQ(failure_at("/mnt/one").number(), uint32_t{EPROTONOSUPPORT});
    EXPECT_THAT(versions_, ::testing::ElementsAre("", "nfsv4"));
}

TEST_F(PathWalkTest, ParentsInThePathCannotLeaveAMountUnnoticed) {
    one_.add_directory("/d");
    EXPECT_EQ(id_at("/mnt/one/../etc"), -1);
    EXPECT_EQ(id_at("/mnt/one/d/../../two"), 1);
    EXPECT_EQ(volumes_.count("one"), 0U);
}

TEST_F(PathWalkTest, AMissingLastNameIsNoFailureAndAMissingDirectoryIs) {
    EXPECT_EQ(id_at("/mnt/one/none"), 0);
    EXPECT_EQ(failure_at("/mnt/one/none/f").number(), uint32_t{ENOENT});
    one_.add_file("/f");
    EXPECT_EQ(failure_at("/mnt/one/f/g").number(), uint32_t{ENOTDIR});
}

TEST_F(PathWalkTest, FailuresNameThePathTheServerAndTheReason) {
    one_.fail_next(Op::lookup, EACCES);
    const Status failure = failure_at("/mnt/one/x");
    EXPECT_EQ(failure.number(), uint32_t{EACCES});
    EXPECT_EQ(failure.text(), "/mnt/one/x: server one: planned failure");
}

TEST_F(PathWalkTest, LinksInsideThePathAreFollowedTheLastOneWhenAskedTo) {
    one_.add_directory("/d");
    const auto file = one_.add_file("/d/f");
    const auto link = one_.add_link("/l", "d");
    one_.add_link("/d/m", "f");
    EXPECT_EQ(id_at("/mnt/one/l/f"), static_cast<int64_t>(file));
    EXPECT_EQ(id_at("/mnt/one/l/m"), static_cast<int64_t>(file));
    EXPECT_EQ(id_at("/mnt/one/l", LastLink::keep), static_cast<int64_t>(link));
}

TEST_F(PathWalkTest, RelativeTargetsClimbThroughRealDirectoriesNotThroughTheTextOfThePath) {
    one_.add_directory("/a");
    one_.add_directory("/a/b");
    one_.add_link("/short", "a/b");
    const auto right = one_.add_file("/a/f");
    one_.add_file("/f");
    one_.add_link("/up", "short/../f");
    EXPECT_EQ(id_at("/mnt/one/up"), static_cast<int64_t>(right));
}

TEST_F(PathWalkTest, LinksCrossMountsByAbsoluteAndByRelativeTargets) {
    const auto file = two_.add_file("/f");
    one_.add_link("/absolute", "/mnt/two/f");
    one_.add_link("/relative", "../two/f");
    EXPECT_EQ(id_at("/mnt/one/absolute"), static_cast<int64_t>(file));
    EXPECT_EQ(id_at("/mnt/one/relative"), static_cast<int64_t>(file));
    const auto place = walk_path(mounts_, "/mnt/one/absolute", LastLink::follow);
    EXPECT_EQ(place.value().path(), "/mnt/two/f");
}

TEST_F(PathWalkTest, ALinkThatLeadsOffEveryMountIsAnErrorInWords) {
    one_.add_link("/out", "/etc/passwd");
    one_.add_link("/above", "../../..");
    const Status failure = failure_at("/mnt/one/out");
    EXPECT_EQ(failure.number(), uint32_t{EXDEV});
    EXPECT_THAT(failure.text(), HasSubstr("/etc/passwd"));
    EXPECT_EQ(failure_at("/mnt/one/above").number(), uint32_t{EXDEV});
}

TEST_F(PathWalkTest, FortyLinksAreFollowedAndNoMore) {
    const auto file = one_.add_file("/l0");
    for (int i = 1; i <= 41; ++i)
        one_.add_link("/l" + std::to_string(i), "l" + std::to_string(i - 1));
    EXPECT_EQ(id_at("/mnt/one/l40"), static_cast<int64_t>(file));
    EXPECT_EQ(failure_at("/mnt/one/l41").number(), uint32_t{ELOOP});
}

TEST_F(PathWalkTest, ALinkToItselfEndsWithELoop) {
    one_.add_link("/self", "self");
    EXPECT_EQ(failure_at("/mnt/one/self").number(), uint32_t{ELOOP});
}

TEST_F(PathWalkTest, ATargetThatIsNoPathIsAnError) {
    one_.add_link("/empty", "");
    one_.add_link("/nul", std::string("a\0b", 3));
    EXPECT_EQ(failure_at("/mnt/one/empty").number(), uint32_t{ENOENT});
    EXPECT_EQ(failure_at("/mnt/one/nul").number(), uint32_t{EIO});
}

TEST_F(PathWalkTest, AServerThatTellsNoAttributesIsAskedForThem) {
    one_.tells_attributes = false;
    const auto id = one_.add_file("/f");
    EXPECT_EQ(id_at("/mnt/one/f"), static_cast<int64_t>(id));
    EXPECT_EQ(one_.calls[Op::getattr], 1U);
}

TEST_F(PathWalkTest, AServerThatCannotBeReachedIsNotWaitedForAgainAndAgain) {
    one_.fail_next(Op::attach, ETIMEDOUT);
    EXPECT_EQ(failure_at("/mnt/one/f").number(), uint32_t{ETIMEDOUT});
    EXPECT_EQ(failure_at("/mnt/one/g").number(), uint32_t{ETIMEDOUT});
    EXPECT_EQ(one_.calls[Op::attach], 1U);
    now_ += std::chrono::seconds(30);
    EXPECT_EQ(id_at("/mnt/one"), 1) << "a contact may last this long, so by now another is worth a try";
}

class UnusableServerTest : public MountedTest {
  protected:
    UnusableServerTest() : MountedTest("server: one\nnconnect: x\nexport: /e mount: /mnt/one\n") {}
};

TEST_F(UnusableServerTest, PathsUnderItsMountsFailWithTheReasonInsteadOfBeingLocal) {
    const Status failure = walk_path(mounts_, "/mnt/one/f", LastLink::follow).status();
    EXPECT_EQ(failure.number(), uint32_t{EINVAL});
    EXPECT_THAT(failure.text(), HasSubstr("line 2: nconnect"));
    EXPECT_TRUE(volumes_.empty());
}

class NestedMountsTest : public MountedTest {
  protected:
    NestedMountsTest()
        : MountedTest("server: one\nexport: /e mount: /mnt\nserver: two\nexport: /e mount: /mnt/a/b\n") {}
};

TEST_F(NestedMountsTest, AMountPointNeedNotExistOnTheMountAboveIt) {
    const auto file = two_.add_file("/f");
    auto place = walk_path(mounts_, "/mnt/a/b/f", LastLink::follow);
    ASSERT_TRUE(place.ok());
    EXPECT_EQ(place.value().object->attributes.fileid, file);
    EXPECT_EQ(volumes_.count("one"), 0U);
}

TEST_F(NestedMountsTest, ALinkIntoAMountBelowIsServedByThatMount) {
    const auto file = two_.add_file("/f");
    one_.add_directory("/a");
    one_.add_link("/a/link", "b/f");
    auto place = walk_path(mounts_, "/mnt/a/link", LastLink::follow);
    ASSERT_TRUE(place.ok());
    EXPECT_EQ(place.value().object->attributes.fileid, file);
}

// ---- operations on paths

class PathOperationsTest : public MountedTest {
  protected:
    PathOperations paths_{mounts_, 0755};
    Attributes attributes_;
};

TEST_F(PathOperationsTest, LocalPathsAreTouchedByNothing) {
    const auto local = [](const Result<Location> &where) { return where.ok() && where.value() == Location::local; };
    std::string target;
    FsInfoReply info;
    FsStatReply stat;
    DirectoryStream::Batch batch;
    EXPECT_TRUE(local(paths_.get_attributes("/x", attributes_)));
    EXPECT_TRUE(local(paths_.set_permissions("/x", 0)));
    EXPECT_TRUE(local(paths_.make_directory("/x")));
    EXPECT_TRUE(local(paths_.remove_directory("/x")));
    EXPECT_TRUE(local(paths_.remove("/x", [](const Place &) { return Status{EIO, ""}; })));
    EXPECT_TRUE(local(paths_.read_link("/x", target)));
    EXPECT_TRUE(local(paths_.fsinfo("/x", info)));
    EXPECT_TRUE(local(paths_.fsstat("/x", stat)));
    EXPECT_TRUE(local(paths_.list("/x", 0, 10, batch)));
}

TEST_F(PathOperationsTest, AServerThatIsGoingToBeUsedIsContactedBesideAnother) {
    two_.add_directory("/d");
    paths_.expect_use("/mnt/two/d/../d");
    EXPECT_TRUE(paths_.get_attributes("/mnt/one", attributes_).ok());
    EXPECT_EQ(two_.calls[Op::attach], 1U) << "nobody has waited for it";
    EXPECT_TRUE(paths_.get_attributes("/mnt/two/d", attributes_).ok());
    EXPECT_EQ(two_.calls[Op::attach], 1U);
}

TEST_F(PathOperationsTest, AContactThatFailedAheadOfItsUseFailsTheUseAlone) {
    two_.fail_next(Op::attach, EACCES);
    paths_.expect_use("/mnt/two");
    EXPECT_TRUE(paths_.get_attributes("/mnt/one", attributes_).ok());
    EXPECT_EQ(paths_.get_attributes("/mnt/two", attributes_).status().number(), uint32_t{EACCES});
    EXPECT_EQ(two_.calls[Op::attach], 1U);
}

TEST_F(PathOperationsTest, AServerThatIsContactedAheadIsAskedInVersion4WhenItHasNoOther) {
    two_.fail_next(Op::attach, ECONNREFUSED);
    paths_.expect_use("/mnt/two");
    EXPECT_TRUE(paths_.get_attributes("/mnt/one", attributes_).ok());
    EXPECT_TRUE(paths_.get_attributes("/mnt/two", attributes_).ok());
    EXPECT_EQ(versions_, (std::vector<std::string>{"", "", "nfsv4"}));
}

TEST_F(PathOperationsTest, WhatIsExpectedAndNotUsedIsLeftAsItIs) {
    paths_.expect_use("/elsewhere");
    paths_.expect_use("relative");
    EXPECT_TRUE(volumes_.empty());
    paths_.expect_use("/mnt/two");
    paths_.expect_use("/mnt/two");
    EXPECT_EQ(volumes_.size(), 1U);
    mounts_.detach();
    EXPECT_EQ(two_.calls[Op::attach], 1U);
}

TEST_F(PathOperationsTest, AttributesAreThoseOfALinkAndPermissionsOfItsTarget) {
    one_.add_file("/f");
    one_.add_link("/l", "f");
    ASSERT_TRUE(paths_.get_attributes("/mnt/one/l", attributes_).ok());
    EXPECT_EQ(attributes_.type, FileType::link);
    ASSERT_TRUE(paths_.set_permissions("/mnt/one/l", 0400).ok());
    EXPECT_EQ(one_.at("/f").attributes.mode, 0400U);
    EXPECT_EQ(one_.at("/l").attributes.mode, 0644U);
}

TEST_F(PathOperationsTest, OwnChangesAreSeenAtOnce) {
    EXPECT_EQ(paths_.get_attributes("/mnt/one/d", attributes_).status().number(), uint32_t{ENOENT});
    ASSERT_TRUE(paths_.make_directory("/mnt/one/d").ok());
    ASSERT_TRUE(paths_.get_attributes("/mnt/one/d", attributes_).ok());
    EXPECT_EQ(attributes_.mode, 0755U);
    ASSERT_TRUE(paths_.set_permissions("/mnt/one/d", 0711).ok());
    ASSERT_TRUE(paths_.get_attributes("/mnt/one/d", attributes_).ok());
    EXPECT_EQ(attributes_.mode, 0711U);
    ASSERT_TRUE(paths_.remove_directory("/mnt/one/d").ok());
    EXPECT_EQ(paths_.get_attributes("/mnt/one/d", attributes_).status().number(), uint32_t{ENOENT});
}

TEST_F(PathOperationsTest, AMountPointCanBeNeitherMadeNorRemoved) {
    EXPECT_EQ(paths_.make_directory("/mnt/one").status().number(), uint32_t{EEXIST});
    EXPECT_EQ(paths_.remove_directory("/mnt/one").status().number(), uint32_t{EBUSY});
    EXPECT_EQ(paths_.remove("/mnt/one", [](const Place &) { return Status{}; }).status().number(), uint32_t{EBUSY});
}

TEST_F(PathOperationsTest, AFailureBeforeRemovingKeepsTheFileAlsoWhenItIsAStaleHandle) {
    one_.add_file("/f");
    EXPECT_EQ(paths_.remove("/mnt/one/f",
                            [](const Place &) {
                                return Status{ESTALE, "lost", Condition::stale};
                            })
                  .status()
                  .number(),
              uint32_t{ESTALE});
    EXPECT_TRUE(one_.exists("/f"));
}

TEST_F(PathOperationsTest, AStaleHandleIsLookedUpAgainOnce) {
    one_.add_directory("/d");
    one_.add_file("/d/f");
    ASSERT_TRUE(paths_.get_attributes("/mnt/one/d/f", attributes_).ok());
    one_.make_handles_stale();
    EXPECT_TRUE(paths_.set_permissions("/mnt/one/d/f", 0600).ok());
    EXPECT_EQ(one_.at("/d/f").attributes.mode, 0600U);
    one_.failures[Op::setattr] = {ESTALE, ESTALE};
    EXPECT_EQ(paths_.set_permissions("/mnt/one/d/f", 0644).status().number(), uint32_t{ESTALE});
    EXPECT_TRUE(one_.failures[Op::setattr].empty());
}

// MKDIR that is sent twice and whose name is there the second time. The server's clock is an hour behind this one.
class ResentMkdirTest : public PathOperationsTest {
  protected:
    ResentMkdirTest() {
        now_ += std::chrono::hours(2);
        pass(std::chrono::milliseconds(0));
        one_.node(1).attributes.change = one_.clock;
        Attributes attributes;
        EXPECT_TRUE(paths_.get_attributes("/mnt/one", attributes).ok());
    }
    void pass(std::chrono::milliseconds time) {
        now_ += time;
        const auto there = now_.time_since_epoch() - std::chrono::hours(1);
        one_.clock.seconds = static_cast<uint64_t>(std::chrono::floor<std::chrono::seconds>(there).count());
        one_.clock.nanoseconds = static_cast<uint32_t>((there % std::chrono::seconds(1)).count()) + 1;
    }
    bool is_absent(const std::string &path) {
        Attributes attributes;
        return paths_.get_attributes(path, attributes).status().number() == ENOENT;
    }
    uint32_t make(bool done_first) {
        one_.resent_mkdir = {now_, done_first};
        return paths_.make_directory("/mnt/one/d").status().number();
    }
};

TEST_F(ResentMkdirTest, ADirectoryThatTheFirstSendingMadeCounts) {
    pass(std::chrono::minutes(5));
    EXPECT_EQ(make(true), 0U);
}

TEST_F(ResentMkdirTest, ADirectoryThatWasThereBeforeDoesNotCountHoweverNewItIs) {
    one_.add_directory("/d");
    EXPECT_EQ(make(false), uint32_t{EEXIST});
}

TEST_F(ResentMkdirTest, ADirectoryThatSomebodyMadeBeforeTheFirstSendingDoesNotCount) {
    ASSERT_TRUE(is_absent("/mnt/one/d"));
    one_.add_directory("/d");
    pass(std::chrono::milliseconds(500));
    EXPECT_EQ(make(false), uint32_t{EEXIST});
}

TEST_F(ResentMkdirTest, ADirectoryThatIsNotEmptyDoesNotCount) {
    ASSERT_TRUE(is_absent("/mnt/one/d"));
    one_.add_directory("/d");
    one_.add_file("/d/f");
    EXPECT_EQ(make(false), uint32_t{EEXIST});
}

TEST_F(ResentMkdirTest, WhatIsNoDirectoryDoesNotCount) {
    ASSERT_TRUE(is_absent("/mnt/one/d"));
    one_.add_file("/d");
    EXPECT_EQ(make(false), uint32_t{EEXIST});
}

TEST(ServerClock, AFileSystemThatKeepsWholeSecondsMayBeUpToASecondBehind) {
    const auto start = EventLoop::Clock::time_point{} + std::chrono::hours(1);
    const auto changed_at = [](uint64_t seconds, uint32_t nanoseconds) {
        Attributes attributes;
        attributes.change = {seconds, nanoseconds};
        return attributes;
    };
    ServerClock clock;
    EXPECT_TRUE(clock.may_be_after({1, 0}, start));
    clock.saw(changed_at(500, 900'000'000), start);
    clock.saw(changed_at(400, 1), start + std::chrono::seconds(1));  // tells nothing new
    EXPECT_TRUE(clock.may_be_after({500, 0}, start));
    EXPECT_FALSE(clock.may_be_after({499, 0}, start));
    EXPECT_TRUE(clock.may_be_after({500, 890'000'000}, start));
    EXPECT_FALSE(clock.may_be_after({500, 800'000'000}, start));
    EXPECT_FALSE(clock.may_be_after({500, 900'000'000}, start + std::chrono::seconds(1)));
    EXPECT_TRUE(clock.may_be_after({UINT64_MAX, 0}, start));
}

TEST_F(PathOperationsTest, LinksAreReadAndOtherThingsAreNot) {
    one_.add_link("/l", "/some/where");
    one_.add_file("/f");
    std::string target;
    ASSERT_TRUE(paths_.read_link("/mnt/one/l", target).ok());
    EXPECT_EQ(target, "/some/where");
    EXPECT_EQ(paths_.read_link("/mnt/one/f", target).status().number(), uint32_t{EINVAL});
}

TEST_F(PathOperationsTest, FigureRepliesAlwaysHaveAttributes) {
    one_.add_link("/l", "f");
    one_.add_file("/f");
    FsInfoReply info;
    ASSERT_TRUE(paths_.fsinfo("/mnt/one/l", info).ok());
    EXPECT_EQ(info.attributes->type, FileType::regular);
    EXPECT_EQ(info.limits.read_maximum, 1U << 20);
    FsStatReply stat;
    ASSERT_TRUE(paths_.fsstat("/mnt/one/l", stat).ok());
    EXPECT_EQ(stat.attributes->type, FileType::link);
    EXPECT_EQ(stat.free_bytes, 600U);
}

// ---- the cache

TEST_F(PathOperationsTest, FsinfoIsAskedOnceAFileSystem) {
    one_.add_directory("/a");
    one_.add_directory("/other");
    one_.at("/other").attributes.fsid = 7;
    FsInfoReply info;
    for (int round = 0; round < 3; ++round)
        for (const char *path : {"/mnt/one", "/mnt/one/a", "/mnt/one/other"}) {
            ASSERT_TRUE(paths_.fsinfo(path, info).ok());
            EXPECT_EQ(info.limits.read_maximum, one_.limits.read_maximum);
        }
    EXPECT_EQ(info.attributes->fileid, one_.find("/other"));
    EXPECT_EQ(one_.calls[Op::fsinfo], 2U);
}

TEST_F(PathOperationsTest, WhatAttachingToldOfTheFileSystemIsNotAskedAgain) {
    one_.add_directory("/other");
    one_.at("/other").attributes.fsid = 7;
    one_.root_info = FsInfoReply{one_.node(1).attributes, {}};
    one_.root_info->limits.readdir_preferred = 4711;
    one_.node(1).attributes.mode = 0700;
    FsInfoReply info;
    ASSERT_TRUE(paths_.fsinfo("/mnt/one", info).ok());
    EXPECT_EQ(info.limits.readdir_preferred, 4711U);
    EXPECT_EQ(info.attributes->mode, 0700U) << "attributes are as they are now";
    EXPECT_EQ(one_.calls[Op::fsinfo], 0U);
    ASSERT_TRUE(paths_.fsinfo("/mnt/one/other", info).ok());
    EXPECT_EQ(info.limits.readdir_preferred, one_.limits.readdir_preferred);
    EXPECT_EQ(one_.calls[Op::fsinfo], 1U);
}

TEST_F(PathOperationsTest, AFileSystemThatAttachingDidNotNameIsAskedAbout) {
    one_.root_info = FsInfoReply{};
    FsInfoReply info;
    ASSERT_TRUE(paths_.fsinfo("/mnt/one", info).ok());
    EXPECT_EQ(one_.calls[Op::fsinfo], 1U);
}

// Making and removing names tells what became of their directory, so nobody asks.
class DirectoryChangeTest : public PathOperationsTest {
  protected:
    DirectoryChangeTest() {
        one_.add_directory("/d");
        for (const char *name : {"/d/a", "/d/b", "/d/c", "/d/x"})
            one_.add_file(name);
        EXPECT_TRUE(paths_.get_attributes("/mnt/one/d", attributes_).ok());
        DirectoryStream::Batch batch;
        EXPECT_TRUE(paths_.list("/mnt/one/d", 0, 100, batch).ok());
        one_.calls.clear();
    }
    Status remove(const std::string &path) {
        return paths_.remove(path, [](const Place &) { return Status{}; }).status();
    }
    // Another client puts another file into a place.
    void replace(const std::string &name) {
        one_.remove_child(one_.find("/d"), name);
        one_.add_file("/d/" + name);
    }
    uint64_t id_of(const std::string &path) {
        EXPECT_TRUE(paths_.get_attributes(path, attributes_).ok());
        return attributes_.fileid;
    }
};

TEST_F(DirectoryChangeTest, ANameThatWasListedIsRemovedInOneCall) {
    for (const char *name : {"/mnt/one/d/a", "/mnt/one/d/b", "/mnt/one/d/c"})
        EXPECT_TRUE(remove(name).ok());
    EXPECT_EQ(one_.calls[Op::remove], 3U);
    EXPECT_EQ(one_.total_calls(), 3U);
}

TEST_F(DirectoryChangeTest, DirectoriesAreMadeAndRemovedWithoutAskingForTheirParent) {
    for (const char *path : {"/mnt/one/d/m", "/mnt/one/d/n"})
        EXPECT_TRUE(paths_.make_directory(path).ok());
    for (const char *path : {"/mnt/one/d/m", "/mnt/one/d/n"})
        EXPECT_TRUE(paths_.remove_directory(path).ok());
    EXPECT_EQ(one_.calls[Op::lookup], 2U) << "of the names that were not there";
    EXPECT_EQ(one_.calls[Op::getattr], 0U);
}

TEST_F(DirectoryChangeTest, WhatIsToldOfTheDirectoryIsWhatIsShown) {
    ASSERT_TRUE(remove("/mnt/one/d/a").ok());
    ASSERT_TRUE(paths_.get_attributes("/mnt/one/d", attributes_).ok());
    EXPECT_EQ(attributes_.change, one_.at("/d").attributes.change);
    EXPECT_EQ(one_.calls[Op::getattr], 0U);
}

TEST_F(DirectoryChangeTest, AServerThatTellsNothingOfTheDirectoryIsAsked) {
    one_.tells_directories = false;
    ASSERT_TRUE(remove("/mnt/one/d/a").ok());
    ASSERT_TRUE(paths_.get_attributes("/mnt/one/d", attributes_).ok());
    EXPECT_EQ(attributes_.change, one_.at("/d").attributes.change);
    EXPECT_EQ(one_.calls[Op::getattr], 1U);
}

TEST_F(DirectoryChangeTest, NamesAreLookedUpAnewOnceSomebodyElseChangedTheDirectory) {
    replace("x");
    ASSERT_TRUE(remove("/mnt/one/d/a").ok());
    EXPECT_EQ(id_of("/mnt/one/d/x"), one_.find("/d/x"));
    replace("x");
    ASSERT_TRUE(paths_.make_directory("/mnt/one/d/m").ok());
    EXPECT_EQ(id_of("/mnt/one/d/x"), one_.find("/d/x"));
    replace("x");
    ASSERT_TRUE(paths_.remove_directory("/mnt/one/d/m").ok());
    EXPECT_EQ(id_of("/mnt/one/d/x"), one_.find("/d/x"));
    replace("x");
    auto place = walk_path(mounts_, "/mnt/one/d/new", LastLink::keep);
    ASSERT_TRUE(place.ok() && place.value().directory);
    ASSERT_TRUE(place.value().mount->create(*place.value().directory, "new", {}).ok());
    EXPECT_EQ(id_of("/mnt/one/d/x"), one_.find("/d/x"));
}

TEST_F(DirectoryChangeTest, OwnChangesLeaveWhatIsKnownOfOtherNames) {
    ASSERT_TRUE(remove("/mnt/one/d/a").ok());
    ASSERT_TRUE(paths_.make_directory("/mnt/one/d/m").ok());
    one_.calls.clear();
    EXPECT_EQ(id_of("/mnt/one/d/x"), one_.find("/d/x"));
    EXPECT_EQ(one_.total_calls(), 0U);
}

TEST(ObjectCache, TheNamesOfOneDirectoryAreForgottenTogether) {
    EventLoop::Clock::time_point now{};
    ObjectCache cache([&now] { return now; });
    FileHandle one;
    one.size = 4;
    FileHandle other;
    other.size = 8;
    cache.put_name(one, "there", other);
    cache.put_name(one, "absent", std::nullopt);
    cache.put_name(other, "there", one);
    cache.forget_names(one);
    EXPECT_FALSE(cache.find_name(one, "there").known || cache.find_name(one, "absent").known);
    EXPECT_TRUE(cache.find_name(other, "there").known);
    cache.put_name(one, "there", other);
    EXPECT_TRUE(cache.find_name(one, "there").known) << "it was put since";
}

TEST(ObjectCache, EntriesExpireAndWhatIsAbsentExpiresSooner) {
    EventLoop::Clock::time_point now{};
    ObjectCache cache([&now] { return now; });
    FileHandle directory;
    directory.size = 4;
    FileHandle file;
    file.size = 8;
    cache.put_name(directory, "there", file);
    cache.put_name(directory, "absent", std::nullopt);
    cache.put_attributes(file, Attributes{});
    EXPECT_EQ(cache.find_name(directory, "there").handle, file);
    EXPECT_TRUE(cache.find_name(directory, "absent").known);
    EXPECT_FALSE(cache.find_name(file, "there").known);
    now += ObjectCache::kAbsentLifetime;
    EXPECT_FALSE(cache.find_name(directory, "absent").known);
    EXPECT_TRUE(cache.find_name(directory, "there").known);
    now += ObjectCache::kLifetime;
    EXPECT_FALSE(cache.find_name(directory, "there").known);
    EXPECT_FALSE(cache.attributes(file));
}

TEST(ExpiringCache, WhenFullTheEntryUnusedForLongestGoes) {
    ExpiringCache<int, int> cache(2);
    const auto now = EventLoop::Clock::time_point{};
    const auto later = now + std::chrono::seconds(1);
    cache.put(1, 10, later);
    cache.put(2, 20, later);
    ASSERT_NE(cache.find(1, now), nullptr);
    cache.put(3, 30, later);
    EXPECT_EQ(cache.find(2, now), nullptr);
    EXPECT_NE(cache.find(1, now), nullptr);
    EXPECT_EQ(cache.size(), 2U);
}

}  // namespace
}  // namespace nfstdm::test
