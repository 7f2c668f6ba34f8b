// SPDX-License-Identifier: Apache-2.0
// mount and umount: the pairing of an export with a mount point in tslnfstab. Each returns 0 or 1.
#pragma once

#include <cstdint>

#include "tslwnfs/frontend/options.h"

uint32_t mount_otab(const char *export_path, const char *mount_point);
uint32_t tslwnfs_mount_otab(const char *export_path, const char *mount_point, const MountServer &server);
uint32_t umount_otab(const char *mount_point);
uint32_t tslwnfs_umount_otab(const char *mount_point);
