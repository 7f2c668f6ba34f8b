// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/command_table.h"

#include <strings.h>

#include <algorithm>

#include "tslwnfs/client/client.h"
#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/files.h"
#include "tslwnfs/commands/listing.h"
#include "tslwnfs/config/config.h"
#include "tslwnfs/config/mount_table.h"
#include "tslwnfs/netdisc/netdisc.h"

namespace {

constexpr int32_t kFamilyV4 = 2, kFamilyV6 = 10;

uint32_t run_getattr(const Operand &path, const Operand &) {
    AttrResult result;
    return getattrdir(path, result, kPrinted);
}

uint32_t run_list(const Operand &path, const Operand &) {
    NameList names;
    return read_dir(path, names, kPrinted);
}

// The address commands of one family set it; those of both leave it alone.
template <int32_t family, int32_t with_subnets>
uint32_t run_addresses(const Operand &, const Operand &) {
    if (family != 0) ip_type = family;
    return enum_local_ips(with_subnets);
}

// A function of one path, of plain words, or of nothing, as the table wants it.
template <uint32_t (*function)(const Operand &)>
uint32_t on_path(const Operand &path, const Operand &) {
    return function(path);
}

template <uint32_t (*function)(const char *)>
uint32_t on_first(const Operand &first, const Operand &) {
    return function(first.text());
}

template <uint32_t (*function)(const char *, const char *)>
uint32_t on_both(const Operand &first, const Operand &second) {
    return function(first.text(), second.text());
}

template <uint32_t (*function)()>
uint32_t alone(const Operand &, const Operand &) {
    return function();
}

constexpr Command kCommands[] = {
    {.words = {"?", "h", "help"}, .grammar = parse_help, .code = kNoCommand},
    {.words = {"copy", "cp"},
     .grammar = parse_two_files,
     .banner = "COPY %s to %s: \n",
     .run = copyfile,
     .code = kCopy,
     .execution = Execution::on_files,
     .required = Required::both,
     .names_destination = true},
    {.words = {"del", "delete", "rm"},
     .grammar = parse_delete,
     .banner = "DEL %s : \n",
     .run = on_path<delfile>,
     .code = kDelete,
     .execution = Execution::on_files,
     .required = Required::first},
    {.words = {"cat"},
     .grammar = parse_one_path,
     .banner = "CAT %s : \n",
     .run = on_path<catfile>,
     .code = kCat,
     .execution = Execution::on_files,
     .required = Required::first,
     .prints_result = true},
    {.words = {},
     .banner = "STAT %s : \n",
     .run = on_path<statfile>,
     .code = kStorageProperties,
     .execution = Execution::on_files,
     .required = Required::first,
     .prints_result = true},
    {.words = {"move", "mv"},
     .grammar = parse_two_files,
     .banner = "MOVE %s to %s: \n",
     .run = movefile,
     .code = kMove,
     .execution = Execution::on_files,
     .required = Required::both,
     .names_destination = true},
    {.words = {"mkdir"},
     .grammar = parse_mkdir,
     .banner = "MKDIR %s : \n",
     .run = on_path<makedir>,
     .code = kMakeDirectory,
     .execution = Execution::on_files,
     .required = Required::first},
    {.words = {"rmdir"},
     .grammar = parse_one_path,
     .banner = "RMDIR %s : \n",
     .run = on_path<removedir>,
     .code = kRemoveDirectory,
     .execution = Execution::on_files,
     .required = Required::first},
    {.words = {"getattr"},
     .grammar = parse_one_path,
     .banner = "GETATTR %s : \n",
     .run = run_getattr,
     .code = kGetAttributes,
     .execution = Execution::on_files,
     .required = Required::first,
     .prints_result = true},
    {.words = {"setattr"},
     .grammar = parse_one_path,
     .banner = "SETATTR %s : \n",
     .run = on_path<setattrdir>,
     .code = kSetAttributes,
     .execution = Execution::on_files,
     .required = Required::first},
    {.words = {"fsstat"},
     .grammar = parse_one_path,
     .banner = "FSSTAT %s : \n",
     .run = on_path<fsstatdir>,
     .code = kFsStat,
     .execution = Execution::on_files,
     .required = Required::first,
     .prints_result = true},
    // The same command as fsstat, but its option words count.
    {.words = {"stat"},
     .grammar = parse_stat,
     .banner = "FSSTAT %s : \n",
     .run = on_path<fsstatdir>,
     .code = kFsStat,
     .execution = Execution::on_files,
     .required = Required::first,
     .prints_result = true},
    {.words = {"fsinfo"},
     .grammar = parse_one_path,
     .banner = "FSINFO %s : \n",
     .run = on_path<fsinfodir>,
     .code = kFsInfo,
     .execution = Execution::on_files,
     .required = Required::first,
     .prints_result = true},
    {.words = {"ls", "dir"},
     .grammar = parse_list,
     .banner = "DIR %s : \n",
     .run = run_list,
     .code = kList,
     .execution = Execution::on_files,
     .required = Required::first,
     .prints_result = true},
    // What ls becomes with -R; it announces each directory itself.
    {.words = {},
     .run = [](const Operand &path, const Operand &) { return read_dirlist(path, kTopOfTree); },
     .code = kListRecursive,
     .execution = Execution::on_files,
     .required = Required::first,
     .prints_result = true},
    {.words = {"find"},
     .grammar = parse_find,
     .banner = "FIND PATH:%s FILE:%s :\n",
     .run = [](const Operand &path, const Operand &pattern) { return findfile(path, pattern.text(), kTopOfTree); },
     .code = kFind,
     .execution = Execution::on_files,
     .required = Required::both,
     .prints_result = true},
    {.words = {"mount"},
     .grammar = parse_mount,
     .banner = "MOUNT:\n",
     .run = on_both<mount_otab>,
     .code = kMount,
     .execution = Execution::on_files,
     .required = Required::both,
     .banner_on_terminal = true},
    {.words = {"umount"},
     .grammar = parse_umount,
     .banner = "UMOUNT:\n",
     .run = on_first<umount_otab>,
     .code = kUmount,
     .execution = Execution::on_files,
     .required = Required::first,
     .banner_on_terminal = true},
    {.words = {"dd", "DD"},
     .grammar = parse_dd,
     .banner = "DD:\n",
     .run = ddfile,
     .code = kDd,
     .execution = Execution::on_files,
     .required = Required::second,
     .banner_on_terminal = true},
    {.words = {"showmount"},
     .grammar = parse_showmount,
     .run = on_first<showMount>,
     .code = kShowMount,
     .prints_result = true},
    {.words = {"restore"}, .grammar = parse_nothing, .run = alone<restore>, .code = kRestore},
    {.words = {"save"}, .grammar = parse_nothing, .run = alone<save>, .code = kSave},
    {.words = {"wnfsenable"}, .grammar = parse_nothing, .run = alone<wnfsenable>, .code = kEnable},
    {.words = {"wnfsdisable"}, .grammar = parse_wnfsdisable, .run = alone<wnfsdisable>, .code = kDisable},
    {.words = {"networkdiscovery"},
     .grammar = parse_networkdiscovery,
     .run = alone<network_discovery>,
     .code = kNetworkDiscovery,
     .prints_result = true},
    {.words = {"iswnfsenabled"},
     .grammar = parse_iswnfsenabled,
     .run = on_first<iswnfsenabled>,
     .code = kIsEnabled,
     .execution = Execution::no_verdict,
     .required = Required::first},
    {.words = {"isPathOnWNFS"},
     .grammar = parse_isPathOnWNFS,
     .run = on_both<isPathOnWNFS>,
     .code = kIsPathOnWnfs,
     .execution = Execution::no_verdict,
     .required = Required::both,
     .words_ignore_case = true},
    {.words = {"createtslnfstab"},
     .grammar = parse_createtslnfstab,
     .run = alone<createtslnfstab>,
     .code = kCreateTslnfstab},
    {.words = {"disablerdma"},
     .grammar = parse_server,
     .run = on_first<disablerdma>,
     .code = kDisableRdma,
     .required = Required::first},
    {.words = {"enablerdma"},
     .grammar = parse_enablerdma,
     .run = on_both<enablerdma>,
     .code = kEnableRdma,
     .required = Required::first},
    {.words = {"enum_local_ips"},
     .grammar = parse_nothing,
     .run = run_addresses<0, 0>,
     .code = kLocalAddresses,
     .prints_result = true},
    {.words = {"getserverlist"},
     .grammar = parse_nothing,
     .run = alone<getserverlist>,
     .code = kGetServerList,
     .prints_result = true},
    {.words = {"mount_script"},
     .grammar = parse_mount_script,
     .run = on_both<mount_script>,
     .code = kMountScript,
     .required = Required::first},
    {.words = {"umount_script"},
     .grammar = parse_umount_script,
     .run = on_first<umount_script>,
     .code = kUmountScript,
     .required = Required::first},
    {.words = {"display_server"},
     .grammar = parse_server,
     .run = on_first<display_server>,
     .code = kDisplayServer,
     .required = Required::first,
     .prints_result = true},
    {.words = {"delete_server"},
     .grammar = parse_server,
     .run = [](const Operand &server, const Operand &) { return delete_server(server.text(), kPrinted); },
     .code = kDeleteServer,
     .required = Required::first},
    {.words = {"getsubnetmask"},
     .grammar = parse_getsubnetmask,
     .run = on_first<getsubnetmask>,
     .code = kGetSubnetMask,
     .required = Required::first,
     .words_ignore_case = true,
     .prints_result = true},
    {.words = {"get_ip_subnet"},
     .grammar = parse_nothing,
     .run = run_addresses<0, 1>,
     .code = kSubnets,
     .prints_result = true},
    {.words = {"get_ip_subnetv4"},
     .grammar = parse_nothing,
     .run = run_addresses<kFamilyV4, 1>,
     .code = kSubnetsV4,
     .prints_result = true},
    {.words = {"get_ip_subnetv6"},
     .grammar = parse_nothing,
     .run = run_addresses<kFamilyV6, 1>,
     .code = kSubnetsV6,
     .prints_result = true},
    {.words = {"enum_local_ipv4"},
     .grammar = parse_nothing,
     .run = run_addresses<kFamilyV4, 0>,
     .code = kLocalAddressesV4,
     .prints_result = true},
    {.words = {"enum_local_ipv6"},
     .grammar = parse_nothing,
     .run = run_addresses<kFamilyV6, 0>,
     .code = kLocalAddressesV6,
     .prints_result = true},
    {.words = {"nfsids"}, .grammar = parse_nfsids, .code = kNoCommand},
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

bool prints_result() {
    if (commandtype == kDd) return offound == 0;
    const Command *command = command_of(commandtype);
    return id_enabled == 1 || (command != nullptr && command->prints_result);
}

const Command *command_of(int32_t code) {
    if (code == kNoCommand) return nullptr;
    const auto *row = std::find_if(std::begin(kCommands), std::end(kCommands),
                                   [&](const Command &command) { return command.code == code; });
    return row != std::end(kCommands) ? row : nullptr;
}
