// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/write_behind.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <utility>
#include <vector>

namespace nfstdm {
namespace {

// A server whose verifier changes with every COMMIT never confirms anything; one that is merely restarted confirms
// something in between.
constexpr unsigned kFruitlessCommitsMaximum = 16;
constexpr unsigned kRestartsMaximum = 16;  // of one block, for the same reason

}  // namespace

WriteBehind::WriteBehind(Volume &volume, const FileHandle &file, uint32_t write_size, std::size_t commit_after,
                         BufferPool &pool)
    : volume_(volume), handle_(file), write_size_(write_size), commit_after_(commit_after), pool_(pool) {}

VolumeFile &WriteBehind::file() {
    if (!file_) file_ = volume_.open(handle_, Access::write);
    return *file_;
}

void WriteBehind::take_over(std::unique_ptr<VolumeFile> file) {
    if (!file_) file_ = std::move(file);
}

// ---- accepting

bool WriteBehind::overlaps(uint64_t offset, std::size_t size) const {
    const auto behind = blocks_.lower_bound(offset);
    if (behind != blocks_.end() && behind->first < offset + size) return true;
    return behind != blocks_.begin() && std::prev(behind)->second->end() > offset;
}

std::size_t WriteBehind::accept(uint64_t offset, std::span<const std::byte> data) {
    assert(failure_.ok() && !overlaps(offset, data.size()));
    std::size_t accepted = 0;
    lost_from_.reset();
    while (accepted < data.size()) {
        Block *block = open_block(offset + accepted);
        if (block == nullptr) break;
        const std::size_t count = std::min(block->room - block->size, data.size() - accepted);
        std::copy_n(data.data() + accepted, count, block->buffer.span().data() + block->size);
        block->size += count;
        accepted += count;
        if (block->size == block->room) close_block();
    }
    pump();
    return accepted;
}

// The block that takes the byte at offset; WRITEs after the first start at multiples of their size.
WriteBehind::Block *WriteBehind::open_block(uint64_t offset) {
    if (filling_ && filling_->end() == offset) return filling_.get();
    close_block();
    auto buffer = pool_.take(write_size_);
    if (!buffer) return nullptr;
    filling_ = std::make_shared<Block>();
    filling_->offset = offset;
    filling_->room = write_size_ - offset % write_size_;
    filling_->buffer = std::move(*buffer);
    held_ += write_size_;
    blocks_.emplace(offset, filling_);
    return filling_.get();
}

void WriteBehind::close_block() {
    if (filling_) make_ready(std::exchange(filling_, nullptr));
}

void WriteBehind::make_ready(const BlockPointer &block) {
    block->state = State::ready;
    block->written = 0;
    ready_.push_back(block);
}

void WriteBehind::flush() {
    if (!failure_.ok()) return;
    close_block();
    flushing_ = true;
    pump();
}

// ---- writing

void WriteBehind::pump() {
    if (!failure_.ok()) return;
    while (!ready_.empty() && (writing_ == 0 || !volume_.busy())) {
        const auto block = ready_.front();
        ready_.pop_front();
        ++writing_;
        block->state = State::writing;
        write(block);
    }
    if (commit_is_due()) commit();
    if (clean()) flushing_ = false;
}

// A lone block that is waited for is written to stable storage at once, which spares its COMMIT.
void WriteBehind::write(const BlockPointer &block) {
    const auto stability = flushing_ && blocks_.size() == 1 ? Stability::file_sync : Stability::unstable;
    const auto data = block->buffer.span().subspan(block->written, block->size - block->written);
    file().write(block->offset + block->written, data, stability,
                 [this, life = life_.watch(), block, asked = data.size()](const Result<WriteReply> &reply) {
                     if (!life.expired()) written(block, asked, reply);
                 });
}

void WriteBehind::written(const BlockPointer &block, std::size_t asked, const Result<WriteReply> &reply) {
    const Status failure = take_reply(*block, asked, reply);
    if (failure.ok() && failure_.ok() && block->written < block->size) return write(block);
    --writing_;
    if (failure.ok() && block->written == block->size) {
        finish_writing(block);
    } else {
        make_ready(block);
        fail(failure);
    }
    pump();
}

// A block whose parts carry different verifiers is written once more from its start.
Status WriteBehind::take_reply(Block &block, std::size_t asked, const Result<WriteReply> &reply) {
    if (!reply.ok()) return reply.status();
    const auto &answer = reply.value();
    if (answer.count == 0 || answer.count > asked) return {EIO, "the server answered a WRITE with a wrong byte count"};
    const bool restarted = block.written != 0 && answer.verifier != block.verifier;
    if (restarted && ++block.restarts > kRestartsMaximum)
        return {EIO, "the server changes its verifier with every WRITE"};
    learn_size(block.offset + block.written + answer.count, answer.attributes);
    block.stable = answer.committed != Stability::unstable && (block.written == 0 || block.stable);
    block.verifier = answer.verifier;
    block.written = restarted ? 0 : block.written + answer.count;
    return {};
}

// Answers come in any order and the file only grows meanwhile, so the greatest size is the latest. One that does not
// reach to the end of what was written is not the file's: somebody else cut it, or the server does not know better.
void WriteBehind::learn_size(uint64_t written_to, const std::optional<Attributes> &attributes) {
    if (!attributes || attributes->size < written_to)
        size_doubted_ = true;
    else
        size_shown_ = std::max(size_shown_.value_or(0), attributes->size);
}

void WriteBehind::forget_size_shown() {
    size_shown_.reset();
    size_doubted_ = false;
}

void WriteBehind::finish_writing(const BlockPointer &block) {
    if (block->stable) return drop(block);
    if (!(failure_.ok() || keeps_blocks())) return lose(block);
    if (!failure_.ok()) return make_ready(block);
    block->state = State::uncommitted;
    uncommitted_ += block->size;
}

// ---- committing

bool WriteBehind::commit_is_due() const {
    if (committing_ || uncommitted_ == 0) return false;
    return uncommitted_ >= commit_after_ || (flushing_ && writing_ == 0 && ready_.empty());
}

// Confirms the blocks whose WRITEs were answered before it is sent, and no others.
void WriteBehind::commit() {
    for (const auto &[offset, block] : blocks_)
        if (block->state == State::uncommitted) block->state = State::committing;
    uncommitted_ = 0;
    committing_ = true;
    file().commit([this, life = life_.watch()](const Result<CommitReply> &reply) {
        if (!life.expired()) committed(reply);
    });
}

void WriteBehind::committed(const Result<CommitReply> &reply) {
    committing_ = false;
    if (reply.ok())
        settle_committed(reply.value().verifier);
    else
        fail(reply.status());
    pump();
}

void WriteBehind::settle_committed(uint64_t verifier) {
    bool confirmed = false;
    for (const auto &[offset, block] : std::map(blocks_)) {
        if (block->state != State::committing) continue;
        confirmed = confirmed || block->verifier == verifier;
        if (block->verifier == verifier)
            drop(block);
        else if (failure_.ok() || keeps_blocks())
            make_ready(block);
        else
            lose(block);
    }
    fruitless_commits_ = confirmed ? 0 : fruitless_commits_ + 1;
    if (fruitless_commits_ > kFruitlessCommitsMaximum)
        fail({EIO, "the server loses what it was sent before it can be committed"});
}

// ---- failing

bool WriteBehind::keeps_blocks() const {
    return failure_.is(Condition::stale);
}

// Blocks stay until the WRITE or COMMIT that is on the wire for them is answered.
void WriteBehind::fail(const Status &failure) {
    if (failure_.ok()) failure_ = failure;
    flushing_ = false;
    if (keeps_blocks()) return;
    filling_.reset();
    ready_.clear();
    for (const auto &[offset, block] : std::map(blocks_)) {
        const bool awaited = block->state == State::writing || (block->state == State::committing && committing_);
        if (!awaited) lose(block);
    }
    uncommitted_ = 0;
}

// Answered for or not, no COMMIT will confirm it.
void WriteBehind::lose(const BlockPointer &block) {
    lost_from_ = std::min(lost_from_.value_or(block->offset), block->offset);
    drop(block);
}

std::optional<uint64_t> WriteBehind::unanswered_from() const {
    const auto waiting = std::ranges::find_if(blocks_, [](const auto &each) {
        const State state = each.second->state;
        return state == State::filling || state == State::ready || state == State::writing;
    });
    if (waiting == blocks_.end()) return lost_from_;
    const uint64_t from = waiting->first + waiting->second->written;
    return std::min(lost_from_.value_or(from), from);
}

void WriteBehind::drop(const BlockPointer &block) {
    held_ -= write_size_;
    blocks_.erase(block->offset);
}

void WriteBehind::drop_all() {
    filling_.reset();
    ready_.clear();
    blocks_.clear();
    held_ = 0;
    uncommitted_ = 0;
}

Status WriteBehind::take_failure() {
    assert(settled());
    if (!failure_.ok()) {
        for (const auto &[offset, block] : std::map(blocks_))
            lose(block);
        drop_all();
        size_doubted_ = true;
    }
    fruitless_commits_ = 0;
    return std::exchange(failure_, Status{});
}

void WriteBehind::restart() {
    assert(settled());
    failure_ = {};
    uncommitted_ = 0;
    filling_.reset();
    ready_.clear();
    for (const auto &[offset, block] : blocks_)
        make_ready(block);
    flush();
}

}  // namespace nfstdm
