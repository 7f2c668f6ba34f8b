// SPDX-License-Identifier: Apache-2.0
// An open file for which nothing is kept: its handle, by which the protocol is asked.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "nfstdm/volume/volume.h"

namespace nfstdm {

// Protocol is a Volume that has read(), write() and commit() of a file by its handle.
template <class Protocol>
class FileByHandle : public VolumeFile {
  public:
    FileByHandle(Protocol &protocol, const FileHandle &handle) : protocol_(protocol), handle_(handle) {}

    void read(uint64_t offset, std::span<std::byte> buffer, Completion<ReadReply> done) override {
        protocol_.read(handle_, offset, buffer, std::move(done));
    }
    void write(uint64_t offset, std::span<const std::byte> data, Stability stability,
               Completion<WriteReply> done) override {
        protocol_.write(handle_, offset, data, stability, std::move(done));
    }
    void commit(Completion<CommitReply> done) override { protocol_.commit(handle_, std::move(done)); }
    void resize(uint64_t size, DoneCompletion done) override {
        SetAttributes set;
        set.size = size;
        protocol_.setattr(handle_, set, std::move(done));
    }
    void copy_from(VolumeFile & /*source*/, const CopyRange & /*range*/, Completion<CopyReply> done) override {
        done(Status{ENOTSUP, "the protocol has no copy"});
    }
    void extent(uint64_t /*offset*/, Completion<Extent> done) override {
        done(Status{ENOTSUP, "the protocol does not tell holes"});
    }

  protected:
    Protocol &protocol_;
    const FileHandle handle_;
};

}  // namespace nfstdm
