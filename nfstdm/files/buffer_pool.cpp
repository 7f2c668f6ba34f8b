// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/buffer_pool.h"

namespace nfstdm {
namespace {

constexpr std::size_t kSpareMaximum = 64;  // buffers

}  // namespace

Buffer &Buffer::operator=(Buffer &&other) noexcept {
    std::swap(pool_, other.pool_);
    std::swap(bytes_, other.bytes_);
    std::swap(size_, other.size_);
    return *this;
}

Buffer::~Buffer() {
    if (pool_ != nullptr) pool_->give_back(std::move(bytes_), size_);
}

std::optional<Buffer> BufferPool::take(std::size_t size) {
    if (!has_room(size)) return std::nullopt;
    if (size != spare_size_) {
        spare_.clear();
        spare_.reserve(kSpareMaximum);  // so that giving one back never allocates
        spare_size_ = size;
    }
    Pages bytes;
    if (spare_.empty()) {
        bytes = Pages(static_cast<std::byte *>(::operator new[](size, PagesDeleter::kAlignment)));
    } else {
        bytes = std::move(spare_.back());
        spare_.pop_back();
    }
    taken_ += size;
    return Buffer(*this, std::move(bytes), size);
}

void BufferPool::give_back(Pages bytes, std::size_t size) {
    taken_ -= size;
    if (size == spare_size_ && spare_.size() < kSpareMaximum) spare_.push_back(std::move(bytes));
}

}  // namespace nfstdm
