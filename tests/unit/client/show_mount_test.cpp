// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/client/show_mount.h"

#include "tests/support/command_fixture.h"
#include "tslwnfs/client/client.h"

namespace {

class ShowMount : public CommandTest {
  protected:
    using Bytes = std::vector<std::byte>;

    static void put_word(Bytes &bytes, uint32_t word) {
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<std::byte>(word >> shift));
    }
    static void put_text(Bytes &bytes, const std::string &text) {
        put_word(bytes, static_cast<uint32_t>(text.size()));
        for (const char c : text)
            bytes.push_back(static_cast<std::byte>(c));
        bytes.resize((bytes.size() + 3) / 4 * 4);
    }
    static void put_export(Bytes &bytes, const std::string &path, const std::string &group = "") {
        put_word(bytes, 1);
        put_text(bytes, path);
        if (!group.empty()) {
            put_word(bytes, 1);
            put_text(bytes, group);
        }
        put_word(bytes, 0);
    }

    // Runs the command against a server that gives a list.
    static Outcome show(const Bytes &list) {
        return run([&] {
            return show_mount("srv", [&](const char *server, Bytes &answer, std::string &) {
                EXPECT_STREQ(server, "srv");
                answer = list;
                return true;
            });
        });
    }
    static Outcome show_failure() {
        return run([] {
            return show_mount("srv", [](const char *, Bytes &, std::string &reason) {
                reason = "server srv: it is down";
                return false;
            });
        });
    }
};

TEST_F(ShowMount, PrintsTheListOfTheServer) {
    Bytes list;
    put_export(list, "/export", "admin");
    put_export(list, "/open");
    put_word(list, 0);
    EXPECT_EQ(show(list), (Outcome{0,
                                   "/export                            admin ,admin \n"
                                   "/open                              (everyone)\n"}));
}

TEST_F(ShowMount, PrintsNothingForAServerWithoutExports) {
    Bytes list;
    put_word(list, 0);
    EXPECT_EQ(show(list), (Outcome{0, ""}));
}

TEST_F(ShowMount, PrintsAListOfManyPiecesWhole) {
    Bytes list;
    std::string expected;
    for (int i = 0; i < 1000; ++i) {
        const std::string path = "/export/" + std::to_string(i);
        put_export(list, path, "g");
        expected += path + std::string(34 - path.size(), ' ') + " g ,g \n";
    }
    put_word(list, 0);
    ASSERT_GT(list.size(), 24000u);
    EXPECT_EQ(show(list), (Outcome{0, expected}));
}

TEST_F(ShowMount, GivesDifferentNumbersForAFailureOnTheTwoOutputs) {
    EXPECT_EQ(show_failure(), (Outcome{1, "failed, error code:1\n"}));
    EXPECT_EQ(trace(), "[n],showMount server srv: it is down\n");
    ASSERT_TRUE(open_log_file((directory() + "/log").c_str()));
    EXPECT_EQ(show_failure(), (Outcome{1, ""}));
    ASSERT_TRUE(close_log());
    EXPECT_EQ(read_file(directory() + "/log"), "failed, error code:0\n");
}

TEST_F(ShowMount, NeedsAServer) {
    EXPECT_EQ(run([] { return showMount(nullptr); }), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("showMount", 65016, "The first operand is missing."));
}

TEST_F(ShowMount, FailsForANameThatIsNone) {
    EXPECT_EQ(run([] { return showMount("[not an address"); }), (Outcome{1, "failed, error code:1\n"}));
}

TEST_F(ShowMount, LaysAListOutInPiecesOf4000BytesBehindTheirHeads) {
    const auto sizes = [](std::size_t length) { return in_pieces(std::vector<std::byte>(length)).size(); };
    EXPECT_EQ(sizes(0), 0u);
    EXPECT_EQ(sizes(3964), 3964u);
    EXPECT_EQ(sizes(3968), 3968u + 4);
    EXPECT_EQ(sizes(7964), 7964u + 4);
    EXPECT_EQ(sizes(7968), 7968u + 8);
}

}  // namespace
