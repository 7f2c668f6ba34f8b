// SPDX-License-Identifier: Apache-2.0
// The executor's table names every command. Those of the other parts are not under test here and do nothing.
#include "tslwnfs/client/client.h"
#include "tslwnfs/config/config.h"
#include "tslwnfs/netdisc/netdisc.h"
#include "tslwnfs/storage/mount_table.h"

#define STAND_IN __attribute__((weak))

STAND_IN uint32_t wnfsenable() {
    return 1;
}
STAND_IN uint32_t wnfsdisable() {
    return 1;
}
STAND_IN uint32_t save() {
    return 1;
}
STAND_IN uint32_t restore() {
    return 1;
}
STAND_IN uint32_t iswnfsenabled(const char *) {
    return 1;
}
STAND_IN uint32_t isPathOnWNFS(const char *, const char *) {
    return 1;
}
STAND_IN uint32_t showMount(const char *) {
    return 1;
}
STAND_IN uint32_t createtslnfstab() {
    return 1;
}
STAND_IN uint32_t getserverlist() {
    return 1;
}
STAND_IN uint32_t display_server(const char *) {
    return 1;
}
STAND_IN uint32_t delete_server(const char *, int32_t) {
    return 1;
}
STAND_IN uint32_t enablerdma(const char *, const char *) {
    return 1;
}
STAND_IN uint32_t disablerdma(const char *) {
    return 1;
}
STAND_IN uint32_t mount_script(const char *, const char *) {
    return 1;
}
STAND_IN uint32_t umount_script(const char *) {
    return 1;
}
STAND_IN uint32_t mount_otab(const char *, const char *) {
    return 1;
}
STAND_IN uint32_t umount_otab(const char *) {
    return 1;
}
STAND_IN uint32_t enum_local_ips(int32_t) {
    return 1;
}
STAND_IN uint32_t getsubnetmask(const char *) {
    return 1;
}
STAND_IN uint32_t network_discovery() {
    return 1;
}
