// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/wire/rpc.h"

#include <algorithm>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/rpc/message/constants.h"
#include "tools/loopnfsd/base/nfs4_numbers.h"
#include "tools/loopnfsd/base/status.h"

namespace loopnfsd {

namespace {

using nfstdm::rpc::AcceptStatus;
using nfstdm::rpc::RejectStatus;
using nfstdm::xdr::Reader;
using nfstdm::xdr::Writer;

constexpr std::size_t kAcceptedHeadSize = 24;  // xid, reply, accepted, verifier (2), accept_stat
constexpr uint32_t kAuthBadCredentials = 1;    // auth_stat, RFC 5531 section 9
constexpr uint32_t kAuthRejectedCredentials = 2;
constexpr uint32_t kAuthTooWeak = 5;
constexpr std::string_view kStartTls = "STARTTLS";  // RFC 9289 section 4.1
constexpr uint32_t kOversize = 0x7FFFFFF0;
constexpr std::byte kForeignXid{0x10};  // turned over in the first byte of an xid, it gives one that is not in use

Writer start_reply(uint32_t xid) {
    Writer out;
    out.put_u32(0);  // the record mark's place
    out.put_u32(xid);
    out.put_u32(nfstdm::rpc::kReply);
    return out;
}

Writer start_accepted(uint32_t xid, AcceptStatus status) {
    Writer out = start_reply(xid);
    out.put_u32(nfstdm::rpc::kMessageAccepted);
    out.put_u32(nfstdm::rpc::kAuthNone);
    out.put_u32(0);  // of no verifier bytes
    out.put_u32(static_cast<uint32_t>(status));
    return out;
}

Record finish(Writer &out, Bulk bulk = {}) {
    Record record{out.take(), std::move(bulk), false};
    set_record_mark(record, static_cast<uint32_t>(record.size() - kRecordMarkSize));
    return record;
}

Record refuse(uint32_t xid, AcceptStatus status) {
    Writer out = start_accepted(xid, status);
    return finish(out);
}

Record refuse_version(uint32_t xid, uint32_t lowest, uint32_t highest) {
    Writer out = start_accepted(xid, AcceptStatus::program_mismatch);
    out.put_u32(lowest);
    out.put_u32(highest);
    return finish(out);
}

Record deny_version(uint32_t xid) {
    Writer out = start_reply(xid);
    out.put_u32(nfstdm::rpc::kMessageDenied);
    out.put_u32(static_cast<uint32_t>(RejectStatus::rpc_mismatch));
    out.put_u32(nfstdm::rpc::kRpcVersion);
    out.put_u32(nfstdm::rpc::kRpcVersion);
    return finish(out);
}

Record deny_credentials(uint32_t xid, uint32_t reason) {
    Writer out = start_reply(xid);
    out.put_u32(nfstdm::rpc::kMessageDenied);
    out.put_u32(static_cast<uint32_t>(RejectStatus::auth_error));
    out.put_u32(reason);
    return finish(out);
}

Record offer_tls(uint32_t xid) {
    Writer out = start_reply(xid);
    out.put_u32(nfstdm::rpc::kMessageAccepted);
    out.put_u32(nfstdm::rpc::kAuthNone);
    out.put_string(kStartTls);
    out.put_u32(static_cast<uint32_t>(AcceptStatus::success));
    Record record = finish(out);
    record.starts_tls = true;
    return record;
}

Record fail_on_purpose(uint32_t xid, RpcError error, uint32_t version) {
    switch (error) {
        case RpcError::prog_unavail:
            return refuse(xid, AcceptStatus::program_unavailable);
        case RpcError::prog_mismatch:
            return refuse_version(xid, version + 1, version + 1);
        case RpcError::proc_unavail:
            return refuse(xid, AcceptStatus::procedure_unavailable);
        case RpcError::garbage_args:
            return refuse(xid, AcceptStatus::garbage_arguments);
        case RpcError::system_err:
            return refuse(xid, AcceptStatus::system_error);
        case RpcError::rpc_mismatch:
            return deny_version(xid);
        case RpcError::auth_error:
            return deny_credentials(xid, kAuthRejectedCredentials);
    }
    return refuse(xid, AcceptStatus::system_error);
}

Record fail_with_status(uint32_t xid, uint32_t status, int failure_words) {
    Writer out = start_accepted(xid, AcceptStatus::success);
    out.put_u32(status);
    for (int i = 0; i < failure_words; ++i)
        out.put_u32(0);
    return finish(out);
}

bool get_auth_sys(Reader in, Credentials &who) {
    uint32_t stamp = 0;
    uint32_t groups = 0;
    std::string_view machine;
    if (!in.get_u32(stamp) || !in.get_string(machine, nfstdm::rpc::kAuthSysMachineNameMaximum) ||
        !in.get_u32(who.uid) || !in.get_u32(who.gid) || !in.get_u32(groups) ||
        groups > nfstdm::rpc::kAuthSysGroupsMaximum)
        return false;
    who.machine = machine;
    who.groups.resize(groups);
    for (uint32_t &group : who.groups)
        in.get_u32(group);
    return in.finished();
}

}  // namespace

struct Dispatcher::Header {
    uint32_t xid = 0;
    uint32_t rpc_version = 0;
    uint32_t program = 0;
    uint32_t version = 0;
    uint32_t procedure = 0;
    uint32_t flavour = 0;  // of the credentials
    Credentials who;
    const ProcedureRow *row = nullptr;  // of a procedure that is served
};

bool Dispatcher::get_header(Reader &in, Header &header) {
    uint32_t direction = 0;
    return in.get_u32(header.xid) && in.get_u32(direction) && direction == nfstdm::rpc::kCall &&
           in.get_u32(header.rpc_version) && in.get_u32(header.program) && in.get_u32(header.version) &&
           in.get_u32(header.procedure);
}

// Credentials and verifier. Only AUTH_SYS is looked into; nothing is refused for being of another flavour.
bool Dispatcher::get_credentials(Reader &in, Header &header) {
    uint32_t &flavour = header.flavour;
    uint32_t verifier_flavour = 0;
    std::span<const std::byte> body;
    std::span<const std::byte> verifier;
    if (!in.get_u32(flavour) || !in.get_opaque(body, nfstdm::rpc::kAuthBodyMaximum) || !in.get_u32(verifier_flavour) ||
        !in.get_opaque(verifier, nfstdm::rpc::kAuthBodyMaximum))
        return false;
    if (flavour == nfstdm::rpc::kAuthSys && !get_auth_sys(Reader(body), header.who)) return false;
    statistics_.last_caller = header.who;
    return true;
}

// The question for TLS, and calls of NFS that should have come by it.
std::optional<Answer> Dispatcher::answer_for_tls(const Header &header, const Arrival &arrival) {
    using Tls = Arrival::Tls;
    const bool asks = header.flavour == nfstdm::rpc::kAuthTls && arrival.tls != Tls::none;
    if (asks && arrival.tls == Tls::offered && header.procedure == 0) return Answer{offer_tls(header.xid), false};
    if (asks) return Answer{deny_credentials(header.xid, kAuthRejectedCredentials), false};
    const bool too_open =
        arrival.tls == Tls::offered && header.program == nfstdm::nfs3::kProgram && header.procedure != 0;
    if (too_open) return Answer{deny_credentials(header.xid, kAuthTooWeak), false};
    return std::nullopt;
}

Program *Dispatcher::find_program(uint32_t number, uint32_t version) const {
    const auto found = std::ranges::find_if(
        programs_, [&](const Program *each) { return each->number() == number && each->version() == version; });
    return found == programs_.end() ? nullptr : *found;
}

Answer Dispatcher::answer(std::span<const std::byte> record, const Arrival &arrival) {
    Reader in(record);
    Header header;
    if (!get_header(in, header)) {
        ++statistics_.broken_records;
        return {};
    }
    if (header.rpc_version != nfstdm::rpc::kRpcVersion) return {deny_version(header.xid), false};
    if (!get_credentials(in, header)) return {deny_credentials(header.xid, kAuthBadCredentials), false};
    if (auto answer = answer_for_tls(header, arrival)) return std::move(*answer);
    if (find_program(header.program, header.version) != nullptr)
        header.row = find_procedure(header.program, header.version, header.procedure);
    if (header.row != nullptr) ++statistics_.calls[std::string(header.row->name)];

    CallFaults faults = faults_.befall(header.row, arrival.path);
    if (faults.cut) return {std::nullopt, true};
    Record reply = execute(header, faults, in, arrival);
    if (log_) log(header, reply, arrival);
    if (faults.drop_reply) return {std::nullopt, true};
    spoil(reply, faults);
    return {std::move(reply), false};
}

// What is not served: the program, its version, or the procedure.
Record Dispatcher::refuse_program(const Header &header) const {
    if (find_program(header.program, header.version) != nullptr)
        return refuse(header.xid, AcceptStatus::procedure_unavailable);
    std::vector<uint32_t> versions;
    for (const Program *each : programs_)
        if (each->number() == header.program) versions.push_back(each->version());
    if (versions.empty()) return refuse(header.xid, AcceptStatus::program_unavailable);
    const auto [lowest, highest] = std::ranges::minmax(versions);
    return refuse_version(header.xid, lowest, highest);
}

// faults: also takes what befalls the operations of a compound.
Record Dispatcher::execute(const Header &header, CallFaults &faults, Reader arguments, const Arrival &arrival) {
    if (faults.rpc_error) return fail_on_purpose(header.xid, *faults.rpc_error, header.version);
    if (faults.nfs_status && header.row != nullptr)
        return fail_with_status(header.xid, *faults.nfs_status, header.row->failure_words);
    Program *program = find_program(header.program, header.version);
    if (program != nullptr && header.row != nullptr) return run(*program, header, faults, arguments, arrival);
    ++statistics_.unknown_calls;
    return refuse_program(header);
}

Record Dispatcher::run(Program &program, const Header &header, CallFaults &faults, Reader arguments,
                       const Arrival &arrival) {
    Writer out = start_accepted(header.xid, AcceptStatus::success);
    Call call{arguments, out, header.who, arrival, {}, faults};
    if (!program.run(header.procedure, call)) return refuse(header.xid, AcceptStatus::garbage_arguments);
    faults = call.befallen;
    return finish(out, std::move(call.bulk));
}

void Dispatcher::spoil(Record &reply, const CallFaults &faults) {
    if (faults.rubbish || faults.rubbish_record) {
        const std::size_t kept = faults.rubbish ? kRecordMarkSize + kAcceptedHeadSize : kRecordMarkSize;
        const auto rubbish = faults_.rubbish();
        reply.head.resize(std::min(reply.head.size(), kept));
        reply.head.insert(reply.head.end(), rubbish.begin(), rubbish.end());
        reply.bulk = {};
    }
    if (faults.undersize) {
        reply.head.resize(2 * kRecordMarkSize);  // the xid alone
        reply.bulk = {};
    }
    if (faults.wrong_xid) reply.head[kRecordMarkSize] ^= kForeignXid;
    const auto size = static_cast<uint32_t>(reply.size() - kRecordMarkSize);
    set_record_mark(reply, faults.oversize ? kOversize : size);
}

void Dispatcher::log(const Header &header, const Record &reply, const Arrival &arrival) const {
    Reader in(std::span<const std::byte>(reply.head).subspan(kRecordMarkSize));
    uint32_t status = 0;
    in.skip(kAcceptedHeadSize);
    const bool has_status = header.row != nullptr && header.row->failure_words != kNoStatus && in.get_u32(status);
    std::string line =
        arrival.client + " uid=" + std::to_string(header.who.uid) + " gid=" + std::to_string(header.who.gid) + ' ';
    if (header.row == nullptr)
        line += "program " + std::to_string(header.program) + " procedure " + std::to_string(header.procedure);
    else
        line += header.row->name;
    const auto name = header.version == nfs4::kVersion ? nfs4::status_name(static_cast<nfs4::Status>(status))
                                                       : status_name(static_cast<NfsStatus>(status));
    if (has_status) line.append(" ").append(name);
    log_(line + ' ' + std::to_string(reply.size()));
}

}  // namespace loopnfsd
