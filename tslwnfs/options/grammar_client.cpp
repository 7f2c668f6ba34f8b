// SPDX-License-Identifier: Apache-2.0
// Grammars of the commands on the client and the network.
#include <cstdio>
#include <cstring>

#include "tslwnfs/options/grammar.h"
#include "tslwnfs/options/option_words.h"
#include "tslwnfs/options/options.h"

ParseOutcome parse_showmount(Words &words) {
    bool options = false;
    while (words.at_option()) {
        const char *letters = words.take() + 1;
        if (letters[std::strspn(letters, "eE")] != '\0') return ParseOutcome::usage;
        options = true;
    }
    fname = words.take();
    return options && fname == nullptr ? ParseOutcome::usage : ParseOutcome::accepted;
}

ParseOutcome parse_wnfsdisable(Words &words) {
    while (words.at_option()) {
        if (words.take_if("-deletetslnfstab")) {
            deletetslnfstab = 1;
        } else if (words.take_if("-deletetdmdir")) {
            deletetdmdir = 1;
        } else {
            return ParseOutcome::usage;
        }
    }
    return ParseOutcome::accepted;
}

ParseOutcome parse_iswnfsenabled(Words &words) {
    return take_operands(words, 1);
}

ParseOutcome parse_isPathOnWNFS(Words &words) {
    const ValueOption options[] = {{"-oh", &fname}, {"-path", &fname1}};
    const ParseOutcome outcome = take_value_options(words, options);
    const bool complete = fname != nullptr && fname1 != nullptr;
    return outcome == ParseOutcome::accepted && !complete ? ParseOutcome::usage : outcome;
}

// A longer name is cut to the buffer.
ParseOutcome parse_networkdiscovery(Words &words) {
    const char *name = words.take();
    if (name != nullptr) {
        discovery_flag = 1;
        std::snprintf(network_discovery_name, sizeof network_discovery_name, "%s", name);
    }
    return ParseOutcome::accepted;
}

ParseOutcome parse_getsubnetmask(Words &words) {
    const ValueOption options[] = {{"-ip", &fname}};
    const ParseOutcome outcome = take_value_options(words, options);
    return outcome == ParseOutcome::accepted && fname == nullptr ? ParseOutcome::usage : outcome;
}
