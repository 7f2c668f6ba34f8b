// SPDX-License-Identifier: Apache-2.0
// Every failure that a server may answer with, of every operation, wherever it comes: what was asked ends well or with
// a reason, and what is asked next works.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <string>

#include "nfstdm/nfs4/op_table.h"
#include "nfstdm/nfs4/status_table.h"
#include "tests/unit/nfs4/volume_fixture.h"

namespace nfstdm::nfs4 {
namespace {

using test::handle_of;

constexpr std::array kFailures = {
    NfsStatus::badsession,
    NfsStatus::deadsession,
    NfsStatus::badslot,
    NfsStatus::seq_misordered,
    NfsStatus::seq_false_retry,
    NfsStatus::retry_uncached_rep,
    NfsStatus::conn_not_bound_to_session,
    NfsStatus::stale_clientid,
    NfsStatus::rep_too_big_to_cache,
    NfsStatus::expired,
    NfsStatus::bad_stateid,
    NfsStatus::old_stateid,
    NfsStatus::delay,
    NfsStatus::grace,
    NfsStatus::wrongsec,
    NfsStatus::moved,
    NfsStatus::fhexpired,
    NfsStatus::notsupp,
};

class FailureSweep : public test::Nfs4VolumeTest, public testing::WithParamInterface<OpRow> {
  protected:
    // What a command may ask, most of it twice, so that what is met in the middle is met as well.
    void ask_everything() {
        expect_an_end(getattr().status());
        expect_an_end(get<LookupReply>([this](auto done) { volume->lookup(root, "file", std::move(done)); }).status());
        expect_an_end(get<std::string>([this](auto done) { volume->readlink(file, std::move(done)); }).status());
        expect_an_end(
            get<DirectoryReply>([this](auto done) { volume->readdir(root, 0, 0, true, std::move(done)); }).status());
        expect_an_end(get<FsStatReply>([this](auto done) { volume->fsstat(root, std::move(done)); }).status());
        std::array<std::byte, 4> part{};
        expect_an_end(get<ReadReply>([&, this](auto done) { reading().read(0, part, std::move(done)); }).status());
        expect_an_end(read_two_at_once());
        expect_an_end(read().status());
        expect_an_end(get<Extent>([this](auto done) { reading().extent(0, std::move(done)); }).status());
        make_and_copy();
        expect_an_end(mkdir("new").status());
        expect_an_end(
            get<DirectoryChange>([this](auto done) { volume->rmdir(root, "new", std::move(done)); }).status());
        let_go();
    }

    // The second of which does not wait until the file is open.
    Status read_two_at_once() {
        std::array<std::byte, 4> first{};
        bool ended = false;
        reading().read(1, first, [&ended](const Result<ReadReply> &) { ended = true; });
        const Status second = read(2).status();
        EXPECT_TRUE(nfstdm::test::run(loop, [&ended] { return ended; }));
        return second;
    }

    void make_and_copy() {
        auto made = get<CreatedFile>([this](auto done) {
            volume->create(root, "made", {0644, uint64_t{0}}, std::move(done));
        });
        expect_an_end(made.status());
        expect_an_end(write("text").status());
        expect_an_end(get<CommitReply>([this](auto done) { writing().commit(std::move(done)); }).status());
        expect_an_end(end_of([this](auto done) { volume->setattr(file, {{}, uint64_t{4}}, std::move(done)); }));
        if (made.ok() && made.value().file) expect_a_copy_or_none(*made.value().file);
        expect_an_end(write("last", Stability::file_sync).status());
        expect_an_end(remove("made"));
    }

    // One that the server does not make is the caller's.
    void expect_a_copy_or_none(VolumeFile &to) {
        const auto copied = get<CopyReply>([&, this](auto done) {
            to.copy_from(reading(), {0, 0, 4}, std::move(done));
        });
        if (copied.status().number() != ENOTSUP) expect_an_end(copied.status());
    }

    static void expect_an_end(const Status &status) {
        EXPECT_NE(status.number(), static_cast<uint32_t>(EINTR)) << status.text();
        if (status.ok()) return;
        EXPECT_NE(status.text().find("server db1: "), std::string::npos) << status.text();
    }
};

TEST_P(FailureSweep, EndsWithAReasonAndLeavesTheNextQuestionToWork) {
    nfs.content = "content";
    nfs.extents = {{0, 7}};
    for (const NfsStatus failure : kFailures) {
        SCOPED_TRACE(to_status(failure).text());
        open("/export", {4, 2, false});
        nfs.fail(GetParam().number, failure);
        const bool attached = attach().ok();
        ASSERT_TRUE(attached || attach().ok());
        nfs.fail(GetParam().number, failure);
        ask_everything();
        nfs.forgive();
        EXPECT_TRUE(getattr().ok());
        ASSERT_TRUE(detach().ok());
    }
}

INSTANTIATE_TEST_SUITE_P(Of, FailureSweep, testing::ValuesIn(op_table().begin(), op_table().end()),
                         [](const auto &parameter) { return std::string(parameter.param.name); });

}  // namespace
}  // namespace nfstdm::nfs4
