// SPDX-License-Identifier: Apache-2.0
// The C face, with servers in memory in the place of the protocol.
#include "include/tdm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <stdexcept>
#include <thread>

#include "nfstdm/tdm/volume_factory.h"
#include "tests/support/allocation_faults.h"
#include "tests/unit/files/fake_volume.h"

namespace {
unsigned umask_calls = 0;
}

// Stands before the C library's, to count.
extern "C" mode_t umask(mode_t mask) noexcept {
    ++umask_calls;
    return static_cast<mode_t>(::syscall(SYS_umask, mask));
}

TdmFailureListener *tdm_failure_listener = nullptr;

namespace nfstdm {
namespace {

using test::FakeServer;
using test::FakeVolume;
using test::Op;
using test::pattern;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

FakeServer *the_server = nullptr;
std::function<void()> on_open;
const Trace *protocol_trace = nullptr;

}  // namespace

VolumeFactory protocol_volume_factory(const Trace &trace) {
    protocol_trace = &trace;
    return [](EventLoop &loop, const ServerConfig &, const ServerExport &) -> std::unique_ptr<Volume> {
        if (on_open) on_open();
        return std::make_unique<FakeVolume>(loop, *the_server);
    };
}

namespace {

// Sets an environment variable, and takes it back.
class Environment {
  public:
    Environment(const char *name, const std::string &value) : name_(name) { setenv(name, value.c_str(), 1); }
    ~Environment() { unsetenv(name_); }
    Environment(const Environment &) = delete;
    Environment &operator=(const Environment &) = delete;

  private:
    const char *name_;
};

class TdmTest : public ::testing::Test {
  protected:
    TdmTest() {
        the_server = &server_;
        char name[] = "/tmp/tdm_test_XXXXXX";
        home_ = mkdtemp(name);
        std::filesystem::create_directory(home_ + "/dbs");
        std::ofstream(home_ + "/dbs/tslnfstab") << "server: one\nexport: /e mount: /mnt/one\n";
    }
    ~TdmTest() override {
        if (ctx_ != nullptr) tdm_fini(ctx_);
        tdm_tslinit(nullptr);
        for (const uint32_t event : {TDM_TRACE_KGTDM, TDM_TRACE_NFCORE, TDM_TRACE_SNFCORE, TDM_TRACE_NFCORE_MASK})
            tdm_trace(event, 0);
        on_open = nullptr;
        std::filesystem::remove_all(home_);
    }

    uint32_t discover() {
        uint32_t version = TDM_INTERFACE_VERSION;
        return tdm_discover(&version, &handle_, description_, sizeof description_, &block_size_, &extra_);
    }
    void open() {
        const Environment home("TESSEL_HOME", home_);
        ASSERT_EQ(discover(), 0U);
        ASSERT_EQ(tdm_registerthread(handle_, 0, 1, 0, "tslwnfs", 0), 0U);
        ASSERT_EQ(tdm_init(handle_, &ctx_), 0U);
    }
    uint32_t identify(const char *path) {
        return tdm_identify(ctx_, path, 0, 2, &code_, text_, sizeof text_, &info_, 0);
    }
    uint32_t create(const char *path, uint64_t size) {
        return tdm_create(ctx_, path, size, 2, 2, text_, sizeof text_, &info_);
    }
    TdmIoRequest request(uint8_t operation, uint64_t offset, std::span<std::byte> data) const {
        TdmIoRequest request{};
        request.operation = operation;
        request.flags = TDM_IO_FLAGS;
        request.file = info_.file;
        request.offset = offset;
        request.buffer = data.data();
        request.count = static_cast<uint32_t>(data.size());
        return request;
    }
    uint32_t submit(TdmIoRequest *request) { return tdm_io(ctx_, &request, 1, nullptr, 0, nullptr, 0, 0, 0, &count_); }
    uint32_t reap(TdmIoRequest *request, uint32_t timeout = TDM_WAIT_FOREVER) {
        return tdm_io(ctx_, nullptr, 0, nullptr, 0, &request, 1, 0, timeout, &count_);
    }
    uint32_t barrier() { return tdm_io(ctx_, nullptr, 0, nullptr, 0, nullptr, 0, 0, 0, &count_); }
    uint32_t write(uint64_t offset, std::span<std::byte> data) {
        auto one = request(TDM_IO_WRITE, offset, data);
        const uint32_t submitted = submit(&one);
        return submitted != 0 ? submitted : reap(&one);
    }

    FakeServer server_;
    std::string home_;
    void *handle_ = nullptr;
    void *ctx_ = nullptr;
    char description_[TDM_TEXT_SIZE] = {};
    uint32_t block_size_ = 0;
    uint32_t extra_ = 9;
    uint32_t code_ = 0;
    uint32_t count_ = 77;
    uint32_t location_ = 99;
    char text_[TDM_TEXT_SIZE] = {};
    TdmFileInfo info_{};
    TdmAttributes attributes_{};
};

// Runs a check in a forked child, and gives its verdict.
bool holds_in_child(const std::function<bool()> &check) {
    const pid_t child = fork();
    if (child == 0) _exit(check() ? 0 : 1);
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// ---- start and end

TEST_F(TdmTest, DiscoveryNamesTheLibraryAndItsVersion) {
    EXPECT_EQ(discover(), 0U);
    EXPECT_STREQ(description_, "Wren NFS client library " TSLWNFS_VERSION);
    EXPECT_EQ(block_size_, 1U);
    EXPECT_EQ(extra_, 0U);
    uint32_t version = 3;
    EXPECT_NE(tdm_discover(&version, &handle_, description_, 5, &block_size_, nullptr), 0U);
    version = 4;
    EXPECT_EQ(tdm_discover(&version, &handle_, description_, 5, &block_size_, nullptr), 0U);
    EXPECT_STREQ(description_, "Wren") << "cut to the buffer";
}

TEST_F(TdmTest, TheBlockSizeIsOneUnlessAPositiveNumberIsSet) {
    for (const auto &[setting, size] : std::map<std::string, uint32_t>{
             {"512", 512}, {"1", 1}, {"", 1}, {"0", 1}, {"-512", 1}, {"512k", 1}, {"99999999999", 1}}) {
        const Environment block_size("NFSTDM_BLOCK_SIZE", setting);
        EXPECT_EQ(discover(), 0U);
        EXPECT_EQ(block_size_, size) << setting;
    }
}

TEST_F(TdmTest, OpeningASessionContactsNoServer) {
    open();
    EXPECT_EQ(server_.total_calls(), 0U);
    EXPECT_EQ(tdm_getattr(ctx_, "/local", &attributes_, &location_), 0U);
    EXPECT_EQ(server_.total_calls(), 0U);
}

TEST_F(TdmTest, ASessionThatIsClosedOrWasNeverOpenIsRefusedAndHarmless) {
    EXPECT_EQ(tdm_fini(nullptr), uint32_t{EINVAL});
    open();
    EXPECT_EQ(tdm_fini(ctx_), 0U);
    EXPECT_EQ(tdm_fini(ctx_), uint32_t{EINVAL});
    EXPECT_EQ(tdm_getattr(ctx_, "/mnt/one", &attributes_, &location_), uint32_t{EINVAL});
    EXPECT_EQ(location_, uint32_t{TDM_LOCATION_FAILED});
    EXPECT_EQ(identify("/mnt/one/f"), uint32_t{EINVAL});
    EXPECT_EQ(code_, uint32_t{TDM_IDENTIFIED_FAILED});
    EXPECT_EQ(barrier(), uint32_t{EINVAL});
    ctx_ = nullptr;
}

TEST_F(TdmTest, ClosingTheSessionBringsAcceptedWritesToStableStorageAndLeavesTheServer) {
    open();
    ASSERT_EQ(create("/mnt/one/f", 0), 0U);
    auto data = pattern(100);
    ASSERT_EQ(write(0, data), 0U);
    EXPECT_EQ(tdm_fini(ctx_), 0U);
    ctx_ = nullptr;
    EXPECT_EQ(server_.at("/f").stable, data);
    EXPECT_EQ(server_.calls[Op::detach], 1U);
}

TEST_F(TdmTest, ClosingTheSessionTellsWritesThatFailed) {
    open();
    ASSERT_EQ(create("/mnt/one/f", 0), 0U);
    auto data = pattern(100);
    ASSERT_EQ(write(0, data), 0U);
    server_.fail_next(Op::write, ENOSPC);
    EXPECT_EQ(tdm_fini(ctx_), uint32_t{ENOSPC});
    ctx_ = nullptr;
}

TEST_F(TdmTest, RequestsUnderWayHaveCompletedWhenTheSessionIsClosed) {
    open();
    server_.add_file("/f", pattern(1000));
    ASSERT_EQ(identify("/mnt/one/f"), 0U);
    std::vector<std::byte> buffer(1000);
    auto read = request(TDM_IO_READ, 0, buffer);
    ASSERT_EQ(submit(&read), 0U);
    EXPECT_EQ(tdm_fini(ctx_), 0U);
    ctx_ = nullptr;
    EXPECT_EQ(buffer, server_.at("/f").data);
}

TEST_F(TdmTest, AnotherThreadIsRefusedAsLongAsASessionIsOpen) {
    open();
    std::thread([this] {
        EXPECT_EQ(tdm_getattr(ctx_, "/mnt/one", &attributes_, &location_), uint32_t{EPERM});
        EXPECT_EQ(location_, uint32_t{TDM_LOCATION_FAILED});
        EXPECT_EQ(identify("/mnt/one/f"), uint32_t{EPERM});
        EXPECT_EQ(code_, uint32_t{TDM_IDENTIFIED_FAILED});
        EXPECT_EQ(barrier(), uint32_t{EPERM});
        void *second = nullptr;
        EXPECT_EQ(tdm_init(handle_, &second), uint32_t{EPERM});
        EXPECT_EQ(tdm_tslinit(nullptr), uint32_t{EPERM});
        EXPECT_EQ(tdm_fini(ctx_), uint32_t{EPERM});
    }).join();
    EXPECT_EQ(server_.total_calls(), 0U);
    EXPECT_EQ(tdm_getattr(ctx_, "/mnt/one", &attributes_, &location_), 0U) << "the session is as it was";
}

TEST_F(TdmTest, AfterTheLastSessionAnotherThreadMayOpenOne) {
    open();
    ASSERT_EQ(tdm_fini(ctx_), 0U);
    std::thread([this] {
        open();
        EXPECT_EQ(tdm_getattr(ctx_, "/mnt/one", &attributes_, &location_), 0U);
        EXPECT_EQ(tdm_fini(ctx_), 0U);
    }).join();
    ctx_ = nullptr;
    EXPECT_EQ(discover(), 0U);
}

TEST_F(TdmTest, AForkedChildGoesOnWithASessionOfItsOwn) {
    server_.add_file("/f", pattern(10));
    open();
    ASSERT_EQ(identify("/mnt/one/f"), 0U);
    const auto attached = server_.calls[Op::attach];
    EXPECT_TRUE(holds_in_child([&] {
        return identify("/mnt/one/f") == 0 && server_.calls[Op::attach] == attached + 1 &&
               server_.calls[Op::detach] == 0 && tdm_fini(ctx_) == 0 && server_.calls[Op::detach] == 1;
    }));
    std::vector<std::byte> buffer(10);
    auto read = request(TDM_IO_READ, 0, buffer);
    ASSERT_EQ(submit(&read), 0U);
    EXPECT_EQ(reap(&read), 0U);
    EXPECT_EQ(buffer, server_.at("/f").data);
}

TEST_F(TdmTest, AForkedChildIsRefusedTheIdentifiersAndRequestsOfItsParent) {
    server_.add_file("/f", pattern(10));
    open();
    ASSERT_EQ(identify("/mnt/one/f"), 0U);
    std::vector<std::byte> buffer(10);
    auto read = request(TDM_IO_READ, 0, buffer);
    ASSERT_EQ(submit(&read), 0U);
    EXPECT_TRUE(holds_in_child([&] {
        const uint64_t parents = info_.file;
        return tdm_commit(ctx_, parents) == EBADF && reap(&read) == EINVAL && submit(&read) == EBADF &&
               identify("/mnt/one/f") == 0 && info_.file != parents && tdm_unidentify(ctx_, parents) == EBADF;
    }));
    EXPECT_EQ(reap(&read), 0U);
}

TEST_F(TdmTest, WritesThatAParentHasAcceptedAreNotTheChilds) {
    open();
    ASSERT_EQ(create("/mnt/one/f", 0), 0U);
    auto data = pattern(100);
    ASSERT_EQ(write(0, data), 0U);
    EXPECT_TRUE(holds_in_child([&] {
        const auto writes = server_.calls[Op::write];
        return tdm_fini(ctx_) == 0 && server_.calls[Op::write] == writes && server_.calls[Op::detach] == 0;
    }));
    EXPECT_EQ(barrier(), 0U);
    EXPECT_EQ(server_.at("/f").stable, data);
}

TEST_F(TdmTest, AForkedChildLearnsWhatItsParentKnowsWithoutAQuestion) {
    server_.add_directory("/d");
    server_.add_file("/d/f", pattern(10));
    open();
    ASSERT_EQ(tdm_getattr(ctx_, "/mnt/one/d/f", &attributes_, &location_), 0U);
    std::vector<char> record(4096);
    uint32_t size = 0;
    const auto calls = server_.total_calls();
    ASSERT_EQ(tdm_known(ctx_, "/mnt/one/d/f", record.data(), 4096, &size), 0U);
    EXPECT_GT(size, 0U);
    EXPECT_EQ(server_.total_calls(), calls);
    EXPECT_TRUE(holds_in_child([&] {
        TdmAttributes seen{};
        const auto asked = server_.calls[Op::lookup] + server_.calls[Op::getattr];
        return tdm_learn(ctx_, record.data(), size) == 0 && server_.total_calls() == calls &&
               tdm_getattr(ctx_, "/mnt/one/d/f", &seen, &location_) == 0 && seen.file_id == attributes_.file_id &&
               server_.calls[Op::lookup] + server_.calls[Op::getattr] == asked;
    }));
}

// Beside it others make files in the same directories.
TEST_F(TdmTest, AForkedChildTakesAListingForWhatItIsWhileOthersChangeTheDirectory) {
    open();
    EXPECT_TRUE(holds_in_child([&] {
        const auto make = [&](int first) {
            for (int i = first; i < first + 10; ++i) {
                const std::string path = "/mnt/one/f" + std::to_string(i);
                if (identify(path.c_str()) != ENOENT || create(path.c_str(), 0) != 0) return false;
            }
            return true;
        };
        if (!make(0)) return false;
        const auto lookups = server_.calls[Op::lookup];
        server_.add_file("/theirs");
        return make(10) && server_.calls[Op::lookup] == lookups;
    }));
}

TEST_F(TdmTest, WhatIsLearntHoldsNoLongerThanWhereItCameFrom) {
    server_.add_file("/f", pattern(10));
    open();
    ASSERT_EQ(tdm_getattr(ctx_, "/mnt/one/f", &attributes_, &location_), 0U);
    std::vector<char> record(4096);
    uint32_t size = 0;
    ASSERT_EQ(tdm_known(ctx_, "/mnt/one/f", record.data(), 4096, &size), 0U);
    ASSERT_EQ(barrier(), 0U);
    uint32_t nothing = 99;
    EXPECT_EQ(tdm_known(ctx_, "/mnt/one/f", record.data() + size, 10, &nothing), 0U);
    EXPECT_EQ(nothing, 0U) << "all of it was forgotten";
    ASSERT_EQ(tdm_getattr(ctx_, "/mnt/one/f", &attributes_, &location_), 0U);
    const auto asked = server_.calls[Op::lookup];
    ASSERT_EQ(tdm_learn(ctx_, record.data(), size), 0U);
    EXPECT_EQ(tdm_getattr(ctx_, "/mnt/one/f", &attributes_, &location_), 0U);
    EXPECT_EQ(server_.calls[Op::lookup], asked) << "what is younger here stays";
}

TEST_F(TdmTest, WhatIsNoRecordIsNotLearnt) {
    server_.add_file("/f", pattern(10));
    open();
    ASSERT_EQ(tdm_getattr(ctx_, "/mnt/one/f", &attributes_, &location_), 0U);
    std::vector<char> record(4096);
    uint32_t size = 0;
    ASSERT_EQ(tdm_known(ctx_, "/mnt/one/f", record.data(), 10, &size), 0U);
    EXPECT_EQ(size, 0U) << "there was no room";
    ASSERT_EQ(tdm_known(ctx_, "/mnt/one/f", record.data(), 4096, &size), 0U);
    EXPECT_EQ(tdm_learn(ctx_, record.data(), 0), uint32_t{EINVAL});
    EXPECT_EQ(tdm_learn(ctx_, record.data(), size - 1), uint32_t{EINVAL});
    EXPECT_EQ(tdm_learn(ctx_, nullptr, size), uint32_t{EINVAL});
    std::fill_n(record.begin(), 8, '\xff');  // there are not so many mounts
    EXPECT_EQ(tdm_learn(ctx_, record.data(), size), uint32_t{EINVAL});
}

TEST_F(TdmTest, TheThreadThatForkedIsTheChilds) {
    open();
    std::thread([this] {
        EXPECT_TRUE(holds_in_child([&] { return tdm_getattr(ctx_, "/mnt/one", &attributes_, &location_) == 0; }));
    }).join();
}

TEST_F(TdmTest, AConfigurationThatCannotBeReadFailsPathsInsteadOfMakingThemLocal) {
    std::filesystem::remove(home_ + "/dbs/tslnfstab");
    std::filesystem::create_directory(home_ + "/dbs/tslnfstab");
    open();
    EXPECT_EQ(identify("/mnt/one/f"), uint32_t{EISDIR});
    EXPECT_THAT(text_, HasSubstr("tslnfstab"));
    EXPECT_EQ(tdm_getattr(ctx_, "/anything", &attributes_, &location_), uint32_t{EISDIR});
    EXPECT_EQ(location_, uint32_t{TDM_LOCATION_FAILED});
}

TEST_F(TdmTest, WithoutAConfigurationEveryPathIsLocal) {
    std::filesystem::remove(home_ + "/dbs/tslnfstab");
    open();
    EXPECT_EQ(identify("/mnt/one/f"), 0U);
    EXPECT_EQ(code_, uint32_t{TDM_IDENTIFIED_LOCAL});
    EXPECT_NE(create("/mnt/one/f", 0), 0U);
}

TEST_F(TdmTest, ExceptionsEndInANumber) {
    open();
    on_open = [] { throw std::bad_alloc(); };
    EXPECT_EQ(identify("/mnt/one/f"), uint32_t{ENOMEM});
    EXPECT_EQ(code_, uint32_t{TDM_IDENTIFIED_FAILED});
    on_open = [] { throw std::runtime_error("broken"); };
    EXPECT_EQ(tdm_getattr(ctx_, "/mnt/one/f", &attributes_, &location_), uint32_t{EIO});
    EXPECT_EQ(location_, uint32_t{TDM_LOCATION_FAILED});
    on_open = nullptr;
    EXPECT_EQ(tdm_getattr(ctx_, "/mnt/one", &attributes_, &location_), 0U) << "the session stays usable";
}

TEST_F(TdmTest, MissingArgumentsAreRefused) {
    open();
    EXPECT_EQ(tdm_getattr(ctx_, nullptr, &attributes_, &location_), uint32_t{EINVAL});
    EXPECT_EQ(tdm_getattr(ctx_, "", &attributes_, &location_), uint32_t{EINVAL});
    EXPECT_EQ(tdm_getattr(ctx_, "/mnt/one", nullptr, &location_), uint32_t{EINVAL});
    EXPECT_EQ(tdm_getattr(ctx_, "/mnt/one", &attributes_, nullptr), uint32_t{EINVAL});
    EXPECT_EQ(tdm_identify(ctx_, "/mnt/one/f", 0, 2, nullptr, nullptr, 0, &info_, 0), uint32_t{EINVAL});
    EXPECT_EQ(tdm_create(ctx_, "/mnt/one/f", 0, 2, 2, nullptr, 0, nullptr), uint32_t{EINVAL});
    EXPECT_EQ(tdm_resize(ctx_, 12345, 0), uint32_t{EBADF});
    EXPECT_EQ(tdm_commit(ctx_, 0), uint32_t{EBADF});
    EXPECT_EQ(tdm_init(nullptr, &ctx_), uint32_t{EINVAL});
    EXPECT_EQ(tdm_registerthread(nullptr, 0, 1, 0, "x", 0), uint32_t{EINVAL});
    EXPECT_EQ(server_.total_calls(), 0U);
}

// ---- files and paths

TEST_F(TdmTest, IdentifyFillsTheRecordAndTellsFailuresInWords) {
    open();
    server_.add_file("/f", pattern(123));
    server_.add_directory("/d");
    EXPECT_EQ(identify("/mnt/one/f"), 0U);
    EXPECT_EQ(code_, uint32_t{TDM_IDENTIFIED_REMOTE});
    EXPECT_EQ(info_.size, 123U);
    EXPECT_NE(info_.file, 0U);
    EXPECT_EQ(info_.preferred_io_alignment, 1U);
    EXPECT_EQ(info_.permitted, 0x1 | 0x2 | 0x8 | 0x10);
    EXPECT_EQ(info_.mirror_sides, 1U);
    EXPECT_EQ(info_.reserved, 0U);
    EXPECT_EQ(identify("/mnt/one/d"), 21U);
    EXPECT_EQ(code_, uint32_t{TDM_IDENTIFIED_FAILED});
    EXPECT_EQ(identify("/mnt/one/none"), 2U);
    EXPECT_THAT(text_, HasSubstr("/mnt/one/none"));
    EXPECT_EQ(identify("/local"), 0U);
    EXPECT_EQ(code_, uint32_t{TDM_IDENTIFIED_LOCAL});
}

TEST_F(TdmTest, CreateTellsTheNameOrTheReason) {
    open();
    EXPECT_EQ(create("/mnt/one/f", 700), 0U);
    EXPECT_STREQ(text_, "/mnt/one/f");
    EXPECT_EQ(info_.size, 0U);
    server_.fail_next(Op::create, EROFS);
    EXPECT_EQ(create("/mnt/one/g", 0), 30U);
    EXPECT_STREQ(text_, "/mnt/one/g: server one: planned failure");
    EXPECT_NE(create("/local", 0), 0U);
    EXPECT_THAT(text_, HasSubstr("/local"));
}

TEST_F(TdmTest, ReidentifyChangesNothingButTheIdentifier) {
    open();
    ASSERT_EQ(create("/mnt/one/f", 700), 0U);
    ASSERT_EQ(tdm_resize(ctx_, info_.file, 900), 0U);
    TdmFileInfo info;
    std::memset(&info, 0xab, sizeof info);
    EXPECT_EQ(tdm_reidentify(ctx_, info_.file, 0, &info), 0U);
    TdmFileInfo expected;
    std::memset(&expected, 0xab, sizeof expected);
    expected.file = info_.file;
    EXPECT_EQ(std::memcmp(&info, &expected, sizeof info), 0);
    EXPECT_EQ(tdm_commit(ctx_, info.file), 0U);
    EXPECT_EQ(tdm_unidentify(ctx_, info.file), 0U);
    EXPECT_EQ(tdm_reidentify(ctx_, info_.file, 0, &info), uint32_t{EBADF});
}

TEST_F(TdmTest, DeletingBringsAcceptedWritesToStableStorageFirst) {
    open();
    server_.add_file("/source");
    ASSERT_EQ(create("/mnt/one/f", 0), 0U);
    auto data = pattern(3 << 20);
    ASSERT_EQ(write(0, data), 0U);
    EXPECT_EQ(tdm_delete(ctx_, "/mnt/one/source", &location_), 0U);
    EXPECT_EQ(location_, uint32_t{TDM_LOCATION_REMOTE});
    ASSERT_GE(server_.log.size(), 2U);
    EXPECT_EQ(server_.log.back(), "REMOVE source");
    EXPECT_EQ(server_.log[server_.log.size() - 2], "COMMIT");
    EXPECT_EQ(server_.at("/f").stable, data);
}

TEST_F(TdmTest, NoDeletionIsBegunOfAnOpenFileOrBeforeAllIsWritten) {
    open();
    for (const char *name : {"/source", "/open"})
        server_.add_file(name);
    for (const char *path : {"/mnt/one/source", "/mnt/one/open"})
        ASSERT_EQ(tdm_getattr(ctx_, path, &attributes_, &location_), 0U);
    ASSERT_EQ(identify("/mnt/one/open"), 0U);
    EXPECT_EQ(tdm_expect(ctx_, "/mnt/one/open", TDM_EXPECT_DELETE), uint32_t{ENOTSUP});
    EXPECT_EQ(tdm_unidentify(ctx_, info_.file), 0U);
    ASSERT_EQ(create("/mnt/one/f", 0), 0U);
    auto data = pattern(100);
    ASSERT_EQ(write(0, data), 0U);
    EXPECT_EQ(tdm_expect(ctx_, "/mnt/one/source", TDM_EXPECT_DELETE), uint32_t{ENOTSUP});
    EXPECT_EQ(tdm_commit(ctx_, info_.file), 0U);
    EXPECT_EQ(tdm_expect(ctx_, "/mnt/one/source", TDM_EXPECT_DELETE), 0U);
    EXPECT_EQ(tdm_delete(ctx_, "/mnt/one/source", &location_), 0U);
    EXPECT_FALSE(server_.exists("/source"));
    EXPECT_EQ(server_.calls[Op::remove], 1U);
}

TEST_F(TdmTest, NothingIsDeletedAfterAWriteThatFailed) {
    open();
    server_.add_file("/source");
    ASSERT_EQ(create("/mnt/one/f", 0), 0U);
    auto data = pattern(100);
    ASSERT_EQ(write(0, data), 0U);
    server_.fail_next(Op::write, EIO);
    EXPECT_EQ(tdm_delete(ctx_, "/mnt/one/source", &location_), uint32_t{EIO});
    EXPECT_EQ(location_, uint32_t{TDM_LOCATION_FAILED});
    EXPECT_TRUE(server_.exists("/source"));
}

TEST_F(TdmTest, AttributesFillTheirRecord) {
    open();
    server_.add_file("/f", pattern(5));
    auto &there = server_.at("/f").attributes;
    there.mode = 0640;
    there.uid = 12;
    there.gid = 13;
    there.access = {100, 1};
    there.modification = {200, 2};
    there.change = {300, 3};
    EXPECT_EQ(tdm_getattr(ctx_, "/mnt/one/f", &attributes_, &location_), 0U);
    EXPECT_EQ(location_, uint32_t{TDM_LOCATION_REMOTE});
    EXPECT_EQ(attributes_.type, uint32_t{TDM_TYPE_REGULAR});
    EXPECT_EQ(attributes_.permissions, 0x180U | 0x20U);
    EXPECT_EQ(attributes_.uid, 12U);
    EXPECT_EQ(attributes_.gid, 13U);
    EXPECT_EQ(attributes_.size, 5U);
    EXPECT_EQ(attributes_.access_seconds, 100U);
    EXPECT_EQ(attributes_.modification_seconds, 200U);
    EXPECT_EQ(attributes_.change_seconds, 300U);
    TdmSetAttributes set{TDM_SET_PERMISSIONS, {}, 0400};
    EXPECT_EQ(tdm_setattr(ctx_, "/mnt/one/f", &set, &location_), 0U);
    EXPECT_EQ(server_.at("/f").attributes.mode, 0400U);
}

TEST_F(TdmTest, AttributesTellOneObjectFromAnother) {
    std::ofstream(home_ + "/dbs/tslnfstab", std::ios::app) << "server: two\nexport: /e mount: /mnt/two\n";
    open();
    server_.add_file("/f");
    server_.at("/f").attributes.fsid = 17;
    const auto look = [this](const char *path) {
        EXPECT_EQ(tdm_getattr(ctx_, path, &attributes_, &location_), 0U);
        return attributes_;
    };
    const TdmAttributes one = look("/mnt/one/f");
    EXPECT_EQ(one.file_system_id, 17U);
    EXPECT_EQ(one.file_id, server_.find("/f"));
    EXPECT_NE(one.handle_digest, 0U);
    const TdmAttributes two = look("/mnt/two/f");
    EXPECT_NE(one.server, 0U);
    EXPECT_NE(two.server, 0U);
    EXPECT_NE(one.server, two.server);
    EXPECT_EQ(look("/mnt/one").server, one.server);
    EXPECT_NE(look("/mnt/one").handle_digest, one.handle_digest);
    server_.make_handles_stale();
    EXPECT_EQ(barrier(), 0U);
    EXPECT_NE(look("/mnt/one/f").handle_digest, one.handle_digest);
    EXPECT_EQ(look("/mnt/one/f").file_id, one.file_id);
}

TEST_F(TdmTest, DirectoriesAreMadeListedAndRemoved) {
    open();
    EXPECT_EQ(tdm_mkdir(ctx_, "/mnt/one/d", &location_), 0U);
    EXPECT_EQ(tdm_mkdir(ctx_, "/mnt/one/d", &location_), 17U);
    for (const auto *name : {"/d/a", "/d/b", "/d/c"})
        server_.add_file(name);
    TdmDirEntry entries[4];
    TdmReaddirReply reply{};
    uint32_t unused = 0;
    EXPECT_EQ(tdm_readdir(ctx_, "/mnt/one/d", entries, &reply, sizeof entries, 0, &unused, &location_), 0U);
    EXPECT_EQ(reply.entries, 4U);
    EXPECT_EQ(reply.end_of_directory, 0U);
    EXPECT_STREQ(entries[0].name, ".");
    EXPECT_STREQ(entries[1].name, "..");
    EXPECT_STREQ(entries[3].name, "b");
    EXPECT_EQ(entries[3].type, uint32_t{TDM_TYPE_REGULAR});
    const uint64_t cookie = entries[2].cookie;
    EXPECT_EQ(tdm_readdir(ctx_, "/mnt/one/d", entries, &reply, sizeof entries, cookie, &unused, &location_), 0U);
    EXPECT_EQ(reply.entries, 2U);
    EXPECT_NE(reply.end_of_directory, 0U);
    EXPECT_STREQ(entries[0].name, "b");
    EXPECT_STREQ(entries[1].name, "c");
    EXPECT_EQ(tdm_readdir(ctx_, "/mnt/one/d", entries, &reply, 535, 0, &unused, &location_), uint32_t{EINVAL});
    for (const auto *name : {"/mnt/one/d/a", "/mnt/one/d/b", "/mnt/one/d/c"})
        EXPECT_EQ(tdm_delete(ctx_, name, &location_), 0U);
    EXPECT_EQ(tdm_rmdir(ctx_, "/mnt/one/d", &location_), 0U);
    EXPECT_FALSE(server_.exists("/d"));
}

TEST_F(TdmTest, TheEndOfADirectoryTellsHowManyNamesWereLeftOut) {
    open();
    server_.add_file("/a");
    server_.add_file("/b");
    std::vector<TdmDirEntry> entries(4);
    TdmReaddirReply reply{};
    const auto list = [&](uint64_t cookie) {
        return tdm_readdir(ctx_, "/mnt/one", entries.data(), &reply, sizeof(TdmDirEntry) * 4, cookie, nullptr,
                           &location_);
    };
    ASSERT_EQ(list(0), 0U);
    EXPECT_EQ(reply.library_word, 0U);
    server_.extra_entries = {{5, 0, "a/b", {}, {}}, {6, 0, std::string(2000, 'x'), {}, {}}};
    ASSERT_EQ(list(0), 0U);
    EXPECT_EQ(reply.entries, 4U);
    EXPECT_EQ(reply.end_of_directory, 1U);
    EXPECT_EQ(reply.library_word & TDM_NAMES_LEFT_OUT_MASK, TDM_NAMES_LEFT_OUT);
    EXPECT_EQ(reply.library_word & ~TDM_NAMES_LEFT_OUT_MASK, 2U);
}

TEST_F(TdmTest, MemoryMayEndAnywhereInAListingWhichFailsAndLeavesTheSessionUsable) {
    open();
    for (int i = 0; i < 20; ++i)
        server_.add_file("/file-with-a-name-of-its-own-" + std::to_string(i));
    std::vector<TdmDirEntry> entries(30);
    TdmReaddirReply reply{};
    const auto list = [&] {
        return tdm_readdir(ctx_, "/mnt/one", entries.data(), &reply,
                           static_cast<uint32_t>(entries.size() * sizeof(TdmDirEntry)), 0, nullptr, &location_);
    };
    bool reached = true;
    std::size_t allocations = 0;
    for (; reached; ++allocations) {
        uint32_t status = 0;
        {
            const MemoryEnd end(allocations);
            status = list();
            reached = MemoryEnd::reached();
        }
        EXPECT_EQ(status, reached ? uint32_t{ENOMEM} : 0U) << allocations;
        ASSERT_EQ(list(), 0U) << allocations;
        EXPECT_EQ(reply.entries, 22U);
    }
    EXPECT_GT(allocations, 20U);
}

TEST_F(TdmTest, OpeningASessionNeverChangesTheUmaskOfTheProcess) {
    const mode_t before = ::umask(027);
    umask_calls = 0;
    open();
    EXPECT_EQ(umask_calls, 0U);
    EXPECT_EQ(create("/mnt/one/f", 0), 0U);
    EXPECT_EQ(server_.at("/f").attributes.mode, 0640U);
    ::umask(before);
}

TEST_F(TdmTest, ALinksTargetFitsItsBufferOrIsRefused) {
    open();
    server_.add_link("/fits", std::string(512, 'x'));
    server_.add_link("/long", std::string(513, 'x'));
    server_.add_link("/nul", std::string("a\0b", 3));
    char target[TDM_TEXT_SIZE] = "untouched";
    EXPECT_EQ(tdm_readlink(ctx_, "/mnt/one/long", target, &location_), uint32_t{ENAMETOOLONG});
    EXPECT_EQ(tdm_readlink(ctx_, "/mnt/one/nul", target, &location_), uint32_t{EIO});
    EXPECT_STREQ(target, "untouched");
    EXPECT_EQ(tdm_readlink(ctx_, "/mnt/one/fits", target, &location_), 0U);
    EXPECT_EQ(std::strlen(target), 512U);
}

TEST_F(TdmTest, FigureRecordsAreFilled) {
    open();
    TdmFsInfo info{};
    EXPECT_EQ(tdm_fsinfo(ctx_, "/mnt/one", &info, &location_), 0U);
    EXPECT_EQ(info.attributes.type, uint32_t{TDM_TYPE_DIRECTORY});
    EXPECT_EQ(info.read_maximum, 1U << 20);
    EXPECT_EQ(info.write_preferred, 1U << 20);
    EXPECT_EQ(info.readdir_preferred, 8192U);
    EXPECT_EQ(info.readdir_entries, 1024U);
    TdmFsStat stat{};
    EXPECT_EQ(tdm_fsstat(ctx_, "/mnt/one", &stat, &location_), 0U);
    EXPECT_EQ(stat.attributes.type, uint32_t{TDM_TYPE_DIRECTORY});
    EXPECT_EQ(stat.total_bytes, 1000U);
    EXPECT_EQ(stat.available_files, 50U);
    EXPECT_EQ(stat.volatility_seconds, 7U);
}

TEST_F(TdmTest, AStaleHandleIsToldAsSeventy) {
    open();
    server_.add_file("/f");
    server_.failures[Op::setattr] = {ESTALE, ESTALE};
    const TdmSetAttributes set{TDM_SET_PERMISSIONS, {}, 0400};
    EXPECT_EQ(tdm_setattr(ctx_, "/mnt/one/f", &set, &location_), 70U);
}

// ---- I/O

TEST_F(TdmTest, RequestsAreSubmittedAndCollectedOneByOneAsTheUtilityDoes) {
    open();
    server_.add_file("/f", pattern(100000));
    ASSERT_EQ(identify("/mnt/one/f"), 0U);
    std::vector<std::byte> buffer(32768);
    for (uint64_t offset = 0; offset < 100000; offset += 32768) {
        auto read = request(TDM_IO_READ, offset, buffer);
        read.status = 5;
        count_ = 77;
        ASSERT_EQ(submit(&read), 0U);
        EXPECT_EQ(count_, 77U) << "left alone by a call that only submits";
        ASSERT_EQ(reap(&read), 0U);
        EXPECT_EQ(count_, 1U);
        EXPECT_EQ(read.status, 0U);
        const auto size = std::min<std::size_t>(32768, 100000 - offset);
        ASSERT_EQ(std::memcmp(buffer.data(), server_.at("/f").data.data() + offset, size), 0);
    }
    EXPECT_EQ(server_.calls[Op::read], 1U);
}

TEST_F(TdmTest, AFileIsLentPieceByPieceUpToItsEnd) {
    open();
    server_.add_file("/f", pattern(100000));
    ASSERT_EQ(identify("/mnt/one/f"), 0U);
    const void *bytes = nullptr;
    uint32_t count = 0;
    for (uint64_t offset = 0; offset < 100000; offset += count) {
        ASSERT_EQ(tdm_lend(ctx_, info_.file, offset, 40000, &bytes, &count), 0U);
        ASSERT_EQ(count, std::min<uint64_t>(40000, 100000 - offset));
        ASSERT_EQ(std::memcmp(bytes, server_.at("/f").data.data() + offset, count), 0);
    }
    EXPECT_EQ(server_.calls[Op::read], 1U);
    EXPECT_EQ(tdm_lend(ctx_, info_.file, 100000, 1, &bytes, &count), uint32_t{ENOTSUP}) << "the end";
    EXPECT_EQ(tdm_lend(ctx_, info_.file, 0, 0, &bytes, &count), uint32_t{EINVAL});
    EXPECT_EQ(tdm_lend(ctx_, info_.file, 0, 1, nullptr, &count), uint32_t{EINVAL});
    EXPECT_EQ(tdm_lend(ctx_, info_.file + 1, 0, 1, &bytes, &count), uint32_t{EBADF});
}

TEST_F(TdmTest, WhatIsNotLentIsReadOnceMoreAndTheReadTellsWhy) {
    open();
    server_.add_file("/f", pattern(1000));
    ASSERT_EQ(identify("/mnt/one/f"), 0U);
    server_.fail_next(Op::read, EIO);
    const void *bytes = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(tdm_lend(ctx_, info_.file, 0, 1000, &bytes, &count), uint32_t{ENOTSUP});
    std::vector<std::byte> buffer(1000);
    auto read = request(TDM_IO_READ, 0, buffer);
    EXPECT_EQ(submit(&read), 0U);
    EXPECT_EQ(reap(&read), uint32_t{EIO});
    EXPECT_EQ(server_.calls[Op::read], 1U);
    EXPECT_EQ(submit(&read), 0U);
    EXPECT_EQ(reap(&read), 0U) << "asked again it is read again";
}

TEST_F(TdmTest, WhatWasWrittenIsReadAndNotLent) {
    open();
    ASSERT_EQ(create("/mnt/one/f", 0), 0U);
    auto data = pattern(1000);
    ASSERT_EQ(write(0, data), 0U);
    const void *bytes = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(tdm_lend(ctx_, info_.file, 0, 1000, &bytes, &count), uint32_t{ENOTSUP});
    std::vector<std::byte> buffer(1000);
    auto read = request(TDM_IO_READ, 0, buffer);
    ASSERT_EQ(submit(&read), 0U);
    ASSERT_EQ(reap(&read), 0U);
    EXPECT_EQ(buffer, data);
}

TEST_F(TdmTest, AFileIsMadeWithItsContent) {
    open();
    auto content = pattern(1000);
    const auto make = [&](const char *path, const void *bytes, uint32_t count, TdmFileInfo *info) {
        return tdm_createwith(ctx_, path, bytes, count, text_, sizeof text_, info);
    };
    ASSERT_EQ(make("/mnt/one/f", content.data(), 1000, &info_), 0U);
    EXPECT_STREQ(text_, "/mnt/one/f");
    EXPECT_EQ(tdm_resize(ctx_, info_.file, 1000), 0U);
    EXPECT_EQ(tdm_commit(ctx_, info_.file), 0U);
    EXPECT_EQ(server_.at("/f").stable, content);
    EXPECT_EQ(make("/mnt/one/g", nullptr, 1000, &info_), uint32_t{EINVAL});
    EXPECT_EQ(make("/mnt/one/g", content.data(), 0, &info_), uint32_t{EINVAL});
    EXPECT_EQ(make("/mnt/one/g", content.data(), 1000, nullptr), uint32_t{EINVAL});
    EXPECT_EQ(make("/local", content.data(), 1000, &info_), uint32_t{ENODEV});
    EXPECT_EQ(make("/mnt/one/none/g", content.data(), 1000, &info_), uint32_t{ENOENT});
    EXPECT_FALSE(server_.exists("/g"));
}

TEST_F(TdmTest, ACallCanSubmitSomeAndCollectThemAtOnce) {
    open();
    server_.add_file("/f", pattern(1000));
    ASSERT_EQ(identify("/mnt/one/f"), 0U);
    std::vector<std::byte> buffer(1000);
    auto first = request(TDM_IO_READ, 0, std::span(buffer).first(500));
    auto second = request(TDM_IO_READ, 500, std::span(buffer).subspan(500));
    TdmIoRequest *both[] = {&first, &second};
    EXPECT_EQ(tdm_io(ctx_, both, 2, nullptr, 0, both, 2, 0, TDM_WAIT_FOREVER, &count_), 0U);
    EXPECT_EQ(count_, 2U);
    EXPECT_EQ(buffer, server_.at("/f").data);
}

TEST_F(TdmTest, WithoutWaitingOnlyWhatIsThereIsCollected) {
    open();
    server_.add_file("/f", pattern(1000));
    ASSERT_EQ(identify("/mnt/one/f"), 0U);
    std::vector<std::byte> buffer(1000);
    auto read = request(TDM_IO_READ, 0, buffer);
    ASSERT_EQ(submit(&read), 0U);
    unsigned polls = 0;
    do {
        ASSERT_EQ(reap(&read, 0), 0U);
        ASSERT_LT(++polls, 100U);
    } while (count_ == 0);
    EXPECT_EQ(buffer, server_.at("/f").data);
}

TEST_F(TdmTest, AFailedReadFailsItsRequestAndTheReapingCall) {
    open();
    server_.add_file("/f", pattern(1000));
    ASSERT_EQ(identify("/mnt/one/f"), 0U);
    server_.fail_next(Op::read, EIO);
    std::vector<std::byte> buffer(1000);
    auto read = request(TDM_IO_READ, 0, buffer);
    EXPECT_EQ(submit(&read), 0U);
    EXPECT_EQ(reap(&read), uint32_t{EIO});
    EXPECT_EQ(read.status, uint32_t{EIO});
    EXPECT_EQ(count_, 1U);
    EXPECT_EQ(submit(&read), 0U) << "it can be tried again";
    EXPECT_EQ(reap(&read), 0U);
    EXPECT_EQ(read.status, 0U);
}

TEST_F(TdmTest, AFailedWriteSurfacesAtLaterWritesAndAtTheBarrier) {
    open();
    ASSERT_EQ(create("/mnt/one/f", 0), 0U);
    server_.fail_next(Op::write, ENOSPC);
    auto data = pattern(1 << 20);
    EXPECT_EQ(write(0, data), 0U) << "accepted";
    auto next = request(TDM_IO_WRITE, 1 << 20, data);
    uint32_t status = 0;
    for (uint64_t i = 1; status == 0 && i < 100; ++i) {
        next.offset = i << 20;
        ASSERT_EQ(submit(&next), 0U);
        status = reap(&next);
    }
    EXPECT_EQ(status, 28U);
    EXPECT_EQ(next.status, 28U);
    EXPECT_EQ(barrier(), 28U);
    EXPECT_EQ(barrier(), 0U);
}

TEST_F(TdmTest, TheBarrierBringsEveryAcceptedWriteToStableStorage) {
    open();
    ASSERT_EQ(create("/mnt/one/f", 0), 0U);
    auto data = pattern(50000);
    ASSERT_EQ(write(0, data), 0U);
    EXPECT_TRUE(server_.at("/f").stable.empty());
    EXPECT_EQ(barrier(), 0U);
    EXPECT_EQ(server_.at("/f").stable, data);
}

TEST_F(TdmTest, BehindTheBarrierTheServerIsAskedAndNoCache) {
    open();
    server_.add_file("/f", pattern(3));
    EXPECT_EQ(tdm_getattr(ctx_, "/mnt/one/f", &attributes_, &location_), 0U);
    server_.at("/f").attributes.size = 8;
    EXPECT_EQ(tdm_getattr(ctx_, "/mnt/one/f", &attributes_, &location_), 0U);
    EXPECT_EQ(attributes_.size, 3U);
    EXPECT_EQ(barrier(), 0U);
    EXPECT_EQ(tdm_getattr(ctx_, "/mnt/one/f", &attributes_, &location_), 0U);
    EXPECT_EQ(attributes_.size, 8U);
}

TEST_F(TdmTest, RequestsThatMakeNoSenseAreRefusedAndNeverComplete) {
    open();
    ASSERT_EQ(create("/mnt/one/f", 0), 0U);
    std::vector<std::byte> buffer(10);
    auto good = request(TDM_IO_READ, 0, buffer);
    auto bad = good;
    bad.operation = 3;
    bad.status = 1234;
    EXPECT_EQ(submit(&bad), uint32_t{EINVAL});
    bad = good;
    bad.buffer = nullptr;
    EXPECT_EQ(submit(&bad), uint32_t{EINVAL});
    bad = good;
    bad.offset = UINT64_MAX - 5;
    EXPECT_EQ(submit(&bad), uint32_t{EFBIG});
    bad = good;
    bad.file = 4711;
    bad.status = 1234;
    TdmIoRequest *mixed[] = {&good, &bad};
    EXPECT_EQ(tdm_io(ctx_, mixed, 2, nullptr, 0, nullptr, 0, 0, 0, &count_), uint32_t{EBADF});
    EXPECT_EQ(bad.status, 1234U);
    EXPECT_EQ(reap(&good), uint32_t{EINVAL}) << "not one of them was started";
    EXPECT_EQ(submit(&good), 0U);
    EXPECT_EQ(submit(&good), uint32_t{EBUSY});
    EXPECT_EQ(reap(&good), 0U);
    EXPECT_EQ(reap(&good), uint32_t{EINVAL}) << "collected once";
}

TEST_F(TdmTest, ARequestOfNoBytesCompletes) {
    open();
    ASSERT_EQ(create("/mnt/one/f", 0), 0U);
    auto none = request(TDM_IO_READ, 0, {});
    EXPECT_EQ(submit(&none), 0U);
    EXPECT_EQ(reap(&none), 0U);
    none.operation = TDM_IO_WRITE;
    EXPECT_EQ(submit(&none), 0U);
    EXPECT_EQ(reap(&none), 0U);
}

TEST_F(TdmTest, AReadThatMeetsAStaleHandleIsTriedAgainWithinTheCall) {
    open();
    server_.add_file("/f", pattern(1000));
    ASSERT_EQ(identify("/mnt/one/f"), 0U);
    server_.fail_next(Op::read, ESTALE);
    std::vector<std::byte> buffer(1000);
    auto read = request(TDM_IO_READ, 0, buffer);
    EXPECT_EQ(submit(&read), 0U);
    EXPECT_EQ(reap(&read), 0U);
    EXPECT_EQ(buffer, server_.at("/f").data);
}

// ---- trace

class TraceTest : public TdmTest {
  protected:
    TraceTest() {
        context_.trace_on = 1;
        context_.trace_stream = std::tmpfile();
        tdm_tslinit(&context_);
    }
    ~TraceTest() override {
        tdm_tslinit(nullptr);
        std::fclose(context_.trace_stream);
    }
    std::string traced() {
        std::fflush(context_.trace_stream);
        std::rewind(context_.trace_stream);
        std::string text;
        for (int c = 0; (c = std::fgetc(context_.trace_stream)) != EOF;)
            text += static_cast<char>(c);
        return text;
    }
    TdmProductContext context_{};
};

TEST_F(TraceTest, RecordsHaveTheCallersForm) {
    EXPECT_EQ(tdm_trace(TDM_TRACE_KGTDM, 1), 0U);
    open();
    identify("/local");
    EXPECT_THAT(traced(), MatchesRegex("(.|\n)*\\[[0-9]+\\],tdm_identify begins: /local\n"
                                       "\\[[0-9]+\\],tdm_identify status 0\n"));
}

TEST_F(TraceTest, ARecordIsWrittenWhenTheLevelIsNotZeroAndNotAboveItsOwn) {
    open();
    EXPECT_EQ(traced(), "");
    EXPECT_EQ(tdm_trace(TDM_TRACE_KGTDM, 3), 0U);
    identify("/mnt/one/f");
    EXPECT_THAT(traced(), MatchesRegex("\\[[0-9]+\\],tdm_identify status 2: [^\n]*\n"));
    const auto before = traced().size();
    EXPECT_EQ(tdm_trace(TDM_TRACE_KGTDM, 4), 0U);
    identify("/mnt/one/f");
    EXPECT_EQ(traced().size(), before);
}

TEST_F(TraceTest, NothingIsWrittenWhileTheCallersTraceIsOff) {
    context_.trace_on = 0;
    tdm_trace(TDM_TRACE_KGTDM, 1);
    open();
    EXPECT_EQ(traced(), "");
}

std::vector<std::string> heard;

TEST_F(TraceTest, AListenerHearsFailuresWhateverIsTraced) {
    heard.clear();
    tdm_failure_listener = [](const char *record) { heard.emplace_back(record); };
    for (const int32_t trace_on : {0, 1}) {
        context_.trace_on = trace_on;
        tdm_tslinit(&context_);
        open();
        identify("/local");
        identify("/mnt/one/f\n");
        protocol_trace->write(TraceLevel::notice, TraceComponent::rpc, [] { return std::string("of no weight"); });
        protocol_trace->write(TraceLevel::failure, TraceComponent::rpc, [] { return std::string("silent"); });
    }
    tdm_failure_listener = nullptr;
    tdm_tslinit(&context_);
    identify("/mnt/one/f");
    const auto failed = MatchesRegex("\\[[0-9]+\\],tdm_identify status 2: /mnt/one/f\\?: [^\n]*");
    const auto silent = MatchesRegex("\\[[0-9]+\\],rpc silent");
    EXPECT_THAT(heard, ElementsAre(failed, silent, failed, silent));
    EXPECT_EQ(traced(), "");
}

TEST_F(TraceTest, UnknownEventsAndLevelsAreRefused) {
    EXPECT_EQ(tdm_trace(1, 1), uint32_t{EINVAL});
    EXPECT_EQ(tdm_trace(TDM_TRACE_KGTDM, 5), uint32_t{EINVAL});
    EXPECT_EQ(tdm_trace(TDM_TRACE_NFCORE_MASK, 31), 0U);
}

TEST_F(TraceTest, WhatIsWrongInTheSettingsIsTracedAtTheStart) {
    const Environment block_size("NFSTDM_BLOCK_SIZE", "big");
    std::ofstream(home_ + "/dbs/tslnfstab") << "server: one\nnconnect: x\n";
    tdm_trace(TDM_TRACE_KGTDM, 3);
    open();
    EXPECT_THAT(traced(), HasSubstr("NFSTDM_BLOCK_SIZE"));
    EXPECT_THAT(traced(), HasSubstr("tslnfstab, line 2: nconnect"));
}

TEST_F(TraceTest, WhatWentWrongStandsInTheFileWhileTheCallIsStillUnderWay) {
    tdm_trace(TDM_TRACE_SNFCORE, 2);
    open();
    protocol_trace->write(TraceLevel::notice, TraceComponent::rpc, [] { return std::string("lost"); });
    struct stat status {};
    ASSERT_EQ(fstat(fileno(context_.trace_stream), &status), 0);
    EXPECT_GT(status.st_size, 0);
}

TEST_F(TraceTest, NamesThatWereLeftOutAreToldOnceADirectoryAtLevelTwo) {
    open();
    tdm_trace(TDM_TRACE_KGTDM, 2);
    server_.extra_entries = {{5, 0, "a/b", {}, {}}, {6, 0, "c/d", {}, {}}};
    std::vector<TdmDirEntry> entries(4);
    TdmReaddirReply reply{};
    ASSERT_EQ(tdm_readdir(ctx_, "/mnt/one", entries.data(), &reply, sizeof(TdmDirEntry) * 4, 0, nullptr, &location_),
              0U);
    EXPECT_THAT(traced(), HasSubstr(",tdm_readdir /mnt/one: names left out that no path can hold: 2\n"));
}

TEST_F(TraceTest, ALongRecordIsCutAndSaysSo) {
    tdm_trace(TDM_TRACE_KGTDM, 1);
    open();
    const std::string path = "/" + std::string(2000, 'x');
    tdm_getattr(ctx_, path.c_str(), &attributes_, &location_);
    EXPECT_THAT(traced(), HasSubstr("Above message is truncated since it is greater than SSTMXFNM.\n"));
    EXPECT_LT(traced().size(), 1500U);
}

}  // namespace
}  // namespace nfstdm
