// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/usage.h"

#include "platform/banner.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"

namespace {

constexpr MessageOf<> kUsageMessages[] = {
    Message::usage_header,      Message::usage_general,    Message::usage_files,
    Message::usage_directories, Message::usage_attributes, Message::usage_configuration,
    Message::usage_mounts,      Message::usage_client,     Message::usage_network,
};

// Fixed texts, odd spelling and line ends included.
constexpr const char *kHelpLines[] = {
    "TSLWNFS Helper Utility performs remote file operations using Tessel Wren NFS Client.",
    ("For information on Wren NFS Client, and for detailed description of TSLNWNFS options, please consult the 4kR3 "
     "Database Installation Manual for Microsoft Windows.\n\n"),
    "NOTE: For TSLWNFS to operate, tslnfstab configuration file must be present in TesselHome\\dbs directory. \n",
};

// Fixed texts too: "c" is announced although it is refused, and the last line ends in a line feed and a blank.
constexpr const char *kDdHelpLines[] = {
    "dd [-if <value>,-of <value>,-obs <value>,-ibs<value>,-bs <value>,-count <value>,-seek<value>,-skip <value>] \n",
    "Convert and copy a file via Wren NFS \n\n",
    "Options \n\n",
    "-bs BYTES \t force ibs=BYTES and obs=BYTES \n",
    "-count BLOCKS \t copy only BLOCKS input blocks  \n",
    "-ibs BYTES \t read BYTES bytes at a time\n",
    "-if FILE \t read from FILE instead of stdin\n",
    "-obs BYTES \t write BYTES bytes at a time\n",
    "-of FILE \t write to FILE instead of stdout\n",
    "-seek N \t skip N obs-sized blocks at start of output\n",
    "-skip N\tskip N ibs-sized blocks at start of input\n\n",
    "BLOCKS and BYTES may be followed by the following multiplicative suffixes:\n",
    "c (1 byte), w (2 bytes), b (512 bytes), KB (1000 bytes),\n",
    "K (1024 bytes), MB (1000*1000 bytes), M (1024*1024 bytes),\n",
    "GB (1000*1000*1000 bytes), G (1024*1024*1024 bytes)\n ",
};

}  // namespace

void print_usage() {
    lwrf("%s", platform_banner("TSLWNFS").c_str());
    for (const MessageOf<> message : kUsageMessages)
        lwrf("%s", message_text(message).c_str());
}

void print_help() {
    print_usage();
    for (const char *line : kHelpLines)
        lwrf("%s", line);
}

void print_dd_help() {
    lwrf("%s", message_text(Message::usage_header).c_str());
    for (const char *line : kDdHelpLines)
        lwrf("%s", line);
}
