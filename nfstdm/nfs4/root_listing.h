// SPDX-License-Identifier: Apache-2.0
// What a server that speaks NFSv4 shows in its root: such a server has no list of exports, which stand somewhere below.
#pragma once

#include <memory>
#include <string>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/base/trace.h"
#include "nfstdm/nfs4/nfs4_volume.h"
#include "nfstdm/volume/server_config.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm::nfs4 {

// "the server's root holds: ...", its directories alone, asked over a session of its own.
class RootQuestion {
  public:
    // server is used as it would be for a mount, its limits of time included. done is called once, from the loop,
    // unless the question is destroyed first.
    RootQuestion(EventLoop &loop, const ServerConfig &server, Completion<std::string> done);
    ~RootQuestion();
    RootQuestion(const RootQuestion &) = delete;
    RootQuestion &operator=(const RootQuestion &) = delete;

  private:
    void attached(const Result<FileHandle> &root);
    void listed(Result<DirectoryReply> reply);
    void finish(const Result<std::string> &result);

    const Trace trace_;
    Exports exports_;
    Completion<std::string> done_;
    std::unique_ptr<Volume> volume_;
};

}  // namespace nfstdm::nfs4
