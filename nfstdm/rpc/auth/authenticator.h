// SPDX-License-Identifier: Apache-2.0
// What proves to the server who asks, and to the client who answers: a security flavour in use (RFC 5531 section 8).
// Requests share an authenticator; it is asked anew for each transmission of each of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "nfstdm/base/status.h"
#include "nfstdm/rpc/message/message.h"
#include "nfstdm/xdr/writer.h"

namespace nfstdm::rpc {

// What an authenticator remembers of a transmission until that is answered, lost or given up.
class Transmission {
  public:
    virtual ~Transmission() = default;
};

class Authenticator;

// A call of the NULL procedure by which an authenticator comes to terms with the server.
struct Opening {
    std::shared_ptr<Authenticator> authenticator;  // of the call
    std::vector<std::byte> arguments;
    std::size_t results_maximum = 0;
};

class Authenticator {
  public:
    enum class Readiness : uint8_t {
        ready,
        full,    // as many transmissions are under way as may be: when one of them is over
        unmade,  // when its openings are answered
    };

    virtual ~Authenticator() = default;

    // Whether put() may be called now.
    virtual Readiness readiness() { return Readiness::ready; }
    // How an authenticator that is unmade becomes ready: with calls to the server, one after another. answer: the
    // results of the last one, none to begin. Gives the next one, or none when that was all.
    virtual Result<std::optional<Opening>> next_opening(std::optional<std::span<const std::byte>> answer);

    // The same failure of an opening, with what to try where that is known.
    virtual Status advised(Status refusal) const { return refusal; }
    // Who says in a NULL call that the server may forget what it came to terms about; the authenticator is unmade from
    // then on. Null when there is nothing to forget.
    virtual std::shared_ptr<Authenticator> parting() { return nullptr; }

    // Puts credential and verifier. head holds a call as far as the procedure, behind the mark of its record.
    virtual Status put(xdr::Writer &head, std::unique_ptr<Transmission> &transmission) = 0;

    // Whether the verifier of an accepted reply is the server's; asked before anything of the reply is used.
    virtual Status check(const Verifier &, const Transmission *) { return {}; }

    // Whether arguments and results travel wrapped. Where they do not, READ data lands straight in its place.
    virtual bool wraps() const { return false; }
    // Bytes that wrapping may add to results.
    virtual std::size_t overhead() const { return 0; }
    // Arguments with the data behind them, and its padding, as they are to be sent.
    virtual Result<std::vector<std::byte>> wrap(std::span<const std::byte> arguments, std::span<const std::byte> data,
                                                const Transmission *transmission);
    // Where, within results, they stand as they were before the server wrapped them. What is encrypted is decrypted in
    // its place; of results for which this fails nothing may be used.
    virtual Result<std::span<const std::byte>> unwrap(std::span<std::byte> results, const Transmission *transmission);

    // The server does not take the identity, for this reason (auth_stat). True: what was wrong is cured, or will be by
    // the time the authenticator is ready, and the request may be sent again.
    virtual bool cures(uint32_t, const Transmission *) { return false; }
};

// Flavours that state who asks and prove nothing: AUTH_NONE nobody, AUTH_SYS an identity of this machine.
std::shared_ptr<Authenticator> auth_none();
struct Identity;
std::shared_ptr<Authenticator> auth_sys(const Identity &identity);

}  // namespace nfstdm::rpc
