// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/export_volume.h"

#include <cerrno>
#include <chrono>
#include <utility>

#include "nfstdm/nfs4/status_table.h"
#include "nfstdm/remote/security.h"

namespace nfstdm::nfs4 {

namespace {

using std::chrono::seconds;

// What is still open when the export is left is closed as a courtesy: nobody waits for it long.
constexpr rpc::Duration kFarewellLimit = seconds(2);

}  // namespace

ExportVolume::ExportVolume(std::shared_ptr<SharedServer> server, ServerExport share)
    : Export(server->server(), std::move(share)),
      server_(std::move(server)),
      session_(server_->session()),
      opens_(
          session_, [this](std::string_view name) { return new_call(name); },
          [this](std::unique_ptr<Call> call) { start_explained(std::move(call)); }),
      farewell_timer_(loop()) {}

ExportVolume::~ExportVolume() {
    close();
}

// --- attach and detach

void ExportVolume::contact() {
    if (Status status = use_security(wanted().empty() ? "sys" : wanted()); !status.ok())
        return not_attached(in_context(status));
    session_.add_user(opens_);
    joined_ = true;
    find_export();
}

Status ExportVolume::use_security(const std::string &security) {
    auto authenticator = server_->server().authenticator(security);
    if (authenticator.ok()) authenticator_ = std::move(authenticator.value());
    security_ = security;
    return authenticator.status();
}

void ExportVolume::find_export() {
    const auto new_contact_call = [this](std::string_view name) {
        auto call = new_call(name);
        call->needs_contact = true;
        call->limit = server_->server().contact_limit();
        return call;
    };
    const auto room = [this] { return std::size_t{session_.sizes().operations}; };
    contact_ = std::make_unique<ExportContact>(
        ExportContact::Wanted{share().export_path, expected_, room}, new_contact_call,
        [this](std::unique_ptr<Call> call) { session_.start(std::move(call)); },
        [this](Result<FoundExport> result) { contacted(std::move(result)); });
    contact_->begin();
}

// The server has said what it wants instead. One more question settles it.
void ExportVolume::find_with_another(const std::vector<uint32_t> &offered) {
    const auto other = remote::choose_security(wanted(), offered, share().export_path);
    if (!other.ok()) return not_attached(in_context(other.status()));
    if (other.value() == security_)
        return not_attached(in_context({EACCES, "the server offers security " + security_ + " and refuses it" +
                                                    remote::kMayWantAnotherTransport}));
    if (Status status = use_security(other.value()); !status.ok()) return not_attached(in_context(status));
    find_export();
}

void ExportVolume::contacted(Result<FoundExport> result) {
    if (!result.ok() && !contact_->offered().empty()) {
        const auto offered = contact_->offered();
        return find_with_another(offered);
    }
    if (!result.ok()) return not_attached(result.status());
    root_attributes_ = result.value().values.attributes(result.value().root);
    found_below_ = std::move(result.value().below);
    limits_ = limits_from(result.value().values, session_.sizes());
    contact_.reset();
    attached(result.value().root, " with NFSv4." + std::to_string(session_.minor_version()));
}

// Without a word to anyone who waits.
void ExportVolume::let_go() {
    contact_.reset();
    if (std::exchange(joined_, false)) session_.remove_user(opens_, [](const Status &) {});
}

void ExportVolume::end_all(const Status &why) {
    contact_.reset();
    farewell_timer_.cancel();
    fail_removals(why);
    session_.fail_all(this, why);
    session_.fail_all(&opens_, why);
    opens_.clear();
    let_go();
}

// What is under way ends at once; what is open is closed in order, and then the server is told that this was all.
void ExportVolume::detach(DoneCompletion done) {
    if (!is_attached()) return leave_at_once(std::move(done));
    const Status why = no_longer_used();
    leave(std::move(done));
    fail_removals(why);
    session_.fail_all(this, why);
    farewell_timer_.after(kFarewellLimit, [this, why] { session_.fail_all(&opens_, why); });
    life_.soon(loop(), [this] {
        opens_.close_all([this](const Status &) {
            farewell_timer_.cancel();
            if (!std::exchange(joined_, false)) return;
            session_.remove_user(opens_, [life = life_.watch(), this](const Status &) {
                if (!life.expired()) left();
            });
        });
    });
}

// --- calls

std::unique_ptr<Call> ExportVolume::new_call(std::string_view name) {
    auto call = std::make_unique<Call>();
    call->name = name;
    call->authenticator = authenticator_;
    call->limit = seconds(server_->server().config().io_timeout_seconds);
    call->owner = this;
    return call;
}

void ExportVolume::send(std::unique_ptr<Call> call) {
    if (is_attached()) return start_explained(std::move(call));
    const Status why = not_attached_for(call->name);
    std::shared_ptr<Call> kept = std::move(call);
    loop().soon([kept, why] { kept->done(why); });
}

void ExportVolume::start_explained(std::unique_ptr<Call> call) {
    call->done = [this, done = std::move(call->done)](const Status &status) { explain(status, done); };
    opens_.close_left();
    session_.start(std::move(call));
}

// What the server can say of a failure beyond its number is asked of it.
void ExportVolume::explain(const Status &failure, const DoneCompletion &done) {
    const auto is = [&failure](NfsStatus status) {
        return failure.cause().source == Cause::Source::nfs && failure.cause().number == static_cast<uint32_t>(status);
    };
    if (is_attached() && is(NfsStatus::moved)) return ask_where(failure, done);
    if (is_attached() && is(NfsStatus::wrongsec)) return ask_flavours(failure, done);
    done(failure);
}

// The file system is on another server now, and the one that had it may tell which.
void ExportVolume::ask_where(const Status &failure, const DoneCompletion &done) {
    auto call = make<AttributeValues>(
        "GETATTR",
        [failure, done](const Result<AttributeValues> &values) {
            done(values.ok() ? with_locations(failure, values.value()) : failure);
        },
        [this](Compound &compound) {
            put_putfh(compound, root());
            put_getattr(compound, {Attribute::fs_locations});
            compound.expect(kLocationsMaximum);
        },
        [](Results &results, const rpc::Request &, AttributeValues &values) {
            return results.next(Op::putfh) && results.next(Op::getattr) && get_attributes(results.reader(), values);
        });
    session_.start(std::move(call));
}

// The export was put under another security while it was in use.
void ExportVolume::ask_flavours(const Status &failure, const DoneCompletion &done) {
    auto call = make<std::vector<uint32_t>>(
        "SECINFO_NO_NAME",
        [failure, done](const Result<std::vector<uint32_t>> &flavours) {
            if (!flavours.ok() || flavours.value().empty()) return done(failure);
            done(failure.told_as(failure.text() + "; it takes " + remote::flavour_names(flavours.value())));
        },
        [this](Compound &compound) {
            put_putfh(compound, root());
            put_secinfo_no_name(compound);
        },
        [](Results &results, const rpc::Request &, std::vector<uint32_t> &flavours) {
            return results.next(Op::putfh) && results.next(Op::secinfo_no_name) &&
                   get_flavours(results.reader(), flavours);
        });
    session_.start(std::move(call));
}

}  // namespace nfstdm::nfs4
