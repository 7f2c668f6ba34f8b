// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/faults/faults.h"

#include <algorithm>

#include "tools/loopnfsd/base/text.h"

namespace loopnfsd {

namespace {

constexpr std::size_t kRubbishMaximum = 512;  // bytes, less 1

bool counts_calls(const Fault &fault) {
    const FaultShape shape = row_of(fault.kind).shape;
    return shape == FaultShape::calls || shape == FaultShape::status || fault.kind == FaultKind::cut_request;
}

// By name: READ means that of every version.
bool is_meant(const Fault &fault, const ProcedureRow *procedure) {
    return procedure != nullptr && fault.procedure->name == procedure->name;
}

bool is_null(const ProcedureRow *procedure) {
    return procedure != nullptr && procedure->number == 0;
}

}  // namespace

void Faults::add(const Fault &fault) {
    if (!counts_calls(fault))
        std::erase_if(faults_, [&](const Fault &old) { return old.kind == fault.kind && old.path == fault.path; });
    faults_.push_back(fault);
}

bool Faults::clear(std::string_view name) {
    const auto &rows = fault_rows();
    const bool known = std::ranges::any_of(rows, [&](const FaultRow &row) { return same_word(row.name, name); });
    if (!name.empty() && !known) return false;
    std::erase_if(faults_,
                  [&](const Fault &fault) { return name.empty() || same_word(row_of(fault.kind).name, name); });
    return true;
}

const Fault *Faults::find(FaultKind kind, unsigned path) const {
    const auto found = std::ranges::find_if(faults_, [&](const Fault &fault) {
        return fault.kind == kind && (fault.path == 0 || fault.path == path) && fault.count > 0;
    });
    return found == faults_.end() ? nullptr : &*found;
}

std::optional<uint64_t> Faults::number(FaultKind kind, unsigned path) const {
    const Fault *fault = find(kind, path);
    if (fault == nullptr) return std::nullopt;
    return fault->number;
}

bool Faults::hit(FaultKind kind, unsigned path) {
    if (!on(kind, path)) return false;
    note(kind);
    return true;
}

bool Faults::use_up(FaultKind kind, unsigned path) {
    const Fault *found = find(kind, path);
    if (found == nullptr) return false;
    Fault &fault = faults_[static_cast<std::size_t>(found - faults_.data())];
    if (fault.count != kWithoutEnd) --fault.count;
    note(kind);
    return true;
}

CallFaults Faults::befall(const ProcedureRow *procedure, unsigned path) {
    CallFaults call;
    for (Fault &fault : faults_)
        if (counts_calls(fault) && strikes(fault, procedure, path)) strike(fault, call);
    return call;
}

void Faults::befall_operation(const ProcedureRow &operation, unsigned path, CallFaults &call) {
    call.nfs_status.reset();  // of the operation before
    for (Fault &fault : faults_)
        if (fault.procedure != nullptr && strikes(fault, &operation, path)) strike(fault, call);
}

bool Faults::strikes(Fault &fault, const ProcedureRow *procedure, unsigned path) {
    if (fault.path != 0 && fault.path != path) return false;
    if (fault.procedure == nullptr ? is_null(procedure) : !is_meant(fault, procedure)) return false;
    const bool has_status = procedure != nullptr && procedure->failure_words != kNoStatus;
    if (fault.kind == FaultKind::status && !has_status) return false;
    if (fault.skip > 0) {
        --fault.skip;
        return false;
    }
    if (fault.count == 0) return false;
    if (fault.count != kWithoutEnd) --fault.count;
    return true;
}

void Faults::strike(const Fault &fault, CallFaults &call) {
    note(fault.kind);
    switch (fault.kind) {
        case FaultKind::cut_request:
            call.cut = true;
            break;
        case FaultKind::drop_reply:
            call.drop_reply = true;
            break;
        case FaultKind::oversize_record:
            call.oversize = true;
            break;
        case FaultKind::undersize_record:
            call.undersize = true;
            break;
        case FaultKind::rubbish:
            call.rubbish = true;
            break;
        case FaultKind::rubbish_record:
            call.rubbish_record = true;
            break;
        case FaultKind::wrong_xid:
            call.wrong_xid = true;
            break;
        case FaultKind::status:
            call.nfs_status = fault.status;
            break;
        case FaultKind::rpc_error:
            call.rpc_error = static_cast<RpcError>(fault.status);
            break;
        default:
            break;
    }
}

std::vector<std::byte> Faults::rubbish() {
    std::vector<std::byte> bytes(random_() % (kRubbishMaximum / 4) * 4 + 4);
    std::ranges::generate(bytes, [&] { return static_cast<std::byte>(random_()); });
    return bytes;
}

}  // namespace loopnfsd
