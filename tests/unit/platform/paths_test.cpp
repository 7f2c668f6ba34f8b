// SPDX-License-Identifier: Apache-2.0
#include "platform/paths.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/support/temporary_directory.h"

namespace {

std::string normalized(const std::string &path) {
    PathBuffer result;
    return platform_normalize_path(path, result) ? std::string(result.view()) : "refused";
}

TEST(NormalizePath, FoldsSlashesAndDots) {
    EXPECT_EQ(normalized("/a//b/./c"), "/a/b/c");
    EXPECT_EQ(normalized("/a/b/"), "/a/b");
    EXPECT_EQ(normalized("/./"), "/");
    EXPECT_EQ(normalized("/"), "/");
    EXPECT_EQ(normalized("//"), "/");
}

TEST(NormalizePath, ResolvesDotDotByTextAndNotAboveTheRoot) {
    EXPECT_EQ(normalized("/a/b/../c"), "/a/c");
    EXPECT_EQ(normalized("/a/.."), "/");
    EXPECT_EQ(normalized("/../../a"), "/a");
    EXPECT_EQ(normalized("/a/..b/c.."), "/a/..b/c..");
}

TEST(NormalizePath, MakesARelativePathAbsolute) {
    const TemporaryDirectory directory;
    const std::string old = std::filesystem::current_path().string();
    std::filesystem::current_path(directory.path());
    EXPECT_EQ(normalized("x/y"), directory / "x/y");
    EXPECT_EQ(normalized("."), directory.path());
    EXPECT_EQ(normalized("x/../.."), std::filesystem::path(directory.path()).parent_path().string());
    std::filesystem::current_path(old);
}

TEST(NormalizePath, LeavesPathsWithARootOfTheirOwnUnprefixed) {
    EXPECT_EQ(normalized("nfs:/a//b"), "nfs:/a/b");
    EXPECT_EQ(normalized("nfs:/a/../.."), "nfs:/");
    EXPECT_EQ(normalized("nfs:a/b"), "nfs:a/b");
    EXPECT_EQ(normalized("nfs:/"), "nfs:/");
    EXPECT_EQ(normalized("c:/x/./y"), "c:/x/y");
    EXPECT_EQ(normalized("c:\\x\\y"), "c:\\x\\y");
    EXPECT_EQ(normalized("srv:/vol"), "srv:/vol");
}

TEST(NormalizePath, LeavesBackslashesAndWildcardsAlone) {
    EXPECT_EQ(normalized("/a\\..\\b/*.t?t"), "/a\\..\\b/*.t?t");
}

TEST(NormalizePath, RefusesAnEmptyPathAndOneThatDoesNotFit) {
    EXPECT_EQ(normalized(""), "refused");
    EXPECT_EQ(normalized("/" + std::string(511, 'x')).size(), 512u);
    EXPECT_EQ(normalized("/" + std::string(512, 'x')), "refused");
    EXPECT_EQ(normalized("/" + std::string(600, 'x') + "/.."), "/");
}

}  // namespace
