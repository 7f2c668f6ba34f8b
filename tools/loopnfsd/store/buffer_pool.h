// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace loopnfsd {

// Buffers of one size, used again and again: a fresh mebibyte costs the kernel more than reading a file into it.
class BufferPool {
  public:
    explicit BufferPool(std::size_t size) : size_(size), free_(std::make_shared<Free>()) {}

    // Uninitialised. Comes back to the pool by itself, also after the pool's end.
    std::shared_ptr<std::byte[]> take() {
        std::unique_ptr<std::byte[]> buffer;
        if (free_->empty()) {
            buffer = std::make_unique_for_overwrite<std::byte[]>(size_);
        } else {
            buffer = std::move(free_->back());
            free_->pop_back();
        }
        return {buffer.release(), [free = free_](std::byte *bytes) {
                    std::unique_ptr<std::byte[]> back(bytes);
                    if (free->size() < kKept) free->push_back(std::move(back));
                }};
    }

  private:
    static constexpr std::size_t kKept = 64;
    using Free = std::vector<std::unique_ptr<std::byte[]>>;

    std::size_t size_;
    std::shared_ptr<Free> free_;
};

}  // namespace loopnfsd
