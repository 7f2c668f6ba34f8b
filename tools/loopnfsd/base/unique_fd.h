// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <utility>

namespace loopnfsd {

// Owns a descriptor and closes it. Nothing is written through buffers here, so a failing close loses nothing.
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor) : descriptor_(descriptor) {}
    UniqueFd(UniqueFd &&other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept {
        if (this != &other) {
            reset();
            descriptor_ = std::exchange(other.descriptor_, -1);
        }
        return *this;
    }
    ~UniqueFd() { reset(); }

    bool valid() const { return descriptor_ >= 0; }
    int get() const { return descriptor_; }
    int release() { return std::exchange(descriptor_, -1); }
    void reset() {
        if (valid()) close(std::exchange(descriptor_, -1));
    }

  private:
    int descriptor_ = -1;
};

}  // namespace loopnfsd
