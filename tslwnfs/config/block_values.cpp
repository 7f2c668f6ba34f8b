// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/config/block_values.h"

#include <algorithm>
#include <optional>

#include "nfstdm/mounts/tslnfstab.h"
#include "nfstdm/mounts/tslnfstab_keys.h"
#include "tslwnfs/config/tslnfstab_lines.h"
#include "tslwnfs/options/server_block.h"
#include "tslwnfs/output/trace.h"

namespace {

void put(std::vector<BlockSetting> &settings, std::string_view key, const std::optional<std::string> &value) {
    if (value) settings.push_back({key, *value});
}

void put(std::vector<BlockSetting> &settings, std::string_view key, std::optional<uint32_t> value) {
    if (value) settings.push_back({key, std::to_string(*value)});
}

bool is_control(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
}

bool is_capital(char c) {
    return c >= 'A' && c <= 'Z';
}

// What separates a setting from the one ahead of it.
std::string_view separator(std::string_view key) {
    if (key == "path" || key == "mount") return " \t ";
    return key == "security" ? "\t" : "\n";
}

bool is_key_with_colon(std::string_view word) {
    return word.ends_with(':') && nfstdm::find_key(word.substr(0, word.size() - 1)) != nullptr;
}

// Why a value does not come back as it is from among the words of the file; empty when it does. What a value of its key
// may be is another question.
std::string_view misread_word(const BlockSetting &setting) {
    const std::string_view value = setting.value;
    const std::size_t end = value.find_first_of(" #");
    if (end != std::string_view::npos) return value[end] == '#' ? "ends at its \"#\"" : "ends at its first blank";
    return is_key_with_colon(value) ? "is taken for a key" : "";
}

}  // namespace

std::vector<BlockSetting> settings_of(const ServerBlock &server) {
    std::vector<BlockSetting> settings;
    put(settings, "uid", server.uid);
    put(settings, "gid", server.gid);
    put(settings, "server", server.server);
    for (const auto &pair : server.pairs.value_or(std::vector<LocalPathPair>())) {
        put(settings, "local", pair.local);
        put(settings, "path", pair.path);
    }
    for (const auto &entry : server.exports.value_or(std::vector<ExportEntry>())) {
        settings.push_back({"export", entry.export_path});
        settings.push_back({"mount", entry.mount_point});
        put(settings, "security", entry.security);
    }
    put(settings, "version", server.version);
    put(settings, "community", server.community);
    put(settings, "rdmaport", server.rdmaport);
    put(settings, "mnt_timeout", server.mnt_timeout);
    put(settings, "security_default", server.security_default);
    put(settings, "management", server.management);
    return settings;
}

std::vector<BlockSetting> mount_settings_of(ServerBlock server, const char *export_path, const char *mount_point) {
    server.exports = std::vector<ExportEntry>{{export_path, mount_point, std::nullopt}};
    return settings_of(server);
}

std::string lines_of(const std::vector<BlockSetting> &settings) {
    std::string lines;
    for (const auto &setting : settings) {
        if (!lines.empty()) lines += separator(setting.key);
        lines.append(setting.key).append(": ").append(setting.value);
    }
    return lines.empty() ? lines : lines + "\n";
}

std::string server_block_text(const ServerBlock &server) {
    return std::string(kBlockBegin).append("\n").append(lines_of(settings_of(server))).append(kBlockEnd).append("\n");
}

std::string mount_text(const std::vector<BlockSetting> &settings) {
    std::string lines;
    for (const auto &setting : settings)
        lines.append(setting.key).append(": ").append(setting.value).append("\n");
    return lines;
}

bool are_writable(const char *function, const std::vector<BlockSetting> &settings) {
    const auto bad = std::ranges::find_if(
        settings, [](const BlockSetting &setting) { return std::ranges::any_of(setting.value, is_control); });
    if (bad == settings.end()) return true;
    trace_failure(function, "the value of %s holds a control character", std::string(bad->key).c_str());
    return false;
}

std::vector<std::string> misreadings_of(const std::vector<BlockSetting> &settings) {
    std::vector<std::string> misreadings;
    for (const auto &setting : settings) {
        const nfstdm::KeyRow *row = nfstdm::find_key(setting.key);
        if (row->value == nfstdm::KeyRow::Value::text) continue;
        const std::string_view why = misread_word(setting);
        if (why.empty()) continue;
        misreadings.push_back(std::string(setting.key).append(": \"").append(setting.value).append("\" ").append(why));
    }
    return misreadings;
}

std::vector<std::string> doubts_about(const std::vector<BlockSetting> &settings) {
    std::vector<std::string> doubts;
    for (const auto &setting : settings) {
        if (setting.key != "mount" || std::ranges::none_of(setting.value, is_capital)) continue;
        doubts.push_back("mount point " + setting.value +
                         ": a copy to it by this name goes elsewhere, since the last name of a destination is put in "
                         "lower case; choose one without capitals, or set TSLWNFS_STRICT=names");
    }
    return doubts;
}

std::string problem_of(const std::vector<BlockSetting> &settings) {
    const auto read = nfstdm::read_tslnfstab(lines_of(settings));
    std::string problem;
    if (!read.servers.empty()) {
        problem = read.servers.front().problem;
    } else if (!read.remarks.empty()) {
        problem = read.remarks.front();
    }
    // The line is one of these settings, not of the file.
    const std::size_t behind_line = problem.find(": ");
    return behind_line == std::string::npos ? problem : problem.substr(behind_line + 2);
}
