// SPDX-License-Identifier: Apache-2.0
// Requests that a server answers with nothing but that it is to be asked again later, as in the grace period after its
// start (RFC 8881 section 8.4.2.1), which takes a minute and more: whoever waits is told so, once for all that wait at
// the same time.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "nfstdm/base/record.h"
#include "nfstdm/base/trace.h"

namespace nfstdm::remote {

// A time in which some request is put off.
struct PutOffPeriod {
    std::chrono::steady_clock::time_point begun;
    bool told = false;
};

// What a request that is put off holds until it is answered or given up; empty before.
using PutOff = std::shared_ptr<PutOffPeriod>;

class PutOffs {
  public:
    PutOffs(const Trace &trace, std::chrono::steady_clock::duration notice) : trace_(trace), notice_(notice) {}

    // server puts a request off, for the first time or again. kind: grace or delay.
    void put_off(PutOff &request, RecordKind kind, const std::string &server);
    // A request is answered, whether or not it was put off before.
    void answered(PutOff &request, const std::string &server);

  private:
    void tell(RecordKind kind, const std::string &server) const;

    const Trace &trace_;
    const std::chrono::steady_clock::duration notice_;
    std::weak_ptr<PutOffPeriod> present_;
};

}  // namespace nfstdm::remote
