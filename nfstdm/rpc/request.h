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
#include "nfstdm/rpc/auth/authenticator.h"
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
    std::string_view name;  // of the procedure, for texts; must outlive the request
    uint32_t procedure = 0;
    std::shared_ptr<Authenticator> authenticator = auth_none();
    std::vector<std::byte> arguments;
    std::span<const std::byte> data;       // sent behind the arguments from where it is, then padded
    std::span<std::byte> landing;          // takes the opaque data at the end of the results
    DataPosition data_position = nullptr;  // set when there is a landing
    std::size_t results_maximum = 0;       // bytes of results, the data in landing not counted
    Duration limit{};                      // how long to wait for the answer over all attempts; 0 = for ever
    bool needs_contact = false;            // fail as soon as every path has turned out to be unreachable
    bool one_way = false;                  // done when its last byte has left: nobody waits for the answer
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

    // The present transmission, as the envelope has it.
    std::vector<std::byte> head;     // the record's mark and the call's header
    std::vector<std::byte> wrapped;  // what is sent instead of arguments and data, where those are wrapped
    std::unique_ptr<Transmission> transmission;
    bool suspect = false;  // the answer is not to be trusted: nothing of it is used
    bool denied = false;   // the server did not take the identity, and that has a cure

    // The client's own.
    Program program;
    uint64_t sequence = 0;                        // order of submission; its low 32 bits are the xid
    unsigned denials = 0;                         // of the identity, each of which had a cure
    unsigned faults = 0;                          // connections lost to nonsense while this was on the wire
    Duration submitted{};                         // on the client's clock
    std::optional<Duration> begun;                // when it was first given to a connection
    std::chrono::steady_clock::time_point given;  // when it was given to the one it is on
    bool moved = false;                           // from a connection that was too slow, which is done once

    uint32_t xid() const { return static_cast<uint32_t>(sequence); }
    std::span<const std::byte> results() const { return std::span{reply}.subspan(results_at); }
    // What the request takes of a connection: the bytes that make it big, and something for the round trip.
    std::size_t weight() const { return head.size() + arguments.size() + data.size() + landing.size() + 1024; }
    std::size_t record_maximum() const {
        return kReplyHeaderMaximum + results_maximum + landing.size() + xdr::padding_of(landing.size()) +
               authenticator->overhead();
    }
    // READ data goes from the wire straight into its place.
    bool lands_directly() const { return data_position != nullptr && !authenticator->wraps(); }
};

}  // namespace nfstdm::rpc
