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

void ExportContact::put_path(Compound &compound, std::size_t components) const {
    put_plain(compound, Op::putrootfh);
    for (std::size_t i = 0; i < components; ++i)
        put_lookup(compound, components_[i]);
}

void ExportContact::begin() {
    auto call = new_call_("LOOKUP");
    call->put = [this](Compound &compound) {
        put_path(compound, components_.size());
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
    for (asked_ = 0; asked_ < wanted_.expected.size(); ++asked_) {
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
    passed_ = 0;
    if (!results.next(Op::putrootfh)) return false;
    for (; passed_ < components_.size(); ++passed_)
        if (!results.next(Op::lookup)) return false;
    return results.next(Op::getfh) && get_handle(results.reader(), found_.root) && results.next(Op::getattr) &&
           get_attributes(results.reader(), found_.values) && get_path(results, asked_, found_.below);
}

void ExportContact::looked_up(const Status &status) {
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
    call->put = [this](Compound &compound) {
        put_path(compound, components_.size());
        put_getattr(compound, {Attribute::fs_locations});
        compound.expect(kLocationsMaximum);
    };
    call->read = [this, values](Results &results, const rpc::Request &) {
        if (!results.next(Op::putrootfh)) return false;
        for (std::size_t i = 0; i < components_.size(); ++i)
            if (!results.next(Op::lookup)) return false;
        return results.next(Op::getattr) && get_attributes(results.reader(), *values);
    };
    call->done = [this, failure, values](const Status &) { finish(with_locations(failure, *values)); };
    start_(std::move(call));
}

// What the server wants instead, at the component where it refused (RFC 8881 section 2.6.3.1).
void ExportContact::ask_security(const Status &failure) {
    auto call = new_call_("SECINFO");
    call->put = [this](Compound &compound) {
        put_path(compound, passed_);
        if (refused_by_name_)
            put_secinfo(compound, components_[passed_]);
        else
            put_secinfo_no_name(compound);
    };
    call->read = [this](Results &results, const rpc::Request &) {
        offered_.clear();
        if (!results.next(Op::putrootfh)) return false;
        for (std::size_t i = 0; i < passed_; ++i)
            if (!results.next(Op::lookup)) return false;
        return results.next(refused_by_name_ ? Op::secinfo : Op::secinfo_no_name) &&
               get_flavours(results.reader(), offered_);
    };
    call->done = [this, failure](const Status &) { finish(failure); };
    start_(std::move(call));
}

// What there is instead, to help whoever wrote the path.
void ExportContact::list(const Status &failure) {
    auto call = new_call_("READDIR");
    auto reply = std::make_shared<DirectoryReply>();
    call->put = [this](Compound &compound) {
        put_path(compound, passed_);
        put_readdir(compound, 0, 0, kListBytes, {Attribute::rdattr_error});
        compound.expect(kListBytes);
    };
    call->read = [this, reply](Results &results, const rpc::Request &) {
        *reply = {};
        if (!results.next(Op::putrootfh)) return false;
        for (std::size_t i = 0; i < passed_; ++i)
            if (!results.next(Op::lookup)) return false;
        return results.next(Op::readdir) && get_readdir(results.reader(), *reply);
    };
    call->done = [this, failure, reply](const Status &) {
        const std::string where = passed_ == 0 ? "the server's root" : join(components_, passed_);
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
