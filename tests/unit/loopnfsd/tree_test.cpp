// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/store/tree.h"

#include "tests/unit/loopnfsd/in_memory.h"

namespace {

using namespace loopnfsd_test;
namespace fs = std::filesystem;

class TreeTest : public InMemory {
  protected:
    void SetUp() override { start(); }
};

TEST_F(TreeTest, HandlesOutliveARestartOfTheServer) {
    fs::create_directories(folder_.path / "a/b");
    put_file("a/b/f", "x");
    const Handle file = lookup(lookup(lookup(root(), "a"), "b"), "f");
    start();
    EXPECT_EQ(getattr(file).size, 1U);
}

TEST_F(TreeTest, HandlesOutliveRenamesBehindTheServersBack) {
    fs::create_directories(folder_.path / "a/b");
    put_file("a/b/f", "x");
    const Handle file = lookup(lookup(lookup(root(), "a"), "b"), "f");
    fs::rename(folder_.path / "a/b", folder_.path / "c");
    fs::rename(folder_.path / "c/f", folder_.path / "g");
    EXPECT_EQ(read(file, 0, 10), "x");
}

TEST_F(TreeTest, HandlesOfDeletedObjectsAreStale) {
    const Handle file = create(root(), "f");
    const Handle directory = mkdir(root(), "d");
    const Handle gone_behind = create(root(), "g");
    EXPECT_EQ(remove(root(), "f"), NfsStatus::ok);
    fs::remove(folder_.path / "d");
    fs::remove(folder_.path / "g");
    EXPECT_EQ(getattr_status(file), NfsStatus::stale);
    EXPECT_EQ(getattr_status(directory), NfsStatus::stale);
    EXPECT_EQ(write(gone_behind, 0, "x").status(), NfsStatus::stale);
    EXPECT_EQ(lookup_status(directory, "x"), NfsStatus::stale);
}

TEST_F(TreeTest, AFileThatReplacesADeletedOneIsAnotherFile) {
    put_file("f", "old");
    const Handle old = lookup(root(), "f");
    for (int i = 0; i < 20; ++i) {  // a file system may well give the inode number out again
        fs::remove(folder_.path / "f");
        put_file("f", "new");
    }
    EXPECT_EQ(getattr_status(old), NfsStatus::stale);
}

TEST_F(TreeTest, AHandleOfAFileWithTwoNamesLivesAsLongAsOneOfThem) {
    const Handle file = create(root(), "f");
    fs::create_hard_link(folder_.path / "f", folder_.path / "g");
    EXPECT_EQ(remove(root(), "f"), NfsStatus::ok);
    EXPECT_EQ(getattr(file).links, 1U);
    EXPECT_EQ(remove(root(), "g"), NfsStatus::ok);
    EXPECT_EQ(getattr_status(file), NfsStatus::stale);
}

TEST_F(TreeTest, HandlesThatAreNoneAreBad) {
    EXPECT_EQ(getattr_status({}), NfsStatus::badhandle);
    EXPECT_EQ(getattr_status(Handle(32, std::byte{9})), NfsStatus::badhandle);
    Handle other_export = root();
    other_export[4] ^= std::byte{1};
    EXPECT_EQ(getattr_status(other_export), NfsStatus::stale);
}

TEST_F(TreeTest, LinksAreNotFollowedOutOfTheExport) {
    TemporaryFolder outside;
    fs::create_directory(outside.path / "d");
    fs::create_directory_symlink(outside.path, folder_.path / "out");
    const Handle link = lookup(root(), "out");
    EXPECT_EQ(getattr(link).type, 5U);
    EXPECT_EQ(lookup_status(link, "d"), NfsStatus::notdir);
    EXPECT_EQ(write(link, 0, "x").status(), NfsStatus::inval);
}

TEST_F(TreeTest, ADirectoryThatBecameALinkLeadsNowhere) {
    TemporaryFolder outside;
    fs::create_directory(folder_.path / "d");
    put_file("d/f", "x");
    const Handle directory = lookup(root(), "d");
    const Handle file = lookup(directory, "f");
    fs::rename(folder_.path / "d", outside.path / "d");
    fs::create_directory_symlink(outside.path / "d", folder_.path / "d");
    EXPECT_EQ(getattr_status(file), NfsStatus::stale);
    EXPECT_EQ(lookup_status(directory, "f"), NfsStatus::stale);
}

TEST_F(TreeTest, TheParentOfTheRootIsTheRoot) {
    EXPECT_EQ(lookup(root(), ".."), root());
    EXPECT_EQ(lookup(root(), "."), root());
    const Handle directory = mkdir(root(), "d");
    EXPECT_EQ(lookup(directory, ".."), root());
}

TEST_F(TreeTest, NamesThatLeadElsewhereAreRefused) {
    put_file("f", "x");
    EXPECT_EQ(lookup_status(root(), "../f"), NfsStatus::inval);
    EXPECT_EQ(lookup_status(root(), "/f"), NfsStatus::inval);
    EXPECT_EQ(lookup_status(root(), ""), NfsStatus::inval);
    EXPECT_EQ(lookup_status(root(), std::string_view("f\0", 2)), NfsStatus::inval);
    EXPECT_EQ(lookup_status(root(), std::string(256, 'n')), NfsStatus::nametoolong);
    EXPECT_EQ(lookup_status(root(), std::string(255, 'n')), NfsStatus::noent);
}

}  // namespace
