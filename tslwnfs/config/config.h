// SPDX-License-Identifier: Apache-2.0
// The commands that write, show and edit tslnfstab, and those that write mount scripts. Each returns 0 or 1.
#pragma once

#include <cstdint>

#include "tslwnfs/output/printing.h"

uint32_t createtslnfstab();
uint32_t getserverlist();
uint32_t display_server(const char *server);
uint32_t delete_server(const char *server, int32_t verbose);
uint32_t enablerdma(const char *server, const char *port);
uint32_t disablerdma(const char *server);
uint32_t mount_script(const char *export_path, const char *mount_point);
uint32_t umount_script(const char *mount_point);
