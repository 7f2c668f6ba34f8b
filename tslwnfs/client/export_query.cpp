// SPDX-License-Identifier: Apache-2.0
// showmount: what a server exports, asked of the server itself.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/base/scoped.h"
#include "nfstdm/mounts/tslnfstab_file.h"
#include "nfstdm/nfs3/mount.h"
#include "nfstdm/nfs4/root_listing.h"
#include "tslwnfs/client/client.h"
#include "tslwnfs/client/show_mount.h"

namespace {

std::string home() {
    const char *value = std::getenv("TESSEL_HOME");
    return value == nullptr ? "" : value;
}

bool names(const nfstdm::ServerConfig &config, std::string_view server) {
    return config.name == server || std::any_of(config.paths.begin(), config.paths.end(),
                                                [server](const auto &path) { return path.path == server; });
}

// What the server's block of tslnfstab says of it, or what holds without one.
nfstdm::ServerConfig config_of(std::string_view server) {
    nfstdm::ServerConfig plain;
    plain.name = server;
    const auto table = nfstdm::load_tslnfstab(home());
    if (!table.ok()) return plain;
    const auto &servers = table.value().servers;
    const auto found = std::find_if(servers.begin(), servers.end(),
                                    [server](const auto &each) { return each.problem.empty() && names(each, server); });
    return found == servers.end() ? plain : *found;
}

// A server of version 4 alone has no MOUNT to ask, and often no portmapper.
bool may_lack_mount(const nfstdm::Status &failure) {
    return failure.is(nfstdm::Condition::not_offered) || failure.number() == ECONNREFUSED;
}

// What takes the place of the exports, which such a server does not tell: the directories that lead to them.
class RootOfVersion4 {
  public:
    RootOfVersion4(nfstdm::EventLoop &loop, const nfstdm::ServerConfig &config) : loop_(loop), config_(config) {}

    void ask() {
        if (!question_) question_.emplace(loop_, config_, [this](auto result) { told_ = std::move(result); });
    }
    void wait() {
        ask();
        loop_.run_until([this] { return told_.has_value(); });
    }
    // Nothing when the server could not be asked, or has not answered yet.
    std::string text() const {
        return told_ && told_->ok() ? "; it speaks NFSv4, which has no list of exports; " + told_->value() : "";
    }

  private:
    nfstdm::EventLoop &loop_;
    const nfstdm::ServerConfig &config_;
    std::optional<nfstdm::nfs4::RootQuestion> question_;
    std::optional<nfstdm::Result<std::string>> told_;
};

bool ask_server(const char *server, std::vector<std::byte> &list, std::string &reason) {
    const auto config = config_of(server);
    const std::chrono::seconds limit(std::max(1U, config.contact_timeout_seconds));
    nfstdm::EventLoop loop;
    RootOfVersion4 root(loop, config);
    std::optional<nfstdm::Result<std::vector<std::byte>>> answer;
    nfstdm::mount3::export_list(
        loop, server, [&](auto result) { answer = std::move(result); }, limit);
    // Asked beside a silent portmapper, it costs no time when that was all.
    nfstdm::ScopedTimer silence(loop);
    silence.after(nfstdm::rpc::Timing{}.silence_of_portmapper, [&root] { root.ask(); });
    loop.run_until([&] { return answer.has_value(); });
    silence.cancel();
    if (!answer->ok()) {
        if (may_lack_mount(answer->status())) root.wait();
        reason = answer->status().text() + root.text();
        return false;
    }
    list = std::move(answer->value());
    return true;
}

}  // namespace

uint32_t showMount(const char *server) {
    return show_mount(server, ask_server);
}
