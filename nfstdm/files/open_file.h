// SPDX-License-Identifier: Apache-2.0
// One open file and its two windows. Reads are asynchronous; everything else waits.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <span>
#include <string>

#include "nfstdm/files/mounted_volume.h"
#include "nfstdm/files/path_walk.h"
#include "nfstdm/files/read_ahead.h"
#include "nfstdm/files/write_behind.h"

namespace nfstdm {

// What all open files of a session share.
struct FileResources {
    // Together, and with what the connections hold, under 64 MiB.
    static constexpr std::size_t kReadMemory = std::size_t{24} << 20;
    static constexpr std::size_t kWriteMemory = std::size_t{32} << 20;
    static constexpr uint32_t kTransferMaximum = 1 << 20;  // bytes of one READ or WRITE

    BufferPool read_pool{kReadMemory};
    BufferPool write_pool{kWriteMemory};
    // Looks a path up anew, nothing taken from a cache.
    std::function<Result<Place>(const std::string &path)> look_up_again;
    // Brings the accepted writes of all files to stable storage, so that their memory becomes free.
    std::function<void()> settle_all;
};

class OpenFile {
  public:
    // resources must outlive the object.
    OpenFile(const Place &place, FileResources &resources);

    // The failure with the file's name in front.
    Status named(const Status &failure) const { return failure.in(path_); }

    const MountedVolume &mount() const { return mount_; }
    const FileHandle &handle() const { return handle_; }

    // Fills the buffer, with zeros beyond the end of the file. done is called exactly once, at once when the bytes are
    // there. Accepted writes reach stable storage first.
    void read(uint64_t offset, std::span<std::byte> buffer, DoneCompletion done);
    // Reads that met a stale handle wait for recover(), which looks the file up again, once.
    bool needs_recovery() const { return !stale_reads_.empty(); }
    void recover();
    // Waits until no read is under way.
    void finish_reads();

    // Takes the bytes over; waits when the window is full. A failure says that an earlier write failed; it stays for
    // the next flush().
    Status write(uint64_t offset, std::span<const std::byte> data);
    bool dirty() const { return !write_.clean() || !write_.failure().ok(); }

    // Brings every accepted write to stable storage. flush() gives the first failure there was and forgets it,
    // settle() leaves it for a later flush().
    Status flush();
    const Status &settle();

    // In bytes; after a flush. Costs no call when the WRITEs showed that the file has this size.
    Status resize(uint64_t size);
    // Others changed the file, or its memory is wanted elsewhere.
    void forget_read_ahead() { read_.forget(); }
    void set_known_size(uint64_t size) { read_.expect_size(size); }
    bool reads_ahead() const { return read_.holds_memory(); }

  private:
    struct StaleRead {
        uint64_t offset;
        std::span<std::byte> buffer;
        DoneCompletion done;
        Status failure;
    };

    Status look_up_again();
    void wait_for_room();

    MountedVolume &mount_;
    FileResources &resources_;
    const std::string path_;
    const FileHandle handle_;
    const uint32_t write_size_;
    ReadAhead read_;
    WriteBehind write_;
    std::list<StaleRead> stale_reads_;
};

}  // namespace nfstdm
