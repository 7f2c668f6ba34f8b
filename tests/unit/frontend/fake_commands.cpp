// SPDX-License-Identifier: Apache-2.0
// Commands that note how they were called.
#include "recorder.h"
#include "tslwnfs/client/client.h"
#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/files.h"
#include "tslwnfs/commands/listing.h"
#include "tslwnfs/config/config.h"
#include "tslwnfs/config/mount_table.h"
#include "tslwnfs/config/reading.h"
#include "tslwnfs/netdisc/netdisc.h"
#include "tslwnfs/options/options.h"

namespace {

std::string shown(const char *text) {
    return text != nullptr ? text : "null";
}

std::string shown(const Operand &operand) {
    return shown(operand.text());
}

uint32_t note(const char *function, const Operand &first) {
    return recorder().call(function, shown(first));
}

uint32_t note(const char *function, const Operand &first, const Operand &second) {
    return recorder().call(function, shown(first) + ", " + shown(second));
}

uint32_t note(const char *function, const Operand &first, int32_t number) {
    return recorder().call(function, shown(first) + ", " + std::to_string(number));
}

}  // namespace

Recorder &recorder() {
    static Recorder instance;
    return instance;
}

uint32_t catfile(const Operand &path) {
    return note("catfile", path);
}
uint32_t makedir(const Operand &path) {
    return note("makedir", path);
}
uint32_t removedir(const Operand &path) {
    return note("removedir", path);
}
uint32_t copyfile(const Operand &source, const Operand &destination) {
    return note("copyfile", source, destination);
}
uint32_t delfile(const Operand &path) {
    return note("delfile", path);
}
uint32_t fsinfodir(const Operand &path) {
    return note("fsinfodir", path);
}
uint32_t fsstatdir(const Operand &path) {
    return note("fsstatdir", path);
}
uint32_t statfile(const Operand &path) {
    return note("statfile", path);
}
uint32_t movefile(const Operand &source, const Operand &destination) {
    return note("movefile", source, destination);
}
uint32_t findfile(const Operand &directory, const char *pattern, int32_t) {
    return note("findfile", directory, pattern);
}
uint32_t ddfile(const Operand &input, const Operand &output) {
    return note("ddfile", input, output);
}
uint32_t setattrdir(const Operand &path) {
    return note("setattrdir", path);
}
uint32_t getattrdir(const Operand &path, AttrResult &, int32_t print_block) {
    return note("getattrdir", path, print_block);
}
bool is_directory_destination(const Operand &path) {
    return recorder().directories.contains(path.text());
}

uint32_t read_dir(const Operand &path, NameList &names, int32_t print_names) {
    names.clear();
    for (const auto &name : recorder().listing)
        names.add(name);
    return note("read_dir", path, print_names);
}
uint32_t list_content(const Operand &path, NameList &names, Afterwards, const NameFilter &wanted) {
    NameList all;
    const uint32_t result = read_dir(path, all, kUnprinted);
    names.clear();
    for (const auto &name : all)
        if (!wanted || wanted(name)) names.add(name);
    return result;
}
uint32_t read_dirlist(const Operand &path, int32_t depth) {
    return note("read_dirlist", path, depth);
}

uint32_t mount_otab(const char *export_path, const char *mount_point) {
    return note("mount_otab", export_path, mount_point);
}
uint32_t umount_otab(const char *mount_point) {
    return note("umount_otab", mount_point);
}

uint32_t wnfsenable() {
    return recorder().call("wnfsenable");
}
uint32_t wnfsdisable() {
    return recorder().call("wnfsdisable");
}
uint32_t save() {
    return recorder().call("save");
}
uint32_t restore() {
    return recorder().call("restore");
}
uint32_t iswnfsenabled(const char *home) {
    return note("iswnfsenabled", home);
}
uint32_t isPathOnWNFS(const char *home, const char *path) {
    return note("isPathOnWNFS", home, path);
}
uint32_t showMount(const char *server) {
    return note("showMount", server);
}

std::vector<std::string> configured_mount_points() {
    return recorder().mount_points;
}

uint32_t createtslnfstab() {
    return recorder().call("createtslnfstab");
}
uint32_t getserverlist() {
    return recorder().call("getserverlist");
}
uint32_t display_server(const char *server) {
    return note("display_server", server);
}
uint32_t delete_server(const char *server, int32_t verbose) {
    return note("delete_server", server, verbose);
}
uint32_t enablerdma(const char *server, const char *port) {
    return note("enablerdma", server, port);
}
uint32_t disablerdma(const char *server) {
    return note("disablerdma", server);
}
uint32_t mount_script(const char *export_path, const char *mount_point) {
    return note("mount_script", export_path, mount_point);
}
uint32_t umount_script(const char *mount_point) {
    return note("umount_script", mount_point);
}

uint32_t enum_local_ips(int32_t with_subnets) {
    return recorder().call("enum_local_ips", std::to_string(with_subnets) + ", family " + std::to_string(ip_type));
}
uint32_t getsubnetmask(const char *address) {
    return note("getsubnetmask", address);
}
uint32_t network_discovery() {
    return recorder().call("network_discovery");
}
