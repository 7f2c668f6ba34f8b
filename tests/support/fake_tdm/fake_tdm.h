// SPDX-License-Identifier: Apache-2.0
// A storage library for tests: it serves a tree in memory, records every call with its arguments, and answers as it is
// told to.
//
// Paths under the volume's prefix ("/m") are remote. Every other path gets the answers of a path that is on no mount.
// Requests do their work when they are collected, not when they are submitted, so a buffer that is used again too early
// shows in the data. An identifier is stale for I/O once its file was resized, until tdm_reidentify gives another.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/fake_tdm/volume.h"

// What a call answers instead of doing its work.
struct FakeAnswer {
    uint32_t status = 0;
    std::optional<uint32_t> location;  // location code, or code of identify; by default that of a failure
};

class FakeTdm {
  public:
    // The library has no handle that tests could pass around, so there is one fake a process.
    static FakeTdm &instance();

    // Forgets files, calls and answers.
    void reset();

    FakeVolume volume;
    uint32_t block_size = 1;
    uint32_t readdir_entries = 4;      // entries a tdm_readdir call, as tdm_fsinfo tells
    uint32_t names_left_out = 0;       // of every directory, as tdm_readdir tells
    TdmFileInfo file_properties = {};  // I/O size, alignment, permitted operations and mirror sides of every file
    TdmFsInfo file_system_limits = {};
    TdmFsStat file_system_figures = {};

    // The session's context, as tdm_init gives it.
    void *context() { return this; }

    // The nth call (from 1; 0 = every call) of an operation gives this answer. Operations are named without "tdm_";
    // those of tdm_io are "submit", "reap" and "barrier".
    void answer(const std::string &operation, uint32_t nth, FakeAnswer answer);

    // The nth request (from 1) completes with this status; the call that collects it succeeds.
    void complete_request(uint32_t nth, uint32_t status);

    // This happens once, when an operation is called next: what another process may do meanwhile.
    void when(const std::string &operation, std::function<void()> event);

    // The calls so far, a line each, such as "resize file=1 size=33280".
    const std::vector<std::string> &calls() const { return calls_; }
    void forget_calls() { calls_.clear(); }

    // The calls of some operations only.
    std::vector<std::string> calls_of(const std::vector<std::string> &operations) const;

    // True when every answer set for one call was given: a test of a failure ends by asking.
    bool every_answer_was_given() const { return answers_.empty() && request_statuses_.empty(); }

    // For the operations themselves.
    std::optional<FakeAnswer> record(const std::string &operation, const std::string &arguments);
    std::optional<uint32_t> take_request_status();
    uint64_t open(FakeNodePointer node);
    bool knows(uint64_t file) const { return open_files_.contains(file); }

    struct OpenFile {
        FakeNodePointer node;
        bool stale = false;
    };
    std::map<uint64_t, OpenFile> open_files_;
    std::vector<const TdmIoRequest *> in_flight_;
    std::string log_file;  // when set, calls are appended to this file too

  private:
    std::vector<std::string> calls_;
    std::map<std::string, uint32_t> call_counts_;
    std::map<std::pair<std::string, uint32_t>, FakeAnswer> answers_;
    std::map<std::string, FakeAnswer> standing_answers_;
    std::map<std::string, std::function<void()>> events_;
    std::map<uint32_t, uint32_t> request_statuses_;
    uint32_t request_count_ = 0;
    uint64_t last_file_ = 0;
};
