// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs3/replies.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "nfstdm/nfs3/fields.h"
#include "nfstdm/rpc/message/message.h"
#include "tests/unit/nfs3/samples.h"

namespace nfstdm::nfs3 {
namespace {

using Bytes = std::vector<std::byte>;

// One kind of results: how a server writes them, and whether bytes are such results from end to end.
struct Kind {
    const char *name;
    std::function<void(xdr::Writer &)> put;
    std::function<bool(std::span<const std::byte>)> read;

    Bytes sample() const {
        xdr::Writer writer;
        put(writer);
        return writer.take();
    }
};

template <class Reply>
std::function<bool(std::span<const std::byte>)> whole(bool (*read)(xdr::Reader &, Reply &)) {
    return [read](std::span<const std::byte> bytes) {
        xdr::Reader reader(bytes);
        Reply reply{};
        return read(reader, reply) && reader.finished();
    };
}

std::vector<Kind> kinds() {
    using namespace samples;
    return {
        {"GETATTR", [](auto &w) { put_attributes(w); }, whole(get_getattr)},
        {"LOOKUP", [](auto &w) { put_lookup(w); }, whole(get_lookup)},
        {"READLINK",
         [](auto &w) {
             put_post_attributes(w, 5);
             w.put_string("../target");
         },
         whole(get_readlink)},
        {"WRITE", [](auto &w) { put_write(w, 10, 1, 99); }, whole(get_write)},
        {"COMMIT",
         [](auto &w) {
             put_wcc(w);
             w.put_u64(99);
         },
         whole(get_commit)},
        {"CREATE", [](auto &w) { put_made(w); }, whole(get_made)},
        {"SETATTR", [](auto &w) { put_wcc(w); }, whole(get_changed)},
        {"REMOVE", [](auto &w) { put_wcc(w); }, whole(get_removed)},
        {"READDIR", [](auto &w) { put_directory(w, false); }, whole(get_readdir)},
        {"READDIRPLUS", [](auto &w) { put_directory(w, true); }, whole(get_readdirplus)},
        {"FSSTAT", [](auto &w) { put_fsstat(w); }, whole(get_fsstat)},
        {"FSINFO", [](auto &w) { put_fsinfo(w); }, whole(get_fsinfo)},
    };
}

TEST(Replies, AreReadWhenWellFormed) {
    for (const Kind &kind : kinds())
        EXPECT_TRUE(kind.read(kind.sample())) << kind.name;
}

TEST(Replies, AreRefusedAtEveryTruncation) {
    for (const Kind &kind : kinds()) {
        const Bytes sample = kind.sample();
        for (std::size_t size = 0; size < sample.size(); ++size)
            EXPECT_FALSE(kind.read(std::span{sample}.first(size))) << kind.name << " " << size;
    }
}

TEST(Replies, AreRefusedWithSomethingBehindThem) {
    for (const Kind &kind : kinds()) {
        Bytes sample = kind.sample();
        sample.resize(sample.size() + 4);
        EXPECT_FALSE(kind.read(sample)) << kind.name;
    }
}

TEST(Replies, SurviveEveryBitFlip) {
    for (const Kind &kind : kinds()) {
        const Bytes sample = kind.sample();
        std::size_t refused = 0;
        for (std::size_t bit = 0; bit < sample.size() * 8; ++bit) {
            Bytes flipped = sample;
            flipped[bit / 8] ^= static_cast<std::byte>(1 << bit % 8);
            if (!kind.read(flipped)) ++refused;
        }
        EXPECT_GT(refused, 0U) << kind.name;
    }
}

TEST(Replies, SurviveRandomBytes) {
    std::minstd_rand random(1);
    for (const Kind &kind : kinds()) {
        for (int i = 0; i < 500; ++i) {
            Bytes noise(random() % 400);
            for (std::byte &each : noise)
                each = static_cast<std::byte>(random() % 5 == 0 ? random() : 0);
            static_cast<void>(kind.read(noise));
        }
    }
}

template <class Reply, class Put>
Reply read_back(bool (*read)(xdr::Reader &, Reply &), Put put) {
    xdr::Writer writer;
    put(writer);
    xdr::Reader reader(writer.bytes());
    Reply reply{};
    EXPECT_TRUE(read(reader, reply));
    return reply;
}

TEST(Replies, CarryEveryAttribute) {
    const auto reply = read_back(get_getattr, [](auto &w) { samples::put_attributes(w); });
    EXPECT_EQ(reply.type, FileType::regular);
    EXPECT_EQ(reply.mode, 0644U);
    EXPECT_EQ(reply.links, 2U);
    EXPECT_EQ(reply.uid, 501U);
    EXPECT_EQ(reply.gid, 502U);
    EXPECT_EQ(reply.size, 1000U);
    EXPECT_EQ(reply.used, 4096U);
    EXPECT_EQ(reply.fsid, 77U);
    EXPECT_EQ(reply.fileid, 88U);
    EXPECT_EQ(reply.access.seconds, 11U);
    EXPECT_EQ(reply.access.nanoseconds, 12U);
    EXPECT_EQ(reply.modification.seconds, 21U);
    EXPECT_EQ(reply.change.nanoseconds, 32U);
}

TEST(Replies, TellHowADirectoryWasBeforeAndAfter) {
    const auto made = read_back(get_made, [](auto &w) { samples::put_made(w); });
    const auto removed = read_back(get_removed, [](auto &w) { samples::put_wcc(w); });
    for (const DirectoryChange &change : {made.directory, removed}) {
        EXPECT_EQ(change.before, (DirectoryState{999, {0, 1}, {0, 2}}));
        EXPECT_EQ(change.after->fileid, 88U);
    }
    const auto untold = read_back(get_removed, [](auto &w) {
        w.put_bool(false);
        w.put_bool(false);
    });
    EXPECT_FALSE(untold.before || untold.after);
}

TEST(Replies, KnowNoOtherFileTypes) {
    for (const uint32_t type : {0U, 8U, 0xFFFFFFFFU}) {
        xdr::Writer writer;
        samples::put_attributes(writer, type);
        EXPECT_FALSE(whole(get_getattr)(writer.bytes())) << type;
    }
}

TEST(Replies, TakeHandlesOfOneTo64Bytes) {
    for (const std::size_t size : {0, 1, 64, 65, 128, 129}) {
        xdr::Writer writer;
        writer.put_string(std::string(size, 'h'));
        xdr::Reader reader(writer.bytes());
        FileHandle handle;
        EXPECT_EQ(get_handle(reader, handle), size >= 1 && size <= 64) << size;
        if (size >= 1 && size <= 64) {
            EXPECT_EQ(handle.view(), std::string(size, 'h'));
        }
    }
}

TEST(Replies, CarryDirectoryEntries) {
    const auto plus = read_back(get_readdirplus, [](auto &w) { samples::put_directory(w, true); });
    ASSERT_EQ(plus.entries.size(), 2U);
    EXPECT_EQ(plus.verifier, 0xFEEDU);
    EXPECT_TRUE(plus.eof);
    EXPECT_EQ(plus.entries[1].name, "a name");
    EXPECT_EQ(plus.entries[1].cookie, 2U);
    EXPECT_EQ(plus.entries[1].fileid, 102U);
    EXPECT_EQ(plus.entries[1].handle->view(), "a name");
    EXPECT_TRUE(plus.entries[1].attributes.has_value());
    EXPECT_EQ(plus.directory->type, FileType::directory);

    const auto plain = read_back(get_readdir, [](auto &w) { samples::put_directory(w, false); });
    ASSERT_EQ(plain.entries.size(), 2U);
    EXPECT_FALSE(plain.entries[0].handle || plain.entries[0].attributes);
}

TEST(Replies, ReadNamesOfAnyLengthAndRefuseTargetsBeyondTheirMaximum) {
    const auto directory = [](std::size_t size) {
        xdr::Writer writer;
        writer.put_bool(false);
        writer.put_u64(0);
        samples::put_entry(writer, 1, std::string(size, 'n'), false);
        writer.put_bool(false);
        writer.put_bool(true);
        return whole(get_readdir)(writer.bytes());
    };
    EXPECT_TRUE(directory(kFileNameMaximum));
    EXPECT_TRUE(directory(kFileNameMaximum + 1));
    EXPECT_TRUE(directory(5000));
    const auto target = [](std::size_t size) {
        xdr::Writer writer;
        writer.put_bool(false);
        writer.put_string(std::string(size, 't'));
        return whole(get_readlink)(writer.bytes());
    };
    EXPECT_TRUE(target(kTargetMaximum));
    EXPECT_FALSE(target(kTargetMaximum + 1));
}

TEST(Replies, KnowNoOtherStability) {
    xdr::Writer writer;
    samples::put_write(writer, 1, 3, 0);
    EXPECT_FALSE(whole(get_write)(writer.bytes()));
}

// READ, whose data are elsewhere: the results up to them.
Bytes read_head(bool attributes, uint32_t count, uint32_t length) {
    xdr::Writer writer;
    writer.put_u32(0);
    writer.put_bool(attributes);
    if (attributes) samples::put_attributes(writer);
    writer.put_u32(count);
    writer.put_bool(true);
    writer.put_u32(length);
    return writer.take();
}

TEST(ReadReplies, ShowWhereTheDataBegin) {
    for (const bool attributes : {false, true}) {
        const Bytes head = read_head(attributes, 5, 5);
        std::size_t known = 0;
        while (known < head.size()) {
            const std::size_t need = read_data_position(std::span{head}.first(known));
            ASSERT_GT(need, known);
            ASSERT_LE(need, head.size());
            known = need;
        }
        EXPECT_EQ(read_data_position(head), head.size());
    }
}

TEST(ReadReplies, HaveNoDataAfterAFailure) {
    xdr::Writer writer;
    writer.put_u32(5);
    writer.put_u32(0);
    EXPECT_EQ(read_data_position(writer.bytes()), rpc::kWholeRecord);
    xdr::Writer odd;
    odd.put_u32(0);
    odd.put_u32(2);  // neither attributes nor none
    EXPECT_EQ(read_data_position(odd.bytes()), rpc::kWholeRecord);
}

TEST(ReadReplies, AreRefusedWhenTheirCountsDisagree) {
    const auto read = [](const Bytes &head, std::size_t landed) {
        xdr::Reader reader(std::span{head}.subspan(4));
        ReadReply reply;
        return get_read(reader, landed, reply) && reader.finished();
    };
    EXPECT_TRUE(read(read_head(true, 5, 5), 5));
    EXPECT_FALSE(read(read_head(true, 4, 5), 5));
    EXPECT_FALSE(read(read_head(true, 5, 4), 5));
    EXPECT_FALSE(read(read_head(false, 5, 5), 4));
}

}  // namespace
}  // namespace nfstdm::nfs3
