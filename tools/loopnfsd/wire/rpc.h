// SPDX-License-Identifier: Apache-2.0
// ONC RPC version 2 (RFC 5531): from a call record to a reply record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/loopnfsd/faults/faults.h"
#include "tools/loopnfsd/wire/call.h"
#include "tools/loopnfsd/wire/record.h"
#include "tools/loopnfsd/wire/statistics.h"

namespace loopnfsd {

class Program {
  public:
    virtual ~Program() = default;
    virtual uint32_t number() const = 0;
    virtual uint32_t version() const = 0;
    // Executes a procedure of all_procedures(). False when the arguments make no sense; what was written to the results
    // by then does not count.
    virtual bool run(uint32_t procedure, Call &call) = 0;
};

// What becomes of a call.
struct Answer {
    std::optional<Record> reply;
    bool close = false;  // the connection, once whatever is in front of this answer has been given up
};

class Dispatcher {
  public:
    // What is given must outlive the dispatcher.
    Dispatcher(std::vector<Program *> programs, Faults &faults, Statistics &statistics)
        : programs_(std::move(programs)), faults_(faults), statistics_(statistics) {}

    // Executes the call in a record. Bytes that are no call get no answer (RFC 5531 has none for them).
    Answer answer(std::span<const std::byte> record, const Arrival &arrival);

    // Is told of every call that was executed, in one line.
    void log_to(std::function<void(const std::string &)> log) { log_ = std::move(log); }

  private:
    struct Header;
    static bool get_header(nfstdm::xdr::Reader &in, Header &header);
    bool get_credentials(nfstdm::xdr::Reader &in, Header &header);
    static std::optional<Answer> answer_for_tls(const Header &header, const Arrival &arrival);
    Program *find_program(uint32_t number, uint32_t version) const;
    Record refuse_program(const Header &header) const;
    Record execute(const Header &header, CallFaults &faults, nfstdm::xdr::Reader arguments, const Arrival &arrival);
    Record run(Program &program, const Header &header, CallFaults &faults, nfstdm::xdr::Reader arguments,
               const Arrival &arrival);
    void spoil(Record &reply, const CallFaults &faults);
    void log(const Header &header, const Record &reply, const Arrival &arrival) const;

    std::vector<Program *> programs_;
    Faults &faults_;
    Statistics &statistics_;
    std::function<void(const std::string &)> log_;
};

}  // namespace loopnfsd
