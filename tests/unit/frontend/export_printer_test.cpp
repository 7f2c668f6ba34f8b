// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/client/export_printer.h"

#include "front_end_fixture.h"

namespace {

using Bytes = std::vector<uint8_t>;

void put_word(Bytes &bytes, uint32_t word) {
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<uint8_t>(word >> shift));
}

void put_text(Bytes &bytes, const std::string &text) {
    put_word(bytes, static_cast<uint32_t>(text.size()));
    bytes.insert(bytes.end(), text.begin(), text.end());
    while (bytes.size() % 4 != 0)
        bytes.push_back(0);
}

void put_export(Bytes &bytes, const std::string &directory, const std::vector<std::string> &groups) {
    put_word(bytes, 1);
    put_text(bytes, directory);
    for (const auto &group : groups) {
        put_word(bytes, 1);
        put_text(bytes, group);
    }
    put_word(bytes, 0);
}

// The list as it lies in memory, with a head in front of every further piece.
Bytes in_pieces(const Bytes &list) {
    Bytes result;
    for (std::size_t i = 0; i < list.size(); i += 4) {
        result.insert(result.end(), list.begin() + static_cast<long>(i), list.begin() + static_cast<long>(i) + 4);
        if ((32 + i + 4) % 4000 == 0) put_word(result, 0xDEADBEEF);
    }
    return result;
}

class ExportList : public FrontEnd {
  protected:
    static std::string shown(const Bytes &reply) {
        CapturedOutput captured;
        EXPECT_EQ(tslwnfs_expout(reply), 0);
        return captured.text();
    }

    static std::string column(const std::string &directory) {
        return directory + std::string(directory.size() < 34 ? 34 - directory.size() : 0, ' ') + " ";
    }
};

TEST_F(ExportList, ShowsTheFirstGroupTwice) {
    Bytes reply;
    put_export(reply, "/export", {"admin", "web"});
    put_word(reply, 0);
    EXPECT_EQ(shown(reply), column("/export") + "admin ,admin ,web \n");
}

TEST_F(ExportList, SaysEveryoneForAnExportWithoutGroups) {
    Bytes reply;
    put_export(reply, "/a", {});
    put_export(reply, "/b", {"x"});
    put_word(reply, 0);
    EXPECT_EQ(shown(reply), column("/a") + "(everyone)\n" + column("/b") + "x ,x \n");
}

TEST_F(ExportList, NeverCutsALongDirectoryToItsColumn) {
    const std::string directory = "/" + std::string(60, 'd');
    Bytes reply;
    put_export(reply, directory, {});
    put_word(reply, 0);
    EXPECT_EQ(shown(reply), directory + " (everyone)\n");
}

TEST_F(ExportList, CutsANameAtItsAreaOf256Bytes) {
    Bytes reply;
    put_export(reply, std::string(300, 'd'), {});
    put_word(reply, 0);
    EXPECT_EQ(shown(reply), std::string(255, 'd') + " (everyone)\n");
}

TEST_F(ExportList, StepsOverTheHeadOfEveryFurtherPiece) {
    Bytes list;
    std::string expected;
    for (int i = 0; i < 600; ++i) {
        const std::string directory = "/export/" + std::to_string(i);
        put_export(list, directory, {"g" + std::to_string(i)});
        expected += column(directory) + "g" + std::to_string(i) + " ,g" + std::to_string(i) + " \n";
    }
    put_word(list, 0);
    ASSERT_GT(list.size(), 8000u);
    EXPECT_EQ(shown(in_pieces(list)), expected);
}

TEST_F(ExportList, EndsWithTheReplyWhereverThatIsCut) {
    Bytes reply;
    put_export(reply, "/export", {"admin", "web"});
    put_word(reply, 0);
    for (std::size_t length = 0; length < reply.size(); ++length) {
        const Bytes cut(reply.begin(), reply.begin() + static_cast<long>(length));
        const std::string text = shown(cut);
        EXPECT_TRUE(text.empty() || text.ends_with('\n')) << length;
    }
}

TEST_F(ExportList, BelievesNoLengthBeyondTheReply) {
    Bytes reply;
    put_word(reply, 1);
    put_word(reply, 0xFFFFFFFF);
    reply.resize(64);
    EXPECT_EQ(shown(reply), "");
}

TEST_F(ExportList, GoesToTheLogWhenThereIsOne) {
    Bytes reply;
    put_export(reply, "/export", {"g"});
    put_word(reply, 0);
    ASSERT_TRUE(open_log_file((directory_ / "log").c_str()));
    EXPECT_EQ(shown(reply), "");
    ASSERT_TRUE(close_log());
    EXPECT_EQ(read_file(directory_ / "log"), column("/export") + "g ,g \n");
}

}  // namespace
