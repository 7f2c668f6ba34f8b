// SPDX-License-Identifier: Apache-2.0
// Numbers of ONC RPC (RFC 5531). Client and loopback server share them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nfstdm::rpc {

constexpr uint32_t kRpcVersion = 2;
constexpr uint32_t kCall = 0;
constexpr uint32_t kReply = 1;
constexpr uint32_t kMessageAccepted = 0;
constexpr uint32_t kMessageDenied = 1;
constexpr uint32_t kLastFragment = 0x80000000;  // of a record mark (RFC 5531 section 11)

enum class AcceptStatus : uint32_t {
    success = 0,
    program_unavailable = 1,
    program_mismatch = 2,
    procedure_unavailable = 3,
    garbage_arguments = 4,
    system_error = 5,
};
enum class RejectStatus : uint32_t { rpc_mismatch = 0, auth_error = 1 };

constexpr uint32_t kAuthNone = 0;
constexpr uint32_t kAuthSys = 1;
constexpr uint32_t kRpcsecGss = 6;
constexpr uint32_t kAuthTls = 7;  // RFC 9289 section 8.1
constexpr std::size_t kAuthBodyMaximum = 400;
constexpr std::size_t kAuthSysGroupsMaximum = 16;
constexpr std::size_t kAuthSysMachineNameMaximum = 255;

}  // namespace nfstdm::rpc
