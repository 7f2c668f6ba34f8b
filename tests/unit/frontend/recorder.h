// SPDX-License-Identifier: Apache-2.0
// What the stand-ins below the front end saw, and what they are told to answer.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

struct Recorder {
    std::vector<std::string> calls;                       // "name(arguments)", in order
    std::map<std::string, std::deque<uint32_t>> answers;  // by function, used up in order; 0 afterwards
    std::vector<std::string> listing;                     // of every directory
    std::set<std::string> unresolvable;                   // operands that cannot be resolved
    std::set<std::string> directories;                    // destinations that are directories
    std::set<std::string> remote;                         // paths that lie on a server
    std::map<std::string, bool> existing;                 // what is looked at; true for a directory
    std::vector<std::string> mount_points;                // of the configuration
    std::vector<std::string> expected;                    // "what path" of files that the library is told of
    bool allowed = true;                                  // the caller may use the utility
    bool has_identity = true;
    std::function<void()> on_failure = [] {};  // done by a call that is told to fail

    // Notes a call and gives the next answer of its function.
    uint32_t call(const std::string &function, const std::string &arguments = "") {
        calls.push_back(function + "(" + arguments + ")");
        auto &queue = answers[function];
        if (queue.empty()) return 0;
        const uint32_t answer = queue.front();
        queue.pop_front();
        if (answer != 0) on_failure();
        return answer;
    }
};

Recorder &recorder();
