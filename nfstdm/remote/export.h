// SPDX-License-Identifier: Apache-2.0
// An export as every version of NFS is attached to it and leaves it: who waits for that, what they are told, and what
// the trace says. How the server is asked is the version's.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "nfstdm/base/scoped.h"
#include "nfstdm/base/status.h"
#include "nfstdm/remote/server.h"
#include "nfstdm/volume/server_config.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm::remote {

class Export : public Volume {
  public:
    void attach(Completion<FileHandle> done) override;

  protected:
    // server must outlive the object. What is derived from this calls close() in its destructor.
    Export(Server &server, ServerExport share);

    // One attempt to reach the export. It ends with attached() or not_attached(), unless end_all() comes first.
    virtual void contact() = 0;
    // Gives back what an attempt, or an export that is attached, uses of its server.
    virtual void let_go() = 0;
    // Ends the attempt and the operations under way with a failure, and lets go of the server.
    virtual void end_all(const Status &why) = 0;

    // The last step of every attempt. Who waits for it may destroy the volume.
    void attached(const FileHandle &root, const std::string &how = {});
    void not_attached(const Status &why);

    bool is_attached() const { return state_ == State::attached; }
    const FileHandle &root() const { return root_; }

    // Ends everything under way, also an attach or a detach, with no_longer_used().
    void close();
    // The export counts as left, though saying so to the server is still under way: done is called by left().
    void leave(DoneCompletion done);
    void left();
    // There is nobody to say good-bye to.
    void leave_at_once(DoneCompletion done);

    EventLoop &loop() const { return server_.loop(); }
    const ServerExport &share() const { return share_; }
    // The security that tslnfstab asks for; empty when it leaves that open.
    const std::string &wanted() const;
    // A failure that this side found, with the server's name in front.
    Status in_context(const Status &status) const { return status.in("server " + server_.name()); }
    Status no_longer_used() const;
    Status not_attached_for(std::string_view operation) const;

    Lifeline life_;

  private:
    enum class State : uint8_t { detached, attaching, attached };

    void begin();
    void end_attempt(const Result<FileHandle> &result, const std::string &words);

    Server &server_;
    const ServerExport share_;
    State state_ = State::detached;
    FileHandle root_;
    std::vector<Completion<FileHandle>> attaching_;  // who waits for the attach under way
    DoneCompletion leaving_;                         // who waits for the detach under way
};

}  // namespace nfstdm::remote
