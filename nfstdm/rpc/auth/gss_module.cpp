// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/auth/gss_module.h"

#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace nfstdm::rpc {

namespace {

constexpr const char *kModuleName = "nfstdm-gss.so";
constexpr const char *kPackages = "it needs the package libgssapi-krb5-2 (Debian) or krb5-libs (RPM)";

// The folder of the program or library that this code is part of, with its slash; empty when the system can not tell.
std::string own_folder() {
    Dl_info self{};
    if (dladdr(reinterpret_cast<const void *>(&load_gss_module), &self) == 0 || self.dli_fname == nullptr) return {};
    const std::string file = self.dli_fname;
    return file.substr(0, file.rfind('/') + 1);
}

Status not_loadable(const std::string &why) {
    return {ENOTSUP, std::string("Kerberos is not available: ") + kModuleName + " can not be loaded (" + why + "); " +
                         kPackages};
}

// Beside the library, or in the lib folder of the home whose rdbms/lib/tdm holds a copy of the library.
std::string module_path() {
    const std::string beside = own_folder() + kModuleName;
    const std::string of_copy = own_folder() + "../../../lib/" + kModuleName;
    const bool is_of_copy = access(beside.c_str(), F_OK) != 0 && access(of_copy.c_str(), F_OK) == 0;
    return is_of_copy ? of_copy : beside;
}

Result<const NfstdmGssModule *> find_module() {
    const std::string path = module_path();
    void *const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const char *const why = dlerror();
        return not_loadable(why == nullptr ? "no reason given" : why);
    }
    using Entry = const NfstdmGssModule *(*)();
    const auto entry = reinterpret_cast<Entry>(dlsym(library, "nfstdm_gss_module"));
    const NfstdmGssModule *const module = entry == nullptr ? nullptr : entry();
    if (module == nullptr || module->version != kNfstdmGssVersion) return not_loadable("it is of another version");
    return module;
}

// What happened and what to try, by trouble; the service and the system's words stand between.
struct TroubleWords {
    const char *what;
    const char *cure;
};

TroubleWords words_of(NfstdmGssTrouble trouble) {
    switch (trouble) {
        case kGssTroubleNoTicket:
            return {"there is no Kerberos ticket",
                    "get one with kinit, or name a keytab of the client in KRB5_CLIENT_KTNAME"};
        case kGssTroubleTicketExpired:
            return {"the Kerberos ticket has expired", "get another with kinit"};
        case kGssTroubleClockSkew:
            return {"the clocks of this host, the server and the Kerberos realm differ too much",
                    "set them right, for example with NTP"};
        case kGssTroubleUnknownService:
            return {"the Kerberos realm does not know the service",
                    "name the server as its keytab does, with server or principal_host in tslnfstab"};
        case kGssTroubleWrongRealm:
            return {"the server is in a Kerberos realm to which there is no way from the ticket's",
                    "look at domain_realm in krb5.conf, and get a ticket of the right realm with kinit"};
        case kGssTroubleNoKeytab:
            return {"the key that the service needs is in no keytab",
                    "look at the server's keytab, and at KRB5_CLIENT_KTNAME where the ticket comes from a keytab"};
        case kGssTroubleNoKdc:
            return {"no server of the Kerberos realm can be reached", "look at realms in krb5.conf and at the network"};
        case kGssTroubleBadTicket:
            return {"the server can not read the Kerberos ticket",
                    "get another with kinit; its keytab may be older than its key, or of another name"};
        case kGssTroubleOther:
            break;
    }
    return {"Kerberos failed", "klist shows the tickets there are, kinit gets another"};
}

// What a server says it lacks is its own, whatever the same words mean here (RFC 2743 section 1.2.1.1).
NfstdmGssTrouble on_the_servers_side(NfstdmGssTrouble trouble, uint32_t major) {
    constexpr uint32_t kRoutine = 0xff0000;
    constexpr uint32_t kBadMic = 6U << 16, kNoCredential = 7U << 16, kDefectiveToken = 9U << 16;
    const uint32_t routine = major & kRoutine;
    if (routine == kNoCredential || trouble == kGssTroubleNoTicket) return kGssTroubleNoKeytab;
    if (trouble == kGssTroubleOther && (routine == kBadMic || routine == kDefectiveToken)) return kGssTroubleBadTicket;
    return trouble;
}

}  // namespace

Result<const NfstdmGssModule *> load_gss_module() {
    static const NfstdmGssModule *known = nullptr;
    if (known != nullptr) return known;
    auto found = find_module();
    if (found.ok()) known = found.value();
    return found;
}

Status gss_status(const NfstdmGssFailure &failure, const std::string &service) {
    const TroubleWords words = words_of(failure.trouble);
    const std::string said(failure.words, strnlen(failure.words, sizeof failure.words));
    return {EACCES,
            std::string(words.what) + " for " + service + (said.empty() ? "" : " (" + said + ")") + ": " + words.cure,
            Condition::credential};
}

Result<std::unique_ptr<SecurityContext>> SecurityContext::create(const NfstdmGssModule &module,
                                                                 const std::string &service) {
    NfstdmGssFailure failure{};
    NfstdmGssContext *const context = module.create(service.c_str(), &failure);
    if (context == nullptr) return gss_status(failure, service);
    return std::unique_ptr<SecurityContext>(new SecurityContext(module, service, context));
}

std::vector<std::byte> SecurityContext::taken(NfstdmGssBytes &bytes) const {
    const auto *const data = static_cast<const std::byte *>(bytes.data);
    std::vector<std::byte> copy(data, data + bytes.size);
    module_.release(&bytes);
    return copy;
}

Result<SecurityContext::Step> SecurityContext::step(std::span<const std::byte> token) {
    NfstdmGssBytes next{};
    NfstdmGssFailure failure{};
    Step step;
    const NfstdmGssStep how = module_.step(context_, token.data(), token.size(), &next, &step.seconds, &failure);
    if (how == kGssFailed) return gss_status(failure, service_);
    step.complete = how == kGssComplete;
    step.token = taken(next);
    return step;
}

Result<std::vector<std::byte>> SecurityContext::mic(std::span<const std::byte> message) const {
    NfstdmGssBytes mic{};
    NfstdmGssFailure failure{};
    if (!module_.get_mic(context_, message.data(), message.size(), &mic, &failure))
        return gss_status(failure, service_);
    return taken(mic);
}

bool SecurityContext::verify(std::span<const std::byte> message, std::span<const std::byte> mic) const {
    return module_.verify_mic(context_, message.data(), message.size(), mic.data(), mic.size());
}

Result<NfstdmGssRoom> SecurityContext::wrap_room(std::size_t message_size) const {
    NfstdmGssRoom room{};
    NfstdmGssFailure failure{};
    if (!module_.wrap_room(context_, message_size, &room, &failure)) return gss_status(failure, service_);
    return room;
}

Status SecurityContext::wrap(std::span<std::byte> area, const NfstdmGssRoom &room) const {
    NfstdmGssFailure failure{};
    if (!module_.wrap(context_, area.data(), area.size(), &room, &failure)) return gss_status(failure, service_);
    return {};
}

Result<std::span<const std::byte>> SecurityContext::unwrap(std::span<std::byte> wrapped) const {
    NfstdmGssRoom room{};
    const bool holds = module_.unwrap(context_, wrapped.data(), wrapped.size(), &room);
    if (!holds || room.before > wrapped.size() || room.behind > wrapped.size() - room.before)
        return Status{EIO, "what the server encrypted does not hold together"};
    return std::span<const std::byte>(wrapped.first(wrapped.size() - room.behind).subspan(room.before));
}

Status SecurityContext::refusal(uint32_t major, uint32_t minor) const {
    NfstdmGssFailure failure{};
    module_.explain(major, minor, &failure);
    failure.trouble = on_the_servers_side(failure.trouble, major);
    const Status why = gss_status(failure, service_).in("the server refuses the ticket");
    return failure.trouble != kGssTroubleOther ? why
                                               : why.told_as(why.text() + "; look at the server's keytab and log");
}

}  // namespace nfstdm::rpc
