// SPDX-License-Identifier: Apache-2.0
// Writes the seeds that are not text: write_seeds FOLDER. Run it when a fuzzer reads its input in another way.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/portmap/constants.h"
#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/xdr/writer.h"
#include "tests/unit/nfs3/samples.h"
#include "tests/unit/nfs4/samples.h"

namespace {

using namespace nfstdm;
using namespace nfstdm::nfs3;
using xdr::Writer;
using Put = std::function<void(Writer &)>;

// One seed: its bytes in front, then what is put.
class Seeds {
  public:
    explicit Seeds(std::filesystem::path folder) : folder_(std::move(folder)) {}

    void write(const std::string &fuzzer, const std::string &name, std::string_view front, const Put &put) const {
        Writer writer;
        put(writer);
        std::filesystem::create_directories(folder_ / fuzzer);
        std::ofstream file(folder_ / fuzzer / name, std::ios::binary);
        file << front;
        file.write(reinterpret_cast<const char *>(writer.bytes().data()), static_cast<std::streamsize>(writer.size()));
    }

  private:
    const std::filesystem::path folder_;
};

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values)
        text += static_cast<char>(value);
    return text;
}

void put_mount(Writer &writer) {
    writer.put_u32(0);
    samples::put_handle(writer);
    writer.put_u32(2);
    writer.put_u32(1);
    writer.put_u32(390003);
}

void put_exports(Writer &writer) {
    writer.put_bool(true);
    writer.put_string("/export");
    for (const char *group : {"admin", "web"}) {
        writer.put_bool(true);
        writer.put_string(group);
    }
    writer.put_bool(false);
    writer.put_bool(false);
}

void put_link(Writer &writer) {
    samples::put_post_attributes(writer, 5);
    writer.put_string("../target");
}

void put_commit(Writer &writer) {
    samples::put_wcc(writer);
    writer.put_u64(99);
}

// One that is delivered in several pieces.
void put_many_exports(Writer &writer) {
    for (int number = 0; number < 150; ++number) {
        writer.put_bool(true);
        writer.put_string("/directory/" + std::to_string(number));
        writer.put_bool(number % 3 == 0);
        if (number % 3 == 0) {
            writer.put_string("group");
            writer.put_bool(false);
        }
    }
    writer.put_bool(false);
}

// In the order of the fuzzer's table.
void write_replies(const Seeds &seeds) {
    const std::pair<const char *, Put> kinds[] = {
        {"getattr", [](Writer &w) { samples::put_attributes(w); }},
        {"lookup", samples::put_lookup},
        {"readlink", put_link},
        {"write", [](Writer &w) { samples::put_write(w, 10, 1, 99); }},
        {"commit", put_commit},
        {"made", samples::put_made},
        {"changed", samples::put_wcc},
        {"readdir", [](Writer &w) { samples::put_directory(w, false); }},
        {"readdirplus", [](Writer &w) { samples::put_directory(w, true); }},
        {"fsstat", samples::put_fsstat},
        {"fsinfo", [](Writer &w) { samples::put_fsinfo(w); }},
    };
    int number = 0;
    for (const auto &[name, put] : kinds)
        seeds.write("nfs_reply", name, bytes({number++}), put);
    seeds.write("nfs_reply", "read", bytes({number++, 5}), [](Writer &w) {
        w.put_u32(0);
        samples::put_post_attributes(w);
        w.put_u32(5);
        w.put_bool(true);
        w.put_u32(5);
    });
    seeds.write("nfs_reply", "status", bytes({number++}), [](Writer &w) { w.put_u32(70); });
    seeds.write("nfs_reply", "mount", bytes({number++}), put_mount);
    seeds.write("nfs_reply", "export", bytes({number++}), put_exports);
    seeds.write("nfs_reply", "getport", bytes({number++}), [](Writer &w) { w.put_u32(2049); });
    seeds.write("nfs_reply", "removed", bytes({number++}), samples::put_wcc);
}

void put_result(Writer &writer, nfs4::Op op) {
    writer.put_u32(static_cast<uint32_t>(op));
    writer.put_u32(0);
}

void put_compound(Writer &writer, uint32_t operations) {
    writer.put_u32(0);
    writer.put_string("");
    writer.put_u32(operations);
    put_result(writer, nfs4::Op::sequence);
    nfs4::samples::put_sequence(writer, {}, 1, 0, 64);
    put_result(writer, nfs4::Op::putfh);
}

void put_found(Writer &writer) {
    put_compound(writer, 5);
    put_result(writer, nfs4::Op::lookup);
    put_result(writer, nfs4::Op::getfh);
    writer.put_string("handle");
    put_result(writer, nfs4::Op::getattr);
    nfs4::samples::put_attributes(writer, nfs4::object_attributes());
}

void put_entries(Writer &writer) {
    writer.put_u64(9);
    writer.put_bool(true);
    writer.put_u64(3);
    writer.put_string("name");
    nfs4::samples::put_attributes(writer, {nfs4::Attribute::type, nfs4::Attribute::filehandle});
    writer.put_bool(false);
    writer.put_bool(true);
}

// In the order of the fuzzer's table.
void write_version4(const Seeds &seeds) {
    using namespace nfs4::samples;
    const std::pair<const char *, Put> kinds[] = {
        {"getattr", [](Writer &w) { nfs4::samples::put_attributes(w, nfs4::object_attributes()); }},
        {"exchange", [](Writer &w) { put_exchange_id(w, 7, true); }},
        {"session", [](Writer &w) { put_create_session(w, {}, 1 << 20, 64); }},
        {"sequence", [](Writer &w) { put_sequence(w, {}, 1, 2, 64); }},
        {"open", [](Writer &w) { put_open(w, state_id(1)); }},
        {"readlink", [](Writer &w) { w.put_string("../target"); }},
        {"write", [](Writer &w) { w.put_u32(10), w.put_u32(2), w.put_u64(99); }},
        {"commit", [](Writer &w) { w.put_u64(99); }},
        {"flavours", [](Writer &w) { w.put_u32(1), w.put_u32(6), w.put_string("oid"), w.put_u32(0), w.put_u32(1); }},
        {"getfh", [](Writer &w) { w.put_string("handle"); }},
        {"close", [](Writer &w) { nfs4::put_state_id(w, state_id(1)); }},
        {"created", [](Writer &w) { put_change(w), w.put_u32(0); }},
        {"set", [](Writer &w) { w.put_u32(1), w.put_u32(16); }},
        {"removed", [](Writer &w) { put_change(w); }},
        {"bound", [](Writer &w) { w.put_fixed(nfs4::SessionId{}), w.put_u32(1), w.put_u32(0); }},
        {"readdir", put_entries},
        {"read", [](Writer &w) { w.put_bool(true), w.put_string("data"); }},
        {"found", put_found},
    };
    int number = 0;
    for (const auto &[name, put] : kinds)
        seeds.write("nfs4_reply", name, bytes({number++}), put);
    seeds.write("nfs4_reply", "position", bytes({number++}), [](Writer &w) {
        put_compound(w, 3);
        put_result(w, nfs4::Op::read);
        w.put_bool(true);
        w.put_string("12345678");
    });
}

// A record, in two fragments when the first has bytes; what is put is the reply behind its xid.
void put_record(Writer &writer, uint32_t xid, const Put &put, std::size_t first = 0) {
    Writer reply;
    reply.put_u32(xid);
    reply.put_u32(rpc::kReply);
    put(reply);
    const auto all = reply.bytes();
    if (first > 0) {
        writer.put_u32(static_cast<uint32_t>(first));
        writer.put_fixed(all.first(first));
    }
    writer.put_u32(rpc::kLastFragment | static_cast<uint32_t>(all.size() - first));
    writer.put_fixed(all.subspan(first));
}

void put_accepted(Writer &writer) {
    for (const uint32_t word : {rpc::kMessageAccepted, rpc::kAuthNone, 0U, 0U})
        writer.put_u32(word);
}

void put_read(Writer &writer) {
    put_accepted(writer);
    writer.put_u32(0);
    samples::put_read(writer, "hello, this is data", true);
}

void write_streams(const Seeds &seeds) {
    const auto plain = [](Writer &w) {
        put_accepted(w);
        w.put_u64(42);
    };
    seeds.write("rpc_reply", "plain", bytes({4, 0}), [&](Writer &w) { put_record(w, 1, plain); });
    seeds.write("rpc_reply", "read", bytes({6, 0}), [](Writer &w) { put_record(w, 2, put_read); });
    seeds.write("rpc_reply", "given-up", bytes({6, 60}), [](Writer &w) { put_record(w, 2, put_read); });
    seeds.write("rpc_reply", "fragments", bytes({2, 0}), [](Writer &w) { put_record(w, 2, put_read, 28); });
    seeds.write("rpc_reply", "denied", bytes({63, 0}), [](Writer &w) {
        put_record(w, 1, [](Writer &reply) {
            for (const uint32_t word : {rpc::kMessageDenied, 1U, 5U})
                reply.put_u32(word);
        });
    });
    seeds.write("rpc_reply", "mismatch", bytes({63, 0}), [](Writer &w) {
        put_record(w, 3, [](Writer &reply) {
            for (const uint32_t word : {rpc::kMessageAccepted, rpc::kAuthSys, 4U, 0U, 2U, 2U, 4U})
                reply.put_u32(word);
        });
    });
    seeds.write("rpc_reply", "several", bytes({9, 0}), [&](Writer &w) {
        put_record(w, 9, plain);
        put_record(w, 3, plain);
        put_record(w, 2, put_read);
        put_record(w, 1, plain);
    });
}

// What a session asks for, and the replies to it, each behind its status.
void write_session(const Seeds &seeds, const std::string &name, int call, std::initializer_list<Put> replies) {
    seeds.write("hostile_server", name, bytes({call, 3, 3, 3, 3, 3, 3, 3}), [&](Writer &w) {
        w.put_u32(0);  // of the first contact
        samples::put_handle(w, "root");
        samples::put_fsinfo(w);
        w.put_u32(0);
        samples::put_attributes(w, 2);
        for (const Put &put : replies) {
            w.put_u32(0);
            put(w);
        }
    });
}

void write_sessions(const Seeds &seeds) {
    const Put lookup_directory = [](Writer &w) {
        samples::put_handle(w, "directory");
        samples::put_post_attributes(w, 2);
        w.put_bool(false);
    };
    const Put names = [](Writer &w) { samples::put_directory(w, true); };
    const Put more = [](Writer &w) {
        w.put_bool(false);
        w.put_u64(1);
        for (uint64_t cookie = 3; cookie < 6; ++cookie)
            samples::put_entry(w, cookie, std::string(1, static_cast<char>('a' + cookie)), true);
        w.put_bool(false);
        w.put_bool(false);  // not the end
    };
    const Put harmful = [](Writer &w) {
        w.put_bool(false);
        w.put_u64(1);
        uint64_t cookie = 1;
        for (const char *name : {"..", "", "a/b", "/etc/passwd", "../up", ".", "good"}) {
            samples::put_entry(w, cookie++, name, false);
            w.put_bool(false);  // neither attributes nor a handle
            w.put_bool(false);
        }
        w.put_bool(false);
        w.put_bool(true);
    };
    const Put data = [](Writer &w) {
        samples::put_post_attributes(w);
        w.put_u32(1000);
        w.put_bool(true);
        w.put_u32(1000);
    };
    const Put written = [](Writer &w) { samples::put_write(w, 3000, 0, 99); };
    write_session(seeds, "list", 0, {lookup_directory, more, names});
    write_session(seeds, "list-root", 11, {names});
    write_session(seeds, "list-harmful", 11, {harmful});
    write_session(seeds, "read", 1, {lookup_directory, samples::put_lookup, data, data});
    write_session(seeds, "write", 2,
                  {lookup_directory, samples::put_made, written, written, written, put_commit, data, samples::put_wcc,
                   put_commit, put_commit});
    write_session(seeds, "link", 3, {samples::put_lookup, put_link});
    write_session(seeds, "attributes", 4, {lookup_directory, samples::put_lookup});
    write_session(seeds, "mkdir", 5, {lookup_directory, samples::put_made});
    write_session(seeds, "rmdir", 6, {lookup_directory, samples::put_wcc});
    write_session(seeds, "delete", 7, {lookup_directory, samples::put_wcc});
    write_session(seeds, "fsinfo", 8, {[](Writer &w) { samples::put_fsinfo(w); }});
    write_session(seeds, "fsstat", 9, {lookup_directory, samples::put_fsstat});
    write_session(seeds, "setattr", 10, {lookup_directory, samples::put_lookup, samples::put_wcc});
}

// One call of the loopback server: procedure, handle (0 the root, 1 a directory, 2 a file, 3 a link, 4 none),
// arguments.
void write_request(const Seeds &seeds, const std::string &name, int procedure, int handle, const Put &put) {
    Writer arguments;
    put(arguments);
    seeds.write("loopnfsd_request", name, bytes({procedure, handle, static_cast<int>(arguments.size())}), put);
}

void write_requests(const Seeds &seeds) {
    const Put nothing = [](Writer &) {};
    const Put name = [](Writer &w) { w.put_string("name"); };
    const Put no_changes = [](Writer &w) {
        for (int word = 0; word < 6; ++word)
            w.put_u32(0);
    };
    const Put range = [](Writer &w) {
        w.put_u64(2);
        w.put_u32(100);
    };
    write_request(seeds, "getattr", 1, 0, nothing);
    write_request(seeds, "setattr", 2, 2, [&](Writer &w) {
        no_changes(w);
        w.put_bool(false);
    });
    write_request(seeds, "lookup", 3, 0, name);
    write_request(seeds, "access", 4, 1, [](Writer &w) { w.put_u32(63); });
    write_request(seeds, "readlink", 5, 3, nothing);
    write_request(seeds, "read", 6, 2, range);
    write_request(seeds, "write", 7, 2, [&](Writer &w) {
        w.put_u64(2);
        w.put_u32(4);
        w.put_u32(2);
        w.put_string("data");
    });
    write_request(seeds, "create", 8, 1, [&](Writer &w) {
        name(w);
        w.put_u32(0);
        no_changes(w);
    });
    write_request(seeds, "mkdir", 9, 0, [&](Writer &w) {
        name(w);
        no_changes(w);
    });
    write_request(seeds, "symlink", 10, 0, [&](Writer &w) {
        name(w);
        no_changes(w);
        w.put_string("../../outside");
    });
    write_request(seeds, "mknod", 11, 0, [&](Writer &w) {
        name(w);
        w.put_u32(7);
        no_changes(w);
    });
    write_request(seeds, "remove", 12, 0, [](Writer &w) { w.put_string("f"); });
    write_request(seeds, "rmdir", 13, 1, [](Writer &w) { w.put_string("e"); });
    write_request(seeds, "readdir", 16, 0, [](Writer &w) {
        w.put_u64(0);
        w.put_u64(0);
        w.put_u32(4096);
    });
    write_request(seeds, "readdirplus", 17, 0, [](Writer &w) {
        w.put_u64(0);
        w.put_u64(0);
        w.put_u32(4096);
        w.put_u32(8192);
    });
    write_request(seeds, "fsinfo", 19, 0, nothing);
    write_request(seeds, "commit", 21, 2, range);
    write_request(seeds, "mnt", 23, 4, [](Writer &w) { w.put_string("/export/d"); });
    write_request(seeds, "export", 27, 4, nothing);
    seeds.write("loopnfsd_request", "record", bytes({28, 60}), [](Writer &w) {
        for (const uint32_t word : {5U, rpc::kCall, rpc::kRpcVersion, portmap::kProgram, portmap::kVersion,
                                    portmap::kProcGetPort, 0U, 0U, 0U, 0U, kProgram, kVersion, 6U, 0U})
            w.put_u32(word);
    });
}

}  // namespace

int main(int count, char **words) {
    if (count != 2) {
        static_cast<void>(std::fputs("usage: write_seeds FOLDER\n", stderr));
        return 2;
    }
    const Seeds seeds(words[1]);
    seeds.write("export_list", "two-groups", "", put_exports);
    seeds.write("export_list", "many", "", put_many_exports);
    write_replies(seeds);
    write_version4(seeds);
    write_streams(seeds);
    write_sessions(seeds);
    write_requests(seeds);
    return 0;
}
