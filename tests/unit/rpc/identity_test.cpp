// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/auth/identity.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <numeric>

#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/xdr/reader.h"

namespace nfstdm::rpc {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

IdentitySource source_of(const std::string &machine, const std::vector<gid_t> &groups) {
    IdentitySource source;
    source.host_name = [machine](char *buffer, std::size_t size) {
        std::copy_n(machine.data(), std::min(machine.size(), size), buffer);
        return 0;
    };
    source.user = [] { return 501U; };
    source.group = [] { return 502U; };
    source.groups = [groups](int size, gid_t *buffer) {
        if (size > 0) std::copy(groups.begin(), groups.end(), buffer);
        return static_cast<int>(groups.size());
    };
    return source;
}

IdentitySource failing(IdentitySource source, int error) {
    source.groups = [error](int, gid_t *) {
        errno = error;
        return -1;
    };
    return source;
}

struct Decoded {
    uint32_t flavour = 0, uid = 0, gid = 0;
    std::string machine;
    std::vector<uint32_t> groups;
    bool whole = false;
};

Decoded decode(const std::vector<std::byte> &credential) {
    Decoded result;
    xdr::Reader outer(credential);
    std::span<const std::byte> body;
    EXPECT_TRUE(outer.get_u32(result.flavour) && outer.get_opaque(body, kAuthBodyMaximum) && outer.finished());
    xdr::Reader inner(body);
    uint32_t stamp = 0, count = 0;
    std::string_view machine;
    EXPECT_TRUE(inner.get_u32(stamp) && inner.get_string(machine, kAuthSysMachineNameMaximum) &&
                inner.get_u32(result.uid) && inner.get_u32(result.gid) && inner.get_u32(count));
    result.machine = machine;
    for (uint32_t i = 0; i < count; ++i)
        EXPECT_TRUE(inner.get_u32(result.groups.emplace_back()));
    result.whole = inner.finished();
    return result;
}

TEST(Identity, IsWhatTheSystemSays) {
    const auto identity = process_identity(source_of("db1", {7, 8, 9}));
    ASSERT_TRUE(identity.ok());
    EXPECT_EQ(identity.value().machine, "db1");
    EXPECT_EQ(identity.value().uid, 501U);
    EXPECT_EQ(identity.value().gid, 502U);
    EXPECT_THAT(identity.value().groups, ElementsAre(7, 8, 9));
}

TEST(Identity, OfThisProcessCanBeAsked) {
    const auto identity = process_identity();
    ASSERT_TRUE(identity.ok());
    EXPECT_EQ(identity.value().uid, geteuid());
    EXPECT_EQ(identity.value().gid, getegid());
    EXPECT_FALSE(identity.value().machine.empty());
}

TEST(Identity, KeepsAMachineNameOf512CharactersAndCutsALongerOne) {
    EXPECT_EQ(process_identity(source_of(std::string(512, 'm'), {})).value().machine.size(), 512U);
    EXPECT_EQ(process_identity(source_of(std::string(600, 'm'), {})).value().machine.size(), 512U);
}

TEST(Identity, FailsWhenTheSystemFailsToAnswer) {
    IdentitySource nameless = source_of("db1", {});
    nameless.host_name = [](char *, std::size_t) {
        errno = EFAULT;
        return -1;
    };
    EXPECT_EQ(process_identity(nameless).status().number(), static_cast<uint32_t>(EFAULT));
    EXPECT_EQ(process_identity(nameless).status().cause().source, Cause::Source::system);
    EXPECT_THAT(process_identity(nameless).status().text(), HasSubstr("machine name"));
    const auto groupless = process_identity(failing(source_of("db1", {}), EINVAL));
    EXPECT_EQ(groupless.status().number(), static_cast<uint32_t>(EINVAL));
}

TEST(AuthSysCredential, CarriesTheIdentity) {
    const auto decoded = decode(auth_sys_credential({"db1", 501, 502, {7, 8}}));
    EXPECT_EQ(decoded.flavour, kAuthSys);
    EXPECT_EQ(decoded.machine, "db1");
    EXPECT_EQ(decoded.uid, 501U);
    EXPECT_EQ(decoded.gid, 502U);
    EXPECT_THAT(decoded.groups, ElementsAre(7, 8));
    EXPECT_TRUE(decoded.whole);
}

TEST(AuthSysCredential, IsCutToWhatTheFlavourHasRoomFor) {
    std::vector<uint32_t> groups(40);
    std::iota(groups.begin(), groups.end(), 100);
    const auto decoded = decode(auth_sys_credential({std::string(512, 'm'), 1, 2, groups}));
    EXPECT_EQ(decoded.machine.size(), 255U);
    EXPECT_EQ(decoded.groups.size(), 16U);
    EXPECT_EQ(decoded.groups.back(), 115U);
    EXPECT_TRUE(decoded.whole);
}

TEST(AuthNoneCredential, IsEmpty) {
    EXPECT_EQ(auth_none_credential(), std::vector<std::byte>(8));
}

}  // namespace
}  // namespace nfstdm::rpc
