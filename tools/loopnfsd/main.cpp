// SPDX-License-Identifier: Apache-2.0
// loopnfsd: a small NFS server for trials, tests and benchmarks.
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <utility>

#include "tools/loopnfsd/options.h"
#include "tools/loopnfsd/server.h"
#include "tools/loopnfsd/wire/control.h"

namespace {

using loopnfsd::Options;
using loopnfsd::UniqueFd;

constexpr int kWrongUsage = 2;

int fail(const std::string &problem) {
    std::fprintf(stderr, "loopnfsd: %s\n", problem.c_str());
    return 1;
}

int print(const std::string &text) {
    const bool printed = std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
    return printed ? 0 : fail("cannot write to standard output");
}

// Readable once somebody wants the server to end.
UniqueFd ending_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return UniqueFd(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

void use_all_descriptors() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

int serve(Options options) {
    const UniqueFd ending = ending_signals();
    if (!ending) return fail("cannot wait for signals");
    std::signal(SIGPIPE, SIG_IGN);  // a reader of our output who left must not end the server
    umask(0);                       // modes are the clients' business
    use_all_descriptors();
    loopnfsd::Server server(std::move(options));
    if (const auto problem = server.start(); !problem.empty()) return fail(problem);
    if (const int status = print(server.banner() + '\n'); status != 0) return status;
    server.run_until_readable(ending.get());
    return 0;
}

int send(const Options &options) {
    std::string answer;
    if (!loopnfsd::send_command(options.send_to, options.command, answer)) return fail(answer);
    const int printed = print(answer + '\n');
    return answer.starts_with("error") ? 1 : printed;
}

int run(int count, char **words) {
    Options options;
    if (const auto problem = loopnfsd::parse_options(count, words, options); !problem.empty()) {
        fail(problem + "\nTry \"loopnfsd --help\".");
        return kWrongUsage;
    }
    switch (options.action) {
        case Options::Action::help:
            return print(loopnfsd::help_text());
        case Options::Action::version:
            return print("loopnfsd " TSLWNFS_VERSION "\n");
        case Options::Action::send:
            return send(options);
        case Options::Action::serve:
            break;
    }
    return serve(std::move(options));
}

}  // namespace

int main(int count, char **words) {
    try {
        return run(count, words);
    } catch (const std::exception &problem) {
        return fail(problem.what());
    }
}
