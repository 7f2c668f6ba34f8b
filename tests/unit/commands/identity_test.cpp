// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/identity.h"

#include <sys/stat.h>

#include <filesystem>

#include "tests/unit/commands/command_fixture.h"

namespace fs = std::filesystem;

namespace {

class IdentityTest : public CommandTest {
  protected:
    // Gives a remote object everything that a server tells of it.
    static void describe(const FakeNodePointer &node, uint64_t server, uint64_t file_system, uint64_t number) {
        TdmAttributes &attributes = node->attributes;
        attributes.server = server;
        attributes.file_system_id = file_system;
        attributes.file_id = number;
        attributes.modification_seconds = 100;
        attributes.modification_nanoseconds = 1;
        attributes.change_seconds = 200;
        attributes.change_nanoseconds = 2;
    }
    // Makes a remote object one with a local file, as the file's own host serves it.
    static void describe_as(const FakeNodePointer &node, const std::string &local) {
        struct stat status;
        ASSERT_EQ(stat(local.c_str(), &status), 0);
        describe(node, 1, 7, status.st_ino);
        node->attributes.modification_seconds = static_cast<uint64_t>(status.st_mtim.tv_sec);
        node->attributes.modification_nanoseconds = static_cast<uint32_t>(status.st_mtim.tv_nsec);
    }
    FakeNodePointer file(const std::string &path, const std::string &content = "text") {
        return fake_.volume.add_file(path, content);
    }
};

TEST_F(IdentityTest, OnOneServerFileSystemAndNumberDecide) {
    describe(file("/m/a"), 1, 7, 5);
    describe(file("/m/b", "longer text"), 1, 7, 5);
    describe(file("/m/c"), 1, 7, 6);
    describe(file("/m/d"), 1, 8, 5);
    EXPECT_TRUE(is_one_object("/m/a", "/m/b"));
    EXPECT_FALSE(is_one_object("/m/a", "/m/c"));
    EXPECT_FALSE(is_one_object("/m/a", "/m/d"));
    EXPECT_FALSE(is_one_object("/m/a", "/m/missing"));
}

TEST_F(IdentityTest, OnTwoServersSizeAndTimesAreComparedToo) {
    describe(file("/m/a"), 1, 7, 5);
    const FakeNodePointer other = file("/m/b");
    describe(other, 2, 7, 5);
    EXPECT_TRUE(is_one_object("/m/a", "/m/b"));
    const TdmAttributes same = other->attributes;
    ++other->attributes.modification_seconds;
    EXPECT_FALSE(is_one_object("/m/a", "/m/b"));
    other->attributes = same;
    ++other->attributes.modification_nanoseconds;
    EXPECT_FALSE(is_one_object("/m/a", "/m/b"));
    other->attributes = same;
    ++other->attributes.change_seconds;
    EXPECT_FALSE(is_one_object("/m/a", "/m/b"));
    other->attributes = same;
    other->data = "longer";
    EXPECT_FALSE(is_one_object("/m/a", "/m/b"));
}

TEST_F(IdentityTest, WhatOnlySeemsToBeTwoIsLookedAtAgainBehindABarrier) {
    describe(file("/m/a"), 1, 7, 5);
    const FakeNodePointer other = file("/m/b", "old");
    describe(other, 2, 7, 5);
    fake_.when("barrier", [&] { other->data = "text"; });
    EXPECT_TRUE(is_one_object("/m/a", "/m/b"));
}

TEST_F(IdentityTest, ALibraryThatTellsNoNumbersMakesNothingTheSame) {
    describe(file("/m/a"), 0, 0, 0);
    describe(file("/m/b"), 0, 0, 0);
    EXPECT_FALSE(is_one_object("/m/a", "/m/b"));
    describe(file("/m/a"), 0, 0, 5);
    describe(file("/m/b"), 0, 0, 5);
    EXPECT_FALSE(is_one_object("/m/a", "/m/b"));
    describe(file("/m/a"), 0, 7, 5);
    describe(file("/m/b"), 0, 7, 5);
    EXPECT_TRUE(is_one_object("/m/a", "/m/b"));
}

TEST_F(IdentityTest, ALocalFileAndTheSameOneServedAreOne) {
    const std::string local = directory_.file("f", "text");
    const FakeNodePointer served = file("/m/f");
    describe_as(served, local);
    EXPECT_TRUE(is_one_object(local, "/m/f"));
    EXPECT_TRUE(is_one_object("/m/f", local));
    served->attributes.modification_nanoseconds = 0;  // a server that counts seconds
    EXPECT_TRUE(is_one_object("/m/f", local));
    ++served->attributes.modification_seconds;
    EXPECT_FALSE(is_one_object("/m/f", local));
    describe_as(served, local);
    ++served->attributes.file_id;
    EXPECT_FALSE(is_one_object("/m/f", local));
    describe_as(served, local);
    served->data = "longer text";
    EXPECT_FALSE(is_one_object("/m/f", local));
}

TEST_F(IdentityTest, LinksAreFollowedToTheObject) {
    describe(file("/m/d/f"), 1, 7, 5);
    fake_.volume.add_link("/m/d/l", "f");
    fake_.volume.add_link("/m/l", "/m/d/l");
    EXPECT_TRUE(is_one_object("/m/l", "/m/d/f"));
    // A link in a directory that a link leads to: its target is seen from where it really lies.
    fake_.volume.add_link("/m/e/up", "../d/f");
    fake_.volume.add_link("/m/far", "e/up");
    EXPECT_TRUE(is_one_object("/m/far", "/m/d/f"));
    fake_.volume.add_link("/m/ring", "/m/ring");
    EXPECT_FALSE(is_one_object("/m/ring", "/m/ring"));
    EXPECT_EQ(look_at("/m/l", LastLink::keep)->link, true);
    EXPECT_EQ(look_at("/m/l", LastLink::follow)->number, 5u);

    const std::string local = directory_.file("f", "text");
    fs::create_symlink("f", directory_.path("l"));
    EXPECT_TRUE(is_one_object(directory_.path("l"), local));
    EXPECT_TRUE(look_at(directory_.path("l"), LastLink::keep)->link);
}

TEST_F(IdentityTest, ADirectoryLiesInsideItselfAndInsideThoseAbove) {
    directory_.directory("a/b/c");
    const std::string a = directory_.path("a");
    EXPECT_TRUE(lies_inside(a, a));
    EXPECT_TRUE(lies_inside(a + "/b/c", a));
    EXPECT_TRUE(lies_inside(a + "/not/there/yet", a));
    EXPECT_FALSE(lies_inside(a + "bc", a));
    EXPECT_FALSE(lies_inside(a, a + "/b"));
    EXPECT_FALSE(lies_inside("/m/a", a));
    // Behind a link it is the real parents that count.
    fs::create_symlink("a/b/c", directory_.path("link"));
    EXPECT_TRUE(lies_inside(directory_.path("link/new"), directory_.path("a/b")));
    EXPECT_FALSE(lies_inside(directory_.path("link/new"), directory_.directory("other")));
}

TEST_F(IdentityTest, ADirectoryLiesInsideTheSameOneOfAnotherMount) {
    const FakeNodePointer tree = fake_.volume.add_directory("/m/one/tree");
    describe(tree, 1, 7, 5);
    fake_.volume.add_directory("/m/two")->entries.emplace_back("tree", tree);
    fake_.volume.add_directory("/m/one/tree/sub");
    EXPECT_TRUE(lies_inside("/m/two/tree/new/copy", "/m/one/tree"));
    EXPECT_TRUE(lies_inside("/m/two/tree/sub/new", "/m/one/tree"));
    EXPECT_FALSE(lies_inside("/m/two/new", "/m/one/tree"));

    fake_.volume.add_link("/m/link", "two/tree/sub");
    EXPECT_TRUE(lies_inside("/m/link/new", "/m/one/tree"));

    // The server's own host: the same directory as a local one.
    const std::string local = directory_.directory("served");
    const FakeNodePointer served = fake_.volume.add_directory("/m/served");
    describe_as(served, local);
    struct stat status;
    ASSERT_EQ(stat(local.c_str(), &status), 0);
    served->attributes.size = static_cast<uint64_t>(status.st_size);
    EXPECT_TRUE(lies_inside("/m/served/new", local));
    EXPECT_TRUE(lies_inside(local + "/new", "/m/served"));
    EXPECT_FALSE(lies_inside("/m/new", local));
}

}  // namespace
