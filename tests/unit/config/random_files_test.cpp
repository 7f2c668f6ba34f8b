// SPDX-License-Identifier: Apache-2.0
// Whatever a configuration holds, an edit takes out or puts in one piece of it and keeps all other bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tslwnfs/config/rdma_edit.h"
#include "tslwnfs/config/server_deletion.h"
#include "tslwnfs/config/tslnfstab_lines.h"

namespace {

constexpr int kFiles = 3000;

// A file made of pieces that mean something, of some that nearly do, and of any bytes.
std::string random_file(std::mt19937 &random) {
    static const std::vector<std::string> kPieces = {"#<server block begin>\n",
                                                     "#<server block end>\n",
                                                     " #<server block end>\n",
                                                     "server: a\n",
                                                     "server: b\n",
                                                     "\tserver:a#x\n",
                                                     "server\n",
                                                     "server: ",
                                                     "rdmaport: 1\n",
                                                     " rdmaport\n",
                                                     "version: 3\n",
                                                     "\n",
                                                     ":",
                                                     "# note\n",
                                                     std::string(1023, 'x'),
                                                     std::string("\0\n", 2)};
    std::string file;
    for (std::size_t count = random() % 20; count > 0; --count) {
        const std::size_t piece = random() % (kPieces.size() + 1);
        if (piece < kPieces.size()) {
            file += kPieces[piece];
        } else {
            file += static_cast<char>(random());
        }
    }
    return file;
}

// The lengths of what two texts begin and end with alike.
std::size_t common_head(const std::string &one, const std::string &other) {
    const auto end = std::mismatch(one.begin(), one.end(), other.begin(), other.end()).first;
    return static_cast<std::size_t>(end - one.begin());
}
std::size_t common_tail(const std::string &one, const std::string &other) {
    const auto end = std::mismatch(one.rbegin(), one.rend(), other.rbegin(), other.rend()).first;
    return static_cast<std::size_t>(end - one.rbegin());
}

// Whether the shorter text is the longer one without one piece of it.
bool is_cut_out_of(const std::string &shorter, const std::string &longer) {
    return shorter.size() <= longer.size() &&
           common_head(shorter, longer) + common_tail(shorter, longer) >= shorter.size();
}

TEST(RandomFiles, AreTheSumOfTheirLines) {
    std::mt19937 random(1);
    for (int i = 0; i < kFiles; ++i) {
        const std::string file = random_file(random);
        std::string joined;
        for (const auto line : split_lines(file)) {
            EXPECT_LE(line.size(), kLineMaximum);
            joined += line;
        }
        EXPECT_EQ(joined, file);
    }
}

TEST(RandomFiles, LoseOnePieceWithAServer) {
    std::mt19937 random(2);
    int deletions = 0;
    for (int i = 0; i < kFiles; ++i) {
        const std::string file = random_file(random);
        const auto deletion = without_server(file, "a");
        if (!deletion) continue;
        ++deletions;
        EXPECT_TRUE(is_cut_out_of(deletion->file, file)) << testing::PrintToString(file);
    }
    EXPECT_GT(deletions, kFiles / 10);
}

TEST(RandomFiles, GainOneLineWithAPort) {
    const std::string port_line = "rdmaport: 7\n";
    std::mt19937 random(3);
    int gains = 0;
    for (int i = 0; i < kFiles; ++i) {
        const std::string file = random_file(random);
        const RdmaEdit edit = with_rdma_port(file, "a", "7");
        if (edit.file == file) continue;
        ++gains;
        EXPECT_TRUE(edit.matched && edit.done);
        EXPECT_EQ(edit.file.size(), file.size() + port_line.size());
        EXPECT_TRUE(is_cut_out_of(file, edit.file)) << testing::PrintToString(file);
    }
    EXPECT_GT(gains, kFiles / 100);
}

TEST(RandomFiles, LoseOneLineWithAPort) {
    std::mt19937 random(4);
    int losses = 0;
    for (int i = 0; i < kFiles; ++i) {
        const std::string file = random_file(random);
        const RdmaEdit edit = without_rdma_port(file, "a");
        EXPECT_EQ(edit.file != file, edit.done);
        EXPECT_TRUE(is_cut_out_of(edit.file, file)) << testing::PrintToString(file);
        if (edit.done) ++losses;
    }
    EXPECT_GT(losses, kFiles / 100);
}

}  // namespace
