// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/transport/address.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace nfstdm::rpc {
namespace {

struct Case {
    const char *text;
    const char *host;
    uint16_t port;
};

TEST(HostPort, IsReadInEveryFormAnAdministratorWrites) {
    for (const Case &each : {Case{"db1", "db1", 0}, Case{"db1:2049", "db1", 2049}, Case{"192.0.2.1", "192.0.2.1", 0},
                             Case{"192.0.2.1:1", "192.0.2.1", 1}, Case{"2001:db8::1", "2001:db8::1", 0},
                             Case{"[2001:db8::1]", "2001:db8::1", 0}, Case{"[::1]:65535", "::1", 65535}}) {
        const auto parsed = parse_host_port(each.text);
        ASSERT_TRUE(parsed.ok()) << each.text;
        EXPECT_EQ(parsed.value().host, each.host);
        EXPECT_EQ(parsed.value().port, each.port);
    }
}

TEST(HostPort, IsRefusedWithItsTextInTheWords) {
    for (const char *text : {"", ":2049", "db1:", "db1:0", "db1:65536", "db1:x", "db1:12x", "db1:-1", "db1: 1", "[::1",
                             "[::1]2049", "[::1]:", "[]:1", "db1:99999999999999999999"}) {
        const auto parsed = parse_host_port(text);
        EXPECT_EQ(parsed.status().number(), static_cast<uint32_t>(EINVAL)) << text;
        EXPECT_NE(parsed.status().text().find("\"" + std::string(text) + "\""), std::string::npos);
    }
}

TEST(Resolve, GivesAnAddressInDigitsBack) {
    const auto v4 = resolve("127.0.0.1", 2049);
    ASSERT_TRUE(v4.ok());
    EXPECT_EQ(to_text(v4.value().front()), "127.0.0.1:2049");
    const auto v6 = resolve("::1", 111);
    ASSERT_TRUE(v6.ok());
    EXPECT_EQ(to_text(v6.value().front()), "[::1]:111");
}

TEST(Resolve, NamesTheHostThatHasNoAddress) {
    const auto failed = resolve("no such host", 1);
    EXPECT_EQ(failed.status().number(), static_cast<uint32_t>(EHOSTUNREACH));
    EXPECT_NE(failed.status().text().find("no such host"), std::string::npos);
}

}  // namespace
}  // namespace nfstdm::rpc
