// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/envelope.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "nfstdm/xdr/reader.h"

namespace nfstdm::rpc {

namespace {

constexpr std::array<std::byte, xdr::kWord> kPadding{};
constexpr std::size_t kHeadExpected = 256;  // most heads are smaller

std::size_t trailing_size(const Request &request) {
    if (!request.wrapped.empty()) return request.wrapped.size();
    return request.arguments.size() + request.data.size() + xdr::padding_of(request.data.size());
}

// Where the data of wrapped results begin, asked for as if the results came in bit by bit; beyond their end when there
// are none.
std::size_t position_of_data(const Request &request) {
    const auto results = request.results();
    std::size_t known = 0;
    while (known <= results.size()) {
        const std::size_t next = request.data_position(results.first(known));
        if (next <= known) return known;
        known = next;
    }
    return known;
}

// READ data that came wrapped goes where it would have landed.
Status land(Request &request) {
    const auto results = request.results();
    const std::size_t position = position_of_data(request);
    if (position > results.size()) return {};  // there is none: a failure of the procedure
    xdr::Reader reader(results.subspan(position - xdr::kWord));
    std::span<const std::byte> data;
    if (!reader.get_opaque(data, request.landing.size()) || !reader.finished())
        return {EIO, "the server's answer is cut or too long"};
    std::copy(data.begin(), data.end(), request.landing.begin());
    request.landed = data.size();
    request.reply.resize(request.results_at + position);
    return {};
}

Status take_out(Request &request) {
    const auto wrapped = std::span{request.reply}.subspan(request.results_at);
    const auto results = request.authenticator->unwrap(wrapped, request.transmission.get());
    if (!results.ok()) {
        request.suspect = true;
        return results.status();
    }
    request.results_at = static_cast<std::size_t>(results.value().data() - request.reply.data());
    request.reply.resize(request.results_at + results.value().size());
    return request.data_position == nullptr ? Status{} : land(request);
}

}  // namespace

Status seal(Request &request) {
    request.transmission.reset();
    request.suspect = request.denied = false;
    request.wrapped.clear();
    xdr::Writer writer;
    writer.reserve(kHeadExpected);
    begin_call(writer, request.xid(), request.program, request.procedure);
    if (Status status = request.authenticator->put(writer, request.transmission); !status.ok()) return status;
    if (request.authenticator->wraps()) {
        auto wrapped = request.authenticator->wrap(request.arguments, request.data, request.transmission.get());
        if (!wrapped.ok()) return wrapped.status();
        request.wrapped = std::move(wrapped.value());
    }
    request.head = writer.take();
    mark_call(request.head, trailing_size(request));
    return {};
}

std::array<std::span<const std::byte>, 4> pieces(const Request &request) {
    if (!request.wrapped.empty()) return {request.head, request.wrapped, {}, {}};
    return {request.head, request.arguments, request.data,
            std::span{kPadding}.first(xdr::padding_of(request.data.size()))};
}

std::size_t wire_size(const Request &request) {
    return request.head.size() + trailing_size(request);
}

void open_reply(Request &request, bool whole) {
    ReplyHeader header = read_reply_header(request.reply);
    request.results_at = header.results;
    request.status = std::move(header.status);
    if (header.auth_status)
        request.denied = request.authenticator->cures(*header.auth_status, request.transmission.get());
    if (!header.verifier) return;
    if (Status doubt = request.authenticator->check(*header.verifier, request.transmission.get()); !doubt.ok()) {
        request.suspect = true;
        request.status = std::move(doubt);
    }
    if (!request.status.ok()) return;
    request.status = !whole                           ? Status{EIO, "the server's answer is cut or too long"}
                     : request.authenticator->wraps() ? take_out(request)
                                                      : Status{};
}

}  // namespace nfstdm::rpc
