// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/replies.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "tests/unit/nfs4/samples.h"

namespace nfstdm::nfs4 {
namespace {

using Bytes = std::vector<std::byte>;

// One kind of results: how a server writes them, and whether bytes are such results from end to end.
struct Kind {
    const char *name;
    std::function<void(xdr::Writer &)> put;
    std::function<bool(xdr::Reader &)> get;

    Bytes sample() const {
        xdr::Writer writer;
        put(writer);
        return writer.take();
    }
    bool read(std::span<const std::byte> bytes) const {
        xdr::Reader reader(bytes);
        return get(reader) && reader.finished();
    }
};

template <class Reply>
std::function<bool(xdr::Reader &)> into(bool (*get)(xdr::Reader &, Reply &)) {
    return [get](xdr::Reader &reader) {
        Reply reply{};
        return get(reader, reply);
    };
}

AttributeSet entry_attributes() {
    AttributeSet set = object_attributes();
    set.add(Attribute::filehandle);
    set.add(Attribute::rdattr_error);
    return set;
}

void put_readdir(xdr::Writer &writer) {
    writer.put_u64(9);
    for (const uint64_t cookie : {3, 4}) {
        writer.put_bool(true);
        writer.put_u64(cookie);
        writer.put_string("name" + std::to_string(cookie));
        samples::put_attributes(writer, entry_attributes());
    }
    writer.put_bool(false);
    writer.put_bool(true);
}

std::vector<Kind> kinds() {
    using namespace samples;
    return {
        {"GETATTR", [](auto &w) { put_attributes(w, object_attributes()); }, into(get_attributes)},
        {"EXCHANGE_ID", [](auto &w) { samples::put_exchange_id(w, 7, false); }, into(get_exchange_id)},
        {"CREATE_SESSION", [](auto &w) { samples::put_create_session(w, {}, 1 << 20, 64); }, into(get_create_session)},
        {"SEQUENCE", [](auto &w) { samples::put_sequence(w, {}, 1, 2, 3); }, into(get_sequence)},
        {"BIND_CONN_TO_SESSION",
         [](auto &w) {
             w.put_fixed(SessionId{});
             w.put_u32(1);
             w.put_bool(false);
         },
         get_bind_connection},
        {"OPEN", [](auto &w) { put_open(w, state_id(1)); }, into(get_open)},
        {"CLOSE", [](auto &w) { put_state_id(w, state_id(1)); }, get_close},
        {"READLINK", [](auto &w) { w.put_string("../target"); }, into(get_readlink)},
        {"CREATE",
         [](auto &w) {
             put_change(w);
             AttributeSet{Attribute::mode}.put(w);
         },
         get_created},
        {"SETATTR", [](auto &w) { AttributeSet{Attribute::size}.put(w); }, get_set},
        {"WRITE",
         [](auto &w) {
             w.put_u32(10);
             w.put_u32(2);
             w.put_u64(99);
         },
         into(get_write)},
        {"COMMIT", [](auto &w) { w.put_u64(99); }, into(get_commit)},
        {"READDIR", put_readdir, into(get_readdir)},
        {"SECINFO_NO_NAME",
         [](auto &w) {
             w.put_u32(2);
             w.put_u32(6);
             w.put_string("mechanism");
             w.put_u32(0);
             w.put_u32(1);
             w.put_u32(1);
         },
         into(get_flavours)},
        {"REMOVE", put_change, get_change},
        {"COPY",
         [](auto &w) {
             w.put_u32(1);
             put_state_id(w, state_id(1));
             w.put_u64(1000);
             w.put_u32(2);
             w.put_u64(99);
             w.put_bool(true);
             w.put_bool(false);
         },
         into(get_copy)},
        {"OFFLOAD_STATUS",
         [](auto &w) {
             w.put_u64(1000);
             w.put_u32(1);
             w.put_u32(28);
         },
         into(get_offload_status)},
        {"SEEK",
         [](auto &w) {
             w.put_bool(true);
             w.put_u64(1000);
         },
         into(get_seek)},
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

TEST(Replies, AreRefusedOrReadWithAnyBitTurnedAndNeverReadBeyondTheirEnd) {
    for (const Kind &kind : kinds()) {
        const Bytes sample = kind.sample();
        for (std::size_t bit = 0; bit < sample.size() * 8; ++bit) {
            // A copy of its own, so that the address sanitizer sees its end.
            Bytes turned = sample;
            turned[bit / 8] ^= std::byte(1 << bit % 8);
            kind.read(turned);
        }
    }
}

TEST(Replies, OfADirectoryHaveTheirEntriesWithHandlesAndAttributes) {
    xdr::Writer writer;
    put_readdir(writer);
    xdr::Reader reader(writer.bytes());
    DirectoryReply reply;
    ASSERT_TRUE(get_readdir(reader, reply));
    ASSERT_EQ(reply.entries.size(), 2U);
    EXPECT_TRUE(reply.eof);
    EXPECT_EQ(reply.verifier, 9U);
    EXPECT_EQ(reply.entries[1].name, "name4");
    EXPECT_EQ(reply.entries[1].cookie, 4U);
    EXPECT_EQ(reply.entries[1].fileid, 42U);
    ASSERT_TRUE(reply.entries[1].handle && reply.entries[1].attributes);
    EXPECT_EQ(reply.entries[1].handle->view(), "entry");
}

TEST(Replies, OfADirectoryKeepAnEntryWhoseAttributesCouldNotBeHad) {
    xdr::Writer writer;
    writer.put_u64(9);
    writer.put_bool(true);
    writer.put_u64(3);
    writer.put_string("hidden");
    AttributeSet{Attribute::rdattr_error}.put(writer);
    writer.put_u32(4);
    writer.put_u32(13);
    writer.put_bool(false);
    writer.put_bool(true);
    xdr::Reader reader(writer.bytes());
    DirectoryReply reply;
    ASSERT_TRUE(get_readdir(reader, reply));
    ASSERT_EQ(reply.entries.size(), 1U);
    EXPECT_FALSE(reply.entries[0].attributes || reply.entries[0].handle);
}

TEST(Replies, OfOpenAreReadWithEveryKindOfDelegation) {
    const auto opens_with = [](const std::function<void(xdr::Writer &)> &put) {
        xdr::Writer writer;
        put_state_id(writer, samples::state_id(1));
        samples::put_change(writer);
        writer.put_u32(0);
        AttributeSet{}.put(writer);
        put(writer);
        OpenReply reply;
        xdr::Reader reader(writer.bytes());
        return get_open(reader, reply) && reader.finished();
    };
    const auto entry = [](xdr::Writer &writer) {
        for (int i = 0; i < 3; ++i)
            writer.put_u32(0);
        writer.put_string("EVERYONE@");
    };
    EXPECT_TRUE(opens_with([](auto &w) { w.put_u32(0); }));
    EXPECT_TRUE(opens_with([&](auto &w) {
        w.put_u32(1);
        put_state_id(w, samples::state_id(2));
        w.put_bool(false);
        entry(w);
    }));
    EXPECT_TRUE(opens_with([&](auto &w) {
        w.put_u32(2);
        put_state_id(w, samples::state_id(2));
        w.put_bool(false);
        w.put_u32(1);
        w.put_u64(4096);
        entry(w);
    }));
    EXPECT_TRUE(opens_with([](auto &w) {
        w.put_u32(3);
        w.put_u32(0);
    }));
    EXPECT_FALSE(opens_with([](auto &w) { w.put_u32(4); }));
}

TEST(Replies, OfReadMustBringWhatLanded) {
    xdr::Writer writer;
    writer.put_bool(true);
    writer.put_u32(5);
    xdr::Reader reader(writer.bytes());
    xdr::Reader again(writer.bytes());
    ReadReply reply;
    EXPECT_TRUE(get_read(reader, 5, reply));
    EXPECT_FALSE(get_read(again, 4, reply));
}

TEST(Replies, OfReadNeverExceedTheirPlace) {
    xdr::Writer writer;
    writer.put_bool(true);
    writer.put_string("12345");
    std::array<std::byte, 4> small{};
    ReadReply reply;
    xdr::Reader reader(writer.bytes());
    EXPECT_FALSE(get_read_into(reader, small, reply));
}

}  // namespace
}  // namespace nfstdm::nfs4
