// SPDX-License-Identifier: Apache-2.0
// The server as a whole: what listens, what is served, what it is told while it runs.
#pragma once

#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nfstdm/base/event_loop.h"
#include "tools/loopnfsd/nfs/mount.h"
#include "tools/loopnfsd/nfs/nfs.h"
#include "tools/loopnfsd/nfs/portmap.h"
#include "tools/loopnfsd/nfs4/nfs4.h"
#include "tools/loopnfsd/options.h"
#include "tools/loopnfsd/wire/connection.h"
#include "tools/loopnfsd/wire/control.h"
#include "tools/loopnfsd/wire/listener.h"

namespace loopnfsd {

class Server {
  public:
    explicit Server(Options options);

    // Opens everything. Gives what is wrong, or nothing.
    std::string start();

    // The line that tells where the server can be reached.
    std::string banner() const;

    // Serves until a descriptor becomes readable.
    void run_until_readable(int descriptor);

    // Executes a command of the control and gives its answer.
    std::string command(std::string_view line);

  private:
    // What depends on the exports, and so is made once those are open.
    struct Services {
        Services(const ExportTable &exports, Faults &faults, Statistics &statistics, const Options &options);

        Tree tree;
        SharedFiles files;
        NfsService nfs;
        nfs4::Nfs4Service nfs4;
        MountService mount;
        PortmapService portmap;
        std::vector<Program *> programs(const Options &options);
        Dispatcher dispatcher;
    };
    std::string open_exports();
    std::string open_listeners();
    std::string listen(const SocketAddress &address, std::size_t path);
    std::string write_port_file() const;
    void accept(UniqueFd socket, std::string client, std::size_t path);
    void add_fault(const Fault &fault);
    void wake_connections();
    std::string fault_command(std::string_view spec);
    std::string clear_command(std::string_view name);
    std::string plain_command(std::string_view verb);     // empty: none
    std::string version4_command(std::string_view verb);  // empty: none
    std::string caller() const;

    Options options_;
    nfstdm::EventLoop loop_;
    Faults faults_;
    Statistics statistics_;
    TlsService tls_;
    ExportTable exports_;
    std::optional<Services> services_;
    std::list<std::optional<Connection>> connections_;  // without one: its place until it is made
    std::list<Listener> listeners_;                     // those of the addresses first, in their order
    std::optional<Control> control_;
};

}  // namespace loopnfsd
