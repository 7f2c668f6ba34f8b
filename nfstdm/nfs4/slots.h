// SPDX-License-Identifier: Apache-2.0
// The slots of a session (RFC 8881 section 2.10.6.1): each carries one request at a time and counts its requests, so
// that the server knows one that is sent again from a new one.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace nfstdm::nfs4 {

class Slots {
  public:
    // Of a new session.
    void reset(uint32_t count);

    // The lowest slot that is free and wanted by the server; it is then taken.
    std::optional<uint32_t> take();
    // The sequence number of the request in a slot.
    uint32_t sequence(uint32_t slot) const { return slots_.at(slot).sequence; }
    // The highest slot in use, for the server to know.
    uint32_t highest() const;

    // How a request in a slot ended: the server executed it; the server refused to look at it; nobody knows, so that
    // the slot's count is lost.
    void executed(uint32_t slot);
    void refused(uint32_t slot) { slots_.at(slot).state = State::free; }
    void lose(uint32_t slot) { slots_.at(slot).state = State::lost; }

    // The server wants slots up to this one to be used, or has no more.
    void set_target(uint32_t highest) { target_ = highest; }
    void cut(uint32_t count);

    uint32_t used() const;
    // Some slot can be taken now or later.
    bool usable() const;
    bool any_free() const;

  private:
    enum class State : uint8_t { free, taken, lost };
    struct Slot {
        uint32_t sequence = 1;
        State state = State::free;
    };
    std::vector<Slot> slots_;
    uint32_t target_ = 0;
};

}  // namespace nfstdm::nfs4
