// SPDX-License-Identifier: Apache-2.0
// A file descriptor that closes itself. Nothing is written through buffers here, so a failing close loses nothing.
#pragma once

#include <unistd.h>

#include <utility>

#include "nfstdm/base/open_descriptors.h"

namespace nfstdm {

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) { note_opened(number); }
    Descriptor(Descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        if (this != &other) {
            close();
            number_ = std::exchange(other.number_, -1);
        }
        return *this;
    }
    ~Descriptor() { close(); }

    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }
    // For another owner.
    int release() {
        note_closing(number_);
        return std::exchange(number_, -1);
    }
    void close() {
        if (number_ >= 0) ::close(release());
    }

  private:
    int number_ = -1;
};

}  // namespace nfstdm
