// SPDX-License-Identifier: Apache-2.0
// The option state: what the command line said, written by the parser and by start-up, read by the commands.
// Each variable is defined once, in options.cpp; reset_options() gives all of them their defaults again.
#pragma once

#include <cstdint>

#include "tslwnfs/output/product_context.h"

// What a run does; 4 and 6 are never produced by the command line.
enum CommandCode : int32_t {
    kNoCommand = 0,
    kCopy = 1,
    kDelete = 2,
    kCat = 3,
    kStorageProperties = 4,
    kMove = 5,
    kMakeDirectory = 7,
    kRemoveDirectory = 8,
    kGetAttributes = 9,
    kSetAttributes = 10,
    kFsStat = 11,
    kFsInfo = 12,
    kList = 13,
    kListRecursive = 14,
    kFind = 15,
    kMount = 16,
    kUmount = 17,
    kDd = 18,
    kShowMount = 19,
    kRestore = 20,
    kSave = 21,
    kEnable = 22,
    kDisable = 23,
    kNetworkDiscovery = 24,
    kIsEnabled = 25,
    kIsPathOnWnfs = 26,
    kCreateTslnfstab = 27,
    kDisableRdma = 28,
    kEnableRdma = 29,
    kLocalAddresses = 30,
    kGetServerList = 31,
    kMountScript = 32,
    kUmountScript = 33,
    kDisplayServer = 34,
    kDeleteServer = 35,
    kGetSubnetMask = 36,
    kSubnets = 37,
    kSubnetsV4 = 38,
    kSubnetsV6 = 39,
    kLocalAddressesV4 = 40,
    kLocalAddressesV6 = 41,
};

// Bits of COMMAND_OPTION. What a bit means depends on the command, so a bit is tested together with commandtype.
enum OptionBit : uint32_t {
    kFileInteractive = 0x1,  // copy, delete, move
    kFileRecursive = 0x2,    // copy, delete, move
    kMkdirParents = 0x1,
    kStatFigures = 0x1,
    kStatFollow = 0x2,
    kStatFormat = 0x4,
    kListDirectoriesOnly = 0x1,
    kListTime = 0x2,
    kListRecursiveBit = 0x4,
    kListReverse = 0x8,
    kListSize = 0x10,
    kFindFollow = 0x1,
    kFindMaxdepth = 0x2,
    kFindPath = 0x4,
    kFindSize = 0x10,
    kFindSizeAtMost = 0x20,
    kFindSizeAtLeast = 0x40,
    kFindType = 0x80,
    kFindExec = 0x100,
    kFindPrint = 0x200,
    kDdBs = 0x1,
    kDdCount = 0x2,
    kDdIbs = 0x4,
    kDdIf = 0x8,
    kDdObs = 0x10,
    kDdOf = 0x20,
    kDdSeek = 0x40,
    kDdSkip = 0x80,
};

extern const char *command_word;  // by which the command was called, or null; points into the argument vector
extern int32_t commandtype;       // a CommandCode
extern uint32_t COMMAND_OPTION;   // OptionBits of that command

inline bool has_option(OptionBit bit) {
    return (COMMAND_OPTION & bit) != 0;
}

extern const char *fname;   // first operand, or null; points into the argument vector or to a fixed text
extern const char *fname1;  // second operand, or null

// ls and dir
extern int32_t DIR_LTYPE;      // layout: 0 a name a line, 1 three columns, 2 long
extern uint8_t DIR_SHOWDOT;    // 1 = names that begin with a dot are shown
extern int32_t DIR_LTIMETYPE;  // time of the long layout: 0 modification, 1 status change, 2 access

// find
extern int32_t find_maxdepth_n;
extern int32_t maxdepth;  // levels find walks; 50 unless -maxdepth was given
extern const char *find_path_pattern;
extern int32_t find_size_size;   // bytes, exactly
extern int32_t find_size_lsize;  // bytes, at most
extern int32_t find_size_gsize;  // bytes, at least
extern char find_type_c;
extern char **find_exec_cmdptr;    // the words after -exec, in the argument vector
extern int32_t find_exec_cmdsize;  // their number

// dd; sizes and offsets in bytes
extern int32_t IBS, OBS, BS, COUNT, SEEK, SKIP;
extern int32_t iffound, offound;  // 1 = -if, -of was given
extern int32_t parallel;          // -p

extern const char *stat_fmtptr;

extern int32_t deletetslnfstab, deletetdmdir;  // wnfsdisable

extern int32_t pass_flag;   // 1 = the last word is "-y"
extern int32_t id_enabled;  // 1 = nfsids

extern int32_t discovery_flag;  // 1 = networkdiscovery was given a name
extern char network_discovery_name[100];

extern uint32_t kgtdm_trace, nfcore_trace, snfcore_trace;  // trace levels 0 to 4
extern int32_t nfcore_mask;
extern int32_t trace_enabled, log_enabled;
extern int32_t redirect_out;  // 1 = the log file is closed before the command runs

extern char tsl_home[260], tsl_ohome[260];  // the installation home, at most 259 characters
extern int32_t ip_type;                     // address family the address commands show: 2, 10 or 0 for both

// The storage session
extern void *ctx;
extern uint32_t pbsz;  // block size to whose multiples sizes are padded

// Transfer settings
extern int32_t bsize;  // bytes a request
extern int32_t nios;   // request slots of a transfer
extern int32_t cios;   // requests a tdm_io call
extern int32_t wios;   // completions dd waits for at once

void reset_options();
