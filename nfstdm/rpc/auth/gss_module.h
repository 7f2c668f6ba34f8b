// SPDX-License-Identifier: Apache-2.0
// The module for RPCSEC_GSS as the library holds it: loaded when a mount asks for it, wrapped so that what it makes is
// given back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "nfstdm/base/status.h"
#include "nfstdm/rpc/auth/gss_interface.h"

namespace nfstdm::rpc {

// The module beside the library, which stays loaded. Fails with ENOTSUP, naming the package that is missing.
Result<const NfstdmGssModule *> load_gss_module();

// What a failure of the module means for the one who mounts, and what to try. service: "nfs@HOST".
Status gss_status(const NfstdmGssFailure &failure, const std::string &service);

// A security context with one service (RFC 2743), from its first token on.
class SecurityContext {
  public:
    // module must outlive the context.
    static Result<std::unique_ptr<SecurityContext>> create(const NfstdmGssModule &module, const std::string &service);
    ~SecurityContext() { module_.destroy(context_); }
    SecurityContext(const SecurityContext &) = delete;
    SecurityContext &operator=(const SecurityContext &) = delete;

    struct Step {
        std::vector<std::byte> token;  // for the server; may be empty when complete
        bool complete = false;
        uint32_t seconds = 0;  // to live, when complete
    };
    // Takes the server's token; an empty one at first.
    Result<Step> step(std::span<const std::byte> token);

    Result<std::vector<std::byte>> mic(std::span<const std::byte> message) const;
    bool verify(std::span<const std::byte> message, std::span<const std::byte> mic) const;
    // Encrypts and decrypts where the message is. wrap() takes it with the room around it that a message of its size
    // needs; unwrap() gives it within what was wrapped, which is spoiled on failure.
    Result<NfstdmGssRoom> wrap_room(std::size_t message_size) const;
    Status wrap(std::span<std::byte> area, const NfstdmGssRoom &room) const;
    Result<std::span<const std::byte>> unwrap(std::span<std::byte> wrapped) const;
    // The meaning of what the server said when it refused.
    Status refusal(uint32_t major, uint32_t minor) const;

  private:
    SecurityContext(const NfstdmGssModule &module, std::string service, NfstdmGssContext *context)
        : module_(module), service_(std::move(service)), context_(context) {}
    std::vector<std::byte> taken(NfstdmGssBytes &bytes) const;

    const NfstdmGssModule &module_;
    const std::string service_;
    NfstdmGssContext *const context_;
};

}  // namespace nfstdm::rpc
