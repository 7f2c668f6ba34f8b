// SPDX-License-Identifier: Apache-2.0
// A volume on the scripted server, and its operations as calls that wait.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "nfstdm/nfs4/nfs4_volume.h"
#include "tests/unit/nfs4/fake_nfs4.h"

namespace nfstdm::nfs4::test {

inline rpc::Timing quick() {
    rpc::Timing timing;
    timing.tick = std::chrono::milliseconds(2);
    timing.backoff_first = std::chrono::milliseconds(2);
    timing.backoff_most = std::chrono::milliseconds(10);
    timing.jukebox_first = std::chrono::milliseconds(1);
    timing.jukebox_most = std::chrono::milliseconds(4);
    timing.jukebox_notice = std::chrono::milliseconds(20);
    return timing;
}

inline FileHandle handle_of(std::string_view name) {
    FileHandle handle;
    handle.size = static_cast<uint8_t>(name.size());
    std::copy(name.begin(), name.end(), handle.bytes.begin());
    return handle;
}

class Nfs4VolumeTest : public testing::Test {
  protected:
    ServerConfig config() const {
        ServerConfig result;
        result.name = "db1";
        result.paths = {{"", "127.0.0.1:" + std::to_string(nfs.server.port())}};
        return result;
    }
    void open(const std::string &path = "/export", NfsVersion version = {4, 1, false}) {
        volume = factory.open(config(), {path, "/mnt", {}}, version);
    }

    // Starts an operation through start(completion) and gives what it ends with.
    template <class Reply, class Start>
    Result<Reply> get(Start start) {
        std::optional<Result<Reply>> result;
        start([&result](Result<Reply> reply) {
            EXPECT_FALSE(result.has_value());
            result = std::move(reply);
        });
        EXPECT_FALSE(result.has_value()) << "completed inside the call";
        if (!nfstdm::test::run(loop, [&] { return result.has_value(); })) return Status{EINTR, "no completion"};
        return std::move(*result);
    }
    template <class Start>
    Status end_of(Start start) {
        std::optional<Status> result;
        start([&result](Status status) { result = std::move(status); });
        if (!nfstdm::test::run(loop, [&] { return result.has_value(); })) return {EINTR, "no completion"};
        return *result;
    }

    Result<FileHandle> attach() {
        return get<FileHandle>([this](auto done) { volume->attach(std::move(done)); });
    }
    Status detach() {
        return end_of([this](auto done) { volume->detach(std::move(done)); });
    }
    Result<Attributes> getattr() {
        return get<Attributes>([this](auto done) { volume->getattr(file, std::move(done)); });
    }
    // The file, held open once for each until it is let go.
    VolumeFile &reading() { return held(reading_, Access::read); }
    VolumeFile &writing() { return held(writing_, Access::write); }
    void let_go() {
        reading_.reset();
        writing_.reset();
    }
    // Not from the start, so that the file stays open.
    Result<ReadReply> read(uint64_t offset = 1) {
        return get<ReadReply>([&, this](auto done) { reading().read(offset, buffer, std::move(done)); });
    }
    Result<WriteReply> write(std::string_view text, Stability stability = Stability::unstable) {
        return get<WriteReply>(
            [&, this](auto done) { writing().write(0, std::as_bytes(std::span{text}), stability, std::move(done)); });
    }
    Status remove(const std::string &name) {
        return get<DirectoryChange>([&, this](auto done) { volume->remove(root, name, std::move(done)); }).status();
    }
    Result<CreateReply> mkdir(const std::string &name) {
        return get<CreateReply>([&, this](auto done) { volume->mkdir(root, name, 0755, std::move(done)); });
    }
    std::string text(std::size_t size) const { return {reinterpret_cast<const char *>(buffer.data()), size}; }

    EventLoop loop;
    Trace trace;
    FakeNfs4 nfs{loop};
    Exports factory{loop, trace, quick()};
    std::unique_ptr<Volume> volume;
    const FileHandle root = handle_of("export");
    const FileHandle file = handle_of("file");
    std::array<std::byte, 4> buffer{};

  private:
    VolumeFile &held(std::unique_ptr<VolumeFile> &opened, Access access) {
        if (!opened) opened = volume->open(file, access);
        return *opened;
    }

    std::unique_ptr<VolumeFile> reading_;
    std::unique_ptr<VolumeFile> writing_;
};

}  // namespace nfstdm::nfs4::test
