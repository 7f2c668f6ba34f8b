// SPDX-License-Identifier: Apache-2.0
// What the middle of the library asks of a protocol: one small set of asynchronous operations on one export of one
// server. NFSv3 implements it; another version stands beside it by implementing it too.
#pragma once

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "nfstdm/base/status.h"

namespace nfstdm {

// An opaque name of a file on its server; 64 bytes at most in NFSv3, 128 in NFSv4.
struct FileHandle {
    static constexpr std::size_t kMaximum = 128;
    uint8_t size = 0;
    std::array<uint8_t, kMaximum> bytes{};

    std::string_view view() const { return {reinterpret_cast<const char *>(bytes.data()), size}; }
    bool operator==(const FileHandle &other) const { return view() == other.view(); }
};

struct FileHandleHash {
    std::size_t operator()(const FileHandle &handle) const { return std::hash<std::string_view>{}(handle.view()); }
};

// A number by which a handle is told from others (FNV-1a); never 0. The same in every process, as processes tell each
// other what they know, and in every run.
inline uint64_t digest_of(const FileHandle &handle) {
    uint64_t hash = 0xcbf29ce484222325;
    for (const char each : handle.view())
        hash = (hash ^ static_cast<unsigned char>(each)) * 0x100000001b3;
    return hash != 0 ? hash : 1;
}

enum class FileType : uint32_t {
    none = 0,
    regular = 1,
    directory = 2,
    block_device = 3,
    character_device = 4,
    link = 5,
    socket = 6,
    fifo = 7,
};

struct Time {
    uint64_t seconds = 0;  // since the epoch
    uint32_t nanoseconds = 0;
    bool operator==(const Time &) const = default;
};

struct Attributes {
    FileType type = FileType::none;
    uint32_t mode = 0;  // permission bits, 07777
    uint32_t links = 0;
    uint32_t uid = 0;
    uint32_t gid = 0;
    uint64_t size = 0;  // bytes
    uint64_t used = 0;  // bytes on disk
    uint64_t fsid = 0;
    uint64_t fileid = 0;
    Time access;
    Time modification;
    Time change;
};

struct SetAttributes {
    std::optional<uint32_t> mode;
    std::optional<uint64_t> size;
};

struct LookupReply {
    FileHandle handle;
    std::optional<Attributes> attributes;  // of the object found
    std::optional<Attributes> directory;   // of the directory searched
};

// As far as the server got along a path: an answer for each component that was found, and why the next one was not.
struct PathReply {
    std::vector<LookupReply> found;
    Status failure;  // of the component behind those; success when all were found
};

// What shows that a directory was changed.
struct DirectoryState {
    uint64_t size = 0;
    Time modification;
    Time change;
    bool operator==(const DirectoryState &) const = default;
};

// What making or removing a name did to its directory. A server need not tell either.
struct DirectoryChange {
    std::optional<DirectoryState> before;  // unless it is what is known, somebody else changed the directory, too
    std::optional<Attributes> after;
};

// A made object. A server need not tell its handle; the caller then looks the name up.
struct CreateReply {
    std::optional<FileHandle> handle;
    std::optional<Attributes> attributes;
    // Of MKDIR that was sent more than once and met its name: when it was sent first. Whether that sending made the
    // directory, or somebody else did, is for the caller to find out.
    std::optional<std::chrono::steady_clock::time_point> maybe_made_since{};
    DirectoryChange directory{};
};

struct ReadReply {
    uint32_t count = 0;  // bytes put into the buffer; may be fewer than asked for before the end of the file
    bool eof = false;
    std::optional<Attributes> attributes;
};

enum class Stability : uint32_t { unstable = 0, data_sync = 1, file_sync = 2 };

struct WriteReply {
    uint32_t count = 0;  // bytes accepted; may be fewer than sent
    Stability committed = Stability::unstable;
    uint64_t verifier = 0;  // changes when the server may have lost unstable data
    std::optional<Attributes> attributes;
};

struct CommitReply {
    uint64_t verifier = 0;
    std::optional<Attributes> attributes;
};

// Bytes of a file that may hold something; between them are holes, which read as zeros.
struct Extent {
    uint64_t begin = 0;
    uint64_t end = 0;
};

// A part of a file to be copied into another one.
struct CopyRange {
    uint64_t source_offset = 0;
    uint64_t destination_offset = 0;
    uint64_t count = 0;  // bytes, above 0
};

struct CopyReply {
    uint64_t count = 0;  // bytes copied, from the start of the range on, and on stable storage; above 0
};

struct DirectoryEntry {
    uint64_t fileid = 0;
    uint64_t cookie = 0;  // the position after this entry
    std::string name;     // as the server sent it: not trusted yet
    std::optional<Attributes> attributes;
    std::optional<FileHandle> handle;
};

struct DirectoryReply {
    std::vector<DirectoryEntry> entries;
    bool eof = false;
    uint64_t verifier = 0;
    std::optional<Attributes> directory;
};

struct VolumeLimits {
    uint32_t read_maximum = 0;  // bytes of one READ, as this client and the server agree
    uint32_t read_preferred = 0;
    uint32_t read_multiple = 0;
    uint32_t write_maximum = 0;
    uint32_t write_preferred = 0;
    uint32_t write_multiple = 0;
    uint32_t readdir_preferred = 0;
    uint64_t file_size_maximum = 0;
};

struct FsStatReply {
    std::optional<Attributes> attributes;
    uint64_t total_bytes = 0, free_bytes = 0, available_bytes = 0;
    uint64_t total_files = 0, free_files = 0, available_files = 0;
    uint32_t volatility_seconds = 0;
};

struct FsInfoReply {
    std::optional<Attributes> attributes;
    VolumeLimits limits;
};

// A completion is called exactly once for every operation started, from inside EventLoop::run_*, never from inside the
// call that started it; with a failure if need be when the volume is closed. Buffers must live until then.
template <class T>
using Completion = std::function<void(Result<T>)>;
using DoneCompletion = std::function<void(Status)>;

// What a file is opened for.
enum class Access : uint8_t { read = 1, write = 2 };

// A file that is held open, until this is destroyed; its volume must outlive it. Opening is no call of its own: a
// protocol whose server keeps what is open asks it together with the first operation that needs it or just before, asks
// again when the server has lost it, and gives it back when nobody holds the file any more, without anyone waiting for
// that. A protocol without state has nothing to do. What is under way when a file is let go completes all the same.
class VolumeFile {
  public:
    VolumeFile() = default;
    virtual ~VolumeFile() = default;
    VolumeFile(const VolumeFile &) = delete;
    VolumeFile &operator=(const VolumeFile &) = delete;

    // READ data lands straight in buffer, whose size is the count asked for (at most limits().read_maximum).
    virtual void read(uint64_t offset, std::span<std::byte> buffer, Completion<ReadReply> done) = 0;
    // The bytes of data are sent from where they are.
    virtual void write(uint64_t offset, std::span<const std::byte> data, Stability stability,
                       Completion<WriteReply> done) = 0;
    virtual void commit(Completion<CommitReply> done) = 0;
    // In bytes.
    virtual void resize(uint64_t size, DoneCompletion done) = 0;

    // Copies from another file of the same server without moving the bytes to here and back. Fails with ENOTSUP where
    // that cannot be had; the caller then reads and writes.
    virtual void copy_from(VolumeFile &source, const CopyRange &range, Completion<CopyReply> done) = 0;
    // The next bytes at or behind an offset that are no hole; an empty extent when there are none. Fails with ENOTSUP
    // where Volume::tells_holes() does not hold.
    virtual void extent(uint64_t offset, Completion<Extent> done) = 0;
};

// A file that was made, and is open to be written. Null where the server did not tell its handle, and in a protocol
// that keeps nothing for it: it is opened by its handle then.
struct CreatedFile {
    CreateReply reply;
    std::unique_ptr<VolumeFile> file;
    bool has_content = false;  // what it was to be made with is in it, on stable storage
};

class Volume {
  public:
    virtual ~Volume() = default;

    // Contacts the server if that was not done yet (portmapper, MOUNT, FSINFO) and gives the export's root. Gives up
    // after the server's mnt_timeout. A failed contact may be tried again.
    virtual void attach(Completion<FileHandle> done) = 0;

    // Names, one below the other, that will be looked up from the root first: told before attach(), after which a
    // protocol that can gives what it found out of them with the export, once.
    virtual void expect(std::vector<std::string> /*names*/) {}  // NOLINT(performance-unnecessary-value-param): kept
    virtual PathReply take_expected() { return {}; }

    // Valid once attached.
    virtual const VolumeLimits &limits() const = 0;

    // What the server told of the root's file system when it was attached, where it was asked: as it told it.
    virtual std::optional<FsInfoReply> root_info() const { return std::nullopt; }

    // True while a number of operations is on the wire that one more bulk READ or WRITE would only queue behind.
    virtual bool busy() const = 0;

    virtual void getattr(const FileHandle &object, Completion<Attributes> done) = 0;
    virtual void setattr(const FileHandle &object, const SetAttributes &set, DoneCompletion done) = 0;
    virtual void lookup(const FileHandle &directory, std::string_view name, Completion<LookupReply> done) = 0;
    // Several components in one question, where the protocol can: at most this many.
    virtual std::size_t path_components_maximum() const { return 1; }
    virtual void lookup_path(const FileHandle &directory, const std::vector<std::string> &names,
                             Completion<PathReply> done) {
        lookup(directory, names.front(), [done = std::move(done)](const Result<LookupReply> &reply) {
            if (reply.ok()) return done(PathReply{{reply.value()}, {}});
            done(PathReply{{}, reply.status()});
        });
    }
    virtual void readlink(const FileHandle &link, Completion<std::string> done) = 0;

    // A file is opened by its handle, or as it is made.
    virtual std::unique_ptr<VolumeFile> open(const FileHandle &file, Access access) = 0;
    // Makes the file or, when it exists, sets the attributes given (RFC 1813 section 3.3.8, UNCHECKED).
    virtual void create(const FileHandle &directory, std::string_view name, const SetAttributes &set,
                        Completion<CreatedFile> done) = 0;
    // The same, and writes content, if there is any, from the start of the file on, in the same question where the
    // protocol can. What the server declines of the latter, the caller writes.
    virtual void create_with(const FileHandle &directory, std::string_view name, const SetAttributes &set,
                             std::span<const std::byte> /*content*/, Completion<CreatedFile> done) {
        create(directory, name, set, std::move(done));
    }
    // Whether files can be asked for an extent().
    virtual bool tells_holes() const { return false; }

    virtual void mkdir(const FileHandle &directory, std::string_view name, uint32_t mode,
                       Completion<CreateReply> done) = 0;
    virtual void remove(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) = 0;
    virtual void rmdir(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) = 0;

    // One batch of entries from cookie on (0 = the start). With plus the entries carry handles and attributes; a server
    // that lacks the operation fails it with ENOTSUP, and the caller goes on without.
    virtual void readdir(const FileHandle &directory, uint64_t cookie, uint64_t verifier, bool plus,
                         Completion<DirectoryReply> done) = 0;

    virtual void fsinfo(const FileHandle &object, Completion<FsInfoReply> done) = 0;
    virtual void fsstat(const FileHandle &object, Completion<FsStatReply> done) = 0;

    // Tells the server that the export is no longer used (UMNT), at most for a moment and without waiting for what it
    // says to that, and closes the connections.
    // Operations still under way complete with a failure.
    virtual void detach(DoneCompletion done) = 0;
};

}  // namespace nfstdm
