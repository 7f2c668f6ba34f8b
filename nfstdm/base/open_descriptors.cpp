// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/base/open_descriptors.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace nfstdm {
namespace {

constexpr std::size_t kBits = 64;
constexpr std::size_t kDescriptors = std::size_t{1} << 20;  // as many as the system lets a process have as a rule

// One bit a descriptor. Memory that was never written to takes none.
std::array<std::atomic<uint64_t>, kDescriptors / kBits> descriptors;
std::atomic<std::size_t> words_used = 0;

bool is_noted(int descriptor) {
    return descriptor >= 0 && static_cast<std::size_t>(descriptor) < kDescriptors;
}

uint64_t bit_of(std::size_t descriptor) {
    return uint64_t{1} << descriptor % kBits;
}

}  // namespace

void note_opened(int descriptor) {
    if (!is_noted(descriptor)) return;
    const auto number = static_cast<std::size_t>(descriptor);
    descriptors[number / kBits] |= bit_of(number);
    std::size_t used = words_used;
    while (used <= number / kBits && !words_used.compare_exchange_weak(used, number / kBits + 1)) {
    }
}

void note_closing(int descriptor) {
    if (!is_noted(descriptor)) return;
    const auto number = static_cast<std::size_t>(descriptor);
    descriptors[number / kBits] &= ~bit_of(number);
}

void drop_inherited_descriptors() {
    for (std::size_t word = 0; word < words_used; ++word) {
        for (uint64_t open = descriptors[word].exchange(0); open != 0; open &= open - 1)
            close(static_cast<int>(word * kBits + static_cast<std::size_t>(std::countr_zero(open))));
    }
}

}  // namespace nfstdm
