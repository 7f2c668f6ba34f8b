// SPDX-License-Identifier: Apache-2.0
// A copy between two files that their server makes (RFC 7862 section 4): by sharing the blocks where its file system
// can (CLONE), else by copying them (COPY), at once or in the background. A copy counts when it is on stable storage.
#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "nfstdm/nfs4/arguments.h"
#include "nfstdm/nfs4/call.h"
#include "nfstdm/nfs4/opens.h"
#include "nfstdm/nfs4/replies.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm::nfs4 {

// What an export turned out to offer of what a server need not have.
struct Abilities {
    bool sets_modes = true;
    bool clones = true;
    bool copies = true;
    bool copies_at_once = true;
    bool seeks = true;
    bool reads_unopened = true;
};

// One copy. It lives as long as a call of it is under way: made and begun by begin_server_copy() below.
class ServerCopy : public std::enable_shared_from_this<ServerCopy> {
  public:
    struct File {
        Opens &opens;
        FileHandle handle;
    };
    // new_call gives a call of the destination's export with nothing in it yet, start sends one.
    struct Means {
        std::function<std::unique_ptr<Call>(std::string_view name)> new_call;
        std::function<void(std::unique_ptr<Call>)> start;
        Abilities &abilities;
    };

    ServerCopy(File source, File destination, const CopyRange &range, Means means, Completion<CopyReply> done);

    // A copy of more is made in parts of this many bytes, so that it is seen to go on.
    static constexpr uint64_t kPart = uint64_t{64} << 20;

    void begin();

  private:
    void open_files();
    void choose();
    void clone();
    void copy();
    void copied();
    void watch();
    void commit();
    void committed();

    using Put = std::function<void(Compound &, const CopyArguments &)>;
    using Read = std::function<bool(Results &)>;
    void ask(Op op, const Put &put, Read read, void (ServerCopy::*then)());
    bool refused(Op op, NfsStatus status);
    bool is_durable() const;
    void try_again(const Status &failure);

    const File source_;
    const File destination_;
    const CopyRange range_;
    const Means means_;
    const Completion<CopyReply> done_;
    StateId source_state_;
    StateId destination_state_;
    CopyAnswer answer_;
    OffloadReply progress_;
    CommitReply commit_;
    unsigned attempts_ = 0;
    unsigned disappearances_ = 0;  // of a copy in the background
};

}  // namespace nfstdm::nfs4
