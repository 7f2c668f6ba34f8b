// SPDX-License-Identifier: Apache-2.0
// The read-ahead window of one open file: a ring of READs ahead of the requests, which keeps several large READs on the
// wire however small the requests are and although the caller waits for each.
//
// Requests that follow each other are served from the window. It is widened only when a request had to wait, and only
// as far as keeps the line busy: what more there is on its way would only fall out of the processor's caches before it
// is used. A request somewhere else is a seek: the window is dropped, the request is read by itself straight into the
// caller's buffer, and the window starts again, narrow, when the next request follows on.
//
// The file is held open on its server from the first READ on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <utility>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/base/scoped.h"
#include "nfstdm/files/buffer_pool.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm {

// A READ of a file's start that was asked for before the file was opened. The READ writes into the buffer until it has
// come.
struct EarlyRead {
    Buffer buffer;
    std::optional<Result<ReadReply>> reply;
    std::function<void()> waiting;  // called when it comes

    void arrive(Result<ReadReply> answer) {
        reply = std::move(answer);
        if (const auto call = std::exchange(waiting, nullptr)) call();
    }
};

class ReadAhead {
  public:
    static constexpr std::size_t kWidest = 24;  // READs in the window

    using Clock = EventLoop::Clock;

    // read_size: bytes of one READ. Volume and pool must outlive the object.
    ReadAhead(Volume &volume, const FileHandle &file, uint32_t read_size, BufferPool &pool,
              std::function<Clock::time_point()> now = Clock::now);
    // Requests that still wait are never completed: wait for idle() first.
    ~ReadAhead() = default;
    ReadAhead(const ReadAhead &) = delete;
    ReadAhead &operator=(const ReadAhead &) = delete;

    // Before anything else: the window begins with what was asked for already.
    void begin_with(const std::shared_ptr<EarlyRead> &early);

    // Fills the whole buffer: with the file's bytes and, beyond the end of the file, with zeros. Bytes below the size
    // that was told must be there: where the file ends before it, the request fails. done is called exactly once, at
    // once when the bytes are there; the buffer must live until then.
    void read(uint64_t offset, std::span<std::byte> buffer, DoneCompletion done);

    // Bytes of the file where they lie, in three steps: whoever wants some at an offset asks, waits until they have
    // come, and takes at most so many. They stay until the object is used again. Nothing is given where a request still
    // waits, the file ends or its READ failed: read() tells which.
    void ask(uint64_t offset);
    bool has_come(uint64_t offset) const;
    std::span<const std::byte> lend(uint64_t offset, std::size_t most);

    // Drops what was read ahead: the file has changed. Requests that wait are read again.
    void forget();

    // The file's size as it was told to the caller. As far as nothing newer is known, nothing is read ahead beyond it.
    void expect_size(uint64_t size) {
        expected_size_ = told_size_ = size;
        data_end_ = UINT64_MAX;
    }

    // The caller goes on at begin, and from end on there is nothing worth reading ahead.
    void go_on_at(uint64_t begin, uint64_t end);

    // The file, open to be read.
    VolumeFile &file();

    bool idle() const { return requests_.empty() && direct_ == 0; }
    bool holds_memory() const { return !window_.empty(); }

  private:
    struct Chunk {
        uint64_t offset = 0;
        std::size_t length = 0;  // bytes wanted
        std::size_t filled = 0;  // bytes there
        bool ready = false;      // no READ for it is on the wire any more
        bool at_end = false;     // the file ends behind the filled bytes
        bool dropped = false;    // no longer in the window
        Status failure;
        Buffer buffer;
        std::shared_ptr<EarlyRead> early;  // whose buffer it is instead

        uint64_t end() const { return offset + length; }
        std::span<std::byte> bytes() const { return early ? early->buffer.span() : buffer.span(); }
    };
    struct Request {
        uint64_t offset = 0;
        std::span<std::byte> rest;
        DoneCompletion done;
        Status result;
    };
    enum class Progress { waiting, finished, no_chunk };

    void move_to(uint64_t offset);
    void extend();
    bool extend_by_one(uint64_t offset);
    void fill(const std::shared_ptr<Chunk> &chunk);
    void filled(const std::shared_ptr<Chunk> &chunk, std::size_t asked, const Result<ReadReply> &reply);
    void learn(std::size_t asked, const ReadReply &reply);
    void measure(Clock::time_point sent);
    void adapt_width();
    std::size_t useful_width() const;

    void serve();
    Progress advance(Request &request);
    Status fill_behind_end(const Request &request) const;
    const Chunk *chunk_at(uint64_t offset) const;
    void release_consumed();
    void drop_window();

    void read_directly(Request request);
    void continue_directly(const std::shared_ptr<Request> &request);
    void directly_read(const std::shared_ptr<Request> &request, std::size_t asked, const Result<ReadReply> &reply);
    void finish_directly(const std::shared_ptr<Request> &request, Status result);

    Volume &volume_;
    const FileHandle handle_;
    std::unique_ptr<VolumeFile> file_;  // null until it is wanted
    std::size_t read_size_;             // of the next READ
    const std::size_t buffer_size_;
    BufferPool &pool_;

    std::deque<std::shared_ptr<Chunk>> window_;  // contiguous
    std::list<Request> requests_;                // waiting for the window, in order of arrival
    std::size_t direct_ = 0;                     // requests that are read by themselves
    std::size_t in_flight_ = 0;                  // of the window
    std::size_t width_;                          // READs the window may hold now
    bool window_allowed_ = true;

    const std::function<Clock::time_point()> now_;
    Clock::duration fastest_ = Clock::duration::max();  // READ so far, from its start to its end
    Clock::duration spacing_{};                         // mean time between the ends of READs; 0 = not known
    Clock::time_point last_end_;
    uint64_t position_ = 0;  // end of the latest request
    uint64_t expected_size_ = 0;
    uint64_t told_size_ = 0;
    uint64_t data_end_ = UINT64_MAX;  // as far as is known
    Lifeline life_;
};

}  // namespace nfstdm
