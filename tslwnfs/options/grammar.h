// SPDX-License-Identifier: Apache-2.0
// The grammars of the commands. Each reads the words behind its command word into the option state. Those that read
// from fixed positions count from the start of the line, whatever global options came before.
#pragma once

#include <cstdint>
#include <span>

#include "tslwnfs/options/words.h"

using Grammar = ParseOutcome (*)(Words &words);

ParseOutcome parse_nothing(Words &words);
ParseOutcome parse_help(Words &words);
ParseOutcome parse_nfsids(Words &words);

// Files and directories
ParseOutcome parse_two_files(Words &words);  // copy, move: letters i and r, two operands
ParseOutcome parse_delete(Words &words);     // letters i and r, one operand
ParseOutcome parse_one_path(Words &words);   // option words without meaning, one operand
ParseOutcome parse_mkdir(Words &words);
ParseOutcome parse_stat(Words &words);
ParseOutcome parse_list(Words &words);
ParseOutcome parse_find(Words &words);
ParseOutcome parse_dd(Words &words);

// Configuration, fixed positions
ParseOutcome parse_mount(Words &words);
ParseOutcome parse_umount(Words &words);
ParseOutcome parse_createtslnfstab(Words &words);
ParseOutcome parse_server(Words &words);  // -s SERVER
ParseOutcome parse_enablerdma(Words &words);
ParseOutcome parse_mount_script(Words &words);
ParseOutcome parse_umount_script(Words &words);

// Client and network
ParseOutcome parse_showmount(Words &words);
ParseOutcome parse_wnfsdisable(Words &words);
ParseOutcome parse_iswnfsenabled(Words &words);
ParseOutcome parse_isPathOnWNFS(Words &words);
ParseOutcome parse_networkdiscovery(Words &words);
ParseOutcome parse_getsubnetmask(Words &words);
