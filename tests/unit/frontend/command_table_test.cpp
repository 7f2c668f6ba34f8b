// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/command_table.h"

#include <map>
#include <set>

#include "front_end_fixture.h"

namespace {

class CommandTable : public FrontEnd {};

TEST_F(CommandTable, HasEveryWordOnce) {
    std::set<std::string> words;
    for (const Command &command : command_table()) {
        for (const char *word : command.words) {
            const bool is_new = word == nullptr || words.insert(word).second;
            EXPECT_TRUE(is_new) << word;
        }
    }
    EXPECT_EQ(words.size(), 49u);
}

TEST_F(CommandTable, GivesEveryWordItsCode) {
    const std::map<std::string, int> codes = {
        {"copy", 1},
        {"cp", 1},
        {"del", 2},
        {"delete", 2},
        {"rm", 2},
        {"cat", 3},
        {"move", 5},
        {"mv", 5},
        {"mkdir", 7},
        {"rmdir", 8},
        {"getattr", 9},
        {"setattr", 10},
        {"stat", 11},
        {"fsstat", 11},
        {"fsinfo", 12},
        {"dir", 13},
        {"ls", 13},
        {"find", 15},
        {"mount", 16},
        {"umount", 17},
        {"dd", 18},
        {"DD", 18},
        {"showmount", 19},
        {"restore", 20},
        {"save", 21},
        {"wnfsenable", 22},
        {"wnfsdisable", 23},
        {"networkdiscovery", 24},
        {"iswnfsenabled", 25},
        {"isPathOnWNFS", 26},
        {"createtslnfstab", 27},
        {"disablerdma", 28},
        {"enablerdma", 29},
        {"enum_local_ips", 30},
        {"getserverlist", 31},
        {"mount_script", 32},
        {"umount_script", 33},
        {"display_server", 34},
        {"delete_server", 35},
        {"getsubnetmask", 36},
        {"get_ip_subnet", 37},
        {"get_ip_subnetv4", 38},
        {"get_ip_subnetv6", 39},
        {"enum_local_ipv4", 40},
        {"enum_local_ipv6", 41},
        {"nfsids", 0},
        {"?", 0},
        {"h", 0},
        {"help", 0},
    };
    std::size_t words = 0;
    for (const auto &[word, code] : codes) {
        const Command *command = find_command(word);
        ASSERT_NE(command, nullptr) << word;
        EXPECT_EQ(command->code, code) << word;
        EXPECT_NE(command->grammar, nullptr) << word;
        ++words;
    }
    EXPECT_EQ(words, 49u);
}

TEST_F(CommandTable, HasARowForEveryCodeButTheUnusedOne) {
    for (int code = 1; code <= 41; ++code)
        EXPECT_EQ(command_of(code) != nullptr, code != 6) << code;
    EXPECT_EQ(command_of(0), nullptr);
    EXPECT_EQ(command_of(42), nullptr);
    EXPECT_EQ(command_of(-1), nullptr);
}

TEST_F(CommandTable, RunsRowsOfOneCodeAlike) {
    for (const Command &command : command_table()) {
        if (command.code == kNoCommand) continue;
        const Command *first = command_of(command.code);
        EXPECT_NE(command.run, nullptr) << command.code;
        EXPECT_EQ(command.run, first->run) << command.code;
        EXPECT_EQ(command.execution, first->execution) << command.code;
        EXPECT_EQ(command.required, first->required) << command.code;
        EXPECT_STREQ(command.banner, first->banner) << command.code;
    }
}

TEST_F(CommandTable, KnowsWhichCommandsOnlyPrint) {
    const std::set<int> print = {3, 4, 9, 11, 12, 13, 14, 15, 19, 24, 30, 31, 34, 36, 37, 38, 39, 40, 41};
    for (const Command &command : command_table()) {
        EXPECT_EQ(command.prints_result, print.contains(command.code)) << command.code;
        reset_options();
        commandtype = command.code;
        EXPECT_EQ(prints_result(), command.prints_result || command.code == kDd) << command.code;
    }
    commandtype = kDd;
    EXPECT_TRUE(prints_result());
    offound = 1;
    EXPECT_FALSE(prints_result());
    reset_options();
    id_enabled = 1;
    EXPECT_TRUE(prints_result());
}

TEST_F(CommandTable, AsksForTheOperandsEachCodeNeeds) {
    const std::set<int> both = {1, 5, 15, 16, 26};
    const std::set<int> first = {2, 3, 4, 7, 8, 9, 10, 11, 12, 13, 14, 17, 25, 28, 29, 32, 33, 34, 35, 36};
    for (const Command &command : command_table()) {
        const Required expected = both.contains(command.code)    ? Required::both
                                  : first.contains(command.code) ? Required::first
                                  : command.code == kDd          ? Required::second
                                                                 : Required::nothing;
        EXPECT_EQ(command.required, expected) << command.code;
    }
}

TEST_F(CommandTable, PreparesOperandsForTheFileCommandsOnly) {
    for (const Command &command : command_table()) {
        const bool on_files = command.code >= 1 && command.code <= 18;
        EXPECT_EQ(command.execution == Execution::on_files, on_files) << command.code;
        EXPECT_EQ(command.banner != nullptr, on_files && command.code != kListRecursive) << command.code;
        EXPECT_EQ(command.names_destination, command.code == kCopy || command.code == kMove) << command.code;
    }
}

}  // namespace
