// SPDX-License-Identifier: Apache-2.0
// The write-behind window of one open file: bytes that were accepted and are not yet on stable storage.
//
// Accepted bytes are joined into large UNSTABLE WRITEs. A block of bytes is kept until a COMMIT confirms, with the
// verifier its WRITE was answered with, that the server did not lose it in between; when the verifier changed, the
// block is written again (RFC 1813 sections 3.3.7 and 3.3.21). Much uncommitted data is committed while more is
// accepted, so that the memory stays bounded.
//
// The first failure is kept and nothing new is sent after it. It drops what was not written, except for a stale handle:
// the bytes then wait for restart().
//
// The file is held open on its server from the first WRITE on, or since it was made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <span>

#include "nfstdm/base/scoped.h"
#include "nfstdm/files/buffer_pool.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm {

class WriteBehind {
  public:
    // write_size: bytes of one WRITE; commit_after: uncommitted bytes that start a COMMIT of their own accord. Volume
    // and pool must outlive the object.
    WriteBehind(Volume &volume, const FileHandle &file, uint32_t write_size, std::size_t commit_after,
                BufferPool &pool);
    WriteBehind(const WriteBehind &) = delete;
    WriteBehind &operator=(const WriteBehind &) = delete;

    // Copies from the front of data what there is memory for and gives that number of bytes. There must have been no
    // failure, and overlaps() must not hold: two WRITEs of the same bytes could be done in either order.
    std::size_t accept(uint64_t offset, std::span<const std::byte> data);
    bool overlaps(uint64_t offset, std::size_t size) const;

    // Starts bringing everything accepted to stable storage; done when settled().
    void flush();

    // The file, open to be written.
    VolumeFile &file();
    // It is open already, as this.
    void take_over(std::unique_ptr<VolumeFile> file);
    // So many bytes of it are on stable storage already, and that is its size.
    void begin_at(uint64_t size) { size_shown_ = size; }

    // The first byte that was accepted and that the server has not answered for yet, or that a failure kept from
    // stable storage; nothing when it answered for all. What a failure lost is known until the next accept().
    std::optional<uint64_t> unanswered_from() const;

    bool clean() const { return blocks_.empty(); }  // every accepted byte is on stable storage, or failed
    bool settled() const { return writing_ == 0 && !committing_ && (clean() || !failure_.ok()); }
    std::size_t held() const { return held_; }  // bytes of memory

    // The file's size in bytes as the answers to WRITEs showed it; nothing when they left any doubt.
    std::optional<uint64_t> size_shown() const { return size_doubted_ ? std::nullopt : size_shown_; }
    void forget_size_shown();

    const Status &failure() const { return failure_; }
    // The first failure there was, which is forgotten, and with it every byte that is still held. Only when settled.
    Status take_failure();
    // Writes everything held again, when the server knows the handle again. Only when settled.
    void restart();

  private:
    enum class State { filling, ready, writing, uncommitted, committing };
    struct Block {
        uint64_t offset = 0;
        std::size_t size = 0;     // bytes accepted
        std::size_t room = 0;     // bytes it may hold
        std::size_t written = 0;  // bytes the server has answered for
        State state = State::filling;
        bool stable = false;  // every part was written to stable storage at once
        uint64_t verifier = 0;
        unsigned restarts = 0;
        Buffer buffer;

        uint64_t end() const { return offset + size; }
    };
    using BlockPointer = std::shared_ptr<Block>;

    Block *open_block(uint64_t offset);
    void close_block();
    void make_ready(const BlockPointer &block);
    void pump();
    void write(const BlockPointer &block);
    void written(const BlockPointer &block, std::size_t asked, const Result<WriteReply> &reply);
    Status take_reply(Block &block, std::size_t asked, const Result<WriteReply> &reply);
    void learn_size(uint64_t written_to, const std::optional<Attributes> &attributes);
    void finish_writing(const BlockPointer &block);
    bool commit_is_due() const;
    void commit();
    void committed(const Result<CommitReply> &reply);
    void settle_committed(uint64_t verifier);
    void fail(const Status &failure);
    bool keeps_blocks() const;
    void lose(const BlockPointer &block);
    void drop(const BlockPointer &block);
    void drop_all();

    Volume &volume_;
    const FileHandle handle_;
    std::unique_ptr<VolumeFile> file_;  // null until it is wanted
    const std::size_t write_size_;
    const std::size_t commit_after_;
    BufferPool &pool_;

    std::map<uint64_t, BlockPointer> blocks_;  // by offset; they do not overlap
    std::deque<BlockPointer> ready_;
    BlockPointer filling_;
    std::size_t held_ = 0;
    std::size_t writing_ = 0;      // WRITEs on the wire
    std::size_t uncommitted_ = 0;  // bytes in state uncommitted
    bool committing_ = false;
    bool flushing_ = false;
    unsigned fruitless_commits_ = 0;
    std::optional<uint64_t> size_shown_;
    bool size_doubted_ = false;
    std::optional<uint64_t> lost_from_;  // the first byte that a failure kept from stable storage
    Status failure_;
    Lifeline life_;
};

}  // namespace nfstdm
