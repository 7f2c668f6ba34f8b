// SPDX-License-Identifier: Apache-2.0
// The commands on tslnfstab, which read from fixed positions.
#include "front_end_fixture.h"
#include "tslwnfs/options/server_block.h"

namespace {

class ConfigGrammar : public FrontEnd {
  protected:
    static std::string shown(const char *text) { return text != nullptr ? text : "null"; }
    static std::string operands() { return shown(fname) + " " + shown(fname1); }

    // A line behind "-log f".
    ParseOutcome parse_behind_log(const std::string &line) { return parse("-log " + log_name() + " " + line); }
    std::string log_name() const { return directory_ / "f"; }
};

TEST_F(ConfigGrammar, MountTakesTwoWordsWhateverTheyLookLike) {
    EXPECT_EQ(parse("mount exp mp"), kAccepted);
    EXPECT_EQ(operands(), "exp mp");
    EXPECT_EQ(parse("mount -f exp mp"), kAccepted);
    EXPECT_EQ(operands(), "-f exp");
    EXPECT_FALSE(new_sinfo.replace);
    EXPECT_EQ(parse("mount -f"), kAccepted);
    EXPECT_EQ(operands(), "-f null");
    EXPECT_EQ(parse("mount"), kAccepted);
    EXPECT_EQ(operands(), "null null");
}

TEST_F(ConfigGrammar, MountFillsTheServersDescription) {
    EXPECT_EQ(parse("mount exp mp -f -u 5 -g 6x -s srv -p 10.0.0.1 -l 10.0.0.2"), kAccepted);
    EXPECT_TRUE(new_sinfo.replace);
    EXPECT_EQ(new_sinfo.uid, 5u);
    EXPECT_EQ(new_sinfo.gid, 6u);
    EXPECT_EQ(new_sinfo.server, "srv");
    ASSERT_EQ(new_sinfo.pairs->size(), 1u);
    EXPECT_EQ(new_sinfo.pairs->front().path, "10.0.0.1");
    EXPECT_EQ(new_sinfo.pairs->front().local, "10.0.0.2");
    EXPECT_EQ(parse("mount exp mp -p 10.0.0.1"), kAccepted);
    EXPECT_EQ(new_sinfo.pairs->front().path, "10.0.0.1");
    EXPECT_EQ(new_sinfo.pairs->front().local, std::nullopt);
}

TEST_F(ConfigGrammar, MountSkipsUnknownOptionsAndThoseWithoutAValue) {
    EXPECT_EQ(parse("mount exp mp -x -- -u -5 -s"), kAccepted);
    EXPECT_EQ(new_sinfo.uid, 4294967291u);
    EXPECT_EQ(new_sinfo.server, std::nullopt);
    EXPECT_EQ(parse("mount exp mp word -u 5"), kAccepted);
    EXPECT_EQ(new_sinfo.uid, std::nullopt);
}

TEST_F(ConfigGrammar, MountForgetsWhatAnEarlierOneSaid) {
    new_sinfo.uid = 1;
    get_options(keep({"mount", "exp", "mp"}));
    EXPECT_EQ(new_sinfo.uid, std::nullopt);
}

TEST_F(ConfigGrammar, UmountTakesOneWordWhateverItLooksLike) {
    EXPECT_EQ(parse("umount -x more"), kAccepted);
    EXPECT_EQ(operands(), "-x null");
}

TEST_F(ConfigGrammar, PositionsCountFromTheStartOfTheLine) {
    EXPECT_EQ(parse_behind_log("umount m"), kAccepted);
    EXPECT_EQ(operands(), log_name() + " null");
    EXPECT_EQ(parse_behind_log("mount e m"), kAccepted);
    EXPECT_EQ(operands(), log_name() + " mount");
    EXPECT_EQ(parse_behind_log("createtslnfstab -s x"), kAccepted);
    EXPECT_FALSE(tab_info.server.has_value());
    EXPECT_EQ(parse_behind_log("display_server -s x"), kAccepted);
    EXPECT_EQ(operands(), "null null");
    EXPECT_EQ(parse_behind_log("enablerdma -s x"), kUsage);
}

TEST_F(ConfigGrammar, ScriptsWorkBehindGlobalOptionsAllTheSame) {
    EXPECT_EQ(parse_behind_log("mount_script -e x -m y"), kAccepted);
    EXPECT_EQ(operands(), "x y");
    EXPECT_EQ(parse_behind_log("umount_script -m y"), kAccepted);
    EXPECT_EQ(operands(), "y null");
}

TEST_F(ConfigGrammar, ScriptsSkipEveryOtherWordAndWantTheirValues) {
    EXPECT_EQ(parse("mount_script junk -e x -x junk -m y"), kAccepted);
    EXPECT_EQ(operands(), "x y");
    for (const char *line : {"mount_script -e x", "mount_script -m x", "mount_script", "mount_script -e -m /x",
                             "umount_script", "umount_script -m", "umount_script -e x"}) {
        EXPECT_EQ(parse(line), kUsage) << line;
    }
}

TEST_F(ConfigGrammar, ServerCommandsTakeTheNameBehindItsOption) {
    for (const std::string word : {"display_server", "delete_server", "disablerdma"}) {
        EXPECT_EQ(parse(word + " -x -s srv"), kAccepted) << word;
        EXPECT_EQ(operands(), "srv null") << word;
        EXPECT_EQ(parse(word + " -s -x"), kUsage) << word;
        EXPECT_EQ(parse(word + " -s"), kUsage) << word;
        EXPECT_EQ(parse(word), kAccepted) << word;
        EXPECT_EQ(operands(), "null null") << word;
    }
}

TEST_F(ConfigGrammar, EnablerdmaWantsAServerAndMayHaveAPort) {
    EXPECT_EQ(parse("enablerdma -p 20049 -s srv"), kAccepted);
    EXPECT_EQ(operands(), "srv 20049");
    EXPECT_EQ(parse("enablerdma -s srv"), kAccepted);
    EXPECT_EQ(operands(), "srv null");
    for (const char *line : {"enablerdma", "enablerdma -p 1", "enablerdma -s srv -p", "enablerdma -s srv -p -1"}) {
        EXPECT_EQ(parse(line), kUsage) << line;
    }
}

TEST_F(ConfigGrammar, CreateFillsTheServerBlock) {
    EXPECT_EQ(parse("createtslnfstab -u 5 -g -1 -s srv -v nfsv3 -t 60 -r 20049 -c public -sd sys -m mgmt"), kAccepted);
    EXPECT_EQ(tab_info.uid, 5u);
    EXPECT_EQ(tab_info.gid, 4294967295u);
    EXPECT_EQ(tab_info.server, "srv");
    EXPECT_EQ(tab_info.version, "nfsv3");
    EXPECT_EQ(tab_info.mnt_timeout, "60");
    EXPECT_EQ(tab_info.rdmaport, "20049");
    EXPECT_EQ(tab_info.community, "public");
    EXPECT_EQ(tab_info.security_default, "sys");
    EXPECT_EQ(tab_info.management, "mgmt");
    EXPECT_FALSE(tab_info.pairs.has_value());
    EXPECT_FALSE(tab_info.exports.has_value());
}

TEST_F(ConfigGrammar, CreateSplitsPairs) {
    EXPECT_EQ(parse("createtslnfstab -lp a,b,c;;d;,e; -lp f,g,h,i"), kAccepted);
    ASSERT_TRUE(tab_info.pairs.has_value());
    std::vector<std::string> pairs;
    for (const auto &pair : *tab_info.pairs)
        pairs.push_back(pair.local.value() + "|" + pair.path.value());
    EXPECT_THAT(pairs, testing::ElementsAre("c|b", "d|", "|e", "h|i"));
}

TEST_F(ConfigGrammar, CreateSplitsExports) {
    EXPECT_EQ(parse("createtslnfstab -em /e,/m,sys,more;/x;/y,,; -em /z,/w"), kAccepted);
    ASSERT_TRUE(tab_info.exports.has_value());
    std::vector<std::string> exports;
    for (const auto &one : *tab_info.exports) {
        exports.push_back(one.export_path + "|" + one.mount_point + "|" + one.security.value_or("none"));
    }
    EXPECT_THAT(exports, testing::ElementsAre("/e|/m|sys", "/x||none", "/y||", "/z|/w|none"));
}

TEST_F(ConfigGrammar, CreateKeepsListsThatAreTooLongForTheCommandToRefuse) {
    std::string list;
    for (int i = 0; i < 40; ++i)
        list += "a,b;";
    EXPECT_EQ(parse("createtslnfstab -lp " + list), kAccepted);
    EXPECT_EQ(tab_info.pairs->size(), 40u);
}

TEST_F(ConfigGrammar, CreateSkipsUnknownOptionsAndThoseWithoutAValue) {
    EXPECT_EQ(parse("createtslnfstab -x -- -s"), kAccepted);
    EXPECT_FALSE(tab_info.server.has_value());
    EXPECT_EQ(parse("createtslnfstab word -s x"), kAccepted);
    EXPECT_FALSE(tab_info.server.has_value());
    EXPECT_EQ(parse("createtslnfstab -lp"), kAccepted);
    EXPECT_FALSE(tab_info.pairs.has_value());
}

}  // namespace
