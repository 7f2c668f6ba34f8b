// SPDX-License-Identifier: Apache-2.0
// showmount: what a server exports, asked of the server itself.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/mounts/tslnfstab_file.h"
#include "nfstdm/nfs3/mount.h"
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

// What a server's block of tslnfstab says about the first contact holds here too.
nfstdm::rpc::Duration limit_of(std::string_view server) {
    const auto table = nfstdm::load_tslnfstab(home());
    if (!table.ok()) return nfstdm::mount3::kListLimit;
    const auto &servers = table.value().servers;
    const auto found = std::find_if(servers.begin(), servers.end(),
                                    [server](const auto &each) { return each.problem.empty() && names(each, server); });
    if (found == servers.end()) return nfstdm::mount3::kListLimit;
    return std::chrono::seconds(std::max(1U, found->contact_timeout_seconds));
}

bool ask_server(const char *server, std::vector<std::byte> &list, std::string &reason) {
    nfstdm::EventLoop loop;
    std::optional<nfstdm::Result<std::vector<std::byte>>> answer;
    nfstdm::mount3::export_list(
        loop, server, [&](auto result) { answer = std::move(result); }, limit_of(server));
    loop.run_until([&] { return answer.has_value(); });
    if (!answer->ok()) {
        reason = answer->status().text();
        return false;
    }
    list = std::move(answer->value());
    return true;
}

}  // namespace

uint32_t showMount(const char *server) {
    return show_mount(server, ask_server);
}
