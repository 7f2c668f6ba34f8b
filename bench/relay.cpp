// SPDX-License-Identifier: Apache-2.0
// A TCP relay on loopback that lets the bytes of one direction wait for a round trip and drops none: what a distant
// server looks like to a client. The bytes are in the kernel's pipes and never copied: a relay that copies them takes a
// processor, which client and server need themselves. What waits must fit a pipe, so the direction that waits is to be
// the one that carries little: the requests of a download, the replies of an upload. To a client it makes no difference
// which one it is; it sees the time from its request to the reply.
//
// usage: relay requests|replies ROUND_TRIP_MICROSECONDS TARGET_PORT...
// Prints one free port of 127.0.0.1 per target, in their order, on one line; relays until it is ended by a signal.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <list>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPipeSize = 1 << 20;  // what everybody may have

[[noreturn]] void fail(const char *what) {
    std::perror(what);
    std::exit(1);
}

class Descriptor {
  public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(Descriptor &&other) noexcept : number_(other.number_) { other.number_ = -1; }
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() {
        if (number_ >= 0) close(number_);
    }
    int get() const { return number_; }

  private:
    int number_;
};

// What arrived at once.
struct Arrival {
    Clock::time_point due;
    std::size_t size;
};

// One direction of one connection.
class Pipe {
  public:
    Pipe(int from, int to, Clock::duration delay) : from_(from), to_(to), delay_(delay) {
        int ends[2];
        if (pipe2(ends, O_NONBLOCK) != 0) fail("relay: pipe");
        read_end_ = Descriptor(ends[0]);
        write_end_ = Descriptor(ends[1]);
        if (fcntl(write_end_.get(), F_SETPIPE_SZ, kPipeSize) < 0) fail("relay: size of a pipe");
    }

    bool wants_input() const { return !ended_ && !full_; }
    bool has_due(Clock::time_point now) const { return !queue_.empty() && queue_.front().due <= now; }
    bool has_queued() const { return !queue_.empty(); }
    Clock::time_point due() const { return queue_.front().due; }

    // Returns false when the connection is broken.
    bool receive() {
        const ssize_t count = move(from_, write_end_.get(), kPipeSize);
        if (count < 0 && errno == EAGAIN) full_ = has_queued();
        if (count < 0) return errno == EAGAIN || errno == EINTR;
        if (count == 0) {
            ended_ = true;
            return true;
        }
        queue_.push_back({Clock::now() + delay_, static_cast<std::size_t>(count)});
        return true;
    }

    bool send(Clock::time_point now) {
        while (has_due(now)) {
            Arrival &arrival = queue_.front();
            const ssize_t count = move(read_end_.get(), to_, arrival.size);
            if (count < 0) return errno == EAGAIN || errno == EINTR;
            full_ = false;
            arrival.size -= static_cast<std::size_t>(count);
            if (arrival.size > 0) return true;
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
    static ssize_t move(int from, int to, std::size_t size) {
        return splice(from, nullptr, to, nullptr, size, SPLICE_F_MOVE | SPLICE_F_NONBLOCK);
    }

    int from_;
    int to_;
    Clock::duration delay_;
    Descriptor read_end_;
    Descriptor write_end_;
    std::deque<Arrival> queue_;
    bool full_ = false;
    bool ended_ = false;
    bool closed_ = false;
};

struct Delays {
    Clock::duration requests{};
    Clock::duration replies{};
};

struct Connection {
    Connection(Descriptor from, Descriptor to, const Delays &delays)
        : client(std::move(from)),
          server(std::move(to)),
          up(client.get(), server.get(), delays.requests),
          down(server.get(), client.get(), delays.replies) {}
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
        getsockname(listener.socket.get(), reinterpret_cast<sockaddr *>(&address), &size) != 0)
        fail("relay: socket");
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
    Relay(std::vector<Listener> listeners, const Delays &delays) : listeners_(std::move(listeners)), delays_(delays) {}

    [[noreturn]] void run() {
        while (true)
            turn();
    }

  private:
    void turn();
    void accept_on(const Listener &listener);
    Clock::duration wait(Clock::time_point now) const;
    static bool serve(Connection &connection, short client_events, short server_events);

    std::vector<Listener> listeners_;
    Delays delays_;
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
    connections_.emplace_back(std::move(client), std::move(server), delays_);
}

Clock::duration Relay::wait(Clock::time_point now) const {
    Clock::duration wait = std::chrono::seconds(1);
    for (const Connection &connection : connections_) {
        for (const Pipe *pipe : {&connection.up, &connection.down})
            if (pipe->has_queued() && pipe->due() > now) wait = std::min(wait, pipe->due() - now);
    }
    return wait;
}

timespec to_timespec(Clock::duration duration) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(duration);
    return {seconds.count(), std::chrono::nanoseconds(duration - seconds).count()};
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
    const timespec longest = to_timespec(wait(now));
    ppoll(polled.data(), polled.size(), &longest, nullptr);
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
    const std::string_view waiting = argc > 1 ? argv[1] : "";
    unsigned long round_trip = 0;
    if (argc < 4 || (waiting != "requests" && waiting != "replies") || !parse(argv[2], 10'000'000, round_trip)) {
        std::fputs("usage: relay requests|replies ROUND_TRIP_MICROSECONDS TARGET_PORT...\n", stderr);
        return 2;
    }
    std::vector<Listener> listeners;
    for (int i = 3; i < argc; ++i) {
        unsigned long port = 0;
        if (!parse(argv[i], 65535, port)) {
            std::fprintf(stderr, "relay: %s is no port\n", argv[i]);
            return 2;
        }
        listeners.push_back(listen_for(static_cast<uint16_t>(port)));
    }
    std::printf("\n");
    std::fflush(stdout);
    std::signal(SIGPIPE, SIG_IGN);
    prctl(PR_SET_TIMERSLACK, 1);  // nanoseconds: by default a wait lasts up to 50 microseconds longer
    Delays delays;
    (waiting == "requests" ? delays.requests : delays.replies) = std::chrono::microseconds(round_trip);
    Relay(std::move(listeners), delays).run();
}
