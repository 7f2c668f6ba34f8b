// SPDX-License-Identifier: Apache-2.0
// A server in memory and a volume on it, for tests without a network. The server forgets what was not committed when it
// is restarted; the volume counts and measures what is asked of it and answers when the test lets it.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/volume/file_by_handle.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm::test {

std::vector<std::byte> pattern(std::size_t size, unsigned seed = 1);

enum class Op {
    attach,
    getattr,
    setattr,
    lookup,
    lookup_path,
    readlink,
    read,
    write,
    commit,
    create,
    mkdir,
    remove,
    rmdir,
    readdir,
    fsinfo,
    fsstat,
    detach
};

class FakeServer {
  public:
    struct Node {
        Attributes attributes;
        std::vector<std::byte> data;    // of a file, as reads see it
        std::vector<std::byte> stable;  // as it is after a restart
        std::string target;             // of a link
        std::vector<std::pair<std::string, uint64_t>> children;
    };

    FakeServer();

    // Each makes the object under its parent directory and gives its id.
    uint64_t add_directory(const std::string &path);
    uint64_t add_file(const std::string &path, std::vector<std::byte> data = {});
    uint64_t add_link(const std::string &path, const std::string &target);

    Node &node(uint64_t id) { return nodes_.at(id); }
    Node &at(const std::string &path) { return nodes_.at(find(path)); }
    bool exists(const std::string &path) const { return find(path) != 0; }
    uint64_t find(const std::string &path) const;

    FileHandle handle(uint64_t id) const;
    // 0 when the handle is stale.
    uint64_t id_of(const FileHandle &handle) const;
    void make_handles_stale() { ++generation_; }
    void make_handles_known_again() { --generation_; }

    std::string server_name = "one";
    Time clock;  // the change time of what is made now

    // The next MKDIR is answered as one that was sent more than once, first at this moment; with done_first that first
    // sending makes the directory.
    struct ResentMkdir {
        EventLoop::Clock::time_point first_sent;
        bool done_first = false;
    };
    std::optional<ResentMkdir> resent_mkdir;

    // Loses everything that was not committed.
    void restart();
    uint64_t verifier = 1;

    // What goes wrong: the next answers to an operation are failures with these numbers, in order; 0 passes.
    std::map<Op, std::deque<uint32_t>> failures;
    void fail_next(Op op, uint32_t number) { failures[op].push_back(number); }

    VolumeLimits limits{1 << 20, 1 << 20, 1, 1 << 20, 1 << 20, 1, 8192, UINT64_MAX};
    std::optional<FsInfoReply> root_info;  // told when it is attached
    std::size_t entries_per_reply = 100;
    std::size_t names_per_entry = 1;  // as many come in a reply when they come alone
    bool has_readdirplus = true;
    bool lists_dots = true;
    std::vector<DirectoryEntry> extra_entries;      // appended to every directory
    std::set<uint64_t> bad_cookies;                 // refused once each
    std::map<uint64_t, uint64_t> cookie_overrides;  // cookie in an entry -> what is sent instead
    bool directories_end = true;
    std::size_t path_components = 1;          // that one question looks up
    std::size_t makes_up_names = 0;           // bytes; directories go on with names of this length, for ever
    bool keeps_made_open = false;             // what CREATE made is open already
    bool takes_content = false;               // with CREATE
    bool tells_attributes = true;             // with CREATE, LOOKUP and WRITE
    bool tells_directories = true;            // with CREATE, MKDIR, REMOVE and RMDIR
    std::optional<uint64_t> write_size_told;  // instead of the true one
    uint32_t read_at_most = UINT32_MAX;
    uint32_t write_at_most = UINT32_MAX;

    std::vector<std::string> opens;  // "open 2 to read", "close 2 to read", ...: by the file's id, in order
    std::map<Op, unsigned> calls;
    unsigned total_calls() const;
    std::vector<std::string> log;  // "WRITE 0+1000 unstable", "COMMIT", "REMOVE name", ...

    uint64_t add_child(uint64_t parent, const std::string &name, FileType type);
    void remove_child(uint64_t parent, const std::string &name);
    uint64_t child(uint64_t parent, const std::string &name) const;

  private:
    std::pair<uint64_t, std::string> parent_of(const std::string &path) const;

    std::map<uint64_t, Node> nodes_;
    uint64_t next_id_ = 2;
    uint8_t generation_ = 1;
};

class FakeVolume : public Volume {
  public:
    FakeVolume(EventLoop &loop, FakeServer &server) : loop_(loop), server_(server) {}

    void attach(Completion<FileHandle> done) override;
    const VolumeLimits &limits() const override { return server_.limits; }
    bool busy() const override { return false; }
    std::optional<FsInfoReply> root_info() const override { return server_.root_info; }
    void getattr(const FileHandle &object, Completion<Attributes> done) override;
    void setattr(const FileHandle &object, const SetAttributes &set, DoneCompletion done) override;
    void lookup(const FileHandle &directory, std::string_view name, Completion<LookupReply> done) override;
    void readlink(const FileHandle &link, Completion<std::string> done) override;
    void read(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer, Completion<ReadReply> done);
    void write(const FileHandle &file, uint64_t offset, std::span<const std::byte> data, Stability stability,
               Completion<WriteReply> done);
    void commit(const FileHandle &file, Completion<CommitReply> done);
    std::unique_ptr<VolumeFile> open(const FileHandle &file, Access access) override;
    std::size_t path_components_maximum() const override { return server_.path_components; }
    void lookup_path(const FileHandle &directory, const std::vector<std::string> &names,
                     Completion<PathReply> done) override;
    void create(const FileHandle &directory, std::string_view name, const SetAttributes &set,
                Completion<CreatedFile> done) override {
        make_file(directory, name, set, {}, std::move(done));
    }
    void create_with(const FileHandle &directory, std::string_view name, const SetAttributes &set,
                     std::span<const std::byte> content, Completion<CreatedFile> done) override {
        make_file(directory, name, set, server_.takes_content ? content : std::span<const std::byte>{},
                  std::move(done));
    }
    void mkdir(const FileHandle &directory, std::string_view name, uint32_t mode,
               Completion<CreateReply> done) override;
    void remove(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) override;
    void rmdir(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) override;
    void readdir(const FileHandle &directory, uint64_t cookie, uint64_t verifier, bool plus,
                 Completion<DirectoryReply> done) override;
    void fsinfo(const FileHandle &object, Completion<FsInfoReply> done) override;
    void fsstat(const FileHandle &object, Completion<FsStatReply> done) override;
    void detach(DoneCompletion done) override;

    // While held, READs, WRITEs and COMMITs wait in waiting until the test answers them.
    bool held = false;
    struct Waiting {
        Op op;
        uint64_t offset;
        std::size_t size;
        std::function<void()> answer;
    };
    std::deque<Waiting> waiting;
    void answer_first();  // and runs what follows from it
    void answer_last();
    void answer_all();
    std::size_t waiting_for(Op op) const;
    std::size_t most_waiting = 0;  // READs and WRITEs at once
    std::size_t largest = 0;       // bytes of a READ or WRITE

  private:
    std::optional<Status> failure(Op op);
    template <class T>
    void reply(Op op, const FileHandle *handle, Completion<T> done, std::function<Result<T>(uint64_t id)> answer);
    void done_reply(Op op, const FileHandle &handle, DoneCompletion done, std::function<Status(uint64_t id)> answer);
    void later(Op op, uint64_t offset, std::size_t size, std::function<void()> answer);
    DirectoryChange change_of(uint64_t directory, const Attributes &before);
    void make_file(const FileHandle &directory, std::string_view name, const SetAttributes &set,
                   std::span<const std::byte> content, Completion<CreatedFile> done);
    Result<DirectoryReply> list(uint64_t id, uint64_t cookie, bool plus);

    EventLoop &loop_;
    FakeServer &server_;
};

}  // namespace nfstdm::test
