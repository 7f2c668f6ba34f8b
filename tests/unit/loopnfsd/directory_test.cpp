// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/store/directory.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "tests/unit/loopnfsd/in_memory.h"

namespace {

using loopnfsd::DirectoryListings;
using loopnfsd::ListedEntry;

class DirectoryTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(exports_.add("/", folder_.path, false), ""); }

    std::vector<ListedEntry> list() {
        loopnfsd::Tree tree(exports_);
        const auto root = tree.root(exports_.all().front());
        EXPECT_TRUE(root.ok());
        const auto entries = listings_.of(*root);
        EXPECT_TRUE(entries.ok());
        return **entries;
    }
    void touch(const std::string &name) { std::ofstream(folder_.path / name).flush(); }

    loopnfsd_test::TemporaryFolder folder_;
    loopnfsd::ExportTable exports_;
    DirectoryListings listings_;
};

TEST_F(DirectoryTest, CookiesRiseAndAreTheNamesOwn) {
    std::set<std::string> names;
    for (int i = 0; i < 500; ++i) {
        names.insert("f" + std::to_string(i));
        touch("f" + std::to_string(i));
    }
    uint64_t last = loopnfsd::kFirstNameCookie - 1;
    std::set<std::string> listed;
    for (const ListedEntry &entry : list()) {
        EXPECT_GT(entry.cookie, last);
        EXPECT_LT(entry.cookie, loopnfsd::kNameCookiesEnd);
        EXPECT_EQ(entry.cookie, loopnfsd::cookie_of_name(entry.name));
        EXPECT_TRUE(listed.insert(entry.name).second);
        last = entry.cookie;
    }
    EXPECT_EQ(listed, names);
}

TEST_F(DirectoryTest, ChangesBehindTheServersBackAreSeenAtOnce) {
    for (int i = 0; i < 50; ++i) {
        touch("f" + std::to_string(i));
        ASSERT_EQ(list().size(), static_cast<std::size_t>(i) + 1);
    }
    std::filesystem::remove(folder_.path / "f7");
    EXPECT_EQ(list().size(), 49U);
}

}  // namespace
