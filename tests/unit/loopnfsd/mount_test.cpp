// SPDX-License-Identifier: Apache-2.0
// The MOUNT program and the portmapper, and the table of exports behind them.
#include "tools/loopnfsd/nfs/mount.h"

#include "tests/unit/loopnfsd/in_memory.h"

namespace {

using namespace loopnfsd_test;
namespace fs = std::filesystem;

class MountTest : public InMemory {
  protected:
    void SetUp() override { start(); }

    Reply mount(uint32_t procedure, std::optional<std::string_view> path = {}) {
        return call(nfstdm::mount3::kProgram, 3, procedure, [&](Writer &out) {
            if (path) out.put_string(*path);
        });
    }
    uint32_t get_port(uint32_t program, uint32_t version, uint32_t protocol) {
        return call(nfstdm::portmap::kProgram, 2, 3,
                    [&](Writer &out) {
                        for (const uint32_t word : {program, version, protocol, 0U})
                            out.put_u32(word);
                    })
            .word();
    }
};

TEST_F(MountTest, AnExportIsMountedWithAuthSys) {
    auto reply = mount(1, "/export");
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    EXPECT_EQ(getattr(reply.handle()).type, 2U);
    EXPECT_EQ(reply.word(), 2U);
    EXPECT_EQ(reply.word(), nfstdm::rpc::kAuthSys);
    EXPECT_EQ(reply.word(), nfstdm::rpc::kAuthNone);
    EXPECT_TRUE(reply.results.finished());
}

TEST_F(MountTest, SoIsADirectoryBelowOne) {
    fs::create_directories(folder_.path / "a/b");
    auto reply = mount(1, "/export//a/b/");
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    EXPECT_EQ(reply.handle(), lookup(lookup(root(), "a"), "b"));
}

TEST_F(MountTest, NothingElseIs) {
    put_file("f", "");
    fs::create_directory_symlink("/", folder_.path / "l");
    EXPECT_EQ(mount(1, "/").status(), NfsStatus::noent);
    EXPECT_EQ(mount(1, "/exports").status(), NfsStatus::noent);
    EXPECT_EQ(mount(1, "/export/none").status(), NfsStatus::noent);
    EXPECT_EQ(mount(1, "/export/f").status(), NfsStatus::notdir);
    EXPECT_EQ(mount(1, "/export/l").status(), NfsStatus::notdir);
    EXPECT_EQ(mount(1, "/export/l/etc").status(), NfsStatus::notdir);
    EXPECT_EQ(mount(1, "/export/..").status(), NfsStatus::ok);  // which is the root once more
}

TEST_F(MountTest, MountsAreListedUntilTheyAreGivenUp) {
    fs::create_directory(folder_.path / "d");
    mount(1, "/export");
    mount(1, "/export");
    mount(1, "/export/d");
    auto list = mount(2);
    for (const char *path : {"/export", "/export/d"}) {
        EXPECT_EQ(list.word(), 1U);
        EXPECT_EQ(list.text(), "tester");
        EXPECT_EQ(list.text(), path);
    }
    EXPECT_EQ(list.word(), 0U);
    mount(3, "/export");
    auto one = mount(2);
    one.word();
    one.text();
    EXPECT_EQ(one.text(), "/export/d");
    mount(4);
    EXPECT_EQ(mount(2).word(), 0U);
}

TEST_F(MountTest, ExportsAreListedWithTheirGroups) {
    auto list = mount(5);
    EXPECT_EQ(list.word(), 1U);
    EXPECT_EQ(list.text(), "/export");
    for (const char *group : {"alpha", "beta"}) {
        EXPECT_EQ(list.word(), 1U);
        EXPECT_EQ(list.text(), group);
    }
    EXPECT_EQ(list.word(), 0U);
    EXPECT_EQ(list.word(), 0U);
    EXPECT_TRUE(list.results.finished());
}

TEST_F(MountTest, ThePortmapperKnowsBothProgramsOverTcp) {
    EXPECT_EQ(get_port(nfstdm::nfs3::kProgram, 3, 6), 2049U);
    EXPECT_EQ(get_port(nfstdm::mount3::kProgram, 3, 6), 2049U);
    EXPECT_EQ(get_port(nfstdm::nfs3::kProgram, 3, 17), 0U);
    EXPECT_EQ(get_port(100021, 4, 6), 0U);
    auto list = call(nfstdm::portmap::kProgram, 2, 4, [](Writer &) {});
    for (const uint32_t program : {nfstdm::nfs3::kProgram, nfstdm::mount3::kProgram})
        for (const uint32_t word : {1U, program, 3U, 6U, 2049U})
            EXPECT_EQ(list.word(), word);
    EXPECT_EQ(list.word(), 0U);
}

TEST(ExportTable, ThePathBelongsToTheExportWithTheLongestName) {
    TemporaryFolder folder;
    loopnfsd::ExportTable table;
    for (const char *name : {"/", "/a", "/a/b/"})
        EXPECT_EQ(table.add(name, folder.path, false), "");
    const auto found = [&](std::string_view path) {
        std::string_view below;
        const auto *home = table.containing(path, below);
        return home == nullptr ? "none" : home->name + '|' + std::string(below);
    };
    EXPECT_EQ(found("/"), "/|");
    EXPECT_EQ(found("/ab"), "/|ab");
    EXPECT_EQ(found("/a"), "/a|");
    EXPECT_EQ(found("/a/c/d"), "/a|c/d");
    EXPECT_EQ(found("/a/b/c"), "/a/b|c");
    EXPECT_EQ(found("a"), "none");
    EXPECT_EQ(found(""), "none");
}

TEST(ExportTable, SaysWhatIsWrongWithAnExport) {
    TemporaryFolder folder;
    loopnfsd::ExportTable table;
    EXPECT_EQ(table.add("/a", folder.path, false), "");
    EXPECT_EQ(table.add("/a/", folder.path, false), "export /a is given twice");
    EXPECT_EQ(table.add("b", folder.path, false), "the name of export \"b\" does not begin with /");
    EXPECT_EQ(table.add("/c", folder.path / "none", false),
              "cannot serve " + (folder.path / "none").string() + ": No such file or directory");
}

}  // namespace
