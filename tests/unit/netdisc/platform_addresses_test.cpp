// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/un.h>

#include <cerrno>

#include "fake_network.h"

namespace {

TEST(NetworkAddress, IsShownAsTextWithoutItsScope) {
    for (const char *text : {"10.0.0.1", "0.0.0.0", "2001:db8::1", "fe80::1", "::1"}) {
        EXPECT_EQ(address_of(text).text(), text);
    }
    sockaddr_in6 scoped = {};
    scoped.sin6_family = AF_INET6;
    scoped.sin6_addr = {{{0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}}};
    scoped.sin6_scope_id = 1;
    EXPECT_EQ(NetworkAddress::from(reinterpret_cast<const sockaddr *>(&scoped))->text(), "fe80::1");
}

TEST(NetworkAddress, IsOfOneOfTwoFamilies) {
    sockaddr_un local = {};
    local.sun_family = AF_UNIX;
    EXPECT_FALSE(NetworkAddress::from(reinterpret_cast<const sockaddr *>(&local)));
    EXPECT_FALSE(NetworkAddress::from(nullptr));
    EXPECT_EQ(address_of("10.0.0.1").family(), 2);
    EXPECT_EQ(address_of("::1").family(), 10);
}

TEST(NetworkAddress, KnowsLoopback) {
    for (const char *text : {"127.0.0.1", "127.255.0.3", "::1"})
        EXPECT_TRUE(address_of(text).is_loopback()) << text;
    for (const char *text : {"126.0.0.1", "128.0.0.1", "::2", "::"})
        EXPECT_FALSE(address_of(text).is_loopback()) << text;
}

TEST(NetworkAddress, KnowsLinkLocalOfIpv6) {
    for (const char *text : {"fe80::1", "fe8f::1", "febf:ffff::1"})
        EXPECT_TRUE(address_of(text).is_link_local_v6()) << text;
    for (const char *text : {"fe7f::1", "fec0::1", "ff80::1", "fd80::1", "169.254.0.1"})
        EXPECT_FALSE(address_of(text).is_link_local_v6()) << text;
}

TEST(NetworkAddress, CountsTheBitsOfANetmask) {
    const std::pair<const char *, int> kMasks[] = {{"0.0.0.0", 0},
                                                   {"128.0.0.0", 1},
                                                   {"255.255.255.0", 24},
                                                   {"255.255.255.254", 31},
                                                   {"255.255.255.255", 32},
                                                   {"::", 0},
                                                   {"ffff:ffff:ffff:fffe::", 63},
                                                   {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 128}};
    for (const auto &[mask, bits] : kMasks)
        EXPECT_EQ(address_of(mask).leading_ones(), bits) << mask;
}

TEST(NetworkAddress, CountsNoBitsBehindAGap) {
    EXPECT_EQ(address_of("255.0.255.0").leading_ones(), 8);
    EXPECT_EQ(address_of("255.239.0.0").leading_ones(), 11);
}

TEST(SubnetPrefix, IsThatOfTheInterfaceWithTheAddress) {
    FakeNetwork network;
    network.add("10.0.0.1", "255.0.0.0");
    network.add("10.0.0.2", "255.255.255.0");
    network.add("2001:db8::1", "ffff:ffff::");
    int length = -1;
    EXPECT_EQ(network.subnet_prefix(address_of("10.0.0.2"), length), 0);
    EXPECT_EQ(length, 24);
    EXPECT_EQ(network.subnet_prefix(address_of("2001:db8::1"), length), 0);
    EXPECT_EQ(length, 32);
}

TEST(SubnetPrefix, IsUnknownWithoutAnInterfaceItsNetmaskOrAList) {
    FakeNetwork network;
    network.add_without_netmask("10.0.0.1");
    int length = -1;
    EXPECT_EQ(network.subnet_prefix(address_of("10.0.0.1"), length), EADDRNOTAVAIL);
    EXPECT_EQ(network.subnet_prefix(address_of("10.0.0.9"), length), EADDRNOTAVAIL);
    network.has_list = false;
    EXPECT_NE(network.subnet_prefix(address_of("10.0.0.1"), length), 0);
    EXPECT_EQ(length, -1);
}

TEST(SystemNetwork, CarriesLoopbackWithItsPrefix) {
    std::string reason;
    NetworkSource &system = network_source();
    ASSERT_TRUE(system.initialize(reason));
    std::vector<InterfaceAddress> addresses;
    ASSERT_TRUE(system.local_addresses(addresses));
    int length = 0;
    const int failure = system.subnet_prefix(address_of("127.0.0.1"), length);
    if (failure == EADDRNOTAVAIL) GTEST_SKIP() << "loopback has no address here";
    EXPECT_EQ(length, 8);
}

TEST(SystemNetwork, FindsAddressesAndNothingElseByNumber) {
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST;
    std::vector<NetworkAddress> found;
    EXPECT_TRUE(network_source().look_up("2001:db8::1", &hints, found));
    EXPECT_EQ(found.front().text(), "2001:db8::1");
    EXPECT_FALSE(network_source().look_up("nonsense", &hints, found));
}

}  // namespace
