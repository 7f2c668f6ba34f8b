// SPDX-License-Identifier: Apache-2.0
// One file that is identified, and its two windows, which are made on first use and hold it open on its server: many a
// file is identified only to be asked about or removed. Reads are asynchronous; everything else waits.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "nfstdm/files/mounted_volume.h"
#include "nfstdm/files/path_walk.h"
#include "nfstdm/files/read_ahead.h"
#include "nfstdm/files/write_behind.h"

namespace nfstdm {

class OpenFile;

// What all open files of a session share.
struct FileResources {
    // Together, and with what the connections hold, under 64 MiB.
    static constexpr std::size_t kReadMemory = std::size_t{24} << 20;
    static constexpr std::size_t kWriteMemory = std::size_t{32} << 20;

    BufferPool read_pool{kReadMemory};
    BufferPool write_pool{kWriteMemory};
    // Looks a path up anew, nothing taken from a cache.
    std::function<Result<Place>(const std::string &path)> look_up_again;
    // Those that accepted writes since they were flushed last, in the order of the first.
    std::list<OpenFile *> unwritten;
};

class OpenFile {
  public:
    // resources must outlive the object.
    OpenFile(const Place &place, FileResources &resources);
    ~OpenFile();
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;

    // The failure with the file's name in front.
    Status named(const Status &failure) const { return failure.in(path()); }

    MountedVolume &mount() const { return mount_; }
    FileHandle handle() const;

    // The file was just made, and may be open to be written already. The content that it was to be made with is taken
    // over unless it is there; a failure stays for the next flush().
    void begin_with(MadeFile made, std::span<const std::byte> content);

    // The file was just opened, and its start was asked for before that.
    void begin_with(const std::shared_ptr<EarlyRead> &early) { windows().read.begin_with(early); }

    // Fills the buffer, with zeros beyond the end of the file. done is called exactly once, at once when the bytes are
    // there. Accepted writes reach stable storage first.
    void read(uint64_t offset, std::span<std::byte> buffer, DoneCompletion done);
    // The next bytes of the file from an offset on, at most so many, where they lie: they stay until the file is used
    // again, and no file may be between. Waits until some have come; none where read() would have to tell why.
    std::span<const std::byte> lend(uint64_t offset, std::size_t most);
    // Reads that met a stale handle wait for recover(), which looks the file up again, once.
    bool needs_recovery() const { return windows_ && !windows_->stale_reads.empty(); }
    void recover();
    // Waits until no read is under way.
    void finish_reads();

    // Takes the bytes over; waits when the window is full. A failure says that an earlier write failed; it stays for
    // the next flush().
    Status write(uint64_t offset, std::span<const std::byte> data);
    bool dirty() const { return windows_ && !(windows_->write.clean() && windows_->write.failure().ok()); }

    // Has the server copy from another file of it, at least one byte and at most the range: what was copied is on
    // stable storage. Fails with ENOTSUP where the server does not; the caller then reads and writes.
    Result<uint64_t> copy_from(OpenFile &source, const CopyRange &range);
    // The next bytes at or behind an offset that are no hole, up to the file's end; an empty extent there when there
    // are none. Fails with ENOTSUP where that is not known. The caller is taken to read there next.
    Result<Extent> extent(uint64_t offset);

    // Brings every accepted write to stable storage. flush() gives the first failure there was and forgets it,
    // settle() leaves it for a later flush().
    Status flush();
    const Status &settle();

    // The first byte that was accepted and is not answered for, as the window knows it. With a time to wait, everything
    // is on its way to stable storage, and that it is there or has failed ends the wait. The failure stays for flush().
    std::optional<uint64_t> unanswered_from(EventLoop::Clock::duration wait);
    Status write_failure() const { return windows_ ? named(windows_->write.failure()) : Status{}; }

    // In bytes; after a flush. Costs no call when the WRITEs showed that the file has this size.
    Status resize(uint64_t size);
    // Others changed the file, or its memory is wanted elsewhere.
    void forget_read_ahead();
    void set_known_size(uint64_t size);
    bool reads_ahead() const { return windows_ && windows_->read.holds_memory(); }
    // Gives the windows up, and with them the file back to its server, once nothing is read or written and nothing is
    // left to tell.
    void rest();

  private:
    struct StaleRead {
        uint64_t offset;
        std::span<std::byte> buffer;
        DoneCompletion done;
        Status failure;
    };

    struct Windows {
        Windows(const OpenFile &file, FileResources &resources);

        const uint32_t write_size;
        ReadAhead read;
        WriteBehind write;
        std::list<StaleRead> stale_reads;
        std::optional<std::list<OpenFile *>::iterator> unwritten;  // this file's place there
    };

    std::size_t handle_size() const { return static_cast<uint8_t>(names_.front()); }
    std::string path() const { return names_.substr(1 + handle_size()); }
    Windows &windows();
    void list_as_unwritten();
    void unlist();
    Status look_up_again();
    Status set_size(uint64_t size);
    void wait_for_room();

    MountedVolume &mount_;
    FileResources &resources_;
    uint64_t known_size_;      // bytes
    const std::string names_;  // the handle's size, the handle and the path, in one piece of memory
    std::unique_ptr<Windows> windows_;
};

}  // namespace nfstdm
