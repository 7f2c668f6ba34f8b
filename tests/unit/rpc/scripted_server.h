// SPDX-License-Identifier: Apache-2.0
// A server on a loopback socket, served by the same event loop as the code under test: takes records apart, shows every
// call to the test, and sends exactly the bytes that the test wants, whatever nonsense they are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "nfstdm/base/descriptor.h"
#include "nfstdm/base/event_loop.h"
#include "nfstdm/rpc/transport/socket.h"
#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/writer.h"

namespace nfstdm::test {

using Bytes = std::vector<std::byte>;

// Runs the loop until done holds; false when that takes so long that it never will.
bool run(EventLoop &loop, const std::function<bool()> &done);
// Lets time pass for the loop.
void run_for(EventLoop &loop, std::chrono::milliseconds duration);

// The bytes of a text, and one record made of a payload.
Bytes bytes_of(std::string_view text);
Bytes record(std::span<const std::byte> payload);
Bytes joined(std::initializer_list<std::span<const std::byte>> parts);

struct ReceivedCall {
    int connection = 0;  // counted from 1 in order of acceptance
    uint32_t xid = 0;
    uint32_t program = 0;
    uint32_t version = 0;
    uint32_t procedure = 0;
    uint32_t flavour = 0;
    Bytes credential;
    Bytes arguments;
};

// A reply up to its results: accepted, successful, with a verifier of the size given.
xdr::Writer begin_reply(uint32_t xid, std::size_t verifier_size = 0);

class ScriptedServer {
  public:
    // host: an address in digits. Listens on a free port, or the one that is given.
    explicit ScriptedServer(EventLoop &loop, const std::string &host = "127.0.0.1", uint16_t port = 0);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer &) = delete;
    ScriptedServer &operator=(const ScriptedServer &) = delete;

    uint16_t port() const { return port_; }

    // Called for every call but the NULL procedure's, which is answered unless silent is set.
    std::function<void(const ReceivedCall &)> on_call;
    // Answers NULL calls in place of the server.
    std::function<void(const ReceivedCall &)> on_null;
    // Accepts and reads, and answers nothing by itself.
    bool silent = false;
    // Connections are closed as soon as they are accepted.
    bool turn_away = false;

    // Takes nothing more in, so that what is sent waits on its way, until it does again.
    void stop_reading() { set_reading(false); }
    void read_again() { set_reading(true); }

    void send(int connection, std::span<const std::byte> bytes);
    // A whole reply as one record.
    void reply(int connection, const xdr::Writer &message) { send(connection, record(message.bytes())); }
    void cut(int connection);
    // Closes everything; nobody answers on the port any more.
    void stop();

    const std::vector<ReceivedCall> &calls() const { return calls_; }
    std::size_t null_calls() const { return null_calls_; }
    int accepted() const { return accepted_; }
    std::size_t open_connections() const { return peers_.size(); }

  private:
    struct Peer {
        Descriptor socket;
        Bytes input;
        Bytes output;
    };

    void set_reading(bool reading);
    void watch(int connection);
    void accept_one();
    void ready(int connection, short events);
    void take_records(int connection);
    void handle(int connection, std::span<const std::byte> record);
    void flush(int connection);

    EventLoop &loop_;
    Descriptor listener_;
    uint16_t port_ = 0;
    bool reading_ = true;
    int accepted_ = 0;
    std::map<int, Peer> peers_;
    std::vector<ReceivedCall> calls_;
    std::size_t null_calls_ = 0;
};

}  // namespace nfstdm::test
