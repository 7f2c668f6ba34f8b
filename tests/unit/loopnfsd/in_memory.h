// SPDX-License-Identifier: Apache-2.0
// A server without a network: calls go in and replies come out as bytes, over a folder of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/portmap/constants.h"
#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/writer.h"
#include "tools/loopnfsd/nfs/mount.h"
#include "tools/loopnfsd/nfs/nfs.h"
#include "tools/loopnfsd/nfs/portmap.h"
#include "tools/loopnfsd/nfs4/nfs4.h"

namespace loopnfsd_test {

using nfstdm::nfs3::NfsStatus;
using nfstdm::nfs3::Procedure;
using nfstdm::xdr::Reader;
using nfstdm::xdr::Writer;

// Removed with all that is in it.
class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    std::filesystem::path path;
};

using Handle = std::vector<std::byte>;

// A reply, and a cursor in what follows its head.
struct Reply {
    std::vector<std::byte> bytes;  // without the record mark
    Reader results{{}};

    uint32_t word();
    uint64_t number();
    std::string text();
    Handle handle();
    NfsStatus status() { return static_cast<NfsStatus>(word()); }
};

struct Attributes {
    uint32_t type = 0, mode = 0, links = 0, uid = 0, gid = 0;
    uint64_t size = 0, used = 0, fsid = 0, fileid = 0;
    uint32_t mtime = 0, ctime = 0, ctime_nanoseconds = 0;
};
Attributes get_attributes(Reply &reply);                    // fattr3
std::optional<Attributes> get_post_op(Reply &reply);        // post_op_attr
std::optional<Attributes> get_wcc(Reply &reply);            // wcc_data; gives the attributes after
std::optional<uint64_t> get_wcc_size_before(Reply &reply);  // wcc_data; gives the size before

struct Identity {
    uint32_t uid = 0;
    uint32_t gid = 0;
};

void put_header(Writer &out, uint32_t program, uint32_t version, uint32_t procedure, Identity who = {});
void put_no_changes(Writer &out);  // sattr3 that sets nothing
void put_mode(Writer &out, uint32_t mode);
void put_size(Writer &out, uint64_t size);

// What all programs need, in one place.
struct Backend {
    explicit Backend(const std::filesystem::path &folder, loopnfsd::ServiceSettings settings = {},
                     bool read_only = false, bool version4 = false);

    loopnfsd::ExportTable exports;
    loopnfsd::Faults faults;
    loopnfsd::Statistics statistics;
    std::unique_ptr<loopnfsd::Tree> tree;
    std::unique_ptr<loopnfsd::SharedFiles> files;
    std::unique_ptr<loopnfsd::NfsService> nfs;
    std::unique_ptr<loopnfsd::nfs4::Nfs4Service> nfs4;
    std::unique_ptr<loopnfsd::MountService> mount;
    loopnfsd::PortmapService portmap;
    std::unique_ptr<loopnfsd::Dispatcher> dispatcher;
};

class InMemory : public testing::Test {
  protected:
    using Put = std::function<void(Writer &out)>;

    // Starts the server, or starts it again.
    void start(loopnfsd::ServiceSettings settings = {}, bool read_only = false);

    loopnfsd::Answer answer(const Writer &call);
    // A call that is answered and accepted; the cursor stands behind the accept status.
    Reply call(uint32_t program, uint32_t version, uint32_t procedure, const Put &arguments);
    Reply nfs(Procedure procedure, const Put &arguments);
    void fault(std::string_view spec);

    // Short forms of calls that succeed, or whose status alone is of interest.
    Handle root();
    Handle lookup(const Handle &directory, std::string_view name);
    NfsStatus lookup_status(const Handle &directory, std::string_view name);
    NfsStatus getattr_status(const Handle &handle);
    Attributes getattr(const Handle &handle);
    Handle create(const Handle &directory, std::string_view name);
    Handle mkdir(const Handle &directory, std::string_view name);
    NfsStatus remove(const Handle &directory, std::string_view name);
    Reply write(const Handle &file, uint64_t offset, std::string_view data, uint32_t stable = 0);
    uint64_t write_verifier(const Handle &file, uint64_t offset, std::string_view data, uint32_t stable = 0);
    uint64_t commit(const Handle &file);  // gives the verifier
    std::string read(const Handle &file, uint64_t offset, uint32_t count);

    void put_file(const std::string &name, std::string_view content);
    std::string file_content(const std::string &name);

    TemporaryFolder folder_;
    bool version4_ = false;  // serve NFSv4 beside NFSv3
    std::unique_ptr<Backend> backend_;
    Identity who_;
};

}  // namespace loopnfsd_test
