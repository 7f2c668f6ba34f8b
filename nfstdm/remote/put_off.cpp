// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/remote/put_off.h"

#include <utility>

namespace nfstdm::remote {

using Clock = std::chrono::steady_clock;

void PutOffs::put_off(PutOff &request, RecordKind kind, const std::string &server) {
    if (request == nullptr) request = present_.lock();
    if (request == nullptr) {
        request = std::make_shared<PutOffPeriod>(PutOffPeriod{Clock::now()});
        present_ = request;
    }
    if (Clock::now() - request->begun < notice_ || std::exchange(request->told, true)) return;
    tell(kind, server);
}

void PutOffs::answered(PutOff &request, const std::string &server) {
    if (request == nullptr) return;
    const bool told = request->told;
    request.reset();
    if (told && present_.expired()) tell(RecordKind::recovery, server);
}

// As one tells of a server that does not answer.
void PutOffs::tell(RecordKind kind, const std::string &server) const {
    trace_.write(TraceLevel::failure, TraceComponent::rpc, [&] { return record_text({kind, {}, 0, server}); });
}

}  // namespace nfstdm::remote
