// SPDX-License-Identifier: Apache-2.0
// A Unix socket that takes commands, one a line, and answers each with one line.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "nfstdm/base/event_loop.h"
#include "tools/loopnfsd/base/unique_fd.h"

namespace loopnfsd {

class Control {
  public:
    using Command = std::function<std::string(std::string_view line)>;  // gives the answer, without the end of line

    // The loop must outlive the control.
    Control(nfstdm::EventLoop &loop, Command command) : loop_(loop), command_(std::move(command)) {}
    ~Control();
    Control(const Control &) = delete;
    Control &operator=(const Control &) = delete;

    // Makes the socket, in the place of one that a server left behind. Gives what is wrong, or nothing.
    std::string open(const std::string &path);

  private:
    struct Client {
        UniqueFd socket;
        std::string input;
    };
    void accept();
    void receive(int descriptor);
    bool obey(Client &client);
    void close(int descriptor);

    nfstdm::EventLoop &loop_;
    Command command_;
    std::string path_;
    UniqueFd socket_;
    std::map<int, Client> clients_;
};

// The other end: sends one command to the server at path and gives its answer; false, and the reason, when it cannot.
bool send_command(const std::string &path, const std::string &command, std::string &answer);

}  // namespace loopnfsd
