// SPDX-License-Identifier: Apache-2.0
#include <cerrno>

#include "fake_network.h"
#include "tests/support/command_fixture.h"
#include "tslwnfs/netdisc/check_ip_type.h"
#include "tslwnfs/netdisc/netdisc.h"

namespace {

class Addresses : public CommandTest {
  protected:
    Addresses() {
        network_.add("127.0.0.1", "255.0.0.0");
        network_.add("192.168.1.5", "255.255.255.0");
        network_.add("169.254.7.8", "255.255.0.0");
        network_.add("::1", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
        network_.add("fe80::5", "ffff:ffff:ffff:ffff::");
        network_.add("2001:db8::5", "ffff:ffff:ffff:ffff::");
        network_.add("10.2.3.4", "255.128.0.0");
    }

    static Outcome list(int32_t family = 0) {
        ip_type = family;
        return run([] { return enum_local_ips(0); });
    }
    static Outcome subnets(int32_t family = 0) {
        ip_type = family;
        return run([] { return enum_local_ips(1); });
    }
    static Outcome mask(const char *address) {
        return run([=] { return getsubnetmask(address); });
    }

    FakeNetwork network_;

  private:
    ScopedNetworkSource scope_{network_};
};

TEST_F(Addresses, AreListedInTheSystemsOrderWithoutLoopbackAndLinkLocalOnes) {
    EXPECT_EQ(list(), (Outcome{0, "ip:: 192.168.1.5\nip:: 2001:db8::5\nip:: 10.2.3.4\n"}));
}

TEST_F(Addresses, AreListedByFamily) {
    EXPECT_EQ(list(2), (Outcome{0, "ip:: 192.168.1.5\nip:: 10.2.3.4\n"}));
    EXPECT_EQ(list(10), (Outcome{0, "ip:: 2001:db8::5\n"}));
}

TEST_F(Addresses, AreListedWithTheirPrefixes) {
    EXPECT_EQ(subnets(), (Outcome{0,
                                  "Subnet Mask : 192.168.1.5/24\nSubnet Mask : 2001:db8::5/64\n"
                                  "Subnet Mask : 10.2.3.4/9\n"}));
    EXPECT_EQ(subnets(2), (Outcome{0, "Subnet Mask : 192.168.1.5/24\nSubnet Mask : 10.2.3.4/9\n"}));
    EXPECT_EQ(subnets(10), (Outcome{0, "Subnet Mask : 2001:db8::5/64\n"}));
}

TEST_F(Addresses, AreLeftOutWhereverTheirTextHoldsTheLinkLocalPrefix) {
    FakeNetwork network;
    network.add("10.169.254.1", "255.0.0.0");
    const ScopedNetworkSource scope(network);
    EXPECT_EQ(list(), (Outcome{0, ""}));
}

TEST_F(Addresses, MayBeNone) {
    FakeNetwork network;
    network.add("127.0.0.1", "255.0.0.0");
    network.add("169.254.7.8", "255.255.0.0");
    const ScopedNetworkSource scope(network);
    EXPECT_EQ(list(2), (Outcome{0, ""}));
    EXPECT_EQ(subnets(), (Outcome{0, ""}));
}

TEST_F(Addresses, AreLeftOutWithARemarkWhenTheirTextIsNotFound) {
    network_.unknown = "192.168.1.5";
    EXPECT_EQ(list(2), (Outcome{0, "Error in lookupAddress for the ip address 192.168.1.5\nip:: 10.2.3.4\n"}));
}

TEST_F(Addresses, CannotBeListedWithoutANetwork) {
    network_.initializations_left = 0;
    EXPECT_EQ(list(), (Outcome{1, "Initialization failed: out of order"}));
    EXPECT_EQ(mask("10.2.3.4"), (Outcome{1, "Initialization failed: out of order"}));
}

TEST_F(Addresses, CannotBeListedWithoutAList) {
    network_.has_list = false;
    EXPECT_EQ(list(), (Outcome{1, "Failed to get local ips\n"}));
    EXPECT_EQ(trace(), "");
}

TEST_F(Addresses, StopAtTheFirstPrefixThatFailsForWantOfANetwork) {
    network_.initializations_left = 2;
    EXPECT_EQ(subnets(), (Outcome{1, "Subnet Mask : 192.168.1.5/24\nInitialization failed: out of order"}));
}

TEST_F(Addresses, GoIntoTheLog) {
    ASSERT_TRUE(open_log_file((directory() + "/log").c_str()));
    EXPECT_EQ(list(10), (Outcome{0, ""}));
    ASSERT_TRUE(close_log());
    EXPECT_EQ(read_file(directory() + "/log"), "ip:: 2001:db8::5\n");
}

TEST_F(Addresses, GiveAPrefixOfLoopbackToo) {
    EXPECT_EQ(mask("127.0.0.1"), (Outcome{0, "Subnet Mask : 127.0.0.1/8\n"}));
    EXPECT_EQ(mask("::1"), (Outcome{0, "Subnet Mask : ::1/128\n"}));
}

TEST_F(Addresses, GiveAPrefixUnderTheTextThatWasGiven) {
    EXPECT_EQ(mask("2001:0DB8:0::5"), (Outcome{0, "Subnet Mask : 2001:0DB8:0::5/64\n"}));
}

TEST_F(Addresses, OfNoInterfaceHaveNoPrefixAndThatIsNoFailure) {
    EXPECT_EQ(mask("10.9.9.9"), (Outcome{0, "querySubnetMask failed with ret: " + std::to_string(EADDRNOTAVAIL) +
                                                ", for ip:10.9.9.9\n"}));
}

TEST_F(Addresses, ThatAreNoneAreNoFailure) {
    network_.unknown = "nonsense";
    EXPECT_EQ(mask("nonsense"), (Outcome{0, ""}));
}

TEST_F(Addresses, AreNeededForAPrefix) {
    EXPECT_EQ(mask(nullptr), (Outcome{1, "invalid ip string"}));
}

TEST_F(Addresses, OfOtherFamiliesAreLookedUpWithoutHints) {
    EXPECT_EQ(run([&] { return check_ip_type(network_, 1, "10.2.3.4"); }), (Outcome{kUsable, ""}));
    EXPECT_FALSE(network_.hints_were_given);
    EXPECT_EQ(check_ip_type(network_, AF_INET6, "fe80::5"), kUnusable);
    EXPECT_TRUE(network_.hints_were_given);
}

TEST_F(Addresses, OfOneFamilyAreNotFoundInTheOther) {
    const Outcome outcome = run([&] { return check_ip_type(network_, AF_INET6, "10.2.3.4"); });
    EXPECT_EQ(outcome, (Outcome{kNotFound, "Error in lookupAddress for the ip address 10.2.3.4\n"}));
}

TEST_F(Addresses, AreNotDiscoveredInTheNetwork) {
    discovery_flag = 1;
    EXPECT_EQ(run(network_discovery),
              (Outcome{0, message(65001,
                                  "Network discovery is not supported; use enum_local_ips to list the local "
                                  "addresses.")}));
}

}  // namespace
