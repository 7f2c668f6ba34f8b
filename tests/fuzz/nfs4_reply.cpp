// SPDX-License-Identifier: Apache-2.0
// The results of every operation of NFS version 4, and compounds of them. The first byte chooses.
//
// What is accepted keeps every maximum and was all there; a walk through a compound moves on or ends; where the data of
// a READ begin is found by steps that each go forward.
#include <array>
#include <string>

#include "nfstdm/nfs4/compound.h"
#include "nfstdm/nfs4/replies.h"
#include "nfstdm/nfs4/status_table.h"
#include "nfstdm/rpc/message/message.h"
#include "tests/fuzz/fuzz.h"

namespace {

using namespace nfstdm;
using namespace nfstdm::nfs4;
using fuzz::Bytes;
using fuzz::require;
using xdr::Reader;

void examine(const FileHandle &handle) {
    require(handle.size >= 1 && handle.size <= kHandleMaximum, "a handle has 1 to 128 bytes");
}

template <class Reply, bool (*get)(Reader &, Reply &)>
void results(Bytes bytes) {
    Reader reader(bytes);
    Reply reply{};
    if (!get(reader, reply)) return;
    require(reader.ok(), "what was accepted was all there");
    // The same bytes cut off behind what was taken are accepted again; cut off before, they are not.
    const Bytes taken = bytes.first(bytes.size() - reader.left());
    Reader exact(taken);
    Reply again{};
    require(get(exact, again) && exact.finished(), "what was accepted is accepted again");
    if (taken.empty()) return;
    Reader less(taken.first(taken.size() - 1));
    require(!get(less, again), "results without their end are none");
}

struct None {};

template <bool (*get)(Reader &)>
bool get_none(Reader &reader, None &) {
    return get(reader);
}

template <bool (*get)(Reader &)>
void plain_results(Bytes bytes) {
    results<None, get_none<get>>(bytes);
}

void attributes(Bytes bytes) {
    Reader reader(bytes);
    AttributeValues values;
    if (!get_attributes(reader, values)) return;
    require(reader.ok(), "what was accepted was all there");
    require(values.object.mode <= 07777, "permissions are permissions");
    require(values.handle.has_value() == values.given.has(Attribute::filehandle), "a handle comes when it is given");
    if (values.handle) examine(*values.handle);
}

void directory(Bytes bytes) {
    Reader reader(bytes);
    DirectoryReply reply;
    if (!get_readdir(reader, reply)) return;
    constexpr std::size_t kEntryMinimum = 4 + 8 + 4 + 4 + 4;  // bytes
    require(reply.entries.size() * kEntryMinimum <= bytes.size(), "no more entries than bytes for them");
    for (const auto &entry : reply.entries)
        if (entry.handle) examine(*entry.handle);
}

void read_into(Bytes bytes) {
    std::array<std::byte, 64> place{};
    Reader reader(bytes);
    ReadReply reply;
    if (!get_read_into(reader, std::span{place}.first(32), reply)) return;
    require(reply.count <= 32, "data stay in their place");
    require(place[32] == std::byte{0}, "nothing is put behind it");
}

// A compound as a lookup of two components reads it.
void walk(Bytes bytes) {
    Results found(bytes);
    const bool all = found.next(Op::sequence) && [&] {
        SequenceReply sequence;
        return get_sequence(found.reader(), sequence);
    }() && found.next(Op::putfh);
    for (int i = 0; all && i < 2; ++i) {
        FileHandle handle;
        AttributeValues values;
        if (!found.next(Op::lookup) || !found.next(Op::getfh) || !get_handle(found.reader(), handle) ||
            !found.next(Op::getattr) || !get_attributes(found.reader(), values))
            break;
        examine(handle);
    }
    if (found.failure() == NfsStatus::ok) return;
    require(!to_status(found.failure()).ok(), "every refusal is a failure with words");
    require(!found.next(Op::getfh), "nothing comes behind a failure");
}

void read_position(Bytes bytes) {
    std::size_t known = 0;
    for (std::size_t steps = 0; known <= bytes.size(); ++steps) {
        require(steps <= bytes.size() + 1, "the search ends");
        const std::size_t position = read_data_position(bytes.first(known));
        if (position == rpc::kWholeRecord || position == known) return;
        require(position > known, "each step goes forward");
        known = position;
    }
}

constexpr std::array kKinds = {
    attributes,
    results<ExchangeReply, get_exchange_id>,
    results<nfs4::SessionReply, get_create_session>,
    results<SequenceReply, get_sequence>,
    results<OpenReply, get_open>,
    results<std::string, get_readlink>,
    results<WriteReply, get_write>,
    results<CommitReply, get_commit>,
    results<std::vector<uint32_t>, get_flavours>,
    results<FileHandle, get_handle>,
    plain_results<get_close>,
    plain_results<get_created>,
    plain_results<get_set>,
    plain_results<get_change>,
    plain_results<get_bind_connection>,
    directory,
    read_into,
    walk,
    read_position,
    results<CopyAnswer, get_copy>,
    results<OffloadReply, get_offload_status>,
    results<SeekReply, get_seek>,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    kKinds[input.byte() % kKinds.size()](input.rest());
    return 0;
}
