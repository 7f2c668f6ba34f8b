// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/config/reading.h"

#include <algorithm>
#include <utility>

#include "nfstdm/mounts/tslnfstab.h"
#include "tslwnfs/config/whole_file.h"
#include "tslwnfs/options/options.h"

std::vector<std::string> mount_points_of(std::string_view file) {
    std::vector<std::string> mount_points;
    for (const auto &server : nfstdm::read_tslnfstab(file).servers) {
        for (const auto &entry : server.exports)
            mount_points.push_back(entry.mount_point);
    }
    return mount_points;
}

std::vector<std::string> configured_mount_points() {
    std::string file;
    const std::string path = std::string(tsl_home) + "/dbs/tslnfstab";
    return read_whole_file(path.c_str(), file) ? mount_points_of(file) : std::vector<std::string>();
}

std::vector<std::string> problems_of(std::string_view file) {
    auto read = nfstdm::read_tslnfstab(file);
    std::vector<std::string> problems = std::move(read.remarks);
    for (auto &server : read.servers) {
        const bool is_new = std::ranges::find(problems, server.problem) == problems.end();
        if (!server.problem.empty() && is_new) problems.push_back(std::move(server.problem));
    }
    return problems;
}
