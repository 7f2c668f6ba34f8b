// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/open_file.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "nfstdm/files/await.h"
#include "nfstdm/volume/sizes.h"

namespace nfstdm {
namespace {

constexpr std::size_t kCommitAfter = FileResources::kWriteMemory / 2;

uint32_t transfer_size(uint32_t maximum) {
    return std::clamp<uint32_t>(maximum, 1, kTransferMaximum);
}

std::string names_of(const FileHandle &handle, const std::string &path) {
    std::string names;
    names.reserve(1 + handle.size + path.size());
    names += static_cast<char>(handle.size);
    names += handle.view();
    return names += path;
}

}  // namespace

OpenFile::OpenFile(const Place &place, FileResources &resources)
    : mount_(*place.mount),
      resources_(resources),
      known_size_(place.object->attributes.size),
      names_(names_of(place.object->handle, place.path())) {}

OpenFile::~OpenFile() {
    unlist();
}

OpenFile::Windows::Windows(const OpenFile &file, FileResources &resources)
    : write_size(transfer_size(file.mount_.volume().limits().write_maximum)),
      read(file.mount_.volume(), file.handle(), transfer_size(file.mount_.volume().limits().read_maximum),
           resources.read_pool),
      write(file.mount_.volume(), file.handle(), write_size, kCommitAfter, resources.write_pool) {
    read.expect_size(file.known_size_);
}

OpenFile::Windows &OpenFile::windows() {
    if (!windows_) windows_ = std::make_unique<Windows>(*this, resources_);
    return *windows_;
}

void OpenFile::rest() {
    if (!windows_ || dirty() || needs_recovery() || !windows_->read.idle()) return;
    unlist();
    windows_.reset();
}

FileHandle OpenFile::handle() const {
    FileHandle handle;
    handle.size = static_cast<uint8_t>(handle_size());
    std::copy_n(names_.begin() + 1, handle_size(), handle.bytes.begin());
    return handle;
}

// ---- reading

void OpenFile::read(uint64_t offset, std::span<std::byte> buffer, DoneCompletion done) {
    if (dirty()) {
        if (Status failure = flush(); !failure.ok()) return done(std::move(failure));
    }
    windows().read.read(offset, buffer, [this, offset, buffer, done = std::move(done)](Status status) {
        if (status.is(Condition::stale))
            windows_->stale_reads.push_back({offset, buffer, done, std::move(status)});
        else
            done(named(status));
    });
}

std::span<const std::byte> OpenFile::lend(uint64_t offset, std::size_t most) {
    if (dirty()) return {};
    ReadAhead &window = windows().read;
    mount_.loop().poll_once();  // also while the bytes are there already, so that the connections are kept busy
    window.ask(offset);
    mount_.loop().run_until([&window, offset] { return window.has_come(offset); });
    return window.lend(offset, most);
}

void OpenFile::recover() {
    if (!needs_recovery()) return;
    auto reads = std::exchange(windows_->stale_reads, {});
    const Status failure = look_up_again();
    for (auto &read : reads) {
        if (!failure.ok()) {
            read.done(named(read.failure));
            continue;
        }
        windows_->read.read(read.offset, read.buffer,
                            [this, done = std::move(read.done)](const Status &status) { done(named(status)); });
    }
}

void OpenFile::finish_reads() {
    while (windows_ && (!windows_->read.idle() || needs_recovery())) {
        recover();
        mount_.loop().run_until([this] { return windows_->read.idle() || needs_recovery(); });
    }
}

void OpenFile::forget_read_ahead() {
    if (windows_) windows_->read.forget();
}

void OpenFile::set_known_size(uint64_t size) {
    known_size_ = size;
    if (windows_) windows_->read.expect_size(size);
}

// Only a handle names a file (RFC 1813 section 2.5): the file id of a removed file is soon that of a new one. A handle
// that the server gives out again deserves the second try: it may have been refused while an export was being loaded.
Status OpenFile::look_up_again() {
    auto place = resources_.look_up_again(path());
    if (!place.ok()) return place.status();
    const auto &object = place.value().object;
    if (place.value().mount != &mount_ || !object || object->handle != handle())
        return {ESTALE, path() + " is another file now", Condition::stale};
    forget_read_ahead();
    return {};
}

// A file that takes up as much as it is long has no holes that anyone need ask for.
Result<Extent> OpenFile::extent(uint64_t offset) {
    if (!mount_.volume().tells_holes()) return Status{ENOTSUP, path() + ": where it has holes is not known"};
    if (Status failure = flush(); !failure.ok()) return failure;
    const auto attributes = mount_.attributes(handle());
    if (!attributes.ok()) return named(attributes.status());
    const uint64_t size = known_size_;
    if (offset >= size) return Extent{size, size};
    if (attributes.value().used >= size) return Extent{offset, size};
    VolumeFile &file = windows().read.file();
    const auto found = await<Extent>(mount_.loop(), [&](auto done) { file.extent(offset, std::move(done)); });
    if (!found.ok()) return named(found.status());
    const Extent extent{std::min(found.value().begin, size), std::min(found.value().end, size)};
    windows_->read.go_on_at(extent.begin, extent.end);
    return extent;
}

// ---- writing

void OpenFile::begin_with(MadeFile made, std::span<const std::byte> content) {
    if (made.file) windows().write.take_over(std::move(made.file));
    if (made.has_content)
        windows().write.begin_at(content.size());
    else if (!content.empty())
        static_cast<void>(write(0, content));
}

void OpenFile::list_as_unwritten() {
    if (!windows().unwritten) windows_->unwritten = resources_.unwritten.insert(resources_.unwritten.end(), this);
}

void OpenFile::unlist() {
    if (!windows_ || !windows_->unwritten) return;
    resources_.unwritten.erase(*windows_->unwritten);
    windows_->unwritten.reset();
}

Status OpenFile::write(uint64_t offset, std::span<const std::byte> data) {
    list_as_unwritten();
    WriteBehind &window = windows_->write;
    if (!window.failure().ok() || window.overlaps(offset, data.size())) settle();
    windows_->read.forget();
    mount_.cache().forget_attributes(handle());
    while (window.failure().ok() && !data.empty()) {
        const std::size_t accepted = window.accept(offset, data);
        offset += accepted;
        data = data.subspan(accepted);
        if (!data.empty()) wait_for_room();
    }
    return named(window.failure());
}

// Memory comes back when blocks are committed. When this file holds little of it, others hold the rest and are waited
// for; what they fail with is told when they are flushed.
void OpenFile::wait_for_room() {
    WriteBehind &window = windows_->write;
    if (window.held() < kCommitAfter) {
        for (OpenFile *file : resources_.unwritten)
            if (file->dirty()) file->settle();
    }
    mount_.loop().run_until([this, &window] {
        return !window.failure().ok() || window.clean() || resources_.write_pool.has_room(windows_->write_size);
    });
    if (!window.failure().ok()) settle();
}

const Status &OpenFile::settle() {
    WriteBehind &window = windows().write;
    const auto wait = [this, &window] {
        window.flush();
        mount_.loop().run_until([&window] { return window.settled(); });
    };
    wait();
    if (window.failure().is(Condition::stale) && look_up_again().ok()) {
        window.restart();
        wait();
    }
    return window.failure();
}

Status OpenFile::flush() {
    Status failure;
    if (dirty()) {
        settle();
        mount_.cache().forget_attributes(handle());
        failure = named(windows_->write.take_failure());
    }
    unlist();
    return failure;
}

std::optional<uint64_t> OpenFile::unanswered_from(EventLoop::Clock::duration wait) {
    if (!windows_) return {};
    WriteBehind &window = windows_->write;
    if (wait > wait.zero() && window.failure().ok()) {
        EventLoop &loop = mount_.loop();
        const auto over = std::make_shared<bool>(false);
        const auto timer = loop.after(wait, [over] { *over = true; });
        window.flush();
        loop.run_until([&] { return *over || window.settled(); });
        loop.cancel(timer);
    }
    return window.unanswered_from();
}

Result<uint64_t> OpenFile::copy_from(OpenFile &source, const CopyRange &range) {
    if (Status failure = source.flush(); !failure.ok()) return failure;
    if (Status failure = flush(); !failure.ok()) return failure;
    forget_read_ahead();
    WriteBehind &window = windows().write;
    window.forget_size_shown();
    VolumeFile &from = source.windows().read.file();
    const auto copied =
        await<CopyReply>(mount_.loop(), [&](auto done) { window.file().copy_from(from, range, std::move(done)); });
    mount_.cache().forget_attributes(handle());
    if (!copied.ok()) return named(copied.status());
    set_known_size(std::max(known_size_, range.destination_offset + copied.value().count));
    return copied.value().count;
}

Status OpenFile::resize(uint64_t size) {
    if (Status failure = flush(); !failure.ok()) return failure;
    forget_read_ahead();
    WriteBehind &window = windows().write;
    if (window.size_shown() == size) {
        set_known_size(size);
        return {};
    }
    window.forget_size_shown();
    Status status = set_size(size);
    if (status.is(Condition::stale) && look_up_again().ok()) status = set_size(size);
    if (status.ok()) set_known_size(size);
    return named(status);
}

Status OpenFile::set_size(uint64_t size) {
    VolumeFile &file = windows().write.file();
    mount_.cache().forget_attributes(handle());
    return await_done(mount_.loop(), [&](auto done) { file.resize(size, std::move(done)); });
}

}  // namespace nfstdm
