// SPDX-License-Identifier: Apache-2.0
// The results of every procedure of NFS, MOUNT and the portmapper. The first byte chooses the procedure.
//
// What is accepted is written again as a server would and read once more: the same must come out, and nothing in it may
// exceed its maximum.
#include <array>
#include <string>

#include "nfstdm/nfs3/mount.h"
#include "nfstdm/nfs3/replies.h"
#include "nfstdm/nfs3/status_table.h"
#include "nfstdm/portmap/portmap.h"
#include "nfstdm/rpc/message/message.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/replies_back.h"

namespace {

using namespace nfstdm;
using fuzz::Bytes;
using fuzz::require;
using xdr::Reader;
using xdr::Writer;

bool same(Bytes one, Bytes other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end());
}

void examine(const FileHandle &handle) {
    require(handle.size >= 1 && handle.size <= nfs3::kHandleMaximum, "a handle has 1 to 64 bytes");
}

// Reads with read what write made of a reply; the same must be written for what comes out.
template <class Reply, class Read, class Write>
void read_back(const Reply &reply, Read read, Write write) {
    Writer first;
    write(first, reply);
    require(first.ok(), "what was accepted keeps every maximum");
    Reader reader(first.bytes());
    Reply again{};
    require(read(reader, again) && reader.finished(), "what was accepted is accepted again");
    Writer second;
    write(second, again);
    require(same(first.bytes(), second.bytes()), "reading and writing a reply changes nothing");
}

template <class Reply, bool (*get)(Reader &, Reply &)>
void results(Bytes bytes) {
    Reader reader(bytes);
    Reply reply{};
    if (!get(reader, reply)) return;
    require(reader.ok(), "what was accepted was all there");
    read_back(reply, get, [](Writer &out, const Reply &one) { fuzz::put(out, one); });
}

template <bool plus>
void directory(Bytes bytes) {
    constexpr auto read = plus ? nfs3::get_readdirplus : nfs3::get_readdir;
    Reader reader(bytes);
    DirectoryReply reply;
    if (!read(reader, reply)) return;
    constexpr std::size_t kEntryMinimum = 4 + 8 + 4 + 8;  // bytes
    require(reply.entries.size() * kEntryMinimum <= bytes.size(), "no more entries than bytes for them");
    for (const auto &entry : reply.entries)
        if (entry.handle) examine(*entry.handle);
    read_back(reply, read, [](Writer &out, const DirectoryReply &one) { fuzz::put_directory(out, one, plus); });
}

// READ, as the receiver sees it: the first byte says how many bytes of data it put elsewhere.
void read_results(Bytes bytes) {
    if (bytes.empty()) return;
    const auto landed = std::to_integer<std::size_t>(bytes[0]);
    const Bytes head = bytes.subspan(1);
    const std::size_t position = nfs3::read_data_position(head);
    Reader reader(head);
    uint32_t status = 0;
    ReadReply reply;
    if (!reader.get_u32(status) || status != 0 || !nfs3::get_read(reader, landed, reply)) return;
    require(reply.count == landed, "as many bytes were read as came");
    require(position == head.size() - reader.left(), "the data begin where the results end");
}

void status(Bytes bytes) {
    Reader reader(bytes);
    uint32_t number = 0;
    if (!reader.get_u32(number) || number == 0) return;
    const Status failure = nfs3::to_status(number);
    require(!failure.ok() && !failure.text().empty(), "every refusal is a failure with words");
}

void mount(Bytes bytes) {
    const auto reply = mount3::decode_mount(bytes);
    require(bytes.size() >= 4 || !reply.ok(), "nothing is no answer");
    if (!reply.ok()) return;
    examine(reply.value().root);
    const auto read = [](Reader &reader, mount3::MountReply &again) {
        Bytes all;
        if (!reader.get_fixed(all, reader.left())) return false;
        const auto decoded = mount3::decode_mount(all);
        if (decoded.ok()) again = decoded.value();
        return decoded.ok();
    };
    read_back(reply.value(), read, [](Writer &out, const mount3::MountReply &one) { fuzz::put(out, one); });
}

void export_list(Bytes bytes) {
    if (!mount3::is_export_list(bytes)) return;
    require(bytes.size() % 4 == 0 && bytes.size() >= 4, "a list is made of words");
    require(!mount3::is_export_list(bytes.first(bytes.size() - 4)), "a list without its end is none");
}

void port(Bytes bytes) {
    const auto answer = portmap::decode_port(bytes, nfs3::kProgram);
    require(!answer.ok() || (bytes.size() == 4 && answer.value() != 0), "a port is one word and not zero");
}

constexpr std::array kProcedures = {
    results<Attributes, nfs3::get_getattr>,
    results<LookupReply, nfs3::get_lookup>,
    results<std::string, nfs3::get_readlink>,
    results<WriteReply, nfs3::get_write>,
    results<CommitReply, nfs3::get_commit>,
    results<CreateReply, nfs3::get_made>,
    results<nfs3::NoReply, nfs3::get_changed>,
    directory<false>,
    directory<true>,
    results<FsStatReply, nfs3::get_fsstat>,
    results<FsInfoReply, nfs3::get_fsinfo>,
    read_results,
    status,
    mount,
    export_list,
    port,
    results<DirectoryChange, nfs3::get_removed>,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    kProcedures[input.byte() % kProcedures.size()](input.rest());
    return 0;
}
