// SPDX-License-Identifier: Apache-2.0
// The way to an export's root: the server's ports, from its block or its portmapper, then MOUNT.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "nfstdm/base/scoped.h"
#include "nfstdm/base/status.h"
#include "nfstdm/nfs3/mount.h"
#include "nfstdm/remote/server.h"
#include "nfstdm/remote/version_question.h"
#include "nfstdm/rpc/client.h"

namespace nfstdm::nfs3 {

struct Contacted {
    mount3::MountReply export_reply;
    remote::Ports ports;
};

// One attempt. done is called once, from the loop, unless the contact is destroyed first; then never.
class Contact {
  public:
    // server must outlive the contact; deadline is when the attempt has failed.
    Contact(remote::Server &server, std::string export_path, std::shared_ptr<rpc::Authenticator> authenticator,
            EventLoop::Clock::time_point deadline, std::function<void(Result<Contacted>)> done);

    void start();

    // What is left until the deadline, never quite nothing: a limit of 0 would be none.
    rpc::Duration left() const;

  private:
    void ask_ports();
    void doubt_silent(const rpc::Client &program);
    void port_known(uint16_t &port, const Result<uint16_t> &answer);
    void mount();
    void mounted(Result<mount3::MountReply> reply);
    void fail(const Status &why);
    void ask_version(std::function<void(bool v4_only)> answered);
    void fail_for_version();
    void finish(Result<Contacted> result);

    remote::Server &server_;
    const std::string export_path_;
    const std::shared_ptr<rpc::Authenticator> authenticator_;
    const EventLoop::Clock::time_point deadline_;
    std::function<void(Result<Contacted>)> done_;
    remote::Ports ports_;
    unsigned questions_ = 0;  // to the portmapper, unanswered
    Status port_failure_;
    std::unique_ptr<rpc::Client> portmapper_;
    std::unique_ptr<rpc::Client> mounter_;
    std::unique_ptr<remote::VersionQuestion> version_question_;
    ScopedTimer silence_;  // of the portmapper or MOUNT
};

}  // namespace nfstdm::nfs3
