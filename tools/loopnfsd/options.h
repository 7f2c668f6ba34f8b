// SPDX-License-Identifier: Apache-2.0
// The command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/loopnfsd/faults/fault_spec.h"
#include "tools/loopnfsd/files/shared_files.h"
#include "tools/loopnfsd/nfs4/nfs4.h"
#include "tools/loopnfsd/wire/listener.h"
#include "tools/loopnfsd/wire/stream.h"

namespace loopnfsd {

struct ExportOption {
    std::string name;
    std::string folder;
    bool read_only = false;
};

struct Options {
    enum class Action { serve, help, version, send };

    Action action = Action::serve;
    std::vector<SocketAddress> addresses;  // at least one
    std::optional<uint16_t> portmap_port;
    std::vector<ExportOption> exports;
    std::vector<std::string> groups;
    std::vector<Fault> faults;
    ServiceSettings service;
    TlsFiles tls;
    bool version3 = true;  // with MOUNT, and the portmapper when asked for
    bool version4 = false;
    nfs4::Settings version4_settings;
    std::string control;    // path; empty = none
    std::string port_file;  // path; empty = none
    uint64_t seed = 1;
    bool verbose = false;
    std::string send_to;  // of the action send: path and command
    std::string command;
};

// Gives what is wrong with the command line, or nothing and the options.
std::string parse_options(int count, char *const *words, Options &options);

std::string help_text();

}  // namespace loopnfsd
