// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/dialer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "nfstdm/rpc/address_book.h"
#include "tests/unit/rpc/scripted_server.h"

namespace nfstdm::rpc {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test::ScriptedServer;

Address address_of(const std::string &host, uint16_t port) {
    return resolve(host, port).value().front();
}

// An address that takes connection requests and leaves them unanswered: the queue behind it is full.
class DeadAddress {
  public:
    explicit DeadAddress(const std::string &host, uint16_t port = 0) : address_(address_of(host, port)) {
        EXPECT_EQ(bind(listener_.get(), address_.get(), address_.length), 0);
        EXPECT_EQ(listen(listener_.get(), 0), 0);
        socklen_t length = sizeof address_.storage;
        EXPECT_EQ(getsockname(listener_.get(), reinterpret_cast<sockaddr *>(&address_.storage), &length), 0);
        for (Descriptor &each : fillers_)
            each = std::move(start_connect(address_, {}, SourcePort::any).value());
    }
    const Address &address() const { return address_; }

  private:
    Address address_;
    Descriptor listener_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    std::array<Descriptor, 4> fillers_;
};

class DialerTest : public testing::Test {
  protected:
    DialerTest() {
        timing_.stagger = milliseconds(5);
        timing_.connect = seconds(3600);
    }
    Dialled &dial(std::vector<Address> addresses) {
        result_.reset();
        dialer_.dial(std::move(addresses), {}, SourcePort::any,
                     [this](Dialled result) { result_ = std::move(result); });
        EXPECT_FALSE(result_.has_value());  // never from inside the call
        EXPECT_TRUE(test::run(loop_, [this] { return result_.has_value(); }));
        return *result_;
    }

    EventLoop loop_;
    Timing timing_;
    Dialer dialer_{loop_, timing_};
    std::optional<Dialled> result_;
};

TEST_F(DialerTest, PutsTheNextAddressBesideOneThatDoesNotAnswer) {
    const DeadAddress first("127.0.0.1"), second("127.0.0.2");
    ScriptedServer server(loop_, "127.0.0.3");
    const Address alive = address_of("127.0.0.3", server.port());
    const Dialled &result = dial({first.address(), second.address(), alive});
    EXPECT_TRUE(result.socket);
    EXPECT_EQ(to_text(result.address), to_text(alive));
}

TEST_F(DialerTest, TakesTheFirstAddressThatAnswers) {
    timing_.stagger = seconds(3600);
    ScriptedServer first(loop_), second(loop_, "127.0.0.2");
    const Dialled &result = dial({address_of("127.0.0.1", first.port()), address_of("127.0.0.2", second.port())});
    EXPECT_EQ(to_text(result.address), to_text(address_of("127.0.0.1", first.port())));
    test::run_for(loop_, milliseconds(5));
    EXPECT_EQ(second.accepted(), 0);
}

TEST_F(DialerTest, GoesOnAtOnceWhenAnAddressRefuses) {
    timing_.stagger = seconds(3600);
    ScriptedServer refusing(loop_), server(loop_, "127.0.0.2");
    const Address refused = address_of("127.0.0.1", refusing.port());
    refusing.stop();
    EXPECT_TRUE(dial({refused, address_of("127.0.0.2", server.port())}).socket);
}

TEST_F(DialerTest, FailsWhenEveryAddressRefuses) {
    ScriptedServer refusing(loop_);
    const Address refused = address_of("127.0.0.1", refusing.port());
    refusing.stop();
    const Dialled &result = dial({refused, refused});
    EXPECT_FALSE(result.socket);
    EXPECT_EQ(result.failure.number(), static_cast<uint32_t>(ECONNREFUSED));
    EXPECT_EQ(result.failure.cause().source, Cause::Source::system);
    EXPECT_FALSE(result.unanswered);
}

TEST_F(DialerTest, SaysWhenAnAddressGaveNoAnswer) {
    timing_.connect = milliseconds(20);
    const DeadAddress dead("127.0.0.1");
    const Dialled &result = dial({dead.address()});
    EXPECT_FALSE(result.socket);
    EXPECT_EQ(result.failure.number(), static_cast<uint32_t>(ETIMEDOUT));
    EXPECT_TRUE(result.unanswered);
}

TEST_F(DialerTest, IsSilentOnceItIsCancelled) {
    ScriptedServer server(loop_);
    bool called = false;
    dialer_.dial({address_of("127.0.0.1", server.port())}, {}, SourcePort::any,
                 [&](const Dialled &) { called = true; });
    dialer_.cancel();
    test::run_for(loop_, milliseconds(10));
    EXPECT_FALSE(called);
}

class AddressBookTest : public testing::Test {
  protected:
    std::string order(uint16_t port = 2049) {
        std::string texts;
        const auto addresses = book_.find("nas1", port);
        for (const Address &address : addresses.value())
            texts += to_text(address) + " ";
        return texts;
    }
    int asked_ = 0;
    AddressBook book_{[this](const std::string &, uint16_t port) -> Result<std::vector<Address>> {
        ++asked_;
        return std::vector{address_of("::1", port), address_of("127.0.0.1", port), address_of("127.0.0.2", port)};
    }};
};

TEST_F(AddressBookTest, AsksForANameOnce) {
    EXPECT_EQ(order(111), "[::1]:111 127.0.0.1:111 127.0.0.2:111 ");
    EXPECT_EQ(order(2049), "[::1]:2049 127.0.0.1:2049 127.0.0.2:2049 ");
    EXPECT_EQ(asked_, 1);
}

TEST_F(AddressBookTest, PutsAnAddressThatAnsweredFirstWhateverThePort) {
    order();
    book_.prefer("nas1", address_of("127.0.0.2", 111));
    EXPECT_EQ(order(), "127.0.0.2:2049 [::1]:2049 127.0.0.1:2049 ");
}

TEST_F(AddressBookTest, PutsAnAddressThatFellSilentLast) {
    order();
    book_.avoid("nas1", address_of("::1", 111));
    EXPECT_EQ(order(), "127.0.0.1:2049 127.0.0.2:2049 [::1]:2049 ");
}

TEST(AddressBook, ReportsANameThatHasNoAddress) {
    AddressBook book;
    EXPECT_EQ(book.find("no.such.host.invalid", 1).status().number(), static_cast<uint32_t>(EHOSTUNREACH));
}

}  // namespace
}  // namespace nfstdm::rpc
