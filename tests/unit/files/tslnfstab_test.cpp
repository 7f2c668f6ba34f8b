// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/mounts/tslnfstab.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <random>

#include "nfstdm/mounts/mount_table.h"
#include "nfstdm/mounts/tslnfstab_file.h"
#include "nfstdm/mounts/tslnfstab_keys.h"
#include "tests/support/temporary_directory.h"

namespace nfstdm {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::vector<ServerConfig> servers_in(std::string_view text) {
    return read_tslnfstab(text).servers;
}

ServerConfig only_server_in(std::string_view text) {
    auto servers = servers_in(text);
    EXPECT_EQ(servers.size(), 1U);
    return servers.empty() ? ServerConfig{} : servers.front();
}

TEST(Tslnfstab, TheKeysOfTlsAreReadAsTheyStand) {
    const auto server = only_server_in(
        "server: filer\nexport: /a mount: /mnt/a\n"
        "transport_security: mtls tls_ca: /etc/ca.pem tls_certificate: /etc/c.pem tls_key: /etc/c.key\n");
    EXPECT_EQ(server.problem, "");
    EXPECT_EQ(server.transport_security, "mtls");
    EXPECT_EQ(server.tls_ca, "/etc/ca.pem");
    EXPECT_EQ(server.tls_certificate, "/etc/c.pem");
    EXPECT_EQ(server.tls_key, "/etc/c.key");
    EXPECT_EQ(only_server_in("server: filer\nexport: /a mount: /mnt/a\n").transport_security, "");
}

TEST(Tslnfstab, ABlockAsTheUtilityWritesItIsRead) {
    const auto server = only_server_in(
        "#<server block begin>\n"
        "uid: 501\n"
        "gid: 502\n"
        "server: filer\n"
        "local: 10.0.0.1 \t path: 10.0.0.9\n"
        "local: 10.1.0.1 \t path: 10.1.0.9:2050\n"
        "export: /vol/a \t mount: /mnt/a\tsecurity: sys\n"
        "export: /vol/b \t mount: /mnt/b\n"
        "version: nfsv3\n"
        "community: public\n"
        "mnt_timeout: 7\n"
        "security_default: none\n"
        "management: somehow\n"
        "#<server block end>\n");
    EXPECT_EQ(server.name, "filer");
    EXPECT_EQ(server.problem, "");
    EXPECT_EQ(server.uid, 501U);
    EXPECT_EQ(server.gid, 502U);
    ASSERT_EQ(server.paths.size(), 2U);
    EXPECT_EQ(server.paths[1].local, "10.1.0.1");
    EXPECT_EQ(server.paths[1].path, "10.1.0.9:2050");
    ASSERT_EQ(server.exports.size(), 2U);
    EXPECT_EQ(server.exports[0].export_path, "/vol/a");
    EXPECT_EQ(server.exports[0].mount_point, "/mnt/a");
    EXPECT_EQ(server.exports[0].security, "sys");
    EXPECT_EQ(server.exports[1].security, "none");
    EXPECT_EQ(server.version, "nfsv3");
    EXPECT_EQ(server.contact_timeout_seconds, 7U);
    EXPECT_EQ(server.line, 4U);
}

TEST(Tslnfstab, BareBlocksWithoutMarkersAreToldApartByTheirServers) {
    const auto servers = servers_in(
        "uid: 1\nserver: one\npath: 10.0.0.1\nexport: /a\nmount: /mnt/a\n"
        "\nuid: 2\ngid: 3\nserver: two\nlocal: 10.2.0.1\npath: 10.2.0.2\nexport: /b\nmount: /mnt/b\n"
        "\nexport: /c\nmount: /mnt/c\n");
    ASSERT_EQ(servers.size(), 2U);
    EXPECT_EQ(servers[0].name, "one");
    EXPECT_EQ(servers[0].uid, 1U);
    EXPECT_EQ(servers[0].gid, std::nullopt);
    EXPECT_EQ(servers[1].uid, 2U);
    EXPECT_EQ(servers[1].gid, 3U);
    EXPECT_EQ(servers[1].paths[0].local, "10.2.0.1");
    ASSERT_EQ(servers[1].exports.size(), 2U);
    EXPECT_EQ(servers[1].exports[1].mount_point, "/mnt/c");
}

TEST(Tslnfstab, AFileWithEveryKeyOnALineOfItsOwnAndTrailingBlanksIsRead) {
    const auto server = only_server_in("\nserver: s \nexport: /e\nmount: /m \nnconnect: 4 ");
    EXPECT_EQ(server.exports.front().mount_point, "/m");
    EXPECT_EQ(server.connections_per_path, 4U);
}

TEST(Tslnfstab, ABlockWhoseSettingsStandAheadOfItsServerIsOneServer) {
    const auto servers = servers_in(
        "server: first\nexport: /a mount: /a\n"
        "#<server block begin>\nmnt_timeout: 5\nexport: /b mount: /b\nserver: second\n#<server block end>\n");
    ASSERT_EQ(servers.size(), 2U);
    EXPECT_EQ(servers[0].contact_timeout_seconds, 30U);
    EXPECT_EQ(servers[1].name, "second");
    EXPECT_EQ(servers[1].contact_timeout_seconds, 5U);
    EXPECT_EQ(servers[1].exports.size(), 1U);
}

TEST(Tslnfstab, SettingsOfOurOwnAreRead) {
    const auto server = only_server_in("server: s\nnconnect: 16\nio_timeout: 0\nmountport: 20048\nnfsport: 2049\n");
    EXPECT_EQ(server.connections_per_path, 16U);
    EXPECT_EQ(server.io_timeout_seconds, 0U);
    EXPECT_EQ(server.mount_port, 20048);
    EXPECT_EQ(server.nfs_port, 2049);
}

TEST(Tslnfstab, DefaultsAreThoseDocumented) {
    const auto server = only_server_in("server: s\n");
    EXPECT_EQ(server.contact_timeout_seconds, 30U);
    EXPECT_EQ(server.io_timeout_seconds, 600U);
    EXPECT_EQ(server.connections_per_path, 1U);
    EXPECT_TRUE(server.paths.empty());
}

TEST(Tslnfstab, AnUnreadableValueDisablesItsOwnServerOnlyAndNamesTheLine) {
    const auto file = read_tslnfstab(
        "server: good\nexport: /a mount: /a\n"
        "server: bad\nnconnect: many\nexport: /b mount: /b\n"
        "server: fine\nnconnect: 2\n");
    ASSERT_EQ(file.servers.size(), 3U);
    EXPECT_EQ(file.servers[0].problem, "");
    EXPECT_THAT(file.servers[1].problem, HasSubstr("line 4: nconnect: \"many\" is not a number from 1 to 16"));
    EXPECT_EQ(file.servers[1].exports.size(), 1U) << "its mounts keep their places";
    EXPECT_EQ(file.servers[2].problem, "");
    EXPECT_THAT(file.remarks, ElementsAre(HasSubstr("line 4: nconnect")));
}

class UnreadableValue : public ::testing::TestWithParam<const char *> {};

TEST_P(UnreadableValue, MakesTheServerUnusable) {
    EXPECT_NE(only_server_in(std::string("server: s\n") + GetParam() + "\n").problem, "") << GetParam();
}

INSTANTIATE_TEST_SUITE_P(Each, UnreadableValue,
                         ::testing::Values("uid: -1", "uid: 4294967296", "gid: x", "gid: 1x", "uid:", "nconnect: 0",
                                           "nconnect: 17", "mnt_timeout: 0", "io_timeout: soon", "nfsport: 65536",
                                           "mountport: 0", "rdmaport: http", "export: /e mount: relative",
                                           "export: /e mount: /a/../b", "mount: /alone", "security: sys",
                                           "path:", "local", "version: \x01"));

TEST(Tslnfstab, AWordOfNoMeaningAheadOfTheFirstServerDisablesNone) {
    EXPECT_EQ(only_server_in("Wren servers of this host\nserver: s\n").problem, "");
}

TEST(Tslnfstab, AnUnknownKeyIsRemarkedUponAndIgnored) {
    const auto file = read_tslnfstab("server: s\ncolour: blue\n");
    EXPECT_EQ(file.servers.front().problem, "");
    EXPECT_THAT(file.remarks, ElementsAre(HasSubstr("line 2: unknown key \"colour\"")));
}

TEST(Tslnfstab, CommentsEndALineAlsoBehindAValue) {
    const auto server = only_server_in("# server: no\nserver: yes#no\n  # path: no\npath: there # export: /x\n");
    EXPECT_EQ(server.name, "yes");
    ASSERT_EQ(server.paths.size(), 1U);
    EXPECT_EQ(server.paths[0].path, "there");
    EXPECT_TRUE(server.exports.empty());
}

TEST(Tslnfstab, KeysMayBeIndentedAndStandAgainstTheirValues) {
    EXPECT_EQ(only_server_in(" \t server:filer\n").name, "filer");
    EXPECT_EQ(only_server_in("server : filer\r\n").name, "filer");
    EXPECT_EQ(only_server_in("server_name: filer\n").name, "filer");
}

TEST(Tslnfstab, ALocalAddressWithoutAPathBelongsToTheServersName) {
    const auto server = only_server_in("server: filer\nlocal: 10.0.0.1\nexport: /a mount: /a\n");
    ASSERT_EQ(server.paths.size(), 1U);
    EXPECT_EQ(server.paths[0].path, "filer");
    EXPECT_EQ(server.paths[0].local, "10.0.0.1");
}

TEST(Tslnfstab, ALocalAddressThatWasLeftOutIsNone) {
    const auto server = only_server_in("server: filer\nlocal:  \t path: 10.0.0.9\nlocal: path: b\n");
    EXPECT_EQ(server.problem, "");
    ASSERT_EQ(server.paths.size(), 2U);
    EXPECT_EQ(server.paths[0].local, "");
    EXPECT_EQ(server.paths[0].path, "10.0.0.9");
    EXPECT_EQ(server.paths[1].path, "b");
}

TEST(Tslnfstab, AValueThatOnlyBeginsLikeAKeyIsAValue) {
    const auto server = only_server_in("server: path:2049\nlocal: export\npath: mount:1\n");
    EXPECT_EQ(server.problem, "");
    EXPECT_EQ(server.name, "path:2049");
    ASSERT_EQ(server.paths.size(), 1U);
    EXPECT_EQ(server.paths[0].local, "export");
    EXPECT_EQ(server.paths[0].path, "mount:1");
}

TEST(Tslnfstab, WhatNobodyLooksAtMayHoldAnything) {
    for (const char *value : {"", "two words", "a # b", "mount: relative", "uid: x", "\x01\xff", ":", "local"}) {
        for (const char *key : {"community", "management"}) {
            const auto server = only_server_in(std::string("server: s\n") + key + ": " + value + "\nnconnect: 3\n");
            EXPECT_EQ(server.problem, "") << key << ": " << value;
            EXPECT_EQ(server.exports.size(), 0U);
            EXPECT_EQ(server.connections_per_path, 3U);
        }
    }
}

TEST(Tslnfstab, WhatNobodyLooksAtEndsAtTheNextKeyWhereSettingsShareALine) {
    const auto server = only_server_in("server: s community: a b nconnect: 3 management: c mnt_timeout: 4\n");
    EXPECT_EQ(server.problem, "");
    EXPECT_EQ(server.connections_per_path, 3U);
    EXPECT_EQ(server.contact_timeout_seconds, 4U);
}

TEST(Tslnfstab, AKeyInCapitalsIsRemarkedUponAsProbablyMeant) {
    const auto file = read_tslnfstab("server: s\nExport: /e MOUNT: /m\nColour: x\n");
    EXPECT_TRUE(file.servers.front().exports.empty());
    EXPECT_THAT(file.remarks, ElementsAre("line 2: unknown key \"Export\": keys are in lower case, export",
                                          "line 2: unknown key \"MOUNT\": keys are in lower case, mount",
                                          "line 3: unknown key \"Colour\""));
}

TEST(TslnfstabKeys, AreFoundByTheirWords) {
    for (const KeyRow &row : tslnfstab_keys()) {
        EXPECT_EQ(find_key(row.word), &row);
        EXPECT_EQ(find_key(std::string(row.word) + "s") == &row, row.is_prefix);
        EXPECT_EQ(find_key_in_capitals(row.word), nullptr);
    }
    EXPECT_EQ(find_key(""), nullptr);
}

class TslnfstabFile : public ::testing::Test {
  protected:
    TslnfstabFile() { std::filesystem::create_directory(home_ / "dbs"); }
    Result<Tslnfstab> load() const { return load_tslnfstab(home_.path()); }
    std::string file() const { return home_ / "dbs/tslnfstab"; }

    TemporaryDirectory home_;
};

TEST_F(TslnfstabFile, IsReadWhole) {
    write_file(file(), "server: a\n# " + std::string(100000, 'x') + "\nserver: b\n");
    ASSERT_TRUE(load().ok());
    EXPECT_EQ(load().value().servers.size(), 2U);
}

TEST_F(TslnfstabFile, ThatIsMissingMeansNoServers) {
    ASSERT_TRUE(load().ok());
    EXPECT_TRUE(load().value().servers.empty());
    write_file(file() + ".bak", "");
    EXPECT_TRUE(load().ok());
    EXPECT_TRUE(load_tslnfstab(home_ / "none").ok());
}

TEST_F(TslnfstabFile, ThatWasLeftInItsBackupIsAFailure) {
    write_file(file() + ".bak", "server: a\n");
    ASSERT_FALSE(load().ok());
    EXPECT_THAT(load().status().text(), HasSubstr("the configuration was left in " + file() + ".bak"));
    write_file(file(), "");
    EXPECT_TRUE(load().ok());
}

TEST_F(TslnfstabFile, ThatIsAPipeOrADirectoryIsAFailure) {
    ASSERT_EQ(mkfifo(file().c_str(), 0600), 0);
    ASSERT_FALSE(load().ok());
    EXPECT_THAT(load().status().text(), HasSubstr("no regular file"));
    std::filesystem::remove(file());
    std::filesystem::create_directory(file());
    EXPECT_EQ(load().status().number(), static_cast<uint32_t>(EISDIR));
}

TEST(Tslnfstab, MountsWithoutAnyServerAreUnusableAndNotLocal) {
    const auto server = only_server_in("export: /a\nmount: /mnt/a\n");
    EXPECT_EQ(server.exports.size(), 1U);
    EXPECT_NE(server.problem, "");
}

TEST(Tslnfstab, RdmaIsReadAndTheUseOfTcpIsRemarkedUpon) {
    const auto file = read_tslnfstab("server: s\nrdmaport: 20049\n");
    EXPECT_EQ(file.servers.front().problem, "");
    EXPECT_EQ(file.servers.front().rdma_port, 20049);
    EXPECT_THAT(file.remarks, ElementsAre(HasSubstr("TCP")));
}

TEST(Tslnfstab, LinesOfAnyLengthAreRead) {
    const std::string name(100000, 'x');
    const auto server = only_server_in("server: " + name + std::string(5000, ' ') + "path: p\n");
    EXPECT_EQ(server.name, name);
    EXPECT_EQ(server.paths.size(), 1U);
}

TEST(Tslnfstab, AnEmptyFileHasNoServers) {
    EXPECT_TRUE(servers_in("").empty());
    EXPECT_TRUE(servers_in("\n \n\t\n#\n:\n").empty());
}

TEST(Tslnfstab, RandomInputNeverCrashesIt) {
    static constexpr std::string_view kWords[] = {"server: s ",
                                                  "export: e mount: /m ",
                                                  "server",
                                                  "uid",
                                                  "gid",
                                                  "local",
                                                  "path",
                                                  "export",
                                                  "mount",
                                                  "security",
                                                  ":",
                                                  ": ",
                                                  "\n",
                                                  "\t",
                                                  "#",
                                                  "/a",
                                                  "..",
                                                  "12",
                                                  "#<server block begin>\n",
                                                  "#<server block end>\n"};
    std::mt19937 random(20240917);
    std::size_t servers = 0;
    for (int round = 0; round < 10000; ++round) {
        std::string text;
        for (unsigned i = random() % 60; i > 0; --i) {
            if (random() % 3 == 0)
                text += static_cast<char>(random());
            else
                text += kWords[random() % std::size(kWords)];
        }
        const auto file = read_tslnfstab(text);
        servers += file.servers.size();
        for (const auto &server : file.servers)
            ASSERT_FALSE(server.name.empty() && server.problem.empty()) << text;
        const MountTable table(file.servers);
        (void)table.find(split_path("/a/b"));
    }
    EXPECT_GT(servers, 1000U);
}

// ---- the mount table

std::string served_by(const MountTable &table, std::string_view path) {
    const auto found = table.find(split_path(path));
    return found ? table.exported(table.mounts()[*found]).export_path : "local";
}

TEST(MountTable, TheLongestMountPointAtAComponentBoundaryDecides) {
    const MountTable table(
        servers_in("server: s\nexport: A mount: /mnt\nexport: B mount: /mnt/b/\n"
                   "server: t\nexport: C mount: //mnt//b/./c\n"));
    EXPECT_EQ(served_by(table, "/mnt"), "A");
    EXPECT_EQ(served_by(table, "/mnt/"), "A");
    EXPECT_EQ(served_by(table, "/mnt/x"), "A");
    EXPECT_EQ(served_by(table, "/mnt/b"), "B");
    EXPECT_EQ(served_by(table, "/mnt/bb"), "A");
    EXPECT_EQ(served_by(table, "/mnt/b//c/d"), "C");
    EXPECT_EQ(served_by(table, "/mntb"), "local");
    EXPECT_EQ(served_by(table, "/"), "local");
}

TEST(MountTable, OfTwoMountsOnOnePointTheLaterCounts) {
    const MountTable table(servers_in("server: s\nexport: A mount: /m\nserver: t\nexport: B mount: /m\n"));
    EXPECT_EQ(served_by(table, "/m/x"), "B");
}

TEST(MountTable, TheRootAndNamesWithAColonCanBeMountPoints) {
    const MountTable table(servers_in("server: s\nexport: A mount: /\nexport: B mount: nfs:/b\n"));
    EXPECT_EQ(served_by(table, "/anything"), "A");
    EXPECT_EQ(served_by(table, "nfs:/b/c"), "B");
}

TEST(MountTable, WithoutServersEverythingIsLocal) {
    EXPECT_EQ(served_by(MountTable{}, "/"), "local");
}

TEST(PathText, ParentsAreTakenBackByTextAndStopAtTheRoot) {
    auto components = split_path("/a/./b//../../../c/");
    collapse_parents(components);
    EXPECT_EQ(join_path(components), "/c");
    EXPECT_EQ(join_path({}), "/");
    EXPECT_EQ(join_path({"nfs:", "a"}), "nfs:/a");
    EXPECT_TRUE(path_is_absolute("nfs:/a"));
    EXPECT_FALSE(path_is_absolute("a/b:"));
}

}  // namespace
}  // namespace nfstdm
