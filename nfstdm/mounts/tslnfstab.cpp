// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/mounts/tslnfstab.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <utility>

#include "nfstdm/base/record.h"
#include "nfstdm/mounts/path_text.h"
#include "nfstdm/mounts/setting_scanner.h"
#include "nfstdm/mounts/tslnfstab_keys.h"

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

bool is_readable(KeyRow::Value kind, std::string_view value) {
    if (kind == KeyRow::Value::text) return true;
    if (value.empty()) return kind == KeyRow::Value::word_or_none;
    return std::none_of(value.begin(), value.end(),
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
    std::string *text_of(Key key);
    void take_value(Key key, const Setting &setting);
    void remark_unknown(const Setting &setting);
    void take_stray_word(const Setting &setting);
    void take_server(const Setting &setting);
    void take_local(const Setting &setting);
    void take_path(const Setting &setting);
    void take_export(const Setting &setting);
    void take_mount(const Setting &setting);
    void take_security(const Setting &setting);
    void take_rdma_port(const Setting &setting);
    template <class Number>
    void take_number(const Setting &setting, Number &number);

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
    const KeyRow *row = find_key(setting.key);
    if (row == nullptr) return remark_unknown(setting);
    if (leads_to_server && complete()) begin_server();
    if (current_.line == 0) current_.line = setting.line;
    if (!is_readable(row->value, setting.value)) return fail(setting, "cannot be read");
    take_value(row->key, setting);
}

// Where the value of a key stands that is taken as it is written; null of the others.
std::string *ServerBuilder::text_of(Key key) {
    switch (key) {
        case Key::version:
            return &current_.version;
        case Key::security_default:
            return &current_.security_default;
        case Key::principal_host:
            return &current_.principal_host;
        case Key::transport_security:
            return &current_.transport_security;
        case Key::tls_ca:
            return &current_.tls_ca;
        case Key::tls_certificate:
            return &current_.tls_certificate;
        case Key::tls_key:
            return &current_.tls_key;
        default:
            return nullptr;
    }
}

void ServerBuilder::take_value(Key key, const Setting &setting) {
    if (std::string *text = text_of(key); text != nullptr) {
        *text = setting.value;
        return;
    }
    switch (key) {
        case Key::server:
            return take_server(setting);
        case Key::rdmaport:
            return take_rdma_port(setting);
        case Key::local:
            return take_local(setting);
        case Key::path:
            return take_path(setting);
        case Key::exported:
            return take_export(setting);
        case Key::mount:
            return take_mount(setting);
        case Key::security:
            return take_security(setting);
        case Key::uid:
            return take_number(setting, current_.uid);
        case Key::gid:
            return take_number(setting, current_.gid);
        case Key::mnt_timeout:
            return take_number(setting, current_.contact_timeout_seconds);
        case Key::io_timeout:
            return take_number(setting, current_.io_timeout_seconds);
        case Key::nconnect:
            return take_number(setting, current_.connections_per_path);
        case Key::mountport:
            return take_number(setting, current_.mount_port);
        case Key::nfsport:
            return take_number(setting, current_.nfs_port);
        default:
            break;  // read for the sake of others
    }
}

template <class Number>
void ServerBuilder::take_number(const Setting &setting, Number &number) {
    const KeyRow &row = *find_key(setting.key);
    if (const auto value = number_in(setting.value, row.least, row.most)) {
        number = static_cast<Number>(*value);
    } else {
        fail(setting, "is not a number from " + std::to_string(row.least) + " to " + std::to_string(row.most));
    }
}

// An unknown key may be meant for another program; one in capitals hardly is, and what it was to say is missing.
void ServerBuilder::remark_unknown(const Setting &setting) {
    const KeyRow *meant = find_key_in_capitals(setting.key);
    const std::string hint = meant == nullptr ? "" : std::string(kKeyInCapitals).append(meant->word);
    remark(setting.line, "unknown key " + shown(setting.key) + hint);
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

void ServerBuilder::take_rdma_port(const Setting &setting) {
    take_number(setting, current_.rdma_port);
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
