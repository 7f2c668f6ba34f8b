// SPDX-License-Identifier: Apache-2.0
// What a command was told about a server: the command line fills it, createtslnfstab and mount write it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// mount may be given one of both.
struct LocalPathPair {
    std::optional<std::string> local;
    std::optional<std::string> path;
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
    bool replace = false;  // mount: start a new file instead of adding to the one there is
};

extern ServerBlock tab_info;  // createtslnfstab's

extern ServerBlock new_sinfo;  // mount's, whose export and mount point are its operands
