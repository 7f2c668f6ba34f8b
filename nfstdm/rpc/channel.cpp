// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/channel.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "nfstdm/rpc/envelope.h"
#include "nfstdm/rpc/transport/tcp.h"

namespace nfstdm::rpc {

namespace {

// How long the system may have something to send, by the rate that was measured, and how much in any case. More of it
// would make no path quicker, but what the system holds can not go another way any more.
constexpr double kUnsentSeconds = 0.05;
constexpr std::size_t kUnsentBytes = std::size_t{128} << 10;

// A connection that ended may be a server that is just starting; what it said no to it will say no to again.
bool may_pass(const Status &why) {
    return why.number() == ECONNRESET || why.number() == EPIPE || why.number() == ETIMEDOUT;
}

}  // namespace

Channel::Channel(EventLoop &loop, ChannelOwner &owner, AddressBook &book, ChannelConfig config)
    : owner_(owner),
      book_(book),
      config_(std::move(config)),
      dialer_(loop, config_.timing),
      handshake_(loop),
      connection_(loop, *this),
      timer_(loop) {}

std::string Channel::where() const {
    const Path &path = config_.path;
    const bool bare_v6 = path.host.find(':') != std::string::npos;
    return (bare_v6 ? "[" + path.host + "]" : path.host) + ":" + std::to_string(path.port);
}

void Channel::wake() {
    if (state_ == State::idle) begin_round();
}

void Channel::reconsider() {
    if (state_ != State::left) return;
    unreachable_ = false;
    state_ = State::idle;
    if (owner_.has_work()) wake();
}

// Called when less is under way than before, and now and then.
void Channel::measure() {
    if (!meter_.busy()) return;
    meter_.look(RateMeter::Clock::now(), connection_.progress(), connection_.weight() >= kBulkBytes);
}

void Channel::send(std::unique_ptr<Request> request) {
    request->given = RateMeter::Clock::now();
    // What the peer takes in while this is being sent counts.
    if (!meter_.busy() && weight() + request->weight() >= kBulkBytes)
        meter_.look(request->given, connection_.progress(), true);
    connection_.send(std::move(request));
}

// Where requests can go another way, what a slow connection has not sent stays here.
void Channel::limit_unsent() {
    if (!config_.one_of_several) return;
    const bool known = meter_.known(RateMeter::Clock::now());
    const double bytes = known ? kUnsentSeconds * meter_.rate() : 0;
    connection_.limit_unsent(std::max(static_cast<std::size_t>(bytes), kUnsentBytes));
}

bool Channel::movable(const Request &request) const {
    const bool probes = request.owner == this;
    return !probes && connection_.movable(request) && (config_.one_of_several || !ends_with(request));
}

std::unique_ptr<Request> Channel::move(const Request &request) {
    return ends_with(request) ? take_half_sent() : connection_.move(request);
}

// What was measured so far is how slow the next connection will be, too: it is not tried anew at once.
std::unique_ptr<Request> Channel::take_half_sent() {
    meter_.look(RateMeter::Clock::now(), connection_.progress(), false);
    meter_.answered();
    connection_.close();
    auto only = connection_.take_all();
    wait_and_retry();
    owner_.channel_remarks(where() + ": too slow for a request, which goes another way");
    return std::move(only.front());
}

void Channel::close() {
    timer_.cancel();
    dialer_.cancel();
    handshake_.cancel();
    connection_.close();
    static_cast<void>(connection_.take_all());
    state_ = State::idle;
    attempts_ = 0;
    unreachable_ = false;
    probe_bytes_ = 0;
}

void Channel::begin_round() {
    state_ = State::connecting;
    auto addresses = book_.find(config_.path.host, config_.path.port);
    if (addresses.ok()) {
        std::erase_if(addresses.value(), [this](const Address &each) { return owner_.is_stranger(each); });
        if (addresses.value().empty()) {
            state_ = State::left;
            unreachable_ = true;
            return;
        }
        return dialer_.dial(std::move(addresses.value()), config_.path.local, config_.source,
                            [this](Dialled result) { dialled(std::move(result)); });
    }
    // From the loop, never from inside the submission that woke the channel.
    timer_.after(Duration::zero(), [this, failure = addresses.status()] { dialled({{}, {}, failure, false}); });
}

void Channel::dialled(Dialled result) {
    if (!result.socket) {
        unreachable_ = unreachable_ || !result.unanswered;
        return lost(result.failure.in(where()), false);
    }
    address_ = result.address;
    handshake_.begin(new_transport(std::move(result.socket)), silence_limit(false),
                     [this](auto transport) { connected(std::move(transport)); });
}

std::unique_ptr<Transport> Channel::new_transport(Descriptor connected) const {
    if (config_.transports) return config_.transports(std::move(connected), config_.path.host, config_.path.port);
    return std::make_unique<TcpTransport>(std::move(connected));
}

void Channel::connected(Result<std::unique_ptr<Transport>> transport) {
    proven_ = false;
    if (!transport.ok()) {
        book_.avoid(config_.path.host, address_);
        unreachable_ = unreachable_ || !may_pass(transport.status());
        if (transport.status().number() == ETIMEDOUT) grow_patience();
        return lost(transport.status().in(where()), false);
    }
    book_.prefer(config_.path.host, address_);
    if (const auto remark = transport.value()->remark(); !remark.empty())
        owner_.channel_remarks(where() + ": " + remark);
    connection_.open(std::move(transport.value()));
    limit_unsent();
    quiet_ = {};
    progress_ = connection_.progress();
    if (auto question = owner_.new_question(address_); question != nullptr) {
        state_ = State::meeting;
        return ask(std::move(question));
    }
    if (!doubted_ && !config_.one_of_several) return become_usable();
    state_ = State::proving;
    probe();
}

void Channel::introduced(const Request &answered) {
    const Status status = owner_.channel_introduced(answered, address_);
    if (status.ok()) {
        become_usable();
        return owner_.channel_proven();
    }
    book_.avoid(config_.path.host, address_);
    connection_.close();
    lost(status.in(where()), false);
}

void Channel::become_usable() {
    state_ = State::usable;
    unreachable_ = false;
    owner_.channel_usable();
}

void Channel::doubt() {
    doubted_ = true;
    if (connection_.is_open() && probe_bytes_ == 0) probe();
}

void Channel::probe() {
    ask(owner_.new_probe());
}

void Channel::ask(std::unique_ptr<Request> request) {
    request->owner = this;
    probe_bytes_ = wire_size(*request);
    connection_.send(std::move(request));
}

void Channel::connection_answered(std::unique_ptr<Request> request) {
    if (request->owner == this) {
        probe_bytes_ = 0;
        doubted_ = false;
        if (state_ == State::meeting) return introduced(*request);
        if (state_ == State::proving) become_usable();
        return owner_.channel_proven();
    }
    proven_ = true;
    attempts_ = 0;
    patience_ = 1;
    const bool bulk = request->weight() >= kBulkBytes;
    if (bulk) meter_.answered();
    measure();
    if (bulk) limit_unsent();
    owner_.channel_answered(std::move(request));
}

void Channel::connection_closed(const Status &why, bool nonsense) {
    // Refused in TLS 1.3 is a client after its own handshake is done.
    unreachable_ = unreachable_ || (!proven_ && why.number() == EKEYREJECTED);
    lost(why.in(where()), nonsense);
}

// The round or the connection is over.
void Channel::lost(const Status &why, bool nonsense) {
    probe_bytes_ = 0;
    meter_.forget();
    auto requests = connection_.take_all();
    std::erase_if(requests, [this](const auto &request) { return request->owner == this; });
    wait_and_retry();
    owner_.channel_lost(std::move(requests), why, nonsense);
}

// A connection that had brought answers is replaced at once, anything else after a while.
void Channel::wait_and_retry() {
    state_ = State::waiting;
    Duration delay{};
    if (!std::exchange(proven_, false)) {
        constexpr unsigned kDoublings = 16;
        delay = std::min(config_.timing.backoff_first * (1U << std::min(attempts_, kDoublings)),
                         config_.timing.backoff_most);
        ++attempts_;
    }
    timer_.after(delay, [this] {
        state_ = State::idle;
        if (owner_.has_work()) wake();
    });
}

// Whether bytes moved since the last look. That the peer's system took in a NULL call says nothing about the server.
bool Channel::moved() {
    const uint64_t progress = connection_.progress();
    if (progress <= progress_ + probe_bytes_) return false;
    progress_ = progress;
    return true;
}

void Channel::grow_patience() {
    patience_ = std::min(patience_ * 2, config_.timing.patience_maximum);
}

Duration Channel::silence_limit(bool alone) const {
    const Timing &timing = config_.timing;
    return alone ? timing.silence_alone * patience_ : std::min(timing.silence * patience_, timing.silence_most);
}

void Channel::tick(Duration elapsed, bool alone) {
    measure();
    if (!connection_.is_open()) return;
    if (moved() || connection_.idle()) {
        quiet_ = {};
        return;
    }
    quiet_ += elapsed;
    if (quiet_ >= config_.timing.probe && probe_bytes_ == 0) probe();
    if (quiet_ < silence_limit(alone) || !connection_.is_open()) return;
    grow_patience();
    doubted_ = true;
    book_.avoid(config_.path.host, address_);
    connection_.close();
    lost({ETIMEDOUT, where() + ": the connection fell silent"}, false);
}

}  // namespace nfstdm::rpc
