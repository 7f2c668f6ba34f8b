// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/buffer_pool.h"

#include <utility>

namespace nfstdm {
namespace {

constexpr std::size_t kSpareMaximum = 64;  // buffers

}  // namespace

std::size_t PoolMemory::cost(std::size_t size) {
    constexpr auto kPage = static_cast<std::size_t>(PagesDeleter::kAlignment);
    return (size + kPage - 1) / kPage * kPage;
}

Buffer::Buffer(Buffer &&other) noexcept
    : memory_(std::move(other.memory_)), bytes_(std::move(other.bytes_)), size_(std::exchange(other.size_, 0)) {}

Buffer &Buffer::operator=(Buffer &&other) noexcept {
    std::swap(memory_, other.memory_);
    std::swap(bytes_, other.bytes_);
    std::swap(size_, other.size_);
    return *this;
}

Buffer::~Buffer() {
    if (memory_ == nullptr) return;
    memory_->taken -= PoolMemory::cost(size_);
    if (size_ == memory_->spare_size && memory_->spare.size() < kSpareMaximum)
        memory_->spare.push_back(std::move(bytes_));
}

bool BufferPool::has_room(std::size_t size) const {
    const std::size_t cost = PoolMemory::cost(size);
    return taken() == 0 || (cost <= limit_ && taken() <= limit_ - cost);
}

std::optional<Buffer> BufferPool::take(std::size_t size) {
    if (!has_room(size)) return std::nullopt;
    if (size != memory_->spare_size) {
        memory_->spare.clear();
        memory_->spare.reserve(kSpareMaximum);  // so that giving one back never allocates
        memory_->spare_size = size;
    }
    Pages bytes;
    if (memory_->spare.empty()) {
        bytes.reset(static_cast<std::byte *>(::operator new[](size, PagesDeleter::kAlignment)));
    } else {
        bytes = std::move(memory_->spare.back());
        memory_->spare.pop_back();
    }
    memory_->taken += PoolMemory::cost(size);
    return Buffer(memory_, std::move(bytes), size);
}

}  // namespace nfstdm
