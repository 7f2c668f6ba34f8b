// SPDX-License-Identifier: Apache-2.0
// Whatever a configuration holds, an edit takes out or puts in one piece of it and keeps all other bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "nfstdm/mounts/path_text.h"
#include "nfstdm/mounts/tslnfstab.h"
#include "tslwnfs/config/block_values.h"
#include "tslwnfs/config/rdma_edit.h"
#include "tslwnfs/config/server_deletion.h"
#include "tslwnfs/config/tslnfstab_lines.h"
#include "tslwnfs/options/server_block.h"

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

// A value of any characters that a command line can hold, some of which mean something in the file.
std::string random_value(std::mt19937 &random) {
    static const std::vector<std::string> kPieces = {
        "a", "/", ":", "#", " ", "path:", "server", ".", "7", "\xC3\xA4", ","};
    std::string value;
    for (std::size_t count = random() % 4; count > 0; --count)
        value += kPieces[random() % kPieces.size()];
    return value;
}

ServerBlock random_block(std::mt19937 &random) {
    const auto maybe = [&](const std::string &value) {
        return random() % 3 == 0 ? std::optional(value) : std::nullopt;
    };
    const auto number = [&](uint32_t most) { return std::to_string(random() % (most + 1)); };
    ServerBlock block;
    block.server = "s" + random_value(random);
    if (random() % 2 == 0) block.uid = static_cast<uint32_t>(random());
    if (random() % 2 == 0) block.gid = static_cast<uint32_t>(random());
    block.pairs.emplace();
    for (std::size_t count = random() % 3; count > 0; --count)
        block.pairs->push_back({random_value(random), "p" + random_value(random)});
    block.exports.emplace();
    for (std::size_t count = random() % 3; count > 0; --count)
        block.exports->push_back({"/" + random_value(random), "/m" + random_value(random), maybe("sys")});
    block.version = maybe("v" + random_value(random));
    block.mnt_timeout = maybe(number(60));
    block.rdmaport = maybe(number(70000));
    block.community = maybe(random_value(random));
    block.management = maybe(random_value(random));
    block.security_default = maybe("none");
    return block;
}

// Whether the storage library takes a block for what it says.
bool is_read_back(const ServerBlock &block, const nfstdm::ServerConfig &read) {
    bool same = read.name == *block.server && read.uid == block.uid && read.gid == block.gid &&
                read.version == block.version.value_or("") && read.paths.size() == block.pairs->size() &&
                read.exports.size() == block.exports->size() && read.problem.empty();
    for (std::size_t i = 0; same && i < read.paths.size(); ++i)
        same =
            read.paths[i].local == (*block.pairs)[i].local.value_or("") && read.paths[i].path == (*block.pairs)[i].path;
    for (std::size_t i = 0; same && i < read.exports.size(); ++i) {
        const ExportEntry &given = (*block.exports)[i];
        const auto point = nfstdm::join_path(nfstdm::split_path(given.mount_point));
        same = read.exports[i].export_path == given.export_path && read.exports[i].mount_point == point &&
               read.exports[i].security == given.security.value_or(block.security_default.value_or(""));
    }
    return same && (!block.mnt_timeout || std::to_string(read.contact_timeout_seconds) == *block.mnt_timeout) &&
           (!block.rdmaport || std::to_string(read.rdma_port) == *block.rdmaport);
}

TEST(RandomBlocks, AreReadBackAsTheyWereGivenOrWarnedAbout) {
    std::mt19937 random(5);
    int read_back = 0, warned = 0;
    for (int i = 0; i < 20000; ++i) {
        const ServerBlock block = random_block(random);
        const auto settings = settings_of(block);
        const bool is_warned = !misreadings_of(settings).empty() || !problem_of(settings).empty();
        const auto tab = nfstdm::read_tslnfstab("server: ahead\n" + server_block_text(block) + "server: behind\n");
        const bool is_same = tab.servers.size() == 3 && is_read_back(block, tab.servers[1]);
        EXPECT_EQ(is_same, !is_warned) << server_block_text(block);
        (is_same ? read_back : warned) += 1;
    }
    EXPECT_GT(read_back, 1000);
    EXPECT_GT(warned, 1000);
}

// As mount adds it: with at most one path, of which either half may be missing, and without markers.
TEST(RandomBlocks, ThatMountAddsAreReadBackAsTheyWereGivenOrWarnedAbout) {
    std::mt19937 random(6);
    int read_back = 0, warned = 0;
    for (int i = 0; i < 20000; ++i) {
        ServerBlock block;
        block.server = "s" + random_value(random);
        if (random() % 2 == 0) block.uid = static_cast<uint32_t>(random());
        if (random() % 2 == 0) block.gid = static_cast<uint32_t>(random());
        block.pairs.emplace();
        if (random() % 2 == 0) block.pairs->push_back({std::nullopt, "p" + random_value(random)});
        if (random() % 4 == 0)
            block.pairs = std::vector<LocalPathPair>{{random_value(random), "p" + random_value(random)}};
        const std::string export_path = "/" + random_value(random), point = "/m" + random_value(random);
        const auto settings = mount_settings_of(block, export_path.c_str(), point.c_str());
        const bool is_warned = !misreadings_of(settings).empty() || !problem_of(settings).empty();
        const auto tab = nfstdm::read_tslnfstab("server: ahead\n\n" + mount_text(settings) + "server: behind\n");
        block.exports = std::vector<ExportEntry>{{export_path, point, std::nullopt}};
        const bool is_same = tab.servers.size() == 3 && is_read_back(block, tab.servers[1]);
        EXPECT_EQ(is_same, !is_warned) << mount_text(settings);
        (is_same ? read_back : warned) += 1;
    }
    EXPECT_GT(read_back, 1000);
    EXPECT_GT(warned, 1000);
}

}  // namespace
