// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include "tests/support/command_fixture.h"
#include "tslwnfs/client/client.h"

namespace {

const std::string kIsEnabled = "TWNFS-65009: The Wren NFS client is enabled.\n";
const std::string kIsNotEnabled = "TWNFS-65010: The Wren NFS client is not enabled.\n";
const std::string kOnMount = "TWNFS-65071: The path lies on a Wren NFS mount.\n";
const std::string kNotOnMount = "TWNFS-65072: The path does not lie on a Wren NFS mount.\n";

class Status : public CommandTest {
  protected:
    Status() {
        std::filesystem::create_directories(home() + "/rdbms/lib/tdm");
        write_file(library(), "");
        write_file(tslnfstab(), "server: a\n");
    }

    std::string library() const { return home() + "/rdbms/lib/tdm/libnfstdm.so"; }
    Outcome ask() const { return ask(home()); }
    static Outcome ask(const std::string &home) {
        return run([&] { return iswnfsenabled(home.c_str()); });
    }

    // Whether a path lies on a mount of a file with these lines.
    bool on_mount(const std::string &lines, const std::string &path) {
        write_file(tslnfstab(), lines);
        const Outcome outcome = run([&] { return isPathOnWNFS(home().c_str(), path.c_str()); });
        const bool is = outcome.result == 0;
        EXPECT_EQ(outcome.printed, kIsEnabled + (is ? kOnMount : kNotOnMount));
        return is;
    }
};

TEST_F(Status, IsEnabledWithAConfigurationAndTheLibrary) {
    EXPECT_EQ(ask(), (Outcome{0, kIsEnabled}));
    EXPECT_EQ(trace(), "");
}

TEST_F(Status, TakesAHomeMarkerForTheHome) {
    const ScopedEnvironment variable("TESSEL_HOME", home().c_str());
    EXPECT_EQ(ask("?"), (Outcome{0, kIsEnabled}));
}

TEST_F(Status, IsNotEnabledWithoutAConfiguration) {
    std::filesystem::remove(tslnfstab());
    EXPECT_EQ(ask(), (Outcome{1, kIsNotEnabled}));
    EXPECT_EQ(trace(), record("iswnfsenabled", 65008, "No client configuration was found for " + home() + "."));
    EXPECT_EQ(ask(""), (Outcome{1, kIsNotEnabled}));
    EXPECT_EQ(trace(), record("iswnfsenabled", 65008, "No client configuration was found for ."));
}

TEST_F(Status, IsNotEnabledWithAnEmptyConfiguration) {
    write_file(tslnfstab(), "");
    EXPECT_EQ(ask(), (Outcome{1, kIsNotEnabled}));
    EXPECT_EQ(trace(), record("iswnfsenabled", 65011, "The configuration file " + tslnfstab() + " is empty."));
}

TEST_F(Status, IsNotEnabledRightAfterEnabling) {
    std::filesystem::create_directories(home() + "/lib");
    write_file(home() + "/lib/libnfstdm.so", "");
    std::filesystem::remove(tslnfstab());
    EXPECT_EQ(run(wnfsenable), (Outcome{0, ""}));
    EXPECT_EQ(ask(), (Outcome{1, kIsNotEnabled}));
}

TEST_F(Status, IsNotEnabledWhenTheConfigurationCannotBeLookedUp) {
    write_file(home() + "/file", "");
    const std::string path = home() + "/file/dbs/tslnfstab";
    EXPECT_EQ(ask(home() + "/file"), (Outcome{1, kIsNotEnabled}));
    EXPECT_EQ(trace(), record("iswnfsenabled", 65013, "The status of " + path + " could not be read."));
}

TEST_F(Status, IsNotEnabledForAUserToWhomTheLibraryIsClosed) {
    if (geteuid() != 0) GTEST_SKIP() << "only root may become somebody else";
    set_mode(directory(), 0755);
    set_mode(home() + "/rdbms/lib/tdm", 0700);
    // Reads the messages, too, which may lie where the user may not look.
    ASSERT_EQ(ask(), (Outcome{0, kIsEnabled}));
    ASSERT_EQ(seteuid(1234), 0);
    const Outcome outcome = ask();
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(outcome, (Outcome{1, kIsNotEnabled}));
    EXPECT_EQ(trace(), "[n],iswnfsenabled " + library() +
                           " is in a directory that is closed to user 1234: ask its owner\n" +
                           record("iswnfsenabled", 65007, "The storage library " + library() + " was not found."));
}

TEST_F(Status, IsNotEnabledWithoutTheLibrary) {
    std::filesystem::remove(library());
    EXPECT_EQ(ask(), (Outcome{1, kIsNotEnabled}));
    EXPECT_EQ(trace(), record("iswnfsenabled", 65007, "The storage library " + library() + " was not found."));
}

TEST_F(Status, LooksForTheLibraryInTheHomeThatRunsWhicheverIsAskedAbout) {
    const std::string other = directory() + "/other";
    std::filesystem::create_directories(other + "/dbs");
    write_file(other + "/dbs/tslnfstab", "server: b\n");
    EXPECT_EQ(ask(other), (Outcome{0, kIsEnabled}));
}

TEST_F(Status, RefusesAHomeTooLongForAPath) {
    for (const std::size_t length : {499, 519, 520}) {
        EXPECT_EQ(ask("/" + std::string(length - 1, 'h')), (Outcome{1, kIsNotEnabled}));
        EXPECT_TRUE(
            trace().starts_with(length == 520 ? "[n],iswnfsenabled TWNFS-65008: " : "[n],iswnfsenabled TWNFS-65059: "));
    }
}

TEST_F(Status, OfAPathIsFoundInTheLinesThatCreatetslnfstabWrites) {
    EXPECT_TRUE(on_mount("#<server block begin>\nserver: a\nexport: /e \t mount: /u02\n", "/u02/file"));
    EXPECT_TRUE(on_mount("export: /e\nmount: /u02\n", "/u02"));
    EXPECT_FALSE(on_mount("export: /e \t mount: /u02\n", "/u03/file"));
    EXPECT_FALSE(on_mount("export: /u03\n", "/u03"));
}

TEST_F(Status, OfAPathDoesNotDependOnCaseOrOnTheDirectionOfSlashes) {
    EXPECT_TRUE(on_mount("export: /e \t mount: C:/DATA\n", "c:\\data\\x"));
    EXPECT_TRUE(on_mount("mount: \\u02\\Data\n", "/U02/dAtA/x"));
}

TEST_F(Status, OfAPathIsThatOfAPlainPrefix) {
    EXPECT_TRUE(on_mount("mount: /u01\n", "/u01x/a"));
    EXPECT_FALSE(on_mount("mount: /u01/\n", "/u01"));
}

TEST_F(Status, OfAPathIsNotFoundBehindTabs) {
    EXPECT_FALSE(on_mount("export: /e\tmount:\t/u02\n", "/u02/file"));
    EXPECT_FALSE(on_mount("mount: /u02\tsecurity: sys\n", "/u02/file"));
    EXPECT_FALSE(on_mount("\tmount: /u02\n", "/u02/file"));
}

TEST_F(Status, OfAPathTakesTheWordBehindTheFirstMountWord) {
    EXPECT_TRUE(on_mount("mount: /a mount: /b\n", "/a"));
    EXPECT_FALSE(on_mount("mount: /a mount: /b\n", "/b"));
    EXPECT_TRUE(on_mount("x:mount: MOUNT: /a\n", "/a"));
    EXPECT_FALSE(on_mount("MOUNT: /a\n", "/a"));
    EXPECT_TRUE(on_mount("# mount: /a\n", "/a"));
    EXPECT_TRUE(on_mount("export: /e   mount: /a\n", "/a"));
}

TEST_F(Status, OfAPathSkipsAnEmptyMountPoint) {
    EXPECT_FALSE(on_mount("mount:\nmount: \nmount:  /a\n", "/a"));
}

TEST_F(Status, OfAPathMeasuresALineWithoutAMountWordByTheMountPointBefore) {
    // The second line is what decides: "/b" lies on no mount point of its own.
    EXPECT_FALSE(on_mount("xmount: /b\n", "/b"));
    EXPECT_TRUE(on_mount("mount: /a\nxmount: /b\n", "/a"));
    EXPECT_FALSE(on_mount("mount: /a\nxmount: /b\n", "/b"));
}

TEST_F(Status, OfAPathReadsLinesInPiecesOf259Characters) {
    // "mount: " and 252 characters fill one piece; what follows is a line of its own.
    const std::string fits = "/" + std::string(251, 'm');
    EXPECT_FALSE(on_mount("mount: " + fits + "\n", fits.substr(0, 251)));
    EXPECT_TRUE(on_mount("mount: " + fits + "x\n", fits));
    EXPECT_TRUE(on_mount(std::string(259, '#') + "mount: /a\n", "/a"));
    EXPECT_FALSE(on_mount(std::string(256, '#') + "mount: /a\n", "/a"));
}

TEST_F(Status, OfAPathGivesTwoVerdictsWhenTheClientIsNotEnabled) {
    std::filesystem::remove(library());
    const Outcome outcome = run([&] { return isPathOnWNFS(home().c_str(), "/a"); });
    EXPECT_EQ(outcome, (Outcome{1, kIsNotEnabled + kNotOnMount}));
}

TEST_F(Status, OfAPathIsAFailureWhenTheConfigurationCannotBeRead) {
    std::filesystem::remove(tslnfstab());
    std::filesystem::create_directory(tslnfstab());
    const Outcome outcome = run([&] { return isPathOnWNFS(home().c_str(), "/a"); });
    EXPECT_EQ(outcome, (Outcome{1, kIsEnabled}));
    EXPECT_EQ(trace(), record("isPathOnWNFS", 65061, "The file " + tslnfstab() + " could not be opened."));
}

TEST_F(Status, OfAPathNeedsBothOperands) {
    EXPECT_EQ(run([] { return isPathOnWNFS(nullptr, "/a"); }), (Outcome{1, ""}));
    EXPECT_EQ(run([] { return isPathOnWNFS("/h", nullptr); }), (Outcome{1, ""}));
    const std::string once = record("isPathOnWNFS", 65006, "Usage: see the command summary.");
    EXPECT_EQ(trace(), once + once);
}

TEST_F(Status, SpeaksIntoTheLog) {
    ASSERT_TRUE(open_log_file((directory() + "/log").c_str()));
    EXPECT_EQ(ask(), (Outcome{0, ""}));
    ASSERT_TRUE(close_log());
    EXPECT_EQ(read_file(directory() + "/log"), kIsEnabled);
}

}  // namespace
