// SPDX-License-Identifier: Apache-2.0
// A TCP relay on loopback that delays every byte by half a round trip in each direction and drops none: what a distant
// server looks like to a client. Throughput is not limited; only time is added.
//
// usage: relay ROUND_TRIP_MICROSECONDS TARGET_PORT...
// Prints one free port of 127.0.0.1 per target, in their order, on one line; relays until it is ended by a signal.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <list>
#include <memory>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kChunk = std::size_t{256} << 10;
constexpr std::size_t kQueueMaximum = std::size_t{256} << 20;  // above the bandwidth-delay product of any run

class Descriptor {
  public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(Descriptor &&other) noexcept : number_(other.number_) { other.number_ = -1; }
    Descriptor &operator=(Descriptor &&) = delete;
    ~Descriptor() {
        if (number_ >= 0) close(number_);
    }
    int get() const { return number_; }

  private:
    int number_;
};

using Bytes = std::unique_ptr<char[]>;

struct Chunk {
    Clock::time_point due;
    Bytes bytes;
    std::size_t size;
    std::size_t sent;
};

// Memory that was used before is used again, the latest first: fresh memory costs the relay more than its copying.
class Buffers {
  public:
    Bytes take() {
        if (spare_.empty()) return std::make_unique_for_overwrite<char[]>(kChunk);
        Bytes bytes = std::move(spare_.back());
        spare_.pop_back();
        return bytes;
    }
    void give_back(Bytes bytes) { spare_.push_back(std::move(bytes)); }

  private:
    std::vector<Bytes> spare_;
};

// One direction of one connection.
class Pipe {
  public:
    Pipe(int from, int to, Clock::duration delay) : from_(from), to_(to), delay_(delay) {}

    bool wants_input() const { return !ended_ && queued_ < kQueueMaximum; }
    bool has_due(Clock::time_point now) const { return !queue_.empty() && queue_.front().due <= now; }
    bool has_queued() const { return !queue_.empty(); }
    Clock::time_point due() const { return queue_.front().due; }
    int from() const { return from_; }
    int to() const { return to_; }

    // Returns false when the connection is broken.
    bool receive() {
        Chunk chunk{Clock::now() + delay_, buffers_.take(), 0, 0};
        const ssize_t count = read(from_, chunk.bytes.get(), kChunk);
        if (count <= 0) buffers_.give_back(std::move(chunk.bytes));
        if (count < 0) return errno == EAGAIN || errno == EINTR;
        if (count == 0) {
            ended_ = true;
            return true;
        }
        chunk.size = static_cast<std::size_t>(count);
        queued_ += chunk.size;
        queue_.push_back(std::move(chunk));
        return true;
    }

    bool send(Clock::time_point now) {
        while (has_due(now)) {
            Chunk &chunk = queue_.front();
            const ssize_t count = ::send(to_, chunk.bytes.get() + chunk.sent, chunk.size - chunk.sent, MSG_NOSIGNAL);
            if (count < 0) return errno == EAGAIN || errno == EINTR;
            chunk.sent += static_cast<std::size_t>(count);
            if (chunk.sent < chunk.size) return true;
            queued_ -= chunk.size;
            buffers_.give_back(std::move(chunk.bytes));
            queue_.pop_front();
        }
        return true;
    }

    // Passes the end of the stream on once everything before it was sent. Returns true when this direction is done.
    bool finish() {
        if (!ended_ || !queue_.empty()) return false;
        if (!closed_) shutdown(to_, SHUT_WR);
        closed_ = true;
        return true;
    }

  private:
    int from_;
    int to_;
    Clock::duration delay_;
    std::deque<Chunk> queue_;
    Buffers buffers_;
    std::size_t queued_ = 0;
    bool ended_ = false;
    bool closed_ = false;
};

struct Connection {
    Connection(Descriptor from, Descriptor to, Clock::duration delay)
        : client(std::move(from)),
          server(std::move(to)),
          up(client.get(), server.get(), delay),
          down(server.get(), client.get(), delay) {}
    Descriptor client;
    Descriptor server;
    Pipe up;
    Pipe down;
};

struct Listener {
    Descriptor socket;
    uint16_t target;
};

sockaddr_in loopback(uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

Listener listen_for(uint16_t target) {
    Listener listener{Descriptor(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0)), target};
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    if (bind(listener.socket.get(), reinterpret_cast<sockaddr *>(&address), size) != 0 ||
        listen(listener.socket.get(), 64) != 0 ||
        getsockname(listener.socket.get(), reinterpret_cast<sockaddr *>(&address), &size) != 0) {
        std::perror("relay");
        std::exit(1);
    }
    std::printf("%u ", ntohs(address.sin_port));
    return listener;
}

void prepare(int socket) {
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK);
}

class Relay {
  public:
    Relay(std::vector<Listener> listeners, Clock::duration delay) : listeners_(std::move(listeners)), delay_(delay) {}

    [[noreturn]] void run() {
        while (true)
            turn();
    }

  private:
    void turn();
    void accept_on(const Listener &listener);
    int wait_milliseconds(Clock::time_point now) const;
    static bool serve(Connection &connection, short client_events, short server_events);

    std::vector<Listener> listeners_;
    Clock::duration delay_;
    std::list<Connection> connections_;
};

void Relay::accept_on(const Listener &listener) {
    Descriptor client(accept(listener.socket.get(), nullptr, nullptr));
    if (client.get() < 0) return;
    Descriptor server(socket(AF_INET, SOCK_STREAM, 0));
    const sockaddr_in address = loopback(listener.target);
    if (connect(server.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) return;
    prepare(client.get());
    prepare(server.get());
    connections_.emplace_back(std::move(client), std::move(server), delay_);
}

// Milliseconds are too coarse for the last stretch before a chunk is due: then the loop spins.
int Relay::wait_milliseconds(Clock::time_point now) const {
    auto wait = std::chrono::milliseconds(1000);
    for (const Connection &connection : connections_) {
        for (const Pipe *pipe : {&connection.up, &connection.down}) {
            if (!pipe->has_queued() || pipe->due() <= now) continue;
            wait = std::min(wait, std::chrono::floor<std::chrono::milliseconds>(pipe->due() - now));
        }
    }
    return static_cast<int>(wait.count());
}

bool Relay::serve(Connection &connection, short client_events, short server_events) {
    if ((client_events & (POLLIN | POLLHUP)) != 0 && connection.up.wants_input() && !connection.up.receive())
        return false;
    if ((server_events & (POLLIN | POLLHUP)) != 0 && connection.down.wants_input() && !connection.down.receive()) {
        return false;
    }
    if (((client_events | server_events) & POLLERR) != 0) return false;
    const auto now = Clock::now();
    if (!connection.up.send(now) || !connection.down.send(now)) return false;
    const bool up_done = connection.up.finish();
    return !(connection.down.finish() && up_done);
}

void Relay::turn() {
    std::vector<pollfd> polled;
    for (const Listener &listener : listeners_)
        polled.push_back({listener.socket.get(), POLLIN, 0});
    const auto now = Clock::now();
    const auto events = [now](const Pipe &in, const Pipe &out) {
        return static_cast<short>((in.wants_input() ? POLLIN : 0) | (out.has_due(now) ? POLLOUT : 0));
    };
    for (const Connection &connection : connections_) {
        polled.push_back({connection.client.get(), events(connection.up, connection.down), 0});
        polled.push_back({connection.server.get(), events(connection.down, connection.up), 0});
    }
    poll(polled.data(), polled.size(), wait_milliseconds(now));
    std::size_t i = listeners_.size();
    for (auto connection = connections_.begin(); connection != connections_.end(); i += 2) {
        const bool alive = serve(*connection, polled[i].revents, polled[i + 1].revents);
        connection = alive ? std::next(connection) : connections_.erase(connection);
    }
    for (std::size_t listener = 0; listener < listeners_.size(); ++listener) {
        if (polled[listener].revents != 0) accept_on(listeners_[listener]);
    }
}

bool parse(const char *text, unsigned long maximum, unsigned long &value) {
    const char *end = text + std::strlen(text);
    const auto result = std::from_chars(text, end, value);
    return result.ec == std::errc{} && result.ptr == end && value <= maximum;
}

}  // namespace

int main(int argc, char **argv) {
    unsigned long round_trip = 0;
    if (argc < 3 || !parse(argv[1], 10'000'000, round_trip)) {
        std::fputs("usage: relay ROUND_TRIP_MICROSECONDS TARGET_PORT...\n", stderr);
        return 2;
    }
    std::vector<Listener> listeners;
    for (int i = 2; i < argc; ++i) {
        unsigned long port = 0;
        if (!parse(argv[i], 65535, port)) {
            std::fprintf(stderr, "relay: %s is no port\n", argv[i]);
            return 2;
        }
        listeners.push_back(listen_for(static_cast<uint16_t>(port)));
    }
    std::printf("\n");
    std::fflush(stdout);
    Relay(std::move(listeners), std::chrono::microseconds(round_trip) / 2).run();
}
