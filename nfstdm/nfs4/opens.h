// SPDX-License-Identifier: Apache-2.0
// The files that an export holds open on its server: opened when they are first read or written, by handle, or as they
// are made; closed when nobody here holds them any more; asked for again when the server has lost them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "nfstdm/base/scoped.h"
#include "nfstdm/nfs4/session.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm::nfs4 {

class Opens : public StateHolder {
  public:
    using NewCall = std::function<std::unique_ptr<Call>(std::string_view name)>;
    using Start = std::function<void(std::unique_ptr<Call>)>;

    // session must outlive the object; new_call gives a call of the export with nothing in it yet, start sends one.
    Opens(Session &session, NewCall new_call, Start start)
        : session_(session),
          new_call_(std::move(new_call)),
          start_(std::move(start)),
          closing_soon_(session.server().loop()) {}

    // Somebody holds the file open, for this access; each time is followed by a release(). With the last one it is
    // closed, a little later and without anyone waiting for it: the call's owner is this object.
    void hold(const FileHandle &file, uint32_t access);
    void release(const FileHandle &file);
    bool is_held(const FileHandle &file) const { return files_.contains(file); }

    // Calls back when the file, which is held, is open for this access: at once, or from the loop. A failure says why
    // it is not.
    void use(const FileHandle &file, uint32_t access, DoneCompletion ready);
    // On the server, or about to be.
    bool is_open(const FileHandle &file) const;
    // Asked for, and not answered yet.
    bool is_being_opened(const FileHandle &file) const;
    // One operation that is asked behind the OPEN of a file that is not open, of which it uses the current state. done
    // is told when it went well, and when the file can not be opened; otherwise alone is called, as the file is open
    // then.
    struct Behind {
        std::function<void(Compound &)> put;
        std::function<bool(Results &, const rpc::Request &)> read;
        std::span<std::byte> landing;
        DoneCompletion done;
        std::function<void()> alone;
    };
    void open_with(const FileHandle &file, uint32_t access, Behind behind);
    // What an operation on the file presents; the anonymous state when it is not open for all of the access.
    StateId state(const FileHandle &file, uint32_t access = 0) const;

    // The file, which is held, was opened otherwise: by name, as it was made.
    void opened(const FileHandle &file, const OpenOwner &owner, uint32_t access, const StateId &state);
    // The server does not know this state of the file any more.
    void lost(const FileHandle &file, const StateId &state);
    // The caller closes the file itself, as part of something else.
    StateId take(const FileHandle &file);
    // The same, when it did not come to that. Nobody waits for it.
    void close_behind(const FileHandle &file, const StateId &state);

    // What was let go is closed before anything else is asked: somebody may be about to remove it.
    void close_left();
    // Closes everything; done is called when the server has answered for all of them. That may be the end of the
    // session, too.
    void close_all(DoneCompletion done);
    // Forgets what is open, without a word to the server. Who waits is not called.
    void clear();

    std::vector<std::unique_ptr<Call>> reclaim() override;

  private:
    struct Waiter {
        uint32_t access;
        DoneCompletion ready;
    };
    // What is held.
    struct File {
        unsigned holders = 0;
        uint32_t wanted = 0;  // access, by all of them
        OpenOwner owner;
        uint32_t access = 0;  // what the server has granted
        StateId state;
        bool open = false;
        bool opening = false;
        std::vector<Waiter> waiters;

        // What the server has granted; who waits is not called.
        void forget();
    };

    // Nobody holds it any more, and the server has it open still.
    struct Left {
        FileHandle file;
        StateId state;
    };

    OpenOwner begin_open(File &entry);
    void open(const FileHandle &file, uint32_t access);
    void open_ended(const FileHandle &file, uint32_t access, const StateId &state, const Status &status);
    void forget_all();
    void close_soon(Left left);
    std::vector<Left> take_left();
    static void put_closing(Compound &compound, const Left &left);
    static bool get_closing(Results &results);
    Session::LastWords closing_of(const std::vector<Left> &files) const;
    void send_close(const Left &left);
    void close_answered();
    void all_are_closed();

    Session &session_;
    const NewCall new_call_;
    const Start start_;
    std::unordered_map<FileHandle, File, FileHandleHash> files_;
    std::vector<Left> left_;
    ScopedTimer closing_soon_;
    unsigned closing_ = 0;  // CLOSEs under way
    DoneCompletion all_closed_;
};

}  // namespace nfstdm::nfs4
