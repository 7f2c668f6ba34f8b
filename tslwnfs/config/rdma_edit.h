// SPDX-License-Identifier: Apache-2.0
// What enablerdma and disablerdma make of a configuration. Only lines inside blocks are looked at, and nothing behind
// the first change; every line that stays is kept byte for byte.
#pragma once

#include <string>
#include <string_view>

struct RdmaEdit {
    std::string file;
    bool matched = false;  // a block holds a line of the server
    bool done = false;     // the wanted state was reached
};

// Adds a port line just ahead of the end marker of the server's block. A port line behind the server line stays as it
// is, and so does the file; one ahead of the server line is not seen.
RdmaEdit with_rdma_port(std::string_view file, std::string_view server, std::string_view port);

// Leaves out the first port line behind the server line, in whichever block that stands: a server without a port takes
// the port of the next block that has one.
RdmaEdit without_rdma_port(std::string_view file, std::string_view server);
