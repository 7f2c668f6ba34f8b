// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/base/record.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace nfstdm {
namespace {

constexpr std::string_view kRpc = "rpc";  // the component that waits for servers
constexpr std::string_view kBegins = "begins: ";
constexpr std::string_view kStatus = "status ";
constexpr std::string_view kWhy = ": ";
constexpr std::string_view kServer = "server ";
constexpr std::string_view kSilent = " not responding, still trying";
constexpr std::string_view kInGrace = " is in its grace period after a start, waiting";
constexpr std::string_view kNotReady = " is not ready (just started, or fetching the file), waiting";
constexpr std::string_view kBack = " ok again";
constexpr std::string_view kSecurity = "with security ";
constexpr std::string_view kKerberos = "Kerberos";
constexpr std::string_view kTransport = "transport_security";

// What is told of a server behind its name.
struct ServerWords {
    RecordKind kind;
    std::string_view words;
};

constexpr ServerWords kOfServers[] = {
    {RecordKind::silence, kSilent},
    {RecordKind::grace, kInGrace},
    {RecordKind::delay, kNotReady},
    {RecordKind::recovery, kBack},
};

bool contains(std::string_view text, std::string_view words) {
    return text.find(words) != std::string_view::npos;
}

// The words between two others; nothing when it is not those.
std::optional<std::string_view> between(std::string_view text, std::string_view head, std::string_view tail) {
    if (text.size() < head.size() + tail.size() || !text.starts_with(head) || !text.ends_with(tail))
        return std::nullopt;
    return text.substr(head.size(), text.size() - head.size() - tail.size());
}

// Reads "status N" and "status N: why"; false when it is neither.
bool read_status(std::string_view text, Record &record) {
    if (!text.starts_with(kStatus)) return false;
    text.remove_prefix(kStatus.size());
    uint32_t status = 0;
    const auto number = std::from_chars(text.data(), text.data() + text.size(), status);
    text.remove_prefix(static_cast<std::size_t>(number.ptr - text.data()));
    if (number.ec != std::errc{}) return false;
    const bool has_reason = text.starts_with(kWhy);
    if (has_reason == (status == 0) || (!has_reason && !text.empty())) return false;
    record.kind = has_reason ? RecordKind::failed : RecordKind::succeeded;
    record.status = status;
    record.text = has_reason ? text.substr(kWhy.size()) : text;
    return true;
}

// The kind of a text that is not an operation's beginning or end, and what is left of it.
RecordKind read_note(std::string_view name, std::string_view &text) {
    if (text.starts_with(kStatus)) return RecordKind::note;  // without a reason
    if (name == kOpening) return contains(text, kKeyInCapitals) ? RecordKind::capitals : RecordKind::configuration;
    if (name != kRpc) return RecordKind::note;
    for (const auto &[kind, words] : kOfServers)
        if (const auto server = between(text, kServer, words)) {
            text = *server;
            return kind;
        }
    return RecordKind::note;
}

}  // namespace

std::string record_text(const Record &record) {
    switch (record.kind) {
        case RecordKind::begins:
            return std::string(kBegins) + record.text;
        case RecordKind::succeeded:
            return std::string(kStatus) + "0";
        case RecordKind::failed:
            return std::string(kStatus).append(std::to_string(record.status)).append(kWhy).append(record.text);
        case RecordKind::silence:
        case RecordKind::grace:
        case RecordKind::delay:
        case RecordKind::recovery:
            for (const auto &[kind, words] : kOfServers)
                if (kind == record.kind) return named_server(record.text).append(words);
            break;
        case RecordKind::note:
        case RecordKind::configuration:
        case RecordKind::capitals:
            break;
    }
    return record.text;
}

Record read_record(std::string_view line) {
    constexpr std::string_view kClockEnd = "],";
    Record record;
    const std::size_t clock = line.find(kClockEnd);
    if (clock == std::string_view::npos) return {RecordKind::note, {}, 0, std::string(line)};
    line.remove_prefix(clock + kClockEnd.size());
    record.name = line.substr(0, line.find(' '));
    std::string_view text = line.substr(std::min(line.size(), record.name.size() + 1));
    if (read_status(text, record)) return record;
    if (text.starts_with(kBegins)) {
        record.kind = RecordKind::begins;
        text.remove_prefix(kBegins.size());
    } else {
        record.kind = read_note(record.name, text);
    }
    record.text = text;
    return record;
}

Concern concern_of(std::string_view reason) {
    for (const std::string_view words : {kSecurity, kKerberos, kTransport})
        if (contains(reason, words)) return Concern::security;
    if (contains(reason, std::string(kWhy) + kMountCall)) return Concern::mounting;
    return contains(reason, kServer) ? Concern::server : Concern::host;
}

std::string named_server(std::string_view name) {
    return std::string(kServer).append(name);
}

std::string_view server_in(std::string_view reason) {
    const std::size_t words = reason.find(kServer);
    if (words == std::string_view::npos) return {};
    reason.remove_prefix(words + kServer.size());
    return reason.substr(0, reason.find(':'));
}

std::string named_security(std::string_view flavour) {
    return std::string(kSecurity).append(flavour);
}

}  // namespace nfstdm
