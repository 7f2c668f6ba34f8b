// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/client.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "nfstdm/base/random.h"
#include "nfstdm/base/record.h"
#include "nfstdm/rpc/envelope.h"

namespace nfstdm::rpc {

namespace {

// xids start anywhere, so that two runs from the same source port do not look like one to a server that remembers.
uint64_t first_sequence() {
    return static_cast<uint32_t>(random_number());
}

}  // namespace

Client::Client(EventLoop &loop, ClientConfig config, const Trace &trace)
    : loop_(loop),
      config_(std::move(config)),
      addresses_(config_.addresses != nullptr ? config_.addresses : std::make_shared<AddressBook>()),
      trace_(trace),
      acquaintance_(config_.paths.size() > 1),
      next_sequence_(first_sequence()),
      tick_timer_(loop) {
    const bool several = config_.paths.size() > 1;
    // The first connection of every path comes before the second of any.
    for (unsigned i = 0; i < std::max(1U, config_.connections_per_path); ++i)
        for (const Path &path : config_.paths)
            channels_.push_back(std::make_unique<Channel>(
                loop, static_cast<ChannelOwner &>(*this), *addresses_,
                ChannelConfig{path, config_.source, config_.timing, several, config_.transports}));
}

Client::~Client() = default;

// Gives a request to a connection, with a header made for this transmission.
void Client::transmit(std::unique_ptr<Request> request, Channel &channel) {
    if (Status failed = seal(*request); !failed.ok()) return finish(std::move(request), failed);
    channel.send(std::move(request));
}

void Client::submit(std::unique_ptr<Request> request) {
    request->status = {};
    request->sends = 0;
    request->faults = 0;
    request->denials = 0;
    request->landed = 0;
    request->submitted = clock_;
    request->begun.reset();
    request->moved = false;
    request->program = config_.program;
    request->sequence = next_sequence_++;
    ++outstanding_;
    worked_ = true;
    if (doubt_ && EventLoop::Clock::now() - last_tick_ > config_.timing.grace) {
        // The application was away. What was answered meanwhile is still to be read.
        doubt_.renew(clock_ + config_.timing.grace);
    }
    doubt_.believe_if_due();
    if (doubt_.settled(clock_)) return finish(std::move(request), doubtful());
    to_send_.push_back(std::move(request));
    begin_work();
    pump();
}

// Makes sure that something happens to the requests there are.
void Client::begin_work() {
    if (!tick_timer_.pending()) {
        last_tick_ = EventLoop::Clock::now();
        last_answer_ = clock_;
        tick_timer_.after(config_.timing.tick, [this] { tick(); });
    }
    for (const auto &channel : channels_)
        channel->wake();
}

void Client::pump() {
    do
        hand_out();
    while (move_one());
    open_authenticators();
}

void Client::hand_out() {
    for (std::size_t next = 0; next < to_send_.size();) {
        // Others need not wait for a request that can not be sent yet.
        if (to_send_[next]->authenticator->readiness() != Authenticator::Readiness::ready) {
            ++next;
            continue;
        }
        Channel *channel = choose_channel(channels_, *to_send_[next], connection_bytes());
        if (channel == nullptr) break;
        auto request = std::move(to_send_[next]);
        to_send_.erase(to_send_.begin() + static_cast<std::ptrdiff_t>(next));
        if (!request->begun) request->begun = clock_;
        transmit(std::move(request), *channel);
    }
}

// Takes back a request that is to be handed out again; each once, so it comes to an end.
bool Client::move_one() {
    const auto move = find_move(channels_);
    if (!move || move->request->authenticator->readiness() != Authenticator::Readiness::ready) return false;
    std::vector<std::unique_ptr<Request>> moved;
    moved.push_back(move->from->move(*move->request));
    moved.front()->moved = true;
    requeue(std::move(moved));
    return true;
}

void Client::channel_usable() {
    last_trouble_ = {};
    pump();
}

void Client::channel_remarks(const std::string &remark) {
    trace_.write(TraceLevel::notice, TraceComponent::rpc, [&] { return "server " + config_.server + ": " + remark; });
}

void Client::channel_proven() {
    doubt_.null_answered();
    pump();
}

void Client::channel_answered(std::unique_ptr<Request> request) {
    doubt_.end();
    last_answer_ = clock_;
    if (request->weight() >= kBulkBytes) prompt_ = clock_ - request->submitted < config_.timing.prompt;
    if (std::exchange(reported_, false))
        trace_.write(TraceLevel::failure, TraceComponent::rpc, [this] {
            return record_text({RecordKind::recovery, {}, 0, config_.server});
        });
    if (request->denied && ++request->denials < kDenialsMaximum) {
        --request->sends;  // it was not executed
        std::vector<std::unique_ptr<Request>> again;
        again.push_back(std::move(request));
        requeue(std::move(again));
    } else {
        const Status status = std::move(request->status);
        finish(std::move(request), status);
    }
    pump();
}

void Client::channel_lost(std::vector<std::unique_ptr<Request>> requests, const Status &why, bool nonsense) {
    trace_.write(TraceLevel::notice, TraceComponent::rpc, [&] {
        return "server " + config_.server + ": " + why.text() +
               "; requests to send again: " + std::to_string(requests.size());
    });
    last_trouble_ = why;
    if (nonsense) {
        for (auto &request : requests)
            if (++request->faults >= kFaultsMaximum) finish(std::move(request), why);
        std::erase(requests, nullptr);
    }
    requeue(std::move(requests));
    give_up_unreachable();
    pump();
}

void Client::requeue(std::vector<std::unique_ptr<Request>> requests) {
    for (auto &request : requests) {
        request->transmission.reset();  // that one is over
        to_send_.push_back(std::move(request));
    }
    std::sort(to_send_.begin(), to_send_.end(), [](const auto &a, const auto &b) { return a->sequence < b->sequence; });
}

// A first contact does not wait for a server that is nowhere to be reached.
void Client::give_up_unreachable() {
    const bool hopeless =
        std::all_of(channels_.begin(), channels_.end(), [](const auto &channel) { return channel->unreachable(); });
    if (!hopeless) return;
    for (auto &request : to_send_)
        if (request->needs_contact) finish(std::move(request), last_trouble_);
    std::erase(to_send_, nullptr);
}

std::unique_ptr<Request> Client::new_probe() {
    auto probe = std::make_unique<Request>();
    probe->name = "NULL";
    return seal_own(std::move(probe));
}

// A call of a channel's own.
std::unique_ptr<Request> Client::seal_own(std::unique_ptr<Request> request) {
    request->program = config_.program;
    request->sequence = next_sequence_++;
    request->submitted = clock_;
    [[maybe_unused]] const Status sealed = seal(*request);
    assert(sealed.ok());  // by an authenticator that can always be asked
    return request;
}

std::unique_ptr<Request> Client::new_question(const Address &peer) {
    if (config_.introduction == nullptr || !acquaintance_.must_ask(peer)) return nullptr;
    return seal_own(config_.introduction->question());
}

Status Client::channel_introduced(const Request &answered, const Address &peer) {
    const auto name = config_.introduction->name_in(answered);
    if (!name.ok()) return name.status();
    Status met = acquaintance_.meet(peer, name.value(), usable_channels() > 0);
    if (met.ok()) reconsider_strangers();
    return met;
}

void Client::reconsider_strangers() {
    for (const auto &channel : channels_)
        channel->reconsider();
}

void Client::know_server(const std::string &name) {
    if (acquaintance_.know(name)) reconsider_strangers();
}

// The request leaves the client's work; its owner hears of it from the loop.
void Client::finish(std::unique_ptr<Request> request, const Status &status) {
    Status named = status.in(std::string(request->name)).in("server " + config_.server);
    conclude(std::move(request), std::move(named));
}

// The same, of a failure that is told already of whom and of what it is.
void Client::conclude(std::unique_ptr<Request> request, Status status) {
    request->status = std::move(status);
    request->spent = clock_ - request->submitted;
    assert(outstanding_ > 0);
    --outstanding_;
    request->transmission.reset();
    done_.push_back(std::move(request));
    if (!std::exchange(delivering_, true)) life_.soon(loop_, [this] { deliver(); });
}

void Client::deliver() {
    const auto life = life_.watch();
    delivering_ = false;
    // Only what is there now: a done function that submits again gets its turn after the others.
    for (std::size_t count = done_.size(); count > 0 && !done_.empty(); --count) {
        auto request = std::move(done_.front());
        done_.pop_front();
        const auto done = std::move(request->done);
        done(std::move(request));
        if (life.expired()) return;
    }
}

void Client::drop(const void *owner) {
    std::vector<const Request *> theirs;
    for_each([&](const Request &request) {
        if (request.owner == owner) theirs.push_back(&request);
    });
    for (const Request *request : theirs)
        if (withdraw(*request) != nullptr) --outstanding_;
    std::erase_if(done_, [owner](const auto &request) { return request->owner == owner; });
}

void Client::close() {
    drop(this);  // what nobody waits for any more
    opening_.clear();
    assert(outstanding_ == 0);
    take_leave();
    doubt_.end();
    tick_timer_.cancel();
    acquaintance_.forget();
    for (const auto &channel : channels_)
        channel->close();
}

std::size_t Client::outstanding_bytes() const {
    std::size_t bytes = 0;
    for (const auto &request : to_send_)
        bytes += request->weight();
    for (const auto &channel : channels_)
        bytes += channel->weight();
    return bytes;
}

bool Client::busy() const {
    return outstanding_bytes() >= connection_bytes() * std::max(1U, usable_channels());
}

unsigned Client::usable_channels() const {
    return static_cast<unsigned>(
        std::count_if(channels_.begin(), channels_.end(), [](const auto &channel) { return channel->usable(); }));
}

// Takes a request out of whichever queue it is in.
std::unique_ptr<Request> Client::withdraw(const Request &request) {
    const auto queued =
        std::find_if(to_send_.begin(), to_send_.end(), [&request](const auto &each) { return each.get() == &request; });
    if (queued != to_send_.end()) {
        auto taken = std::move(*queued);
        to_send_.erase(queued);
        return taken;
    }
    for (const auto &channel : channels_)
        if (auto taken = channel->take(request); taken != nullptr) return taken;
    return nullptr;
}

}  // namespace nfstdm::rpc
