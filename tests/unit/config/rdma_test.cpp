// SPDX-License-Identifier: Apache-2.0
#include <cerrno>

#include "tests/support/command_fixture.h"
#include "tslwnfs/config/config.h"

namespace {

constexpr char kUnknown[] = "Requested server is not present in tslnfstab\n";
constexpr char kUnfixed[] = "Requested server is present in tslnfstab but failed to fix it\n";

class Rdma : public CommandTest {
  protected:
    static std::string block(const std::string &lines) {
        return "#<server block begin>\n" + lines + "#<server block end>\n";
    }
    static Outcome enable(const char *server, const char *port = nullptr) {
        return run([=] { return enablerdma(server, port); });
    }
    static Outcome disable(const char *server) {
        return run([=] { return disablerdma(server); });
    }

    // What a file becomes, with the result that goes with it.
    void expect(const Outcome &outcome, const std::string &file, const Outcome &expected = {0, ""}) {
        EXPECT_EQ(outcome, expected);
        EXPECT_EQ(read_file(tslnfstab()), file);
        EXPECT_FALSE(exists(backup()));
    }
};

TEST_F(Rdma, IsEnabledByAPortLineJustAheadOfTheEndMarker) {
    write_file(tslnfstab(), "# top\n" + block("server: a\n  # note\n") + block("server: b\n"));
    expect(enable("a"), "# top\n" + block("server: a\n  # note\nrdmaport: 20049\n") + block("server: b\n"));
}

TEST_F(Rdma, TakesThePortThatWasGiven) {
    write_file(tslnfstab(), block("server: a\n"));
    expect(enable("a", "1"), block("server: a\nrdmaport: 1\n"));
}

TEST_F(Rdma, KeepsAPortThatIsThere) {
    const std::string file = block("server: a\n\trdmaportal: 7 # old\nversion: 3\n");
    write_file(tslnfstab(), file);
    expect(enable("a", "8"), file);
}

TEST_F(Rdma, IsEnabledOnlyOnce) {
    write_file(tslnfstab(), block("server: a\n"));
    expect(enable("a"), block("server: a\nrdmaport: 20049\n"));
    expect(enable("a"), block("server: a\nrdmaport: 20049\n"));
}

TEST_F(Rdma, DoesNotSeeAPortAheadOfTheServerLine) {
    const std::string file = block("rdmaport: 7\nserver: a\n");
    write_file(tslnfstab(), file);
    expect(enable("a", "8"), block("rdmaport: 7\nserver: a\nrdmaport: 8\n"));
    expect(disable("a"), file);
    expect(disable("a"), file, {1, kUnfixed});
}

TEST_F(Rdma, IsDisabledByLeavingThePortLineOut) {
    write_file(tslnfstab(), block("server: a\n rdmaport: 7\nversion: 3\n") + "no feed");
    expect(disable("a"), block("server: a\nversion: 3\n") + "no feed");
}

TEST_F(Rdma, LosesOneOfTwoPortLinesAtATime) {
    write_file(tslnfstab(), block("server: a\nrdmaport: 1\nrdmaport: 2\n"));
    expect(disable("a"), block("server: a\nrdmaport: 2\n"));
}

TEST_F(Rdma, DisabledWithoutAPortWalksIntoTheNextBlockThatHasOne) {
    write_file(tslnfstab(), block("server: a\n") + block("server: b\n") + block("server: c\nrdmaport: 7\n"));
    expect(disable("a"), block("server: a\n") + block("server: b\n") + block("server: c\n"));
}

TEST_F(Rdma, OfAnUnknownServerChangesNothing) {
    const std::string file = block("server: a\nrdmaport: 7\n");
    write_file(tslnfstab(), file);
    for (const char *server : {"b", "A", ""}) {
        expect(enable(server), file, {1, kUnknown});
        expect(disable(server), file, {1, kUnknown});
    }
}

TEST_F(Rdma, DoesNotSeeServersOutsideBlocks) {
    const std::string file = "server: a\nrdmaport: 7\n" + block("server: b\n");
    write_file(tslnfstab(), file);
    expect(enable("a"), file, {1, kUnknown});
    expect(disable("a"), file, {1, kUnknown});
}

TEST_F(Rdma, CannotBeFixedInABlockWithoutAnEnd) {
    const std::string file = "#<server block begin>\nserver: a\nversion: 3\n";
    write_file(tslnfstab(), file);
    expect(enable("a"), file, {1, kUnfixed});
}

TEST_F(Rdma, ChangesTheFirstOfTwoBlocksOfAServer) {
    write_file(tslnfstab(), block("server: a\n") + block("server: a\n"));
    expect(enable("a"), block("server: a\nrdmaport: 20049\n") + block("server: a\n"));
    write_file(tslnfstab(), block("server: a\nrdmaport: 1\n") + block("server: a\nrdmaport: 2\n"));
    expect(disable("a"), block("server: a\n") + block("server: a\nrdmaport: 2\n"));
}

TEST_F(Rdma, NeedsTheFile) {
    const Outcome expected = {1, "could not open " + tslnfstab() + " errno " + std::to_string(ENOENT) + "\n"};
    EXPECT_EQ(enable("a"), expected);
    EXPECT_EQ(disable("a"), expected);
}

}  // namespace
