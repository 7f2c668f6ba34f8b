// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/auth/authenticator.h"

#include <cerrno>
#include <utility>

#include "nfstdm/rpc/auth/identity.h"
#include "nfstdm/rpc/message/constants.h"

namespace nfstdm::rpc {

namespace {

Status unwrapped_flavour() {
    return {ENOTSUP, "this security flavour wraps nothing"};
}

// A credential that never changes.
class Statement : public Authenticator {
  public:
    explicit Statement(std::vector<std::byte> credential) : credential_(std::move(credential)) {}

    Status put(xdr::Writer &head, std::unique_ptr<Transmission> &) override {
        head.put_fixed(credential_);
        head.put_u32(kAuthNone);  // the verifier
        head.put_u32(0);
        return {};
    }

  private:
    const std::vector<std::byte> credential_;
};

}  // namespace

Result<std::optional<Opening>> Authenticator::next_opening(std::optional<std::span<const std::byte>>) {
    return std::optional<Opening>();
}

Result<std::vector<std::byte>> Authenticator::wrap(std::span<const std::byte>, std::span<const std::byte>,
                                                   const Transmission *) {
    return unwrapped_flavour();
}

Result<std::span<const std::byte>> Authenticator::unwrap(std::span<std::byte>, const Transmission *) {
    return unwrapped_flavour();
}

// Kept for ever: a program that exits in the middle still makes calls while its sessions are destroyed.
std::shared_ptr<Authenticator> auth_none() {
    static const auto &none = *new std::shared_ptr<Authenticator>(std::make_shared<Statement>(auth_none_credential()));
    return none;
}

std::shared_ptr<Authenticator> auth_sys(const Identity &identity) {
    return std::make_shared<Statement>(auth_sys_credential(identity));
}

}  // namespace nfstdm::rpc
