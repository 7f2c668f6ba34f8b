// SPDX-License-Identifier: Apache-2.0
// One server of tslnfstab, as its block of lines describes it, with the defaults of the keys that were not given.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nfstdm {

// A way to reach the server: a host name or address, optionally "host:port" (that port then serves both programs), and
// the local address to bind, empty for any.
struct ServerPath {
    std::string local;
    std::string path;
};

struct ServerExport {
    std::string export_path;
    std::string mount_point;
    std::string security;  // none, sys, krb5, krb5i or krb5p; empty = sys, or what the server offers instead
};

struct ServerConfig {
    std::string name;               // the server key's value; reached under this name when no path is given
    std::vector<ServerPath> paths;  // several: requests are spread over all that answer
    std::vector<ServerExport> exports;
    std::optional<uint32_t> uid;  // identity presented; the process's own when not given
    std::optional<uint32_t> gid;
    uint32_t contact_timeout_seconds = 30;  // mnt_timeout: for the first contact
    uint32_t io_timeout_seconds = 600;      // over all retries and reconnects; 0 = for ever
    uint32_t connections_per_path = 1;      // nconnect, 1 to 16
    uint16_t mount_port = 0;                // mountport, 0 = ask the portmapper
    uint16_t nfs_port = 0;                  // nfsport, 0 = ask the portmapper
    uint16_t rdma_port = 0;                 // rdmaport: read and traced; the transport is TCP
    std::string version;                    // "nfsv3" when empty
    std::string security_default;           // of the exports that have none of their own
    std::string principal_host;             // in the name of its Kerberos service; the server's name when empty
    std::string transport_security;         // "none" when empty
    std::string tls_ca;  // files of RPC over TLS; empty = the system's, none, and that of the certificate
    std::string tls_certificate;
    std::string tls_key;
    unsigned line = 0;    // of the server key in tslnfstab
    std::string problem;  // why the block cannot be used; empty = usable
};

}  // namespace nfstdm
