// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/tdm/library.h"

#include <charconv>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "nfstdm/base/open_descriptors.h"
#include "nfstdm/base/record.h"
#include "nfstdm/base/umask.h"
#include "nfstdm/mounts/tslnfstab_file.h"
#include "nfstdm/tdm/volume_factory.h"

namespace nfstdm {
namespace {

std::string_view environment(const char *name) {
    const char *value = std::getenv(name);
    return value == nullptr ? std::string_view{} : value;
}

// What a parent had open is kept for ever: its destructors would speak to servers in the parent's name.
void abandon(std::unique_ptr<Session> session) {
    static auto &abandoned = *new std::vector<Session *>;
    abandoned.push_back(session.release());
}

}  // namespace

Library &Library::instance() {
    static Library library;
    return library;
}

// The child's half of a fork: the connections are dropped at once, so that they end when the parent ends them. Whatever
// takes memory waits for the first call.
Library::Library() {
    pthread_atfork(nullptr, nullptr, [] {
        drop_inherited_descriptors();
        instance().owner_ = pthread_t{};
        instance().inherited_ = true;
    });
}

Library::~Library() {
    trace_.set_context(nullptr);
    if (!inherited_) return;
    for (auto &[handle, session] : sessions_)
        abandon(std::move(session));
}

bool Library::enter() noexcept {
    pthread_t owner{};
    const pthread_t self = pthread_self();
    return owner_.compare_exchange_strong(owner, self) || owner == self;
}

void Library::leave() noexcept {
    if (sessions_.empty()) owner_ = pthread_t{};
}

void Library::replace_inherited_sessions() {
    if (!inherited_) return;
    for (auto &[handle, session] : sessions_) {
        auto own = std::make_unique<Session>(*session, protocol_volume_factory(trace_.trace()));
        abandon(std::exchange(session, std::move(own)));
    }
    inherited_ = false;
}

void *Library::open_session() {
    replace_inherited_sessions();
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
        trace_.write(TraceLevel::failure, kOpening.data(), "NFSTDM_BLOCK_SIZE is no positive number and is ignored");
    if (!servers.ok()) return trace_.write(TraceLevel::failure, kOpening.data(), servers.status().text());
    for (const std::string &remark : servers.value().remarks)
        trace_.write(TraceLevel::failure, kOpening.data(), "tslnfstab, " + remark);
}

Session *Library::session(const void *handle) {
    replace_inherited_sessions();
    const auto found = sessions_.find(handle);
    return found == sessions_.end() ? nullptr : found->second.get();
}

std::unique_ptr<Session> Library::take_session(const void *handle) {
    replace_inherited_sessions();
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
