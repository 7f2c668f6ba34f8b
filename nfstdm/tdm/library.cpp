// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/tdm/library.h"

#include <sys/stat.h>

#include <charconv>
#include <cstdlib>
#include <fstream>
#include <ios>
#include <string>
#include <utility>

#include "nfstdm/mounts/tslnfstab_file.h"
#include "nfstdm/tdm/volume_factory.h"

namespace nfstdm {
namespace {

std::string_view environment(const char *name) {
    const char *value = std::getenv(name);
    return value == nullptr ? std::string_view{} : value;
}

// Read where it can be read: setting it, the only other way to learn it, would for a moment open what other threads of
// the caller's process create.
uint32_t process_umask() {
    std::ifstream status("/proc/self/status");
    uint32_t mask = 0;
    for (std::string word; status >> word;)
        if (word == "Umask:" && status >> std::oct >> mask) return mask;
    mask = ::umask(0);
    ::umask(mask);
    return mask;
}

}  // namespace

Library &Library::instance() {
    static Library library;
    return library;
}

void *Library::open_session() {
    auto servers = load_tslnfstab(std::string(environment("TESSEL_HOME")));
    trace_settings(servers);
    auto session =
        std::make_unique<Session>(std::move(servers), protocol_volume_factory(trace_.trace()), process_umask());
    void *handle = session.get();
    sessions_.emplace(handle, std::move(session));
    return handle;
}

void Library::trace_settings(const Result<Tslnfstab> &servers) const {
    if (!trace_.wants(TraceLevel::failure)) return;
    if (!block_size().valid)
        trace_.write(TraceLevel::failure, "tdm_init", "NFSTDM_BLOCK_SIZE is no positive number and is ignored");
    if (!servers.ok()) return trace_.write(TraceLevel::failure, "tdm_init", servers.status().text());
    for (const std::string &remark : servers.value().remarks)
        trace_.write(TraceLevel::failure, "tdm_init", "tslnfstab, " + remark);
}

Session *Library::session(const void *handle) const {
    const auto found = sessions_.find(handle);
    return found == sessions_.end() ? nullptr : found->second.get();
}

std::unique_ptr<Session> Library::take_session(const void *handle) {
    const auto found = sessions_.find(handle);
    if (found == sessions_.end()) return nullptr;
    auto session = std::move(found->second);
    sessions_.erase(found);
    return session;
}

BlockSize block_size() {
    const std::string_view setting = environment("NFSTDM_BLOCK_SIZE");
    if (setting.empty()) return {};
    uint32_t bytes = 0;
    const auto [end, error] = std::from_chars(setting.data(), setting.data() + setting.size(), bytes);
    if (error != std::errc{} || end != setting.data() + setting.size() || bytes == 0) return {1, false};
    return {bytes, true};
}

}  // namespace nfstdm
