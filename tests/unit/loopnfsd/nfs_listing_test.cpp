// SPDX-License-Identifier: Apache-2.0
// READDIR and READDIRPLUS.
#include <algorithm>
#include <set>

#include "tests/unit/loopnfsd/in_memory.h"

namespace {

using namespace loopnfsd_test;

struct Entry {
    std::string name;
    uint64_t fileid = 0;
    uint64_t cookie = 0;
    std::optional<Attributes> attributes;
    std::optional<Handle> handle;
};

struct Page {
    NfsStatus status = NfsStatus::ok;
    uint64_t verifier = 0;
    std::vector<Entry> entries;
    bool eof = false;
    std::size_t size = 0;  // of READDIR3resok
};

class NfsListingTest : public InMemory {
  protected:
    void SetUp() override {
        start();
        root_ = root();
    }

    void fill(int count) {
        for (int i = 0; i < count; ++i)
            put_file("file-" + std::to_string(i), "");
    }

    Page page(uint64_t cookie, uint64_t verifier, uint32_t size, bool plus, uint32_t names = 1 << 20) {
        auto reply = nfs(plus ? Procedure::readdirplus : Procedure::readdir, [&](Writer &out) {
            out.put_opaque(root_);
            out.put_u64(cookie);
            out.put_u64(verifier);
            if (plus) out.put_u32(names);
            out.put_u32(size);
        });
        Page got;
        got.size = reply.results.left() - 4;
        got.status = reply.status();
        EXPECT_TRUE(get_post_op(reply));
        if (got.status != NfsStatus::ok) return got;
        got.verifier = reply.number();
        while (reply.word() == 1)
            got.entries.push_back(entry(reply, plus));
        got.eof = reply.word() == 1;
        EXPECT_TRUE(reply.results.finished());
        return got;
    }

    static Entry entry(Reply &reply, bool plus) {
        Entry got;
        got.fileid = reply.number();
        got.name = reply.text();
        got.cookie = reply.number();
        if (!plus) return got;
        got.attributes = get_post_op(reply);
        if (reply.word() == 1) got.handle = reply.handle();
        return got;
    }

    // All names, in pages of a size; at most so many pages.
    std::vector<std::string> names(uint32_t size, bool plus, int pages = 10'000) {
        std::vector<std::string> all;
        Page last = page(0, 0, size, plus);
        for (; pages > 0; --pages) {
            EXPECT_EQ(last.status, NfsStatus::ok);
            EXPECT_LE(last.size, size);
            for (const Entry &each : last.entries)
                all.push_back(each.name);
            if (last.eof || last.entries.empty()) return all;
            last = page(last.entries.back().cookie, last.verifier, size, plus);
        }
        return all;
    }

    Handle root_;
};

TEST_F(NfsListingTest, EveryNameIsListedOnceWhateverThePageSize) {
    fill(1000);
    for (const bool plus : {false, true}) {
        for (const uint32_t size : {400U, 4096U, 65536U, 1U << 20}) {
            const auto all = names(size, plus);
            ASSERT_GE(all.size(), 2U);
            EXPECT_EQ(all[0], ".");
            EXPECT_EQ(all[1], "..");
            EXPECT_EQ(all.size(), 1002U);
            EXPECT_EQ(std::set(all.begin(), all.end()).size(), 1002U);
        }
    }
}

TEST_F(NfsListingTest, ALargeDirectoryTakesFewCalls) {
    fill(10'000);
    backend_->statistics.reset();
    EXPECT_EQ(names(1 << 20, true).size(), 10'002U);
    EXPECT_LE(backend_->statistics.calls.at("READDIRPLUS"), 4U);
}

TEST_F(NfsListingTest, CookiesOutliveDeletionsAndRestarts) {
    fill(100);
    const Page first = page(0, 0, 1000, false);
    ASSERT_FALSE(first.eof);
    for (const Entry &each : first.entries)
        if (each.name.starts_with("file")) std::filesystem::remove(folder_.path / each.name);
    start();
    std::set<std::string> rest;
    for (Page next = page(first.entries.back().cookie, first.verifier, 1000, false);;
         next = page(next.entries.back().cookie, next.verifier, 1000, false)) {
        for (const Entry &each : next.entries)
            EXPECT_TRUE(rest.insert(each.name).second);
        if (next.eof) break;
    }
    EXPECT_EQ(rest.size() + first.entries.size(), 102U);
}

TEST_F(NfsListingTest, AVerifierThatWasNeverGivenIsABadCookie) {
    fill(10);
    const Page first = page(0, 0, 4096, false);
    EXPECT_EQ(page(first.entries[1].cookie, first.verifier + 1, 4096, false).status, NfsStatus::bad_cookie);
}

TEST_F(NfsListingTest, APageWithoutRoomForOneEntryIsTooSmall) {
    EXPECT_EQ(page(0, 0, 100, false).status, NfsStatus::toosmall);
    EXPECT_EQ(page(0, 0, 200, true).status, NfsStatus::toosmall);
}

TEST_F(NfsListingTest, TheRoomForNamesLimitsAPage) {
    fill(100);
    EXPECT_LT(page(0, 0, 1 << 20, true, 400).entries.size(), 20U);
    EXPECT_EQ(page(0, 0, 1 << 20, true, 1).entries.size(), 1U);
}

TEST_F(NfsListingTest, PlusGivesTheHandlesAndAttributesThatLookupGives) {
    put_file("f", "abc");
    mkdir(root_, "d");
    for (const Entry &each : page(0, 0, 4096, true).entries) {
        EXPECT_EQ(each.handle, lookup(root_, each.name));
        ASSERT_TRUE(each.attributes);
        EXPECT_EQ(each.attributes->fileid, each.fileid);
        EXPECT_EQ(each.attributes->size, getattr(*each.handle).size);
    }
}

TEST_F(NfsListingTest, OnlyDirectoriesAreListed) {
    put_file("f", "");
    root_ = lookup(root_, "f");
    auto reply = nfs(Procedure::readdir, [&](Writer &out) {
        out.put_opaque(root_);
        out.put_u64(0);
        out.put_u64(0);
        out.put_u32(4096);
    });
    EXPECT_EQ(reply.status(), NfsStatus::notdir);
}

TEST_F(NfsListingTest, WithoutPlusItIsNotSupported) {
    fault("no-readdirplus");
    EXPECT_EQ(page(0, 0, 4096, true).status, NfsStatus::notsupp);
    EXPECT_EQ(page(0, 0, 4096, false).status, NfsStatus::ok);
}

TEST_F(NfsListingTest, BadNamesAreAmongTheGoodOnes) {
    fill(3);
    fault("bad-names");
    for (const bool plus : {false, true}) {
        const auto all = names(1 << 16, plus);
        const std::set<std::string> listed(all.begin(), all.end());
        for (const char *name : {"", "a/b", "../up", "/etc/passwd", "file-0", "file-2"})
            EXPECT_TRUE(listed.contains(name)) << name;
        EXPECT_TRUE(listed.contains(std::string("nul\0here", 8)));
    }
}

TEST_F(NfsListingTest, ALongNameIsOneOfTheNames) {
    fill(3);
    fault("long-name");
    for (const bool plus : {false, true}) {
        const auto all = names(1 << 16, plus);
        EXPECT_EQ(std::ranges::count(all, std::string(5000, 'x')), 1) << plus;
        EXPECT_EQ(std::ranges::count(all, "file-2"), 1) << plus;
    }
}

TEST_F(NfsListingTest, AnEndlessDirectoryGoesOnWithNewNames) {
    fill(3);
    fault("endless-readdir");
    const auto all = names(4096, false, 50);
    EXPECT_GT(all.size(), 1000U);
    EXPECT_EQ(std::set(all.begin(), all.end()).size(), all.size());
}

TEST_F(NfsListingTest, ALoopOfCookiesComesBackToTheStart) {
    fill(3);
    fault("cookie-loop");
    const auto all = names(4096, true, 10);
    EXPECT_EQ(std::ranges::count(all, "file-1"), 10);
}

}  // namespace
