// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/slots.h"

#include <algorithm>

namespace nfstdm::nfs4 {

void Slots::reset(uint32_t count) {
    slots_.assign(count, {});
    target_ = count == 0 ? 0 : count - 1;
}

// A target of zero still allows the first slot; a lost one in front allows the next.
std::optional<uint32_t> Slots::take() {
    uint32_t lost = 0;
    for (uint32_t slot = 0; slot < slots_.size() && slot <= uint64_t{target_} + lost; ++slot) {
        if (slots_[slot].state == State::lost) ++lost;
        if (slots_[slot].state != State::free) continue;
        slots_[slot].state = State::taken;
        return slot;
    }
    return std::nullopt;
}

uint32_t Slots::highest() const {
    for (auto slot = static_cast<uint32_t>(slots_.size()); slot > 0; --slot)
        if (slots_[slot - 1].state == State::taken) return slot - 1;
    return 0;
}

void Slots::executed(uint32_t slot) {
    ++slots_.at(slot).sequence;
    slots_.at(slot).state = State::free;
}

void Slots::cut(uint32_t count) {
    for (auto slot = count; slot < slots_.size(); ++slot)
        slots_[slot].state = State::lost;
}

uint32_t Slots::used() const {
    return static_cast<uint32_t>(
        std::count_if(slots_.begin(), slots_.end(), [](const Slot &slot) { return slot.state == State::taken; }));
}

bool Slots::usable() const {
    return std::any_of(slots_.begin(), slots_.end(), [](const Slot &slot) { return slot.state != State::lost; });
}

bool Slots::any_free() const {
    return std::any_of(slots_.begin(), slots_.end(), [](const Slot &slot) { return slot.state == State::free; });
}

}  // namespace nfstdm::nfs4
