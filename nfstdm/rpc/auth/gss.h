// SPDX-License-Identifier: Apache-2.0
// RPCSEC_GSS (RFC 2203): requests that prove who asks, and replies that prove who answers, with a security context that
// is agreed on with the server first and made anew when it is no longer good.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "nfstdm/rpc/auth/authenticator.h"
#include "nfstdm/rpc/auth/gss_module.h"

namespace nfstdm::rpc {

// What is protected beside the headers (RFC 2203 section 5.3.1).
enum class GssService : uint32_t { none = 1, integrity = 2, privacy = 3 };

constexpr uint32_t kGssVersion = 1;
enum class GssProcedure : uint32_t { data = 0, init = 1, continue_init = 2, destroy = 3 };

// A context that server and client agree on.
struct GssAgreement {
    std::unique_ptr<SecurityContext> context;
    std::vector<std::byte> handle;  // the server's name for it
    uint32_t window = 0;            // sequence numbers that may be under way (RFC 2203 section 5.3.3.1)
    std::chrono::steady_clock::time_point end;
    uint32_t last = 0;             // sequence number used
    std::set<uint32_t> under_way;  // sequence numbers of transmissions that are not over

    bool has_room() const { return under_way.empty() || last - *under_way.begin() + 1 < window; }
};

class GssAuthenticator : public Authenticator {
  public:
    // service: "nfs@HOST". module must outlive the authenticator.
    GssAuthenticator(const NfstdmGssModule &module, std::string service, GssService protection);

    Readiness readiness() override;
    Result<std::optional<Opening>> next_opening(std::optional<std::span<const std::byte>> answer) override;

    Status advised(Status refusal) const override;
    std::shared_ptr<Authenticator> parting() override;

    Status put(xdr::Writer &head, std::unique_ptr<Transmission> &transmission) override;
    Status check(const Verifier &verifier, const Transmission *transmission) override;
    bool wraps() const override { return protection_ != GssService::none; }
    std::size_t overhead() const override;
    Result<std::vector<std::byte>> wrap(std::span<const std::byte> arguments, std::span<const std::byte> data,
                                        const Transmission *transmission) override;
    Result<std::span<const std::byte>> unwrap(std::span<std::byte> results, const Transmission *transmission) override;
    bool cures(uint32_t auth_status, const Transmission *transmission) override;

  private:
    class Opener;
    class Closer;

    Result<std::optional<Opening>> call(std::vector<std::byte> token);
    Result<std::optional<Opening>> answered(std::span<const std::byte> answer);
    Status settle(uint32_t seconds);

    const NfstdmGssModule &module_;
    const std::string service_;
    const GssService protection_;
    std::shared_ptr<GssAgreement> agreement_;  // null = to be made
    std::shared_ptr<GssAgreement> coming_;     // while it is made
    std::shared_ptr<Opener> opener_;
    bool complete_ = false;  // on this side
    uint32_t seconds_ = 0;   // of the coming one's life
};

}  // namespace nfstdm::rpc
