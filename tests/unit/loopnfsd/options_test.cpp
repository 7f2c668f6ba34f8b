// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/options.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>

namespace {

using loopnfsd::Options;

std::string parse(std::vector<std::string> words, Options &options) {
    std::vector<char *> pointers{const_cast<char *>("loopnfsd")};
    for (std::string &word : words)
        pointers.push_back(word.data());
    return loopnfsd::parse_options(static_cast<int>(pointers.size()), pointers.data(), options);
}

Options good(const std::vector<std::string> &words) {
    Options options;
    EXPECT_EQ(parse(words, options), "");
    return options;
}

std::string problem(const std::vector<std::string> &words) {
    Options options;
    return parse(words, options);
}

TEST(Options, TheVersionsOfNfsAreChosen) {
    EXPECT_TRUE(good({"/tmp"}).version3);
    EXPECT_FALSE(good({"/tmp"}).version4);
    EXPECT_FALSE(good({"--versions", "4", "/tmp"}).version3);
    EXPECT_TRUE(good({"--versions", "4", "/tmp"}).version4);
    const Options both = good({"--versions=3,4", "--grace", "5", "--slots", "2", "/tmp"});
    EXPECT_TRUE(both.version3 && both.version4);
    EXPECT_EQ(both.version4_settings.grace, std::chrono::seconds(5));
    EXPECT_EQ(both.version4_settings.slots, 2U);
    for (const char *wrong : {"--versions=2", "--versions=", "--versions=3,", "--slots=0", "--grace=x"})
        EXPECT_NE(problem({wrong, "/tmp"}), "") << wrong;
    EXPECT_NE(problem({"--versions=4", "--portmap", "/tmp"}), "");
}

TEST(Options, CopiesOfTheServersOwnAreOfferedOneByOne) {
    const auto none = good({"--versions=4", "/tmp"}).version4_settings.copies;
    EXPECT_FALSE(none.clones || none.at_once || none.in_background);
    const auto some = good({"--versions=4", "--copies", "clone,background", "/tmp"}).version4_settings.copies;
    EXPECT_TRUE(some.clones && some.in_background);
    EXPECT_FALSE(some.at_once);
    EXPECT_TRUE(good({"--copies=copy", "/tmp"}).version4_settings.copies.at_once);
    for (const char *wrong : {"--copies=", "--copies=paste", "--copies=clone,"})
        EXPECT_NE(problem({wrong, "/tmp"}), "") << wrong;
}

TEST(Options, AFolderIsServedOnAFreePortOfLoopback) {
    const Options options = good({"folder"});
    ASSERT_EQ(options.exports.size(), 1U);
    EXPECT_EQ(options.exports[0].name, "/export");
    EXPECT_EQ(options.exports[0].folder, "folder");
    ASSERT_EQ(options.addresses.size(), 1U);
    EXPECT_EQ(options.addresses[0].text(), "127.0.0.1:0");
    EXPECT_FALSE(options.portmap_port);
    EXPECT_TRUE(options.service.sync);
}

TEST(Options, ValuesStandBehindEqualsOrInTheNextWord) {
    const Options options = good({"--port=5", "--max-read", "64K", "--export=/a=x,ro", "--export", "/b=y=z"});
    EXPECT_EQ(options.addresses[0].port, 5U);
    EXPECT_EQ(options.service.max_read, 65536U);
    ASSERT_EQ(options.exports.size(), 2U);
    EXPECT_TRUE(options.exports[0].read_only);
    EXPECT_EQ(options.exports[0].folder, "x");
    EXPECT_EQ(options.exports[1].folder, "y=z");
}

TEST(Options, AddressesMayHaveTheirOwnPort) {
    const Options options = good({"f", "--port", "7", "--address", "127.0.0.2", "--address=127.0.0.3:8", "--address",
                                  "::1", "--address", "[::1]:9"});
    std::vector<std::string> texts;
    for (const auto &address : options.addresses)
        texts.push_back(address.text());
    EXPECT_EQ(texts, (std::vector<std::string>{"127.0.0.2:7", "127.0.0.3:8", "[::1]:7", "[::1]:9"}));
}

TEST(Options, ThePortmappersPortMayBeLeftOut) {
    EXPECT_EQ(good({"--portmap", "folder"}).portmap_port, 111);
    EXPECT_EQ(good({"--portmap", "1111", "folder"}).portmap_port, 1111);
    EXPECT_EQ(good({"--portmap=0", "folder"}).portmap_port, 0);
}

TEST(Options, FaultsAreChecked) {
    EXPECT_EQ(good({"f", "--fault", "rtt=5", "--fault=silent"}).faults.size(), 2U);
    EXPECT_EQ(problem({"f", "--fault", "smoke"}), "--fault: there is no fault \"smoke\"");
    EXPECT_EQ(problem({"f", "--fault", "silent@2"}), "--fault: there is no address 2");
}

TEST(Options, TheRestOfASendIsTheCommand) {
    const Options options = good({"--send", "path", "clear", "silent"});
    EXPECT_EQ(options.action, Options::Action::send);
    EXPECT_EQ(options.send_to, "path");
    EXPECT_EQ(options.command, "clear silent");
}

TEST(Options, AWrongCommandLineIsToldWhatIsWrong) {
    EXPECT_EQ(problem({}), "which folder is to be served?");
    EXPECT_EQ(problem({"--no-such"}), "there is no option --no-such");
    EXPECT_EQ(problem({"-x", "f"}), "there is no option -x");
    EXPECT_EQ(problem({"f", "--port"}), "--port needs a value: PORT");
    EXPECT_EQ(problem({"f", "--port", "65536"}), "--port: \"65536\" is not a port");
    EXPECT_EQ(problem({"f", "--max-read=1"}), "--max-read: \"1\" is not a size from 512 bytes to 16 MiB");
    EXPECT_EQ(problem({"f", "--verbose=1"}), "--verbose takes no value");
    EXPECT_EQ(problem({"--export", "x"}), "--export: \"x\" is not NAME=FOLDER");
    EXPECT_EQ(problem({"f", "--address", "[::1"}), "--address: \"[::1\" is not an address");
}

TEST(Options, TheHelpNamesEveryFault) {
    const std::string help = loopnfsd::help_text();
    for (const auto &row : loopnfsd::fault_rows())
        EXPECT_NE(help.find("\n  " + std::string(row.name)), std::string::npos) << row.name;
}

TEST(Options, TheManualTellsOfEveryOptionAndFault) {
    std::ifstream file(LOOPNFSD_MANUAL);
    const std::string manual{std::istreambuf_iterator<char>(file), {}};
    std::istringstream help(loopnfsd::help_text());
    int options = 0;
    for (std::string line; std::getline(help, line);) {
        if (!line.starts_with("  --")) continue;
        const std::string name = line.substr(4, line.find_first_of(" [", 4) - 4);
        EXPECT_NE(manual.find("Fl -" + name), std::string::npos) << name;
        ++options;
    }
    EXPECT_GT(options, 10);
    for (const auto &row : loopnfsd::fault_rows())
        EXPECT_NE(manual.find("Cm " + std::string(row.name)), std::string::npos) << row.name;
}

}  // namespace
