// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/auth/gss.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/xdr/reader.h"

namespace nfstdm::rpc {

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::byte>;

constexpr std::size_t kTokenMaximum = std::size_t{64} << 10;
constexpr std::size_t kHandleMaximum = 256;  // it has to fit a credential with the words around it
constexpr std::size_t kWrappedMaximum = std::size_t{16} << 20;
// The words around wrapped results, and what a mechanism adds to them: krb5 needs less than a hundred bytes.
constexpr std::size_t kOverhead = 512;
// Some server takes a ticket for a while after it has expired. Nobody makes contexts without end for that.
constexpr uint32_t kLifeMinimum = 1;
constexpr uint32_t kSequenceMaximum = 0x80000000;  // RFC 2203 section 5.3.3.1
constexpr std::size_t kMark = xdr::kWord;          // of the record, which no checksum covers

// auth_stat that a new context may cure: what servers say that do not know the old one (any more).
constexpr std::array<uint32_t, 6> kCurable = {1, 2, 3, 4, 13, 14};

struct GssTransmission : Transmission {
    GssTransmission(std::shared_ptr<GssAgreement> its_agreement, uint32_t its_sequence)
        : agreement(std::move(its_agreement)), sequence(its_sequence) {
        agreement->under_way.insert(sequence);
    }
    ~GssTransmission() override { agreement->under_way.erase(sequence); }
    GssTransmission(const GssTransmission &) = delete;
    GssTransmission &operator=(const GssTransmission &) = delete;

    const std::shared_ptr<GssAgreement> agreement;
    const uint32_t sequence;
};

const GssTransmission &known(const Transmission *transmission) {
    return *static_cast<const GssTransmission *>(transmission);  // put() made it
}

std::array<std::byte, xdr::kWord> word(uint32_t value) {
    std::array<std::byte, xdr::kWord> bytes{};
    xdr::store_u32(bytes, value);
    return bytes;
}

void put_credential(xdr::Writer &head, GssProcedure procedure, uint32_t sequence, GssService service,
                    std::span<const std::byte> handle) {
    head.put_u32(kRpcsecGss);
    head.put_u32(static_cast<uint32_t>(5 * xdr::kWord + handle.size() + xdr::padding_of(handle.size())));
    head.put_u32(kGssVersion);
    head.put_u32(static_cast<uint32_t>(procedure));
    head.put_u32(sequence);
    head.put_u32(static_cast<uint32_t>(service));
    head.put_opaque(handle);
}

// Credential and verifier of what is said under a context.
Status put_proven(xdr::Writer &head, GssAgreement &agreement, GssProcedure procedure, GssService service) {
    put_credential(head, procedure, ++agreement.last, service, agreement.handle);
    const auto proof = agreement.context->mic(head.bytes().subspan(kMark));
    if (!proof.ok()) return proof.status();
    head.put_u32(kRpcsecGss);
    head.put_opaque(proof.value());
    return {};
}

Status not_the_servers() {
    return {EIO, "the proof that the answer is the server's does not hold: it was changed on the way, or made up"};
}

Status malformed() {
    return {EIO, "the server's answer about the security context makes no sense"};
}

// RFC 2203 section 5.3.2.2
Result<Bytes> signed_body(const GssTransmission &sent, std::span<const std::byte> arguments,
                          std::span<const std::byte> data) {
    xdr::Writer body;
    body.reserve(2 * xdr::kWord + arguments.size() + data.size() + kOverhead);
    body.put_u32(0);  // the length
    body.put_u32(sent.sequence);
    body.put_fixed(arguments);
    body.put_fixed(data);
    const auto covered = body.bytes().subspan(xdr::kWord);
    body.patch_u32(0, static_cast<uint32_t>(covered.size()));
    const auto proof = sent.agreement->context->mic(covered);
    if (!proof.ok()) return proof.status();
    body.put_opaque(proof.value());
    return body.take();
}

// RFC 2203 section 5.3.2.3. The pieces are put together where they are encrypted.
Result<Bytes> sealed_body(const GssTransmission &sent, std::span<const std::byte> arguments,
                          std::span<const std::byte> data) {
    const SecurityContext &context = *sent.agreement->context;
    const std::size_t plain = xdr::kWord + arguments.size() + data.size() + xdr::padding_of(data.size());
    const auto room = context.wrap_room(plain);
    if (!room.ok()) return room.status();
    const std::size_t sealed = room.value().before + plain + room.value().behind;
    const auto sequence = word(sent.sequence);
    Bytes body;
    body.reserve(xdr::kWord + sealed + xdr::padding_of(sealed));
    body.resize(xdr::kWord + room.value().before);
    xdr::store_u32(body, static_cast<uint32_t>(sealed));
    for (const auto piece : {std::span<const std::byte>(sequence), arguments, data})
        body.insert(body.end(), piece.begin(), piece.end());
    body.resize(xdr::kWord + sealed + xdr::padding_of(sealed));
    const Status status = context.wrap(std::span{body}.subspan(xdr::kWord, sealed), room.value());
    return status.ok() ? Result<Bytes>(std::move(body)) : status;
}

}  // namespace

// The calls that make a context: they can prove nothing yet, and the last answer to them is checked with what it made.
class GssAuthenticator::Opener : public Authenticator {
  public:
    Opener(GssService protection, bool first, Bytes handle)
        : protection_(protection), first_(first), handle_(std::move(handle)) {}

    Status put(xdr::Writer &head, std::unique_ptr<Transmission> &) override {
        put_credential(head, first_ ? GssProcedure::init : GssProcedure::continue_init, 0, protection_, handle_);
        head.put_u32(kAuthNone);
        head.put_u32(0);
        return {};
    }
    Status check(const Verifier &verifier, const Transmission *) override {
        flavour_ = verifier.flavour;
        proof_.assign(verifier.body.begin(), verifier.body.end());
        return {};
    }
    bool proves(const GssAgreement &agreement) const {
        return flavour_ == kRpcsecGss && agreement.context->verify(word(agreement.window), proof_);
    }

  private:
    const GssService protection_;
    const bool first_;
    const Bytes handle_;
    uint32_t flavour_ = 0;
    Bytes proof_;
};

// The call that ends a context (RFC 2203 section 5.4). Nobody waits for what is said to it.
class GssAuthenticator::Closer : public Authenticator {
  public:
    Closer(GssService protection, std::shared_ptr<GssAgreement> agreement)
        : protection_(protection), agreement_(std::move(agreement)) {}

    Status put(xdr::Writer &head, std::unique_ptr<Transmission> &) override {
        return put_proven(head, *agreement_, GssProcedure::destroy, protection_);
    }

  private:
    const GssService protection_;
    const std::shared_ptr<GssAgreement> agreement_;
};

GssAuthenticator::GssAuthenticator(const NfstdmGssModule &module, std::string service, GssService protection)
    : module_(module), service_(std::move(service)), protection_(protection) {}

Authenticator::Readiness GssAuthenticator::readiness() {
    if (agreement_ == nullptr || agreement_->last == kSequenceMaximum || Clock::now() >= agreement_->end)
        return Readiness::unmade;
    return agreement_->has_room() ? Readiness::ready : Readiness::full;
}

// --- coming to an agreement

Result<std::optional<Opening>> GssAuthenticator::next_opening(std::optional<std::span<const std::byte>> answer) {
    if (answer) return answered(*answer);
    agreement_.reset();
    auto context = SecurityContext::create(module_, service_);
    if (!context.ok()) return context.status();
    coming_ = std::make_shared<GssAgreement>();
    coming_->context = std::move(context.value());
    auto step = coming_->context->step({});
    if (!step.ok()) return step.status();
    complete_ = step.value().complete;
    seconds_ = step.value().seconds;
    return call(std::move(step.value().token));
}

Result<std::optional<Opening>> GssAuthenticator::call(Bytes token) {
    xdr::Writer arguments;
    arguments.put_opaque(token, kTokenMaximum);
    opener_ = std::make_shared<Opener>(protection_, coming_->handle.empty(), coming_->handle);
    return std::optional<Opening>(Opening{opener_, arguments.take(), kTokenMaximum + 512});
}

Result<std::optional<Opening>> GssAuthenticator::answered(std::span<const std::byte> answer) {
    xdr::Reader reader(answer);
    std::span<const std::byte> handle, token;
    uint32_t major = 0, minor = 0;
    if (!reader.get_opaque(handle, kHandleMaximum) || !reader.get_u32(major) || !reader.get_u32(minor) ||
        !reader.get_u32(coming_->window) || !reader.get_opaque(token, kTokenMaximum) || !reader.finished())
        return malformed();
    constexpr uint32_t kContinueNeeded = 1;
    if (major != 0 && major != kContinueNeeded) return coming_->context->refusal(major, minor);
    coming_->handle.assign(handle.begin(), handle.end());
    SecurityContext::Step last;
    if (!token.empty() || !complete_) {
        auto step = coming_->context->step(token);
        if (!step.ok()) return step.status();
        last = std::move(step.value());
        complete_ = last.complete;
        seconds_ = last.seconds;
    }
    if (major == kContinueNeeded) return call(std::move(last.token));
    if (!complete_) return malformed();
    if (Status status = settle(seconds_); !status.ok()) return status;
    return std::optional<Opening>();
}

Status GssAuthenticator::settle(uint32_t seconds) {
    if (coming_->window == 0) return malformed();
    if (!opener_->proves(*coming_)) return not_the_servers();
    coming_->end = Clock::now() + std::chrono::seconds(std::max(seconds, kLifeMinimum));
    agreement_ = std::move(coming_);
    opener_.reset();
    return {};
}

// A server that takes no ticket for a name often says no more than that.
Status GssAuthenticator::advised(Status refusal) const {
    if (!refusal.is(Condition::credential)) return refusal;
    return refusal.told_as(refusal.text() + "; it may have no Kerberos, or no key for " + service_ +
                           ": compare klist -k there with klist here, and name it as its keytab does, with server or "
                           "principal_host in tslnfstab");
}

std::shared_ptr<Authenticator> GssAuthenticator::parting() {
    const auto ending = std::exchange(agreement_, nullptr);
    if (ending == nullptr || ending->last == kSequenceMaximum || Clock::now() >= ending->end) return nullptr;
    return std::make_shared<Closer>(protection_, ending);
}

// --- using it

Status GssAuthenticator::put(xdr::Writer &head, std::unique_ptr<Transmission> &transmission) {
    if (agreement_ == nullptr) return {EACCES, "there is no security context", Condition::credential};
    if (Status status = put_proven(head, *agreement_, GssProcedure::data, protection_); !status.ok()) return status;
    transmission = std::make_unique<GssTransmission>(agreement_, agreement_->last);
    return {};
}

Status GssAuthenticator::check(const Verifier &verifier, const Transmission *transmission) {
    const GssTransmission &sent = known(transmission);
    const bool holds =
        verifier.flavour == kRpcsecGss && sent.agreement->context->verify(word(sent.sequence), verifier.body);
    return holds ? Status{} : not_the_servers();
}

std::size_t GssAuthenticator::overhead() const {
    return wraps() ? kOverhead : 0;
}

Result<Bytes> GssAuthenticator::wrap(std::span<const std::byte> arguments, std::span<const std::byte> data,
                                     const Transmission *transmission) {
    const GssTransmission &sent = known(transmission);
    return protection_ == GssService::integrity ? signed_body(sent, arguments, data)
                                                : sealed_body(sent, arguments, data);
}

Result<std::span<const std::byte>> GssAuthenticator::unwrap(std::span<std::byte> results,
                                                            const Transmission *transmission) {
    const GssTransmission &sent = known(transmission);
    xdr::Reader outer(results);
    std::span<const std::byte> body, proof;
    if (!outer.get_opaque(body, kWrappedMaximum)) return not_the_servers();
    if (protection_ == GssService::integrity) {
        if (!outer.get_opaque(proof, kTokenMaximum) || !sent.agreement->context->verify(body, proof))
            return not_the_servers();
    } else {
        const auto plain = sent.agreement->context->unwrap(results.subspan(xdr::kWord, body.size()));
        if (!plain.ok()) return not_the_servers();
        body = plain.value();
    }
    xdr::Reader inner(body);
    uint32_t sequence = 0;
    if (!outer.finished() || !inner.get_u32(sequence) || sequence != sent.sequence) return not_the_servers();
    return body.subspan(xdr::kWord);
}

bool GssAuthenticator::cures(uint32_t auth_status, const Transmission *transmission) {
    if (transmission == nullptr || std::ranges::find(kCurable, auth_status) == kCurable.end()) return false;
    // Another request may have met the same, and there is a newer context already.
    if (known(transmission).agreement == agreement_) agreement_.reset();
    return true;
}

}  // namespace nfstdm::rpc
