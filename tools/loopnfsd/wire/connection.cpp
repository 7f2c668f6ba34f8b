// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/wire/connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace loopnfsd {

namespace {

constexpr std::size_t kPiecesAtOnce = 32;          // of a gathered send
constexpr std::size_t kUnsentMaximum = 64u << 20;  // bytes of replies; beyond them no more calls are read
constexpr uint64_t kNoLimit = RateLimit::kNoLimit;

}  // namespace

Connection::Connection(const Surroundings &surroundings, UniqueFd socket, Arrival arrival, std::function<void()> closed)
    : around_(surroundings),
      stream_(std::move(socket), surroundings.tls, surroundings.statistics),
      arrival_(std::move(arrival)),
      closed_(std::move(closed)),
      reader_(surroundings.record_maximum),
      alarm_(surroundings.loop, [this] { woken(); }) {
    pump();
}

Connection::~Connection() {
    if (stream_) around_.loop.forget(stream_.get());
}

void Connection::wake() {
    if (stream_) pump();
}

void Connection::close() {
    if (!stream_) return;
    around_.loop.forget(stream_.get());
    alarm_.set(std::nullopt);
    stream_.close();
    closed_();
}

void Connection::cut() {
    if (stream_ && around_.faults.hit(FaultKind::reset, arrival_.path)) {
        const linger at_once{1, 0};
        setsockopt(stream_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    }
    close();
}

uint64_t Connection::before_cut() const {
    const auto limit = around_.faults.number(FaultKind::cut_after, arrival_.path);
    return limit ? *limit - std::min(*limit, passed_) : kNoLimit;
}

bool Connection::at_cut() {
    if (before_cut() > 0) return false;
    around_.faults.use_up(FaultKind::cut_after, arrival_.path);
    cut();
    return true;
}

LineConditions Connection::conditions() const {
    const auto milliseconds = [&](FaultKind kind) {
        return std::chrono::milliseconds(around_.faults.number(kind, arrival_.path).value_or(0));
    };
    return {milliseconds(FaultKind::rtt), milliseconds(FaultKind::delay),
            around_.faults.number(FaultKind::reorder, arrival_.path).value_or(0)};
}

void Connection::ready(short events) {
    const auto is_over = [&] {
        if ((events & POLLOUT) != 0 && stream_.waits_for() != 0) return !stream_.go_on();
        return (events & (POLLERR | POLLHUP)) != 0;
    };
    if ((events & POLLIN) != 0)
        receive();
    else if (is_over())
        return close();
    pump();
}

void Connection::woken() {
    if (stream_ && stream_.holds_received()) receive();
    pump();
}

void Connection::receive() {
    const uint64_t allowed =
        std::min(in_.allowance(around_.faults.number(FaultKind::rate, arrival_.path), Clock::now()), before_cut());
    if (allowed == 0) return;
    const auto space = reader_.space();
    const ssize_t got = stream_.receive(space.first(std::min<uint64_t>(space.size(), allowed)));
    if (got < 0) return close();
    if (got == 0) return;
    in_.take(static_cast<uint64_t>(got));
    passed_ += static_cast<uint64_t>(got);
    around_.statistics.received(arrival_.path, static_cast<uint64_t>(got));
    reader_.received(static_cast<std::size_t>(got));
    serve();
}

void Connection::serve() {
    while (stream_) {
        std::span<const std::byte> record;
        switch (reader_.next(record)) {
            case RecordReader::Next::incomplete:
                return;
            case RecordReader::Next::too_large:
                ++around_.statistics.broken_records;
                return close();
            case RecordReader::Next::record:
                act_on(around_.dispatcher.answer(record, arrival_));
                break;
        }
    }
}

void Connection::act_on(Answer answer) {
    if (answer.close) return cut();
    if (!answer.reply) return;
    if (!answer.reply->starts_tls && around_.faults.hit(FaultKind::duplicate, arrival_.path))
        line_.add(*answer.reply, Clock::now(), conditions());
    line_.add(std::move(*answer.reply), Clock::now(), conditions());
}

// Sends what may be sent now and arranges to be called again.
void Connection::pump() {
    if (!stream_ || at_cut()) return;
    if (around_.faults.on(FaultKind::silent, arrival_.path)) {
        alarm_.set(std::nullopt);
        watched_ = 0;
        around_.loop.watch(stream_.get(), 0, [this](short events) { ready(events); });
        return;
    }
    const std::size_t turned = line_.release(Clock::now(), conditions(), sending_);
    around_.faults.note(FaultKind::reorder, turned);
    if (!send() || at_cut()) return;
    wait_for_more();
}

// False when the connection is gone.
bool Connection::send() {
    const auto rate = around_.faults.number(FaultKind::rate, arrival_.path);
    while (!sending_.empty()) {
        const uint64_t allowed = std::min(out_.allowance(rate, Clock::now()), before_cut());
        if (allowed == 0) return true;
        if (!send_some(allowed)) return static_cast<bool>(stream_);
    }
    return true;
}

// False when no more goes in now.
bool Connection::send_some(uint64_t limit) {
    std::array<iovec, kPiecesAtOnce> pieces{};
    std::size_t count = 0;
    std::size_t skip = sent_;
    const auto add = [&](std::byte *bytes, std::size_t size) {
        const std::size_t left = size - std::min(size, skip);
        if (left > 0 && limit > 0) {
            const std::size_t taken = std::min<uint64_t>(left, limit);
            pieces[count++] = {bytes + (size - left), taken};
            limit -= taken;
        }
        skip -= size - left;
    };
    for (auto record = sending_.begin(); record != sending_.end() && count + 2 <= kPiecesAtOnce; ++record) {
        add(record->head.data(), record->head.size());
        add(record->bulk.bytes.get(), record->bulk.size);
        if (record->starts_tls) break;
    }
    const ssize_t sent = stream_.send(std::span<const iovec>{pieces}.first(count));
    if (sent < 0) close();
    if (sent <= 0) return false;
    drop_sent(static_cast<std::size_t>(sent));
    return static_cast<bool>(stream_);
}

void Connection::drop_sent(std::size_t size) {
    out_.take(size);
    passed_ += size;
    around_.statistics.sent(arrival_.path, size);
    sent_ += size;
    while (!sending_.empty() && sent_ >= sending_.front().size()) {
        sent_ -= sending_.front().size();
        const bool starts_tls = sending_.front().starts_tls;
        sending_.pop_front();
        if (starts_tls) return start_tls();
    }
}

void Connection::start_tls() {
    arrival_.tls = Arrival::Tls::used;
    if (!stream_.start_tls()) close();
}

void Connection::wait_for_more() {
    const auto now = Clock::now();
    const auto rate = around_.faults.number(FaultKind::rate, arrival_.path);
    auto wake_up = line_.next();
    const auto no_later_than = [&](Clock::time_point when) { wake_up = wake_up ? std::min(*wake_up, when) : when; };
    short events = 0;
    std::size_t unsent = line_.bytes();
    for (const Record &record : sending_)
        unsent += record.size();
    if (unsent < kUnsentMaximum) {
        if (in_.allowance(rate, now) > 0)
            events |= POLLIN;
        else
            no_later_than(in_.ready_at());
    }
    if ((events & POLLIN) != 0 && stream_.holds_received()) no_later_than(now);
    events |= stream_.waits_for();
    if (!sending_.empty() && !stream_.is_shaking_hands()) {
        if (out_.allowance(rate, now) > 0)
            events |= POLLOUT;
        else
            no_later_than(out_.ready_at());
    }
    if (events != watched_) around_.loop.watch(stream_.get(), events, [this](short now_ready) { ready(now_ready); });
    watched_ = events;
    alarm_.set(wake_up);
}

}  // namespace loopnfsd
