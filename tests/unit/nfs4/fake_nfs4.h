// SPDX-License-Identifier: Apache-2.0
// An NFSv4.1 server as a script: sessions with slots and kept answers, opens that a restart loses, and whatever failure
// a test wants.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "nfstdm/nfs4/arguments.h"
#include "nfstdm/nfs4/constants.h"
#include "nfstdm/nfs4/fields.h"
#include "tests/unit/rpc/scripted_server.h"

namespace nfstdm::nfs4::test {

using nfstdm::test::Bytes;
using nfstdm::test::ReceivedCall;

class FakeNfs4 {
  public:
    explicit FakeNfs4(EventLoop &loop);

    // The next executions of an operation fail, each with one of these.
    void fail(Op op, NfsStatus status, int times = 1) { failures_[op].insert(failures_[op].end(), times, status); }
    // The same, after so many that work.
    void fail_later(Op op, NfsStatus status, int after) {
        failures_[op].insert(failures_[op].end(), after, NfsStatus::ok);
        fail(op, status);
    }
    // No operation is to fail any more.
    void forgive() { failures_.clear(); }
    // The next compounds with an operation are executed, and the connection is cut instead of an answer.
    void lose_answers(Op op, int times) { lost_[op] = times; }
    // As a crash does: clients, sessions and opens are gone.
    void restart();
    // The sessions alone are gone.
    void forget_sessions() { sessions_.clear(); }

    int executed(Op op) const {
        const auto found = executed_.find(op);
        return found == executed_.end() ? 0 : found->second;
    }
    // The operations of each compound that was executed, "SEQUENCE PUTFH GETATTR".
    const std::vector<std::string> &compounds() const { return compounds_; }
    std::size_t open_files() const { return opens_.size(); }
    // Clients and sessions that it knows of.
    std::size_t known() const { return clients_.size() + sessions_.size(); }

    nfstdm::test::ScriptedServer server;
    std::string owner = "server";       // of this server, as it tells it
    std::string content = "content";    // of every file
    std::map<std::string, char> names;  // of the only directory: 'd' a directory, 'f' a file
    // Does something to the results of an answer before they are sent; false: the connection is cut instead.
    std::function<bool(Bytes &)> spoil;
    uint32_t slots = 4;
    uint32_t operations = 64;  // that a compound may have
    uint32_t channel_bytes = (1 << 20) + 4096;
    AttributeSet lacking;                                    // attributes that it does not have
    std::vector<bool> asked_to_be_kept;                      // of each compound with a SEQUENCE
    std::vector<StateId> resized_with;                       // the state that each SETATTR of a size presented
    std::vector<StateId> read_with;                          // ... that each READ presented
    std::function<void(SequenceArguments &)> turn_sequence;  // what an answer tells of its slot and number
    uint32_t minor_version_maximum = 2;
    std::vector<std::pair<uint32_t, uint32_t>> sequences;  // slot and sequence number, as they came
    int grants_without_reclaim = 0;
    bool offers_sys = false;                  // as SECINFO tells it
    std::vector<uint32_t> kerberos_services;  // of RPCSEC_GSS, as SECINFO tells them

    // Copies: what was asked, and how the server goes about them.
    struct Copied {
        uint64_t from = 0, to = 0, count = 0;
        bool operator==(const Copied &) const = default;
    };
    std::vector<Copied> clones;
    std::vector<Copied> copies;
    std::vector<bool> copies_at_once;        // whether it was asked for
    uint64_t copy_maximum = UINT64_MAX;      // bytes
    int looks_until_copied = 0;              // above 0: in the background
    NfsStatus copy_outcome = NfsStatus::ok;  // of one in the background
    std::vector<uint64_t> copy_verifiers;    // of the next copies; those of a COMMIT else
    bool copy_is_synced = false;
    std::vector<std::pair<uint64_t, uint64_t>> extents;  // of every file; holes are between
    bool seeks_in_vain = false;                          // finds everything where it is asked to look

  private:
    struct Session {
        uint64_t client = 0;
        std::map<uint32_t, std::pair<uint32_t, Bytes>> answers;  // by slot: the sequence number and the answer to it
    };
    struct Compound {
        explicit Compound(xdr::Reader reader) : arguments(reader) {}

        xdr::Reader arguments;
        xdr::Writer results;
        StateId current;
        std::string name;  // looked up last
        std::string text;  // the operations
        bool lose = false;
        Session *session = nullptr;
        uint32_t slot = 0;
        uint32_t sequence = 0;
        uint32_t count = 0;
        const Bytes *kept = nullptr;
    };

    void answer(const ReceivedCall &call);
    NfsStatus execute(Op op, Compound &compound);
    NfsStatus execute_session(Op op, Compound &compound);
    NfsStatus destroy_session(Compound &compound);
    NfsStatus destroy_client(uint64_t client);
    NfsStatus execute_file(Op op, Compound &compound);
    NfsStatus sequence(Compound &compound);
    NfsStatus open(Compound &compound);
    bool lacks_any(xdr::Reader &reader) const;
    NfsStatus clone(Compound &compound);
    NfsStatus copy(Compound &compound);
    NfsStatus look_at_copy(Compound &compound);
    NfsStatus seek(Compound &compound);
    NfsStatus get_range(Compound &compound, Copied &range);
    NfsStatus check(const StateId &state, const Compound &compound) const;
    static SessionId session_id(uint32_t number);

    std::map<Op, std::vector<NfsStatus>> failures_;
    std::map<Op, int> lost_;
    std::map<Op, int> executed_;
    std::vector<std::string> compounds_;
    std::map<uint64_t, bool> clients_;  // confirmed
    std::map<std::string, uint64_t> owners_;
    std::map<SessionId, Session> sessions_;
    std::map<uint8_t, bool> opens_;
    std::map<std::pair<std::string, std::string>, uint8_t> owned_;  // by file and owner
    uint64_t next_client_ = 100;
    uint32_t next_session_ = 1;
    uint8_t next_open_ = 1;
};

}  // namespace nfstdm::nfs4::test
