// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/loopnfsd/in_memory.h"

#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace loopnfsd_test {

namespace {

constexpr uint32_t kXid = 77;

}  // namespace

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "loopnfsd-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

uint32_t Reply::word() {
    uint32_t value = 0;
    EXPECT_TRUE(results.get_u32(value));
    return value;
}

uint64_t Reply::number() {
    uint64_t value = 0;
    EXPECT_TRUE(results.get_u64(value));
    return value;
}

std::string Reply::text() {
    std::string_view value;
    EXPECT_TRUE(results.get_string(value, bytes.size()));
    return std::string(value);
}

Handle Reply::handle() {
    std::span<const std::byte> value;
    EXPECT_TRUE(results.get_opaque(value, bytes.size()));
    return {value.begin(), value.end()};
}

Attributes get_attributes(Reply &reply) {
    Attributes got;
    for (uint32_t *word : {&got.type, &got.mode, &got.links, &got.uid, &got.gid})
        *word = reply.word();
    got.size = reply.number();
    got.used = reply.number();
    reply.number();  // rdev
    got.fsid = reply.number();
    got.fileid = reply.number();
    reply.number();  // atime
    got.mtime = reply.word();
    reply.word();
    got.ctime = reply.word();
    got.ctime_nanoseconds = reply.word();
    return got;
}

std::optional<Attributes> get_post_op(Reply &reply) {
    if (reply.word() == 0) return std::nullopt;
    return get_attributes(reply);
}

std::optional<uint64_t> get_wcc_size_before(Reply &reply) {
    std::optional<uint64_t> size;
    if (reply.word() != 0) {
        size = reply.number();
        reply.number();  // mtime
        reply.number();  // ctime
    }
    get_post_op(reply);
    return size;
}

std::optional<Attributes> get_wcc(Reply &reply) {
    if (reply.word() != 0)
        for (int i = 0; i < 3; ++i)
            reply.number();
    return get_post_op(reply);
}

void put_header(Writer &out, uint32_t program, uint32_t version, uint32_t procedure, Identity who) {
    for (const uint32_t word : {kXid, nfstdm::rpc::kCall, nfstdm::rpc::kRpcVersion, program, version, procedure})
        out.put_u32(word);
    Writer body;
    body.put_u32(0);
    body.put_string("tester");
    body.put_u32(who.uid);
    body.put_u32(who.gid);
    body.put_u32(0);
    out.put_u32(nfstdm::rpc::kAuthSys);
    out.put_opaque(body.bytes());
    out.put_u32(nfstdm::rpc::kAuthNone);
    out.put_u32(0);
}

void put_no_changes(Writer &out) {
    for (int i = 0; i < 6; ++i)
        out.put_u32(0);
}

void put_mode(Writer &out, uint32_t mode) {
    out.put_bool(true);
    out.put_u32(mode);
    for (int i = 0; i < 5; ++i)
        out.put_u32(0);
}

void put_size(Writer &out, uint64_t size) {
    for (int i = 0; i < 3; ++i)
        out.put_u32(0);
    out.put_bool(true);
    out.put_u64(size);
    out.put_u32(0);
    out.put_u32(0);
}

Backend::Backend(const std::filesystem::path &folder, loopnfsd::ServiceSettings settings, bool read_only,
                 bool version4) {
    EXPECT_EQ(exports.add("/export", folder, read_only), "");
    settings.sync = false;  // a test that waits for a disk proves nothing more
    tree = std::make_unique<loopnfsd::Tree>(exports);
    files = std::make_unique<loopnfsd::SharedFiles>(exports, *tree, faults, settings);
    nfs = std::make_unique<loopnfsd::NfsService>(*files);
    nfs4 = std::make_unique<loopnfsd::nfs4::Nfs4Service>(
        *files, loopnfsd::nfs4::Settings{}, [this](std::string_view name) { ++statistics.calls[std::string(name)]; });
    mount = std::make_unique<loopnfsd::MountService>(exports, *tree, faults, std::vector<std::string>{"alpha", "beta"});
    std::vector<loopnfsd::Program *> programs{nfs.get(), mount.get(), &portmap};
    if (version4) programs.push_back(nfs4.get());
    dispatcher = std::make_unique<loopnfsd::Dispatcher>(std::move(programs), faults, statistics);
}

void InMemory::start(loopnfsd::ServiceSettings settings, bool read_only) {
    backend_ = std::make_unique<Backend>(folder_.path, settings, read_only, version4_);
}

loopnfsd::Answer InMemory::answer(const Writer &call) {
    return backend_->dispatcher->answer(call.bytes(), {1, 2049, "127.0.0.1"});
}

Reply InMemory::call(uint32_t program, uint32_t version, uint32_t procedure, const Put &arguments) {
    Writer out;
    put_header(out, program, version, procedure, who_);
    arguments(out);
    const auto answered = answer(out);
    Reply reply;
    EXPECT_TRUE(answered.reply.has_value());
    if (!answered.reply) return reply;
    const auto &record = *answered.reply;
    reply.bytes.assign(record.head.begin() + loopnfsd::kRecordMarkSize, record.head.end());
    reply.bytes.insert(reply.bytes.end(), record.bulk.bytes.get(), record.bulk.bytes.get() + record.bulk.size);
    reply.results = Reader(reply.bytes);
    EXPECT_EQ(reply.word(), kXid);
    EXPECT_EQ(reply.word(), nfstdm::rpc::kReply);
    EXPECT_EQ(reply.word(), nfstdm::rpc::kMessageAccepted);
    reply.number();  // verifier
    EXPECT_EQ(reply.word(), 0U);
    return reply;
}

Reply InMemory::nfs(Procedure procedure, const Put &arguments) {
    return call(nfstdm::nfs3::kProgram, nfstdm::nfs3::kVersion, static_cast<uint32_t>(procedure), arguments);
}

void InMemory::fault(std::string_view spec) {
    loopnfsd::Fault fault;
    ASSERT_EQ(loopnfsd::parse_fault(spec, fault), "");
    backend_->faults.add(fault);
}

Handle InMemory::root() {
    auto reply = call(nfstdm::mount3::kProgram, 3, 1, [](Writer &out) { out.put_string("/export"); });
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    return reply.handle();
}

Handle InMemory::lookup(const Handle &directory, std::string_view name) {
    auto reply = nfs(Procedure::lookup, [&](Writer &out) {
        out.put_opaque(directory);
        out.put_string(name);
    });
    EXPECT_EQ(reply.status(), NfsStatus::ok) << name;
    return reply.handle();
}

NfsStatus InMemory::lookup_status(const Handle &directory, std::string_view name) {
    return nfs(Procedure::lookup,
               [&](Writer &out) {
                   out.put_opaque(directory);
                   out.put_string(name);
               })
        .status();
}

NfsStatus InMemory::getattr_status(const Handle &handle) {
    return nfs(Procedure::getattr, [&](Writer &out) { out.put_opaque(handle); }).status();
}

Attributes InMemory::getattr(const Handle &handle) {
    auto reply = nfs(Procedure::getattr, [&](Writer &out) { out.put_opaque(handle); });
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    return get_attributes(reply);
}

Handle InMemory::create(const Handle &directory, std::string_view name) {
    auto reply = nfs(Procedure::create, [&](Writer &out) {
        out.put_opaque(directory);
        out.put_string(name);
        out.put_u32(1);  // GUARDED
        put_no_changes(out);
    });
    EXPECT_EQ(reply.status(), NfsStatus::ok) << name;
    EXPECT_EQ(reply.word(), 1U);
    return reply.handle();
}

Handle InMemory::mkdir(const Handle &directory, std::string_view name) {
    auto reply = nfs(Procedure::mkdir, [&](Writer &out) {
        out.put_opaque(directory);
        out.put_string(name);
        put_no_changes(out);
    });
    EXPECT_EQ(reply.status(), NfsStatus::ok) << name;
    EXPECT_EQ(reply.word(), 1U);
    return reply.handle();
}

NfsStatus InMemory::remove(const Handle &directory, std::string_view name) {
    return nfs(Procedure::remove,
               [&](Writer &out) {
                   out.put_opaque(directory);
                   out.put_string(name);
               })
        .status();
}

Reply InMemory::write(const Handle &file, uint64_t offset, std::string_view data, uint32_t stable) {
    return nfs(Procedure::write, [&](Writer &out) {
        out.put_opaque(file);
        out.put_u64(offset);
        out.put_u32(static_cast<uint32_t>(data.size()));
        out.put_u32(stable);
        out.put_string(data);
    });
}

uint64_t InMemory::write_verifier(const Handle &file, uint64_t offset, std::string_view data, uint32_t stable) {
    auto reply = write(file, offset, data, stable);
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    get_wcc(reply);
    EXPECT_EQ(reply.word(), data.size());
    EXPECT_EQ(reply.word(), stable);
    return reply.number();
}

uint64_t InMemory::commit(const Handle &file) {
    auto reply = nfs(Procedure::commit, [&](Writer &out) {
        out.put_opaque(file);
        out.put_u64(0);
        out.put_u32(0);
    });
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    get_wcc(reply);
    return reply.number();
}

std::string InMemory::read(const Handle &file, uint64_t offset, uint32_t count) {
    auto reply = nfs(Procedure::read, [&](Writer &out) {
        out.put_opaque(file);
        out.put_u64(offset);
        out.put_u32(count);
    });
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    get_post_op(reply);
    reply.word();  // count
    reply.word();  // eof
    return reply.text();
}

void InMemory::put_file(const std::string &name, std::string_view content) {
    std::ofstream(folder_.path / name, std::ios::binary) << content;
}

std::string InMemory::file_content(const std::string &name) {
    std::ifstream stream(folder_.path / name, std::ios::binary);
    EXPECT_TRUE(stream.is_open()) << name;
    return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace loopnfsd_test
