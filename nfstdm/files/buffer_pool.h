// SPDX-License-Identifier: Apache-2.0
// The memory of a window: a bounded number of bytes, however many files share it.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <vector>

namespace nfstdm {

// Memory that begins with a page. So do the buffers of callers who care about speed, and between two places in a page
// that differ by a few bytes some processors copy at a quarter of their speed.
struct PagesDeleter {
    static constexpr std::align_val_t kAlignment{4096};
    void operator()(std::byte *bytes) const { ::operator delete[](bytes, kAlignment); }
};
using Pages = std::unique_ptr<std::byte[], PagesDeleter>;

// What a pool and its buffers have in common. A request on the wire keeps its buffer, and so this, beyond the pool.
struct PoolMemory {
    // Buffers given back are kept for the next taker, as long as all asks are of one size: memory that was touched
    // before costs no page faults.
    std::vector<Pages> spare;
    std::size_t spare_size = 0;
    std::size_t taken = 0;  // bytes

    // What a buffer takes: whole pages, since it begins with one.
    static std::size_t cost(std::size_t size);
};

// Gives its memory back to its pool.
class Buffer {
  public:
    Buffer() = default;
    Buffer(Buffer &&other) noexcept;
    Buffer &operator=(Buffer &&other) noexcept;
    ~Buffer();

    std::span<std::byte> span() const { return {bytes_.get(), size_}; }
    std::size_t size() const { return size_; }

  private:
    friend class BufferPool;
    Buffer(std::shared_ptr<PoolMemory> memory, Pages bytes, std::size_t size)
        : memory_(std::move(memory)), bytes_(std::move(bytes)), size_(size) {}

    std::shared_ptr<PoolMemory> memory_;  // null: no buffer
    Pages bytes_;
    std::size_t size_ = 0;
};

class BufferPool {
  public:
    explicit BufferPool(std::size_t limit) : limit_(limit), memory_(std::make_shared<PoolMemory>()) {}
    BufferPool(const BufferPool &) = delete;
    BufferPool &operator=(const BufferPool &) = delete;

    // Nothing when the pool would exceed its limit; the very first buffer is given whatever its size. The content is
    // not initialised.
    std::optional<Buffer> take(std::size_t size);
    bool has_room(std::size_t size) const;
    std::size_t taken() const { return memory_->taken; }  // bytes, in whole pages

  private:
    std::size_t limit_;
    std::shared_ptr<PoolMemory> memory_;
};

}  // namespace nfstdm
