// SPDX-License-Identifier: Apache-2.0
// The memory of a window: a bounded number of bytes, however many files share it.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace nfstdm {

class BufferPool;

// Memory that begins with a page. So do the buffers of callers who care about speed, and between two places in a page
// that differ by a few bytes some processors copy at a quarter of their speed.
struct PagesDeleter {
    static constexpr std::align_val_t kAlignment{4096};
    void operator()(std::byte *bytes) const { ::operator delete[](bytes, kAlignment); }
};
using Pages = std::unique_ptr<std::byte[], PagesDeleter>;

// Memory taken from a pool, given back when destroyed. The pool must outlive it.
class Buffer {
  public:
    Buffer() = default;
    Buffer(Buffer &&other) noexcept
        : pool_(std::exchange(other.pool_, nullptr)), bytes_(std::move(other.bytes_)), size_(other.size_) {}
    Buffer &operator=(Buffer &&other) noexcept;
    ~Buffer();

    std::span<std::byte> span() const { return {bytes_.get(), size_}; }
    std::size_t size() const { return size_; }

  private:
    friend class BufferPool;
    Buffer(BufferPool &pool, Pages bytes, std::size_t size)
        : pool_(&pool), bytes_(std::move(bytes)), size_(size) {}

    BufferPool *pool_ = nullptr;
    Pages bytes_;
    std::size_t size_ = 0;
};

class BufferPool {
  public:
    explicit BufferPool(std::size_t limit) : limit_(limit) {}
    BufferPool(const BufferPool &) = delete;
    BufferPool &operator=(const BufferPool &) = delete;

    // Nothing when the pool would exceed its limit; the very first buffer is given whatever its size. The content is
    // not initialised.
    std::optional<Buffer> take(std::size_t size);
    bool has_room(std::size_t size) const { return taken_ == 0 || (size <= limit_ && taken_ <= limit_ - size); }
    std::size_t taken() const { return taken_; }  // bytes

  private:
    friend class Buffer;
    void give_back(Pages bytes, std::size_t size);

    // Buffers given back are kept for the next taker, as long as all asks are of one size: memory that was touched
    // before costs no page faults.
    std::vector<Pages> spare_;
    std::size_t spare_size_ = 0;
    std::size_t limit_;
    std::size_t taken_ = 0;
};

}  // namespace nfstdm
