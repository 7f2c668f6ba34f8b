// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/options/options.h"

#include "tslwnfs/options/server_block.h"

namespace {
constexpr int32_t kDefaultDepth = 50;       // levels
constexpr int32_t kDefaultRequest = 32768;  // bytes
constexpr int32_t kDefaultSlots = 128;      // requests
constexpr int32_t kDefaultPerCall = 1;      // requests
constexpr int32_t kDefaultWaits = 8;        // completions
}  // namespace

const char *command_word;
int32_t commandtype;
uint32_t COMMAND_OPTION;
const char *fname;
const char *fname1;

int32_t DIR_LTYPE;
uint8_t DIR_SHOWDOT;
int32_t DIR_LTIMETYPE;

int32_t find_maxdepth_n;
int32_t maxdepth = kDefaultDepth;
const char *find_path_pattern;
int32_t find_size_size;
int32_t find_size_lsize;
int32_t find_size_gsize;
char find_type_c;
char **find_exec_cmdptr;
int32_t find_exec_cmdsize;

int32_t IBS, OBS, BS, COUNT, SEEK, SKIP;
int32_t iffound, offound;
int32_t parallel;

const char *stat_fmtptr;

int32_t deletetslnfstab, deletetdmdir;

int32_t pass_flag;
int32_t id_enabled;

int32_t discovery_flag;
char network_discovery_name[100];

uint32_t kgtdm_trace, nfcore_trace, snfcore_trace;
int32_t nfcore_mask;
int32_t trace_enabled, log_enabled;
int32_t redirect_out;

char tsl_home[260], tsl_ohome[260];
int32_t ip_type;

void *ctx;
uint32_t pbsz;

int32_t bsize = kDefaultRequest;
int32_t nios = kDefaultSlots;
int32_t cios = kDefaultPerCall;
int32_t wios = kDefaultWaits;

ServerBlock new_sinfo;
ServerBlock tab_info;

namespace {

void reset_command() {
    command_word = nullptr;
    commandtype = kNoCommand;
    COMMAND_OPTION = 0;
    fname = fname1 = nullptr;
    DIR_LTYPE = DIR_LTIMETYPE = 0;
    DIR_SHOWDOT = 0;
    stat_fmtptr = nullptr;
    deletetslnfstab = deletetdmdir = 0;
    pass_flag = id_enabled = discovery_flag = 0;
    network_discovery_name[0] = '\0';
    new_sinfo = {};
    tab_info = {};
}

void reset_find() {
    maxdepth = kDefaultDepth;
    find_maxdepth_n = find_size_size = find_size_lsize = find_size_gsize = 0;
    find_path_pattern = nullptr;
    find_type_c = '\0';
    find_exec_cmdptr = nullptr;
    find_exec_cmdsize = 0;
}

void reset_dd() {
    IBS = OBS = BS = COUNT = SEEK = SKIP = 0;
    iffound = offound = parallel = 0;
    bsize = kDefaultRequest;
    nios = kDefaultSlots;
    cios = kDefaultPerCall;
    wios = kDefaultWaits;
}

void reset_session() {
    kgtdm_trace = nfcore_trace = snfcore_trace = 0;
    nfcore_mask = trace_enabled = log_enabled = redirect_out = 0;
    tsl_home[0] = tsl_ohome[0] = '\0';
    ip_type = 0;
    ctx = nullptr;
    pbsz = 0;
    reset_product_context();
}

}  // namespace

void reset_options() {
    reset_command();
    reset_find();
    reset_dd();
    reset_session();
}
