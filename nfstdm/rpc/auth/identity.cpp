// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/auth/identity.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/xdr/writer.h"

namespace nfstdm::rpc {

Result<Identity> process_identity(const IdentitySource &source) {
    Identity identity;
    std::array<char, kMachineMaximum + 1> machine{};
    // A name that does not fit may come without its terminator; the last byte is never given away.
    if (source.host_name(machine.data(), machine.size() - 1) != 0) return system_failure("machine name", errno);
    identity.machine = machine.data();
    identity.uid = source.user();
    identity.gid = source.group();

    const int count = source.groups(0, nullptr);
    if (count < 0) return system_failure("groups", errno);
    std::vector<gid_t> groups(static_cast<std::size_t>(count));
    const int got = count == 0 ? 0 : source.groups(count, groups.data());
    if (got < 0) return system_failure("groups", errno);
    groups.resize(std::min(groups.size(), static_cast<std::size_t>(got)));
    identity.groups.assign(groups.begin(), groups.end());
    return identity;
}

std::vector<std::byte> auth_sys_credential(const Identity &identity) {
    xdr::Writer body(kAuthBodyMaximum);
    body.put_u32(static_cast<uint32_t>(std::time(nullptr)));  // the stamp: any number the machine chooses
    body.put_string(std::string_view(identity.machine).substr(0, kAuthSysMachineNameMaximum));
    body.put_u32(identity.uid);
    body.put_u32(identity.gid);
    const std::size_t groups = std::min(identity.groups.size(), kAuthSysGroupsMaximum);
    body.put_u32(static_cast<uint32_t>(groups));
    for (std::size_t i = 0; i < groups; ++i)
        body.put_u32(identity.groups[i]);

    xdr::Writer credential;
    credential.put_u32(kAuthSys);
    credential.put_opaque(body.bytes());
    return credential.take();
}

std::vector<std::byte> auth_none_credential() {
    xdr::Writer credential;
    credential.put_u32(kAuthNone);
    credential.put_u32(0);
    return credential.take();
}

}  // namespace nfstdm::rpc
