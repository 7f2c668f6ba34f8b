// SPDX-License-Identifier: Apache-2.0
// The loopback server's reader of requests, on a folder of the fuzzer's own. Each piece of the input is one call: a
// byte for the procedure, a byte for the handle in front of its arguments (the export's root, an object in it, or
// none), a byte for the number of the argument bytes that follow. The last piece is a whole record, header and all.
// From kCompounds on, the first byte asks for a compound of NFSv4 in a session: the argument bytes are its operations.
//
// Every call has an answer in the shape of one, and nothing outside the folder is touched.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/rpc/message/message.h"
#include "tests/fuzz/fuzz.h"
#include "tools/loopnfsd/nfs/mount.h"
#include "tools/loopnfsd/nfs/nfs.h"
#include "tools/loopnfsd/nfs/portmap.h"
#include "tools/loopnfsd/nfs4/nfs4.h"

namespace {

using fuzz::Bytes;
using fuzz::require;
using nfstdm::xdr::Reader;
using nfstdm::xdr::Writer;
namespace files = std::filesystem;

constexpr uint32_t kXid = 77;
constexpr std::size_t kCallsMaximum = 16;  // of one run
constexpr std::size_t kCompounds = 240;
constexpr uint32_t kPutFh = 22, kExchangeId = 42, kCreateSession = 43, kSequence = 53, kReclaimComplete = 58;

// An outer folder with a file that must stay as it is, and the served one in it.
class Folder {
  public:
    Folder() {
        std::string name = (files::temp_directory_path() / "loopnfsd_request_XXXXXX").string();
        require(mkdtemp(name.data()) != nullptr, "there is a place for a folder");
        outer_ = name;
        std::ofstream(outer_ / "outside") << "as it was";
    }
    ~Folder() {
        std::error_code ignored;
        files::remove_all(outer_, ignored);
    }
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;

    files::path served() const { return outer_ / "served"; }

    void make_served() const {
        files::remove_all(served());
        files::create_directories(served() / "d" / "e");
        std::ofstream(served() / "f") << "content";
        files::create_symlink("../outside", served() / "l");
    }
    void examine() const {
        const auto entries = std::distance(files::directory_iterator(outer_), files::directory_iterator());
        require(files::file_size(outer_ / "outside") == 9 && entries == 2, "nothing outside the folder is touched");
    }

  private:
    files::path outer_;
};

// A server on the folder, without a network.
struct Server {
    explicit Server(const files::path &folder) {
        require(exports.add("/export", folder, false).empty(), "the folder can be served");
        loopnfsd::Fault little_space;
        require(loopnfsd::parse_fault("capacity=1M", little_space).empty(), "the fault is one");
        faults.add(little_space);
        settings.sync = false;
    }

    loopnfsd::ServiceSettings settings;
    loopnfsd::ExportTable exports;
    loopnfsd::Faults faults;
    loopnfsd::Statistics statistics;
    loopnfsd::Tree tree{exports};
    loopnfsd::SharedFiles files{exports, tree, faults, settings};
    loopnfsd::NfsService nfs{files};
    loopnfsd::nfs4::Nfs4Service nfs4{files, {}, [](std::string_view) {}};
    loopnfsd::MountService mount{exports, tree, faults, {"group"}};
    loopnfsd::PortmapService portmap;
    loopnfsd::Dispatcher dispatcher{{&nfs, &nfs4, &mount, &portmap}, faults, statistics};
};

class Caller {
  public:
    explicit Caller(const files::path &folder) : server_(folder) {
        handles_.push_back(
            handle_in(call(nfstdm::mount3::kProgram, 3, 1, [](Writer &out) { out.put_string("/export"); })));
        for (const char *name : {"d", "f", "l"})
            handles_.push_back(handle_in(call(nfstdm::nfs3::kProgram, 3, 3, [&](Writer &out) {
                out.put_opaque(handles_[0]);
                out.put_string(name);
            })));
    }

    // Takes a piece of the input for a call.
    void call(fuzz::Input &input) {
        constexpr std::size_t kProcedures = 22, kMountProcedures = 6;
        const std::size_t first = input.byte();
        if (first >= kCompounds) return compound(input);
        const std::size_t number = first % (kProcedures + kMountProcedures + 1);
        if (number == kProcedures + kMountProcedures) {
            answer(input.bytes(input.byte()), false);
            return;
        }
        const std::size_t chosen = input.byte() % (handles_.size() + 1);
        const Bytes arguments = input.bytes(input.byte());
        const bool is_mount = number >= kProcedures;
        const auto put = [&](Writer &out) {
            if (chosen < handles_.size()) out.put_opaque(handles_[chosen]);
            out.put_fixed(arguments);
        };
        call(is_mount ? nfstdm::mount3::kProgram : nfstdm::nfs3::kProgram, 3,
             static_cast<uint32_t>(is_mount ? number - kProcedures : number), put);
    }

  private:
    using Handle = std::vector<std::byte>;

    template <class Put>
    std::vector<std::byte> call(uint32_t program, uint32_t version, uint32_t procedure, Put put) {
        Writer out;
        for (const uint32_t word : {kXid, nfstdm::rpc::kCall, nfstdm::rpc::kRpcVersion, program, version, procedure, 0U,
                                    0U, 0U, 0U})  // no credential, no verifier
            out.put_u32(word);
        put(out);
        return answer(out.bytes(), true);
    }

    // An operation that needs no session; gives where its results begin, behind status, tag, count, number and status.
    template <class Put>
    std::vector<std::byte> alone(uint32_t operation, Put put) {
        constexpr std::size_t kInFront = (6 + 5) * nfstdm::xdr::kWord;
        const auto reply = call(nfstdm::nfs3::kProgram, 4, 1, [&](Writer &out) {
            for (const uint32_t word : {0U, 1U, 1U, operation})
                out.put_u32(word);
            put(out);
        });
        require(reply.size() > kInFront, "a session can be made");
        return {reply.begin() + kInFront, reply.end()};
    }

    void begin_session() {
        const auto client = alone(kExchangeId, [](Writer &out) {
            out.put_u64(1);
            out.put_string("fuzzer");
            for (int i = 0; i < 3; ++i)
                out.put_u32(0);
        });
        const auto session = alone(kCreateSession, [&](Writer &out) {
            out.put_fixed(std::span{client}.first(nfstdm::xdr::kHyper));
            out.put_u32(1);
            out.put_u32(0);
            for (int i = 0; i < 2; ++i)
                for (const uint32_t word : {0U, 1U << 20, 1U << 20, 8192U, 64U, 1U, 0U})
                    out.put_u32(word);
            out.put_u32(0);
            out.put_u32(0);
        });
        session_.assign(session.begin(), session.begin() + loopnfsd::nfs4::kSessionIdSize);
        put_compound(kReclaimComplete, 1, [](Writer &out) { out.put_bool(false); });
    }

    // SEQUENCE and one operation more, which is the first of so many.
    template <class Put>
    void put_compound(uint32_t operation, uint32_t count, Put put) {
        call(nfstdm::nfs3::kProgram, 4, 1, [&](Writer &out) {
            for (const uint32_t word : {0U, 2U, count + 1, kSequence})
                out.put_u32(word);
            out.put_fixed(session_);
            for (const uint32_t word : {++sequence_, 0U, 0U, 1U})
                out.put_u32(word);
            out.put_u32(operation);
            put(out);
        });
    }

    void compound(fuzz::Input &input) {
        if (session_.empty()) begin_session();
        const std::size_t chosen = input.byte() % handles_.size();
        const uint32_t count = input.byte() % 8;
        const Bytes operations = input.bytes(input.byte());
        put_compound(kPutFh, count + 1, [&](Writer &out) {
            out.put_opaque(handles_[chosen]);
            out.put_fixed(operations);
        });
    }

    // The answer to a record, without its mark.
    std::vector<std::byte> answer(Bytes record, bool is_call) {
        const loopnfsd::Answer given = server_.dispatcher.answer(record, {1, 2049, "127.0.0.1"});
        require(given.reply.has_value() || !is_call, "a call is answered");
        if (!given.reply) return {};
        constexpr std::size_t kMarkSize = loopnfsd::kRecordMarkSize;
        const auto &head = given.reply->head;
        require(head.size() >= kMarkSize, "an answer has a record mark");
        Reader mark(std::span{head}.first(kMarkSize));
        uint32_t size = 0;
        require(mark.get_u32(size) && (size ^ nfstdm::rpc::kLastFragment) == given.reply->size() - kMarkSize,
                "the mark tells the size");
        std::vector<std::byte> reply(head.begin() + kMarkSize, head.end());
        const auto *bulk = given.reply->bulk.bytes.get();
        reply.insert(reply.end(), bulk, bulk + given.reply->bulk.size);
        require(reply.size() % 4 == 0, "an answer is made of words");
        const auto judged = nfstdm::rpc::read_reply_header(reply).status;
        require(judged.ok() || judged.text().find("well-formed") == std::string::npos, "an answer has a proper head");
        return reply;
    }

    static Handle handle_in(const std::vector<std::byte> &reply) {
        constexpr std::size_t kHeadAndStatus = 7 * nfstdm::xdr::kWord;
        Reader reader(reply);
        Bytes handle;
        require(reader.skip(kHeadAndStatus) && reader.get_opaque(handle, nfstdm::nfs3::kHandleMaximum),
                "the objects of the folder have handles");
        return {handle.begin(), handle.end()};
    }

    Server server_;
    std::vector<Handle> handles_;
    Handle session_;
    uint32_t sequence_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    static const Folder folder;
    folder.make_served();
    Caller caller(folder.served());
    fuzz::Input input(data, size);
    for (std::size_t calls = 0; calls < kCallsMaximum && !input.empty(); ++calls)
        caller.call(input);
    folder.examine();
    return 0;
}
