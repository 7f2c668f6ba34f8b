// SPDX-License-Identifier: Apache-2.0
// Copies that the storage library has the server make, the holes that it tells, the bytes that it lends and the files
// that it makes with their content: all of them are left out by the fake library, which lacks the operations, and are
// added to it here.
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>

#include "tests/support/strictness.h"
#include "tests/unit/commands/command_fixture.h"
#include "tslwnfs/commands/files.h"

namespace {

using testing::IsEmpty;

struct OptionalOperations {
    bool copies = false;
    uint64_t copy_maximum = UINT64_MAX;  // bytes of one call
    uint64_t copies_until = UINT64_MAX;  // of the source; the server declines what lies behind
    std::vector<std::pair<uint64_t, uint64_t>> extents;
    uint32_t loan = 0;                  // bytes of one call
    uint64_t lends_until = UINT64_MAX;  // of the file; what lies behind is to be read
    bool makes_with_content = false;
    std::function<void()> meanwhile;  // happens as a file is made with its content
    std::vector<std::string> calls;
} optional_operations;

FakeNodePointer node_of(uint64_t file) {
    const auto found = FakeTdm::instance().open_files_.find(file);
    return found == FakeTdm::instance().open_files_.end() ? nullptr : found->second.node;
}

}  // namespace

extern "C" uint32_t tdm_copy(void *, uint64_t source, uint64_t source_offset, uint64_t destination,
                             uint64_t destination_offset, uint64_t count, uint64_t *copied) {
    const auto from = node_of(source);
    const auto to = node_of(destination);
    if (!optional_operations.copies || from == nullptr || to == nullptr) return ENOTSUP;
    if (source_offset >= optional_operations.copies_until) return EIO;
    optional_operations.calls.push_back(std::to_string(source_offset) + "+" + std::to_string(count) + ">" +
                                        std::to_string(destination_offset));
    *copied = std::min({count, optional_operations.copy_maximum, from->data.size() - source_offset});
    to->data.resize(std::max<std::size_t>(to->data.size(), destination_offset + *copied));
    std::copy_n(from->data.begin() + static_cast<std::ptrdiff_t>(source_offset), *copied,
                to->data.begin() + static_cast<std::ptrdiff_t>(destination_offset));
    return 0;
}

extern "C" uint32_t tdm_extent(void *, uint64_t file, uint64_t offset, uint64_t *begin, uint64_t *end) {
    const auto node = node_of(file);
    if (optional_operations.extents.empty() || node == nullptr) return ENOTSUP;
    *begin = *end = node->data.size();
    for (const auto &[from, to] : optional_operations.extents) {
        if (to <= offset) continue;
        *begin = std::max(offset, from);
        *end = to;
        break;
    }
    return 0;
}

extern "C" uint32_t tdm_lend(void *, uint64_t file, uint64_t offset, uint32_t most, const void **bytes,
                             uint32_t *count) {
    const auto node = node_of(file);
    if (optional_operations.loan == 0 || node == nullptr || offset >= optional_operations.lends_until) return ENOTSUP;
    // Nothing that is lent stays when something else is.
    static std::string lent;
    lent = node->data.substr(offset, std::min(most, optional_operations.loan));
    if (lent.empty()) return ENOTSUP;
    optional_operations.calls.push_back(std::to_string(offset) + "+" + std::to_string(lent.size()));
    *bytes = lent.data();
    *count = static_cast<uint32_t>(lent.size());
    return 0;
}

extern "C" uint32_t tdm_createwith(void *context, const char *path, const void *content, uint32_t count,
                                   char *error_text, uint32_t error_text_length, TdmFileInfo *info) {
    if (!optional_operations.makes_with_content) return ENOTSUP;
    optional_operations.calls.push_back("made with " + std::to_string(count));
    if (!FakeTdm::instance().volume.serves(path)) return ENODEV;
    const uint32_t status = tdm_create(context, path, count, 2, 2, error_text, error_text_length, info);
    if (status != 0) return status;
    node_of(info->file)->data.assign(static_cast<const char *>(content), count);
    if (optional_operations.meanwhile) optional_operations.meanwhile();
    return 0;
}

namespace {

class ServerCopyTest : public CommandTest {
  protected:
    ServerCopyTest() {
        optional_operations = {};
        commandtype = kCopy;
        pbsz = 1;
    }
    ~ServerCopyTest() override { optional_operations = {}; }

    uint32_t copy(const std::string &source, const std::string &destination) {
        return run([&] { return copyfile(source.c_str(), destination.c_str()); }).status;
    }
    std::vector<std::string> requests() const { return fake_.calls_of({"submit"}); }
};

TEST_F(ServerCopyTest, MovesNoByteThroughThisHost) {
    const std::string text = sample_text(200000);
    fake_.volume.add_file("/m/src", text);
    optional_operations.copies = true;
    optional_operations.copy_maximum = 90000;
    EXPECT_EQ(copy("/m/src", "/m/dst"), 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), text);
    EXPECT_THAT(requests(), IsEmpty());
    EXPECT_THAT(optional_operations.calls,
                testing::ElementsAre("0+200000>0", "90000+110000>90000", "180000+20000>180000"));
}

TEST_F(ServerCopyTest, GoesOnByReadingAndWritingWhereTheServerDeclines) {
    const std::string text = sample_text(200000);
    fake_.volume.add_file("/m/src", text);
    optional_operations.copies = true;
    optional_operations.copy_maximum = 90000;
    optional_operations.copies_until = 90000;
    EXPECT_EQ(copy("/m/src", "/m/dst"), 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), text);
    EXPECT_EQ(optional_operations.calls.size(), 1u);
    EXPECT_EQ(requests().size(), 2 * ((200000 - 90000) / 32768 + 1));
}

TEST_F(ServerCopyTest, TakesPartInAMoveThatKeepsItsPromises) {
    const std::string text = sample_text(100000);
    fake_.volume.add_file("/m/src", text);
    optional_operations.copies = true;
    commandtype = kMove;
    EXPECT_EQ(run([&] { return movefile("/m/src", "/m/dst"); }).status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), text);
    EXPECT_THAT(requests(), IsEmpty());
    EXPECT_FALSE(fake_.volume.find("/m/src") != nullptr);
}

TEST_F(ServerCopyTest, IsNotAskedForBetweenAServerAndThisHost) {
    fake_.volume.add_file("/m/src", sample_text(1000));
    optional_operations.copies = true;
    EXPECT_EQ(copy("/m/src", directory_.path("down")), 0u);
    EXPECT_EQ(copy(directory_.path("down"), "/m/up"), 0u);
    EXPECT_THAT(optional_operations.calls, IsEmpty());
    EXPECT_EQ(fake_.volume.content("/m/up"), sample_text(1000));
}

TEST_F(ServerCopyTest, LeavesOutTheHolesThatTheServerTells) {
    std::string text(1 << 20, '\0');
    text.replace(100000, 3000, sample_text(3000));
    text.replace(500000, 40000, sample_text(40000));
    fake_.volume.add_file("/m/src", text);
    optional_operations.extents = {{100000, 103000}, {500000, 540000}};
    EXPECT_EQ(copy("/m/src", "/m/dst"), 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), text);
    EXPECT_EQ(requests().size(), 2u * (1 + 2)) << "pieces that hold something, read and written";
    EXPECT_EQ(copy("/m/src", directory_.path("down")), 0u);
    EXPECT_EQ(read_file(directory_.path("down")), text);
}

TEST_F(ServerCopyTest, WritesTheHolesOverWhatAnOlderFileHolds) {
    std::string text(300000, '\0');
    text.replace(0, 1000, sample_text(1000));
    fake_.volume.add_file("/m/src", text);
    fake_.volume.add_file("/m/dst", std::string(200000, 'x'));
    optional_operations.extents = {{0, 1000}};
    EXPECT_EQ(copy("/m/src", "/m/dst"), 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), text);
}

TEST_F(ServerCopyTest, ReadsEverythingWhereTheExtentsMakeNoSense) {
    const std::string text = sample_text(100000);
    fake_.volume.add_file("/m/src", text);
    optional_operations.extents = {{50, 50}};
    EXPECT_EQ(copy("/m/src", "/m/dst"), 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), text);
}

TEST_F(ServerCopyTest, WritesWhatIsLentToALocalFileAndReadsNothing) {
    std::string text = sample_text(200000);
    text.replace(50000, 70000, 70000, '\0');
    fake_.volume.add_file("/m/src", text);
    optional_operations.loan = 90000;
    EXPECT_EQ(copy("/m/src", directory_.path("down")), 0u);
    EXPECT_EQ(read_file(directory_.path("down")), text);
    EXPECT_THAT(requests(), IsEmpty());
    EXPECT_THAT(optional_operations.calls, testing::ElementsAre("0+90000", "90000+90000", "180000+20000"));
}

TEST_F(ServerCopyTest, PrintsWhatIsLent) {
    const std::string text = sample_text(200000);
    fake_.volume.add_file("/m/src", text);
    optional_operations.loan = 150000;
    commandtype = kCat;
    const auto outcome = run([] { return catfile("/m/src"); });
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_THAT(outcome.output, testing::EndsWith(text));
    EXPECT_THAT(requests(), IsEmpty());
}

TEST_F(ServerCopyTest, ReadsWhatIsNotLent) {
    const std::string text = sample_text(200000);
    fake_.volume.add_file("/m/src", text);
    optional_operations.loan = 40000;
    optional_operations.lends_until = 80000;
    EXPECT_EQ(copy("/m/src", directory_.path("down")), 0u);
    EXPECT_EQ(read_file(directory_.path("down")), text);
    EXPECT_EQ(requests().size(), (200000 - 80000) / 32768 + 1u);
}

TEST_F(ServerCopyTest, ReadsThePieceThatIsPaddedAsAWhole) {
    pbsz = 512;
    const std::string text = sample_text(100000);
    fake_.volume.add_file("/m/src", text);
    optional_operations.loan = 40000;
    EXPECT_EQ(copy("/m/src", directory_.path("down")), 0u);
    EXPECT_EQ(read_file(directory_.path("down")), text);
    EXPECT_EQ(fake_.volume.content("/m/src"), text) << "cut back";
    EXPECT_THAT(optional_operations.calls, testing::ElementsAre("0+40000", "40000+40000", "80000+18304"));
    EXPECT_THAT(requests(), testing::ElementsAre(testing::HasSubstr("offset=98304 count=2048")));
}

TEST_F(ServerCopyTest, BorrowsOnlyWhatIsNoHole) {
    std::string text(1 << 20, '\0');
    text.replace(100000, 3000, sample_text(3000));
    text.replace(500000, 40000, sample_text(40000));
    fake_.volume.add_file("/m/src", text);
    optional_operations.extents = {{100000, 103000}, {500000, 540000}};
    optional_operations.loan = 1 << 20;
    EXPECT_EQ(copy("/m/src", directory_.path("down")), 0u);
    EXPECT_EQ(read_file(directory_.path("down")), text);
    EXPECT_THAT(optional_operations.calls, testing::ElementsAre("100000+3000", "500000+40000"));
}

TEST_F(ServerCopyTest, BorrowsNothingForAnotherServer) {
    const std::string text = sample_text(100000);
    fake_.volume.add_file("/m/src", text);
    optional_operations.loan = 90000;
    EXPECT_EQ(copy("/m/src", "/m/dst"), 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), text);
    EXPECT_THAT(optional_operations.calls, IsEmpty()) << "what is written begins with a page";
}

TEST_F(ServerCopyTest, MakesASmallFileWithItsContentAndWritesNothing) {
    const std::string text = sample_text(10000);
    optional_operations.makes_with_content = true;
    EXPECT_EQ(copy(directory_.file("src", text), "/m/dst"), 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), text);
    EXPECT_THAT(optional_operations.calls, testing::ElementsAre("made with 10000"));
    EXPECT_THAT(requests(), IsEmpty());
    EXPECT_EQ(fake_.calls_of({"resize", "commit"}).size(), 2u);
}

TEST_F(ServerCopyTest, MovesASmallFileWithItsContent) {
    const std::string text = sample_text(10000);
    optional_operations.makes_with_content = true;
    commandtype = kMove;
    const std::string source = directory_.file("src", text);
    EXPECT_EQ(run([&] { return movefile(source.c_str(), "/m/dst"); }).status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), text);
    EXPECT_FALSE(std::filesystem::exists(source));
}

TEST_F(ServerCopyTest, ComparesAFilePieceByPieceWithWhatItsCopyWasMadeWith) {
    std::string text = sample_text(10000);
    optional_operations.makes_with_content = true;
    bsize = 1000;
    const std::string source = directory_.file("src", text);
    text.replace(4500, 10, 10, '.');
    optional_operations.meanwhile = [&] { directory_.file("src", text); };
    EXPECT_EQ(copy(source, "/m/dst"), 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), text);
    EXPECT_EQ(requests().size(), 1u) << "the piece that is another by now";
}

TEST_F(ServerCopyTest, FailsWhenAFileIsShorterThanWhatItsCopyWasMadeWith) {
    optional_operations.makes_with_content = true;
    const std::string source = directory_.file("src", sample_text(10000));
    optional_operations.meanwhile = [&] { directory_.file("src", "short"); };
    EXPECT_EQ(copy(source, "/m/dst"), 1u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), "") << "nothing of it is known to be right";
}

TEST_F(ServerCopyTest, MakesNothingWithItsContentThatIsLargeOrEmptyOrHasHolesOrIsThere) {
    optional_operations.makes_with_content = true;
    const std::string large = sample_text((64 << 10) + 1);
    EXPECT_EQ(copy(directory_.file("large", large), "/m/large"), 0u);
    EXPECT_EQ(copy(directory_.file("empty", ""), "/m/empty"), 0u);
    const std::string sparse = directory_.file("sparse", "");
    std::filesystem::resize_file(sparse, 60000);
    EXPECT_EQ(copy(sparse, "/m/sparse"), 0u);
    fake_.volume.add_file("/m/there", "old");
    EXPECT_EQ(copy(directory_.file("new", "new content"), "/m/there"), 0u);
    EXPECT_THAT(optional_operations.calls, IsEmpty());
    EXPECT_EQ(fake_.volume.content("/m/large"), large);
    EXPECT_EQ(fake_.volume.content("/m/sparse"), std::string(60000, '\0'));
    EXPECT_EQ(fake_.volume.content("/m/there"), "new content");
}

// Whoever may not read the source could read its copy until the permissions are set.
TEST_F(ServerCopyTest, MakesACopyThatGetsItsSourcesPermissionsWithoutContent) {
    const Strictness strict("modes");
    optional_operations.makes_with_content = true;
    EXPECT_EQ(copy(directory_.file("src", "secret"), "/m/dst"), 0u);
    EXPECT_THAT(optional_operations.calls, IsEmpty());
    EXPECT_EQ(fake_.volume.content("/m/dst"), "secret");
}

TEST_F(ServerCopyTest, WritesALocalFileWhereOneWithContentIsRefused) {
    optional_operations.makes_with_content = true;
    EXPECT_EQ(copy(directory_.file("src", "content"), directory_.path("dst")), 0u);
    EXPECT_EQ(read_file(directory_.path("dst")), "content");
    EXPECT_THAT(optional_operations.calls, testing::ElementsAre("made with 7"));
}

TEST_F(ServerCopyTest, CopiesTheRangeOfDd) {
    const std::string text = sample_text(10000);
    fake_.volume.add_file("/m/src", text);
    optional_operations.copies = true;
    optional_operations.copy_maximum = 2500;
    commandtype = kDd;
    iffound = offound = 1;
    IBS = OBS = 1000;
    SKIP = 2000;
    SEEK = 500;
    COUNT = 6000;
    EXPECT_EQ(run([&] { return ddfile("/m/src", "/m/dst"); }).status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst").substr(500, 6000), text.substr(2000, 6000));
    EXPECT_THAT(optional_operations.calls, testing::ElementsAre("2000+6000>500", "4500+3500>3000", "7000+1000>5500"));
}

}  // namespace
