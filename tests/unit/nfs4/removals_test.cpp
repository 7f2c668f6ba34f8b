// SPDX-License-Identifier: Apache-2.0
// Files of one directory that are removed together.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "nfstdm/nfs4/constants.h"
#include "tests/unit/nfs4/volume_fixture.h"

namespace nfstdm::nfs4 {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr const char *kAlone = "SEQUENCE PUTFH LOOKUP NVERIFY PUTFH REMOVE GETATTR";

class RemovalsTest : public test::Nfs4VolumeTest {
  protected:
    RemovalsTest() { nfs.names = {{"export", 'd'}, {"a", 'f'}, {"b", 'f'}, {"c", 'f'}, {"d", 'f'}, {"folder", 'd'}}; }

    void attach_volume() {
        open();
        ASSERT_TRUE(attach().ok());
        before_ = nfs.compounds().size();
    }
    // Asks for all of them at once and gives the number that each ends with.
    std::map<std::string, uint32_t> remove(const std::vector<std::string> &wanted) {
        std::map<std::string, uint32_t> ends;
        after_.clear();
        for (const std::string &name : wanted) {
            volume->remove(root, name, [&, name](const Result<DirectoryChange> &change) {
                EXPECT_TRUE(ends.emplace(name, change.status().number()).second) << name;
                after_.push_back(change.ok() && change.value().after.has_value());
            });
        }
        EXPECT_TRUE(ends.empty()) << "completed inside the call";
        EXPECT_TRUE(nfstdm::test::run(loop, [&] { return ends.size() == wanted.size(); }));
        return ends;
    }
    std::vector<std::string> asked() const {
        return {nfs.compounds().begin() + static_cast<std::ptrdiff_t>(before_), nfs.compounds().end()};
    }
    std::size_t removed() const { return static_cast<std::size_t>(nfs.executed(Op::remove)); }

    std::size_t before_ = 0;
    std::vector<bool> after_;  // whether each was told what the directory became
};

const auto kDone = Each(Pair(testing::_, 0U));

TEST_F(RemovalsTest, TakeOneQuestion) {
    attach_volume();
    EXPECT_THAT(remove({"a", "b"}), kDone);
    EXPECT_THAT(asked(), ElementsAre("SEQUENCE PUTFH LOOKUP NVERIFY PUTFH REMOVE LOOKUP NVERIFY PUTFH REMOVE GETATTR"));
    EXPECT_TRUE(nfs.asked_to_be_kept.back());
    EXPECT_THAT(after_, ElementsAre(true, true));
    EXPECT_FALSE(nfs.names.contains("a") || nfs.names.contains("b"));
}

TEST_F(RemovalsTest, OneIsAskedForAlone) {
    attach_volume();
    EXPECT_THAT(remove({"a"}), kDone);
    EXPECT_THAT(asked(), ElementsAre(kAlone));
}

TEST_F(RemovalsTest, TheOthersGoWhereOneIsRefused) {
    attach_volume();
    nfs.fail_later(Op::remove, NfsStatus::access, 1);
    EXPECT_THAT(remove({"a", "b", "c", "d"}),
                UnorderedElementsAre(Pair("a", 0U), Pair("b", uint32_t{EACCES}), Pair("c", 0U), Pair("d", 0U)));
    EXPECT_EQ(removed(), 3U);
    EXPECT_TRUE(nfs.names.contains("b"));
    EXPECT_EQ(asked().size(), 2U);
    EXPECT_TRUE(after_.at(0) && !after_.at(1) && after_.at(2) && after_.at(3));
}

TEST_F(RemovalsTest, EachIsRefusedByItself) {
    attach_volume();
    nfs.fail(Op::remove, NfsStatus::access, 2);
    nfs.fail(Op::remove, NfsStatus::perm, 1);
    EXPECT_THAT(remove({"a", "b", "c"}), UnorderedElementsAre(Pair("a", uint32_t{EACCES}), Pair("b", uint32_t{EACCES}),
                                                              Pair("c", uint32_t{EPERM})));
    EXPECT_EQ(asked().size(), 3U);
}

TEST_F(RemovalsTest, WhatIsWrongWithTheDirectoryIsTheAnswerForAll) {
    attach_volume();
    nfs.fail(Op::putfh, NfsStatus::stale);
    EXPECT_THAT(remove({"a", "b", "c"}), Each(Pair(testing::_, uint32_t{ESTALE})));
    EXPECT_EQ(asked().size(), 1U);
    EXPECT_EQ(removed(), 0U);
}

TEST_F(RemovalsTest, AServerThatIsRepeatedlyNotReadyIsAskedUntilItIs) {
    attach_volume();
    for (const int after : {1, 0, 0, 1})
        nfs.fail_later(Op::remove, NfsStatus::delay, after);
    EXPECT_THAT(remove({"a", "b", "c", "d"}), kDone);
    EXPECT_EQ(removed(), 4U);
    EXPECT_EQ(asked().size(), 5U);
}

TEST_F(RemovalsTest, ADirectoryAmongThemStays) {
    attach_volume();
    EXPECT_THAT(remove({"a", "folder", "c"}),
                UnorderedElementsAre(Pair("a", 0U), Pair("folder", uint32_t{EISDIR}), Pair("c", 0U)));
    EXPECT_TRUE(nfs.names.contains("folder"));
}

TEST_F(RemovalsTest, OneThatIsNotThereIsToldSo) {
    attach_volume();
    EXPECT_THAT(remove({"missing", "a"}), UnorderedElementsAre(Pair("missing", uint32_t{ENOENT}), Pair("a", 0U)));
}

TEST_F(RemovalsTest, WhatIsGoneIsNotAskedForAgainWhenTheServerIsNotReady) {
    attach_volume();
    nfs.fail_later(Op::remove, NfsStatus::delay, 2);
    EXPECT_THAT(remove({"a", "b", "c", "d"}), kDone);
    EXPECT_EQ(removed(), 4U);
    EXPECT_EQ(asked().size(), 2U);
}

TEST_F(RemovalsTest, TheServersOwnAnswerCountsWhenAConnectionIsLost) {
    attach_volume();
    nfs.lose_answers(Op::remove, 1);
    EXPECT_THAT(remove({"a", "b", "missing"}),
                UnorderedElementsAre(Pair("a", 0U), Pair("b", 0U), Pair("missing", uint32_t{ENOENT})));
    EXPECT_EQ(removed(), 2U);
}

TEST_F(RemovalsTest, WhatWasDoneBeforeTheSessionWasLostIsDone) {
    attach_volume();
    nfs.lose_answers(Op::remove, 1);
    nfs.server.on_call = [this, original = nfs.server.on_call, restarted = false](const auto &call) mutable {
        original(call);
        if (!std::exchange(restarted, true)) nfs.restart();
    };
    nfs.fail_later(Op::remove, NfsStatus::access, 2);
    nfs.fail_later(Op::remove, NfsStatus::access, 0);  // and when it is asked for again
    EXPECT_THAT(remove({"a", "b", "c", "d"}),
                UnorderedElementsAre(Pair("a", 0U), Pair("b", 0U), Pair("c", uint32_t{EACCES}), Pair("d", 0U)));
    EXPECT_EQ(removed(), 3U);
}

TEST_F(RemovalsTest, SoManyTogetherAsTheServerTakesOperationsFor) {
    nfs.operations = 14;  // two, and two more operations
    attach_volume();
    EXPECT_THAT(remove({"a", "b", "c", "d"}), kDone);
    EXPECT_EQ(asked().size(), 2U);
}

TEST_F(RemovalsTest, AServerThatTakesFewOperationsIsAskedForEach) {
    nfs.operations = 10;
    attach_volume();
    EXPECT_THAT(remove({"a", "b"}), kDone);
    EXPECT_THAT(asked(), ElementsAre(kAlone, kAlone));
}

TEST_F(RemovalsTest, ThoseOfAnotherDirectoryAreAnotherQuestion) {
    attach_volume();
    unsigned ended = 0;
    for (const auto &[directory, name] : {std::pair{root, "a"}, {root, "b"}, {test::handle_of("folder"), "c"}})
        volume->remove(directory, name, [&ended](const Result<DirectoryChange> &change) {
            EXPECT_TRUE(change.ok());
            ++ended;
        });
    EXPECT_TRUE(nfstdm::test::run(loop, [&] { return ended == 3; }));
    EXPECT_EQ(asked().size(), 2U);
    EXPECT_EQ(asked().back(), kAlone);
}

TEST_F(RemovalsTest, ATooLongNameFailsAlone) {
    attach_volume();
    const std::string name(5000, 'n');
    EXPECT_THAT(remove({"a", name, "b"}),
                UnorderedElementsAre(Pair("a", 0U), Pair(name, uint32_t{ENAMETOOLONG}), Pair("b", 0U)));
}

TEST_F(RemovalsTest, EndWithTheVolumeBeforeTheyAreAskedFor) {
    attach_volume();
    unsigned ended = 0;
    for (const char *name : {"a", "b"})
        volume->remove(root, name, [&ended](const Result<DirectoryChange> &change) {
            EXPECT_FALSE(change.ok());
            ++ended;
        });
    EXPECT_TRUE(detach().ok());
    EXPECT_EQ(ended, 2U);
    EXPECT_EQ(removed(), 0U);
}

TEST_F(RemovalsTest, AnAnswerThatMakesNoSenseFailsWhatItDoesNotTell) {
    attach_volume();
    nfs.spoil = [](nfstdm::test::Bytes &bytes) {
        bytes.resize(bytes.size() - 200);
        return true;
    };
    const auto ends = remove({"a", "b", "c", "d"});
    EXPECT_EQ(ends.size(), 4U);
    EXPECT_EQ(ends.at("d"), uint32_t{EIO});
}

}  // namespace
}  // namespace nfstdm::nfs4
