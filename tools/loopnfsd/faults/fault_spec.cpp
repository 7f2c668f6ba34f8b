// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/faults/fault_spec.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "tools/loopnfsd/base/nfs4_numbers.h"
#include "tools/loopnfsd/base/status.h"
#include "tools/loopnfsd/base/text.h"

namespace loopnfsd {

namespace {

using enum FaultShape;

// In the order of FaultKind.
constexpr std::array<FaultRow, kFaultKinds> kFaults{{
    {FaultKind::bad_names, "bad-names", flag, 0, "", "directories also list names such as \"\", \"a/b\" and \"../up\""},
    {FaultKind::big_size, "big-size", optional_number, kWithoutEnd - 1, "[=BYTES]", "files claim a size near 2^64"},
    {FaultKind::capacity, "capacity", number, 0, "=BYTES", "NOSPC once files have grown by so much"},
    {FaultKind::cookie_loop, "cookie-loop", flag, 0, "", "the last cookie of a directory leads back to its start"},
    {FaultKind::cut_after, "cut-after", number_count, 0, "=BYTES[:COUNT]",
     "close a connection when so many bytes went over it, both ways together"},
    {FaultKind::cut_request, "cut-request", number_count, 0, "=N[:COUNT]",
     "close the connection instead of executing the Nth call"},
    {FaultKind::delay, "delay", number, 0, "=MS", "a slow server: every call takes so long, one after the other"},
    {FaultKind::drop_reply, "drop-reply", calls, 0, "=PROC:N[:COUNT]",
     "execute the Nth PROC, lose its reply and close the connection"},
    {FaultKind::duplicate, "duplicate", flag, 0, "", "send every reply twice"},
    {FaultKind::endless_readdir, "endless-readdir", flag, 0, "", "directories never end"},
    {FaultKind::forget, "forget", flag, 0, "", "at once: lose what is held uncommitted and change the write verifier"},
    {FaultKind::handle_size, "handle-size", number, 0, "=BYTES",
     "handles of another size; 32 to 64 work, others are wrong"},
    {FaultKind::long_name, "long-name", flag, 0, "", "directories also list a name of 5000 bytes"},
    {FaultKind::no_readdirplus, "no-readdirplus", flag, 0, "", "READDIRPLUS is answered with NOTSUPP"},
    {FaultKind::oversize_record, "oversize-record", calls, 0, "=PROC:N[:COUNT]",
     "the reply's record mark announces almost 2 GiB"},
    {FaultKind::rate, "rate", number, 0, "=BYTES_PER_SECOND", "of each connection, each way"},
    {FaultKind::read_only, "read-only", flag, 0, "", "every change is answered with ROFS"},
    {FaultKind::reorder, "reorder", optional_number, 4, "[=N]", "hold N replies (4) and send them in reverse order"},
    {FaultKind::reset, "reset", flag, 0, "", "connections that a fault closes are reset (RST)"},
    {FaultKind::rpc_error, "rpc-error", status, 0, "=PROC:ERROR:COUNT[:SKIP]",
     "PROG_UNAVAIL, PROG_MISMATCH, PROC_UNAVAIL, GARBAGE_ARGS, SYSTEM_ERR, RPC_MISMATCH or AUTH_ERROR"},
    {FaultKind::rtt, "rtt", number, 0, "=MS", "a long line: every reply comes so much later, any number at a time"},
    {FaultKind::rubbish, "rubbish", calls, 0, "=PROC:N[:COUNT]", "random bytes behind the head of a good reply"},
    {FaultKind::rubbish_record, "rubbish-record", calls, 0, "=PROC:N[:COUNT]", "a record of nothing but random bytes"},
    {FaultKind::short_read, "short-read", number, 0, "=BYTES", "a READ gives no more than so many bytes"},
    {FaultKind::short_write, "short-write", number, 0, "=BYTES", "a WRITE takes no more than so many bytes"},
    {FaultKind::silent, "silent", flag, 0, "", "connections stay open, nothing is answered until this is cleared"},
    {FaultKind::status, "status", status, 0, "=PROC:STATUS:COUNT[:SKIP]",
     "answer with an NFS status such as JUKEBOX, STALE, IO, NOSPC, EXPIRED"},
    {FaultKind::undersize_record, "undersize-record", calls, 0, "=PROC:N[:COUNT]",
     "the reply is cut to the first word of its head"},
    {FaultKind::wrong_xid, "wrong-xid", calls, 0, "=PROC:N[:COUNT]", "the reply carries another call's xid"},
}};

constexpr std::array<std::string_view, 7> kRpcErrors{"PROG_UNAVAIL", "PROG_MISMATCH", "PROC_UNAVAIL", "GARBAGE_ARGS",
                                                     "SYSTEM_ERR",   "RPC_MISMATCH",  "AUTH_ERROR"};

using Parts = std::vector<std::string_view>;

bool get_count(std::string_view text, uint64_t &count) {
    const auto number = text == "*" ? std::optional(kWithoutEnd) : parse_number(text);
    count = number.value_or(0);
    return number.has_value();
}

bool get_procedure(std::string_view text, Fault &fault) {
    fault.procedure = find_procedure(text);
    if (fault.procedure == nullptr) fault.procedure = nfs4::find_operation(text);
    return text == "*" || fault.procedure != nullptr;
}

// The first of the calls meant, counted from 1.
bool get_first(std::string_view text, Fault &fault) {
    const auto first = parse_number(text);
    if (!first || *first == 0) return false;
    fault.skip = *first - 1;
    return true;
}

// The names that both versions of NFS have mean the same numbers.
bool get_nfs_status(std::string_view text, Fault &fault) {
    const auto status = status_by_name(text);
    const auto status4 = nfs4::status_by_name(text);
    if (status)
        fault.status = static_cast<uint32_t>(*status);
    else if (status4)
        fault.status = static_cast<uint32_t>(*status4);
    return status || status4;
}

bool get_status(std::string_view text, Fault &fault) {
    if (fault.kind == FaultKind::status) return get_nfs_status(text, fault);
    const auto error = std::ranges::find_if(kRpcErrors, [&](auto name) { return same_word(name, text); });
    fault.status = static_cast<uint32_t>(error - kRpcErrors.begin());
    return error != kRpcErrors.end();
}

bool get_number(std::string_view text, Fault &fault) {
    const auto number = parse_bytes(text);
    fault.number = number.value_or(0);
    return number.has_value();
}

bool get_number_count(const Parts &parts, Fault &fault) {
    if (parts.size() > 2) return false;
    fault.count = 1;
    if (parts.size() == 2 && !get_count(parts[1], fault.count)) return false;
    return fault.kind == FaultKind::cut_request ? get_first(parts[0], fault) : get_number(parts[0], fault);
}

bool get_calls(const Parts &parts, Fault &fault) {
    if (parts.size() != 2 && parts.size() != 3) return false;
    fault.count = 1;
    if (parts.size() == 3 && !get_count(parts[2], fault.count)) return false;
    return get_procedure(parts[0], fault) && get_first(parts[1], fault);
}

bool get_statuses(const Parts &parts, Fault &fault) {
    if (parts.size() != 3 && parts.size() != 4) return false;
    if (!get_procedure(parts[0], fault) || !get_status(parts[1], fault) || !get_count(parts[2], fault.count))
        return false;
    if (fault.kind == FaultKind::status && fault.procedure != nullptr && fault.procedure->failure_words == kNoStatus)
        return false;
    return parts.size() == 3 || get_count(parts[3], fault.skip);
}

// given: a value stood behind "=".
bool get_value(FaultShape shape, bool given, std::string_view value, Fault &fault) {
    switch (shape) {
        case flag:
            return !given;
        case number:
            return get_number(value, fault);
        case optional_number:
            return !given || get_number(value, fault);
        case number_count:
            return get_number_count(split(value, ':'), fault);
        case calls:
            return get_calls(split(value, ':'), fault);
        case status:
            return get_statuses(split(value, ':'), fault);
    }
    return false;
}

bool get_path(std::string_view text, Fault &fault) {
    const auto path = parse_number(text);
    if (!path || *path == 0 || *path > std::numeric_limits<unsigned>::max()) return false;
    fault.path = static_cast<unsigned>(*path);
    return true;
}

}  // namespace

const std::array<FaultRow, kFaultKinds> &fault_rows() {
    return kFaults;
}

const FaultRow &row_of(FaultKind kind) {
    return kFaults[static_cast<std::size_t>(kind)];
}

std::string parse_fault(std::string_view text, Fault &fault) {
    fault = {};
    std::string_view rest = text;
    if (const auto at = rest.rfind('@'); at != std::string_view::npos) {
        if (!get_path(rest.substr(at + 1), fault)) return "which address is meant by \"" + std::string(text) + "\"?";
        rest = rest.substr(0, at);
    }
    const auto equals = rest.find('=');
    const std::string_view name = rest.substr(0, equals);
    const auto row = std::ranges::find_if(kFaults, [&](const FaultRow &each) { return same_word(each.name, name); });
    if (row == kFaults.end()) return "there is no fault \"" + std::string(name) + "\"";
    fault.kind = row->kind;
    fault.number = row->usual;
    const bool given = equals != std::string_view::npos;
    if (get_value(row->shape, given, given ? rest.substr(equals + 1) : std::string_view{}, fault)) return {};
    return "\"" + std::string(text) + "\" is not " + std::string(row->name) + std::string(row->argument);
}

}  // namespace loopnfsd
