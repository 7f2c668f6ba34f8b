// SPDX-License-Identifier: Apache-2.0
// A last word "-y", which answers questions and belongs to no command's grammar.
#include "front_end_fixture.h"

namespace {

class TrailingYes : public FrontEnd {};

TEST_F(TrailingYes, CountsOnlyAsTheLastWordAndExactly) {
    parse("copy a b -y");
    EXPECT_EQ(pass_flag, 1);
    for (const char *line : {"copy -y a b", "copy a b -Y", "copy a b", "copy a -yy"}) {
        parse(line);
        EXPECT_EQ(pass_flag, 0) << line;
    }
}

TEST_F(TrailingYes, IsSetEvenWhenTheLineIsWrong) {
    EXPECT_EQ(parse("nosuch -y"), ParseOutcome::usage);
    EXPECT_EQ(pass_flag, 1);
}

TEST_F(TrailingYes, IsNotSeenByAnyGrammar) {
    struct Case {
        const char *line;
        ParseOutcome outcome;
        const char *operands;
    };
    constexpr auto accepted = ParseOutcome::accepted;
    constexpr auto usage = ParseOutcome::usage;
    for (const Case &one : {
             Case{"-y", usage, "null null"},
             {"copy a b -y", accepted, "a b"},
             {"move a b -y", accepted, "a b"},
             {"copy -y a b", accepted, "a b"},
             {"copy a -y", accepted, "a null"},
             {"copy -y", accepted, "null null"},
             {"del f -y", accepted, "f null"},
             {"cat f -y", accepted, "f null"},
             {"rmdir d -y", accepted, "d null"},
             {"getattr p -y", accepted, "p null"},
             {"setattr p -y", accepted, "p null"},
             {"stat f -y", accepted, "f null"},
             {"fsstat p -y", accepted, "p null"},
             {"fsinfo p -y", accepted, "p null"},
             {"mkdir d -y", accepted, "d null"},
             {"ls d -y", accepted, "d null"},
             {"find /d -y", accepted, "/d *"},
             {"find /d -name -y", accepted, "/d *"},
             {"mount exp mp -y", accepted, "exp mp"},
             {"mount exp mp -u 5 -y", accepted, "exp mp"},
             {"mount exp -y", accepted, "exp null"},
             {"umount -y", accepted, "null null"},
             {"umount mp -y", accepted, "mp null"},
             {"dd -if a -of b -y", accepted, "a b"},
             {"dd -y", ParseOutcome::dd_help, "null null"},
             {"dd -count -y", ParseOutcome::dd_help, "null null"},
             {"showmount srv -y", accepted, "srv null"},
             {"showmount -y", accepted, "null null"},
             {"showmount -e -y", usage, "null null"},
             {"wnfsdisable -y", accepted, "null null"},
             {"wnfsdisable -deletetdmdir -y", accepted, "null null"},
             {"wnfsenable -y", accepted, "null null"},
             {"save -y", accepted, "null null"},
             {"restore -y", accepted, "null null"},
             {"networkdiscovery -y", accepted, "null null"},
             {"iswnfsenabled /h -y", accepted, "/h null"},
             {"iswnfsenabled -y", accepted, "null null"},
             {"isPathOnWNFS -oh h -path p -y", accepted, "h p"},
             {"getsubnetmask -ip a -y", accepted, "a null"},
             {"createtslnfstab -s x -y", accepted, "null null"},
             {"display_server -s x -y", accepted, "x null"},
             {"delete_server -s x -y", accepted, "x null"},
             {"disablerdma -s x -y", accepted, "x null"},
             {"enablerdma -s x -y", accepted, "x null"},
             {"display_server -s -y", usage, "null null"},
             {"enablerdma -s x -p -y", usage, "x null"},
             {"mount_script -e x -m -y", usage, "x null"},
             {"getserverlist -y", accepted, "null null"},
             {"enum_local_ips -y", accepted, "null null"},
             {"get_ip_subnet -y", accepted, "null null"},
             {"nfsids -y", accepted, "null null"},
             {"help -y", ParseOutcome::help, "null null"},
         }) {
        EXPECT_EQ(parse(one.line), one.outcome) << one.line;
        const std::string operands =
            std::string(fname != nullptr ? fname : "null") + " " + (fname1 != nullptr ? fname1 : "null");
        EXPECT_EQ(operands, one.operands) << one.line;
        EXPECT_EQ(discovery_flag, 0) << one.line;
    }
}

TEST_F(TrailingYes, IsNoCommandBehindAGlobalOption) {
    EXPECT_EQ(parse("-log " + directory_ / "log" + " -y"), ParseOutcome::usage);
    EXPECT_EQ(parse("-trace " + directory_ / "trace" + " -y"), ParseOutcome::usage);
}

}  // namespace
