// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/listing.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <tuple>

#include "tests/support/allocation_faults.h"
#include "tests/unit/commands/command_fixture.h"
#include "tslwnfs/commands/executor.h"
#include "tslwnfs/commands/listed_entries.h"

namespace {

std::string padded(const std::string &name) {
    constexpr std::size_t kColumn = 31;
    return name + std::string(name.size() > kColumn ? kColumn : kColumn - name.size(), ' ');
}

class ListingTest : public CommandTest {
  protected:
    ListingTest() { commandtype = kList; }

    Outcome list(const std::string &path, int32_t print_names = 1) {
        return run([&] { return read_dir(path.c_str(), names_, print_names); });
    }

    Outcome list_tree(const std::string &path) {
        return run([&] { return read_dirlist(path.c_str(), 0); });
    }

    void add_remote(const std::string &path, const std::string &content = "") {
        TdmAttributes &attributes = fake_.volume.add_file(path, content)->attributes;
        attributes.uid = 10;
        attributes.gid = 20;
        attributes.permissions = 0751;
        attributes.access_seconds = 86400;
        attributes.modification_seconds = 0;
        attributes.change_seconds = 2 * 86400;
    }

    std::vector<std::string> names() const { return {names_.begin(), names_.end()}; }

    NameList names_;
};

TEST(NameListTest, HoldsANameAsLongAsThereIsRoomForInAPathAndAnyNumberOfThem) {
    NameList names;
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < 20000; ++i) {
        expected.push_back(std::to_string(i) + std::string(i % 512, 'x'));
        names.add(expected.back());
    }
    EXPECT_EQ(std::vector<std::string>(names.begin(), names.end()), expected);
    EXPECT_EQ(names[12345], expected[12345]);
    EXPECT_EQ(names.size(), expected.size());
    names.clear();
    EXPECT_TRUE(names.empty());
    EXPECT_EQ(names.begin(), names.end());
}

TEST(NameListTest, TakesThreeBytesAndALittleBesideTheNames) {
    constexpr std::size_t kCount = 200000;
    const std::size_t before = allocated_bytes();
    NameList names;
    for (std::size_t i = 0; i < kCount; ++i)
        names.add("entry-0000.dat");
    EXPECT_LT(allocated_bytes() - before, kCount * (14 + 3) + (1 << 20));
}

ListedEntries::Entry numbered(std::size_t number) {
    const auto narrow = static_cast<uint32_t>(number);
    return {number * 2,
            {UINT64_MAX - number * 4711, number % 3 * 1'700'000'000, narrow % 7, ~narrow, narrow / 1000, 5,
             number % 500 == 0}};
}

bool same(const ListedEntries::Entry &one, const ListedEntries::Entry &other) {
    const auto all = [](const ListedEntries::Entry &entry) {
        const auto &[size, time, mode, links, uid, gid, is_local] = entry.details;
        return std::tuple(entry.place, size, time, mode, links, uid, gid, is_local);
    };
    return all(one) == all(other);
}

TEST(ListedEntriesTest, GiveBackWhatWasAddedForthBackAndAtSeveralPlacesAtOnce) {
    constexpr std::size_t kCount = 1000;
    ListedEntries entries;
    for (std::size_t i = 0; i < kCount; ++i)
        entries.add(numbered(i));
    ASSERT_EQ(entries.size(), kCount);
    ListedEntries::Reader forth(entries);
    ListedEntries::Reader back(entries);
    for (std::size_t i = 0; i < kCount; ++i) {
        ASSERT_TRUE(same(forth.at(i), numbered(i))) << i;
        ASSERT_TRUE(same(back.at(kCount - 1 - i), numbered(kCount - 1 - i))) << i;
    }
}

TEST(ListedEntriesTest, TakeNextToNothingWithoutDetailsAndFewBytesWithThem) {
    constexpr std::size_t kCount = 200000;
    constexpr std::size_t kConstant = 1 << 14;
    const std::size_t before = allocated_bytes();
    ListedEntries names;
    for (std::size_t i = 0; i < kCount; ++i)
        names.add({i, {}});
    EXPECT_LT(allocated_bytes() - before, kCount * 2 + kConstant);
    ListedEntries files;
    const std::size_t before_files = allocated_bytes();
    for (std::size_t i = 0; i < kCount; ++i)
        files.add({i, {i * 104729 % (1 << 30), 1'700'000'000 + i * 7919 % 10'000'000, 0100644, 0, 0, 0, false}});
    EXPECT_LT(allocated_bytes() - before_files, kCount * 14 + kConstant);
}

TEST_F(ListingTest, OfADirectoryOnlyTheWantedNamesAreKept) {
    for (const char *name : {"/m/d/a1", "/m/d/b1", "/m/d/a2", "/m/d/b2", "/m/d/a3"})
        fake_.volume.add_file(name, "");
    const auto wanted = [](std::string_view name) { return name.starts_with('a'); };
    EXPECT_EQ(run([&] { return list_content("/m/d", names_, Afterwards::anything, wanted); }).status, 0u);
    EXPECT_THAT(names(), ElementsAre("a1", "a2", "a3"));
    directory_.file("a", "");
    directory_.file("b", "");
    run([&] { return list_content(directory_.path().c_str(), names_, Afterwards::anything, wanted); });
    EXPECT_THAT(names(), ElementsAre("a"));
}

TEST_F(ListingTest, ALocalDirectoryHasItsNamesWithoutTheDots) {
    directory_.file("a", "");
    directory_.directory("b");
    directory_.file(".hidden", "");
    EXPECT_EQ(list(directory_.path(), 0).status, 0u);
    EXPECT_THAT(names(), testing::UnorderedElementsAre("a", "b", ".hidden"));
    EXPECT_THAT(trace_of("read_dir"), ElementsAre("read_dir TWNFS-65066: File system information of " +
                                                  directory_.path() + ": location code 1."));
}

TEST_F(ListingTest, ADirectoryThatDoesNotFitInMemoryFailsAndSaysSo) {
    fake_.volume.add_directory("/m/d");
    fake_.volume.add_file("/m/d/" + std::string(300, 'n'), "");
    const AllocationFault fault(301, AllocationFault::Kind::throwing);  // the name and what ends it
    EXPECT_EQ(list("/m/d").status, 1u);
    EXPECT_TRUE(AllocationFault::fired());
    EXPECT_THAT(trace().back(),
                testing::MatchesRegex("read_dir TWNFS-65060: [0-9]+ bytes of memory could not be allocated."));
    EXPECT_TRUE(names_.empty());
}

TEST_F(ListingTest, ADirectoryThatDoesNotFitInTheLibrarysMemoryFailsAndSaysSo) {
    fake_.volume.add_directory("/m/d");
    fake_.volume.add_file("/m/d/f", "");
    fake_.answer("readdir", 1, {.status = ENOMEM, .location = 0});
    EXPECT_EQ(list("/m/d").status, 1u);
    EXPECT_THAT(trace(),
                ElementsAre("read_dir TWNFS-65043: Reading the directory /m/d: location code 0.",
                            testing::MatchesRegex("read_dir TWNFS-65060: [1-9][0-9]* bytes of memory could not be "
                                                  "allocated.")));
}

TEST_F(ListingTest, AMissingLocalDirectoryFails) {
    const std::string path = directory_.path("missing");
    EXPECT_EQ(list(path).status, 1u);
    EXPECT_THAT(trace_of("read_dir"),
                ElementsAre("read_dir TWNFS-65066: File system information of " + path + ": location code 1.",
                            "read_dir TWNFS-65032: The local directory " + path + " could not be opened."));
}

TEST_F(ListingTest, ABatchedRemoteDirectoryGivesEveryNameOnce) {
    for (uint32_t files = 0; files < 12; ++files) {
        fake_.reset();
        fake_.volume.add_directory("/m/d");
        std::vector<std::string> expected;
        for (uint32_t file = 0; file < files; ++file) {
            expected.push_back("f" + std::to_string(file));
            fake_.volume.add_file("/m/d/" + expected.back(), "");
        }
        for (const uint32_t entries : {0U, 1U, 2U, 3U, 4U, 5U, 100U}) {
            fake_.readdir_entries = entries;
            EXPECT_EQ(list("/m/d", 0).status, 0u) << files << " in batches of " << entries;
            EXPECT_EQ(names(), expected) << files << " in batches of " << entries;
        }
    }
    EXPECT_THAT(trace(), IsEmpty());
}

TEST_F(ListingTest, ABatchContinuesFromTheEntryBeforeItsLast) {
    for (const char *name : {"/m/d/a", "/m/d/b", "/m/d/c", "/m/d/e"}) {
        fake_.volume.add_file(name, "");
    }
    list("/m/d", 0);
    EXPECT_THAT(fake_.calls_of({"fsinfo", "readdir"}),
                ElementsAre("fsinfo /m/d", "readdir /m/d bytes=2144 cookie=0", "readdir /m/d bytes=2144 cookie=3"));
}

TEST_F(ListingTest, ADirectoryThatMakesNoProgressFails) {
    fake_.volume.add_directory("/m/d");
    fake_.answer("readdir", 1, {.status = 0, .location = 0});  // no entries, no end
    EXPECT_EQ(list("/m/d").status, 1u);
    EXPECT_THAT(trace(), ElementsAre("read_dir TWNFS-65043: Reading the directory /m/d: location code 0."));
}

TEST_F(ListingTest, RemoteFailuresAreTracedWithTheirLocation) {
    fake_.volume.add_directory("/m/d");
    for (const auto &[operation, text] : {std::pair{"fsinfo", "TWNFS-65066: File system information of /m/d"},
                                          std::pair{"readdir", "TWNFS-65043: Reading the directory /m/d"}}) {
        for (const auto &[status, location] : {std::pair{5U, 0U}, std::pair{0U, 2U}, std::pair{0U, 3U}}) {
            fake_.answer(operation, 0, {status, location});
            EXPECT_EQ(list("/m/d").status, 1u);
            EXPECT_EQ(trace().back(),
                      std::string("read_dir ") + text + ": location code " + std::to_string(location) + ".");
        }
        fake_.reset();
        fake_.volume.add_directory("/m/d");
    }
}

TEST_F(ListingTest, ADirectoryFoundToBeLocalWhileReadingIsReadLocally) {
    directory_.file("f", "");
    fake_.answer("getattr", 0, {.status = 2, .location = 2});
    fake_.answer("fsinfo", 1, {.status = 0, .location = 0});  // answered without attributes: not a directory
    EXPECT_EQ(list(directory_.path()).output, "not a directory\n");

    fake_.volume = FakeVolume(directory_.path());
    fake_.reset();
    fake_.volume = FakeVolume(directory_.path());
    fake_.answer("readdir", 1, {.status = 0, .location = 1});
    EXPECT_EQ(list(directory_.path(), 0).status, 0u);
    EXPECT_THAT(names(), ElementsAre("f"));
    EXPECT_EQ(trace().back(),
              "read_dir TWNFS-65043: Reading the directory " + directory_.path() + ": location code 1.");
}

TEST_F(ListingTest, WhatIsNoRemoteDirectoryAnyMoreIsSaidOnTheOutput) {
    const FakeNodePointer node = fake_.volume.add_directory("/m/d");
    const auto exchange = [&] {
        node->attributes.type = TDM_TYPE_DIRECTORY;
        fake_.when("fsinfo", [&] { node->attributes.type = TDM_TYPE_REGULAR; });
    };
    exchange();
    Outcome outcome = list("/m/d");
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "not a directory\n");
    exchange();
    turn_log_on();
    outcome = list("/m/d");
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.log, "not a directory\n");
}

TEST_F(ListingTest, ASpecialFileIsListedByItsPath) {
    ASSERT_EQ(mkfifo(directory_.path("pipe").c_str(), 0600), 0);
    fake_.volume.add_file("/m/pipe", "")->attributes.type = 7;
    EXPECT_EQ(list(directory_.path("pipe")).status, 0u);
    EXPECT_THAT(names(), ElementsAre(directory_.path("pipe")));
    EXPECT_THAT(list("/m/pipe").output, testing::StartsWith("/m/pipe not a directory/m/pipe "));
    COMMAND_OPTION = kListDirectoriesOnly;
    EXPECT_EQ(list(directory_.path()).output, "");
}

TEST_F(ListingTest, MissingMemoryIsTraced) {
    fake_.volume.add_directory("/m/d");
    const AllocationFault fault(4 * 536);
    EXPECT_EQ(list("/m/d").status, 1u);
    EXPECT_TRUE(AllocationFault::fired());
    EXPECT_THAT(trace(), ElementsAre("read_dir TWNFS-65060: 2144 bytes of memory could not be allocated."));
}

TEST_F(ListingTest, AFileIsListedByItsResolvedPath) {
    const std::string file = directory_.file("f", "abc");
    EXPECT_EQ(list(directory_.path() + "/./f").output, padded(file) + " \n");
    std::filesystem::create_symlink("f", directory_.path("l"));
    EXPECT_EQ(list(directory_.path("l")).output, padded(directory_.path("l")) + " \n");
}

TEST_F(ListingTest, AFileHasALongLineToo) {
    const std::string file = directory_.file("f", "abc");
    DIR_LTYPE = 2;
    const std::string output = list(file).output;
    EXPECT_TRUE(output.starts_with("\n-rw-  1  ")) << output;
    EXPECT_TRUE(output.ends_with("  " + padded(file))) << output;
    COMMAND_OPTION = kListDirectoriesOnly;
    EXPECT_EQ(list(file).output, "");
}

TEST_F(ListingTest, ANameIsPaddedTo31AndAWiderOneBy31) {
    const std::string wide(40, 'w');
    const std::string exact(31, 'x');
    for (const std::string &name : {std::string("abc"), wide, exact}) {
        fake_.volume.add_file("/m/d/" + name, "");
    }
    EXPECT_EQ(list("/m/d").output,
              "abc" + std::string(28, ' ') + " \n" + wide + std::string(31, ' ') + " \n" + exact + " \n");
    EXPECT_THAT(names(), ElementsAre("abc", wide, exact));
}

TEST_F(ListingTest, NamesKeepTheirOrderOrReverseIt) {
    for (const char *name : {"/m/d/b", "/m/d/c", "/m/d/a"}) {
        fake_.volume.add_file(name, "");
    }
    EXPECT_EQ(list("/m/d").output, padded("b") + " \n" + padded("c") + " \n" + padded("a") + " \n");
    COMMAND_OPTION = kListReverse;
    EXPECT_EQ(list("/m/d").output, padded("a") + " \n" + padded("c") + " \n" + padded("b") + " \n");
}

TEST_F(ListingTest, DotNamesAreHiddenUnlessAskedFor) {
    fake_.volume.add_file("/m/d/.dot", "");
    fake_.volume.add_file("/m/d/a", "");
    EXPECT_EQ(list("/m/d").output, padded("a") + " \n");
    EXPECT_THAT(names(), ElementsAre(".dot", "a"));
    DIR_SHOWDOT = 1;
    const std::string expected = ". \n .. \n" + padded(".dot") + " \n" + padded("a") + " \n";
    EXPECT_EQ(list("/m/d").output, expected);
    turn_log_on();
    EXPECT_EQ(list("/m/d").log, expected);
}

TEST_F(ListingTest, SizeAndTimePrecedeTheName) {
    add_remote("/m/d/f", "12345");
    COMMAND_OPTION = kListSize | kListTime;
    EXPECT_EQ(list("/m/d").output, "/m/d/f not a directory5    Thu Jan  1 00:00:00 1970\n" + padded("f") + " \n");

    const std::string file = directory_.file("g", "1234567");
    const timespec times[2] = {{.tv_sec = 0, .tv_nsec = 0}, {.tv_sec = 0, .tv_nsec = 0}};
    utimensat(AT_FDCWD, file.c_str(), times, 0);
    EXPECT_EQ(list(directory_.path()).output,
              in_64_columns("7") + "  Thu Jan  1 00:00:00 1970\n  " + padded("g") + " \n");
}

TEST_F(ListingTest, OnlyDirectoriesAreLeftWhenAskedFor) {
    add_remote("/m/d/f");
    fake_.volume.add_directory("/m/d/sub");
    COMMAND_OPTION = kListDirectoriesOnly;
    EXPECT_EQ(list("/m/d").output, "/m/d/f not a directory" + padded("sub") + " \n");
    EXPECT_THAT(names(), ElementsAre("f", "sub"));
}

TEST_F(ListingTest, NamesWhoseAttributesCannotBeHadAreLeftOut) {
    fake_.volume.add_directory("/m/d/a");
    fake_.volume.add_directory("/m/d/b");
    fake_.volume.add_directory("/m/d/c");
    COMMAND_OPTION = kListDirectoriesOnly;
    fake_.answer("getattr", 2, {.status = 70, .location = {}});
    fake_.answer("getattr", 3, {.status = 0, .location = 4});
    const Outcome outcome = list("/m/d");
    EXPECT_EQ(outcome.output, padded("c") + " \n");
    EXPECT_EQ(outcome.status, 1u);  // of the others it is not known whether they belong in the list
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(ListingTest, ColumnsAreFilledDownwards) {
    DIR_LTYPE = 1;
    const auto columns = [&](int count) {
        fake_.reset();
        fake_.volume.add_directory("/m/d");
        for (int name = 0; name < count; ++name) {
            fake_.volume.add_file("/m/d/" + std::string(1, static_cast<char>('a' + name)), "");
        }
        return list("/m/d").output;
    };
    const auto row = [](const std::string &names) {
        std::string text;
        for (const char name : names) {
            text += padded(std::string(1, name));
        }
        return text + "\n";
    };
    EXPECT_EQ(columns(0), "");
    EXPECT_EQ(columns(1), row("a"));
    EXPECT_EQ(columns(2), row("ab"));
    EXPECT_EQ(columns(3), row("abc"));
    EXPECT_EQ(columns(4), row("ac") + row("bd"));
    EXPECT_EQ(columns(5), row("ace") + row("bd"));
    EXPECT_EQ(columns(7), row("adg") + row("be") + row("cf"));
    DIR_SHOWDOT = 1;
    EXPECT_EQ(columns(1), "\n.\t\t\t\t.." + row("a"));
    EXPECT_EQ(columns(0), "\n.\t\t\t\t..");
}

TEST_F(ListingTest, ColumnsShowSizeAndTime) {
    DIR_LTYPE = 1;
    add_remote("/m/d/f", "12345");
    COMMAND_OPTION = kListSize | kListTime;
    EXPECT_EQ(list("/m/d").output, "/m/d/f not a directory5  Thu Jan  1 00:00:00 1970\n  " + padded("f") + "\n");
    directory_.file("g", "");
    COMMAND_OPTION = kListSize;
    EXPECT_EQ(list(directory_.path()).output, in_64_columns("0") + "  " + padded("g") + "\n");
}

TEST_F(ListingTest, ARemoteLongLine) {
    DIR_LTYPE = 2;
    add_remote("/m/d/f", "12345");
    fake_.volume.add_directory("/m/d/sub");
    fake_.volume.add_link("/m/d/l", "f");
    EXPECT_EQ(list("/m/d").output,
              "/m/d/f not a directory/m/d/l not a directory"
              "\n-rwxr-x--x  10  20  5 Thu Jan  1 00:00:00 1970\n  " +
                  padded("f") + "\ndrwxr-xr-x  0  0  4096 Thu Jan  1 00:00:00 1970\n  " + padded("sub") +
                  "\nrwxrwxrwx  0  0  1 Thu Jan  1 00:00:00 1970\n  " + padded("l"));
    COMMAND_OPTION = kListSize;
    EXPECT_THAT(list("/m/d").output, testing::HasSubstr("\n5  -rwxr-x--x  10"));
}

TEST_F(ListingTest, TheRemoteAccessTimeIsInTheLogOnly) {
    DIR_LTYPE = 2;
    add_remote("/m/d/f");
    const auto shown = [&](int32_t time) {
        DIR_LTIMETYPE = time;
        const Outcome outcome = list("/m/d");
        const std::string text = outcome.output + outcome.log;
        return text.substr(text.rfind("1970") - 12, 2);
    };
    EXPECT_EQ(shown(0), " 1");
    EXPECT_EQ(shown(1), " 3");
    EXPECT_EQ(shown(2), " 3");
    turn_log_on();
    EXPECT_EQ(shown(0), " 1");
    EXPECT_EQ(shown(1), " 3");
    EXPECT_EQ(shown(2), " 2");
}

TEST_F(ListingTest, ALocalLongLine) {
    DIR_LTYPE = 2;
    const std::string file = directory_.file("f", "12345");
    chmod(file.c_str(), 0477);
    const timespec times[2] = {{.tv_sec = 86400, .tv_nsec = 0}, {.tv_sec = 0, .tv_nsec = 0}};
    utimensat(AT_FDCWD, file.c_str(), times, 0);
    struct stat status;
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    const auto line = [&](const std::string &time) {
        return "\n-r--  1  " + std::to_string(static_cast<short>(status.st_uid)) + "  " +
               std::to_string(static_cast<short>(status.st_gid)) + "  " + in_64_columns("5") + "  " + time + "  " +
               padded("f");
    };
    EXPECT_EQ(list(directory_.path()).output, line("Thu Jan  1 00:00:00 1970\n"));
    DIR_LTIMETYPE = 1;
    EXPECT_EQ(list(directory_.path()).output, line(ctime(&status.st_ctime)));
    DIR_LTIMETYPE = 2;
    EXPECT_EQ(list(directory_.path()).output, line("Fri Jan  2 00:00:00 1970\n"));
}

TEST_F(ListingTest, AnEmptyDirectoryShowsItsDotsInTheLongLayout) {
    DIR_LTYPE = 2;
    fake_.volume.add_directory("/m/empty");
    EXPECT_EQ(list("/m/empty").output, "");
    DIR_SHOWDOT = 1;
    EXPECT_EQ(list("/m/empty").output, "\n.\n..");
    fake_.volume.add_directory("/m/full/sub");
    EXPECT_TRUE(list("/m/full").output.starts_with("\nd"));
}

TEST_F(ListingTest, AMissingOrUnresolvablePathFails) {
    EXPECT_EQ(run([&] { return read_dir(nullptr, names_, kPrinted); }).status, 1u);
    EXPECT_EQ(list("..").status, 1u);
    EXPECT_THAT(trace(), ElementsAre("read_dir TWNFS-65016: The first operand is missing.",
                                     "read_dir TWNFS-65059: The path .. could not be resolved."));
}

TEST_F(ListingTest, ATreeIsListedDirectoryByDirectory) {
    commandtype = kListRecursive;
    fake_.volume.add_file("/m/d/a", "");
    fake_.volume.add_file("/m/d/.sub/b", "");
    fake_.volume.add_file("/m/d/z/c", "");
    EXPECT_EQ(list_tree("/m/d").output, "DIR: /m/d \n" + padded("a") + " \n" + padded("z") +
                                            " \n/m/d/a not a directory" + "DIR: /m/d/.sub \n" + padded("b") +
                                            " \n/m/d/.sub/b not a directory" + "DIR: /m/d/z \n" + padded("c") +
                                            " \n/m/d/z/c not a directory");
}

TEST_F(ListingTest, TheContentBehindALinkToADirectoryIsListed) {
    directory_.directory("real");
    directory_.file("real/f", "");
    std::filesystem::create_symlink("real", directory_.path("link"));
    run([&] { return list_content(directory_.path("link").c_str(), names_); });
    EXPECT_THAT(names(), ElementsAre("f"));
    const std::string pattern = directory_.path("link/*");
    commandtype = kList;
    EXPECT_EQ(run([&] { return exec_command(pattern.c_str(), nullptr); }).status, 0u);
    run([&] { return list_content(directory_.file("f", "").c_str(), names_); });
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ListingTest, ATreeUsesListedNamesAsTheyAre) {
    fake_.volume.add_file("/m/d/sub..\\x/a..\\f", "");
    fake_.volume.find("/m/d")->entries.emplace_back("..", fake_.volume.find("/m"));
    const Outcome outcome = run([] { return read_dirlist("/m/d", 0); });
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_THAT(outcome.output, testing::HasSubstr("DIR: /m/d/sub..\\x \na..\\f"));
    EXPECT_THAT(outcome.output, testing::Not(testing::HasSubstr("DIR: /m \n")));
    EXPECT_THAT(trace_of("read_dirlist"), ElementsAre("read_dirlist /m/d lists a name that is none: .."));
}

TEST_F(ListingTest, AReversedTreeIsWalkedInTheOrderShown) {
    COMMAND_OPTION = kListReverse;
    fake_.volume.add_directory("/m/d/a");
    fake_.volume.add_directory("/m/d/b");
    EXPECT_EQ(list_tree("/m/d").output,
              "DIR: /m/d \n" + padded("b") + " \n" + padded("a") + " \nDIR: /m/d/b \nDIR: /m/d/a \n");
}

TEST_F(ListingTest, ATreeIsCutAtFiftyLevels) {
    std::string path = "/m";
    for (int level = 0; level < 60; ++level) {
        path += "/d";
    }
    fake_.volume.add_directory(path);
    const Outcome outcome = list_tree("/m");
    EXPECT_EQ(outcome.status, 0u);
    std::size_t directories = 0;
    for (std::size_t at = outcome.output.find("DIR: "); at != std::string::npos;
         at = outcome.output.find("DIR: ", at + 1)) {
        ++directories;
    }
    EXPECT_EQ(directories, 50u);
    EXPECT_THAT(trace(), IsEmpty());
    EXPECT_EQ(run([] { return read_dirlist("/m", 50); }).status, 1u);
}

TEST_F(ListingTest, ADirectoryThatFailsIsTracedAndItsSiblingsGoOnBeforeTheTreeFails) {
    fake_.volume.add_directory("/m/d/a");
    fake_.volume.add_directory("/m/d/b");
    fake_.answer("fsinfo", 2, {.status = 13, .location = {}});
    const Outcome outcome = list_tree("/m/d");
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "DIR: /m/d \n" + padded("a") + " \n" + padded("b") + " \nDIR: /m/d/a \nDIR: /m/d/b \n");
    EXPECT_THAT(trace_of("read_dirlist"),
                ElementsAre("read_dirlist TWNFS-65031: The directory /m/d/a could not be listed."));
}

TEST_F(ListingTest, ATreeThatIsAFileIsOneName) {
    const std::string file = directory_.file("f", "");
    const Outcome outcome = list_tree(file);
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, "DIR: " + file + " \n" + padded(file) + " \n");
}

TEST_F(ListingTest, ATreeThatIsMissingFails) {
    EXPECT_EQ(list_tree("/m/missing").status, 1u);
    EXPECT_EQ(run([] { return read_dirlist(nullptr, 0); }).status, 1u);
}

TEST_F(ListingTest, ATreeDoesNotFollowLinks) {
    directory_.directory("tree");
    std::filesystem::create_symlink(directory_.path(), directory_.path("tree/back"));
    EXPECT_EQ(list_tree(directory_.path("tree")).output,
              "DIR: " + directory_.path("tree") + " \n" + padded("back") + " \n");
}

}  // namespace
