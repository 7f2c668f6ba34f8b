// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <utility>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/nfs3/mount.h"
#include "nfstdm/portmap/constants.h"
#include "nfstdm/portmap/portmap.h"
#include "nfstdm/rpc/auth/identity.h"
#include "nfstdm/rpc/transport/address.h"

namespace nfstdm::mount3 {

namespace {

constexpr std::size_t kListMaximum = std::size_t{4} << 20;

// Finds the mount program, asks it, and goes: the object lives by the reference it keeps to itself until it is done.
class ExportListing : public std::enable_shared_from_this<ExportListing> {
  public:
    ExportListing(EventLoop &loop, std::string server, Completion<std::vector<std::byte>> done, rpc::Duration limit)
        : loop_(loop), server_(std::move(server)), done_(std::move(done)), deadline_(EventLoop::Clock::now() + limit) {}

    void start() {
        self_ = shared_from_this();
        const auto parsed = rpc::parse_host_port(server_);
        if (!parsed.ok()) {
            loop_.soon([this, status = parsed.status()] { finish(status); });
            return;
        }
        host_ = parsed.value().host;
        if (parsed.value().port != 0) return ask(parsed.value().port);
        portmapper_ = new_client(portmap::client_config(server_, {{host_, portmap::kPort, {}}}, {}));
        portmap::get_port(*portmapper_, this, left(), kProgram, kVersion, [this](Result<uint16_t> port) {
            if (!port.ok()) return finish(port.status());
            ask(port.value());
        });
    }

  private:
    // Never 0, which would mean for ever.
    rpc::Duration left() const {
        return std::max<rpc::Duration>(deadline_ - EventLoop::Clock::now(), std::chrono::milliseconds(1));
    }

    // Servers that check who asks take the process's own identity; without one the list is asked for by nobody.
    static std::shared_ptr<rpc::Authenticator> authenticator() {
        const auto identity = rpc::process_identity();
        return identity.ok() ? rpc::auth_sys(identity.value()) : rpc::auth_none();
    }

    std::unique_ptr<rpc::Client> new_client(rpc::ClientConfig config) const {
        config.addresses = addresses_;
        return std::make_unique<rpc::Client>(loop_, std::move(config), trace_);
    }

    void ask(uint16_t port) {
        rpc::ClientConfig config;
        config.server = server_;
        config.program = {kProgram, kVersion};
        config.paths = {{host_, port, {}}};
        mounter_ = new_client(std::move(config));
        auto request = std::make_unique<rpc::Request>();
        request->name = "EXPORT";
        request->procedure = static_cast<uint32_t>(Procedure::export_list);
        request->authenticator = authenticator();
        request->results_maximum = kListMaximum;
        request->limit = left();
        request->needs_contact = true;
        request->done = [this](auto answered) { finish(judge(*answered)); };
        mounter_->submit(std::move(request));
    }

    Result<std::vector<std::byte>> judge(const rpc::Request &answered) const {
        if (!answered.status.ok()) return answered.status;
        const auto results = answered.results();
        if (!is_export_list(results)) return Status{EIO, "server " + server_ + ": EXPORT: the answer makes no sense"};
        return std::vector<std::byte>(results.begin(), results.end());
    }

    void finish(Result<std::vector<std::byte>> result) {
        const auto keep = std::move(self_);
        const auto done = std::move(done_);
        done(std::move(result));
    }

    EventLoop &loop_;
    const std::string server_;
    Completion<std::vector<std::byte>> done_;
    const EventLoop::Clock::time_point deadline_;
    const Trace trace_;
    const std::shared_ptr<rpc::AddressBook> addresses_ = std::make_shared<rpc::AddressBook>();
    std::string host_;
    std::unique_ptr<rpc::Client> portmapper_;
    std::unique_ptr<rpc::Client> mounter_;
    std::shared_ptr<ExportListing> self_;
};

}  // namespace

void export_list(EventLoop &loop, std::string_view server, Completion<std::vector<std::byte>> done,
                 rpc::Duration limit) {
    std::make_shared<ExportListing>(loop, std::string(server), std::move(done), limit)->start();
}

}  // namespace nfstdm::mount3
