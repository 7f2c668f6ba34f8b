// SPDX-License-Identifier: Apache-2.0
// The MOUNT protocol, version 3 (RFC 1813 section 5): an export's root handle, and the list of exports.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/base/status.h"
#include "nfstdm/base/trace.h"
#include "nfstdm/rpc/client.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm::mount3 {

struct MountReply {
    FileHandle root;
    std::vector<uint32_t> flavours;  // of security, the server's favourite first; empty when it names none
};

// For tests and fuzzers too: the results of MNT. The failing status has the errno and the words of a refusal, without
// the server's name.
Result<MountReply> decode_mount(std::span<const std::byte> results);

// Whether bytes are an export list, whole and with every maximum kept (RFC 1813 section 5.2.5).
bool is_export_list(std::span<const std::byte> results);

// How a call is made: whose it is (see rpc::Client::drop), as whom, and how long it may take.
struct CallContext {
    const void *owner = nullptr;
    std::shared_ptr<rpc::Authenticator> authenticator;
    rpc::Duration limit{};
};

// client speaks to the server's mount program. Each done is called once from the loop, unless its owner drops it
// before.
void mount(rpc::Client &client, const CallContext &context, std::string_view path,
           std::function<void(Result<MountReply>)> done);
// done when it was sent: nobody waits for the answer.
void unmount(rpc::Client &client, const CallContext &context, std::string_view path, DoneCompletion done);

constexpr rpc::Duration kListLimit = std::chrono::seconds(30);

// The export list of a server, as it came: XDR, checked to be an export list. server is a name or an address, IPv4 or
// IPv6, optionally with the mount program's port ("host:port", "[v6]:port"); without one the portmapper is asked. Fails
// with ETIMEDOUT when limit is over. The loop must be run until done was called.
void export_list(EventLoop &loop, std::string_view server, Completion<std::vector<std::byte>> done,
                 rpc::Duration limit = kListLimit);

}  // namespace nfstdm::mount3
