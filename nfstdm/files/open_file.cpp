// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/open_file.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace nfstdm {
namespace {

constexpr std::size_t kCommitAfter = FileResources::kWriteMemory / 2;

uint32_t transfer_size(uint32_t maximum) {
    return std::clamp<uint32_t>(maximum, 1, FileResources::kTransferMaximum);
}

}  // namespace

OpenFile::OpenFile(const Place &place, FileResources &resources)
    : mount_(*place.mount),
      resources_(resources),
      path_(place.path()),
      handle_(place.object->handle),
      write_size_(transfer_size(mount_.volume().limits().write_maximum)),
      read_(mount_.volume(), handle_, transfer_size(mount_.volume().limits().read_maximum), resources.read_pool),
      write_(mount_.volume(), handle_, write_size_, kCommitAfter, resources.write_pool) {
    read_.expect_size(place.object->attributes.size);
}

// ---- reading

void OpenFile::read(uint64_t offset, std::span<std::byte> buffer, DoneCompletion done) {
    if (dirty()) {
        if (Status failure = flush(); !failure.ok()) return done(std::move(failure));
    }
    read_.read(offset, buffer, [this, offset, buffer, done = std::move(done)](Status status) {
        if (status.number() == ESTALE)
            stale_reads_.push_back({offset, buffer, done, std::move(status)});
        else
            done(named(status));
    });
}

void OpenFile::recover() {
    auto reads = std::exchange(stale_reads_, {});
    if (reads.empty()) return;
    const Status failure = look_up_again();
    for (auto &read : reads) {
        if (!failure.ok()) {
            read.done(named(read.failure));
            continue;
        }
        read_.read(read.offset, read.buffer,
                   [this, done = std::move(read.done)](const Status &status) { done(named(status)); });
    }
}

void OpenFile::finish_reads() {
    while (!read_.idle() || needs_recovery()) {
        recover();
        mount_.loop().run_until([this] { return read_.idle() || needs_recovery(); });
    }
}

// Only a handle names a file (RFC 1813 section 2.5): the file id of a removed file is soon that of a new one. A handle
// that the server gives out again deserves the second try: it may have been refused while an export was being loaded.
Status OpenFile::look_up_again() {
    auto place = resources_.look_up_again(path_);
    if (!place.ok()) return place.status();
    const auto &object = place.value().object;
    if (place.value().mount != &mount_ || !object || object->handle != handle_)
        return {ESTALE, path_ + " is another file now"};
    read_.forget();
    return {};
}

// ---- writing

Status OpenFile::write(uint64_t offset, std::span<const std::byte> data) {
    if (!write_.failure().ok() || write_.overlaps(offset, data.size())) settle();
    read_.forget();
    mount_.cache().forget_attributes(handle_);
    while (write_.failure().ok() && !data.empty()) {
        const std::size_t accepted = write_.accept(offset, data);
        offset += accepted;
        data = data.subspan(accepted);
        if (!data.empty()) wait_for_room();
    }
    return named(write_.failure());
}

// Memory comes back when blocks are committed. When this file holds little of it, others hold the rest and are waited
// for; what they fail with is told when they are flushed.
void OpenFile::wait_for_room() {
    if (write_.held() < kCommitAfter) resources_.settle_all();
    mount_.loop().run_until(
        [this] { return !write_.failure().ok() || write_.clean() || resources_.write_pool.has_room(write_size_); });
    if (!write_.failure().ok()) settle();
}

const Status &OpenFile::settle() {
    const auto wait = [this] {
        write_.flush();
        mount_.loop().run_until([this] { return write_.settled(); });
    };
    wait();
    if (write_.failure().number() == ESTALE && look_up_again().ok()) {
        write_.restart();
        wait();
    }
    return write_.failure();
}

Status OpenFile::flush() {
    if (!dirty()) return {};
    settle();
    mount_.cache().forget_attributes(handle_);
    return named(write_.take_failure());
}

Status OpenFile::resize(uint64_t size) {
    if (Status failure = flush(); !failure.ok()) return failure;
    read_.forget();
    if (write_.size_shown() == size) {
        read_.expect_size(size);
        return {};
    }
    write_.forget_size_shown();
    SetAttributes set;
    set.size = size;
    Status status = mount_.set_attributes(handle_, set);
    if (status.number() == ESTALE && look_up_again().ok()) status = mount_.set_attributes(handle_, set);
    if (status.ok()) read_.expect_size(size);
    return named(status);
}

}  // namespace nfstdm
