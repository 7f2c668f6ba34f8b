// SPDX-License-Identifier: Apache-2.0
// mount and umount: the pairing of an export with a mount point in tslnfstab. The commands return 0 or 1.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tslwnfs/options/server_block.h"

uint32_t mount_otab(const char *export_path, const char *mount_point);
uint32_t tslwnfs_mount_otab(const char *export_path, const char *mount_point, const ServerBlock &server);
uint32_t umount_otab(const char *mount_point);
uint32_t tslwnfs_umount_otab(const char *mount_point);

// What umount makes of a configuration: its pairs of key and value without the mounts on a mount point and the exports
// ahead of those.
std::string without_mount(std::string_view file, std::string_view mount_point);
