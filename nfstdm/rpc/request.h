// SPDX-License-Identifier: Apache-2.0
// One remote procedure call, from the moment it is made until its answer is delivered.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "nfstdm/base/status.h"
#include "nfstdm/rpc/message/message.h"

namespace nfstdm::rpc {

using Duration = std::chrono::steady_clock::duration;

// Of results that end in opaque data: how many bytes of them stand before the data, its length word included. As much
// of the results as is known is given; a value beyond that asks for more, kWholeRecord says that there is no data.
using DataPosition = std::size_t (*)(std::span<const std::byte> results);

// Owned by exactly one queue at any time: the client's requests to send, a connection's half-sent or sent requests, the
// client's answered requests; between Client::submit() and the delivery nobody else holds it.
struct Request {
    // What is asked; filled in by the caller.
    std::string_view name;                 // of the procedure, for texts; must outlive the request
    std::vector<std::byte> head;           // begun by Client::begin(), then the arguments
    std::span<const std::byte> data;       // sent behind head from where it is, then padded
    std::span<std::byte> landing;          // takes the opaque data at the end of the results
    DataPosition data_position = nullptr;  // set when there is a landing
    std::size_t results_maximum = 0;       // bytes of results, the data in landing not counted
    Duration limit{};                      // how long to wait for the answer over all attempts; 0 = for ever
    bool needs_contact = false;            // fail as soon as every path has turned out to be unreachable
    const void *owner = nullptr;           // whose request this is, for Client::drop()
    std::function<void(std::unique_ptr<Request>)> done;  // called once, from the loop

    // How it went; valid when done is called.
    Status status;                 // why there are no results; empty on success
    std::vector<std::byte> reply;  // the record up to the data
    std::size_t results_at = 0;    // where in reply the results begin
    std::size_t landed = 0;        // bytes put into landing
    // Times its last byte went out; more than once: the server may have executed it before the answer it gave.
    unsigned sends = 0;
    std::chrono::steady_clock::time_point first_sent{};
    Duration spent{};  // of the limit

    // The client's own.
    uint64_t sequence = 0;                        // order of submission; its low 32 bits are the xid
    unsigned faults = 0;                          // connections lost to nonsense while this was on the wire
    Duration submitted{};                         // on the client's clock
    std::optional<Duration> begun;                // when it was first given to a connection
    std::chrono::steady_clock::time_point given;  // when it was given to the one it is on
    bool moved = false;                           // from a connection that was too slow

    uint32_t xid() const { return static_cast<uint32_t>(sequence); }
    std::span<const std::byte> results() const { return std::span{reply}.subspan(results_at); }
    // What the request takes of a connection: the bytes that make it big, and something for the round trip.
    std::size_t weight() const { return head.size() + data.size() + landing.size() + 1024; }
    std::size_t record_maximum() const {
        return kReplyHeaderMaximum + results_maximum + landing.size() + xdr::padding_of(landing.size());
    }
};

}  // namespace nfstdm::rpc
