// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs3/contact.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/portmap/portmap.h"

namespace nfstdm::nfs3 {

Contact::Contact(remote::Server &server, std::string export_path, std::shared_ptr<rpc::Authenticator> authenticator,
                 EventLoop::Clock::time_point deadline, std::function<void(Result<Contacted>)> done)
    : server_(server),
      export_path_(std::move(export_path)),
      authenticator_(std::move(authenticator)),
      deadline_(deadline),
      done_(std::move(done)),
      ports_(server.known_ports.value_or(server.configured_ports())),
      silence_(server.loop()) {}

rpc::Duration Contact::left() const {
    return std::max<rpc::Duration>(deadline_ - EventLoop::Clock::now(), std::chrono::milliseconds(1));
}

void Contact::start() {
    const bool known = ports_.mount != 0 && ports_.nfs != 0;
    if (known || server_.every_path_has_port()) return mount();
    ask_ports();
}

// Both questions at once: the connection is worth it.
void Contact::ask_ports() {
    portmapper_ = server_.new_portmap_client();
    const auto ask = [this](uint16_t &port, uint32_t program, uint32_t version) {
        if (port != 0) return;
        ++questions_;
        portmap::get_port(*portmapper_, this, left(), program, version,
                          [this, &port](const Result<uint16_t> &answer) { port_known(port, answer); });
    };
    ask(ports_.mount, mount3::kProgram, mount3::kVersion);
    ask(ports_.nfs, kProgram, kVersion);
    doubt_silent(*portmapper_);
}

// A portmapper or MOUNT program that does not even take the connection may be behind a filter that drops what is sent
// to it, as it is in front of servers that need none. One that turns up after all is the one to ask.
void Contact::doubt_silent(const rpc::Client &program) {
    silence_.after(server_.timing().silence_of_portmapper, [this, &program] {
        if (program.usable_channels() > 0) return;
        ask_version([this, &program](bool v4_only) {
            if (v4_only && program.usable_channels() == 0) fail_for_version();
        });
    });
}

void Contact::port_known(uint16_t &port, const Result<uint16_t> &answer) {
    if (answer.ok())
        port = answer.value();
    else
        port_failure_ = answer.status();
    if (--questions_ > 0) return;
    silence_.cancel();
    version_question_.reset();
    // Paths with a port of their own can do without a portmapper.
    const bool others = server_.portmapper_paths().size() < server_.path_count();
    if (port_failure_.ok() || others) return mount();
    fail(port_failure_);
}

void Contact::mount() {
    mounter_ = server_.new_contact_client({mount3::kProgram, mount3::kVersion}, ports_.mount);
    mount3::mount(*mounter_, {this, authenticator_, left()}, export_path_,
                  [this](Result<mount3::MountReply> reply) { mounted(std::move(reply)); });
    doubt_silent(*mounter_);
}

void Contact::mounted(Result<mount3::MountReply> reply) {
    silence_.cancel();
    version_question_.reset();
    if (!reply.ok()) {
        server_.known_ports.reset();  // they may be why it failed
        return fail(reply.status());
    }
    server_.known_ports = ports_;
    finish(Contacted{std::move(reply.value()), ports_});
}

// What there is of the server refuses, or lacks a program: perhaps it is a server of another kind.
void Contact::fail(const Status &why) {
    if (why.number() != ECONNREFUSED && !why.is(Condition::not_offered)) return finish(why);
    ask_version([this, why](bool v4_only) {
        if (v4_only) return fail_for_version();
        finish(why);
    });
}

void Contact::ask_version(std::function<void(bool v4_only)> answered) {
    constexpr rpc::Duration kQuestionLimit = std::chrono::seconds(2);
    version_question_ = std::make_unique<remote::VersionQuestion>(
        server_, ports_.nfs != 0 ? ports_.nfs : kPort, std::min(left(), kQuestionLimit), std::move(answered));
}

void Contact::fail_for_version() {
    const Status reason{EPROTONOSUPPORT, "it offers NFSv4 only, and this client speaks NFSv3 with it",
                        Condition::not_offered};
    finish(reason.in("server " + server_.name()));
}

// The owner may destroy the contact in done.
void Contact::finish(Result<Contacted> result) {
    const auto done = std::move(done_);
    done(std::move(result));
}

}  // namespace nfstdm::nfs3
