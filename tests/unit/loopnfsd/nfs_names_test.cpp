// SPDX-License-Identifier: Apache-2.0
// The procedures on names and attributes.
#include <sys/stat.h>

#include "tests/unit/loopnfsd/in_memory.h"

namespace {

using namespace loopnfsd_test;
namespace fs = std::filesystem;

class NfsNamesTest : public InMemory {
  protected:
    void SetUp() override {
        start();
        root_ = root();
    }

    Reply create_reply(std::string_view name, uint32_t mode, const Put &how) {
        return nfs(Procedure::create, [&](Writer &out) {
            out.put_opaque(root_);
            out.put_string(name);
            out.put_u32(mode);
            how(out);
        });
    }
    NfsStatus create_exclusive(std::string_view name, uint64_t verifier) {
        return create_reply(name, 2, [&](Writer &out) { out.put_u64(verifier); }).status();
    }
    NfsStatus make_status(Procedure procedure, std::string_view name, const Put &more) {
        return nfs(procedure,
                   [&](Writer &out) {
                       out.put_opaque(root_);
                       out.put_string(name);
                       more(out);
                   })
            .status();
    }
    NfsStatus rename(std::string_view from, std::string_view to) {
        return make_status(Procedure::rename, from, [&](Writer &out) {
            out.put_opaque(root_);
            out.put_string(to);
        });
    }
    NfsStatus rmdir(std::string_view name) {
        return make_status(Procedure::rmdir, name, [](Writer &) {});
    }
    NfsStatus mkdir_status(std::string_view name) { return make_status(Procedure::mkdir, name, put_no_changes); }
    uint32_t access(const Handle &handle, uint32_t asked) {
        auto reply = nfs(Procedure::access, [&](Writer &out) {
            out.put_opaque(handle);
            out.put_u32(asked);
        });
        EXPECT_EQ(reply.status(), NfsStatus::ok);
        EXPECT_TRUE(get_post_op(reply));
        return reply.word();
    }

    Handle root_;
};

TEST_F(NfsNamesTest, AGuardedCreateRefusesWhatIsThere) {
    put_file("f", "old");
    EXPECT_EQ(create_reply("f", 1, put_no_changes).status(), NfsStatus::exist);
    EXPECT_EQ(file_content("f"), "old");
}

TEST_F(NfsNamesTest, AnUncheckedCreateTakesWhatIsThereAndSetsItsSize) {
    put_file("f", "old");
    EXPECT_EQ(create_reply("f", 0, put_no_changes).status(), NfsStatus::ok);
    EXPECT_EQ(file_content("f"), "old");
    EXPECT_EQ(create_reply("f", 0, [](Writer &out) { put_size(out, 0); }).status(), NfsStatus::ok);
    EXPECT_EQ(file_content("f"), "");
    mkdir(root_, "d");
    EXPECT_EQ(create_reply("d", 0, put_no_changes).status(), NfsStatus::exist);
}

TEST_F(NfsNamesTest, AnExclusiveCreateMayBeRepeatedEvenAfterARestart) {
    EXPECT_EQ(create_exclusive("f", 0x1122334455667788), NfsStatus::ok);
    EXPECT_EQ(create_exclusive("f", 0x1122334455667788), NfsStatus::ok);
    EXPECT_EQ(create_exclusive("f", 0x1122334455667789), NfsStatus::exist);
    EXPECT_EQ(create_exclusive("f", 0x1122334555667788), NfsStatus::exist);
    start();
    EXPECT_EQ(create_exclusive("f", 0x1122334455667788), NfsStatus::ok);
    put_file("g", "");
    EXPECT_EQ(create_exclusive("g", 0x1122334455667788), NfsStatus::exist);
}

TEST_F(NfsNamesTest, ACreateTellsHandleAttributesAndDirectory) {
    auto reply = create_reply("f", 1, [](Writer &out) { put_mode(out, 0640); });
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    EXPECT_EQ(reply.word(), 1U);
    EXPECT_EQ(reply.handle(), lookup(root_, "f"));
    EXPECT_EQ(get_post_op(reply)->mode, 0640U);
    EXPECT_TRUE(get_wcc(reply));
    EXPECT_TRUE(reply.results.finished());
}

TEST_F(NfsNamesTest, DotAndDotDotAreThereAlready) {
    EXPECT_EQ(mkdir_status("."), NfsStatus::exist);
    EXPECT_EQ(mkdir_status(".."), NfsStatus::exist);
    EXPECT_EQ(rmdir("."), NfsStatus::inval);
    EXPECT_EQ(rmdir(".."), NfsStatus::exist);
    EXPECT_EQ(mkdir_status("a/b"), NfsStatus::inval);
}

TEST_F(NfsNamesTest, DirectoriesAreMadeAndRemoved) {
    const Handle directory = mkdir(root_, "d");
    EXPECT_EQ(mkdir_status("d"), NfsStatus::exist);
    EXPECT_EQ(getattr(directory).type, 2U);
    create(directory, "f");
    EXPECT_EQ(rmdir("d"), NfsStatus::notempty);
    EXPECT_EQ(remove(root_, "d"), NfsStatus::isdir);
    EXPECT_EQ(remove(directory, "f"), NfsStatus::ok);
    EXPECT_EQ(rmdir("d"), NfsStatus::ok);
    EXPECT_EQ(rmdir("d"), NfsStatus::noent);
    put_file("f", "");
    EXPECT_EQ(rmdir("f"), NfsStatus::notdir);
}

TEST_F(NfsNamesTest, LinksAreMadeAndReadButNotFollowed) {
    EXPECT_EQ(make_status(Procedure::symlink, "l",
                          [](Writer &out) {
                              put_no_changes(out);
                              out.put_string("/etc/passwd");
                          }),
              NfsStatus::ok);
    auto reply = nfs(Procedure::readlink, [&](Writer &out) { out.put_opaque(lookup(root_, "l")); });
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    EXPECT_EQ(get_post_op(reply)->type, 5U);
    EXPECT_EQ(reply.text(), "/etc/passwd");
    auto no_link = nfs(Procedure::readlink, [&](Writer &out) { out.put_opaque(root_); });
    EXPECT_EQ(no_link.status(), NfsStatus::inval);
}

TEST_F(NfsNamesTest, SettingALinksModeLeavesItsTargetAlone) {
    put_file("f", "");
    fs::permissions(folder_.path / "f", fs::perms{0600});
    fs::create_symlink("f", folder_.path / "l");
    auto reply = nfs(Procedure::setattr, [&](Writer &out) {
        out.put_opaque(lookup(root_, "l"));
        put_mode(out, 0777);
        out.put_bool(false);
    });
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    EXPECT_EQ(fs::status(folder_.path / "f").permissions(), fs::perms{0600});
}

TEST_F(NfsNamesTest, FifosAndSocketsAreMadeDevicesAreNot) {
    const auto node = [&](std::string_view name, uint32_t type) {
        return make_status(Procedure::mknod, name, [&](Writer &out) {
            out.put_u32(type);
            if (type >= 3 && type != 5) put_no_changes(out);
            if (type == 3 || type == 4) out.put_u64(0);
        });
    };
    EXPECT_EQ(node("fifo", 7), NfsStatus::ok);
    EXPECT_EQ(node("socket", 6), NfsStatus::ok);
    EXPECT_EQ(node("block", 3), NfsStatus::notsupp);
    EXPECT_EQ(node("character", 4), NfsStatus::notsupp);
    EXPECT_EQ(node("regular", 1), NfsStatus::badtype);
    EXPECT_EQ(getattr(lookup(root_, "fifo")).type, 7U);
    EXPECT_EQ(getattr(lookup(root_, "socket")).type, 6U);
}

TEST_F(NfsNamesTest, ARenamedObjectKeepsItsHandleAndReplacesItsTarget) {
    put_file("a", "one");
    put_file("b", "two");
    const Handle moved = lookup(root_, "a");
    const Handle replaced = lookup(root_, "b");
    EXPECT_EQ(rename("a", "b"), NfsStatus::ok);
    EXPECT_EQ(read(moved, 0, 10), "one");
    EXPECT_EQ(getattr_status(replaced), NfsStatus::stale);
    EXPECT_EQ(rename("a", "c"), NfsStatus::noent);
    EXPECT_EQ(rename("b", ".."), NfsStatus::inval);
}

TEST_F(NfsNamesTest, AHardLinkIsAnotherNameOfTheSameFile) {
    put_file("f", "x");
    const Handle file = lookup(root_, "f");
    auto reply = nfs(Procedure::link, [&](Writer &out) {
        out.put_opaque(file);
        out.put_opaque(root_);
        out.put_string("g");
    });
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    EXPECT_EQ(get_post_op(reply)->links, 2U);
    EXPECT_EQ(lookup(root_, "g"), file);
}

TEST_F(NfsNamesTest, AttributesAreThoseOfTheFile) {
    put_file("f", "12345");
    struct stat status {};
    ASSERT_EQ(stat((folder_.path / "f").c_str(), &status), 0);
    const Attributes got = getattr(lookup(root_, "f"));
    EXPECT_EQ(got.type, 1U);
    EXPECT_EQ(got.mode, status.st_mode & 07777);
    EXPECT_EQ(got.links, 1U);
    EXPECT_EQ(got.uid, status.st_uid);
    EXPECT_EQ(got.gid, status.st_gid);
    EXPECT_EQ(got.size, 5U);
    EXPECT_EQ(got.fileid, status.st_ino);
    EXPECT_EQ(got.mtime, static_cast<uint32_t>(status.st_mtim.tv_sec));
}

TEST_F(NfsNamesTest, SetattrSetsModeSizeAndTimes) {
    put_file("f", "12345");
    auto reply = nfs(Procedure::setattr, [&](Writer &out) {
        out.put_opaque(lookup(root_, "f"));
        out.put_bool(true);
        out.put_u32(0604);
        out.put_bool(false);
        out.put_bool(false);
        out.put_bool(true);
        out.put_u64(2);
        out.put_u32(1);  // atime: the server's
        out.put_u32(2);  // mtime: the client's
        out.put_u32(1'000'000'000);
        out.put_u32(5);
        out.put_bool(false);
    });
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    const auto after = get_wcc(reply);
    EXPECT_EQ(after->mode, 0604U);
    EXPECT_EQ(after->size, 2U);
    EXPECT_EQ(after->mtime, 1'000'000'000U);
    EXPECT_EQ(file_content("f"), "12");
}

TEST_F(NfsNamesTest, SetattrIsGuardedByTheChangeTime) {
    put_file("f", "");
    const Handle file = lookup(root_, "f");
    const auto set_mode = [&](uint32_t seconds, uint32_t nanoseconds) {
        return nfs(Procedure::setattr,
                   [&](Writer &out) {
                       out.put_opaque(file);
                       put_mode(out, 0600);
                       out.put_bool(true);
                       out.put_u32(seconds);
                       out.put_u32(nanoseconds);
                   })
            .status();
    };
    const Attributes now = getattr(file);
    EXPECT_EQ(set_mode(now.ctime + 1, now.ctime_nanoseconds), NfsStatus::not_sync);
    EXPECT_EQ(set_mode(now.ctime, now.ctime_nanoseconds), NfsStatus::ok);
}

TEST_F(NfsNamesTest, AccessGrantsWhatMakesSenseForTheObject) {
    put_file("f", "");
    fs::permissions(folder_.path / "f", fs::perms{0644});
    EXPECT_EQ(access(lookup(root_, "f"), 0x3F), 0x0DU);
    EXPECT_EQ(access(root_, 0x3F), 0x1FU);
    EXPECT_EQ(access(root_, 0x02), 0x02U);
    start({}, true);
    EXPECT_EQ(access(root_, 0x3F), 0x03U);
}

TEST_F(NfsNamesTest, AReadOnlyExportRefusesChanges) {
    put_file("f", "x");
    start({}, true);
    EXPECT_EQ(mkdir_status("d"), NfsStatus::rofs);
    EXPECT_EQ(rename("f", "g"), NfsStatus::rofs);
    EXPECT_EQ(read(lookup(root_, "f"), 0, 1), "x");
}

TEST_F(NfsNamesTest, IdentitiesAreEnforcedWhenAskedTo) {
    put_file("f", "x");
    fs::permissions(folder_.path / "f", fs::perms{0600});
    fs::permissions(folder_.path, fs::perms{0755});
    const Handle file = lookup(root_, "f");
    who_ = {4711, 4711};
    EXPECT_EQ(read(file, 0, 1), "x");
    start({.check_ids = true});
    const auto status = [&](Procedure procedure) {
        return nfs(procedure,
                   [&](Writer &out) {
                       out.put_opaque(file);
                       out.put_u64(0);
                       out.put_u32(1);
                   })
            .status();
    };
    EXPECT_EQ(status(Procedure::read), NfsStatus::acces);
    EXPECT_EQ(mkdir_status("d"), NfsStatus::acces);
    EXPECT_EQ(access(file, 0x3F), 0U);
    EXPECT_EQ(access(root_, 0x3F), 0x03U);
    who_ = {0, 0};
    EXPECT_EQ(status(Procedure::read), NfsStatus::ok);
}

TEST_F(NfsNamesTest, TheFileSystemIsDescribed) {
    start({.max_read = 4096, .max_write = 8192});
    auto info = nfs(Procedure::fsinfo, [&](Writer &out) { out.put_opaque(root_); });
    EXPECT_EQ(info.status(), NfsStatus::ok);
    EXPECT_TRUE(get_post_op(info));
    EXPECT_EQ(info.word(), 4096U);
    EXPECT_EQ(info.word(), 4096U);
    EXPECT_EQ(info.word(), 1U);
    EXPECT_EQ(info.word(), 8192U);
    info.results.skip(12);
    EXPECT_EQ(info.number(), 0x7FFFFFFFFFFFFFFFU);
    info.results.skip(8);
    EXPECT_EQ(info.word(), 0x1BU);
    EXPECT_TRUE(info.results.finished());

    auto space = nfs(Procedure::fsstat, [&](Writer &out) { out.put_opaque(root_); });
    EXPECT_EQ(space.status(), NfsStatus::ok);
    EXPECT_TRUE(get_post_op(space));
    EXPECT_GT(space.number(), 0U);
    space.results.skip(44);
    EXPECT_TRUE(space.results.finished());

    auto conf = nfs(Procedure::pathconf, [&](Writer &out) { out.put_opaque(root_); });
    EXPECT_EQ(conf.status(), NfsStatus::ok);
    EXPECT_TRUE(get_post_op(conf));
    conf.word();
    EXPECT_EQ(conf.word(), 255U);
    conf.results.skip(16);
    EXPECT_TRUE(conf.results.finished());
}

}  // namespace
