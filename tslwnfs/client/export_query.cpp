// SPDX-License-Identifier: Apache-2.0
// showmount: what a server exports, asked of the server itself.
#include <optional>

#include "nfstdm/mount3/mount.h"
#include "nfstdm/protocol/event_loop.h"
#include "tslwnfs/client/client.h"
#include "tslwnfs/client/show_mount.h"

namespace {

bool ask_server(const char *server, std::vector<std::byte> &list, std::string &reason) {
    nfstdm::EventLoop loop;
    std::optional<nfstdm::Result<std::vector<std::byte>>> answer;
    nfstdm::mount3::export_list(loop, server, [&](auto result) { answer = std::move(result); });
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
