// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/options.h"

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <string_view>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/portmap/constants.h"
#include "tools/loopnfsd/base/text.h"

namespace loopnfsd {

namespace {

constexpr std::string_view kLoopback = "127.0.0.1";
constexpr std::string_view kUsualExport = "/export";  // of a folder that is given by itself
constexpr uint64_t kTransferMaximum = uint64_t{16} << 20;
constexpr uint64_t kTransferMinimum = 512;

// What is collected before the parts can be put together.
struct Parsed {
    Options &options;
    std::vector<std::string_view> addresses;
    uint16_t port = 0;
};

using Setter = std::string (*)(Parsed &parsed, std::string_view value);  // gives what is wrong with the value

enum class Value { none, needed, optional, two };

struct OptionRow {
    std::string_view name;
    Value value;
    std::string_view argument;
    std::string_view help;
    Setter set;
    Setter set_second = nullptr;  // of two values
};

std::string not_one(std::string_view value, std::string_view what) {
    return "\"" + std::string(value) + "\" is not " + std::string(what);
}

std::string get_port(std::string_view text, uint16_t &port) {
    const auto number = parse_number(text);
    if (!number || *number > std::numeric_limits<uint16_t>::max()) return not_one(text, "a port");
    port = static_cast<uint16_t>(*number);
    return {};
}

std::string get_transfer_size(std::string_view text, uint32_t &size) {
    const auto bytes = parse_bytes(text);
    if (!bytes || *bytes < kTransferMinimum || *bytes > kTransferMaximum)
        return not_one(text, "a size from 512 bytes to 16 MiB");
    size = static_cast<uint32_t>(*bytes);
    return {};
}

std::string set_address(Parsed &parsed, std::string_view value) {
    parsed.addresses.push_back(value);
    return {};
}

std::string set_port(Parsed &parsed, std::string_view value) {
    return get_port(value, parsed.port);
}

std::string set_portmap(Parsed &parsed, std::string_view value) {
    uint16_t port = nfstdm::portmap::kPort;
    auto problem = value.empty() ? std::string{} : get_port(value, port);
    parsed.options.portmap_port = port;
    return problem;
}

std::string set_export(Parsed &parsed, std::string_view value) {
    constexpr std::string_view kReadOnly = ",ro";
    const auto equals = value.find('=');
    if (equals == std::string_view::npos) return not_one(value, "NAME=FOLDER");
    std::string_view folder = value.substr(equals + 1);
    const bool read_only = folder.ends_with(kReadOnly);
    if (read_only) folder.remove_suffix(kReadOnly.size());
    parsed.options.exports.push_back({std::string(value.substr(0, equals)), std::string(folder), read_only});
    return {};
}

std::string set_group(Parsed &parsed, std::string_view value) {
    if (value.empty() || value.size() > nfstdm::mount3::kNameMaximum) return not_one(value, "a group's name");
    parsed.options.groups.emplace_back(value);
    return {};
}

std::string set_fault(Parsed &parsed, std::string_view value) {
    Fault fault;
    auto problem = parse_fault(value, fault);
    parsed.options.faults.push_back(fault);
    return problem;
}

std::string set_control(Parsed &parsed, std::string_view value) {
    parsed.options.control = value;
    return {};
}

std::string set_port_file(Parsed &parsed, std::string_view value) {
    parsed.options.port_file = value;
    return {};
}

std::string set_max_read(Parsed &parsed, std::string_view value) {
    return get_transfer_size(value, parsed.options.service.max_read);
}

std::string set_max_write(Parsed &parsed, std::string_view value) {
    return get_transfer_size(value, parsed.options.service.max_write);
}

std::string set_versions(Parsed &parsed, std::string_view value) {
    Options &options = parsed.options;
    options.version3 = options.version4 = false;
    for (const std::string_view version : split(value, ',')) {
        if (version != "3" && version != "4") return not_one(value, "3, 4 or 3,4");
        (version == "3" ? options.version3 : options.version4) = true;
    }
    return {};
}

std::string set_grace(Parsed &parsed, std::string_view value) {
    constexpr uint64_t kDay = 86400;
    const auto seconds = parse_number(value);
    if (!seconds || *seconds > kDay) return not_one(value, "a number of seconds up to a day");
    parsed.options.version4_settings.grace = std::chrono::seconds(*seconds);
    return {};
}

std::string set_slots(Parsed &parsed, std::string_view value) {
    constexpr uint64_t kSlotsMaximum = 1024;
    const auto slots = parse_number(value);
    if (!slots || *slots == 0 || *slots > kSlotsMaximum) return not_one(value, "a number from 1 to 1024");
    parsed.options.version4_settings.slots = static_cast<uint32_t>(*slots);
    return {};
}

std::string set_copies(Parsed &parsed, std::string_view value) {
    nfs4::CopyOffer &offer = parsed.options.version4_settings.copies;
    for (const std::string_view word : split(value, ',')) {
        if (word != "clone" && word != "copy" && word != "background")
            return not_one(value, "some of clone, copy and background");
        (word == "clone" ? offer.clones : word == "copy" ? offer.at_once : offer.in_background) = true;
    }
    return {};
}

std::string set_hold(Parsed &parsed, std::string_view) {
    parsed.options.service.hold_unstable = true;
    return {};
}

std::string set_check_ids(Parsed &parsed, std::string_view) {
    parsed.options.service.check_ids = true;
    return {};
}

std::string set_no_sync(Parsed &parsed, std::string_view) {
    parsed.options.service.sync = false;
    return {};
}

std::string set_certificate(Parsed &parsed, std::string_view value) {
    parsed.options.tls.certificate = value;
    return {};
}

std::string set_key(Parsed &parsed, std::string_view value) {
    parsed.options.tls.key = value;
    return {};
}

std::string set_client_ca(Parsed &parsed, std::string_view value) {
    parsed.options.tls.client_ca = value;
    return {};
}

std::string set_seed(Parsed &parsed, std::string_view value) {
    const auto seed = parse_number(value);
    parsed.options.seed = seed.value_or(0);
    return seed ? std::string{} : not_one(value, "a number");
}

std::string set_verbose(Parsed &parsed, std::string_view) {
    parsed.options.verbose = true;
    return {};
}

std::string set_send(Parsed &parsed, std::string_view value) {
    parsed.options.action = Options::Action::send;
    parsed.options.send_to = value;
    return {};
}

std::string set_help(Parsed &parsed, std::string_view) {
    parsed.options.action = Options::Action::help;
    return {};
}

std::string set_version(Parsed &parsed, std::string_view) {
    parsed.options.action = Options::Action::version;
    return {};
}

constexpr std::array kOptions{
    OptionRow{"export", Value::needed, "NAME=FOLDER[,ro]", "serve FOLDER under NAME; may be repeated", set_export},
    OptionRow{"group", Value::needed, "NAME", "a group shown with the exports; may be repeated", set_group},
    OptionRow{"address", Value::needed, "ADDR[:PORT]", "listen there (127.0.0.1); may be repeated", set_address},
    OptionRow{"port", Value::needed, "PORT", "of addresses without one; 0 = a free one (0)", set_port},
    OptionRow{"portmap", Value::optional, "[PORT]", "be the portmapper too, on this port (111)", set_portmap},
    OptionRow{"port-file", Value::needed, "FILE", "write the ports to FILE, one a line, once ready", set_port_file},
    OptionRow{"versions", Value::needed, "3,4", "the versions of NFS (3); 4 alone: no MOUNT, no portmapper",
              set_versions},
    OptionRow{"grace", Value::needed, "SECONDS", "of NFSv4 after the command \"restart\" (90)", set_grace},
    OptionRow{"slots", Value::needed, "NUMBER", "of an NFSv4 session (64)", set_slots},
    OptionRow{"copies", Value::needed, "clone,copy,background", "how NFSv4.2 copies by itself (not at all)",
              set_copies},
    OptionRow{"max-read", Value::needed, "BYTES", "largest READ (1M)", set_max_read},
    OptionRow{"max-write", Value::needed, "BYTES", "largest WRITE (1M)", set_max_write},
    OptionRow{"hold-unstable", Value::none, "", "keep unstable data in memory until COMMIT", set_hold},
    OptionRow{"check-ids", Value::none, "", "enforce permissions by the caller's uid and gids", set_check_ids},
    OptionRow{"no-sync", Value::none, "", "leave stable data to the kernel (for benchmarks)", set_no_sync},
    OptionRow{"tls", Value::two, "CERTIFICATE KEY", "offer TLS, and serve NFS by it only", set_certificate, set_key},
    OptionRow{"mtls", Value::needed, "CA", "with --tls: clients need a certificate signed by CA", set_client_ca},
    OptionRow{"fault", Value::needed, "FAULT", "misbehave; may be repeated, see below", set_fault},
    OptionRow{"control", Value::needed, "PATH", "take commands on a Unix socket, see below", set_control},
    OptionRow{"seed", Value::needed, "NUMBER", "of the rubbish that faults make (1)", set_seed},
    OptionRow{"verbose", Value::none, "", "tell every call on standard error", set_verbose},
    OptionRow{"send", Value::needed, "PATH COMMAND...", "send a command to a running server and print its answer",
              set_send},
    OptionRow{"help", Value::none, "", "print this", set_help},
    OptionRow{"version", Value::none, "", "print the version", set_version},
};

// The words in the order they are taken.
class WordsLeft {
  public:
    WordsLeft(int count, char *const *words) : words_(words + std::min(1, count), words + count) {}

    bool empty() const { return next_ == words_.size(); }
    std::string_view peek() const { return empty() ? std::string_view{} : words_[next_]; }
    std::string_view take() { return words_[next_++]; }

  private:
    std::vector<std::string_view> words_;
    std::size_t next_ = 0;
};

// The value of an option: behind "=", or the next word. An optional one is the next word only if that is a number.
std::string take_value(const OptionRow &row, bool given, WordsLeft &words, std::string_view &value) {
    const std::string name = "--" + std::string(row.name);
    if (row.value == Value::none) return given ? name + " takes no value" : "";
    if (given) return {};
    if (row.value == Value::optional) {
        if (parse_number(words.peek())) value = words.take();
        return {};
    }
    if (words.empty()) return name + " needs a value: " + std::string(row.argument);
    value = words.take();
    return {};
}

std::string parse_option(std::string_view word, WordsLeft &words, Parsed &parsed) {
    const auto equals = word.find('=');
    const bool given = equals != std::string_view::npos;
    const std::string_view name = word.substr(2, given ? equals - 2 : equals);
    const auto row = std::ranges::find(kOptions, name, &OptionRow::name);
    if (row == kOptions.end()) return "there is no option " + std::string(word.substr(0, equals));
    std::string_view value = given ? word.substr(equals + 1) : std::string_view{};
    auto problem = take_value(*row, given, words, value);
    if (problem.empty()) problem = row->set(parsed, value);
    if (problem.empty() && row->set_second != nullptr)
        problem = words.empty() ? "--" + std::string(row->name) + " needs two values: " + std::string(row->argument)
                                : row->set_second(parsed, words.take());
    if (!problem.empty() && !problem.starts_with("--")) problem.insert(0, "--" + std::string(row->name) + ": ");
    return problem;
}

std::string parse_address(std::string_view text, uint16_t usual_port, SocketAddress &address) {
    address.port = usual_port;
    if (text.starts_with('[')) {
        const auto end = text.find(']');
        if (end == std::string_view::npos) return not_one(text, "an address");
        address.host = text.substr(1, end - 1);
        const std::string_view rest = text.substr(end + 1);
        if (rest.empty()) return {};
        return rest.front() == ':' ? get_port(rest.substr(1), address.port) : not_one(text, "an address");
    }
    const auto colon = text.find(':');
    const bool has_port = colon != std::string_view::npos && colon == text.rfind(':');  // else IPv6, bare
    address.host = has_port ? text.substr(0, colon) : text;
    return has_port ? get_port(text.substr(colon + 1), address.port) : "";
}

std::string finish(Parsed &parsed) {
    Options &options = parsed.options;
    if (options.action != Options::Action::serve) return {};
    if (!options.tls.client_ca.empty() && options.tls.certificate.empty()) return "--mtls needs --tls";
    if (options.exports.empty()) return "which folder is to be served?";
    if (options.portmap_port && !options.version3) return "--portmap: NFS version 4 alone is found without";
    if (parsed.addresses.empty()) parsed.addresses.push_back(kLoopback);
    for (const std::string_view text : parsed.addresses) {
        SocketAddress address;
        const auto problem = parse_address(text, parsed.port, address);
        if (!problem.empty()) return "--address: " + problem;
        options.addresses.push_back(address);
    }
    for (const Fault &fault : options.faults)
        if (fault.path > options.addresses.size()) return "--fault: there is no address " + std::to_string(fault.path);
    return {};
}

std::string indent(std::string_view left, std::string_view right) {
    constexpr std::size_t kColumn = 36;
    std::string line = "  " + std::string(left);
    line += line.size() < kColumn - 1 ? std::string(kColumn - line.size(), ' ') : "\n" + std::string(kColumn, ' ');
    return line + std::string(right) + '\n';
}

}  // namespace

std::string parse_options(int count, char *const *words, Options &options) {
    Parsed parsed{options, {}, 0};
    WordsLeft left(count, words);
    while (!left.empty()) {
        std::string_view word = left.take();
        if (options.action == Options::Action::send) {  // the rest is the command
            options.command.append(options.command.empty() ? "" : " ").append(word);
            continue;
        }
        if (word == "-h") word = "--help";
        if (word.starts_with("--")) {
            auto problem = parse_option(word, left, parsed);
            if (!problem.empty()) return problem;
        } else if (word.starts_with('-')) {
            return "there is no option " + std::string(word);
        } else {
            options.exports.push_back({std::string(kUsualExport), std::string(word), false});
        }
    }
    return finish(parsed);
}

std::string help_text() {
    std::string text =
        "Usage: loopnfsd [OPTION]... [FOLDER]\n"
        "Serves FOLDER (as /export) over NFS version 3 or 4 on a TCP port of loopback, until it gets SIGTERM or "
        "SIGINT.\n"
        "Once ready it prints where: \"loopnfsd: listening on 127.0.0.1:PORT, export EXPORT -> FOLDER\".\n\n";
    for (const OptionRow &row : kOptions) {
        const std::string_view space = row.value == Value::none ? "" : " ";
        text += indent("--" + std::string(row.name) + std::string(space) + std::string(row.argument), row.help);
    }
    text +=
        "\nFaults (PROC is a procedure such as READ, CREATE, MNT, or * for any; COUNT may be *, without end;\n"
        "\"@2\" behind a fault limits it to the second --address):\n";
    for (const FaultRow &row : fault_rows())
        text += indent(std::string(row.name) + std::string(row.argument), row.help);
    text +=
        "\nCommands of the control: a fault, or \"clear [NAME]\", \"stats\", \"reset-stats\", \"caller\", \"held\", "
        "\"cut\",\n"
        "\"ping\"; of NFSv4 \"restart\", \"end-grace\", \"expire\", \"forget-clients\", \"lose-sessions\", "
        "\"opens\".\nEach is answered with one line: \"ok\", what was asked for, or \"error: ...\".\n";
    return text;
}

}  // namespace loopnfsd
