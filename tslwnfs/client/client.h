// SPDX-License-Identifier: Apache-2.0
// Enabling and disabling the client, saving and restoring its configuration, and asking about its state.
#pragma once

#include <cstdint>

uint32_t wnfsenable();
uint32_t wnfsdisable();
uint32_t save();
uint32_t restore();

uint32_t iswnfsenabled(const char *home);
uint32_t isPathOnWNFS(const char *home, const char *path);
uint32_t showMount(const char *server);
