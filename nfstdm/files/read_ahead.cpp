// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/read_ahead.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>

namespace nfstdm {
namespace {

constexpr std::size_t kWidthAtStart = 3;  // files are mostly read from their beginning to their end
constexpr std::size_t kWidthAfterSeek = 1;
constexpr std::size_t kWidthAlways = 3;  // even next to the server: one is used, one lands, one is read from the disk
constexpr std::size_t kSmallestRead =
    64 << 10;  // bytes; a server that answers with less is asked for this all the same

// What is wrong with a reply, beyond what the protocol reported.
Status check(std::size_t asked, const Result<ReadReply> &reply) {
    if (!reply.ok()) return reply.status();
    if (reply.value().count > asked) return {EIO, "the server read more than it was asked for"};
    if (reply.value().count == 0 && !reply.value().eof)
        return {EIO, "the server read nothing, although the file does not end here"};
    return {};
}

}  // namespace

ReadAhead::ReadAhead(Volume &volume, const FileHandle &file, uint32_t read_size, BufferPool &pool,
                     std::function<Clock::time_point()> now)
    : volume_(volume),
      handle_(file),
      read_size_(read_size),
      buffer_size_(read_size),
      pool_(pool),
      width_(kWidthAtStart),
      now_(std::move(now)) {}

VolumeFile &ReadAhead::file() {
    if (!file_) file_ = volume_.open(handle_, Access::read);
    return *file_;
}

void ReadAhead::begin_with(const std::shared_ptr<EarlyRead> &early) {
    auto chunk = std::make_shared<Chunk>();
    chunk->length = early->buffer.size();
    chunk->early = early;
    window_.push_back(chunk);
    ++in_flight_;
    auto take_in = [this, life = life_.watch(), chunk, early = early.get()] {
        if (!life.expired() && !chunk->dropped) filled(chunk, chunk->length, *early->reply);
    };
    if (early->reply) return take_in();
    early->waiting = std::move(take_in);
}

void ReadAhead::read(uint64_t offset, std::span<std::byte> buffer, DoneCompletion done) {
    move_to(offset);
    position_ = offset + buffer.size();
    Request request{offset, buffer, std::move(done), {}};
    if (!window_allowed_) return read_directly(std::move(request));
    requests_.push_back(std::move(request));
    extend();
    serve();
    if (requests_.empty()) return;
    adapt_width();
    extend();
}

// Decides whether a request that begins here is served from the window. A window that somebody still waits for stays
// where it is; a request elsewhere is then read by itself.
void ReadAhead::move_to(uint64_t offset) {
    const bool in_window = !window_.empty() && offset >= window_.front()->offset && offset <= window_.back()->end();
    window_allowed_ = in_window || offset == position_;
    if (!window_allowed_) width_ = kWidthAfterSeek;
    if (!in_window && requests_.empty()) drop_window();
}

void ReadAhead::go_on_at(uint64_t begin, uint64_t end) {
    position_ = begin;
    data_end_ = end;
}

void ReadAhead::forget() {
    drop_window();
    if (requests_.empty()) return;
    extend();
    serve();
}

void ReadAhead::drop_window() {
    for (const auto &chunk : window_) {
        chunk->dropped = true;
        if (!chunk->ready) --in_flight_;
    }
    window_.clear();
}

// ---- filling the window

void ReadAhead::extend() {
    while (window_.size() < width_) {
        const uint64_t front = requests_.empty() ? position_ : requests_.front().offset;
        if (!extend_by_one(window_.empty() ? front : window_.back()->end())) return;
    }
}

// READs after the first start at multiples of their size. The window stops at the expected end: what lies beyond is
// read only when asked for.
bool ReadAhead::extend_by_one(uint64_t offset) {
    const uint64_t end = std::min(expected_size_, data_end_);
    if (offset >= end) return false;
    if (in_flight_ > 0 && volume_.busy()) return false;
    auto buffer = pool_.take(buffer_size_);
    if (!buffer) return false;
    auto chunk = std::make_shared<Chunk>();
    chunk->offset = offset;
    chunk->length = std::min<uint64_t>(read_size_ - offset % read_size_, end - offset);
    chunk->buffer = std::move(*buffer);
    window_.push_back(chunk);
    ++in_flight_;
    fill(chunk);
    return true;
}

void ReadAhead::fill(const std::shared_ptr<Chunk> &chunk) {
    const auto wanted = chunk->bytes().subspan(chunk->filled, chunk->length - chunk->filled);
    file().read(
        chunk->offset + chunk->filled, wanted,
        [this, life = life_.watch(), chunk, asked = wanted.size(), sent = now_()](const Result<ReadReply> &reply) {
            if (life.expired() || chunk->dropped) return;
            measure(sent);
            filled(chunk, asked, reply);
        });
}

void ReadAhead::measure(Clock::time_point sent) {
    constexpr int kWeight = 8;  // of what was before
    const auto end = now_();
    fastest_ = std::min(fastest_, end - sent);
    if (in_flight_ > 1 && last_end_ != Clock::time_point{}) {
        const auto interval = end - last_end_;
        spacing_ = spacing_ == Clock::duration::zero() ? interval : ((kWeight - 1) * spacing_ + interval) / kWeight;
    }
    last_end_ = end;
}

// Widens quickly, for the line stands empty meanwhile, and narrows slowly, for one hesitation says little.
void ReadAhead::adapt_width() {
    const std::size_t useful = useful_width();
    width_ = useful < width_ ? width_ - 1 : std::min(width_ * 2, useful);
}

// As many READs as end in the time that the fastest one took, which is the line's length, and twice as many again
// because neither server nor line is steady.
std::size_t ReadAhead::useful_width() const {
    if (spacing_ <= Clock::duration::zero()) return kWidthAlways;
    return std::clamp<std::size_t>(static_cast<std::size_t>(3 * fastest_ / spacing_), kWidthAlways, kWidest);
}

void ReadAhead::filled(const std::shared_ptr<Chunk> &chunk, std::size_t asked, const Result<ReadReply> &reply) {
    chunk->failure = check(asked, reply);
    if (chunk->failure.ok()) {
        learn(asked, reply.value());
        chunk->filled += reply.value().count;
        chunk->at_end = reply.value().eof;
        if (!chunk->at_end && chunk->filled < chunk->length) return fill(chunk);
    }
    chunk->ready = true;
    --in_flight_;
    serve();
    extend();
}

// A server that answers with less than it was asked for will do so again.
void ReadAhead::learn(std::size_t asked, const ReadReply &reply) {
    if (reply.attributes) expected_size_ = reply.attributes->size;
    if (!reply.eof && reply.count < asked)
        read_size_ = std::clamp<std::size_t>(reply.count, std::min(kSmallestRead, read_size_), read_size_);
}

// ---- serving requests from the window

// Finished requests are called back only after the queue is in order again: a callback may ask for more.
void ReadAhead::serve() {
    std::list<Request> finished;
    std::list<Request> outside;
    bool failed = false;
    for (auto request = requests_.begin(); request != requests_.end();) {
        const auto next = std::next(request);
        const auto progress = advance(*request);
        if (progress == Progress::no_chunk) outside.splice(outside.end(), requests_, request);
        if (progress == Progress::finished) {
            failed = failed || !request->result.ok();
            finished.splice(finished.end(), requests_, request);
        }
        request = next;
    }
    if (failed) drop_window();  // so that asking again reads again
    release_consumed();
    for (auto &request : outside)
        read_directly(std::move(request));
    for (auto &request : finished)
        request.done(std::move(request.result));
}

ReadAhead::Progress ReadAhead::advance(Request &request) {
    while (!request.rest.empty()) {
        const Chunk *chunk = chunk_at(request.offset);
        if (chunk == nullptr) return Progress::no_chunk;
        if (!chunk->ready) return Progress::waiting;
        const std::size_t skipped = request.offset - chunk->offset;
        if (skipped >= chunk->filled) {
            request.result = chunk->failure.ok() ? fill_behind_end(request) : chunk->failure;
            return Progress::finished;
        }
        const std::size_t count = std::min(chunk->filled - skipped, request.rest.size());
        std::memcpy(request.rest.data(), chunk->bytes().data() + skipped, count);
        request.rest = request.rest.subspan(count);
        request.offset += count;
    }
    return Progress::finished;
}

// The file has ended where the rest of a request begins. Whoever counts on the size that was told, because the file has
// shrunk since or the server does not tell the truth, must not take zeros for the file's bytes.
Status ReadAhead::fill_behind_end(const Request &request) const {
    if (!request.rest.empty() && request.offset < told_size_)
        return {EIO, "the file ends at byte " + std::to_string(request.offset) + ", although its size was " +
                         std::to_string(told_size_)};
    std::ranges::fill(request.rest, std::byte{0});
    return {};
}

const ReadAhead::Chunk *ReadAhead::chunk_at(uint64_t offset) const {
    for (const auto &chunk : window_) {
        const bool behind_end = chunk->ready && chunk->at_end && offset >= chunk->offset;
        if (behind_end || (offset >= chunk->offset && offset < chunk->end())) return chunk.get();
    }
    return nullptr;
}

void ReadAhead::release_consumed() {
    uint64_t needed = position_;
    for (const auto &request : requests_)
        needed = std::min(needed, request.offset);
    while (!window_.empty() && window_.front()->ready && window_.front()->end() <= needed)
        window_.pop_front();
}

// ---- lending

// As for a request that begins here, except that nothing is copied: it is a seek, or it is served from the window.
void ReadAhead::ask(uint64_t offset) {
    move_to(offset);
    if (!window_allowed_) return;
    position_ = offset;
    release_consumed();
    extend();
    if (has_come(offset)) return;
    adapt_width();
    extend();
}

bool ReadAhead::has_come(uint64_t offset) const {
    const Chunk *chunk = chunk_at(offset);
    return chunk == nullptr || chunk->ready;
}

std::span<const std::byte> ReadAhead::lend(uint64_t offset, std::size_t most) {
    const Chunk *chunk = requests_.empty() ? chunk_at(offset) : nullptr;
    const std::size_t skipped = chunk == nullptr ? 0 : offset - chunk->offset;
    if (chunk == nullptr || !chunk->ready || skipped >= chunk->filled) return {};
    position_ = offset + std::min(chunk->filled - skipped, most);
    return chunk->bytes().subspan(skipped, position_ - offset);
}

// ---- requests read by themselves

void ReadAhead::read_directly(Request request) {
    ++direct_;
    continue_directly(std::make_shared<Request>(std::move(request)));
}

void ReadAhead::continue_directly(const std::shared_ptr<Request> &request) {
    if (request->rest.empty()) return finish_directly(request, {});
    const auto wanted = request->rest.first(std::min(request->rest.size(), buffer_size_));
    file().read(request->offset, wanted,
                [this, life = life_.watch(), request, asked = wanted.size()](const Result<ReadReply> &reply) {
                    if (!life.expired()) directly_read(request, asked, reply);
                });
}

void ReadAhead::directly_read(const std::shared_ptr<Request> &request, std::size_t asked,
                              const Result<ReadReply> &reply) {
    if (auto failure = check(asked, reply); !failure.ok()) return finish_directly(request, std::move(failure));
    learn(asked, reply.value());
    request->offset += reply.value().count;
    request->rest = request->rest.subspan(reply.value().count);
    if (!reply.value().eof) return continue_directly(request);
    finish_directly(request, fill_behind_end(*request));
}

void ReadAhead::finish_directly(const std::shared_ptr<Request> &request, Status result) {
    --direct_;
    request->done(std::move(result));
}

}  // namespace nfstdm
