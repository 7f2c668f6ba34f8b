// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/export_contact.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include "nfstdm/nfs4/arguments.h"
#include "nfstdm/nfs4/objects.h"
#include "nfstdm/nfs4/replies.h"

namespace nfstdm::nfs4 {

namespace {

constexpr uint32_t kListBytes = 16384;  // of names, to tell people
constexpr std::size_t kNamesTold = 16;

std::vector<std::string> split(std::string_view path) {
    std::vector<std::string> components;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find('/'), path.size());
        if (end > 0) components.emplace_back(path.substr(0, end));
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return components;
}

std::string join(const std::vector<std::string> &components, std::size_t count) {
    std::string path;
    for (std::size_t i = 0; i < count; ++i)
        path += "/" + components[i];
    return path;
}

}  // namespace

std::string what_it_holds(const DirectoryReply &directory) {
    if (directory.entries.empty()) return " is empty";
    std::string text = " holds: ";
    for (std::size_t i = 0; i < std::min(kNamesTold, directory.entries.size()); ++i)
        text += (i == 0 ? "/" : ", /") + directory.entries[i].name;
    return directory.entries.size() > kNamesTold ? text + ", ..." : text;
}

ExportContact::ExportContact(Wanted wanted, NewCall new_call, Start start, Done done)
    : wanted_(std::move(wanted)),
      components_(split(wanted_.path)),
      new_call_(std::move(new_call)),
      start_(std::move(start)),
      done_(std::move(done)) {}

// From where the last question ended, which is behind the first components where a server takes few operations at once.
void ExportContact::put_path(Compound &compound, std::size_t components) const {
    if (started_at_ == 0)
        put_plain(compound, Op::putrootfh);
    else
        put_putfh(compound, start_from_);
    for (std::size_t i = started_at_; i < components; ++i)
        put_lookup(compound, components_[i]);
}

bool ExportContact::get_path_to(Results &results, std::size_t components) {
    passed_ = started_at_;
    if (!results.next(started_at_ == 0 ? Op::putrootfh : Op::putfh)) return false;
    for (; passed_ < components; ++passed_)
        if (!results.next(Op::lookup)) return false;
    return true;
}

// The component up to which one question can go.
std::size_t ExportContact::reach() const {
    constexpr std::size_t kAround = 5;  // SEQUENCE, perhaps RECLAIM_COMPLETE, PUTFH or PUTROOTFH, GETFH, GETATTR
    const std::size_t most = std::max(wanted_.room(), kAround + 1) - kAround;
    return std::min(components_.size(), started_at_ + most);
}

void ExportContact::begin() {
    started_at_ = 0;
    look_up();
}

void ExportContact::look_up() {
    auto call = new_call_("LOOKUP");
    call->put = [this](Compound &compound) {
        wanted_to_ = reach();
        put_path(compound, wanted_to_);
        put_plain(compound, Op::getfh);
        put_getattr(compound, limit_attributes());
        put_expected(compound);
    };
    call->read = [this](Results &results, const rpc::Request &) { return read(results); };
    call->done = [this](const Status &status) { looked_up(status); };
    start_(std::move(call));
}

// What does not fit, or is no name, is looked up by itself later.
void ExportContact::put_expected(Compound &compound) {
    const std::size_t room = wanted_.room();
    asked_ = 0;
    if (wanted_to_ < components_.size()) return;
    for (; asked_ < wanted_.expected.size(); ++asked_) {
        const std::string &name = wanted_.expected[asked_];
        if (name.size() > kNameMaximum || compound.operations() + kOperationsOfALookup > room) return;
        put_looked_up(compound, name);
    }
}

bool ExportContact::read(Results &results) {
    const bool found = read_found(results);
    wrong_security_ = results.failure() == NfsStatus::wrongsec;
    refused_by_name_ = results.failed_op() == Op::lookup;
    return found;
}

bool ExportContact::read_found(Results &results) {
    return get_path_to(results, wanted_to_) && results.next(Op::getfh) && get_handle(results.reader(), found_.root) &&
           results.next(Op::getattr) && get_attributes(results.reader(), found_.values) &&
           get_path(results, asked_, found_.below);
}

void ExportContact::looked_up(const Status &status) {
    if (status.ok() && wanted_to_ < components_.size()) {
        start_from_ = found_.root;
        started_at_ = wanted_to_;
        return look_up();
    }
    if (status.ok()) return finish(std::move(found_));
    const bool absent = status.number() == ENOENT && passed_ < components_.size();
    const Status named = status.in("export " + wanted_.path);
    if (absent) return list(named);
    if (status.number() == EREMOTE) return ask_where(named);
    if (wrong_security_) return ask_security(named);
    finish(named);
}

Status with_locations(const Status &failure, const AttributeValues &values) {
    std::string text = failure.text();
    for (const std::string &location : values.locations)
        text += (&location == values.locations.data() ? "; it is at " : ", ") + location;
    return failure.told_as(std::move(text));
}

// Where the export went. Of what is elsewhere this alone can be asked here (RFC 8881 section 11.3.1).
void ExportContact::ask_where(const Status &failure) {
    auto call = new_call_("GETATTR");
    auto values = std::make_shared<AttributeValues>();
    call->put = [this, at = passed_](Compound &compound) {
        put_path(compound, at);
        put_getattr(compound, {Attribute::fs_locations});
        compound.expect(kLocationsMaximum);
    };
    call->read = [this, at = passed_, values](Results &results, const rpc::Request &) {
        return get_path_to(results, at) && results.next(Op::getattr) && get_attributes(results.reader(), *values);
    };
    call->done = [this, failure, values](const Status &) { finish(with_locations(failure, *values)); };
    start_(std::move(call));
}

// What the server wants instead, at the component where it refused (RFC 8881 section 2.6.3.1).
void ExportContact::ask_security(const Status &failure) {
    auto call = new_call_("SECINFO");
    call->put = [this, at = passed_](Compound &compound) {
        put_path(compound, at);
        if (refused_by_name_)
            put_secinfo(compound, components_[at]);
        else
            put_secinfo_no_name(compound);
    };
    call->read = [this, at = passed_](Results &results, const rpc::Request &) {
        offered_.clear();
        return get_path_to(results, at) && results.next(refused_by_name_ ? Op::secinfo : Op::secinfo_no_name) &&
               get_flavours(results.reader(), offered_);
    };
    call->done = [this, failure](const Status &) { finish(failure); };
    start_(std::move(call));
}

// What there is instead, to help whoever wrote the path.
void ExportContact::list(const Status &failure) {
    auto call = new_call_("READDIR");
    auto reply = std::make_shared<DirectoryReply>();
    call->put = [this, at = passed_](Compound &compound) {
        put_path(compound, at);
        put_readdir(compound, 0, 0, kListBytes, {Attribute::rdattr_error});
        compound.expect(kListBytes);
    };
    call->read = [this, at = passed_, reply](Results &results, const rpc::Request &) {
        *reply = {};
        return get_path_to(results, at) && results.next(Op::readdir) && get_readdir(results.reader(), *reply);
    };
    call->done = [this, at = passed_, failure, reply](const Status &) {
        const std::string where = at == 0 ? "the server's root" : join(components_, at);
        finish(failure.told_as(failure.text() + "; " + where + what_it_holds(*reply)));
    };
    start_(std::move(call));
}

// The owner may destroy the contact in done.
void ExportContact::finish(Result<FoundExport> result) {
    const auto done = std::move(done_);
    done(std::move(result));
}

}  // namespace nfstdm::nfs4
