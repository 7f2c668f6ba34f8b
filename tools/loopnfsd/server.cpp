// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/server.h"

#include <poll.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <functional>
#include <system_error>
#include <utility>

#include "tools/loopnfsd/base/text.h"

namespace loopnfsd {

namespace {

constexpr std::size_t kAroundData = 4096;  // of a WRITE call, and more than any other call needs

}  // namespace

Server::Services::Services(const ExportTable &exports, Faults &faults, Statistics &statistics, const Options &options)
    : tree(exports),
      files(exports, tree, faults, options.service),
      nfs(files),
      nfs4(files, options.version4_settings,
           [&statistics](std::string_view name) { ++statistics.calls[std::string(name)]; }),
      mount(exports, tree, faults, options.groups),
      dispatcher(programs(options), faults, statistics) {}

std::vector<Program *> Server::Services::programs(const Options &options) {
    std::vector<Program *> served;
    if (options.version3) served = {&nfs, &mount};
    if (options.version4) served.push_back(&nfs4);
    if (options.portmap_port) served.push_back(&portmap);
    return served;
}

Server::Server(Options options) : options_(std::move(options)), faults_(options_.seed) {}

std::string Server::start() {
    if (!options_.port_file.empty()) std::remove(options_.port_file.c_str());  // what another server left there
    if (auto problem = open_exports(); !problem.empty()) return problem;
    if (!options_.tls.certificate.empty())
        if (auto problem = tls_.open(options_.tls); !problem.empty()) return problem;
    services_.emplace(exports_, faults_, statistics_, options_);
    if (options_.verbose)
        services_->dispatcher.log_to([](const std::string &line) { std::fprintf(stderr, "%s\n", line.c_str()); });
    for (const Fault &fault : options_.faults)
        add_fault(fault);
    if (auto problem = open_listeners(); !problem.empty()) return problem;
    if (!options_.control.empty()) {
        control_.emplace(loop_, [this](std::string_view line) { return command(line); });
        if (auto problem = control_->open(options_.control); !problem.empty()) return problem;
    }
    return write_port_file();
}

std::string Server::open_exports() {
    for (const ExportOption &each : options_.exports)
        if (auto problem = exports_.add(each.name, each.folder, each.read_only); !problem.empty()) return problem;
    return {};
}

std::string Server::open_listeners() {
    for (std::size_t i = 0; i < options_.addresses.size(); ++i)
        if (auto problem = listen(options_.addresses[i], i); !problem.empty()) return problem;
    for (std::size_t i = 0; options_.portmap_port && i < options_.addresses.size(); ++i)
        if (auto problem = listen({options_.addresses[i].host, *options_.portmap_port}, i); !problem.empty())
            return problem;
    return {};
}

std::string Server::listen(const SocketAddress &address, std::size_t path) {
    Listener &listener = listeners_.emplace_back(loop_, [this, path](UniqueFd socket, std::string client) {
        accept(std::move(socket), std::move(client), path);
    });
    return listener.open(address);
}

void Server::accept(UniqueFd socket, std::string client, std::size_t path) {
    ++statistics_.connections;
    const SocketAddress &local = std::next(listeners_.begin(), static_cast<std::ptrdiff_t>(path))->address();
    const Surroundings surroundings{
        loop_, services_->dispatcher, faults_, statistics_, tls_, options_.service.max_write + kAroundData};
    const auto place = connections_.emplace(connections_.end(), std::nullopt);
    Arrival arrival{static_cast<unsigned>(path + 1), local.port, std::move(client),
                    tls_.is_open() ? Arrival::Tls::offered : Arrival::Tls::none};
    place->emplace(surroundings, std::move(socket), std::move(arrival),
                   [this, place] { loop_.soon([this, place] { connections_.erase(place); }); });
}

std::string Server::banner() const {
    std::string text = "loopnfsd: listening on";
    auto listener = listeners_.begin();
    for (std::size_t i = 0; i < options_.addresses.size(); ++i, ++listener)
        text += (i == 0 ? " " : ", ") + listener->address().text();
    for (const Export &each : exports_.all())
        text += ", export " + each.name + " -> " + each.folder;
    return text;
}

// Into its place at once and as a whole, so that who waits for the file can read it when it is there.
std::string Server::write_port_file() const {
    if (options_.port_file.empty()) return {};
    const std::string beside = options_.port_file + ".new";
    std::ofstream file(beside);
    auto listener = listeners_.begin();
    for (std::size_t i = 0; i < options_.addresses.size(); ++i, ++listener)
        file << listener->address().port << '\n';
    file.close();
    if (file && std::rename(beside.c_str(), options_.port_file.c_str()) == 0) return {};
    return "cannot write " + options_.port_file + ": " + std::generic_category().message(errno);
}

void Server::run_until_readable(int descriptor) {
    bool readable = false;
    loop_.watch(descriptor, POLLIN, [&](short) { readable = true; });
    loop_.run_until([&] { return readable; });
    loop_.forget(descriptor);
    services_->files.store_unstable();
    if (!options_.port_file.empty()) std::remove(options_.port_file.c_str());
}

void Server::add_fault(const Fault &fault) {
    if (fault.kind != FaultKind::forget) return faults_.add(fault);
    faults_.note(FaultKind::forget);  // happens now and is over
    services_->files.forget_unstable();
}

void Server::wake_connections() {
    for (auto &connection : connections_)
        if (connection) connection->wake();
}

std::string Server::fault_command(std::string_view spec) {
    Fault fault;
    const auto problem = parse_fault(spec, fault);
    if (!problem.empty()) return "error: " + problem;
    if (fault.path > options_.addresses.size()) return "error: there is no address " + std::to_string(fault.path);
    add_fault(fault);
    wake_connections();
    return "ok";
}

std::string Server::caller() const {
    const Credentials &who = statistics_.last_caller;
    std::string text =
        "machine=" + who.machine + " uid=" + std::to_string(who.uid) + " gid=" + std::to_string(who.gid) + " groups=";
    for (std::size_t i = 0; i < who.groups.size(); ++i)
        text += (i == 0 ? "" : ",") + std::to_string(who.groups[i]);
    return text;
}

std::string Server::clear_command(std::string_view name) {
    if (!faults_.clear(name)) return "error: there is no fault \"" + std::string(name) + "\"";
    wake_connections();
    return "ok";
}

std::string Server::command(std::string_view line) {
    line = trim(line);
    const auto space = line.find(' ');
    const std::string_view verb = line.substr(0, space);
    const std::string_view rest = space == std::string_view::npos ? std::string_view{} : trim(line.substr(space));
    if (verb == "fault" && !rest.empty()) return fault_command(rest);
    if (verb == "clear") return clear_command(rest);
    if (!rest.empty()) return "error: \"" + std::string(line) + "\" is no command";
    if (auto answer = plain_command(verb); !answer.empty()) return answer;
    if (options_.version4)
        if (auto answer = version4_command(verb); !answer.empty()) return answer;
    return fault_command(verb);
}

std::string Server::plain_command(std::string_view verb) {
    if (verb == "ping") return "ok";
    if (verb == "stats") return statistics_.line(faults_);
    if (verb == "caller") return caller();
    if (verb == "held") return std::to_string(services_->files.unstable_bytes());
    if (verb == "reset-stats") {
        statistics_.reset();
        faults_.reset_counters();
    } else if (verb == "cut") {
        for (auto &connection : connections_)
            if (connection) connection->cut();
    } else {
        return {};
    }
    return "ok";
}

std::string Server::version4_command(std::string_view verb) {
    nfs4::Nfs4Service &nfs4 = services_->nfs4;
    if (verb == "opens") return std::to_string(nfs4.open_count());
    if (verb == "restart")
        nfs4.restart();
    else if (verb == "end-grace")
        nfs4.end_grace();
    else if (verb == "expire")
        nfs4.expire();
    else if (verb == "forget-clients")
        nfs4.forget_clients();
    else if (verb == "lose-sessions")
        nfs4.lose_sessions();
    else
        return {};
    return "ok";
}

}  // namespace loopnfsd
