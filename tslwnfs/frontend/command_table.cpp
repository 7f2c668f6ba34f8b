// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/command_table.h"

#include <strings.h>

#include <algorithm>

#include "tslwnfs/client/client.h"
#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/files.h"
#include "tslwnfs/commands/listing.h"
#include "tslwnfs/config/config.h"
#include "tslwnfs/netdisc/netdisc.h"
#include "tslwnfs/storage/mount_table.h"

namespace {

constexpr int32_t kFamilyV4 = 2, kFamilyV6 = 10;

uint32_t run_getattr(const char *path, const char *) {
    AttrResult result;
    return getattrdir(path, result, 1);
}

uint32_t run_list(const char *path, const char *) {
    NameList names;
    return read_dir(path, names, 1);
}

uint32_t run_find(const char *path, const char *pattern) {
    return findfile(path, pattern, 0);
}

// The address commands of one family set it; those of both leave it alone.
template <int32_t family, int32_t with_subnets>
uint32_t run_addresses(const char *, const char *) {
    if (family != 0) ip_type = family;
    return enum_local_ips(with_subnets);
}

// A function of one operand, or of none, as the table wants it.
template <uint32_t (*function)(const char *)>
uint32_t on_first(const char *first, const char *) {
    return function(first);
}

template <uint32_t (*function)()>
uint32_t alone(const char *, const char *) {
    return function();
}

constexpr Command kCommands[] = {
    {.words = {"?", "h", "help"}, .code = kNoCommand, .grammar = parse_help},
    {.words = {"copy", "cp"},
     .code = kCopy,
     .grammar = parse_two_files,
     .execution = Execution::on_files,
     .required = Required::both,
     .banner = "COPY %s to %s: \n",
     .names_destination = true,
     .run = copyfile},
    {.words = {"del", "delete", "rm"},
     .code = kDelete,
     .grammar = parse_delete,
     .execution = Execution::on_files,
     .required = Required::first,
     .banner = "DEL %s : \n",
     .run = on_first<delfile>},
    {.words = {"cat"},
     .code = kCat,
     .grammar = parse_one_path,
     .execution = Execution::on_files,
     .required = Required::first,
     .banner = "CAT %s : \n",
     .run = on_first<catfile>},
    {.words = {},
     .code = kStorageProperties,
     .execution = Execution::on_files,
     .required = Required::first,
     .banner = "STAT %s : \n",
     .run = on_first<statfile>},
    {.words = {"move", "mv"},
     .code = kMove,
     .grammar = parse_two_files,
     .execution = Execution::on_files,
     .required = Required::both,
     .banner = "MOVE %s to %s: \n",
     .names_destination = true,
     .run = movefile},
    {.words = {"mkdir"},
     .code = kMakeDirectory,
     .grammar = parse_mkdir,
     .execution = Execution::on_files,
     .required = Required::first,
     .banner = "MKDIR %s : \n",
     .run = on_first<makedir>},
    {.words = {"rmdir"},
     .code = kRemoveDirectory,
     .grammar = parse_one_path,
     .execution = Execution::on_files,
     .required = Required::first,
     .banner = "RMDIR %s : \n",
     .run = on_first<removedir>},
    {.words = {"getattr"},
     .code = kGetAttributes,
     .grammar = parse_one_path,
     .execution = Execution::on_files,
     .required = Required::first,
     .banner = "GETATTR %s : \n",
     .run = run_getattr},
    {.words = {"setattr"},
     .code = kSetAttributes,
     .grammar = parse_one_path,
     .execution = Execution::on_files,
     .required = Required::first,
     .banner = "SETATTR %s : \n",
     .run = on_first<setattrdir>},
    {.words = {"fsstat"},
     .code = kFsStat,
     .grammar = parse_one_path,
     .execution = Execution::on_files,
     .required = Required::first,
     .banner = "FSSTAT %s : \n",
     .run = on_first<fsstatdir>},
    // The same command as fsstat, but its option words count.
    {.words = {"stat"},
     .code = kFsStat,
     .grammar = parse_stat,
     .execution = Execution::on_files,
     .required = Required::first,
     .banner = "FSSTAT %s : \n",
     .run = on_first<fsstatdir>},
    {.words = {"fsinfo"},
     .code = kFsInfo,
     .grammar = parse_one_path,
     .execution = Execution::on_files,
     .required = Required::first,
     .banner = "FSINFO %s : \n",
     .run = on_first<fsinfodir>},
    {.words = {"ls", "dir"},
     .code = kList,
     .grammar = parse_list,
     .execution = Execution::on_files,
     .required = Required::first,
     .banner = "DIR %s : \n",
     .run = run_list},
    // What ls becomes with -R; it announces each directory itself.
    {.words = {},
     .code = kListRecursive,
     .execution = Execution::on_files,
     .required = Required::first,
     .run = [](const char *path, const char *) { return read_dirlist(path, 0); }},
    {.words = {"find"},
     .code = kFind,
     .grammar = parse_find,
     .execution = Execution::on_files,
     .required = Required::both,
     .banner = "FIND PATH:%s FILE:%s :\n",
     .run = run_find},
    {.words = {"mount"},
     .code = kMount,
     .grammar = parse_mount,
     .execution = Execution::on_files,
     .required = Required::both,
     .banner = "MOUNT:\n",
     .banner_on_terminal = true,
     .run = mount_otab},
    {.words = {"umount"},
     .code = kUmount,
     .grammar = parse_umount,
     .execution = Execution::on_files,
     .required = Required::first,
     .banner = "UMOUNT:\n",
     .banner_on_terminal = true,
     .run = on_first<umount_otab>},
    {.words = {"dd", "DD"},
     .code = kDd,
     .grammar = parse_dd,
     .execution = Execution::on_files,
     .required = Required::second,
     .banner = "DD:\n",
     .banner_on_terminal = true,
     .run = ddfile},
    {.words = {"showmount"}, .code = kShowMount, .grammar = parse_showmount, .run = on_first<showMount>},
    {.words = {"restore"}, .code = kRestore, .grammar = parse_nothing, .run = alone<restore>},
    {.words = {"save"}, .code = kSave, .grammar = parse_nothing, .run = alone<save>},
    {.words = {"wnfsenable"}, .code = kEnable, .grammar = parse_nothing, .run = alone<wnfsenable>},
    {.words = {"wnfsdisable"}, .code = kDisable, .grammar = parse_wnfsdisable, .run = alone<wnfsdisable>},
    {.words = {"networkdiscovery"},
     .code = kNetworkDiscovery,
     .grammar = parse_networkdiscovery,
     .run = alone<network_discovery>},
    {.words = {"iswnfsenabled"},
     .code = kIsEnabled,
     .grammar = parse_iswnfsenabled,
     .execution = Execution::no_verdict,
     .required = Required::first,
     .run = on_first<iswnfsenabled>},
    {.words = {"isPathOnWNFS"},
     .code = kIsPathOnWnfs,
     .grammar = parse_isPathOnWNFS,
     .execution = Execution::no_verdict,
     .required = Required::both,
     .words_ignore_case = true,
     .run = isPathOnWNFS},
    {.words = {"createtslnfstab"},
     .code = kCreateTslnfstab,
     .grammar = parse_createtslnfstab,
     .run = alone<createtslnfstab>},
    {.words = {"disablerdma"},
     .code = kDisableRdma,
     .grammar = parse_server,
     .required = Required::first,
     .run = on_first<disablerdma>},
    {.words = {"enablerdma"},
     .code = kEnableRdma,
     .grammar = parse_enablerdma,
     .required = Required::first,
     .run = enablerdma},
    {.words = {"enum_local_ips"}, .code = kLocalAddresses, .grammar = parse_nothing, .run = run_addresses<0, 0>},
    {.words = {"getserverlist"}, .code = kGetServerList, .grammar = parse_nothing, .run = alone<getserverlist>},
    {.words = {"mount_script"},
     .code = kMountScript,
     .grammar = parse_mount_script,
     .required = Required::first,
     .run = mount_script},
    {.words = {"umount_script"},
     .code = kUmountScript,
     .grammar = parse_umount_script,
     .required = Required::first,
     .run = on_first<umount_script>},
    {.words = {"display_server"},
     .code = kDisplayServer,
     .grammar = parse_server,
     .required = Required::first,
     .run = on_first<display_server>},
    {.words = {"delete_server"},
     .code = kDeleteServer,
     .grammar = parse_server,
     .required = Required::first,
     .run = [](const char *server, const char *) { return delete_server(server, 1); }},
    {.words = {"getsubnetmask"},
     .code = kGetSubnetMask,
     .grammar = parse_getsubnetmask,
     .required = Required::first,
     .words_ignore_case = true,
     .run = on_first<getsubnetmask>},
    {.words = {"get_ip_subnet"}, .code = kSubnets, .grammar = parse_nothing, .run = run_addresses<0, 1>},
    {.words = {"get_ip_subnetv4"}, .code = kSubnetsV4, .grammar = parse_nothing, .run = run_addresses<kFamilyV4, 1>},
    {.words = {"get_ip_subnetv6"}, .code = kSubnetsV6, .grammar = parse_nothing, .run = run_addresses<kFamilyV6, 1>},
    {.words = {"enum_local_ipv4"},
     .code = kLocalAddressesV4,
     .grammar = parse_nothing,
     .run = run_addresses<kFamilyV4, 0>},
    {.words = {"enum_local_ipv6"},
     .code = kLocalAddressesV6,
     .grammar = parse_nothing,
     .run = run_addresses<kFamilyV6, 0>},
    {.words = {"nfsids"}, .code = kNoCommand, .grammar = parse_nfsids},
};

bool names(const Command &command, std::string_view word) {
    return std::any_of(std::begin(command.words), std::end(command.words), [&](const char *own) {
        if (own == nullptr || word.size() != std::string_view(own).size()) return false;
        return command.words_ignore_case ? strncasecmp(own, word.data(), word.size()) == 0 : word == own;
    });
}

}  // namespace

std::span<const Command> command_table() {
    return kCommands;
}

const Command *find_command(std::string_view word) {
    const auto *row = std::find_if(std::begin(kCommands), std::end(kCommands),
                                   [&](const Command &command) { return names(command, word); });
    return row != std::end(kCommands) ? row : nullptr;
}

const Command *command_of(int32_t code) {
    if (code == kNoCommand) return nullptr;
    const auto *row = std::find_if(std::begin(kCommands), std::end(kCommands),
                                   [&](const Command &command) { return command.code == code; });
    return row != std::end(kCommands) ? row : nullptr;
}
