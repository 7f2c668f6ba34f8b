// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/transfer.h"

#include <algorithm>
#include <cstring>
#include <fstream>

#include "tests/support/allocation_faults.h"
#include "tests/unit/commands/command_fixture.h"
#include "tslwnfs/storage/local_file.h"

namespace {

class TransferTest : public CommandTest {
  protected:
    TransferTest() {
        EXPECT_TRUE(requests_.allocate("test"));
        EXPECT_TRUE(buffer_.allocate("test", TransferBuffer::size_for(32768)));
        fake_.volume.add_file("/m/f", "0123456789");
        TdmFileInfo info = {};
        uint32_t code = 0;
        char text[TDM_TEXT_SIZE] = {};
        tdm_identify(ctx, "/m/f", 0, 2, &code, text, sizeof text, &info, 0);
        file_ = info.file;
        fake_.forget_calls();
    }

    void fill(IoOperation operation, uint64_t offset, uint32_t count) {
        requests_.fill(5, operation, file_, offset, buffer_.data(), count);
    }

    std::string buffer_text(std::size_t length) const {
        return {reinterpret_cast<const char *>(buffer_.data()), length};
    }

    RequestSlots requests_;
    TransferBuffer buffer_;
    uint64_t file_ = 0;
};
using TransferDeathTest = TransferTest;

TEST_F(TransferTest, ARequestIsFilledAndTheLibrarysBytesAreLeftAlone) {
    TdmIoRequest request;
    std::memset(&request, 0xAB, sizeof request);
    alignas(4096) static std::byte data[4096];
    tdmrqfil(request, IoOperation::write, 0x1122334455667788, 0x99AABBCCDD, data, 4096);

    std::array<unsigned char, sizeof request> bytes;
    std::memcpy(bytes.data(), &request, sizeof request);
    TdmIoRequest expected;
    std::memset(&expected, 0xAB, sizeof expected);
    expected.cleared = 0;
    expected.operation = 2;
    expected.flags = 7;
    expected.file = 0x1122334455667788;
    expected.offset = 0x99AABBCCDD;
    expected.buffer = data;
    expected.count = 4096;
    EXPECT_EQ(std::memcmp(bytes.data(), &expected, sizeof expected), 0);
    EXPECT_EQ(bytes[12] | bytes[13] | bytes[14] | bytes[15], 0);
    EXPECT_EQ(bytes[16], 2);
    EXPECT_EQ(bytes[18], 7);
}

TEST_F(TransferTest, ThereAreNeverFewerSlotsThanTheRoundNeeds) {
    for (const int32_t slots : {-1, 0, 1, 127, 128}) {
        nios = slots;
        RequestSlots requests;
        ASSERT_TRUE(requests.allocate("test"));
        EXPECT_EQ(requests.size(), 128u);
    }
    nios = 500;
    RequestSlots requests;
    ASSERT_TRUE(requests.allocate("test"));
    EXPECT_EQ(requests.size(), 500u);
}

// Of this process, in bytes.
std::size_t resident() {
    std::ifstream statm("/proc/self/statm");
    std::size_t total = 0;
    std::size_t pages = 0;
    statm >> total >> pages;
    return pages * TransferBuffer::kPage;
}

TEST_F(TransferTest, SlotsTakeMemoryAsTheyAreUsed) {
    constexpr std::size_t kMany = 1'000'000;
    nios = kMany;
    const std::size_t before = resident();
    ASSERT_GT(before, 0U);
    RequestSlots many;
    ASSERT_TRUE(many.allocate("test"));
    many.fill(1, IoOperation::read, file_, 0, buffer_.data(), 10);
    EXPECT_EQ(many.size(), kMany);
    EXPECT_EQ(many[0].count, 0U);
    EXPECT_EQ(*many.from(0), nullptr);
    EXPECT_EQ(*many.from(1), &many[1]);
    EXPECT_LT(resident(), before + kMany * sizeof(TdmIoRequest) / 4);
}

TEST_F(TransferTest, SlotsThatCannotBeAllocatedAreTracedWithTheSizeAskedFor) {
    RequestSlots requests;
    {
        const AllocationFault fault(128 * sizeof(TdmIoRequest));
        EXPECT_FALSE(requests.allocate("catfile"));
        EXPECT_TRUE(AllocationFault::fired());
    }
    {
        const AllocationFault fault(128 * sizeof(TdmIoRequest *));
        EXPECT_FALSE(requests.allocate("catfile"));
        EXPECT_TRUE(AllocationFault::fired());
    }
    EXPECT_THAT(trace(), ElementsAre("catfile TWNFS-65060: 32768 bytes of memory could not be allocated.",
                                     "catfile TWNFS-65060: 1024 bytes of memory could not be allocated."));
}

TEST_F(TransferTest, TheBufferIsPageAlignedZeroedAndHoldsAWholePiece) {
    EXPECT_EQ(TransferBuffer::size_for(32768), 69632u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer_.data()) % 4096, 0u);
    EXPECT_GE(buffer_.bytes().size(), 32768u);
    EXPECT_TRUE(std::ranges::all_of(buffer_.bytes(), [](std::byte byte) { return byte == std::byte{0}; }));
}

TEST_F(TransferTest, ABufferThatCannotBeAllocatedIsTraced) {
    TransferBuffer buffer;
    const AllocationFault fault(69632);
    EXPECT_FALSE(buffer.allocate("copyfile", 69632));
    EXPECT_FALSE(buffer.allocated());
    EXPECT_THAT(trace(), ElementsAre("copyfile TWNFS-65060: 69632 bytes of memory could not be allocated."));
}

TEST_F(TransferTest, LocalDataGoesThroughTheSlotsBuffer) {
    const std::string path = directory_.file("f", "abcdef");
    uint64_t size = 0;
    Stream source = open_local_source(path.c_str(), size);
    ASSERT_NE(source, nullptr);
    EXPECT_EQ(size, 6u);
    fill(IoOperation::read, 0, 4);
    EXPECT_EQ(readlocfile(requests_, 5, source.get(), 4), 4u);
    EXPECT_EQ(buffer_text(4), "abcd");
    EXPECT_EQ(readlocfile(requests_, 5, source.get(), 4), 2u);

    Stream target(std::fopen(directory_.path("g").c_str(), "wb"));
    EXPECT_EQ(writelocfile(requests_, 5, target.get(), 3), 3u);
    EXPECT_TRUE(close_stream(target));
    EXPECT_EQ(read_file(directory_.path("g")), "efc");
}

TEST_F(TransferTest, ADirectoryIsNoLocalSource) {
    uint64_t size = 0;
    EXPECT_EQ(open_local_source(directory_.path().c_str(), size), nullptr);
    EXPECT_EQ(open_local_source(directory_.path("missing").c_str(), size), nullptr);
}

TEST_F(TransferTest, ALostWriteShowsWhenTheStreamIsClosed) {
    Stream full(std::fopen("/dev/full", "wb"));
    std::fputs("text", full.get());
    EXPECT_FALSE(close_stream(full));
    EXPECT_EQ(full, nullptr);
    EXPECT_TRUE(close_stream(full));
}

TEST_F(TransferTest, ALostWriteShowsWhenTheStreamIsSynchronised) {
    const Stream full(std::fopen("/dev/full", "wb"));
    std::fputs("text", full.get());
    EXPECT_FALSE(synchronize_stream(full.get(), "/dev/full"));
    const std::string path = directory_.path("f");
    const Stream file(std::fopen(path.c_str(), "wb"));
    std::fputs("text", file.get());
    EXPECT_TRUE(synchronize_stream(file.get(), path.c_str()));
    EXPECT_EQ(read_file(path), "text");
}

TEST_F(TransferTest, ARequestIsSubmittedThenAwaitedWithoutLimit) {
    fill(IoOperation::read, 2, 4);
    readnfsfile(requests_, 5, 0);
    EXPECT_EQ(buffer_text(4), "2345");
    EXPECT_THAT(
        fake_.calls(),
        ElementsAre("submit requests=1 timeout=0 count=0 [read file=1 offset=2 count=4 flags=7 cleared=0 aligned]",
                    "reap requests=1 minreap=0 timeout=4294967295 count=0"));
    std::memcpy(buffer_.data(), "XY", 2);
    fill(IoOperation::write, 9, 2);
    writenfsfile(requests_, 5, 0);
    EXPECT_EQ(fake_.volume.content("/m/f"), "012345678XY");
    EXPECT_EQ(requests_.failures(), 0u);
    EXPECT_THAT(trace(), IsEmpty());
}

TEST_F(TransferTest, AFailedRequestIsTracedAndCountedAndTheTransferGoesOn) {
    fake_.complete_request(1, 5);
    fake_.complete_request(2, 28);
    fill(IoOperation::read, 0, 4);
    readnfsfile(requests_, 5, 0);
    fill(IoOperation::write, 0, 4);
    writenfsfile(requests_, 5, 0);
    EXPECT_EQ(requests_.failures(), 2u);
    EXPECT_THAT(trace(), ElementsAre("readnfsfile TWNFS-65065: A storage request did not complete (code 5).",
                                     "writenfsfile TWNFS-65065: A storage request did not complete (code 28)."));
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(TransferDeathTest, ARefusedSubmissionEndsTheProcess) {
    fill(IoOperation::read, 0, 4);
    fake_.answer("submit", 1, {.status = 110, .location = {}});
    EXPECT_EXIT(readnfsfile(requests_, 5, 0), testing::ExitedWithCode(1), "");
    EXPECT_EXIT(writenfsfile(requests_, 5, 0), testing::ExitedWithCode(1), "");
    EXPECT_THAT(trace(),
                ElementsAre("readnfsfile TWNFS-65070: A storage request could not be submitted (status 110).",
                            "writenfsfile TWNFS-65070: A storage request could not be submitted (status 110)."));
}

TEST_F(TransferDeathTest, AFailedCompletionEndsTheProcessWithTheCountOrTheStatus) {
    fill(IoOperation::read, 0, 4);
    fake_.answer("reap", 1, {.status = 110, .location = {}});
    EXPECT_EXIT(readnfsfile(requests_, 5, 3), testing::ExitedWithCode(1), "");
    EXPECT_EXIT(writenfsfile(requests_, 5, 3), testing::ExitedWithCode(1), "");
    EXPECT_THAT(trace(), ElementsAre("readnfsfile TWNFS-65065: A storage request did not complete (code 3).",
                                     "writenfsfile TWNFS-65065: A storage request did not complete (code 110)."));
}

TEST_F(TransferDeathTest, TheOutputIsFlushedWhenTheProcessEnds) {
    fill(IoOperation::read, 0, 4);
    fake_.answer("submit", 1, {.status = 5, .location = {}});
    const ScratchStream output;
    EXPECT_EXIT(
        {
            std::fputs("printed before", output.stream());
            readnfsfile(requests_, 5, 0);
        },
        testing::ExitedWithCode(1), "");
    EXPECT_EQ(output.text(), "printed before");
}

}  // namespace
