// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>

#include "tests/support/command_fixture.h"
#include "tests/support/file_faults.h"
#include "tests/support/file_size_limit.h"
#include "tslwnfs/config/config.h"
#include "tslwnfs/options/server_block.h"

namespace {

class CreateTslnfstab : public CommandTest {
  protected:
    static std::string block(const std::string &server) {
        return "#<server block begin>\nserver: " + server + "\n#<server block end>\n";
    }

    static Outcome create(const std::string &server) {
        tab_info = {};
        tab_info.server = server;
        return run(createtslnfstab);
    }

    static Outcome done() { return {0, ""}; }
};

TEST_F(CreateTslnfstab, MakesAMissingFileOfThreeLinesForAServerWithoutOptions) {
    EXPECT_EQ(create("filer"), done());
    EXPECT_EQ(read_file(tslnfstab()), block("filer"));
    EXPECT_FALSE(exists(backup()));
    EXPECT_EQ(trace(), "");
}

TEST_F(CreateTslnfstab, WritesEverySettingInItsFixedOrder) {
    tab_info.management = "m";
    tab_info.security_default = "sys";
    tab_info.mnt_timeout = "15";
    tab_info.rdmaport = "20049";
    tab_info.community = "public";
    tab_info.version = "nfsv3";
    tab_info.exports = std::vector<ExportEntry>{{"/e1", "/m1", std::nullopt}, {"/e2", "/m2", "krb5"}};
    tab_info.pairs = std::vector<LocalPathPair>{{"10.0.0.1", "10.0.0.2"}, {"10.1.0.1", "10.1.0.2"}};
    tab_info.server = "filer";
    tab_info.gid = 4294967295;
    tab_info.uid = 500;
    EXPECT_EQ(run(createtslnfstab), done());
    EXPECT_EQ(read_file(tslnfstab()),
              "#<server block begin>\n"
              "uid: 500\n"
              "gid: 4294967295\n"
              "server: filer\n"
              "local: 10.0.0.1 \t path: 10.0.0.2\n"
              "local: 10.1.0.1 \t path: 10.1.0.2\n"
              "export: /e1 \t mount: /m1\n"
              "export: /e2 \t mount: /m2\tsecurity: krb5\n"
              "version: nfsv3\n"
              "community: public\n"
              "rdmaport: 20049\n"
              "mnt_timeout: 15\n"
              "security_default: sys\n"
              "management: m\n"
              "#<server block end>\n");
}

TEST_F(CreateTslnfstab, WritesAUserOfZeroBecauseItWasGiven) {
    tab_info.server = "f";
    tab_info.uid = 0;
    EXPECT_EQ(run(createtslnfstab), done());
    EXPECT_EQ(read_file(tslnfstab()), "#<server block begin>\nuid: 0\nserver: f\n#<server block end>\n");
}

TEST_F(CreateTslnfstab, WritesMissingItemsAsEmptyTexts) {
    tab_info.server = "f";
    tab_info.pairs = std::vector<LocalPathPair>{{"a", ""}};
    tab_info.exports = std::vector<ExportEntry>{{"/e", "", ""}};
    EXPECT_EQ(run(createtslnfstab), done());
    EXPECT_EQ(read_file(tslnfstab()),
              "#<server block begin>\nserver: f\nlocal: a \t path: \nexport: /e \t mount: \tsecurity: \n"
              "#<server block end>\n");
}

TEST_F(CreateTslnfstab, SaysOnStandardOutputThatAServerIsMissingEvenWithALog) {
    ASSERT_TRUE(open_log_file((directory() + "/log").c_str()));
    EXPECT_EQ(run(createtslnfstab), (Outcome{1, "Server name is mandatory for createtslnfstab function\n"}));
    ASSERT_TRUE(close_log());
    EXPECT_EQ(read_file(directory() + "/log"), "");
    EXPECT_FALSE(exists(tslnfstab()));
}

TEST_F(CreateTslnfstab, MovesAServerThatIsCreatedAgainToTheEnd) {
    write_file(tslnfstab(), block("a") + block("b") + "# note\n");
    EXPECT_EQ(create("a"), done());
    EXPECT_EQ(read_file(tslnfstab()), block("b") + "# note\n" + block("a"));
    EXPECT_FALSE(exists(backup()));
}

TEST_F(CreateTslnfstab, LeavesAnEmptyBackupBesideAFileWithoutTheServer) {
    write_file(tslnfstab(), block("a"));
    EXPECT_EQ(create("b"), done());
    EXPECT_EQ(read_file(tslnfstab()), block("a") + block("b"));
    ASSERT_TRUE(exists(backup()));
    EXPECT_EQ(read_file(backup()), "");
}

TEST_F(CreateTslnfstab, EndsALastLineFirstSoThatItsMarkerIsRecognised) {
    write_file(tslnfstab(), "# note");
    EXPECT_EQ(create("a"), done());
    EXPECT_EQ(read_file(tslnfstab()), "# note\n" + block("a"));
}

TEST_F(CreateTslnfstab, RefusesToHideAConfigurationThatWasLeftInTheBackup) {
    write_file(backup(), block("only copy"));
    EXPECT_EQ(create("a"), (Outcome{1, ""}));
    EXPECT_EQ(trace(), "[n],createtslnfstab the configuration was left in " + backup() +
                           "; look at it and rename it to " + tslnfstab() + ", or delete it\n");
    EXPECT_FALSE(exists(tslnfstab()));
    EXPECT_EQ(read_file(backup()), block("only copy"));
    // An empty one says nothing.
    write_file(backup(), "");
    EXPECT_EQ(create("a"), done());
    EXPECT_EQ(read_file(tslnfstab()), block("a"));
}

TEST_F(CreateTslnfstab, ReplacesABlockInOneStep) {
    write_file(tslnfstab(), block("a") + block("b") + "# note");
    std::filesystem::create_hard_link(tslnfstab(), directory() + "/before");
    EXPECT_EQ(create("a"), done());
    EXPECT_EQ(read_file(tslnfstab()), block("b") + "# note\n" + block("a"));
    EXPECT_EQ(read_file(directory() + "/before"), block("a") + block("b") + "# note");
}

TEST_F(CreateTslnfstab, AddsTheNewBlockBesideTheOldOneWhenThatCannotBeTakenOut) {
    write_file(tslnfstab(), block("a"));
    const FailingCall failing(FailingCall::Call::rename, backup(), EBUSY);
    EXPECT_EQ(create("a"), done());
    EXPECT_EQ(read_file(tslnfstab()), block("a") + block("a"));
    EXPECT_EQ(trace(), record("delete_server", 65038, "The file " + tslnfstab() + " could not be deleted."));
}

TEST_F(CreateTslnfstab, MakesAFileThatHoldsACommunityForOwnerAndGroupOnly) {
    const mode_t before = umask(022);
    tab_info.community = "public";
    tab_info.server = "a";
    EXPECT_EQ(run(createtslnfstab), done());
    EXPECT_EQ(mode_of(tslnfstab()), 0640u);
    std::filesystem::remove(tslnfstab());
    EXPECT_EQ(create("a"), done());
    EXPECT_EQ(mode_of(tslnfstab()), 0644u);
    umask(before);
}

TEST_F(CreateTslnfstab, RefusesAControlCharacterInAnyValue) {
    write_file(tslnfstab(), block("a"));
    const std::string bad = "x\nmount: /";
    const std::function<void()> changes[] = {
        [&] { tab_info.server = bad; },
        [&] { tab_info.version = "\x01"; },
        [&] { tab_info.community = bad; },
        [&] { tab_info.management = "\x7f"; },
        [&] { tab_info.mnt_timeout = "\t"; },
        [&] { tab_info.rdmaport = "\r"; },
        [&] { tab_info.security_default = bad; },
        [&] {
            tab_info.pairs = std::vector<LocalPathPair>{{bad, "p"}};
        },
        [&] {
            tab_info.pairs = std::vector<LocalPathPair>{{"l", bad}};
        },
        [&] {
            tab_info.exports = std::vector<ExportEntry>{{bad, "/m", std::nullopt}};
        },
        [&] {
            tab_info.exports = std::vector<ExportEntry>{{"/e", bad, std::nullopt}};
        },
        [&] {
            tab_info.exports = std::vector<ExportEntry>{{"/e", "/m", bad}};
        },
    };
    for (const auto &change : changes) {
        tab_info = {};
        tab_info.server = "a";
        change();
        EXPECT_EQ(run(createtslnfstab), (Outcome{1, ""}));
        EXPECT_NE(trace().find("holds a control character"), std::string::npos);
        EXPECT_EQ(read_file(tslnfstab()), block("a"));
    }
}

TEST_F(CreateTslnfstab, WarnsOfAValueThatWillBeReadOtherwise) {
    tab_info.server = "a";
    tab_info.exports = std::vector<ExportEntry>{{"/e#1", "/mnt/with blank", std::nullopt}};
    tab_info.version = "path:";
    EXPECT_EQ(run(createtslnfstab), done());
    EXPECT_EQ(trace(),
              "[n],createtslnfstab export: \"/e#1\" ends at its \"#\"\n"
              "[n],createtslnfstab mount: \"/mnt/with blank\" ends at its first blank\n"
              "[n],createtslnfstab version: \"path:\" is taken for a key\n");
    EXPECT_NE(read_file(tslnfstab()).find("mount: /mnt/with blank\n"), std::string::npos);
}

TEST_F(CreateTslnfstab, WarnsOfAServerThatCannotBeUsed) {
    tab_info.server = "a";
    tab_info.mnt_timeout = "soon";
    EXPECT_EQ(run(createtslnfstab), done());
    EXPECT_EQ(trace(),
              "[n],createtslnfstab the server cannot be used: mnt_timeout: \"soon\" is not a number from 1 to "
              "31536000\n");
    EXPECT_EQ(create(""), done());
    EXPECT_EQ(trace(), "[n],createtslnfstab the server cannot be used: server: \"\" cannot be read\n");
}

TEST_F(CreateTslnfstab, WarnsOfAMountPointWithCapitals) {
    tab_info.server = "a";
    tab_info.exports =
        std::vector<ExportEntry>{{"/E", "/mnt/Backup", std::nullopt}, {"/e", "/mnt/plain", std::nullopt}};
    EXPECT_EQ(run(createtslnfstab), done());
    EXPECT_THAT(trace(), testing::StartsWith("[n],createtslnfstab mount point /mnt/Backup: a copy to it by this name"));
    EXPECT_THAT(trace(), testing::Not(testing::HasSubstr("/mnt/plain")));
}

TEST_F(CreateTslnfstab, SaysNothingOfWhatIsUnused) {
    tab_info.server = "a";
    tab_info.community = "a secret # path: x";
    tab_info.management = "mount: \xff";
    tab_info.pairs = std::vector<LocalPathPair>{{"", "host"}};
    EXPECT_EQ(run(createtslnfstab), done());
    EXPECT_EQ(trace(), "");
}

TEST_F(CreateTslnfstab, TakesListsOf16EntriesAndRefusesMoreBeforeTheOldBlockGoes) {
    tab_info.server = "a";
    tab_info.pairs.emplace(16, LocalPathPair{"l", "p"});
    tab_info.exports.emplace(16, ExportEntry{"/e", "/m", std::nullopt});
    EXPECT_EQ(run(createtslnfstab), done());
    const std::string before = read_file(tslnfstab());
    const std::size_t lines = std::string(
                                  "local: l \t path: p\n"
                                  "export: /e \t mount: /m\n")
                                  .size();
    EXPECT_EQ(before.size(), block("a").size() + 16 * lines);

    tab_info.pairs->push_back({"l", "p"});
    EXPECT_EQ(run(createtslnfstab), (Outcome{1, ""}));
    EXPECT_EQ(trace(), "[n],createtslnfstab more than 16 entries in a list\n");
    tab_info.pairs->pop_back();
    tab_info.exports->push_back({"/e", "/m", std::nullopt});
    EXPECT_EQ(run(createtslnfstab), (Outcome{1, ""}));
    EXPECT_EQ(read_file(tslnfstab()), before);
}

TEST_F(CreateTslnfstab, KeepsTheOldBlockWhenNothingCanBeAdded) {
    ASSERT_EQ(mkdir(tslnfstab().c_str(), 0700), 0);
    EXPECT_EQ(create("a"), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("createtslnfstab", 65061, "The file " + tslnfstab() + " could not be opened."));
    EXPECT_FALSE(exists(backup()));
}

TEST_F(CreateTslnfstab, CannotMakeAFileInAHomeWithoutItsDirectory) {
    use_home(directory() + "/none");
    EXPECT_EQ(create("a"), (Outcome{1, ""}));
    EXPECT_EQ(trace(),
              record("createtslnfstab", 65061, "The file " + directory() + "/none/dbs/tslnfstab could not be opened."));
}

TEST_F(CreateTslnfstab, AddsNothingWhenTheBlockDoesNotFit) {
    const std::string before = block("a") + std::string(800, '#') + "\n";
    write_file(tslnfstab(), before);
    tab_info.server = "b";
    tab_info.exports.emplace(16, ExportEntry{"/" + std::string(100, 'e'), "/m", std::nullopt});
    {
        const FileSizeLimit limit(1000);
        EXPECT_EQ(run(createtslnfstab), (Outcome{1, ""}));
    }
    EXPECT_EQ(read_file(tslnfstab()), before);
    EXPECT_EQ(trace(), "[n],createtslnfstab " + tslnfstab() + " could not be written whole (error " +
                           std::to_string(EFBIG) + ")\n");
}

TEST_F(CreateTslnfstab, AddsTheNewBlockBesideTheOldOneWhenTheBackupCannotBeWritten) {
    ASSERT_EQ(mkdir(backup().c_str(), 0700), 0);
    write_file(tslnfstab(), block("a"));
    const Outcome outcome = create("a");
    EXPECT_EQ(outcome, (Outcome{0, "could not open " + backup() + " errno " + std::to_string(EISDIR) + "\n"}));
    EXPECT_EQ(read_file(tslnfstab()), block("a") + block("a"));
}

TEST_F(CreateTslnfstab, WorksInTheLongestHome) {
    const std::string longest = directory() + "/" + std::string(259 - directory().size() - 1, 'h');
    std::filesystem::create_directories(longest + "/dbs");
    use_home(longest);
    EXPECT_EQ(create("a"), done());
    EXPECT_EQ(read_file(longest + "/dbs/tslnfstab"), block("a"));
    // The buffers of the rewriting commands are shorter, so that the quiet deletion before it fails.
    EXPECT_EQ(trace(), record("delete_server", 65059, "The path " + longest + "/dbs/tslnfstab could not be resolved."));
}

}  // namespace
