// SPDX-License-Identifier: Apache-2.0
// What createtslnfstab was told about a server: the command line fills it, createtslnfstab writes it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct LocalPathPair {
    std::string local;
    std::string path;
};

struct ExportEntry {
    std::string export_path;
    std::string mount_point;
    std::optional<std::string> security;
};

// An option that was not given has no value.
struct ServerBlock {
    static constexpr std::size_t kListMaximum = 16;  // entries of each list; more are refused when the block is written

    std::optional<std::string> server;
    std::optional<std::vector<LocalPathPair>> pairs;
    std::optional<std::vector<ExportEntry>> exports;
    std::optional<uint32_t> uid;
    std::optional<uint32_t> gid;
    std::optional<std::string> version;
    std::optional<std::string> mnt_timeout;
    std::optional<std::string> rdmaport;
    std::optional<std::string> community;
    std::optional<std::string> security_default;
    std::optional<std::string> management;
};

extern ServerBlock tab_info;
