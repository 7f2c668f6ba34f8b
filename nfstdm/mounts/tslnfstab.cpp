// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/mounts/tslnfstab.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <utility>

#include "nfstdm/mounts/path_text.h"
#include "nfstdm/mounts/setting_scanner.h"

namespace nfstdm {
namespace {

constexpr std::size_t kShownMaximum = 64;  // of a word that is told in a remark

// Remarks go to the trace, which is read at terminals.
std::string printable(std::string_view word) {
    std::string text;
    for (const char c : word.substr(0, kShownMaximum))
        text += c >= ' ' && c <= '~' ? c : '?';
    return word.size() > kShownMaximum ? text + "..." : text;
}

std::string shown(std::string_view value) {
    return '"' + printable(value) + '"';
}

bool is_readable(std::string_view value) {
    return !value.empty() && std::none_of(value.begin(), value.end(),
                                          [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; });
}

std::optional<uint32_t> number_in(std::string_view value, uint32_t least, uint32_t most) {
    uint32_t number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc{} || end != value.data() + value.size()) return std::nullopt;
    if (number < least || number > most) return std::nullopt;
    return number;
}

// Puts settings together into servers.
class ServerBuilder {
  public:
    void take(const Setting &setting, bool leads_to_server);
    Tslnfstab finish();

  private:
    using Taker = void (ServerBuilder::*)(const Setting &);
    struct Key {
        std::string_view word;
        bool prefix;  // longer words that begin like this one mean the same
        Taker take;
    };
    static const std::array<Key, 18> kKeys;
    static const Key *find_key(std::string_view word);

    void take_stray_word(const Setting &setting);
    void take_server(const Setting &setting);
    void take_local(const Setting &setting);
    void take_path(const Setting &setting);
    void take_export(const Setting &setting);
    void take_mount(const Setting &setting);
    void take_security(const Setting &setting);
    void take_security_default(const Setting &setting);
    void take_version(const Setting &setting);
    void take_rdma_port(const Setting &setting);
    void take_nothing(const Setting &) {}  // read for the sake of others

    void take_uid(const Setting &setting) { take_number(setting, current_.uid, 0, kAny); }
    void take_gid(const Setting &setting) { take_number(setting, current_.gid, 0, kAny); }
    void take_contact_timeout(const Setting &setting) {
        take_number(setting, current_.contact_timeout_seconds, 1, kSecondsMaximum);
    }
    void take_io_timeout(const Setting &setting) {
        take_number(setting, current_.io_timeout_seconds, 0, kSecondsMaximum);
    }
    void take_connections(const Setting &setting) { take_number(setting, current_.connections_per_path, 1, 16); }
    void take_mount_port(const Setting &setting) { take_number(setting, current_.mount_port, 1, kPortMaximum); }
    void take_nfs_port(const Setting &setting) { take_number(setting, current_.nfs_port, 1, kPortMaximum); }

    static constexpr uint32_t kAny = std::numeric_limits<uint32_t>::max();
    static constexpr uint32_t kSecondsMaximum = 365 * 24 * 3600;
    static constexpr uint32_t kPortMaximum = 65535;

    template <class Number>
    void take_number(const Setting &setting, Number &number, uint32_t least, uint32_t most) {
        if (const auto value = number_in(setting.value, least, most))
            number = static_cast<Number>(*value);
        else
            fail(setting, "is not a number from " + std::to_string(least) + " to " + std::to_string(most));
    }

    // A block that lacks nothing: the next uid, gid or server key may begin another.
    bool complete() const { return !current_.name.empty() || (!in_markers_ && !current_.exports.empty()); }
    void begin_server();
    void settle_current();
    void remark(unsigned line, const std::string &text);
    void fail(const Setting &setting, const std::string &why);
    void disable(unsigned line, const std::string &why);

    Tslnfstab result_;
    ServerConfig current_;
    bool in_markers_ = false;
    std::optional<std::string> local_;    // waits for its path
    std::optional<ServerExport> export_;  // waits for its mount
    unsigned export_line_ = 0;
};

const std::array<ServerBuilder::Key, 18> ServerBuilder::kKeys = {{
    {"server", true, &ServerBuilder::take_server},
    {"rdmaport", true, &ServerBuilder::take_rdma_port},
    {"local", false, &ServerBuilder::take_local},
    {"path", false, &ServerBuilder::take_path},
    {"export", false, &ServerBuilder::take_export},
    {"mount", false, &ServerBuilder::take_mount},
    {"security", false, &ServerBuilder::take_security},
    {"security_default", false, &ServerBuilder::take_security_default},
    {"uid", false, &ServerBuilder::take_uid},
    {"gid", false, &ServerBuilder::take_gid},
    {"version", false, &ServerBuilder::take_version},
    {"mnt_timeout", false, &ServerBuilder::take_contact_timeout},
    {"io_timeout", false, &ServerBuilder::take_io_timeout},
    {"nconnect", false, &ServerBuilder::take_connections},
    {"mountport", false, &ServerBuilder::take_mount_port},
    {"nfsport", false, &ServerBuilder::take_nfs_port},
    {"community", false, &ServerBuilder::take_nothing},
    {"management", false, &ServerBuilder::take_nothing},
}};

const ServerBuilder::Key *ServerBuilder::find_key(std::string_view word) {
    const auto found = std::find_if(kKeys.begin(), kKeys.end(), [word](const Key &key) {
        return key.prefix ? word.starts_with(key.word) : word == key.word;
    });
    return found == kKeys.end() ? nullptr : &*found;
}

void ServerBuilder::remark(unsigned line, const std::string &text) {
    result_.remarks.push_back("line " + std::to_string(line) + ": " + text);
}

void ServerBuilder::disable(unsigned line, const std::string &why) {
    remark(line, why);
    if (current_.problem.empty()) current_.problem = "line " + std::to_string(line) + ": " + why;
}

void ServerBuilder::fail(const Setting &setting, const std::string &why) {
    disable(setting.line, printable(setting.key) + ": " + shown(setting.value) + " " + why);
}

// What was given in part is completed or dropped, and the block joins the others.
void ServerBuilder::settle_current() {
    if (local_) current_.paths.push_back({*std::exchange(local_, std::nullopt), {}});
    for (auto &path : current_.paths)
        if (path.path.empty()) path.path = current_.name;
    if (export_) remark(export_line_, "export: without a mount point");
    export_.reset();
    for (auto &exported : current_.exports)
        if (exported.security.empty()) exported.security = current_.security_default;
    if (current_.name.empty() && !current_.exports.empty())
        disable(current_.line, "the mounts that begin here belong to no server");
    if (!current_.name.empty() || !current_.exports.empty()) result_.servers.push_back(std::move(current_));
}

void ServerBuilder::begin_server() {
    settle_current();
    current_ = {};
}

void ServerBuilder::take(const Setting &setting, bool leads_to_server) {
    switch (setting.kind) {
        case Setting::Kind::block_begin:
            begin_server();
            in_markers_ = true;
            return;
        case Setting::Kind::block_end:
            in_markers_ = false;
            return;
        case Setting::Kind::unreadable:
            return take_stray_word(setting);
        case Setting::Kind::setting:
            break;
    }
    const Key *key = find_key(setting.key);
    if (key == nullptr) return remark(setting.line, "unknown key " + shown(setting.key));
    if (leads_to_server && complete()) begin_server();
    if (current_.line == 0) current_.line = setting.line;
    if (!is_readable(setting.value)) return fail(setting, "cannot be read");
    (this->*key->take)(setting);
}

void ServerBuilder::take_stray_word(const Setting &setting) {
    const std::string why = shown(setting.key) + " is no key: its colon is missing";
    const bool ahead_of_servers = current_.name.empty() && !in_markers_;
    ahead_of_servers ? remark(setting.line, why) : disable(setting.line, why);
}

void ServerBuilder::take_server(const Setting &setting) {
    current_.name = setting.value;
    current_.line = setting.line;
}

void ServerBuilder::take_local(const Setting &setting) {
    if (local_) current_.paths.push_back({*local_, {}});
    local_ = setting.value;
}

void ServerBuilder::take_path(const Setting &setting) {
    current_.paths.push_back({local_.value_or(""), std::string(setting.value)});
    local_.reset();
}

void ServerBuilder::take_export(const Setting &setting) {
    if (export_) remark(export_line_, "export: without a mount point");
    export_ = ServerExport{std::string(setting.value), {}, {}};
    export_line_ = setting.line;
}

void ServerBuilder::take_mount(const Setting &setting) {
    const auto components = split_path(setting.value);
    const bool climbs = std::find(components.begin(), components.end(), "..") != components.end();
    if (!path_is_absolute(setting.value) || climbs) return fail(setting, "is not an absolute path");
    // A mount without an export still takes its place in the table, so that paths under it fail instead of being local.
    if (!export_) fail(setting, "has no export");
    ServerExport exported = export_.value_or(ServerExport{});
    export_.reset();
    exported.mount_point = join_path(components);
    current_.exports.push_back(std::move(exported));
}

void ServerBuilder::take_security(const Setting &setting) {
    if (export_)
        export_->security = setting.value;
    else if (!current_.exports.empty())
        current_.exports.back().security = setting.value;
    else
        fail(setting, "belongs to no export");
}

void ServerBuilder::take_security_default(const Setting &setting) {
    current_.security_default = setting.value;
}

void ServerBuilder::take_version(const Setting &setting) {
    current_.version = setting.value;
}

void ServerBuilder::take_rdma_port(const Setting &setting) {
    take_number(setting, current_.rdma_port, 0, kPortMaximum);
    if (current_.rdma_port != 0) remark(setting.line, "rdmaport: there is no RDMA transport here, TCP is used");
}

Tslnfstab ServerBuilder::finish() {
    settle_current();
    return std::move(result_);
}

bool is_identity(const Setting &setting) {
    return setting.kind == Setting::Kind::setting && (setting.key == "uid" || setting.key == "gid");
}

bool is_server(const Setting &setting) {
    return setting.kind == Setting::Kind::setting && setting.key.starts_with("server");
}

// For every setting: whether nothing but uid and gid settings stands between it and a server key.
std::vector<bool> lead_to_server(const std::vector<Setting> &settings) {
    std::vector<bool> leads(settings.size() + 1, false);
    for (std::size_t i = settings.size(); i-- > 0;)
        leads[i] = is_server(settings[i]) || (is_identity(settings[i]) && leads[i + 1]);
    return leads;
}

}  // namespace

Tslnfstab read_tslnfstab(std::string_view text) {
    const auto settings = scan_settings(text);
    const auto leads = lead_to_server(settings);
    ServerBuilder builder;
    for (std::size_t i = 0; i < settings.size(); ++i)
        builder.take(settings[i], leads[i]);
    return builder.finish();
}

}  // namespace nfstdm
